#include "backends/mov/mov_entry_parser.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_avc_config.h"
#include "backends/mov/mov_decoder_config.h"

namespace {

constexpr unsigned s_entryHead = 8;  // reserved, and the data reference
constexpr unsigned s_pictureSize = 78, s_soundSize = 28, s_sound1Size = 16, s_sound2Size = 36;
constexpr unsigned s_timecodeSize = 26;
constexpr std::uint32_t s_mostChannels = 1024, s_mostRate = 1u << 26, s_mostBits = 64;

// The rate of a version 2 description is a double.
std::uint32_t rateOf(std::uint64_t bits) {
    double rate = 0;
    std::memcpy(&rate, &bits, sizeof rate);
    return rate >= 1 && rate <= s_mostRate ? static_cast<std::uint32_t>(std::lround(rate)) : 0;
}

// The length of a descriptor: 7 bits a byte, at most four bytes.
std::uint32_t descriptorSize(ByteCursor& cursor) {
    std::uint32_t size = 0;
    for (int i = 0; i < 4; ++i) {
        std::uint8_t byte = 0;
        cursor.bytes(&byte, 1);
        size = size << 7 | (byte & 0x7F);
        if ((byte & 0x80) == 0) break;
    }
    return size;
}

std::uint8_t byteOf(ByteCursor& cursor) {
    std::uint8_t byte = 0;
    cursor.bytes(&byte, 1);
    return byte;
}

}  // namespace

const std::uint8_t* MovEntryParser::bodyOf(const MovBox& box, unsigned size) {
    return box.size() >= size ? m_file.at(box.body, size) : nullptr;
}

MovEntry MovEntryParser::parse(const MovBox& box, MediaDataType type, MovCode handler, bool isIsoVersion1) {
    m_entry = MovEntry();
    m_entry.code = box.type;
    m_isLittle = m_isFloat = false;
    m_isUnsigned = box.type == movCode("raw ") || box.type == movCode("NONE");
    m_frameBytes = 0;
    const std::uint8_t* head = bodyOf(box, s_entryHead);
    if (head == nullptr) return m_entry;
    ByteCursor cursor(head, s_entryHead);
    cursor.skip(6);
    const unsigned reference = cursor.be16();
    m_entry.reference = reference != 0 ? reference - 1 : 0;
    const MovCoding* coding = MovDescription::find(type, box.type);
    if (coding != nullptr) {
        m_entry.encoding = coding->encoding;
        m_entry.chroma = coding->chroma;
        m_entry.scan = coding->scan;
        m_entry.endian = coding->endian;
    }
    if (type == MediaDataType::Video) parsePicture(box);
    if (type == MediaDataType::Audio) {
        parseSound(box, isIsoVersion1);
        settleSound(coding);
    }
    if (type == MediaDataType::Data) m_entry.encoding = MediaEncodingType::Data;
    if (handler == MovAtom::s_tmcd) parseTimecode(box);
    return m_entry;
}

void MovEntryParser::parsePicture(const MovBox& box) {
    const std::uint8_t* body = bodyOf(box, s_pictureSize);
    if (body == nullptr) return;
    ByteCursor cursor(body + 24, s_pictureSize - 24);
    m_entry.width = cursor.be16();
    m_entry.height = cursor.be16();
    parseExtensions(box.body + s_pictureSize, box.end, false);
}

void MovEntryParser::parseSound(const MovBox& box, bool isIsoVersion1) {
    const std::uint8_t* body = bodyOf(box, s_soundSize);
    if (body == nullptr) return;
    ByteCursor cursor(body + s_entryHead, s_soundSize - s_entryHead);
    const unsigned version = cursor.be16();
    cursor.skip(6);
    m_entry.channels = cursor.be16();
    m_entry.bits = cursor.be16();
    cursor.skip(4);
    m_entry.sampleRate = cursor.be32() >> 16;
    std::uint64_t at = box.body + s_soundSize;
    if (version == 1 && !isIsoVersion1 && box.end - at >= s_sound1Size) {
        body = m_file.at(at, s_sound1Size);
        if (body == nullptr) return;
        ByteCursor more(body, s_sound1Size);
        const std::uint32_t perPacket = more.be32();
        more.skip(4);
        const std::uint32_t frameBytes = more.be32();
        const std::uint32_t wordBytes = more.be32();
        if (perPacket == 1 && wordBytes != 0 && wordBytes <= 8) {
            m_frameBytes = frameBytes;
            m_entry.bits = std::max(m_entry.bits, wordBytes * 8);
        }
        at += s_sound1Size;
    } else if (version == 2 && box.end - at >= s_sound2Size) {
        body = m_file.at(at, s_sound2Size);
        if (body == nullptr) return;
        ByteCursor more(body, s_sound2Size);
        more.skip(4);
        m_entry.sampleRate = rateOf(more.be64());
        m_entry.channels = more.be32();
        more.skip(4);
        m_entry.bits = more.be32();
        const std::uint32_t flags = more.be32();
        m_frameBytes = more.be32();
        if (box.type == movCode("lpcm")) {
            m_isFloat = (flags & 1) != 0;
            m_isLittle = (flags & 2) == 0;
            m_isUnsigned = (flags & 4) == 0;
        }
        at += s_sound2Size;
    }
    parseExtensions(at, box.end, false);
}

void MovEntryParser::parseTimecode(const MovBox& box) {
    const std::uint8_t* body = bodyOf(box, s_timecodeSize - 1);
    if (body == nullptr) return;
    ByteCursor cursor(body + s_entryHead, s_timecodeSize - 1 - s_entryHead);
    cursor.skip(4);
    const std::uint32_t flags = cursor.be32();
    m_entry.dropFrame = (flags & 1) != 0;
    m_entry.isCounter = (flags & 8) != 0;
    m_entry.tcScale = cursor.be32();
    m_entry.tcStep = cursor.be32();
    m_entry.tcFrames = byteOf(cursor);
}

void MovEntryParser::parseExtensions(std::uint64_t from, std::uint64_t end, bool isInWave) {
    if (from >= end) return;
    MovBoxReader reader(m_file, from, end, m_left);
    MovBox box;
    while (reader.next(box))
        parseExtension(box, isInWave);
}

void MovEntryParser::parseExtension(const MovBox& box, bool isInWave) {
    const std::uint8_t* body = nullptr;
    if (box.type == MovAtom::s_wave && !isInWave) {
        parseExtensions(box.body, box.end, true);
    } else if (box.type == MovAtom::s_esds) {
        parseElementary(box);
    } else if (box.type == MovAtom::s_avcC) {
        parseConfig(box);
    } else if (box.type == MovAtom::s_clap) {
        parseCleanAperture(box);
    } else if (box.type == MovAtom::s_pcmC) {
        parsePcmConfig(box);
    } else if (box.type == MovAtom::s_enda && (body = bodyOf(box, 2)) != nullptr) {
        m_isLittle = body[1] != 0;
    } else if (box.type == MovAtom::s_pasp && (body = bodyOf(box, 8)) != nullptr) {
        ByteCursor cursor(body, 8);
        m_entry.pixelWidth = cursor.be32();
        m_entry.pixelHeight = cursor.be32();
    } else if (box.type == MovAtom::s_fiel && (body = bodyOf(box, 2)) != nullptr) {
        const MediaVideoScanType scan = MovDescription::scanOfFields(body[0]);
        if (scan != MediaVideoScanType::Unknown) m_entry.scan = scan;
    } else if (box.type == MovAtom::s_btrt && (body = bodyOf(box, 12)) != nullptr) {
        ByteCursor cursor(body + 8, 4);
        m_entry.bitrate = cursor.be32();
    }
}

// An elementary stream's descriptors one in the other: 3 the stream, 4 its decoder.
void MovEntryParser::parseElementary(const MovBox& box) {
    const auto size = static_cast<unsigned>(std::min<std::uint64_t>(box.size(), 256));
    const std::uint8_t* body = bodyOf(box, size);
    if (body == nullptr || size < 4) return;
    ByteCursor cursor(body + 4, size - 4);
    std::uint8_t tag = byteOf(cursor);
    (void)descriptorSize(cursor);
    if (tag == 3) {
        cursor.skip(2);
        const std::uint8_t flags = byteOf(cursor);
        if ((flags & 0x80) != 0) cursor.skip(2);
        if ((flags & 0x40) != 0) cursor.skip(byteOf(cursor));
        if ((flags & 0x20) != 0) cursor.skip(2);
        tag = byteOf(cursor);
        (void)descriptorSize(cursor);
    }
    if (tag != 4) return;
    parseDecoder(cursor);
    if (byteOf(cursor) != 5) return;
    const std::size_t length = std::min<std::size_t>(descriptorSize(cursor), cursor.left());
    if (cursor.ok()) MovDecoderConfig::complete(m_entry, body + (size - cursor.left()), length);
}

void MovEntryParser::parseDecoder(ByteCursor& cursor) {
    const std::uint8_t objectType = byteOf(cursor);
    cursor.skip(4);
    const std::uint32_t most = cursor.be32();
    const std::uint32_t mean = cursor.be32();
    if (!cursor.ok()) return;
    m_entry.encoding = MovDescription::encodingOfObjectType(objectType);
    if (m_entry.encoding == MediaEncodingType::Mpeg) {
        // Main and simple profile are 4:2:0; of the 4:2:2 profile the number tells itself.
        m_entry.chroma = objectType == 0x65 ? MediaChromaSample::C422 : MediaChromaSample::C420;
        m_entry.isChromaOfProfile = true;
    }
    // These have no other.
    if (m_entry.encoding == MediaEncodingType::Mpeg1) {
        m_entry.chroma = MediaChromaSample::C420;
        m_entry.scan = MediaVideoScanType::Progressive;
    }
    if (m_entry.encoding == MediaEncodingType::Mpeg4) m_entry.chroma = MediaChromaSample::C420;
    m_entry.bitrate = mean != 0 ? mean : most;
}

void MovEntryParser::parseConfig(const MovBox& box) {
    const auto size = static_cast<unsigned>(std::min<std::uint64_t>(box.size(), 1024));
    const std::uint8_t* body = bodyOf(box, size);
    MovAvcConfig config;
    if (body == nullptr || !config.read(body, size)) return;
    config.complete(m_entry);
    m_entry.lengthBytes = config.lengthBytes;
}

void MovEntryParser::parseCleanAperture(const MovBox& box) {
    const std::uint8_t* body = bodyOf(box, 16);
    if (body == nullptr) return;
    ByteCursor cursor(body, 16);
    std::uint32_t parts[4];
    for (std::uint32_t& part : parts)
        part = cursor.be32();
    if (parts[1] == 0 || parts[3] == 0) return;
    m_entry.cleanWidth = parts[0] / parts[1];
    m_entry.cleanHeight = parts[2] / parts[3];
}

void MovEntryParser::parsePcmConfig(const MovBox& box) {
    const std::uint8_t* body = bodyOf(box, 6);
    if (body == nullptr) return;
    m_isLittle = (body[4] & 1) != 0;
    m_entry.bits = body[5];
}

// What the fields, the code and the atoms of sound come to.
void MovEntryParser::settleSound(const MovCoding* coding) {
    if (m_entry.channels > s_mostChannels) m_entry.channels = 0;
    if (m_entry.bits > s_mostBits) m_entry.bits = 0;
    const bool isPlain = m_entry.encoding == MediaEncodingType::Pcm || m_entry.encoding == MediaEncodingType::ALaw;
    if (!isPlain || coding == nullptr) return;
    const bool saysWords = coding->code == movCode("in24") || coding->code == movCode("in32");
    if (saysWords || m_entry.encoding == MediaEncodingType::ALaw || m_entry.bits == 0) {
        m_entry.bits = coding->bits != 0 ? coding->bits : 8;
    }
    if (m_isLittle) m_entry.endian = MediaEndian::Little;
    m_entry.bits = (m_entry.bits + 7) / 8 * 8;
    const bool isSound = m_entry.channels != 0 && m_entry.bits <= 32;
    if (!isSound || m_isFloat) {
        m_entry.encoding = MediaEncodingType::Unknown;
        return;
    }
    m_entry.sampleBytes = m_entry.channels * m_entry.bits / 8;
    // Bytes have no order, so it tells their sign: as in the formats of that order, those of AIFF have one.
    if (m_entry.encoding == MediaEncodingType::Pcm && m_entry.bits == 8)
        m_entry.endian = m_isUnsigned ? MediaEndian::Little : MediaEndian::Big;
    // Words that stand in wider places keep these.
    if (m_frameBytes > m_entry.sampleBytes && m_frameBytes % m_entry.channels == 0 &&
        m_frameBytes / m_entry.channels <= 4 && m_entry.encoding == MediaEncodingType::Pcm) {
        m_entry.sampleBytes = m_frameBytes;
        m_entry.bits = m_frameBytes / m_entry.channels * 8;
    }
}
