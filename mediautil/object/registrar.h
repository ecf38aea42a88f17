#pragma once

#include <cstdint>
#include <cstring>

// A process-wide table of named elements, sorted by ascending priority; elements of one priority stand in the order of
// their registration. **Threads:** no lock; all registration is finished before the first look-up.
// **Owns:** its elements; names are kept as pointers and live for ever.
template <typename T>
class Registrar {
public:
    static constexpr unsigned s_capacity = 50;

    // A table in zeroed static memory may be made with `clear` false by an initialiser that runs after registrations.
    explicit Registrar(bool clear) {
        if (clear) m_count = 0;
    }

    // Answers the new count. Requires: room for one more; the table is sized for all formats with room to spare.
    unsigned registerElem(const char* name, const T& elem, int priority) {
        unsigned at = 0;
        while (at < m_count && m_priorities[at] <= priority)
            ++at;
        for (unsigned i = m_count; i > at; --i) {
            m_names[i] = m_names[i - 1];
            m_elems[i] = m_elems[i - 1];
            m_priorities[i] = m_priorities[i - 1];
        }
        m_names[at] = name;
        m_elems[at] = elem;
        m_priorities[at] = priority;
        return ++m_count;
    }

    unsigned countElem() const { return m_count; }
    const T& getElem(unsigned index) const { return m_elems[index]; }
    const char* getName(unsigned index) const { return m_names[index]; }
    int getPriority(unsigned index) const { return m_priorities[index]; }

    // The first element of that name, by table order.
    bool lookup(const char* name, T& out) const {
        for (unsigned i = 0; i < m_count; ++i) {
            if (std::strcmp(m_names[i], name) == 0) {
                out = m_elems[i];
                return true;
            }
        }
        return false;
    }

private:
    std::uint32_t m_count;
    const char* m_names[s_capacity];
    T m_elems[s_capacity];
    int m_priorities[s_capacity];
};
