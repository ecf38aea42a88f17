#pragma once

#include <cstdint>

// The samples of one video frame.
struct SampleAndCount {
    unsigned long long m_sample = 0;  // first sample of the frame
    std::uint32_t m_count = 0;        // samples that the frame has
    std::uint32_t m_period = 1;       // frames after which the cadence repeats
};
