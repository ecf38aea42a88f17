#include "shared/include/io/media_parser.h"

#include <new>

#include "shared/include/io/media_io_buf.h"
#include "support/auto_ptr.h"

MediaParser::MediaParser() = default;

MediaParser::~MediaParser() = default;

bool MediaParser::setBuf(const MediaIoBuf& buf) {
    // The parser's list has no const pieces; it reads them only.
    m_sgl[0].set(const_cast<unsigned char*>(buf.getMem()), buf.size());
    m_sglCount = 1;
    setList(m_sglCount, m_sgl);
    return true;
}

bool MediaParser::setObuf(phantom_OBUF* obuf) {
    AutoArrayPtr<iovec> scratch(obuf ? new (std::nothrow) iovec[s_maxPieces] : nullptr);
    if (!scratch.get()) {
        setList(0, nullptr);
        return false;
    }
    m_sglCount = static_cast<std::uint32_t>(obufNTranslateHost(obuf, scratch.get(), s_maxPieces));
    // The two lists differ in layout, hence the copy.
    for (std::uint32_t i = 0; i < m_sglCount; ++i) {
        const iovec& piece = scratch.get()[i];
        m_sgl[i].set(static_cast<unsigned char*>(piece.iov_base), static_cast<unsigned int>(piece.iov_len));
    }
    setList(m_sglCount, m_sgl);
    return m_sglCount != 0;
}
