#include "services/system/debugger_on.h"

#include <cstdarg>

#include "services/system/switch_bank.h"
#include "services/system/switch_environment.h"

namespace {

class ChangeRecord : public DebugRecord {
public:
    explicit ChangeRecord(DebuggerOn& item) : m_item(item) {}
    DebuggerOn& changed() const override { return m_item; }

private:
    DebuggerOn& m_item;
};

}  // namespace

DebuggerOn::DebuggerOn(const char* name, unsigned count, ...) : m_name(name), m_bitField(true) {
    std::va_list names;
    va_start(names, count);
    m_bitCount = count < s_maxBits ? count : s_maxBits;
    for (unsigned i = 0; i < m_bitCount; ++i) {
        m_bitNames[i] = va_arg(names, const char*);
    }
    va_end(names);
    SwitchEnvironment::apply(*this);
    SwitchBank::add(*this);
}

DebuggerOn::DebuggerOn(const char* name, unsigned value, DebuggerTypes::Init) : m_name(name), m_value(value) {
    SwitchEnvironment::apply(*this);
    SwitchBank::add(*this);
}

DebuggerOn::~DebuggerOn() { SwitchBank::remove(*this); }

bool DebuggerOn::notifyChanged() {
    const Hook* const hook = m_hook.load(std::memory_order_acquire);
    return hook == nullptr || hook->callCb(ChangeRecord(*this));
}

bool DebuggerOn::setFromOutside(unsigned value) {
    set(value);
    return notifyChanged();
}

bool DebuggerOn::changeBitsFromOutside(unsigned set, unsigned clear) {
    m_value.fetch_or(set, std::memory_order_relaxed);
    m_value.fetch_and(~clear, std::memory_order_relaxed);
    return notifyChanged();
}
