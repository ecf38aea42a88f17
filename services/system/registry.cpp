// The registry of subsystems.
//
// Callbacks run with no lock held. So that a subsystem can still leave at any moment, each call is written down while
// it lasts, and who takes a subsystem out waits for the calls that other threads are in.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <vector>

#include "services/system/format_str.h"
#include "services/system/locks.h"
#include "services/system/log.h"
#include "support/clock.h"
#include "support/signals.h"

namespace Subsystem {

namespace {

using ZarnexPosix::JMutex;
using ZarnexPosix::ScopeLock;

constexpr unsigned int s_finishPollMsec = 10;

struct Entry {
    BaseSignals* m_signals;  // borrowed
    std::uint64_t m_serial;  // order of registration, never used again
};

struct Call {
    const void* m_signals;           // only the address counts: the signals may leave in their own call
    ZarnexPosix::jlock_Task m_task;  // the thread that is in it
};

// One of the five signals.
struct Phase {
    unsigned int (BaseSignals::*m_priority)() const;
    bool (*m_send)(BaseSignals& signals, bool report);
};

constexpr Phase s_initPhase = {&BaseSignals::initPriority, [](BaseSignals& s, bool) { return s.init(); }};
constexpr Phase s_shutdownPhase = {&BaseSignals::signalShutdownPriority,
                                   [](BaseSignals& s, bool) { return s.signalShutdown(); }};
constexpr Phase s_finishPhase = {&BaseSignals::checkFinishedPriority,
                                 [](BaseSignals& s, bool report) { return s.checkFinished(report); }};
constexpr Phase s_stopPhase = {&BaseSignals::stopThreadsPriority, [](BaseSignals& s, bool) { return s.stopThreads(); }};
constexpr Phase s_releasePhase = {&BaseSignals::releaseMemPriority,
                                  [](BaseSignals& s, bool) { return s.releaseMemory(); }};

class Table {
public:
    void add(BaseSignals& signals) MO_EXCLUDES(m_mutex);
    void remove(BaseSignals& signals) MO_EXCLUDES(m_mutex);
    // Sends one signal to all; answers whether all said true.
    bool send(const Phase& phase, bool report) MO_EXCLUDES(m_mutex);

private:
    // The next one in order that has not been asked yet, noted as being called; null when there is none.
    BaseSignals* beginCall(const Phase& phase, std::vector<std::uint64_t>& asked) MO_EXCLUDES(m_mutex);
    void endCall(const void* signals) MO_EXCLUDES(m_mutex);
    bool isCalledByOthers(const BaseSignals& signals) MO_EXCLUDES(m_mutex);

    JMutex m_mutex;
    std::vector<Entry> m_entries MO_GUARDED_BY(m_mutex);  // in order of registration
    std::vector<Call> m_calls MO_GUARDED_BY(m_mutex);
    std::uint64_t m_lastSerial MO_GUARDED_BY(m_mutex) = 0;
};

// Never destroyed: subsystems leave as late as in the destruction of statics.
Table& table() {
    static Table* const instance = new Table;
    return *instance;
}

void Table::add(BaseSignals& signals) {
    ScopeLock<JMutex> lock(m_mutex);
    const auto isSame = [&](const Entry& entry) { return entry.m_signals == &signals; };
    if (std::any_of(m_entries.begin(), m_entries.end(), isSame)) return;
    m_entries.push_back({&signals, ++m_lastSerial});
}

void Table::remove(BaseSignals& signals) {
    {
        ScopeLock<JMutex> lock(m_mutex);
        std::erase_if(m_entries, [&](const Entry& entry) { return entry.m_signals == &signals; });
    }
    while (isCalledByOthers(signals))
        waitMsec(1);
}

bool Table::isCalledByOthers(const BaseSignals& signals) {
    const ZarnexPosix::jlock_Task self = ZarnexPosix::jlock_getCurrentTask();
    ScopeLock<JMutex> lock(m_mutex);
    return std::any_of(m_calls.begin(), m_calls.end(),
                       [&](const Call& call) { return call.m_signals == &signals && call.m_task != self; });
}

BaseSignals* Table::beginCall(const Phase& phase, std::vector<std::uint64_t>& asked) {
    ScopeLock<JMutex> lock(m_mutex);
    const Entry* next = nullptr;
    for (const Entry& entry : m_entries) {
        if (std::find(asked.begin(), asked.end(), entry.m_serial) != asked.end()) continue;
        // Only a smaller priority comes first: among equal ones the order of registration stands.
        if (next && (entry.m_signals->*phase.m_priority)() >= (next->m_signals->*phase.m_priority)()) continue;
        next = &entry;
    }
    if (!next) return nullptr;
    asked.push_back(next->m_serial);
    m_calls.push_back({next->m_signals, ZarnexPosix::jlock_getCurrentTask()});
    return next->m_signals;
}

void Table::endCall(const void* signals) {
    const ZarnexPosix::jlock_Task self = ZarnexPosix::jlock_getCurrentTask();
    ScopeLock<JMutex> lock(m_mutex);
    const auto last = std::find_if(m_calls.rbegin(), m_calls.rend(),
                                   [&](const Call& call) { return call.m_signals == signals && call.m_task == self; });
    if (last != m_calls.rend()) m_calls.erase(std::next(last).base());
}

bool Table::send(const Phase& phase, bool report) {
    bool all = true;
    std::vector<std::uint64_t> asked;
    while (BaseSignals* const signals = beginCall(phase, asked)) {
        if (!phase.m_send(*signals, report)) all = false;
        endCall(signals);
    }
    return all;
}

bool waitFinished(unsigned int limitMsec) {
    const long long end = Clock::nowRelative() + static_cast<long long>(limitMsec) * 1000;
    while (Clock::nowRelative() < end) {
        if (table().send(s_finishPhase, false)) return true;
        waitMsec(s_finishPollMsec);
    }
    return table().send(s_finishPhase, true);
}

}  // namespace

void Registry::registerSignalHandlers(BaseSignals& signals) { table().add(signals); }

void Registry::unregisterSignalHandlers(BaseSignals& signals) { table().remove(signals); }

bool Registry::initSubsystems() { return table().send(s_initPhase, false); }

bool Registry::shutdownSubsystems(unsigned int finishLimitMsec) {
    bool all = table().send(s_shutdownPhase, false);
    // Threads are stopped and memory goes whatever was said before: the run ends here.
    if (!waitFinished(finishLimitMsec)) all = false;
    if (!table().send(s_stopPhase, false)) all = false;
    if (!table().send(s_releasePhase, false)) all = false;
    return all;
}

void Registry::errMsg(const char* format, ...) {
    FormatStr text(256u);
    va_list args;
    va_start(args, format);
    text.vformat(format, args);
    va_end(args);
    errorMsg("%s", text.get());
}

AutoPtr<char> signalsToIdString(const BaseSignals& signals, const void* object) {
    return FormatStr("%s(%p)", signals.name(), object);
}

AutoPtr<char> signalsToString(const BaseSignals& signals, const void* object, const SignalCallbacks& callbacks) {
    FormatStr text("%s(%p)", signals.name(), object);
    const auto add = [&](const char* signal, const void* callback, unsigned int priority) {
        if (callback) text.format("{%s=%p,p=%i}", signal, callback, static_cast<int>(priority));
    };
    add("init", callbacks.m_init, signals.initPriority());
    add("signalShutdown", callbacks.m_signalShutdown, signals.signalShutdownPriority());
    add("checkFinished", callbacks.m_checkFinished, signals.checkFinishedPriority());
    add("stopThreads", callbacks.m_stopThreads, signals.stopThreadsPriority());
    add("releaseMem", callbacks.m_releaseMemory, signals.releaseMemPriority());
    return text;
}

}  // namespace Subsystem
