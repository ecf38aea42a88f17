#pragma once

#include <cstring>

// A row of a name table: one text and the 32-bit value it stands for.
template <typename T>
struct EnumPair {
    static_assert(sizeof(T) == 4, "a name table holds 32-bit values");
    const char* name;
    T value;
};

// Prints and parses the values of one enumeration by a constant table of rows.
//
// Several rows may share a value or a name; the first one answers. Searched linearly: the tables are small and serve
// logging and set-up. Owns nothing; the rows live for ever. The count leaves out the closing row with the null name.
template <typename T>
class EnumMap {
public:
    constexpr EnumMap(const EnumPair<T>* pairs, int count) : m_pairs(pairs), m_count(count) {}

    constexpr int count() const { return m_count; }

    // The row at this place. Requires: index below count().
    constexpr const EnumPair<T>& pair(unsigned int index) const { return m_pairs[index]; }

    // The text of the first row with that value, or null. Gives: text that lives for ever.
    const char* mapValue(T value) const {
        for (int i = 0; i < m_count; ++i) {
            if (m_pairs[i].value == value) return m_pairs[i].name;
        }
        return nullptr;
    }

    // As mapValue, but "?" in place of null.
    const char* mapValueForced(T value) const {
        const char* name = mapValue(value);
        return name ? name : "?";
    }

    // The value of the first row with exactly that text. Fails: false, and `value` is left as it is.
    bool mapString(const char* name, T& value) const {
        for (int i = 0; i < m_count; ++i) {
            if (std::strcmp(m_pairs[i].name, name) == 0) {
                value = m_pairs[i].value;
                return true;
            }
        }
        return false;
    }

private:
    const EnumPair<T>* m_pairs;
    int m_count;
};
