#include "mediautil/naming/rename_plan.h"

#include <cstring>
#include <string>

#include "shared/include/description/media_names.h"

namespace RenamePlan {

namespace {

constexpr std::size_t s_pathLimit = 4097;   // bytes that a path must stay below, with its end
constexpr std::size_t s_temporaryMore = 9;  // bytes that the temporary name adds, with its end

}  // namespace

MediaFileType changedType(MediaFileType type, const PathParser& newMovie) {
    const char* const suffix = newMovie.getSuffix();
    if (*suffix == '\0') return MediaFileType::Unknown;
    const MediaFileType named = MediaNames::getFileType(suffix);
    return named == type ? MediaFileType::Unknown : named;
}

bool staysInFolder(const PathParser& movie, const PathParser& newMovie) {
    const int count = movie.getNumElem();
    return newMovie.getNumElem() == count && movie.compareHead(newMovie) >= count - 1;
}

Place placeOf(const PathParser& media, const PathParser& movie, const PathParser& newMovie) {
    const int common = media.compareHead(movie);
    const int depth = movie.getNumElem();
    // Beside each other right below the root they have nothing in common either, and need nothing.
    if (common == 0 && (media.getNumElem() >= 2 || depth > 1)) return {Fault::NothingInCommon, {}};
    const PathParser rest = media.tail(media.getNumElem() - common);
    const bool outside = common + 1 < depth;
    const int up = outside ? depth - common : 1;
    if (outside && newMovie.getNumElem() < up) return {Fault::AboveTheRoot, {}};
    return {Fault::None, (newMovie - up) + rest};
}

PathParser temporaryName(const PathParser& newMovie) {
    const std::string name = std::string(".") + newMovie.tail(1).getPath(true) + ".rename";
    return (newMovie - 1) + name.c_str();
}

bool temporaryNameFits(const char* newPath) { return std::strlen(newPath) + s_temporaryMore < s_pathLimit; }

PathParser spelledFrom(const PathParser& newMovie, const PathParser& media) {
    PathParser path = newMovie - 1;
    const int common = media.compareHead(newMovie);
    for (int i = common; i < newMovie.getNumElem() - 1; ++i)
        path.append("..");
    return path += media.tail(media.getNumElem() - common);
}

PathParser straight(const PathParser& path) {
    const PathParser up("..");
    PathParser walked("/");
    for (int left = path.getNumElem() - 1; left >= 0; --left) {
        const PathParser element = (path - left).tail(1);
        if (element == up) {
            walked.trimTail(1);
        } else {
            walked += element;
        }
    }
    return walked;
}

}  // namespace RenamePlan
