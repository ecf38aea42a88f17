#include "shared/include/naming/default_media_namer.h"

#include <cstdlib>
#include <cstring>

#include "services/system/log.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/switches.h"

// Names after the movie: prefix, number, tag, suffix.

namespace {

// "_1" for the first file. The text has room for six digits, so a larger number keeps its last six.
std::string numberText(std::int32_t index) {
    long long number = static_cast<long long>(index) + 1;
    if (number <= 0) return "";
    char text[8];
    char* at = text + sizeof text;
    *--at = '\0';
    do {
        *--at = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0 && at > text + 1);
    *--at = '_';
    return at;
}

// A dash and four letters or digits. Unseeded on purpose: it need only differ from one pass to the next.
std::string randomTag() {
    static constexpr char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string tag = "-";
    for (int i = 0; i < 4; ++i)
        tag += digits[std::rand() % 36];
    return tag;
}

// What the names of a request have in common.
struct NameParts {
    PathParser m_folder;
    std::string m_prefix;
    std::string m_suffix;
};

const char* suffixFor(MediaFileType type, const MediaSuffixMap* map) {
    if (map == nullptr) return MediaNames::get(type);
    const char* const suffix = map->getSuffix(type);
    return suffix != nullptr ? suffix : "";
}

NameParts partsOf(const MediaObj::NameReq& req, const char* subdir, const MediaSuffixMap* map) {
    const PathParser movie(req.m_path);
    NameParts parts{movie - 1, movie.getPrefix() + numberText(req.m_index), ""};
    if (req.m_name[0] != '\0') {
        const PathParser proposal(req.m_name);
        parts.m_folder = proposal - 1;
        parts.m_suffix = proposal.getSuffix();
    } else {
        parts.m_folder += subdir;
    }
    if (parts.m_suffix.empty()) parts.m_suffix = suffixFor(req.m_fileType, map);
    return parts;
}

}  // namespace

MediaSuffixMap::~MediaSuffixMap() = default;

DefaultMediaNamer::DefaultMediaNamer(const char* subdir, MediaSuffixMap* suffixMap, unsigned int passes)
    : m_anchor(*this, &DefaultMediaNamer::createName), m_subdir(subdir), m_suffixMap(suffixMap), m_passes(passes) {}

DefaultMediaNamer::~DefaultMediaNamer() = default;

bool DefaultMediaNamer::createName(const MediaObj::NameReq& req) {
    const NameParts parts = partsOf(req, getSubdir(), m_suffixMap);
    for (unsigned pass = 0; pass < m_passes; ++pass) {
        const std::string name = parts.m_prefix + (pass > 0 ? randomTag() : "") + "." + parts.m_suffix;
        const PathParser candidate = parts.m_folder + name.c_str();
        const bool taken = candidate.exists();
        if (mediaObjDbg.on(MediaDbg::RenameActivity)) {
            debugMsg("createName: %s %s\n", candidate.getPath(true), taken ? "preexists" : "ok");
        }
        if (candidate.getLength() >= MediaObj::NameReq::s_nameSize) return false;
        if (taken) continue;
        std::memcpy(req.m_name, candidate.getPath(true), candidate.getLength() + 1);
        return true;
    }
    errorMsg("no available name after %d passes for dir=%s pre=%s suf=%s\n", static_cast<int>(m_passes),
             parts.m_folder.getPath(true), parts.m_prefix.c_str(), parts.m_suffix.c_str());
    // True on purpose: the caller finds the old text in the request, and a move to it is refused when it is taken.
    return true;
}

bool DefaultMediaNamer::recreateName(const MediaObj::NameReq& req) {
    std::memset(req.m_name, 0, sizeof req.m_name);
    return createName(req);
}
