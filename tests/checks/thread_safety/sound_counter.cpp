// The sound twin of the planted race: the same class with its lock taken must compile.

#include "services/system/locks.h"

class Counter {
public:
    void add() {
        ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
        ++m_count;
    }

private:
    ZarnexPosix::JMutex m_mutex;
    int m_count MO_GUARDED_BY(m_mutex) = 0;
};

void touch(Counter& counter) { counter.add(); }
