#include "shared/include/io/media_io_buf.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "shared/include/description/media_clip_desc.h"

MediaIoBuf::MediaIoBuf(const MediaIoBuf& other) { *this = other; }

MediaIoBuf& MediaIoBuf::operator=(const MediaIoBuf& other) {
    if (this == &other || !resize(other.size(), Preservation::Discard, AllocChange::OwnBlock)) return *this;
    if (other.size() != 0) std::memcpy(m_mem, other.m_mem, other.size());
    return *this;
}

MediaIoBuf::~MediaIoBuf() { freeBuf(); }

void MediaIoBuf::freeBuf() {
    if (m_foreign == 0) delete[] m_mem;
    m_mem = nullptr;
    m_capacity = 0;
    m_size = 0;
    m_foreign = 0;
}

bool MediaIoBuf::resize(unsigned int size, Preservation keep, AllocChange change) {
    const bool foreign = m_foreign != 0;
    if (m_capacity >= size && !(foreign && change == AllocChange::OwnBlock)) {
        m_size = size;
        return true;
    }
    if (foreign && change == AllocChange::KeepForeign) return false;
    if (size > s_maxSize) return false;
    auto* block = new (std::nothrow) unsigned char[size];
    if (!block) return false;
    // The whole old block is kept, not only what was in use.
    if (keep == Preservation::Keep && m_mem) std::memcpy(block, m_mem, std::min(m_capacity, size));
    freeBuf();
    m_mem = block;
    m_capacity = size;
    m_size = size;
    return true;
}

MediaSampleBuf::MediaSampleBuf(const MediaClipDesc& clip) : m_param(clip), m_isMpeg(isMpeg(clip.getEncoding())) {
    // The products are meant in 32 bits. A size that no block can have leaves the buffer empty, and that is the answer.
    const auto samples = static_cast<std::uint32_t>(std::uint64_t{clip.getMinSamples()} * clip.getChannels());
    const auto size = static_cast<std::uint32_t>(std::uint64_t{bytesPerSample(clip.getMaxBitsPerSample())} * samples);
    resize(size, Preservation::Discard, AllocChange::KeepForeign);
}
