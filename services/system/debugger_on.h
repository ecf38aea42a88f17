#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/bridge.h"
#include "support/visibility.h"

class DebuggerOn;

// What the callback of a switch is given when the switch was changed from outside.
class MO_PUBLIC DebugRecord {
public:
    virtual ~DebugRecord() = default;
    virtual DebuggerOn& changed() const = 0;
};

struct DebuggerTypes {
    // Tells the constructor of a number from that of a bit field.
    enum class Init : std::uint32_t { Value = 0 };
};

// A run-time setting: 32 bits with a name, as named bits or as a number.
//
// Every switch enters the process's switch bank by its name when it is constructed, and takes over the value that the
// environment has for it. It belongs in static storage.
// **Threads:** any; a test of a bit is one relaxed load and a mask.
class MO_PUBLIC DebuggerOn {
public:
    using Hook = BridgeHook<const DebugRecord&, bool>;
    static constexpr unsigned s_maxBits = 32;

    // A bit field: `count` names (const char*) follow, bit 0 first. Takes: all names borrowed, for ever.
    DebuggerOn(const char* name, unsigned count, ...);
    // A number with an initial value.
    DebuggerOn(const char* name, unsigned value, DebuggerTypes::Init);
    ~DebuggerOn();
    DebuggerOn(const DebuggerOn&) = delete;
    DebuggerOn& operator=(const DebuggerOn&) = delete;

    // Any bit at all. Bit numbers are taken modulo 32.
    bool on() const { return get() != 0; }
    bool on(unsigned bit) const { return (get() & mask(bit)) != 0; }
    // Either bit.
    bool on(unsigned bit1, unsigned bit2) const { return (get() & (mask(bit1) | mask(bit2))) != 0; }
    unsigned get() const { return m_value.load(std::memory_order_relaxed); }

    // Sets the value from inside: the callback doesn't run.
    void set(unsigned value) { m_value.store(value, std::memory_order_relaxed); }
    void set(int value) { set(static_cast<unsigned>(value)); }
    void setBit(unsigned bit) { m_value.fetch_or(mask(bit), std::memory_order_relaxed); }
    void clearBit(unsigned bit) { m_value.fetch_and(~mask(bit), std::memory_order_relaxed); }

    // Installs the callback that runs when the value is changed from outside. Takes: the hook borrowed, until another
    // one or null is set. Thread: before the hook is destroyed, no thread may be changing the switch from outside.
    void set(const Hook* hook) { m_hook.store(hook, std::memory_order_release); }
    void set(std::nullptr_t) { set(static_cast<const Hook*>(nullptr)); }

    // Sets the value as an operator does: the callback runs, in this thread. Gives: its answer, or true without one.
    bool setFromOutside(unsigned value);
    // The same for single bits: those of `set` are set, then those of `clear` cleared.
    bool changeBitsFromOutside(unsigned set, unsigned clear);

    const char* getName() const { return m_name; }
    // How many bits have a name; 0 for a number.
    unsigned getBitCount() const { return m_bitCount; }
    // The bit's name, or null.
    const char* getBitName(unsigned bit) const { return bit < m_bitCount ? m_bitNames[bit] : nullptr; }
    bool isBitField() const { return m_bitField; }

private:
    friend class SwitchBank;
    static constexpr unsigned mask(unsigned bit) { return 1u << (bit & 31u); }
    bool notifyChanged();

    const char* m_name;  // borrowed for ever
    std::atomic<unsigned> m_value{0};
    std::atomic<const Hook*> m_hook{nullptr};  // release: whoever sees the hook sees it built
    bool m_bitField = false;
    unsigned m_bitCount = 0;
    const char* m_bitNames[s_maxBits] = {};  // borrowed for ever, bit 0 first
    DebuggerOn* m_next = nullptr;            // the bank's list, under its lock
    std::atomic<unsigned> m_users{0};        // threads of the bank that hold this one outside its lock
};
