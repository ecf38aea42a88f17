#include "shared/include/validation/pcm_parser.h"

#include <algorithm>

namespace {

// The first words of a data burst, as SMPTE 337M gives them.
constexpr std::uint32_t s_pa = 0xFFFFF872;  // with the sign of a 16-bit sample
constexpr std::uint32_t s_pb = 0x4E1F;
constexpr unsigned s_bitsOfSample = 5;  // log2 of the bits of a burst that a stereo sample carries

// By how much a word of 16 bits is shifted to stand at the top of a sample.
constexpr unsigned topShift(unsigned bytes) { return (8 * bytes - 16) % 32; }

}  // namespace

PcmParser::PcmParser() { init(MediaEndian::Big, 16, 1); }

void PcmParser::init(MediaEndian endian, unsigned int bytesPerSample, unsigned int channels) {
    m_endian = endian;
    m_sampleNum = 0xFFFFFFFF;
    m_bytesPerSample = bytesPerSample;
    m_channels = channels;
    std::fill(std::begin(m_sample), std::end(m_sample), 0);
    m_syncPa = static_cast<std::int32_t>(s_pa << topShift(bytesPerSample));
    m_syncPb = static_cast<std::int32_t>(s_pb << topShift(bytesPerSample));
    m_burstPos = 0;
    m_ac3Samples = 0;
    m_inBurst = false;
    m_armed = channels == 2;
}

PcmPattern::Sample PcmParser::decodeNextSample() {
    for (unsigned channel = 0; channel < m_channels; ++channel)
        m_sample[channel % PcmPattern::s_maxChannels] = decodeValue();
    trackBurst();
    ++m_sampleNum;
    return PcmPattern::Sample(m_sample, m_inBurst);
}

// Little-endian words are shifted as if they stood at the top like the others, so that less than 32 bits of them lose
// their low part. It is meant: such sound isn't analysed in earnest.
std::int32_t PcmParser::decodeValue() {
    std::uint32_t word = 0;
    for (unsigned i = 0; i < m_bytesPerSample; ++i) {
        const unsigned byte = m_endian == MediaEndian::Big ? 3 - i : i;
        word |= std::uint32_t{decodeByte()} << (byte * 8) % 32;
    }
    return static_cast<std::int32_t>(word) >> (32 - 8 * m_bytesPerSample) % 32;
}

void PcmParser::trackBurst() {
    if (m_armed && !m_inBurst) {
        if (m_sample[0] == m_syncPa && m_sample[1] == m_syncPb) {
            m_inBurst = true;
            m_burstPos = 0;
        }
    } else if (m_armed) {
        // This instant has the burst's length in bits.
        const std::int32_t bits = m_sample[1] >> topShift(m_bytesPerSample);
        m_ac3Samples = static_cast<std::uint32_t>(bits) >> s_bitsOfSample;
        m_armed = false;
    } else if (m_inBurst) {
        if (m_burstPos >= m_ac3Samples) {
            m_armed = true;
            m_inBurst = false;
        }
        ++m_burstPos;
    }
}

const unsigned char* PcmParser::peekSamples(unsigned int most, unsigned int& samples) {
    const simpleSgl_s piece = peekPiece();
    samples = std::min(most, piece.m_length / (m_bytesPerSample * m_channels));
    return piece.m_start;
}

void PcmParser::skipSamples(unsigned int samples) {
    discard(samples * m_bytesPerSample * m_channels);
    m_sampleNum += samples;
}

unsigned int PcmParser::skipBurst(unsigned int most) {
    if (!m_inBurst || m_armed || m_burstPos >= m_ac3Samples) return 0;
    const unsigned samples = std::min(most, m_ac3Samples - m_burstPos);
    skipSamples(samples);
    m_burstPos += samples;
    return samples;
}
