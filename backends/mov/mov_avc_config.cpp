#include "backends/mov/mov_avc_config.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_avc_sequence.h"

namespace {

MediaChromaSample chromaOf(std::uint32_t format) {
    switch (format) {
        case 1:
            return MediaChromaSample::C420;
        case 2:
            return MediaChromaSample::C422;
        case 3:
            return MediaChromaSample::C444;
        default:
            return MediaChromaSample::None;
    }
}

}  // namespace

bool MovAvcConfig::read(const std::uint8_t* bytes, std::size_t size) {
    ByteCursor cursor(bytes, size);
    std::uint8_t head[6];
    cursor.bytes(head, sizeof head);
    if (!cursor.ok() || head[0] != 1) return false;
    const unsigned length = cursor.be16();
    if ((head[5] & 31) != 0 && cursor.ok()) {
        (void)readSequence(bytes + (size - cursor.left()), std::min<std::size_t>(length, cursor.left()));
    }
    profile = head[1];
    level = head[3];
    lengthBytes = static_cast<std::uint8_t>((head[4] & 3) + 1);
    return true;
}

bool MovAvcConfig::readSequence(const std::uint8_t* unit, std::size_t size) {
    MovAvcSequence sequence;
    if (!sequence.read(unit, size)) return false;
    profile = sequence.profile;
    level = sequence.level;
    chroma = chromaOf(sequence.chromaFormat);
    scan = sequence.isFramesOnly ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
    pixelWidth = sequence.pixelWidth;
    pixelHeight = sequence.pixelHeight;
    return true;
}

void MovAvcConfig::complete(MovEntry& entry) const {
    entry.hasProfile = true;
    entry.profile = profile;
    entry.level = level;
    if (chroma != MediaChromaSample::None) entry.chroma = chroma;
    if (entry.scan == MediaVideoScanType::Unknown) entry.scan = scan;
    if (pixelWidth != 0 && pixelHeight != 0)
        entry.codedAspect = MovDescription::aspectOf(std::uint64_t{entry.width} * pixelWidth,
                                                     std::uint64_t{entry.height} * pixelHeight);
}
