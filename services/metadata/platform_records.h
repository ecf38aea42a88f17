#pragma once

#include <cstdint>

// What an essence is, in the platform's own numbers.
enum class ZxMediaType : std::uint32_t {
    Unknown = 0,
    Mpeg2Video = 1,
    Pcm = 2,
    Aes3 = 3,
    MpegAudio = 4,
    Ac3 = 5,
    Dv25 = 6,
    ALaw = 7,
    Dv50 = 8,
    Dv100 = 9,
    Mpeg1Video = 10,
    Mpeg4Video = 11,
    Hdcam = 12,
    Vbi = 13,
    Ancillary = 14,
    Data = 15,
    Dnxhd = 16,
    Avc = 17,
    AvcIntra = 18,
    Aac = 19,
    Prores = 20,
    Uncompressed = 21,
    Jpeg2000 = 22
};

// How the colour samples lie among the brightness samples.
enum class ZxVideoSampleRatio : std::uint32_t { Unknown = 0, Ratio420 = 1, Ratio411 = 2, Ratio422 = 3, Ratio444 = 4 };

// How the lines of a frame were scanned.
enum class ZxFrameStruct : std::uint32_t { Unknown = 0, Interlaced = 1, Progressive = 2 };

// The platform's public description of one essence. The order of the fields is the record's; 0 is unknown.
struct ZxMediaSummary1 {
    ZxMediaType type = ZxMediaType::Unknown;
    ZxVideoSampleRatio chroma = ZxVideoSampleRatio::Unknown;
    std::uint32_t aspect = 0;         // 1 is 4:3, 2 is 16:9, 3 another
    std::uint32_t bitrate = 0;        // bits per second
    std::uint32_t bitsPerSample = 0;  // of a frame for uncompressed video
    std::uint32_t rateTimes100 = 0;   // samples per second, times 100
    std::uint32_t channels = 0;
    std::uint32_t gopLength = 0;  // frames; 0 or 1 is intra
    std::uint8_t isBigEndian = 0;
    std::uint16_t width = 0;   // pixels
    std::uint16_t height = 0;  // lines of a frame
};
