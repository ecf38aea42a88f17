#include "backends/wav/wav_parser.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "backends/common/byte_cursor.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr std::uint32_t fourCc(const char (&text)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(text[3])) << 24;
}

constexpr unsigned s_headerSize = 8;   // of a chunk
constexpr unsigned s_masterSize = 12;  // "RIFF", size, "WAVE"
constexpr std::uint32_t s_unknownSize = 0xFFFFFFFF;
constexpr std::uint64_t s_unknownSize64 = ~0ull;

constexpr std::uint16_t s_tagPcm = 1, s_tagALaw = 6, s_tagExtensible = 0xFFFE;

// The tail of a subformat GUID that makes its first two bytes a format tag, and that of ambisonic PCM.
constexpr std::uint8_t s_waveGuidTail[14] = {0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
constexpr std::uint8_t s_ambisonicGuidTail[14] = {0, 0, 0x21, 0x07, 0xD3, 0x11, 0x86, 0x44, 0xC8, 0xC1, 0xCA, 0, 0, 0};

// Names of codings that are told apart in a refusal.
const char* codingName(std::uint16_t tag) {
    switch (tag) {
        case 0x0002:
            return "Microsoft ADPCM";
        case 0x0003:
            return "floating point";
        case 0x0007:
            return "mu-law";
        case 0x0011:
            return "IMA ADPCM";
        case 0x0031:
            return "GSM 6.10";
        case 0x0050:
            return "MPEG audio";
        case 0x0055:
            return "MPEG layer 3";
        case 0x0092:
            return "AC-3 in AES3";
        case 0x00FF:
            return "AAC";
        case 0x0160:
        case 0x0161:
        case 0x0162:
        case 0x0163:
            return "Windows Media Audio";
        case 0x2000:
            return "AC-3";
        case 0xF1AC:
            return "FLAC";
        default:
            return nullptr;
    }
}

// The words of a refusal: the coding by its name where it has one.
OpResult refuseCoding(std::uint16_t tag) {
    const char* const name = codingName(tag);
    const FormatStr text("wav: %s%s (format tag 0x%04x) are not supported",
                         name != nullptr ? name : "samples of an unknown coding", name != nullptr ? " samples" : "",
                         tag);
    return MO_WARNING(MediaCode::UnsupportedMediaType, text.get());
}

// Chunk ids are four printable characters.
bool isPrintable(std::uint32_t id) {
    for (int i = 0; i < 4; ++i, id >>= 8) {
        const std::uint32_t c = id & 0xFF;
        if (c < 0x20 || c > 0x7E) return false;
    }
    return true;
}

bool isWellKnown(std::uint32_t id) {
    return id == fourCc("fmt ") || id == fourCc("data") || id == fourCc("bext") || id == fourCc("fact") ||
           id == fourCc("LIST");
}

OpResult refuse(int code, const FormatStr& text) { return MO_WARNING(code, text.get()); }

OpResult damaged(const char* text) { return MO_WARNING(MediaCode::ParserError, text); }

}  // namespace

OpResult WavParser::parse(WavFormat& format) {
    OpResult result = parseChunks();
    // What can't be read is no verdict on the file. Behind the essence it costs no more than what else stands there.
    if (m_file.failed() && !complete()) {
        result.discard();
        return MO_WARNING(MediaCode::ReadError, "wav: the file's chunks can't be read");
    }
    if (result) format = m_format;
    return result;
}

OpResult WavParser::parseChunks() {
    OpResult result = readMaster();
    if (result) result = readChunks();
    if (result) result = finish();
    return result;
}

OpResult WavParser::readMaster() {
    const std::uint8_t* head = m_file.at(0, s_masterSize);
    if (head == nullptr) return damaged("wav: the file is too short for a RIFF header");
    ByteCursor cursor(head, s_masterSize);
    const std::uint32_t id = cursor.le32();
    cursor.skip(4);  // the claimed size of it all; the file's own length is what counts
    m_is64 = id == fourCc("RF64") || id == fourCc("BW64");
    if (id == fourCc("RIFX"))
        return MO_WARNING(MediaCode::UnsupportedMediaType, "wav: big-endian RIFX is not supported");
    if (id != fourCc("RIFF") && !m_is64) return damaged("wav: no RIFF, RF64 or BW64 header at the start");
    if (cursor.le32() != fourCc("WAVE")) return damaged("wav: the RIFF file is not of type WAVE");
    return OpResult(OpResult::Ok);
}

bool WavParser::headerAt(std::uint64_t offset, Chunk& chunk) {
    const std::uint8_t* header = m_file.at(offset, s_headerSize);
    if (header == nullptr) return false;
    ByteCursor cursor(header, s_headerSize);
    chunk.id = cursor.le32();
    chunk.claimed = cursor.le32();
    chunk.body = offset + s_headerSize;
    chunk.size = sizeOf(chunk);
    return true;
}

std::uint64_t WavParser::sizeOf(const Chunk& chunk) const {
    if (chunk.claimed != s_unknownSize) return chunk.claimed;
    if (chunk.id == fourCc("data")) return m_hasDs64 ? m_ds64Data : s_unknownSize64;
    for (unsigned i = 0; i < m_longChunkCount; ++i) {
        if (m_longChunks[i].id == chunk.id) return m_longChunks[i].size;
    }
    return chunk.claimed;
}

// How much what stands here looks like a chunk of the file.
WavParser::Likeness WavParser::likenessAt(std::uint64_t offset) {
    Chunk chunk;
    if (!headerAt(offset, chunk) || !isPrintable(chunk.id)) return Likeness::None;
    if (isWellKnown(chunk.id)) return Likeness::WellKnown;
    return chunk.size <= m_file.length() - chunk.body ? Likeness::Fits : Likeness::None;
}

// Where the next chunk stands, past the end of the file if none can.
std::uint64_t WavParser::nextAfter(const Chunk& chunk) {
    const std::uint64_t length = m_file.length();
    if (chunk.size > length - chunk.body) return length;
    const std::uint64_t end = chunk.body + chunk.size;
    if (chunk.size % 2 == 0) return end;
    // Some writers leave the padding of an odd chunk out: the place where a chunk stands is the right one.
    const Likeness bare = likenessAt(end);
    return bare > likenessAt(end + 1) ? end : end + 1;
}

OpResult WavParser::readChunks() {
    std::uint64_t offset = s_masterSize;
    Chunk chunk;
    for (unsigned count = 0; headerAt(offset, chunk); ++count) {
        // Behind the essence only what is well formed is worth a look.
        if (complete() && (count >= s_maxChunks || !isPrintable(chunk.id))) break;
        if (count >= s_maxChunks) return damaged("wav: no fmt and data chunks among the first 4096");
        OpResult result = readChunk(chunk);
        if (!result) return result;
        if (m_dataOpen) break;  // the essence runs to the end of the file
        offset = nextAfter(chunk);
    }
    return OpResult(OpResult::Ok);
}

OpResult WavParser::readChunk(const Chunk& chunk) {
    if (chunk.id == fourCc("fmt ") && !m_hasFmt) return readFmt(chunk);
    if (chunk.id == fourCc("ds64") && m_is64 && !m_hasDs64) return readDs64(chunk);
    if (chunk.id == fourCc("data") && !m_hasData) noteData(chunk);
    if (chunk.id == fourCc("bext") && !m_format.hasBext) readBext(chunk);
    return OpResult(OpResult::Ok);
}

OpResult WavParser::readFmt(const Chunk& chunk) {
    constexpr unsigned plain = 16, extensible = 40;
    if (chunk.size < plain) {
        return refuse(MediaCode::ParserError,
                      FormatStr("wav: the fmt chunk at %llu has %u bytes, at least 16 are needed",
                                static_cast<unsigned long long>(chunk.body), chunk.claimed));
    }
    const unsigned size = chunk.size >= extensible ? extensible : plain;
    const std::uint8_t* body = m_file.at(chunk.body, size);
    if (body == nullptr) return damaged("wav: the fmt chunk runs past the end of the file");
    ByteCursor cursor(body, size);
    std::uint16_t tag = cursor.le16();
    m_format.channels = cursor.le16();
    m_format.sampleRate = cursor.le32();
    cursor.skip(4);  // bytes a second, which follows from the others and is often wrong
    m_format.blockAlign = cursor.le16();
    const std::uint16_t bits = cursor.le16();
    if (tag == s_tagExtensible) {
        if (size < extensible) return damaged("wav: the extensible fmt chunk is too short for its subformat");
        cursor.skip(8);  // size of the extension, valid bits, channel mask
        tag = cursor.le16();
        std::uint8_t tail[sizeof s_waveGuidTail];
        cursor.bytes(tail, sizeof tail);
        if (std::memcmp(tail, s_waveGuidTail, sizeof tail) != 0 &&
            std::memcmp(tail, s_ambisonicGuidTail, sizeof tail) != 0) {
            return MO_WARNING(MediaCode::UnsupportedMediaType,
                              "wav: samples of an unknown subformat are not supported");
        }
    }
    m_hasFmt = true;
    return checkCoding(tag, bits);
}

OpResult WavParser::checkCoding(std::uint16_t tag, std::uint16_t bits) {
    if (tag != s_tagPcm && tag != s_tagALaw) return refuseCoding(tag);
    if (m_format.channels == 0 || m_format.channels > s_maxChannels) {
        return refuse(MediaCode::ParserError, FormatStr("wav: %u channels, 1 to 32 are supported", m_format.channels));
    }
    if (m_format.sampleRate == 0) return damaged("wav: a sample rate of 0");
    if (bits == 0 || bits > 32 || (tag == s_tagALaw && bits != 8)) {
        return refuse(MediaCode::UnsupportedMediaType, FormatStr("wav: %u bits a sample are not supported", bits));
    }
    const unsigned bytes = (bits + 7u) / 8u;
    if (m_format.blockAlign != m_format.channels * bytes) {
        return refuse(MediaCode::ParserError, FormatStr("wav: a block align of %u doesn't fit %u channels of %u bytes",
                                                        m_format.blockAlign, m_format.channels, bytes));
    }
    m_format.encoding = tag == s_tagPcm ? MediaEncodingType::Pcm : MediaEncodingType::ALaw;
    m_format.bits = static_cast<std::uint16_t>(bytes * 8);
    return OpResult(OpResult::Ok);
}

OpResult WavParser::readDs64(const Chunk& chunk) {
    constexpr unsigned size = 16;  // size of it all, size of the data; the sample count behind them is of no use here
    const std::uint8_t* body = chunk.size >= size ? m_file.at(chunk.body, size) : nullptr;
    if (body == nullptr) return damaged("wav: the ds64 chunk is too short");
    ByteCursor cursor(body, size);
    cursor.skip(8);
    m_ds64Data = cursor.le64();
    m_hasDs64 = true;
    readLongChunks(chunk);
    return OpResult(OpResult::Ok);
}

// The table at the end of ds64. Some writers leave out even its count.
void WavParser::readLongChunks(const Chunk& ds64) {
    constexpr unsigned start = 24, entry = 12;
    const std::uint8_t* count = ds64.size >= start + 4 ? m_file.at(ds64.body + start, 4) : nullptr;
    if (count == nullptr) return;
    const std::uint64_t room = (ds64.size - start - 4) / entry;
    const std::uint64_t claimed = ByteCursor(count, 4).le32();
    const auto entries = static_cast<unsigned>(std::min<std::uint64_t>({room, claimed, s_maxLongChunks}));
    const std::uint8_t* table = m_file.at(ds64.body + start + 4, entries * entry);
    if (table == nullptr) return;
    ByteCursor cursor(table, entries * entry);
    for (m_longChunkCount = 0; m_longChunkCount < entries; ++m_longChunkCount) {
        m_longChunks[m_longChunkCount].id = cursor.le32();
        m_longChunks[m_longChunkCount].size = cursor.le64();
    }
}

void WavParser::readBext(const Chunk& chunk) {
    constexpr unsigned reference = 338, version = 346, umid = 348, end = umid + WavFormat::s_umidSize;
    if (chunk.size < version) return;
    const auto size = static_cast<unsigned>(std::min<std::uint64_t>(chunk.size, end)) - reference;
    const std::uint8_t* body = m_file.at(chunk.body + reference, size);
    if (body == nullptr) return;
    ByteCursor cursor(body, size);
    m_format.hasBext = true;
    m_format.timeReference = cursor.le64();
    static_assert(version - reference == 8 && umid - version == 2);
    if (cursor.le16() == 0) return;  // the first version has no UMID
    cursor.bytes(m_format.umid, sizeof m_format.umid);
    const auto isSet = [](std::uint8_t byte) { return byte != 0; };
    m_format.hasUmid = std::any_of(std::begin(m_format.umid), std::end(m_format.umid), isSet);
}

void WavParser::noteData(const Chunk& chunk) {
    m_hasData = true;
    m_format.dataOffset = chunk.body;
    m_dataSize = chunk.size;
    m_dataOpen = chunk.size == s_unknownSize64;
    // A recorder that runs or has crashed leaves 0; a finished file without a single sample has chunks behind it.
    if (chunk.size == 0) m_dataOpen = chunk.body >= m_file.length() || !chunksReachEnd(chunk.body);
}

// True when a chain of well-formed chunks leads from here exactly to the end of the file.
bool WavParser::chunksReachEnd(std::uint64_t offset) {
    const std::uint64_t length = m_file.length();
    Chunk chunk;
    for (unsigned count = 0; count < s_maxChunks && headerAt(offset, chunk); ++count) {
        if (!isPrintable(chunk.id) || chunk.size > length - chunk.body) return false;
        offset = nextAfter(chunk);
    }
    return offset >= length;
}

OpResult WavParser::finish() {
    if (!m_hasFmt) return damaged("wav: no fmt chunk");
    if (!m_hasData) return damaged("wav: no data chunk");
    const std::uint64_t inFile = m_file.length() - m_format.dataOffset;
    m_format.maxSamples = m_dataOpen ? s_unknownSize64 : m_dataSize / m_format.blockAlign;
    m_format.samples = std::min(m_format.maxSamples, inFile / m_format.blockAlign);
    return OpResult(OpResult::Ok);
}
