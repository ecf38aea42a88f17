#pragma once

#include <cstdint>

// A text on its way to a file. Borrowed: whoever made the text keeps it.
struct XmlBuffer {
    const char* m_data = nullptr;
    std::int32_t m_size = 0;  // bytes
};
