#pragma once

#include <string_view>
#include <vector>

#include "shared/include/object/media_obj.h"

// The suffixes of a movie's files, each looked for once: a rename asks for all of them again for every clip.
// **Threads:** one. **Owns:** nothing; the texts are the movie's. Requires: nobody renames the files meanwhile.
class MovieSuffixes {
public:
    // What follows the last dot of the file's name. A null id is the primary file.
    std::string_view of(const MediaObj& movie, MediaIdRec* id) {
        if (&movie != m_movie) {
            m_movie = &movie;
            m_suffixes.assign(movie.getMediaCount(), std::string_view());
        }
        const std::uintptr_t place = id != nullptr ? reinterpret_cast<std::uintptr_t>(id) - 1 : 0;
        if (place >= m_suffixes.size()) return suffixOf(movie.getPath(id));
        std::string_view& suffix = m_suffixes[place];
        if (suffix.data() == nullptr) suffix = suffixOf(movie.getPath(id));
        return suffix;
    }

private:
    // An empty one still points somewhere.
    static std::string_view suffixOf(std::string_view path) {
        const std::size_t dot = path.rfind('.');
        const std::size_t slash = path.rfind('/');
        const bool inLast = dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
        return path.substr(inLast ? dot + 1 : path.size());
    }

    const MediaObj* m_movie = nullptr;  // borrowed
    std::vector<std::string_view> m_suffixes;
};
