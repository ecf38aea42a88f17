#include "shared/include/description/media_names.h"

#include <algorithm>
#include <cstring>

#include "services/system/format_str.h"

namespace {

// Of two rows with one value the first prints; of two with one name the first is parsed. Order is part of each table.
// A closing row with a null name ends every table and isn't counted.

constexpr EnumPair<MediaDataType> s_dataTypes[] = {
    {"?media", MediaDataType::Unknown},
    {"video", MediaDataType::Video},
    {"audio", MediaDataType::Audio},
    {nullptr, MediaDataType::Unknown},
};

constexpr EnumPair<MediaVideoRate> s_videoRates[] = {
    {"?vrate", MediaVideoRate::Unknown}, {"pal", MediaVideoRate::Pal25},        {"25hz", MediaVideoRate::Pal25},
    {"ntsc", MediaVideoRate::Ntsc2997},  {"29.97hz", MediaVideoRate::Ntsc2997}, {"23.976hz", MediaVideoRate::Film23976},
    {"24hz", MediaVideoRate::Film24},    {"30hz", MediaVideoRate::Hz30},        {"50hz", MediaVideoRate::Hz50},
    {"59.94hz", MediaVideoRate::Hz5994}, {"60hz", MediaVideoRate::Hz60},        {nullptr, MediaVideoRate::Unknown},
};

constexpr EnumPair<MediaEncodingType> s_encodings[] = {
    {"?encoding", MediaEncodingType::Unknown},
    {"rec601", MediaEncodingType::Rec601},
    {"dv", MediaEncodingType::Dv},
    {"mpeg", MediaEncodingType::Mpeg},
    {"mpeg4", MediaEncodingType::Mpeg4},
    {"avc", MediaEncodingType::Avc},
    {"pcm", MediaEncodingType::Pcm},
    {"aes3", MediaEncodingType::Aes3},
    {"a-law", MediaEncodingType::ALaw},
    {"hdcam", MediaEncodingType::Hdcam},
    {"dnxhd", MediaEncodingType::Dnxhd},
    {"vbi", MediaEncodingType::Vbi},
    {"s436mVbi", MediaEncodingType::S436mVbi},
    {"s436mAnc", MediaEncodingType::S436mAnc},
    {"data", MediaEncodingType::Data},
    {"mpg1", MediaEncodingType::Mpeg1},
    {"aac", MediaEncodingType::Aac},
    {"mixed", MediaEncodingType::Mixed},
    {"gxfAnc", MediaEncodingType::GxfAnc},
    {"prores", MediaEncodingType::Prores},
    {"jpeg2000", MediaEncodingType::Jpeg2000},
    {nullptr, MediaEncodingType::Unknown},
};

// Three oddities are meant: value 7 has no row, "mpg" stands twice, so that 24 prints by it and no text parses to 24,
// and Prores stands before Null. The open path walks these rows in this order.
constexpr EnumPair<MediaFileType> s_fileTypes[] = {
    {"unknown", MediaFileType::Unknown},
    {"dv", MediaFileType::Dv},
    {"dif", MediaFileType::Dv},
    {"mov", MediaFileType::QuickTime},
    {"mxf", MediaFileType::Mxf},
    {"gxf", MediaFileType::Gxf},
    {"ts", MediaFileType::TransportStream},
    {"mts", MediaFileType::TransportStream},
    {"mps", MediaFileType::ProgramStream},
    {"mp4", MediaFileType::QuickTime},
    {"rt", MediaFileType::Streamed},
    {"m2v", MediaFileType::Mpeg2Video},
    {"mpg", MediaFileType::Mpeg2Video},
    {"m4v", MediaFileType::Mpeg4Video},
    {"avc", MediaFileType::Avc},
    {"mpa", MediaFileType::MpegAudio},
    {"mp2", MediaFileType::MpegAudio2},
    {"mp2a", MediaFileType::MpegAudio2},
    {"mp3", MediaFileType::MpegAudio3},
    {"hdcam", MediaFileType::Hdcam},
    {"601", MediaFileType::Rec601},
    {"dnxhd", MediaFileType::Dnxhd},
    {"aiff", MediaFileType::Aiff},
    {"aifc", MediaFileType::Aiff},
    {"aif", MediaFileType::Aiff},
    {"wav", MediaFileType::Wav},
    {"wave", MediaFileType::Wav},
    {"ac3", MediaFileType::Ac3},
    {"vbi", MediaFileType::Vbi},
    {"436", MediaFileType::S436m},
    {"data", MediaFileType::Data},
    {"mpg", MediaFileType::Mpeg1Video},
    {"aes", MediaFileType::Aes},
    {"aac", MediaFileType::Aac},
    {"prores", MediaFileType::Prores},
    {"null", MediaFileType::Null},
    {"filter", MediaFileType::Filter},
    {"trans", MediaFileType::Translation},
    {"jp2c", MediaFileType::Jpeg2000},
    {nullptr, MediaFileType::Unknown},
};

constexpr EnumPair<MediaContainment> s_containments[] = {
    {"byRef", MediaContainment::ByRef},
    {"embedded", MediaContainment::Embedded},
    {"mixed", MediaContainment::Mixed},
    {nullptr, MediaContainment::Unknown},
};

constexpr EnumPair<MediaChromaSample> s_chromas[] = {
    {"no chroma", MediaChromaSample::None}, {"4:2:0", MediaChromaSample::C420}, {"420", MediaChromaSample::C420},
    {"4:1:1", MediaChromaSample::C411},     {"411", MediaChromaSample::C411},   {"4:2:2", MediaChromaSample::C422},
    {"422", MediaChromaSample::C422},       {"4:4:4", MediaChromaSample::C444}, {"444", MediaChromaSample::C444},
    {nullptr, MediaChromaSample::None},
};

constexpr EnumPair<MediaVideoScanType> s_scans[] = {
    {"unknown", MediaVideoScanType::Unknown},
    {"interlaced", MediaVideoScanType::Interlaced},
    {"progressive", MediaVideoScanType::Progressive},
    {nullptr, MediaVideoScanType::Unknown},
};

constexpr EnumPair<MediaAspectRatio> s_aspects[] = {
    {"Unknown", MediaAspectRatio::Unknown}, {"4:3", MediaAspectRatio::Ratio4x3},  {"16:9", MediaAspectRatio::Ratio16x9},
    {"Other", MediaAspectRatio::Other},     {nullptr, MediaAspectRatio::Unknown},
};

// The spellings "HdPb43Atl149" and "HdFF169Alt43" are what logs and XML carry.
constexpr EnumPair<S2016ActiveFmtDesc> s_activeFormats[] = {
    {"Unknown", S2016ActiveFmtDesc::Unknown},
    {"SdReserved1", S2016ActiveFmtDesc::SdReserved1},
    {"HdReserved1", S2016ActiveFmtDesc::HdReserved1},
    {"SdReserved5", S2016ActiveFmtDesc::SdReserved5},
    {"HdReserved5", S2016ActiveFmtDesc::HdReserved5},
    {"SdReserved6", S2016ActiveFmtDesc::SdReserved6},
    {"HdReserved6", S2016ActiveFmtDesc::HdReserved6},
    {"SdReserved7", S2016ActiveFmtDesc::SdReserved7},
    {"HdReserved7", S2016ActiveFmtDesc::HdReserved7},
    {"SdReserved12", S2016ActiveFmtDesc::SdReserved12},
    {"HdReserved12", S2016ActiveFmtDesc::HdReserved12},
    {"SdLb169", S2016ActiveFmtDesc::SdLb169},
    {"SdLb149", S2016ActiveFmtDesc::SdLb149},
    {"SdLb169Vc", S2016ActiveFmtDesc::SdLb169Vc},
    {"SdFf43", S2016ActiveFmtDesc::SdFf43},
    {"SdFf43Dup", S2016ActiveFmtDesc::SdFf43Dup},
    {"SdLb169VcIp", S2016ActiveFmtDesc::SdLb169VcIp},
    {"SdLb149Vc", S2016ActiveFmtDesc::SdLb149Vc},
    {"SdFf43Alt149", S2016ActiveFmtDesc::SdFf43Alt149},
    {"SdLb169Alt149", S2016ActiveFmtDesc::SdLb169Alt149},
    {"SdLb169Alt43", S2016ActiveFmtDesc::SdLb169Alt43},
    {"HdFf169", S2016ActiveFmtDesc::HdFf169},
    {"HdPb149HcDup", S2016ActiveFmtDesc::HdPb149HcDup},
    {"HdLb169Vc", S2016ActiveFmtDesc::HdLb169Vc},
    {"HdFf169Dup", S2016ActiveFmtDesc::HdFf169Dup},
    {"HdPb43Hc", S2016ActiveFmtDesc::HdPb43Hc},
    {"HdFf169Ip", S2016ActiveFmtDesc::HdFf169Ip},
    {"HdPb149Hc", S2016ActiveFmtDesc::HdPb149Hc},
    {"HdPb43Atl149", S2016ActiveFmtDesc::HdPb43Alt149},
    {"HdFf169Alt149", S2016ActiveFmtDesc::HdFf169Alt149},
    {"HdFF169Alt43", S2016ActiveFmtDesc::HdFf169Alt43},
    {nullptr, S2016ActiveFmtDesc::Unknown},
};

template <typename T, int Rows>
EnumMap<T> mapOf(const EnumPair<T> (&rows)[Rows]) {
    return EnumMap<T>(rows, Rows - 1);
}

template <typename T>
T parse(const EnumMap<T>& map, const char* name) {
    T value{};
    if (name) map.mapString(name, value);
    return value;
}

const char* behindLastDot(const char* text) {
    const char* dot = std::strrchr(text, '.');
    return dot ? dot + 1 : text;
}

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

const EnumMap<MediaDataType>& getMediaDataTypeMap() {
    static const EnumMap<MediaDataType> map = mapOf(s_dataTypes);
    return map;
}

const EnumMap<MediaVideoRate>& getMediaVideoRateMap() {
    static const EnumMap<MediaVideoRate> map = mapOf(s_videoRates);
    return map;
}

const EnumMap<MediaEncodingType>& getMediaEncodingTypeMap() {
    static const EnumMap<MediaEncodingType> map = mapOf(s_encodings);
    return map;
}

const EnumMap<MediaFileType>& getMediaFileTypeMap() {
    static const EnumMap<MediaFileType> map = mapOf(s_fileTypes);
    return map;
}

const EnumMap<MediaContainment>& getMediaContainmentMap() {
    static const EnumMap<MediaContainment> map = mapOf(s_containments);
    return map;
}

const EnumMap<MediaChromaSample>& getMediaChromaSampleMap() {
    static const EnumMap<MediaChromaSample> map = mapOf(s_chromas);
    return map;
}

const EnumMap<MediaVideoScanType>& getMediaVideoScanTypeMap() {
    static const EnumMap<MediaVideoScanType> map = mapOf(s_scans);
    return map;
}

const EnumMap<MediaAspectRatio>& getMediaAspectRatioMap() {
    static const EnumMap<MediaAspectRatio> map = mapOf(s_aspects);
    return map;
}

const EnumMap<S2016ActiveFmtDesc>& getS2016ActiveFmtDescMap() {
    static const EnumMap<S2016ActiveFmtDesc> map = mapOf(s_activeFormats);
    return map;
}

const char* MediaNames::get(MediaVideoRate value) { return getMediaVideoRateMap().mapValueForced(value); }
const char* MediaNames::get(MediaEncodingType value) { return getMediaEncodingTypeMap().mapValueForced(value); }
const char* MediaNames::get(MediaDataType value) { return getMediaDataTypeMap().mapValueForced(value); }
const char* MediaNames::get(MediaFileType value) { return getMediaFileTypeMap().mapValueForced(value); }
const char* MediaNames::get(MediaAspectRatio value) { return getMediaAspectRatioMap().mapValueForced(value); }
const char* MediaNames::get(S2016ActiveFmtDesc value) { return getS2016ActiveFmtDescMap().mapValueForced(value); }
const char* MediaNames::get(MediaVideoScanType value) { return getMediaVideoScanTypeMap().mapValueForced(value); }
const char* MediaNames::get(MediaChromaSample value) { return getMediaChromaSampleMap().mapValueForced(value); }
const char* MediaNames::get(MediaContainment value) { return getMediaContainmentMap().mapValueForced(value); }

const char* MediaNames::get(MediaEndian value) { return value == MediaEndian::Big ? "bendian" : "lendian"; }

const char* MediaNames::get(SequenceCodingType value) {
    if (value == SequenceCodingType::Intra) return "intra";
    return value == SequenceCodingType::LongGop ? "long-gop" : "??";
}

AutoPtr<char> MediaNames::get(MediaTrackEnum track) {
    return FormatStr("%s%d", get(decodeMteType(track)), static_cast<int>(decodeMteOrdinal(track)));
}

MediaVideoRate MediaNames::getVideoRate(const char* name) { return parse(getMediaVideoRateMap(), name); }
MediaEncodingType MediaNames::getEncodingType(const char* name) { return parse(getMediaEncodingTypeMap(), name); }
MediaDataType MediaNames::getDataType(const char* name) { return parse(getMediaDataTypeMap(), name); }

MediaFileType MediaNames::getFileType(const char* suffixOrPath) {
    if (!suffixOrPath) return MediaFileType::Unknown;
    const char* suffix = behindLastDot(suffixOrPath);
    MediaFileType type = MediaFileType::Unknown;
    if (getMediaFileTypeMap().mapString(suffix, type)) return type;
    char lower[32];
    const std::size_t length = std::strlen(suffix);
    if (length >= sizeof(lower)) return type;  // longer than any row
    std::transform(suffix, suffix + length + 1, lower, asciiLower);
    return parse(getMediaFileTypeMap(), lower);
}
