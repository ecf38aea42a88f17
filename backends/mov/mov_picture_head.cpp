#include "backends/mov/mov_picture_head.h"

#include <algorithm>
#include <cstring>

#include "backends/mov/mov_avc_config.h"

namespace {

constexpr std::uint8_t s_sequence = 0xB3, s_extension = 0xB5, s_group = 0xB8, s_picture = 0x00;
constexpr std::size_t s_sequenceSize = 4, s_extensionSize = 2;  // of what is looked at, behind the start code
constexpr unsigned s_sequenceExtension = 1;                     // the kind of extension
constexpr unsigned s_sequenceSet = 7;                           // the kind of unit

// The scan, the pixels' shape or the chroma isn't told, or the chroma only by a profile.
bool lacksOfMpeg2(const MovEntry& entry) {
    return entry.chroma == MediaChromaSample::None || entry.isChromaOfProfile ||
           entry.scan == MediaVideoScanType::Unknown || entry.pixelWidth == 0;
}

MediaChromaSample chromaOf(unsigned format) {
    constexpr MediaChromaSample chromas[] = {MediaChromaSample::None, MediaChromaSample::C420, MediaChromaSample::C422,
                                             MediaChromaSample::C444};
    return chromas[format & 3];
}

void setScan(MovEntry& entry, bool isProgressive) {
    if (entry.scan != MediaVideoScanType::Unknown) return;
    entry.scan = isProgressive ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
}

// Behind the size: a code for the shape of a pixel or of the whole picture.
void readSequence(MovEntry& entry, const std::uint8_t* bytes) {
    const unsigned shape = bytes[3] >> 4;
    if (shape == 2) entry.codedAspect = MediaAspectRatio::Ratio4x3;
    if (shape == 3) entry.codedAspect = MediaAspectRatio::Ratio16x9;
    if (shape == 1) entry.codedAspect = MovDescription::aspectOf(entry.width, entry.height);
}

void readExtension(MovEntry& entry, const std::uint8_t* bytes) {
    const MediaChromaSample chroma = chromaOf(bytes[1] >> 1);
    if (chroma != MediaChromaSample::None && (entry.chroma == MediaChromaSample::None || entry.isChromaOfProfile)) {
        entry.chroma = chroma;
    }
    setScan(entry, (bytes[1] & 8) != 0);
}

// The sequence header, and its extension if there is one, stand before the first group and picture.
void readMpeg2(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t at = 0; at + 4 <= size; ++at) {
        if (bytes[at] != 0 || bytes[at + 1] != 0 || bytes[at + 2] != 1) continue;
        const std::uint8_t code = bytes[at + 3];
        const std::uint8_t* const body = bytes + at + 4;
        const std::size_t left = size - at - 4;
        if (code == s_group || code == s_picture) return;
        if (code == s_sequence && left >= s_sequenceSize) readSequence(entry, body);
        if (code == s_extension && left >= s_extensionSize && body[0] >> 4 == s_sequenceExtension) {
            readExtension(entry, body);
        }
    }
}

void readProres(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    if (size < 21 || std::memcmp(bytes + 4, "icpf", 4) != 0) return;
    const unsigned mode = bytes[20] >> 2 & 3;  // 0: a frame, 1 and 2: two fields
    if (mode != 3) setScan(entry, mode == 0);
}

void readDnxhd(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    constexpr std::uint8_t prefix[] = {0, 0, 2};
    constexpr std::size_t colour = 44;
    if (size < 6 || std::memcmp(bytes, prefix, sizeof prefix) != 0) return;
    const unsigned content = bytes[5] & 3;  // 1: a frame, 2 and 3: a field
    if (content != 0) setScan(entry, content == 1);
    if (size <= colour || entry.chroma != MediaChromaSample::None) return;
    entry.chroma = (bytes[colour] & 0x40) != 0 ? MediaChromaSample::C444 : MediaChromaSample::C422;
}

// How much farther apart the samples of the second part of a picture lie than those of the first.
MediaChromaSample chromaOfSteps(unsigned across, unsigned down) {
    if (across == 1 && down == 1) return MediaChromaSample::C444;
    if (across == 2 && down == 1) return MediaChromaSample::C422;
    if (across == 2 && down == 2) return MediaChromaSample::C420;
    return across == 4 && down == 1 ? MediaChromaSample::C411 : MediaChromaSample::None;
}

// The codestream may stand in boxes of its own.
void readJpeg2000(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    constexpr std::uint8_t start[] = {0xFF, 0x4F, 0xFF, 0x51};  // of the codestream, and its image size
    constexpr std::size_t parts = 40, partSize = 3, leastParts = 3;
    const std::uint8_t* const at = std::search(bytes, bytes + size, start, start + sizeof start);
    const auto left = static_cast<std::size_t>(bytes + size - at);
    if (left < parts + 2 + 2 * partSize || at[parts] != 0 || at[parts + 1] < leastParts) return;
    const std::uint8_t* const first = at + parts + 2;
    const std::uint8_t* const second = first + partSize;
    if (first[1] == 1 && first[2] == 1) entry.chroma = chromaOfSteps(second[1], second[2]);
}

bool completeByUnit(MovEntry& entry, const std::uint8_t* unit, std::size_t size) {
    MovAvcConfig config;
    if ((unit[0] & 31) != s_sequenceSet || !config.readSequence(unit, size)) return false;
    config.complete(entry);
    return true;
}

// Units of AVC behind their lengths, or behind start codes. A set that is cut off here may tell all the same.
void readAvc(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    const std::size_t lengthBytes = entry.lengthBytes;
    if (lengthBytes == 0) {
        for (std::size_t at = 0; at + 4 < size; ++at) {
            if (bytes[at] != 0 || bytes[at + 1] != 0 || bytes[at + 2] != 1) continue;
            if (completeByUnit(entry, bytes + at + 3, size - at - 3)) return;
        }
        return;
    }
    while (size > lengthBytes) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < lengthBytes; ++i)
            length = length << 8 | bytes[i];
        bytes += lengthBytes;
        size -= lengthBytes;
        if (completeByUnit(entry, bytes, std::min(length, size)) || length >= size) return;
        bytes += length;
        size -= length;
    }
}

}  // namespace

bool MovPictureHead::isWanted(const MovEntry& entry) {
    switch (entry.encoding) {
        case MediaEncodingType::Mpeg:
            return lacksOfMpeg2(entry);
        case MediaEncodingType::Prores:
            return entry.scan == MediaVideoScanType::Unknown;
        case MediaEncodingType::Dnxhd:
            return entry.scan == MediaVideoScanType::Unknown || entry.chroma == MediaChromaSample::None;
        case MediaEncodingType::Jpeg2000:
            return entry.chroma == MediaChromaSample::None;
        case MediaEncodingType::Avc:
            return !entry.hasProfile || entry.chroma == MediaChromaSample::None;
        default:
            return false;
    }
}

void MovPictureHead::complete(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    if (entry.encoding == MediaEncodingType::Mpeg) readMpeg2(entry, bytes, size);
    if (entry.encoding == MediaEncodingType::Prores) readProres(entry, bytes, size);
    if (entry.encoding == MediaEncodingType::Dnxhd) readDnxhd(entry, bytes, size);
    if (entry.encoding == MediaEncodingType::Jpeg2000) readJpeg2000(entry, bytes, size);
    if (entry.encoding == MediaEncodingType::Avc) readAvc(entry, bytes, size);
}
