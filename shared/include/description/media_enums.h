#pragma once

#include <cstdint>

// The closed vocabulary that describes a movie. Every numeric value is fixed: files and logged text depend on it.
// A value without a name is still a legal value, and 0 means unknown or unset.

// What a track carries. Data and every greater value is a data track of some kind.
enum class MediaDataType : std::uint32_t { Unknown = 0, Video = 1, Audio = 2, Data = 3 };

// Nominal frame rate of a video standard.
enum class MediaVideoRate : std::uint32_t {
    Unknown = 0,
    Pal25 = 1,
    Ntsc2997 = 2,
    Film23976 = 3,
    Film24 = 4,
    Hz30 = 5,
    Hz50 = 6,
    Hz5994 = 7,
    Hz60 = 8,
};

// Coding of the essence.
enum class MediaEncodingType : std::uint32_t {
    Unknown = 0,
    Rec601 = 1,
    Dv = 2,
    Mpeg = 3,
    Mpeg4 = 4,
    Avc = 5,
    Pcm = 6,
    Aes3 = 7,
    ALaw = 8,
    Hdcam = 9,
    Dnxhd = 10,
    Vbi = 11,
    S436mVbi = 12,
    S436mAnc = 13,
    Data = 14,
    Mpeg1 = 15,
    Aac = 16,
    Mixed = 17,
    GxfAnc = 18,
    Prores = 19,
    Jpeg2000 = 20,
};

// Kind of file, or, from Null to Translation, kind of object that stands in no file of its own.
// Value 7 is nobody's.
enum class MediaFileType : std::uint32_t {
    Unknown = 0,
    Dv = 1,
    QuickTime = 2,
    Mxf = 3,
    Gxf = 4,
    TransportStream = 5,
    ProgramStream = 6,
    Streamed = 8,
    Mpeg2Video = 9,
    Mpeg4Video = 10,
    Avc = 11,
    MpegAudio = 12,
    MpegAudio2 = 13,
    MpegAudio3 = 14,
    Hdcam = 15,
    Rec601 = 16,
    Dnxhd = 17,
    Aiff = 18,
    Wav = 19,
    Ac3 = 20,
    Vbi = 21,
    S436m = 22,
    Data = 23,
    Mpeg1Video = 24,
    Aes = 25,
    Aac = 26,
    Null = 27,
    Filter = 28,
    Translation = 29,
    Prores = 30,
    Jpeg2000 = 31,
};

// Whether essence lies inside the movie's own file.
enum class MediaContainment : std::uint32_t { Unknown = 0, ByRef = 1, Embedded = 2, Mixed = 3 };

enum class MediaChromaSample : std::uint32_t { None = 0, C420 = 1, C411 = 2, C422 = 3, C444 = 4 };

enum class MediaVideoScanType : std::uint32_t { Unknown = 0, Interlaced = 1, Progressive = 2 };

enum class MediaAspectRatio : std::uint32_t { Unknown = 0, Ratio4x3 = 1, Ratio16x9 = 2, Other = 3 };

enum class MediaEndian : std::uint32_t { Big = 0, Little = 1 };

enum class SequenceCodingType : std::uint32_t { Intra = 0, LongGop = 1 };

// Active format description of SMPTE ST 2016-1 as it stands in that standard's byte: the four-bit code shifted
// left by three, bit 2 set for a 16:9 coded frame (Hd), clear for 4:3 (Sd). Unknown says that there is none.
enum class S2016ActiveFmtDesc : std::uint32_t {
    SdReserved1 = 0x08,
    HdReserved1 = 0x0c,
    SdLb169 = 0x10,
    HdFf169 = 0x14,
    SdLb149 = 0x18,
    HdPb149HcDup = 0x1c,
    SdLb169Vc = 0x20,
    HdLb169Vc = 0x24,
    SdReserved5 = 0x28,
    HdReserved5 = 0x2c,
    SdReserved6 = 0x30,
    HdReserved6 = 0x34,
    SdReserved7 = 0x38,
    HdReserved7 = 0x3c,
    SdFf43 = 0x40,
    HdFf169Dup = 0x44,
    SdFf43Dup = 0x48,
    HdPb43Hc = 0x4c,
    SdLb169VcIp = 0x50,
    HdFf169Ip = 0x54,
    SdLb149Vc = 0x58,
    HdPb149Hc = 0x5c,
    SdReserved12 = 0x60,
    HdReserved12 = 0x64,
    SdFf43Alt149 = 0x68,
    HdPb43Alt149 = 0x6c,
    SdLb169Alt149 = 0x70,
    HdFf169Alt149 = 0x74,
    SdLb169Alt43 = 0x78,
    HdFf169Alt43 = 0x7c,
    Unknown = 0xff,
};

// True for the codings of the MPEG family that have groups of pictures.
constexpr bool isMpeg(MediaEncodingType encoding) {
    return encoding == MediaEncodingType::Mpeg || encoding == MediaEncodingType::Mpeg4 ||
           encoding == MediaEncodingType::Avc;
}
