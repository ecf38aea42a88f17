#include <cctype>

#include "mediautil/object/suffix.h"
#include "services/system/log.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_property.h"
#include "tests/fuzz/fuzz_input.h"

// Any text as the name of whatever has names. A text that is understood is that
// of a value whose own text reads back.

namespace {

using fuzz::require;

template <class T>
void checkTable(const EnumMap<T>& map, const char* text) {
    T value = static_cast<T>(0xFFFFFFFFu);
    const bool known = map.mapString(text, value);
    require(known == (value != static_cast<T>(0xFFFFFFFFu)));
    if (!known) return;
    T again{};
    require(map.mapValue(value) != nullptr && map.mapString(map.mapValue(value), again) && again == value);
}

void checkTables(const char* text) {
    checkTable(getMediaDataTypeMap(), text);
    checkTable(getMediaVideoRateMap(), text);
    checkTable(getMediaEncodingTypeMap(), text);
    checkTable(getMediaFileTypeMap(), text);
    checkTable(getMediaContainmentMap(), text);
    checkTable(getMediaChromaSampleMap(), text);
    checkTable(getMediaVideoScanTypeMap(), text);
    checkTable(getMediaAspectRatioMap(), text);
    checkTable(getS2016ActiveFmtDescMap(), text);
}

void checkNames(const char* text) {
    const MediaVideoRate rate = MediaNames::getVideoRate(text);
    require(rate == MediaVideoRate{} || MediaNames::getVideoRate(MediaNames::get(rate)) == rate);
    const MediaEncodingType encoding = MediaNames::getEncodingType(text);
    require(encoding == MediaEncodingType{} || MediaNames::getEncodingType(MediaNames::get(encoding)) == encoding);
    const MediaDataType type = MediaNames::getDataType(text);
    require(type == MediaDataType{} || MediaNames::getDataType(MediaNames::get(type)) == type);
    const MediaPropertyEnum::Name name = MediaPropertyEnum::lookup(text);
    require(name == MediaPropertyEnum::Name::Unknown || std::string(MediaPropertyEnum::lookup(name)) == text);
    LogLevel level = LogLevel::Debug;
    if (parseLogLevel(text, level)) require(std::string(getLogLevelName(level)) == text);
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return text;
}

// What stands behind the last dot, and the types of files that go by it.
void checkSuffix(const std::string& path) {
    constexpr std::size_t most = 30;
    const std::size_t dot = path.rfind('.');
    const std::string behind = dot == std::string::npos ? "" : lower(path.substr(dot + 1));
    char suffix[32];
    const bool has = getSuffix(suffix, path.c_str());
    require(has == (!behind.empty() && behind.size() <= most) && (!has || suffix == behind));
    const std::vector<MediaFileType> types = mapSuffixToFileTypes(path.c_str());
    require(mapSuffixToFileType(path.c_str()) == (types.empty() ? MediaFileType{} : types.front()));
    MediaFileType known{};
    require(types.empty() == !(has && getMediaFileTypeMap().mapString(behind.c_str(), known)));
}

// The same whatever folder it is in, and for the suffix alone.
void checkFileType(const std::string& path) {
    const MediaFileType type = MediaNames::getFileType(path.c_str());
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos) return;
    require(MediaNames::getFileType(("/some/folder/x" + path.substr(dot)).c_str()) == type);
    require(MediaNames::getFileType(path.c_str() + dot + 1) == type);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).text();
    checkTables(text.c_str());
    checkNames(text.c_str());
    checkSuffix(text);
    checkFileType(text);
    return 0;
}
