#include "backends/common/file_window.h"

#include <algorithm>

const std::uint8_t* FileWindow::at(std::uint64_t offset, unsigned count) {
    if (count > s_size || offset > m_length || count > m_length - offset) return nullptr;
    const bool inside = offset >= m_start && offset - m_start <= m_filled && count <= m_filled - (offset - m_start);
    if (!inside) {
        const auto wanted = static_cast<unsigned>(std::min<std::uint64_t>(s_size, m_length - offset));
        const int got = m_file.readAt(offset, m_bytes, wanted);
        m_start = offset;
        m_filled = got > 0 ? static_cast<unsigned>(got) : 0;
        if (m_filled < count) {
            m_failed = true;
            return nullptr;
        }
    }
    return m_bytes + (offset - m_start);
}
