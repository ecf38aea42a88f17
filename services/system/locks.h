#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>

#include "support/thread_annotations.h"
#include "support/visibility.h"

// The locks of the core. Those of static storage are ready before any constructor runs.
namespace ZarnexPosix {

// An id of the calling thread; never 0, and no two living threads share one.
using jlock_Task = unsigned long;
inline jlock_Task jlock_getCurrentTask() { return static_cast<jlock_Task>(pthread_self()); }

// Reports misuse of the lock at that address: unlocked by a stranger (code 0, or EPERM), locked twice (EDEADLK).
MO_PUBLIC void jlock_error(int code, const void* lock);

// A mutex. Taking it twice or giving it back by a stranger is reported by jlock_error and changes nothing.
class MO_PUBLIC MO_CAPABILITY("mutex") JMutex {
public:
    struct Recursive {};

    constexpr JMutex() : m_mutex PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP {}
    explicit constexpr JMutex(Recursive) : m_mutex PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP {}
    ~JMutex();
    JMutex(const JMutex&) = delete;
    JMutex& operator=(const JMutex&) = delete;

    void lock() MO_ACQUIRE();
    void unlock() MO_RELEASE();
    bool trylock() MO_TRY_ACQUIRE(true);

private:
    pthread_mutex_t m_mutex;
};

// A mutex that the owning thread may take more than once, and gives back as often.
template <class Mutex>
class MO_CAPABILITY("mutex") JMultiLock {
public:
    constexpr JMultiLock() : m_mutex(typename Mutex::Recursive{}) {}

    void lock() MO_ACQUIRE() MO_NO_THREAD_SAFETY_ANALYSIS { m_mutex.lock(); }
    void unlock() MO_RELEASE() MO_NO_THREAD_SAFETY_ANALYSIS { m_mutex.unlock(); }
    bool trylock() MO_TRY_ACQUIRE(true) MO_NO_THREAD_SAFETY_ANALYSIS { return m_mutex.trylock(); }

private:
    Mutex m_mutex;
};

// A counting semaphore; `lock` and `unlock` are `wait` and `post` under the names of a lock.
class MO_PUBLIC JLWSemaphore {
public:
    explicit JLWSemaphore(int count);
    ~JLWSemaphore();
    JLWSemaphore(const JLWSemaphore&) = delete;
    JLWSemaphore& operator=(const JLWSemaphore&) = delete;

    // Waits: until the count is above 0, and lowers it.
    void wait();
    // Raises the count.
    void post();
    void lock() { wait(); }
    void unlock() { post(); }

private:
    sem_t m_semaphore;
};

// A recursive lock that knows its owner.
template <class Semaphore>
class MO_CAPABILITY("mutex") JMultiTrackLock {
public:
    JMultiTrackLock() : m_semaphore(1) {}
    JMultiTrackLock(const JMultiTrackLock&) = delete;
    JMultiTrackLock& operator=(const JMultiTrackLock&) = delete;

    void lock() MO_ACQUIRE() MO_NO_THREAD_SAFETY_ANALYSIS {
        const jlock_Task task = jlock_getCurrentTask();
        // Relaxed is enough: the comparison holds only for the value that this very thread has stored.
        if (m_owner.load(std::memory_order_relaxed) == task) {
            m_count.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        m_semaphore.lock();
        m_count.fetch_add(1, std::memory_order_relaxed);
        m_owner.store(task, std::memory_order_relaxed);
    }

    // Fails: a thread that isn't the owner is reported by jlock_error, and nothing changes.
    void unlock() MO_RELEASE() MO_NO_THREAD_SAFETY_ANALYSIS {
        if (m_owner.load(std::memory_order_relaxed) != jlock_getCurrentTask()) {
            jlock_error(0, this);
            return;
        }
        if (m_count.fetch_sub(1, std::memory_order_relaxed) != 1) return;
        m_owner.store(0, std::memory_order_relaxed);
        m_semaphore.unlock();
    }

private:
    Semaphore m_semaphore;
    std::atomic<jlock_Task> m_owner{0};  // 0 while nobody has it
    std::atomic<int> m_count{0};         // how often the owner holds it
};

// Holds a lock for a scope. `unlock` and `lock` act only if the state differs, so that a lock can be dropped in the
// middle of a scope and taken back; the scope's end leaves `errno` as it was.
template <class Lock>
class MO_SCOPED_CAPABILITY ScopeLock {
public:
    explicit ScopeLock(Lock& target) MO_ACQUIRE(target) : m_locked(true), m_target(&target) { target.lock(); }
    ~ScopeLock() MO_RELEASE() MO_NO_THREAD_SAFETY_ANALYSIS {
        if (!m_locked) return;
        const int error = errno;
        m_target->unlock();
        errno = error;
    }
    ScopeLock(const ScopeLock&) = delete;
    ScopeLock& operator=(const ScopeLock&) = delete;

    void lock() MO_ACQUIRE() MO_NO_THREAD_SAFETY_ANALYSIS {
        if (m_locked) return;
        m_target->lock();
        m_locked = true;
    }
    void unlock() MO_RELEASE() MO_NO_THREAD_SAFETY_ANALYSIS {
        if (!m_locked) return;
        m_locked = false;
        m_target->unlock();
    }

private:
    bool m_locked;
    Lock* m_target;
};

}  // namespace ZarnexPosix
