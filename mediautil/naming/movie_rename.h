#pragma once

#include <string>
#include <vector>

#include "mediautil/naming/movie_suffixes.h"
#include "services/file/path_parser.h"
#include "shared/include/naming/media_rename_preview.h"
#include "shared/include/naming/name_req.h"
#include "support/auto_ptr.h"

// A media file of a movie that is being renamed.
struct RenamePair {
    explicit RenamePair(const char* src) : m_src(src) {}

    PathParser m_src;  // where it is, absolute
    PathParser m_dst;  // where it is to go
};

// What a namer is asked during a rename.
class MediaObj::RenameReq : public MediaObj::NameReq {
public:
    RenameReq(const char* srcPath, const char* newPath, bool renameMedia)
        : NameReq(newPath, -1, MediaFileType::Unknown), m_srcPath(srcPath), m_renameMedia(renameMedia) {}

    OpResult setMedia(const MediaObj&, const MediaClipDesc& clip, const char* newName) {
        return NameReq::setMedia(clip, newName, m_suffixes);
    }

    const char* m_srcPath;  // the movie's present path, absolute; borrowed
    bool m_renameMedia;     // each media file gets a new name

private:
    MovieSuffixes m_suffixes;
};

// One rename of a movie, from the first check to the last move: it plans all names before it touches a file, sets the
// movie aside under a hidden name, moves the media files in the order of the list, and then the movie to its place. A
// failure among the media moves them back.
// **Threads:** one. **Locks:** none of its own; each move takes the file list's.
class MovieRename {
public:
    // All borrowed for the life of this; `namer` may be null.
    MovieRename(MediaObj& movie, const char* newPath, bool renameMedia, MediaObj::Namer* namer);

    OpResult run();
    // Says what `run` would move, and touches nothing. Whether the movie is written here isn't asked.
    OpResult preview(std::vector<MediaRenameStep>& steps);

private:
    enum class Touch : std::uint32_t { Files, Nothing };

    OpResult check();
    bool takesShortRoad() const;
    OpResult plan(Touch touch);
    OpResult planOne(RenamePair& pair, MediaIdRec* id, MediaObj::RenameReq& req, const MediaObj::Namer& namer,
                     Touch touch);
    bool makeFolderFor(const PathParser& path);
    OpResult move();
    OpResult moveMedia();
    // Takes the moves back, from the media file of that place, which failed, to the first.
    void rollBack(unsigned failed);

    bool needsNothing(const RenamePair& pair) const { return pair.m_src == pair.m_dst && !m_renameMedia; }
    // Places in the plan are list indexes less one, ids are list indexes plus one.
    MediaIdRec* idOf(unsigned place) const { return m_movie.getMediaId(place + 1); }
    OpResult moveMovie(const char* path) { return m_movie.renameMediaId(m_movie.getMediaId(0), path); }

    MediaObj& m_movie;
    const char* const m_newPath;
    const bool m_renameMedia;
    MediaObj::Namer* const m_namer;
    PathParser m_src;
    PathParser m_dst;                          // the movie's new path, and the one under which it is aside once it is
    PathParser m_made;                         // the folder that was looked for last
    std::vector<AutoPtr<RenamePair>> m_pairs;  // by list index, from entry 1 on
};
