#pragma once

#include <cstdint>

#include "services/system/debugger_on.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

struct PcmStretch;

// The full scale divided by this is the largest step between two samples that passes for sound; 0 counts as 1.
MO_PUBLIC extern DebuggerOn validatePcmThresh;

// What a block of sound looks like: each channel's steps from sample to sample, and how much of the block belongs to a
// burst of AC-3, which isn't judged as sound.
// **Threads:** one at a time. **Units:** samples are instants, of all channels at once.
class MO_PUBLIC PcmPattern {
public:
    static constexpr unsigned s_maxChannels = 32;

    struct Channel {
        void reset() { *this = Channel(); }

        std::int32_t m_prev = 0;      // the last sample
        std::uint32_t m_step = 0;     // the last absolute step
        std::uint32_t m_minStep = 0;  // can't get lower; kept as it is, nothing reads it
        std::uint32_t m_maxStep = 0;
        std::uint32_t m_over = 0;  // steps above the limit
        std::uint32_t m_ok = 0;    // steps within it
    };

    // One instant.
    struct Sample {
        Sample(const int* values, bool inBurst) : m_values(values), m_inBurst(inBurst) {}

        const int* m_values;  // of 32 channels, borrowed
        bool m_inBurst;
    };

    // `limit` is the largest step that is sound.
    PcmPattern(unsigned int limit, unsigned int channels);

    void add(const Sample& sample);
    // The next sample of one channel, taken modulo 32. Answers whether the channel has ever gone over the limit.
    bool add(int value, unsigned int channel);
    // A sample of a burst: the step out of the burst is measured from 0. The same answer.
    bool addAc3(unsigned int channel);
    // Many instants that were looked at together, with what `add` of each one would have left behind.
    // Requires: an instant before them.
    void add(const PcmStretch& stretch);
    // Many instants inside a burst. Requires: a sample of that burst before them.
    void addBurst(unsigned int samples);
    // How long the last burst says that it is; 0 for none.
    void setAc3SampleCount(unsigned int samples);

    bool suspect() const { return m_suspect; }
    unsigned int getLimit() const { return m_limit; }
    const Channel& getChannel(unsigned int channel) const { return m_chan[channel % s_maxChannels]; }
    // Gives: array text.
    AutoPtr<char> toString() const;

private:
    // Its first and its length instant come on top of the length that a burst declares.
    static constexpr std::uint32_t s_burstHead = 2;

    bool isBurstWhole() const { return m_ac3Expected + s_burstHead == m_ac3Count; }

    Channel m_chan[s_maxChannels];
    std::uint32_t m_nChannels;
    std::uint32_t m_nSamples = 0;  // seen
    std::uint32_t m_limit;
    bool m_suspect = false;
    bool m_silent = true;
    bool m_ac3Seen = false;
    std::uint32_t m_ac3First = 0;     // where the first sample of a burst came
    std::uint32_t m_ac3Expected = 0;  // what the burst declares
    std::uint32_t m_ac3Count = 0;     // samples of bursts that came
};
