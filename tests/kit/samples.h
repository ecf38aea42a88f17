#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "services/buffer/obuf.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/temp_tree.h"

namespace kit {

// The id of a movie's file: 1 is the movie itself.
inline MediaIdRec* idOf(std::uintptr_t value) { return reinterpret_cast<MediaIdRec*>(value); }

// A sample of these chunks in that file, of the size that they add up to.
inline MediaSampleInMovie sampleOf(std::initializer_list<MediaSampleDesc::Chunk> chunks, MediaIdRec* id = idOf(1)) {
    MediaSampleInMovie sample;
    unsigned size = 0;
    for (const MediaSampleDesc::Chunk& chunk : chunks) {
        sample.m_chunks[sample.m_numChunks++] = chunk;
        size += chunk.m_size;
    }
    sample.m_info.reset(size);
    sample.m_count = 1;
    sample.m_mediaId = id;
    return sample;
}

// What lies at that place of a file that `TempTree::writePattern` wrote.
inline std::string patternFrom(unsigned long long offset, unsigned size) {
    std::string bytes;
    for (unsigned i = 0; i < size; ++i)
        bytes += TempTree::patternAt(offset + i);
    return bytes;
}

inline std::string bytesOf(const MediaIoBuf& buf) {
    return buf.size() == 0 ? std::string() : std::string(reinterpret_cast<const char*>(buf.getMem()), buf.size());
}

inline void fill(MediaIoBuf& buf, const std::string& bytes) {
    if (!buf.resize(static_cast<unsigned>(bytes.size()), MediaIoBuf::Preservation::Discard,
                    MediaIoBuf::AllocChange::KeepForeign)) {
        return;
    }
    if (!bytes.empty()) std::memcpy(buf.getMem(), bytes.data(), bytes.size());
}

// Gives: a buffer with these bytes, or null when memory doesn't come.
inline phantom_OBUF* obufOf(const std::string& bytes) {
    phantom_OBUF* const buf = obufAllocate(0, static_cast<unsigned>(bytes.size()));
    iovec piece{};
    std::size_t done = 0;
    if (buf != nullptr && obufSegmentCount(buf) == 1 && obufNTranslateHost(buf, &piece, 1) == 1) {
        done = piece.iov_len;
        std::memcpy(piece.iov_base, bytes.data(), done);
    }
    if (done == bytes.size()) return buf;
    obufFree(buf);
    return nullptr;
}

// The bytes of a file as the system tells them, without the library; fewer at its end.
inline std::string bytesAt(const std::string& path, unsigned long long offset, std::size_t size) {
    std::string bytes(size, '\0');
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t count = fd < 0 ? -1 : ::pread(fd, bytes.data(), size, static_cast<off_t>(offset));
    if (fd >= 0) ::close(fd);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

}  // namespace kit
