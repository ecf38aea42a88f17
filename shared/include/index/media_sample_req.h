#pragma once

#include <cstdint>

#include "shared/include/description/media_timecode.h"
#include "shared/include/index/sample_info.h"
#include "shared/include/object/media_agent.h"

// A request for samples to play. A clip takes the sample number as the movie counts, and hands it on to its index
// adjusted for sync.
struct MediaPlayReq {
    MediaPlayReq() = default;
    MediaPlayReq(unsigned long long sample, unsigned count, const MediaAgent& agent = MediaAgent())
        : m_sample(sample), m_count(count), m_agent(agent) {}

    unsigned long long m_sample = 0;   // first sample wanted
    std::uint32_t m_count = 0;         // samples wanted
    unsigned long long m_sample2 = 0;  // a second sample number, for back-ends
    bool m_flag = false;               // for back-ends
    MediaAgent m_agent;                // the client on whose behalf the request runs
    bool m_extra = false;              // for back-ends
};

// A request to add samples to a clip.
struct MediaRecordReq {
    // Leaves the place to the index.
    MediaRecordReq(unsigned long long sample, unsigned count, const SampleInfo& info)
        : m_count(count), m_sample(sample), m_info(info) {}
    // The caller has put the samples at `offset`, and the index must come to the same answer.
    MediaRecordReq(unsigned long long sample, unsigned count, const SampleInfo& info, unsigned long long offset)
        : m_count(count), m_hasOffset(true), m_offset(offset), m_sample(sample), m_info(info) {}

    std::uint32_t m_count;            // samples to add
    bool m_flag = false;              // for back-ends
    bool m_hasOffset = false;         // `m_offset` is given
    unsigned long long m_offset = 0;  // file offset where the caller has put the samples
    unsigned long long m_sample;      // first sample added
    MediaTimecode m_timecode;         // of the first sample; invalid unless the caller sets it
    SampleInfo m_info;
    unsigned long long m_trailer = 0;  // for back-ends
};
