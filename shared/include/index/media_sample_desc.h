#pragma once

#include <cstdint>

#include "services/file/os_path_id.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/index/sample_info.h"
#include "shared/include/object/media_agent.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

// How much of itself a record tells in a log line.
enum class Brevity : std::uint32_t { Short = 0, Long = 1 };

// Where samples lie: at most two stretches of a file.
struct MediaSampleDesc {
    // One contiguous stretch of a file.
    struct Chunk {
        Chunk() = default;
        Chunk(unsigned long long offset, std::uint32_t size) : m_offset(offset), m_size(size) {}

        unsigned long long m_offset = 0;  // bytes from the file's start
        std::uint32_t m_size = 0;         // bytes
    };

    static constexpr unsigned s_maxChunks = 2;
    static constexpr unsigned long long s_unknownOffset = 0xFFFFFFFF;
    static constexpr std::uint32_t s_unknownSize = 0xFFFFFFFF;

    MediaSampleDesc() { reset(); }

    // Back to no samples at all. The chunks and `m_info` keep what they hold.
    void reset() {
        m_count = 0;
        m_sample = 0;
        m_anchor = 0;
        m_timecode.invalidate();  // which is what a counter of 0 at a rate of 0 comes to
        m_tcAvailable = false;
        m_frameN = false;
        m_numChunks = 0;
        m_reserved = 0;
        m_gap = 0;
        m_internal = false;
    }

    // Describes `count` samples in one stretch of `info.getSize()` bytes.
    void set(unsigned count, unsigned long long sample, unsigned long long offset, SampleInfo info, long long gap,
             bool internal) {
        m_count = count;
        m_sample = sample;
        m_anchor = sample;
        m_info = info;
        m_tcAvailable = false;
        m_frameN = false;
        m_numChunks = 1;
        m_chunks[0] = Chunk(offset, info.getSize());
        m_gap = gap;
        m_internal = internal;
    }
    // The same for samples of which no more than the size in bytes is known.
    void set(unsigned count, unsigned long long sample, unsigned long long offset, unsigned size, long long gap,
             bool internal) {
        SampleInfo info;
        info.reset(size);
        set(count, sample, offset, info, gap, internal);
    }

    bool hasOffset() const { return m_numChunks != 0 && m_chunks[0].m_offset != s_unknownOffset; }
    bool hasSize() const { return m_numChunks != 0 && m_chunks[0].m_size < s_unknownSize; }

    std::uint32_t m_count;        // samples described
    unsigned long long m_sample;  // first sample
    unsigned long long m_anchor;  // the anchor frame that this sample depends on
    SampleInfo m_info;
    MediaTimecode m_timecode;     // of the first sample, when known
    bool m_tcAvailable;           // the sample carries a timecode that isn't decoded into `m_timecode` yet
    bool m_frameN;                // a synthetic frame, read from memory and not from a file
    std::uint32_t m_numChunks;    // chunks in use
    Chunk m_chunks[s_maxChunks];  // where the bytes are
    unsigned long long m_reserved;
    long long m_gap;  // samples from the file's end to where these should go; negative for an overlap
    bool m_internal;  // for back-ends
};

// Where samples lie, and where in a movie they belong.
struct MO_PUBLIC MediaSampleInMovie : MediaSampleDesc {
    static constexpr std::uint16_t s_noIndex = 0xFFFF;

    MediaSampleInMovie() = default;

    using MediaSampleDesc::set;
    // Says where the samples belong and leaves where they lie alone.
    void set(const MediaAgent& agent, MediaIdRec* mediaId, unsigned track, unsigned clip, OsPathId pathId,
             bool closeOther) {
        m_agent = agent;
        m_mediaId = mediaId;
        m_trackIndex = static_cast<std::uint16_t>(track);
        m_clipIndex = static_cast<std::uint16_t>(clip);
        m_pathId = pathId;
        m_closeOther = closeOther;
    }

    // One line for logs. Gives: array text.
    AutoPtr<char> toString(Brevity brevity) const;

    MediaAgent m_agent;
    MediaIdRec* m_mediaId = nullptr;  // borrowed name of a file, never dereferenced
    std::uint16_t m_trackIndex = s_noIndex;
    std::uint16_t m_clipIndex = s_noIndex;
    OsPathId m_pathId;          // of the movie
    bool m_closeOther = false;  // the reader may let go of the movie's other files
};
