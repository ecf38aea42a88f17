#pragma once

#include <cstdint>

#include "mediautil/validation/pcm_analysis.h"
#include "shared/include/validation/pcm_pattern.h"

class PcmParser;

// Many instants of sound that were looked at together. **Units:** samples are instants.
struct PcmStretch {
    struct Channel {
        std::int32_t m_last = 0;
        std::uint32_t m_lastStep = 0;
        std::uint32_t m_maxStep = 0;
        std::uint32_t m_over = 0;  // steps above the limit
    };

    unsigned m_samples = 0;
    bool m_silent = true;
    Channel m_chan[PcmPattern::s_maxChannels];
};

// Looks at plain samples in memory, many at a time, by vectors of the compiler's; on processors that have AVX2 they are
// that wide. What it finds is what the plain rule finds, sample by sample.
class PcmScanner {
public:
    // For the parser's kind of samples. Takes: the parser borrowed, which is asked all along whether a burst may begin.
    PcmScanner(const PcmParser& parser, unsigned limit, PcmVectors vectors);

    // The fewest instants that it takes; 0 for samples that it can't look at.
    unsigned least() const { return m_least; }
    // Looks at instants from the head of `memory`, up to `samples`, up to the next one that begins a burst, and as far
    // as whole vectors go; there may be none. Each is measured against the one before it.
    // Requires: an instant ahead of `memory`.
    PcmStretch scan(const unsigned char* memory, unsigned samples) const;

    // What all its vectors are measured with.
    struct Form {
        unsigned m_bytes;     // of a channel's sample
        unsigned m_channels;  // 1 to 32
        std::uint32_t m_limit;
        std::int32_t m_syncPa;
        std::int32_t m_syncPb;
    };
    // What is found in some vectors: for each of their lanes that belongs to another channel than the others.
    struct Found {
        bool m_anyValue = false;
        bool m_sync = false;
        std::uint32_t m_maxStep[PcmPattern::s_maxChannels] = {};
        std::uint32_t m_over[PcmPattern::s_maxChannels] = {};
    };
    using Pass = void (*)(const Form& form, const unsigned char* memory, unsigned groups, Found& found);
    using Value = std::int32_t (*)(const unsigned char* memory);

private:
    unsigned findSync(const unsigned char* memory, unsigned samples) const;
    void close(const unsigned char* memory, const Found& found, PcmStretch& stretch) const;

    Form m_form;
    const PcmParser& m_parser;  // borrowed
    bool m_isBlind;             // decoded by the rule these samples are all 0
    Pass m_pass = nullptr;
    Value m_value = nullptr;
    unsigned m_least = 0;  // instants that begin and end with whole vectors
};
