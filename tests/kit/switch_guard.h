#pragma once

#include "services/system/debugger_on.h"

namespace kit {

// Puts a switch back at the end of a scope as it stood at its beginning; no callback runs.
class SwitchGuard {
public:
    explicit SwitchGuard(DebuggerOn& target) : m_target(target), m_before(target.get()) {}
    SwitchGuard(DebuggerOn& target, unsigned bit) : SwitchGuard(target) { m_target.setBit(bit); }
    SwitchGuard(const SwitchGuard&) = delete;
    SwitchGuard& operator=(const SwitchGuard&) = delete;
    ~SwitchGuard() { m_target.set(m_before); }

private:
    DebuggerOn& m_target;
    const unsigned m_before;
};

}  // namespace kit
