#pragma once

#include "support/base_thread.h"

// Runs a member function of an object as a thread.
template <class T>
class ThreadMethod : public BaseThread {
public:
    ThreadMethod(T& object, void (T::*method)(), const char* name, unsigned int priority, unsigned int stackSize)
        : BaseThread(name, priority, stackSize), m_object(&object), m_method(method) {}
    // Stopped here and not in the base: the thread uses the members below and startMethod().
    ~ThreadMethod() override { stop(true); }

protected:
    void startMethod() override { (m_object->*m_method)(); }

private:
    T* const m_object;  // borrowed
    void (T::*const m_method)();
};
