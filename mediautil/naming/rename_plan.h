#pragma once

#include "services/file/path_parser.h"
#include "shared/include/description/media_enums.h"

// Where the files of a movie go when it is renamed: rules of text alone. All paths are absolute, and the movie's end in
// its name. What walks the plan is MovieRename.
namespace RenamePlan {

// The type that the new name would give to a movie of type `type`; Unknown when the name is as good as the old one.
MediaFileType changedType(MediaFileType type, const PathParser& newMovie);

// True when the movie stays in its folder.
bool staysInFolder(const PathParser& movie, const PathParser& newMovie);

enum class Fault : std::uint32_t {
    None,
    NothingInCommon,  // the media file is on no way from the movie but by the root
    AboveTheRoot      // the new place of the movie isn't deep enough for the way up to the media file
};

struct Place {
    Fault m_fault = Fault::None;
    PathParser m_path;
};

// Where a media file lies from the movie's new place as it lies from the old one.
Place placeOf(const PathParser& media, const PathParser& movie, const PathParser& newMovie);

// The movie's name while its media files move: hidden, in its new folder.
PathParser temporaryName(const PathParser& newMovie);
// The limit is on the new path as it was given.
bool temporaryNameFits(const char* newPath);

// The path of a media file as it goes from the movie's folder, up and down again: from this a format can tell what to
// write into the movie.
PathParser spelledFrom(const PathParser& newMovie, const PathParser& media);

// The path with each ".." taken back by the element before it, as far as text can tell: behind a link that is another
// place.
PathParser straight(const PathParser& path);

}  // namespace RenamePlan
