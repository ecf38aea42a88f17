#pragma once

#include <atomic>

#include "support/auto_ptr.h"
#include "support/visibility.h"

// A thread of the system: it runs startMethod() of the derived class, and may be started again when it has ended.
// **Threads:** all operations from any thread. A thread may ask itself to stop, but doesn't wait for itself. In a child
// that was forked off there is no thread: it isn't running, nobody waits for it, and it
// can't be started there.
// **Owns:** the system's thread. It must not be destroyed by the thread that it runs.
class MO_PUBLIC BaseThread {
public:
    // The name is what the system's tools show, of which Linux keeps 15 characters. Priorities from 90 to 99 ask for
    // real-time scheduling and go on without it where the system refuses; lower ones are ordinary. The stack size, in
    // bytes, is a floor.
    BaseThread(const char* name, unsigned int priority, unsigned int stackSize);
    BaseThread(const BaseThread&) = delete;
    BaseThread& operator=(const BaseThread&) = delete;
    // A derived class stops its thread in its own destructor, before its members go; here it is only the last resort.
    // Waits: for the thread's end.
    virtual ~BaseThread();

    // Starts the thread. Answers false if it runs already or if the system gives none.
    bool start();
    // Asks the thread to end, and waits for that if told so. Answers whether the thread has ended. A start that comes
    // later is another run, which is neither asked nor waited for.
    // Waits: without a limit, when told to.
    bool stop(bool waitForEnd);
    // Whether startMethod() is being run, or is about to be.
    bool running() const;
    // Waits: for the thread's end, without a limit. With no thread, or in the thread itself, there is nothing to wait
    // for.
    void wait();

    // Whether the thread has been asked to end: what startMethod() looks at.
    bool stopRequested() const { return m_stopRequested.load(std::memory_order_acquire); }

protected:
    // The thread's work.
    virtual void startMethod() = 0;

private:
    struct Control;

    static void* run(void* self);
    void beginRun();
    unsigned requestStop();
    bool isRun(unsigned run) const;

    std::atomic<bool> m_stopRequested{false};
    AutoPtr<Control> m_control;
};
