#include "backends/mov/mov_picture_types.h"

#include <algorithm>

#include "backends/mov/mov_bits.h"

namespace {

constexpr std::uint8_t s_mpegPicture = 0x00, s_mpeg4Vop = 0xB6;
constexpr unsigned s_slice = 1, s_partition = 2, s_idr = 5;

// The place behind the next start code, or the size.
std::size_t behindStartCode(const std::uint8_t* bytes, std::size_t size, std::size_t from) {
    for (std::size_t at = from; at + 3 < size; ++at) {
        if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) return at + 3;
    }
    return size;
}

SampleCodingType typeOfMpeg2(unsigned code) {
    return code == 1   ? SampleCodingType::I
           : code == 2 ? SampleCodingType::P
           : code == 3 ? SampleCodingType::B
                       : SampleCodingType::Unknown;
}

SampleCodingType typeOfMpeg4(unsigned code) {
    constexpr SampleCodingType types[] = {SampleCodingType::I, SampleCodingType::P, SampleCodingType::B,
                                          SampleCodingType::P};
    return types[code & 3];
}

// Slices of one sort may say so for the whole picture, by a number that is 5 higher.
SampleCodingType typeOfSlice(const std::uint8_t* unit, std::size_t size) {
    MovBits bits(unit + 1, size - 1);
    (void)bits.ue();  // the first macroblock
    const std::uint32_t type = bits.ue();
    if (!bits.ok() || type > 9) return SampleCodingType::Unknown;
    constexpr SampleCodingType types[] = {SampleCodingType::P, SampleCodingType::B, SampleCodingType::I,
                                          SampleCodingType::P, SampleCodingType::I};
    return types[type % 5];
}

bool isSlice(std::uint8_t head) {
    const unsigned type = head & 31;
    return type == s_slice || type == s_partition || type == s_idr;
}

SampleCodingType lookBehindCodes(const std::uint8_t* bytes, std::size_t size, MediaEncodingType encoding) {
    for (std::size_t at = behindStartCode(bytes, size, 0); at < size; at = behindStartCode(bytes, size, at)) {
        if (encoding == MediaEncodingType::Avc) {
            if (isSlice(bytes[at])) return typeOfSlice(bytes + at, size - at);
        } else if (encoding == MediaEncodingType::Mpeg4) {
            if (bytes[at] == s_mpeg4Vop && at + 1 < size) return typeOfMpeg4(bytes[at + 1] >> 6);
        } else if (bytes[at] == s_mpegPicture && at + 2 < size) {
            return typeOfMpeg2(bytes[at + 2] >> 3 & 7);
        }
    }
    return SampleCodingType::Unknown;
}

// Units with their lengths in front: only the first bytes of each are read.
SampleCodingType lookInUnits(BasicFileIO& file, unsigned lengthBytes, std::uint64_t offset, std::uint32_t size) {
    constexpr unsigned ofSlice = 24;
    std::uint8_t bytes[512];
    std::uint64_t at = 0, start = 0;
    unsigned filled = 0;
    for (unsigned i = 0; i < MovPictureTypes::s_units && at + lengthBytes < size; ++i) {
        const auto wanted = static_cast<unsigned>(std::min<std::uint64_t>(size - at, lengthBytes + ofSlice));
        if (filled == 0 || at - start + wanted > filled) {
            start = at;
            const int got = file.readAt(offset + at, bytes,
                                        static_cast<unsigned>(std::min<std::uint64_t>(size - at, sizeof bytes)));
            filled = got > 0 ? static_cast<unsigned>(got) : 0;
            if (filled < wanted) return SampleCodingType::Unknown;
        }
        const std::uint8_t* unit = bytes + (at - start);
        std::uint64_t length = 0;
        for (unsigned b = 0; b < lengthBytes; ++b)
            length = length << 8 | unit[b];
        const std::size_t there = std::min<std::uint64_t>(length, wanted - lengthBytes);
        if (there > 1 && isSlice(unit[lengthBytes])) return typeOfSlice(unit + lengthBytes, there);
        at += lengthBytes + length;
    }
    return SampleCodingType::Unknown;
}

}  // namespace

bool MovPictureTypes::tells(MediaEncodingType encoding) {
    return encoding == MediaEncodingType::Mpeg || encoding == MediaEncodingType::Mpeg1 ||
           encoding == MediaEncodingType::Mpeg4 || encoding == MediaEncodingType::Avc;
}

SampleCodingType MovPictureTypes::look(BasicFileIO& file, MediaEncodingType encoding, unsigned lengthBytes,
                                       std::uint64_t offset, std::uint32_t size) {
    if (!tells(encoding)) return SampleCodingType::Unknown;
    if (encoding == MediaEncodingType::Avc && lengthBytes != 0) return lookInUnits(file, lengthBytes, offset, size);
    std::uint8_t head[s_head];
    const int got = file.readAt(offset, head, std::min<std::uint32_t>(size, s_head));
    return got > 0 ? lookBehindCodes(head, static_cast<std::size_t>(got), encoding) : SampleCodingType::Unknown;
}
