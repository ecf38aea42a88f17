#include "backends/aiff/aiff_parser.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr std::uint32_t fourCc(const char (&text)[5]) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(text[i]);
    return value;
}

constexpr unsigned s_headerSize = 8;  // of a chunk
constexpr unsigned s_formSize = 12;   // "FORM", size, type

bool isPrintable(std::uint32_t id) {
    for (int i = 0; i < 4; ++i, id >>= 8) {
        const std::uint32_t c = id & 0xFF;
        if (c < 0x20 || c > 0x7E) return false;
    }
    return true;
}

OpResult damaged(const char* text) { return MO_WARNING(MediaCode::ParserError, text); }

// A coding whose words have one size whatever COMM says; 0 leaves it to COMM.
unsigned fixedBitsOf(std::uint32_t coding) {
    if (coding == fourCc("in24")) return 24;
    if (coding == fourCc("in32")) return 32;
    return 0;
}

OpResult refuseCoding(std::uint32_t coding) {
    char name[5] = {};
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(coding >> (24 - 8 * i));
        name[i] = c >= 0x20 && c <= 0x7E ? c : '?';
    }
    return MO_WARNING(MediaCode::UnsupportedMediaType,
                      FormatStr("aiff: samples of coding \"%s\" are not supported", name).get());
}

}  // namespace

std::uint32_t AiffParser::rateOf(std::uint16_t signAndExponent, std::uint64_t mantissa) {
    constexpr int bias = 16383, mantissaBits = 63;
    const int exponent = (signAndExponent & 0x7FFF) - bias;
    // The value is mantissa * 2^(exponent - 63) with the integer bit at the top of the mantissa.
    if ((signAndExponent & 0x8000) != 0 || exponent < 0 || exponent > 31) return 0;
    const int shift = mantissaBits - exponent;
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    const std::uint64_t whole = (mantissa >> shift) + ((mantissa & half) != 0 ? 1 : 0);
    return whole <= 0xFFFFFFFFu ? static_cast<std::uint32_t>(whole) : 0;
}

OpResult AiffParser::parse(PcmFormat& format) {
    OpResult result = readForm();
    if (result) result = readChunks();
    if (result) result = finish();
    // What can't be read is no verdict on the file.
    if (m_file.failed() && !complete()) {
        result.discard();
        return MO_WARNING(MediaCode::ReadError, "aiff: the file's chunks can't be read");
    }
    if (result) format = m_format;
    return result;
}

OpResult AiffParser::readForm() {
    const std::uint8_t* form = m_file.at(0, s_formSize);
    if (form == nullptr) return damaged("aiff: the file is too short for a FORM header");
    ByteCursor cursor(form, s_formSize);
    if (cursor.be32() != fourCc("FORM")) return damaged("aiff: no FORM header at the start");
    cursor.skip(4);  // the claimed size of it all; the file's own length is what counts
    const std::uint32_t type = cursor.be32();
    m_isAifc = type == fourCc("AIFC");
    if (!m_isAifc && type != fourCc("AIFF")) return damaged("aiff: the FORM is of type neither AIFF nor AIFC");
    return OpResult(OpResult::Ok);
}

bool AiffParser::headerAt(std::uint64_t offset, Chunk& chunk) {
    const std::uint8_t* header = m_file.at(offset, s_headerSize);
    if (header == nullptr) return false;
    ByteCursor cursor(header, s_headerSize);
    chunk.id = cursor.be32();
    chunk.size = cursor.be32();
    chunk.body = offset + s_headerSize;
    return true;
}

std::uint64_t AiffParser::nextAfter(const Chunk& chunk) {
    const std::uint64_t length = m_file.length();
    if (chunk.size > length - chunk.body) return length;
    const std::uint64_t end = chunk.body + chunk.size;
    if (chunk.size % 2 == 0) return end;
    // Some writers leave the padding of an odd chunk out: the place where a chunk id stands is the right one.
    Chunk padded, bare;
    const bool isPadded = headerAt(end + 1, padded) && isPrintable(padded.id);
    if (!isPadded && headerAt(end, bare) && isPrintable(bare.id)) return end;
    return end + 1;
}

OpResult AiffParser::readChunks() {
    std::uint64_t offset = s_formSize;
    Chunk chunk;
    for (unsigned count = 0; !complete() && headerAt(offset, chunk); ++count) {
        if (count >= s_maxChunks) return damaged("aiff: no COMM and SSND chunks among the first 4096");
        OpResult result(OpResult::Ok);
        if (chunk.id == fourCc("COMM") && !m_hasComm) result = readComm(chunk);
        if (chunk.id == fourCc("SSND") && !m_hasSsnd) result = readSsnd(chunk);
        if (!result) return result;
        offset = nextAfter(chunk);
    }
    return OpResult(OpResult::Ok);
}

OpResult AiffParser::readComm(const Chunk& chunk) {
    constexpr unsigned plain = 18, withCoding = 22;
    const unsigned size = m_isAifc ? withCoding : plain;
    if (chunk.size < size) return damaged("aiff: the COMM chunk is too short");
    const std::uint8_t* body = m_file.at(chunk.body, size);
    if (body == nullptr) return damaged("aiff: the COMM chunk runs past the end of the file");
    ByteCursor cursor(body, size);
    m_format.channels = cursor.be16();
    m_frames = cursor.be32();
    const std::uint16_t bits = cursor.be16();
    const std::uint16_t signAndExponent = cursor.be16();
    m_format.sampleRate = rateOf(signAndExponent, cursor.be64());
    m_hasComm = true;
    if (m_format.channels == 0 || m_format.channels > s_maxChannels) {
        const FormatStr text("aiff: %u channels, 1 to 32 are supported", m_format.channels);
        return MO_WARNING(MediaCode::ParserError, text.get());
    }
    if (m_format.sampleRate == 0) return damaged("aiff: the sample rate is no number of 1 Hz and more");
    return setCoding(m_isAifc ? cursor.be32() : fourCc("NONE"), bits);
}

OpResult AiffParser::setCoding(std::uint32_t coding, std::uint16_t bits) {
    m_format.endian = MediaEndian::Big;
    if (coding == fourCc("alaw") || coding == fourCc("ALAW")) {
        m_format.encoding = MediaEncodingType::ALaw;
        bits = 8;  // COMM tells the size of the expanded words
    } else if (coding == fourCc("sowt")) {
        m_format.endian = MediaEndian::Little;
    } else if (const unsigned fixed = fixedBitsOf(coding); fixed != 0) {
        bits = static_cast<std::uint16_t>(fixed);
    } else if (coding != fourCc("NONE") && coding != fourCc("twos")) {
        return refuseCoding(coding);
    }
    if (bits == 0 || bits > 32) {
        const FormatStr text("aiff: %u bits a sample are not supported", bits);
        return MO_WARNING(MediaCode::UnsupportedMediaType, text.get());
    }
    const unsigned bytes = (bits + 7u) / 8u;
    m_format.bits = static_cast<std::uint16_t>(bytes * 8);
    m_format.blockAlign = static_cast<std::uint16_t>(bytes * m_format.channels);
    return OpResult(OpResult::Ok);
}

OpResult AiffParser::readSsnd(const Chunk& chunk) {
    constexpr unsigned size = 8;  // offset of the first sample, block size
    const std::uint8_t* body = chunk.size >= size ? m_file.at(chunk.body, size) : nullptr;
    if (body == nullptr) return damaged("aiff: the SSND chunk is too short");
    ByteCursor cursor(body, size);
    const std::uint32_t offset = cursor.be32();
    const std::uint64_t start = chunk.body + size + offset;
    const std::uint64_t claimed = chunk.size - size;
    if (offset > claimed || start > m_file.length())
        return damaged("aiff: the SSND chunk's offset lies behind its data");
    m_hasSsnd = true;
    m_format.dataOffset = start;
    m_claimedBytes = claimed - offset;
    m_dataBytes = std::min(m_claimedBytes, m_file.length() - start);
    return OpResult(OpResult::Ok);
}

OpResult AiffParser::finish() {
    if (!m_hasComm) return damaged("aiff: no COMM chunk");
    // A sound without a single sample needs no SSND chunk.
    if (!m_hasSsnd && m_frames != 0) return damaged("aiff: no SSND chunk");
    if (!m_hasSsnd) m_format.dataOffset = m_file.length();
    m_format.maxSamples = std::min<std::uint64_t>(m_frames, m_claimedBytes / m_format.blockAlign);
    m_format.samples = std::min<std::uint64_t>(m_frames, m_dataBytes / m_format.blockAlign);
    return OpResult(OpResult::Ok);
}
