#pragma once

#include "services/file/request_queue.h"
#include "support/thread_method.h"

// One thread of the asynchronous engine: takes batches from a queue and answers them until the queue has ended.
class AsyncWorker {
public:
    AsyncWorker(RequestQueue& queue, const char* name);
    AsyncWorker(const AsyncWorker&) = delete;
    AsyncWorker& operator=(const AsyncWorker&) = delete;
    virtual ~AsyncWorker();

    bool start() { return m_thread.start(); }
    // Waits: until the queue has ended and everything taken from it is answered.
    void join() { m_thread.wait(); }

    // The worker whose thread this is, or null.
    static AsyncWorker* current();
    // Called by a hook that waits for other requests: answers what is at hand, and never sleeps.
    virtual void serveMeanwhile() {}

protected:
    // The thread's work between its first and its last moment.
    virtual void serve() = 0;

    RequestQueue& m_queue;
    RequestQueue::Seat m_seat;
    // What was taken and is not answered yet, and what is and goes back to the queue. Members, so that a hook that
    // waits can go on with them.
    AsyncRequestList m_batch;
    AsyncRequestList m_answered;

private:
    void run();

    ThreadMethod<AsyncWorker> m_thread;
};

// Reads with plain system calls. The quick form takes what lies in memory and passes the rest on to a queue of those
// who may wait for the device, so that a read from memory never stands behind one from a disk.
class PoolWorker : public AsyncWorker {
public:
    // `slow` may be null: then this worker waits for the device itself.
    PoolWorker(RequestQueue& queue, RequestQueue* slow, const char* name) : AsyncWorker(queue, name), m_slow(slow) {}
    ~PoolWorker() override { join(); }

    void serveMeanwhile() override;

    // Gives the request its memory. Answers false, with the error noted, when none comes.
    static bool prepare(AsyncRequest& request);
    // Reads all that is left, waiting for the device. The outcome stands in the request.
    static void readAll(AsyncRequest& request);
    // Tells sink and hook, in this order, and lets go of the handle; the record stays the caller's.
    static void answer(AsyncRequest& request);

protected:
    void serve() override;

    // Reads what can be had without waiting. Answers true when that brought the request to its end.
    static bool readQuickly(AsyncRequest& request);

    // Tells it, and keeps the record for the queue.
    void finish(AsyncRequest& request);

private:
    void serveBatch();
    bool passOn(AsyncRequest& request);

    RequestQueue* const m_slow;
};

// The one thread that writes. It joins neighbouring blocks of a file into one system call; the blocks of one handle
// reach the file in the order in which they were given.
class WriteWorker : public AsyncWorker {
public:
    WriteWorker(RequestQueue& queue, const char* name) : AsyncWorker(queue, name) {}
    ~WriteWorker() override { join(); }

    unsigned long long getCalls() const { return m_calls.load(std::memory_order_relaxed); }

protected:
    void serve() override;

private:
    static AsyncRequestList takeRun(AsyncRequestList& list);
    void writeRun(AsyncRequestList& run);
    unsigned gather(const AsyncRequestList& run, struct iovec* pieces);
    int writeSingle(const AsyncRequest& request, unsigned long long& done);
    int writePieces(int fd, unsigned long long offset, struct iovec* pieces, unsigned count, unsigned long long& done);
    static void answer(AsyncRequest& request);

    std::atomic<unsigned long long> m_calls{0};
};
