#include "backends/mov/mov_decoder_config.h"

#include <iterator>

#include "backends/mov/mov_bits.h"

namespace {

constexpr std::uint8_t s_firstLayer = 0x20, s_lastLayer = 0x2F;  // start codes

// The buffer of a decoder that is fed at a rate, where it is told.
void skipControl(MovBits& bits) {
    constexpr unsigned ofBuffer = 79;
    if (bits.bits(1) == 0) return;
    (void)bits.bits(3);  // chroma, delay
    if (bits.bits(1) == 0) return;
    for (unsigned left = ofBuffer; left != 0; --left)
        (void)bits.bits(1);
}

// The time that a picture lasts: as many bits as the resolution needs, one at least.
void skipTimes(MovBits& bits) {
    (void)bits.bits(1);
    const std::uint32_t resolution = bits.bits(16);
    (void)bits.bits(1);
    if (bits.bits(1) == 0) return;
    (void)bits.bits(1);
    for (std::uint32_t most = 2; most < resolution; most *= 2)
        (void)bits.bits(1);
}

// The shape of a pixel by its number in the list; 0 for one that isn't told.
void readShape(MovBits& bits, std::uint32_t& width, std::uint32_t& height) {
    constexpr std::uint8_t shapes[][2] = {{0, 0}, {1, 1}, {12, 11}, {10, 11}, {16, 11}, {40, 33}};
    constexpr std::uint32_t own = 15;
    const std::uint32_t kind = bits.bits(4);
    width = kind == own ? bits.bits(8) : kind < std::size(shapes) ? shapes[kind][0] : 0;
    height = kind == own ? bits.bits(8) : kind < std::size(shapes) ? shapes[kind][1] : 0;
}

void readLayer(MovEntry& entry, MovBits bits) {
    (void)bits.bits(9);  // random access, kind
    if (bits.bits(1) != 0) (void)bits.bits(7);
    std::uint32_t width = 0, height = 0;
    readShape(bits, width, height);
    skipControl(bits);
    if (bits.bits(2) != 0) return;  // not a rectangle
    skipTimes(bits);
    (void)bits.bits(29);  // the picture's size, between markers
    const bool isInterlaced = bits.bits(1) != 0;
    if (!bits.ok()) return;
    if (entry.scan == MediaVideoScanType::Unknown)
        entry.scan = isInterlaced ? MediaVideoScanType::Interlaced : MediaVideoScanType::Progressive;
    if (width != 0 && height != 0)
        entry.codedAspect =
            MovDescription::aspectOf(std::uint64_t{entry.width} * width, std::uint64_t{entry.height} * height);
}

void readMpeg4(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t at = 0; at + 4 < size; ++at) {
        const bool isStart = bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1;
        if (!isStart || bytes[at + 3] < s_firstLayer || bytes[at + 3] > s_lastLayer) continue;
        readLayer(entry, MovBits(bytes + at + 4, size - at - 4));
        return;
    }
}

// A movie of the later format counts the channels in its description as two, whatever they are.
void readAac(MovEntry& entry, MovBits bits) {
    constexpr std::uint32_t escape = 31, ownRate = 15, parametricStereo = 29;
    constexpr std::uint8_t channels[] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8};
    const std::uint32_t kind = bits.bits(5);
    if (kind == escape) (void)bits.bits(6);
    if (bits.bits(4) == ownRate) (void)bits.bits(24);
    const std::uint32_t layout = bits.bits(4);
    if (!bits.ok() || layout >= std::size(channels) || channels[layout] == 0) return;
    entry.channels = kind == parametricStereo ? 2 : channels[layout];
}

}  // namespace

void MovDecoderConfig::complete(MovEntry& entry, const std::uint8_t* bytes, std::size_t size) {
    if (entry.encoding == MediaEncodingType::Mpeg4) readMpeg4(entry, bytes, size);
    if (entry.encoding == MediaEncodingType::Aac) readAac(entry, MovBits(bytes, size));
}
