#include "backends/mov/mov_description.h"

#include <iterator>

namespace {

using Type = MediaDataType;
using Encoding = MediaEncodingType;
using Chroma = MediaChromaSample;
using Scan = MediaVideoScanType;
using Endian = MediaEndian;

constexpr MovCoding video(const char (&code)[5], Encoding encoding, Chroma chroma = Chroma::None,
                          Scan scan = Scan::Unknown) {
    return {movCode(code), Type::Video, encoding, chroma, scan, Endian::Big, 0};
}

constexpr MovCoding sound(const char (&code)[5], Encoding encoding, Endian endian, std::uint8_t bits) {
    return {movCode(code), Type::Audio, encoding, Chroma::None, Scan::Unknown, endian, bits};
}

// For a writer the first of a kind counts.
constexpr MovCoding s_codings[] = {
    video("avc1", Encoding::Avc),
    video("avc3", Encoding::Avc),
    video("ai5p", Encoding::Avc, Chroma::C420, Scan::Progressive),
    video("ai5q", Encoding::Avc, Chroma::C420, Scan::Progressive),
    video("ai52", Encoding::Avc, Chroma::C420, Scan::Progressive),
    video("ai53", Encoding::Avc, Chroma::C420, Scan::Progressive),
    video("ai55", Encoding::Avc, Chroma::C420, Scan::Interlaced),
    video("ai56", Encoding::Avc, Chroma::C420, Scan::Interlaced),
    video("ai1p", Encoding::Avc, Chroma::C422, Scan::Progressive),
    video("ai1q", Encoding::Avc, Chroma::C422, Scan::Progressive),
    video("ai12", Encoding::Avc, Chroma::C422, Scan::Progressive),
    video("ai13", Encoding::Avc, Chroma::C422, Scan::Progressive),
    video("ai15", Encoding::Avc, Chroma::C422, Scan::Interlaced),
    video("ai16", Encoding::Avc, Chroma::C422, Scan::Interlaced),
    // DV of 25 Mbit a second: 4:2:0 for 625 lines and 4:1:1 for 525; `dvcp` is the 625-line form of either kind.
    video("dvc ", Encoding::Dv, Chroma::C411, Scan::Interlaced),
    video("dvcp", Encoding::Dv, Chroma::C420, Scan::Interlaced),
    video("dvpp", Encoding::Dv, Chroma::C411, Scan::Interlaced),
    video("dvsd", Encoding::Dv, Chroma::None, Scan::Interlaced),
    video("dv5n", Encoding::Dv, Chroma::C422, Scan::Interlaced),
    video("dv5p", Encoding::Dv, Chroma::C422, Scan::Interlaced),
    video("dvh2", Encoding::Dv, Chroma::C422, Scan::Progressive),
    video("dvh3", Encoding::Dv, Chroma::C422, Scan::Progressive),
    video("dvh4", Encoding::Dv, Chroma::C422, Scan::Progressive),
    video("dvh5", Encoding::Dv, Chroma::C422, Scan::Interlaced),
    video("dvh6", Encoding::Dv, Chroma::C422, Scan::Interlaced),
    video("dvhp", Encoding::Dv, Chroma::C422, Scan::Progressive),
    video("dvhq", Encoding::Dv, Chroma::C422, Scan::Progressive),
    video("apcn", Encoding::Prores, Chroma::C422),
    video("apch", Encoding::Prores, Chroma::C422),
    video("apcs", Encoding::Prores, Chroma::C422),
    video("apco", Encoding::Prores, Chroma::C422),
    video("ap4h", Encoding::Prores, Chroma::C444),
    video("ap4x", Encoding::Prores, Chroma::C444),
    video("AVdn", Encoding::Dnxhd, Chroma::C422),
    video("AVdh", Encoding::Dnxhd),
    video("mjp2", Encoding::Jpeg2000),
    video("2vuy", Encoding::Rec601, Chroma::C422),
    video("m2v1", Encoding::Mpeg),
    video("mpg2", Encoding::Mpeg),
    // MPEG-2 of cameras and editors: the third character is the bitrate's kind, the last the raster and rate.
    video("hdv1", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv2", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("hdv3", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("hdv4", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv5", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv6", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv7", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv8", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdv9", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("hdva", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("mx3n", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("mx3p", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("mx4n", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("mx4p", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("mx5n", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("mx5p", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("xdv1", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv2", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("xdv3", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("xdv4", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv5", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv6", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv7", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv8", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdv9", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdva", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdvb", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("xdvc", Encoding::Mpeg, Chroma::C420, Scan::Interlaced),
    video("xdvd", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdve", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xdvf", Encoding::Mpeg, Chroma::C420, Scan::Progressive),
    video("xd51", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd54", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd55", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd59", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd5a", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd5b", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("xd5c", Encoding::Mpeg, Chroma::C422, Scan::Interlaced),
    video("xd5d", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd5e", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xd5f", Encoding::Mpeg, Chroma::C422, Scan::Progressive),
    video("xdhd", Encoding::Mpeg, Chroma::C420),
    video("xdh2", Encoding::Mpeg, Chroma::C422),
    video("mp4v", Encoding::Mpeg4),
    video("m1v ", Encoding::Mpeg1, Chroma::C420, Scan::Progressive),
    video("mp1v", Encoding::Mpeg1, Chroma::C420, Scan::Progressive),
    sound("sowt", Encoding::Pcm, Endian::Little, 16),
    sound("twos", Encoding::Pcm, Endian::Big, 0),
    sound("in24", Encoding::Pcm, Endian::Big, 24),
    sound("in32", Encoding::Pcm, Endian::Big, 32),
    sound("lpcm", Encoding::Pcm, Endian::Big, 0),
    sound("ipcm", Encoding::Pcm, Endian::Big, 0),
    sound("raw ", Encoding::Pcm, Endian::Big, 0),
    sound("NONE", Encoding::Pcm, Endian::Big, 0),
    sound("alaw", Encoding::ALaw, Endian::Big, 8),
    sound("mp4a", Encoding::Aac, Endian::Big, 0),
};

struct Named {
    MovCode code;
    const char* name;
};

constexpr Named s_unknown[] = {
    {movCode("hvc1"), "HEVC"},
    {movCode("hev1"), "HEVC"},
    {movCode("av01"), "AV1"},
    {movCode("vp09"), "VP9"},
    {movCode("jpeg"), "JPEG pictures"},
    {movCode("mjpa"), "motion JPEG"},
    {movCode("mjpb"), "motion JPEG"},
    {movCode("rle "), "run lengths"},
    {movCode("png "), "PNG pictures"},
    {movCode("SVQ3"), "Sorenson 3"},
    {movCode("s263"), "H.263"},
    {movCode("h263"), "H.263"},
    {movCode("v210"), "10-bit 4:2:2"},
    {movCode("ulaw"), "mu-law"},
    {movCode("ima4"), "IMA ADPCM"},
    {movCode("fl32"), "floating point"},
    {movCode("fl64"), "floating point"},
    {movCode("fpcm"), "floating point"},
    {movCode("ac-3"), "AC-3"},
    {movCode("ec-3"), "E-AC-3"},
    {movCode("alac"), "lossless audio"},
    {movCode("fLaC"), "FLAC"},
    {movCode("Opus"), "Opus"},
    {movCode(".mp3"), "MPEG layer 3"},
    {movCode("samr"), "AMR"},
    {movCode("encv"), "encrypted video"},
    {movCode("enca"), "encrypted sound"},
};

bool isWithin(std::uint64_t a, std::uint64_t b, unsigned percent) {
    const std::uint64_t difference = a > b ? a - b : b - a;
    return difference * 100 <= b * percent;
}

}  // namespace

const MovCoding* MovDescription::find(MediaDataType type, MovCode code) {
    for (const MovCoding& coding : s_codings) {
        if (coding.code == code && coding.type == type) return &coding;
    }
    return nullptr;
}

MovCode MovDescription::codeOf(MediaDataType type, MediaEncodingType encoding, MediaChromaSample chroma,
                               MediaEndian endian, unsigned bits) {
    if (encoding == Encoding::Pcm) {
        if (bits == 8) return endian == Endian::Little ? movCode("raw ") : movCode("twos");  // without sign, with one
        if (bits == 16) return endian == Endian::Little ? movCode("sowt") : movCode("twos");
        return bits == 24 ? movCode("in24") : bits == 32 ? movCode("in32") : 0;
    }
    MovCode any = 0;
    for (const MovCoding& coding : s_codings) {
        if (coding.type != type || coding.encoding != encoding) continue;
        if (coding.chroma == chroma) return coding.code;
        if (any == 0) any = coding.code;
    }
    return any;
}

MediaEncodingType MovDescription::encodingOfObjectType(std::uint8_t objectType) {
    switch (objectType) {
        case 0x20:
            return Encoding::Mpeg4;
        case 0x21:
            return Encoding::Avc;
        case 0x40:
        case 0x66:
        case 0x67:
        case 0x68:
            return Encoding::Aac;
        case 0x60:
        case 0x61:
        case 0x62:
        case 0x63:
        case 0x64:
        case 0x65:
            return Encoding::Mpeg;
        case 0x6A:
            return Encoding::Mpeg1;
        default:
            return Encoding::Unknown;
    }
}

MediaVideoScanType MovDescription::scanOfFields(std::uint8_t fields) {
    return fields == 1 ? Scan::Progressive : fields == 2 ? Scan::Interlaced : Scan::Unknown;
}

const char* MovDescription::nameOfUnknown(MovCode code) {
    for (const Named& named : s_unknown) {
        if (named.code == code) return named.name;
    }
    return nullptr;
}

MediaAspectRatio MovDescription::aspectOf(std::uint64_t width, std::uint64_t height) {
    constexpr unsigned leeway = 4;  // per cent: 720 samples of a grid that counts 702 or 704 as the picture
    constexpr std::uint64_t most = 1ull << 50;
    if (width == 0 || height == 0 || width > most || height > most) return MediaAspectRatio::Unknown;
    if (isWithin(width * 3, height * 4, leeway)) return MediaAspectRatio::Ratio4x3;
    if (isWithin(width * 9, height * 16, leeway)) return MediaAspectRatio::Ratio16x9;
    return MediaAspectRatio::Other;
}
