#include "mediautil/object/suffix.h"

#include <cstring>

#include "services/system/text.h"
#include "shared/include/description/media_names.h"

bool getSuffix(char (&out)[32], const char* path) {
    // The whole path is searched: a dot in a folder's name counts when the file's name has none.
    const char* dot = std::strrchr(path, '.');
    if (dot == nullptr) return false;
    const std::size_t length = std::strlen(dot);
    if (length <= 1 || length >= sizeof out) return false;
    std::memcpy(out, dot + 1, length);
    strlwr(out);
    return true;
}

std::vector<MediaFileType> mapSuffixToFileTypes(const char* path) {
    std::vector<MediaFileType> types;
    char suffix[32];
    if (!getSuffix(suffix, path)) return types;
    const EnumMap<MediaFileType>& map = getMediaFileTypeMap();
    for (int i = 0; i < map.count(); ++i) {
        const auto& pair = map.pair(static_cast<unsigned>(i));
        if (std::strcmp(pair.name, suffix) == 0) types.push_back(pair.value);
    }
    return types;
}

MediaFileType mapSuffixToFileType(const char* path) {
    char suffix[32];
    MediaFileType type{};
    if (getSuffix(suffix, path)) getMediaFileTypeMap().mapString(suffix, type);
    return type;
}
