#pragma once

#include "support/atomic_ops.h"
#include "support/clock.h"

// Base of classes of which a process has one object, made by whoever asks first.
// **Threads:** any. Locks: none, so it works before any lock has been constructed.
template <class T>
class SingletonHelper {
public:
    // Answers the one object, which the very first caller makes and puts into the slot. T's constructor must not ask
    // for its own object. The slot is read and written atomically: elsewhere it is either not touched or touched so
    // too. Waits: while another thread constructs, in steps of 1, 3, 7 … 255 ms.
    static T* newSingleton(T*& slot) {
        if (atomicAdd(&s_callers, 2) == 2) {
            __atomic_store_n(&slot, new T, __ATOMIC_RELEASE);
            atomicDec(&s_callers);
        } else {
            atomicAdd(&s_callers, -2);
            waitForFirst();
        }
        return __atomic_load_n(&slot, __ATOMIC_ACQUIRE);
    }

protected:
    SingletonHelper() {}

private:
    // The add of a third caller may look like a construction; that costs one short wait.
    static void waitForFirst() {
        unsigned char delay = 1;
        while (static_cast<unsigned int>(atomicGet(&s_callers)) > 1u) {
            waitMsec(delay);
            delay = static_cast<unsigned char>(delay * 2 + 1);
        }
    }

    static inline int s_callers = 0;  // 2 a caller, less 1 once the object stands: at rest 0, then 1 for good
};
