#pragma once

#include <cstdint>

#include "mediautil/validation/pcm_pass.h"
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
    PcmStretch scan(const unsigned char* memory, unsigned samples);

private:
    PcmPass::Found look(const unsigned char* memory, unsigned groups);
    bool isOver(const PcmPass::Found& found) const;
    unsigned findSync(const unsigned char* memory, unsigned samples) const;
    void close(const unsigned char* memory, const PcmPass::Found& found, PcmStretch& stretch) const;

    const PcmPass::Form m_form;
    const PcmParser& m_parser;  // borrowed
    const bool m_isBlind;       // decoded by the rule these samples are all 0
    PcmPass::Reader m_reader;
    unsigned m_least = 0;       // instants that begin and end with whole vectors: a group
    unsigned m_mostGroups = 0;  // in one pass
    bool m_isDamaged = false;   // the last pass had steps above the limit
};
