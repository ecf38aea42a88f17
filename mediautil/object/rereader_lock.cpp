#include "mediautil/object/rereader_lock.h"

std::atomic<RereaderLock*> RereaderLock::singletonMutex{nullptr};
ZarnexPosix::JMutex RereaderLock::m_internalMutex;

RereaderLock& RereaderLock::getRef() {
    RereaderLock* lock = singletonMutex.load(std::memory_order_acquire);
    if (lock == nullptr) {
        ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> making(m_internalMutex);
        static RereaderLock* instance = nullptr;
        lock = newSingleton(instance);
        singletonMutex.store(lock, std::memory_order_release);
    }
    return *lock;
}
