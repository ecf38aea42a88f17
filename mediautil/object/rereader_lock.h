#pragma once

#include "services/system/locks.h"
#include "support/singleton_helper.h"

// The one lock under which holders move: taken by every operation that changes a `MediaObj::Persist`.
// **Locks:** behind the cache's map lock, ahead of a holder's and an object's own; nothing that holds it may ask for
// the map lock.
class RereaderLock : public SingletonHelper<RereaderLock> {
public:
    // Made on first use and never destroyed.
    static RereaderLock& getRef();

    operator ZarnexPosix::JMutex&() { return m_mutex; }

private:
    friend class SingletonHelper<RereaderLock>;
    RereaderLock() = default;

    static std::atomic<RereaderLock*> singletonMutex;
    static ZarnexPosix::JMutex m_internalMutex;

    ZarnexPosix::JMutex m_mutex;
};
