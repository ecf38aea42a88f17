#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/mov/mov_atoms.h"

// One entry of a movie's data references: the file that samples lie in.
struct MovReference {
    MovCode kind = MovAtom::s_url;
    bool isSelf = false;     // the samples lie in the movie's own file
    bool isRefused = false;  // it leads out of the movie's folder or to no file at all
    std::string text;        // what it says, for a message
    // Paths in the order in which they are worth a try; those without a leading '/' count from the movie's folder.
    std::vector<std::string> candidates;
};

// From the data references of a movie to paths, and back. A relative path never leaves the movie's folder: one that
// climbs is refused. An absolute path is taken as it stands.
// Sources: QuickTime File Format Specification (dref), the alias record of the Macintosh File Manager, RFC 3986.
namespace MovReferences {

// Reads an entry's content, which stands behind its version and flags. `flags` bit 0 says that it is the file itself.
MovReference parse(MovCode kind, std::uint32_t flags, const std::uint8_t* content, std::size_t size);
// The straight path of the first candidate that is there, else of the first one; empty for a reference that was
// refused. `isThere` tells which it is.
std::string resolve(const MovReference& reference, const std::string& moviePath, bool& isThere);

// A path without steps that lead back, if it leads to the same file: behind a link `..` is somewhere else. Else only
// the steps that lead nowhere are left out.
std::string straight(const std::string& path);

// A path as the text of a `url `, and back: bytes that a URL can't have are escaped. An absolute path becomes a
// file URL. `decodeUrl` answers false for what leads to no file: another scheme, another host.
std::string encodeUrl(const std::string& path);
bool decodeUrl(const std::string& url, std::string& path);
// True when a relative path climbs out of the folder that it counts from.
bool climbs(const std::string& path);
// The folder of a movie with its '/' at the end, or nothing for one in the current folder.
std::string folderOf(const std::string& moviePath);

}  // namespace MovReferences
