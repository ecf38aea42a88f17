#include <cstdio>

#include "shared/include/description/media_names.h"
#include "shared/include/object/media_format.h"
#include "tools/commands.h"

namespace {

const char* roleOf(const MediaFormatEntry& entry) {
    return entry.m_role == MediaFormatEntry::Role::Reader ? "reader" : "writer";
}

// The suffixes by which the open path finds a type.
std::vector<std::string> suffixesOf(MediaFileType type) {
    std::vector<std::string> suffixes;
    const EnumMap<MediaFileType>& map = getMediaFileTypeMap();
    for (int i = 0; i < map.count(); ++i) {
        const auto& pair = map.pair(static_cast<unsigned>(i));
        if (pair.value == type) suffixes.emplace_back(pair.name);
    }
    return suffixes;
}

Json documentOf(const std::vector<MediaFormatEntry>& entries) {
    Json formats = Json::array();
    for (const MediaFormatEntry& entry : entries) {
        formats.push_back(Json{{"name", MediaNames::get(entry.m_fileType)},
                               {"role", roleOf(entry)},
                               {"priority", entry.m_priority},
                               {"suffixes", suffixesOf(entry.m_fileType)}});
    }
    return Json{{"schemaVersion", s_schemaVersion}, {"formats", std::move(formats)}};
}

std::string textOf(const std::vector<MediaFormatEntry>& entries) {
    std::string text = "format     role     priority  suffixes\n";
    for (const MediaFormatEntry& entry : entries) {
        char head[80];
        std::snprintf(head, sizeof head, "%-10s %-8s %8d ", MediaNames::get(entry.m_fileType), roleOf(entry),
                      entry.m_priority);
        text += head;
        for (const std::string& suffix : suffixesOf(entry.m_fileType))
            text += " " + suffix;
        text += "\n";
    }
    return text;
}

}  // namespace

ExitCode runFormats(Output& output) {
    const std::vector<MediaFormatEntry> entries = listMediaFormats();
    if (output.options().wantsDocument()) return output.printDocument(documentOf(entries), "formats");
    return output.print(textOf(entries)) ? ExitCode::Done : ExitCode::IoError;
}
