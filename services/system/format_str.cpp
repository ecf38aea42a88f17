#include "services/system/format_str.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t s_minCapacity = 64;

}  // namespace

FormatStr::FormatStr(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    vformat(format, args);
    va_end(args);
}

void FormatStr::reserve(unsigned capacity) {
    if (capacity == 0) return;
    m_text = new (std::nothrow) char[capacity];
    if (m_text == nullptr) return;
    m_text[0] = 0;
    m_capacity = capacity;
}

// A larger buffer that begins with the text; null when memory doesn't come. The old one stays until `adopt`, since what
// is to be appended may lie in it.
char* FormatStr::newBuffer(std::size_t more, std::size_t& capacity) const {
    const std::size_t needed = m_length + more + 1;
    if (needed < more) return nullptr;
    capacity = m_capacity < needed / 2 ? needed : m_capacity * 2;
    if (capacity < needed) capacity = needed;
    if (capacity < s_minCapacity) capacity = s_minCapacity;
    char* const buffer = new (std::nothrow) char[capacity];
    if (buffer != nullptr) std::memcpy(buffer, get(), m_length);
    return buffer;
}

void FormatStr::adopt(char* buffer, std::size_t capacity) {
    delete[] m_text;
    m_text = buffer;
    m_capacity = capacity;
}

FormatStr& FormatStr::format(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    vformat(format, args);
    va_end(args);
    return *this;
}

FormatStr& FormatStr::vformat(const char* format, std::va_list args) {
    if (format == nullptr) return *this;
    // Never straight into the own buffer, since an argument may lie there.
    char local[512];
    std::va_list again;
    va_copy(again, args);
    const int wanted = std::vsnprintf(local, sizeof(local), format, args);
    if (wanted >= 0 && static_cast<std::size_t>(wanted) < sizeof(local)) {
        cat(local, static_cast<std::size_t>(wanted));
    } else if (wanted >= 0) {
        std::size_t capacity = 0;
        char* const buffer = newBuffer(static_cast<std::size_t>(wanted), capacity);
        if (buffer != nullptr) {
            std::vsnprintf(buffer + m_length, capacity - m_length, format, again);
            adopt(buffer, capacity);
            m_length += static_cast<std::size_t>(wanted);
        } else {
            cat(local, sizeof(local) - 1);
        }
    }
    va_end(again);
    return *this;
}

FormatStr& FormatStr::cat(const char* text) { return text != nullptr ? cat(text, std::strlen(text)) : *this; }

FormatStr& FormatStr::cat(const char* text, std::size_t length) {
    if (text == nullptr || length == 0) return *this;
    if (length >= m_capacity - m_length || m_capacity == 0) {
        std::size_t capacity = 0;
        char* const buffer = newBuffer(length, capacity);
        if (buffer != nullptr) {
            std::memcpy(buffer + m_length, text, length);
            adopt(buffer, capacity);
            m_length += length;
            m_text[m_length] = 0;
            return *this;
        }
        if (m_capacity == 0) return *this;
        length = m_capacity - m_length - 1;
    }
    std::memmove(m_text + m_length, text, length);
    m_length += length;
    m_text[m_length] = 0;
    return *this;
}

char* FormatStr::releaseString() {
    char* text = m_text;
    if (text == nullptr) {
        text = new (std::nothrow) char[1];
        if (text != nullptr) text[0] = 0;
    }
    m_text = nullptr;
    m_length = 0;
    m_capacity = 0;
    return text;
}
