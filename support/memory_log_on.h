#pragma once

#include "support/atomic_ops.h"

// A ring of 2^Bits entries in memory that is written round and round.
// **Threads:** the counter alone is atomic: two writers at one moment get different entries.
template <class Entry, unsigned Bits>
class MemoryLogOn {
public:
    static constexpr unsigned s_size = 1u << Bits;

    MemoryLogOn() = default;
    MemoryLogOn(const MemoryLogOn&) = delete;
    MemoryLogOn& operator=(const MemoryLogOn&) = delete;

    static constexpr unsigned wrapIndex(unsigned index) { return index & (s_size - 1); }

protected:
    ~MemoryLogOn() = default;

    // The index of the entry to be written next, which is the caller's from here on.
    unsigned nextIndex() { return wrapIndex(static_cast<unsigned>(m_counter++)); }

    Entry m_entries[s_size];

private:
    AtomicCounter m_counter{0};  // entries taken so far
};
