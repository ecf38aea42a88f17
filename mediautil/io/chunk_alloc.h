#pragma once

#include "services/system/locks.h"
#include "support/dlist.h"
#include "support/mem_pool_alloc.h"
#include "support/signals.h"
#include "support/singleton_helper.h"
#include "support/thread_method.h"

class ChunkHandler;
class ChunkProbe;

// The pool of chunk handlers, so that a read takes nothing from the general heap, and the one thread on which whole
// reads are looked at before their requesters have them. The thread comes with the first read that is to be looked at.
// **Threads:** any, but for `stopThreadsCb`, which is called by one at a time and not by the thread that it ends.
// **Locks:** m_mutex, a leaf; neither the look at a read nor its requester's hook runs under it.
// **Owns:** the memory of all handlers, and the handlers in its queue.
class ChunkAlloc : public SingletonHelper<ChunkAlloc>, private MemPoolAlloc {
public:
    ChunkAlloc();
    ChunkAlloc(const ChunkAlloc&) = delete;
    ChunkAlloc& operator=(const ChunkAlloc&) = delete;
    // Ends the thread. Requires: no handler of this pool lives.
    ~ChunkAlloc();

    // The process's own, made on first use.
    static ChunkAlloc* getRef();

    // Memory for one handler, or null.
    void* alloc() MO_EXCLUDES(m_mutex);
    void free(void* memory) MO_EXCLUDES(m_mutex);

    // Hands a read that is whole over to the validation thread, which answers it. Takes: the handler, on success.
    // Fails: false when the system gives no thread.
    bool asyncValidate(ChunkHandler& handler) MO_EXCLUDES(m_mutex);
    // What the thread does until it is asked to end.
    void validateLoop() MO_EXCLUDES(m_mutex);
    // Whether no read waits in the queue; with `report` it is said when one does.
    bool checkFinishedCb(bool report) MO_EXCLUDES(m_mutex);
    // Ends the thread; what is queued then stays queued. Answers true.
    // Waits: for the end of the look that is under way, without limit.
    bool stopThreadsCb() MO_EXCLUDES(m_mutex);

private:
    friend class ChunkProbe;  // tests look at the parts
    bool ensureThread() MO_REQUIRES(m_mutex);
    ThreadMethod<ChunkAlloc>* thread() MO_EXCLUDES(m_mutex);
    ChunkHandler* popHead() MO_EXCLUDES(m_mutex);

    ZarnexPosix::JMutex m_mutex;
    ThreadMethod<ChunkAlloc>* m_thread MO_GUARDED_BY(m_mutex) = nullptr;  // owned
    DLinkedList<ChunkHandler> m_queue MO_GUARDED_BY(m_mutex){"ChunkAlloc", 1};
    ZarnexPosix::JLWSemaphore m_wake{1};  // posted for each handler in the queue; one more only costs a turn
    Subsystem::Signals<ChunkAlloc> m_signals;
};
