#pragma once

#include <cstddef>

#include "support/auto_ptr.h"
#include "support/bridge.h"
#include "support/visibility.h"

namespace Subsystem {

// What a subsystem answers when the system starts and stops. Each signal goes through the subsystems in ascending
// order of the priority that they have for that signal.
class MO_PUBLIC BaseSignals {
public:
    BaseSignals(const char* name, unsigned int initPriority, unsigned int signalShutdownPriority,
                unsigned int checkFinishedPriority, unsigned int stopThreadsPriority, unsigned int releaseMemPriority)
        : m_name(name),
          m_initPriority(initPriority),
          m_signalShutdownPriority(signalShutdownPriority),
          m_checkFinishedPriority(checkFinishedPriority),
          m_stopThreadsPriority(stopThreadsPriority),
          m_releaseMemPriority(releaseMemPriority) {}
    BaseSignals(const BaseSignals&) = delete;
    BaseSignals& operator=(const BaseSignals&) = delete;
    virtual ~BaseSignals() = default;

    // Each answers whether it went well; checkFinished whether nothing is left to wait for, and with report it says
    // through Registry::errMsg what is.
    virtual bool init() { return true; }
    virtual bool signalShutdown() { return true; }
    virtual bool checkFinished([[maybe_unused]] bool report) { return true; }
    virtual bool stopThreads() { return true; }
    virtual bool releaseMemory() { return true; }
    virtual AutoPtr<char> toString() const { return AutoPtr<char>(new char[1]()); }
    virtual AutoPtr<char> toIdString() const { return AutoPtr<char>(new char[1]()); }

    const char* name() const { return m_name; }
    unsigned int initPriority() const { return m_initPriority; }
    unsigned int signalShutdownPriority() const { return m_signalShutdownPriority; }
    unsigned int checkFinishedPriority() const { return m_checkFinishedPriority; }
    unsigned int stopThreadsPriority() const { return m_stopThreadsPriority; }
    unsigned int releaseMemPriority() const { return m_releaseMemPriority; }

private:
    const char* const m_name;  // borrowed for ever
    const unsigned int m_initPriority;
    const unsigned int m_signalShutdownPriority;
    const unsigned int m_checkFinishedPriority;
    const unsigned int m_stopThreadsPriority;
    const unsigned int m_releaseMemPriority;
};

// All subsystems of the process. Static: it works from static initialisation to the very end.
// **Threads:** any.
// **Locks:** its own is never held while a callback runs.
class MO_PUBLIC Registry {
public:
    Registry() = delete;

    // Takes: nothing; the signals stay registered until they are taken out. Registering twice is once.
    static void registerSignalHandlers(BaseSignals& signals);
    // Afterwards the signals are not called any more. Signals that aren't registered are left alone.
    // Waits: until a call of these signals that another thread is in has returned.
    static void unregisterSignalHandlers(BaseSignals& signals);

    // Sends init to all, whatever the first ones answer. Answers whether all said true.
    static bool initSubsystems();
    // Sends signalShutdown, then checkFinished until all say true, then stopThreads, then releaseMemory.
    // Answers whether all said true in the end.
    // Waits: polls of 10 ms for checkFinished, up to the limit; the one after that asks for a report.
    static bool shutdownSubsystems(unsigned int finishLimitMsec = 10000);

    // A subsystem's complaint about the sequence, printf-style.
    static void errMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

// The five callbacks of a Signals record in their order, null where there is none; for its texts.
struct SignalCallbacks {
    const void* m_init;
    const void* m_signalShutdown;
    const void* m_checkFinished;
    const void* m_stopThreads;
    const void* m_releaseMemory;
};
// The texts of Signals<T>. Gives: array text.
MO_PUBLIC AutoPtr<char> signalsToString(const BaseSignals& signals, const void* object,
                                        const SignalCallbacks& callbacks);
MO_PUBLIC AutoPtr<char> signalsToIdString(const BaseSignals& signals, const void* object);

// Binds the signals to member functions of an object; a signal without one is answered with true.
// **Owns:** its anchors. Takes itself out of the registry when it goes.
template <class T>
class Signals : public BaseSignals {
public:
    // Each member function may be null. The priority serves for all five signals.
    Signals(const char* name, T& object, bool (T::*initCb)(), bool (T::*signalShutdownCb)(),
            bool (T::*checkFinishedCb)(bool), bool (T::*stopThreadsCb)(), bool (T::*releaseMemoryCb)(),
            unsigned int priority)
        : BaseSignals(name, priority, priority, priority, priority, priority), m_object(&object) {
        initCbs(initCb, signalShutdownCb, checkFinishedCb, stopThreadsCb, releaseMemoryCb);
    }

    ~Signals() override {
        Registry::unregisterSignalHandlers(*this);
        delete m_init;
        delete m_signalShutdown;
        delete m_checkFinished;
        delete m_stopThreads;
        delete m_releaseMemory;
    }

    bool init() override { return signal(m_init); }
    bool signalShutdown() override { return signal(m_signalShutdown); }
    bool checkFinished(bool report) override { return signal(m_checkFinished, report); }
    bool stopThreads() override { return signal(m_stopThreads); }
    bool releaseMemory() override { return signal(m_releaseMemory); }

    // "name(object)", then "{signal=callback,p=priority}" for each callback there is.
    AutoPtr<char> toString() const override {
        return signalsToString(*this, m_object,
                               {m_init, m_signalShutdown, m_checkFinished, m_stopThreads, m_releaseMemory});
    }
    // "name(object)".
    AutoPtr<char> toIdString() const override { return signalsToIdString(*this, m_object); }

private:
    using VoidAnchor = BridgeAnchorVoid<T, bool>;
    using FlagAnchor = BridgeAnchor<T, bool, bool>;

    void initCbs(bool (T::*initCb)(), bool (T::*signalShutdownCb)(), bool (T::*checkFinishedCb)(bool),
                 bool (T::*stopThreadsCb)(), bool (T::*releaseMemoryCb)()) {
        m_init = anchor(initCb);
        m_signalShutdown = anchor(signalShutdownCb);
        m_checkFinished = checkFinishedCb ? new FlagAnchor(*m_object, checkFinishedCb) : nullptr;
        m_stopThreads = anchor(stopThreadsCb);
        m_releaseMemory = anchor(releaseMemoryCb);
    }

    VoidAnchor* anchor(bool (T::*method)()) const { return method ? new VoidAnchor(*m_object, method) : nullptr; }

    static bool signal(const VoidAnchor* callback) { return callback ? callback->callCb() : true; }
    static bool signal(const FlagAnchor* callback, bool flag) { return callback ? callback->callCb(flag) : true; }

    T* const m_object;  // borrowed
    VoidAnchor* m_init = nullptr;
    VoidAnchor* m_signalShutdown = nullptr;
    FlagAnchor* m_checkFinished = nullptr;
    VoidAnchor* m_stopThreads = nullptr;
    VoidAnchor* m_releaseMemory = nullptr;
};

}  // namespace Subsystem
