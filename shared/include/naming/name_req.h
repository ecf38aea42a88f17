#pragma once

#include <cstdint>

#include "shared/include/object/media_obj.h"

class MovieSuffixes;

// What a namer is asked, and its answer. A namer gets it as const and writes `m_name` all the same.
// **Owns:** its copy of the path. **Threads:** one.
class MO_PUBLIC MediaObj::NameReq {
public:
    static constexpr unsigned s_nameSize = 256;  // bytes, with the end

    // `path` is the movie's and is copied; `index` counts the movie's files of the kind from 0, -1 is none.
    NameReq(const char* path, int index, MediaFileType type);
    NameReq(const NameReq&) = delete;
    NameReq& operator=(const NameReq&) = delete;
    ~NameReq();

    // Asks for the name of the file that holds this clip: its number among its movie's files of the kind, and `newName`
    // as a proposal, or null. All is read through the clip's own object.
    // Fails: warning 1, "new name too long".
    OpResult setMedia(const MediaObj& obj, const MediaClipDesc& clip, const char* newName);

    char* m_path;
    std::int32_t m_index;
    MediaFileType m_fileType;
    mutable char m_name[s_nameSize];  // in: a proposed path, or empty; out: the chosen one

protected:
    // The same for one clip of several, by what the others have found out.
    OpResult setMedia(const MediaClipDesc& clip, const char* newName, MovieSuffixes& suffixes);
};
