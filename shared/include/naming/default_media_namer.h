#pragma once

#include <cstdint>

#include "services/file/path_parser.h"
#include "shared/include/naming/name_req.h"
#include "support/bridge.h"

// The suffixes of a caller's own.
class MO_PUBLIC MediaSuffixMap {
public:
    virtual ~MediaSuffixMap();
    virtual MediaFileType getFileType(const char* suffix) const = 0;
    // Gives: borrowed.
    virtual const char* getSuffix(MediaFileType type) const = 0;
};

// Names a movie's media file after the movie, with a number and, where that name is taken, a short random tag.
// **Threads:** one. **Owns:** nothing.
class MO_PUBLIC DefaultMediaNamer {
public:
    // `subdir` is below the movie's folder and may be null; so may `suffixMap`, which is borrowed. `passes` names are
    // tried.
    DefaultMediaNamer(const char* subdir, MediaSuffixMap* suffixMap, unsigned int passes);
    DefaultMediaNamer(const DefaultMediaNamer&) = delete;
    DefaultMediaNamer& operator=(const DefaultMediaNamer&) = delete;
    virtual ~DefaultMediaNamer();

    // Chooses a name that is free. A proposal keeps its folder and suffix and gets the movie's name.
    // Fails: false when the path is longer than 255 bytes; true with an unchanged `m_name`, and an error line, when all
    // names that were tried are taken.
    virtual bool createName(const MediaObj::NameReq& req);
    // The same without regard to a proposal.
    virtual bool recreateName(const MediaObj::NameReq& req);

    const char* getSubdir() const { return m_subdir.getPath(false); }
    // The hook that asks `createName`. Borrowed for this object's life.
    BridgeHook<const MediaObj::NameReq&, bool>* getCbInfo() { return &m_anchor; }

private:
    BridgeAnchor<DefaultMediaNamer, const MediaObj::NameReq&, bool> m_anchor;
    PathParser m_subdir;
    MediaSuffixMap* m_suffixMap;  // borrowed; null for the core's own names
    std::uint32_t m_passes;
};
