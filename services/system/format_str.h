#pragma once

#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <limits>
#include <utility>

#include "support/auto_ptr.h"
#include "support/visibility.h"

// A text buffer that grows: `format` and `cat` append, and the finished text is handed over as an array.
//
// Memory that doesn't come cuts the text short and does no other harm.
class MO_PUBLIC FormatStr {
public:
    // Starts with the formatted text.
    explicit FormatStr(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Starts empty with room for `capacity` bytes.
    explicit FormatStr(unsigned capacity) { reserve(capacity); }

    // The same for every other integer, so that a plain 0 or a size isn't ambiguous.
    template <std::integral T>
    explicit FormatStr(T capacity) {
        reserve(clampCapacity(capacity));
    }

    ~FormatStr() { delete[] m_text; }
    FormatStr(const FormatStr&) = delete;
    FormatStr& operator=(const FormatStr&) = delete;

    // Appends. The arguments may point into this very text.
    FormatStr& format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    FormatStr& vformat(const char* format, va_list args) __attribute__((format(printf, 2, 0)));

    // Appends a text as it is; null appends nothing.
    FormatStr& cat(const char* text);
    FormatStr& cat(const char* text, std::size_t length);
    FormatStr& operator+=(AutoPtr<char> text) { return cat(text.get()); }

    // The text so far; never null, borrowed until the next change.
    const char* get() const { return m_text != nullptr ? m_text : ""; }
    std::size_t length() const { return m_length; }
    bool empty() const { return m_length == 0; }

    // Gives: the text as an array, owned by the caller; this one is empty after. Null only when there is no memory for
    // an empty text.
    char* releaseString();
    operator AutoPtr<char>() { return AutoPtr<char>(releaseString()); }

private:
    template <std::integral T>
    static unsigned clampCapacity(T capacity) {
        if (std::cmp_less(capacity, 0)) return 0;
        constexpr unsigned limit = std::numeric_limits<unsigned>::max();
        return std::cmp_greater(capacity, limit) ? limit : static_cast<unsigned>(capacity);
    }
    void reserve(unsigned capacity);
    char* newBuffer(std::size_t more, std::size_t& capacity) const;
    void adopt(char* buffer, std::size_t capacity);

    char* m_text = nullptr;      // owned, ended by a zero byte; null while nothing was put in
    std::size_t m_length = 0;    // bytes in front of the zero byte
    std::size_t m_capacity = 0;  // bytes of m_text
};
