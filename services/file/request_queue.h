#pragma once

#include <atomic>
#include <cstdint>

#include "services/file/basic_io_types.h"
#include "services/file/file_ops.h"
#include "services/system/short_lock.h"
#include "support/thread_annotations.h"

class AsyncSink;
class BasicFileIO;

// One request of the asynchronous engine. It holds a reference to its handle until it has been answered.
struct AsyncRequest {
    AsyncRequest* m_next = nullptr;
    BasicFileIO* m_handle = nullptr;
    AsyncSink* m_sink = nullptr;                     // null for a read that nobody but the hook hears of
    const BasicIOTypes::ReadHook* m_hook = nullptr;  // null for a write
    const void* m_tag = nullptr;
    phantom_OBUF* m_obuf = nullptr;   // what is read into, or owned by a write
    unsigned long long m_offset = 0;  // bytes from the file's start
    FileOps::Begun m_begun;
    unsigned m_size = 0;  // bytes
    unsigned m_done = 0;  // bytes moved so far
    phantom_obAllocationId_t m_allocId = 0;
    int m_fd = -1;
    int m_result = 0;  // what a ring said last
    int m_error = 0;   // errno value once it has failed
};

// A list of requests in their order.
struct AsyncRequestList {
    AsyncRequest* m_first = nullptr;
    AsyncRequest* m_last = nullptr;

    bool empty() const { return m_first == nullptr; }
    void append(AsyncRequest* request) {
        request->m_next = nullptr;
        (m_first == nullptr ? m_first : m_last->m_next) = request;
        m_last = request;
    }
    // The first one, taken out, or null.
    AsyncRequest* pop() {
        AsyncRequest* const request = m_first;
        if (request != nullptr) m_first = request->m_next;
        return request;
    }
};

// The queue between the callers and the workers of one kind of work.
//
// A sleeping worker is woken when nobody is awake to see the request, or when enough bytes are waiting that a second
// one pays for its wake-up; a worker that leaves enough behind wakes the next. The rest is found by those awake, so
// that a busy queue costs no wake-ups.
// **Threads:** any. **Locks:** m_lock, a leaf, for a few instructions. **Owns:** the memory of the requests, in blocks
// that stay until the queue goes: a steady load takes none.
class RequestQueue {
public:
    struct Limits {
        unsigned m_batchCount;            // requests that a worker takes at once
        unsigned long long m_batchBytes;  // and their weight, but for the first request
        unsigned long long m_wakeBytes;   // waiting weight that is worth another worker
    };

    // Where a worker sleeps. It belongs to one worker and is known to the queue while that worker sleeps.
    struct Seat {
        enum class State : std::uint32_t { Awake = 0, Asleep = 1, InRing = 2 };

        std::atomic<std::uint32_t> m_word{0};  // 1 once the sleeper has been called
        State m_state = State::Awake;          // guarded by the queue's lock
        int m_eventFd = -1;                    // calls a worker that waits in its ring
        Seat* m_nextIdle = nullptr;
    };

    enum class Outcome : std::uint32_t { Accepted = 0, Closed = 1, NoMemory = 2 };

    struct Batch {
        AsyncRequestList m_requests;  // may be empty
        bool m_ended = false;         // the queue is closed and empty
    };

    struct Counters {
        unsigned long long m_accepted = 0;
        unsigned long long m_completed = 0;
        unsigned long long m_batches = 0;
        unsigned long long m_wakes = 0;
        unsigned long long m_blocks = 0;
    };

    explicit RequestQueue(const Limits& limits) : m_limits(limits) {}
    ~RequestQueue();
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    // Copies the request into the queue. It is for the caller to hold the handle before and to let go of it on failure.
    Outcome submit(const AsyncRequest& request) MO_EXCLUDES(m_lock);
    // Lets requests in. They wait until a worker has entered.
    void open() MO_EXCLUDES(m_lock);
    // Refuses from now on, and calls all workers: they take what is left and then see the end.
    void close() MO_EXCLUDES(m_lock);

    // A worker's first and last word, on its own thread.
    void enter() MO_EXCLUDES(m_lock);
    void leave() MO_EXCLUDES(m_lock);
    // Takes back requests that were answered, and gives the next ones. Waits for some if `mayWait`.
    Batch take(Seat& seat, AsyncRequestList& answered, bool mayWait) MO_EXCLUDES(m_lock);
    // Before a worker waits in its ring: false when there is something to take instead.
    bool enterRing(Seat& seat) MO_EXCLUDES(m_lock);
    void leaveRing(Seat& seat) MO_EXCLUDES(m_lock);

    Counters getCounters() const MO_EXCLUDES(m_lock);

private:
    static constexpr unsigned s_blockSize = 128;
    // What a request costs apart from its bytes, as bytes.
    static constexpr unsigned s_fixedWeight = 8192;
    struct Block {
        Block* m_next;
        AsyncRequest m_requests[s_blockSize];
    };

    static unsigned long long weightOf(const AsyncRequest& request) { return s_fixedWeight + request.m_size; }
    bool grow() MO_EXCLUDES(m_lock);
    void recycle(AsyncRequestList& answered) MO_REQUIRES(m_lock);
    AsyncRequestList cut() MO_REQUIRES(m_lock);
    void park(Seat& seat, Seat::State state) MO_REQUIRES(m_lock);
    void unpark(Seat& seat) MO_REQUIRES(m_lock);
    Seat* pickIdle() MO_REQUIRES(m_lock);
    static void call(Seat* seat);

    const Limits m_limits;
    mutable ShortLock m_lock;
    AsyncRequestList m_waiting MO_GUARDED_BY(m_lock);
    AsyncRequest* m_free MO_GUARDED_BY(m_lock) = nullptr;
    Block* m_blocks MO_GUARDED_BY(m_lock) = nullptr;
    Seat* m_idle MO_GUARDED_BY(m_lock) = nullptr;           // sleepers, the last to fall asleep first
    unsigned long long m_weight MO_GUARDED_BY(m_lock) = 0;  // of all waiting requests
    unsigned m_awake MO_GUARDED_BY(m_lock) = 0;             // workers that will look at the queue before they sleep
    bool m_open MO_GUARDED_BY(m_lock) = false;
    Counters m_counters MO_GUARDED_BY(m_lock);
};
