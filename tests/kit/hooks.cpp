#include "tests/kit/hooks.h"

#include <sys/uio.h>

namespace kit {

std::string bytesOf(const phantom_OBUF* buf) {
    std::vector<iovec> pieces(obufSegmentCount(buf));
    const int filled = obufNTranslateHost(buf, pieces.data(), static_cast<int>(pieces.size()));
    std::string bytes;
    for (int i = 0; i < filled; ++i) {
        const iovec& piece = pieces[static_cast<std::size_t>(i)];
        bytes.append(static_cast<const char*>(piece.iov_base), piece.iov_len);
    }
    return bytes;
}

unsigned ReadHook::count() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<unsigned>(m_answers.size());
}

std::vector<ReadHook::Answer> ReadHook::answers() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_answers;
}

bool ReadHook::vCallCb(const BasicIOTypes::ReadNotify& notify) const {
    Answer answer{bytesOf(notify.m_obuf), notify.m_tag, notify.m_status, notify.m_obuf == nullptr};
    obufFree(notify.m_obuf);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_answers.push_back(std::move(answer));
    return true;
}

}  // namespace kit
