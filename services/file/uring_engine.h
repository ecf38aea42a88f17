#pragma once

#ifdef MEDIACORE_HAVE_URING

#include <liburing.h>

#include "services/file/pool_engine.h"

// Reads what lies in memory with plain calls, since the ring would do no more than the same copy, and the rest of a
// batch through a ring of its own, which only this thread ever touches: hundreds may wait for the device at once.
// Without a ring, or should the ring fail, it reads as a plain worker does.
class UringWorker : public PoolWorker {
public:
    UringWorker(RequestQueue& queue, const char* name) : PoolWorker(queue, nullptr, name) {}
    ~UringWorker() override { join(); }

    void serveMeanwhile() override;

    // Whether the kernel gives this process rings that can read.
    static bool isOffered();

protected:
    void serve() override;

private:
    static constexpr unsigned s_entries = 64;        // requests put to the kernel at once
    static constexpr unsigned s_mostInFlight = 512;  // requests that one worker has with the kernel

    static bool initRing(io_uring& ring, unsigned completions);
    bool openRing();
    void closeRing();
    void serveRing();
    void startBatch();
    bool push(AsyncRequest* request);
    io_uring_sqe* nextEntry(AsyncRequest* request);
    void submit();
    void noteSubmitted(int result);
    void readRestPlainly();
    void waitInRing();
    void collect();
    void reap();
    void settle(AsyncRequest& request);
    void clearCall();

    io_uring m_ring{};
    AsyncRequest* m_pushed[s_entries] = {};  // in the ring and not yet with the kernel; null is the watch for calls
    unsigned m_pushedCount = 0;
    AsyncRequestList m_ready;  // completed, with the result noted
    AsyncRequestList m_plain;  // read plainly because the ring refused them
    unsigned m_inFlight = 0;   // requests that still owe a completion
    bool m_watching = false;   // the ring watches m_seat.m_eventFd
    bool m_broken = false;     // the ring takes nothing any more
    bool m_hasRing = false;
};

#endif
