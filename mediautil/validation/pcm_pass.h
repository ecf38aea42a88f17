#pragma once

#include <cstdint>

#include "mediautil/validation/pcm_analysis.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/validation/pcm_pattern.h"

// One pass of vectors over plain samples in memory. A lane of a vector belongs to the same channel again after as many
// vectors as make whole instants: a group. Passes go over whole groups.
namespace PcmPass {

// What all vectors are measured with.
struct Form {
    unsigned m_bytes;     // of a channel's sample
    unsigned m_channels;  // 1 to 32
    std::uint32_t m_limit;
    std::int32_t m_syncPa;
    std::int32_t m_syncPb;
};

struct Found {
    bool m_sync = false;  // words that look like a burst's first, if there are two channels
    std::uint32_t m_maxStep[PcmPattern::s_maxChannels] = {};
    std::uint32_t m_over[PcmPattern::s_maxChannels] = {};  // steps above the limit, if they are counted
};

// Looks at the groups from the head of `memory`, and reads nothing behind them; each instant is measured against the
// one before it. Steps are added to those found before; the sync is this pass's own. Requires: an instant ahead of
// `memory`.
using Pass = void (*)(const Form& form, const unsigned char* memory, unsigned groups, Found& found);
// One sample.
using Value = std::int32_t (*)(const unsigned char* memory);

// How a kind of samples is looked at. Without a pass there is no way.
struct Reader {
    Pass m_pass = nullptr;
    Pass m_countingPass = nullptr;  // the same, and the steps above the limit are counted
    Value m_value = nullptr;
    unsigned m_lanes = 0;
};

Reader readerOf(MediaEndian endian, unsigned bytes, PcmVectors vectors);

unsigned vectorsOfGroup(unsigned channels, unsigned lanes);

constexpr unsigned s_mostVectors = 1024;  // in one pass: the counts of narrow lanes hold it, and the cache its bytes

}  // namespace PcmPass
