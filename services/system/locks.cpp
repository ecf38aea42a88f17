#include "services/system/locks.h"

#include "services/system/msg_clamp.h"
#include "services/system/text.h"

namespace ZarnexPosix {

void jlock_error(int code, const void* lock) {
    static MsgClamp clamp;
    const AutoPtr<char> stack = getStackTrace();
    clamp.error("jlock_error: code %d on lock %p by thread 0x%lx, %s\n", code, lock, jlock_getCurrentTask(),
                stack.get() != nullptr ? stack.get() : "no stack");
    debugBkpt();
}

// A mutex holds nothing of the system's, and one of static storage may still be asked for by a destructor that runs
// later: it stays usable. Only the race detector wants to hear of its end.
JMutex::~JMutex() {
#if defined(__SANITIZE_THREAD__)
    pthread_mutex_destroy(&m_mutex);
#endif
}

void JMutex::lock() MO_NO_THREAD_SAFETY_ANALYSIS {
    const int error = pthread_mutex_lock(&m_mutex);
    if (error != 0) jlock_error(error, this);
}

void JMutex::unlock() MO_NO_THREAD_SAFETY_ANALYSIS {
    const int error = pthread_mutex_unlock(&m_mutex);
    if (error != 0) jlock_error(error, this);
}

bool JMutex::trylock() MO_NO_THREAD_SAFETY_ANALYSIS { return pthread_mutex_trylock(&m_mutex) == 0; }

JLWSemaphore::JLWSemaphore(int count) { sem_init(&m_semaphore, 0, count > 0 ? static_cast<unsigned>(count) : 0u); }

JLWSemaphore::~JLWSemaphore() { sem_destroy(&m_semaphore); }

void JLWSemaphore::wait() {
    while (sem_wait(&m_semaphore) != 0 && errno == EINTR) {
    }
}

void JLWSemaphore::post() {
    if (sem_post(&m_semaphore) != 0) jlock_error(errno, this);
}

}  // namespace ZarnexPosix
