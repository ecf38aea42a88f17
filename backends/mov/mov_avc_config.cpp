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
    profile = head[1];
    level = head[3];
    lengthBytes = static_cast<std::uint8_t>((head[4] & 3) + 1);
    const unsigned length = cursor.be16();
    if ((head[5] & 31) != 0 && cursor.ok()) {
        readSequence(bytes + (size - cursor.left()), std::min<std::size_t>(length, cursor.left()));
    }
    return true;
}

void MovAvcConfig::readSequence(const std::uint8_t* bytes, std::size_t size) {
    MovAvcSequence sequence;
    if (!sequence.read(bytes, size)) return;
    chroma = chromaOf(sequence.chromaFormat);
    scan = sequence.isFramesOnly ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
}
