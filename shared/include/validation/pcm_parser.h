#pragma once

#include <cstdint>

#include "shared/include/description/media_enums.h"
#include "shared/include/io/media_parser.h"
#include "shared/include/validation/pcm_pattern.h"
#include "support/visibility.h"

// Turns the bytes of a block of sound into samples, and recognises a burst of AC-3 that a stereo pair carries by its
// preamble (SMPTE 337M).
// **Threads:** one at a time. **Units:** samples are instants, of all channels at once.
class MO_PUBLIC PcmParser : public MediaParser {
public:
    PcmParser();

    // Forgets what was decoded. Takes 1 to 4 bytes a channel's sample and up to 32 channels; further ones are decoded
    // over the first.
    void init(MediaEndian endian, unsigned int bytesPerSample, unsigned int channels);
    // The next instant; zeros behind the end. Gives: borrowed until the next call.
    PcmPattern::Sample decodeNextSample();
    // The last burst's length by its own word; 0 before any.
    unsigned int getAc3SamplesCnt() const { return m_ac3Samples; }

    // --- For those who look at many samples at a time --------------------------------------------------------------
    // The instants, up to `most`, that lie whole in one stretch of memory ahead. Gives: their memory, borrowed.
    const unsigned char* peekSamples(unsigned int most, unsigned int& samples);
    // Steps over samples that the caller has looked at, and that neither begin a burst nor stand in one.
    void skipSamples(unsigned int samples);
    // Steps over what is left of a burst behind its length word, up to `most` samples. Answers how many.
    unsigned int skipBurst(unsigned int most);
    bool isInBurst() const { return m_inBurst; }
    // Whether the next sample may begin a burst.
    bool isLookingForBurst() const { return m_armed && !m_inBurst; }
    MediaEndian getEndian() const { return m_endian; }
    unsigned int getBytesPerSample() const { return m_bytesPerSample; }
    unsigned int getChannels() const { return m_channels; }
    std::int32_t getSyncPa() const { return m_syncPa; }
    std::int32_t getSyncPb() const { return m_syncPb; }

private:
    std::int32_t decodeValue();
    void trackBurst();

    MediaEndian m_endian;
    std::uint32_t m_sampleNum;  // decoded; -1 for none
    std::uint32_t m_bytesPerSample;
    std::uint32_t m_channels;
    std::int32_t m_sample[PcmPattern::s_maxChannels];  // of the instant
    std::int32_t m_syncPa;                             // the sync words as samples
    std::int32_t m_syncPb;
    std::uint32_t m_burstPos;    // samples passed inside the burst
    std::uint32_t m_ac3Samples;  // of the burst, as it says itself
    bool m_inBurst;
    bool m_armed;  // looking for the sync words, or for the length word behind them
};
