// Touches a guarded number without its lock. It must not compile: that shows that the check of the locks sees.

#include "services/system/locks.h"

class Counter {
public:
    void add() { ++m_count; }

private:
    ZarnexPosix::JMutex m_mutex;
    int m_count MO_GUARDED_BY(m_mutex) = 0;
};

void touch(Counter& counter) { counter.add(); }
