#pragma once

#include <cstdint>

#include "shared/include/description/relaxed.h"

// The compact description of an index: a value record.
// **Threads:** the two numbers that grow with the file may be read while another thread moves them; each is whole by
// itself, and a reader that wants them to fit each other reads one of them once. **Units:** bytes and samples.
struct MediaOffsetSummary {
    MediaOffsetSummary() = default;
    MediaOffsetSummary(std::uint32_t sampleSize, unsigned long long baseOffset, unsigned long long numSamples,
                       unsigned long long endOffset)
        : m_sampleSize(sampleSize), m_baseOffset(baseOffset), m_numSamples(numSamples), m_endOffset(endOffset) {}
    MediaOffsetSummary(const MediaOffsetSummary&) = default;
    MediaOffsetSummary& operator=(const MediaOffsetSummary&) = default;

    void set(std::uint32_t sampleSize, unsigned long long baseOffset, unsigned long long numSamples,
             unsigned long long endOffset) {
        m_sampleSize = sampleSize;
        m_baseOffset = baseOffset;
        m_numSamples = numSamples;
        m_endOffset = endOffset;
    }
    void set(const MediaOffsetSummary& other) { *this = other; }

    std::uint32_t m_sampleSize = 0;            // bytes per sample of a fixed-size index
    unsigned long long m_baseOffset = 0;       // file offset of sample 0
    Relaxed<unsigned long long> m_numSamples;  // samples in the index
    Relaxed<unsigned long long> m_endOffset;   // file offset just behind the last sample
};
