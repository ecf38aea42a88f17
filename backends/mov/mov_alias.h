#pragma once

#include <string>
#include <vector>

#include "backends/mov/mov_atom_writer.h"

// Writes a movie's reference to a file: an alias with the steps from the movie's folder to the file, which hold when
// both are moved together, and the whole path for when they aren't. Sources: QuickTime File Format Specification
// (dref), the alias record of the Macintosh File Manager.
namespace MovAlias {

// The path without "." and "..", which are resolved by its text alone. Requires: an absolute path.
std::string normal(const std::string& path);
// Adds an entry of a `dref` from the movie to the file, and `pad` bytes in it that say nothing. A path that goes up
// again stands as it is, and no steps are told. Requires: absolute paths.
void put(MovAtomWriter& out, const std::string& moviePath, const std::string& path, std::uint64_t pad = 0);
// Whether the steps to the file are the same from two movies. Requires: the same.
bool isSameWay(const std::string& oneMovie, const std::string& otherMovie, const std::string& path);
// Adds the entry of the movie's own file.
void putSelf(MovAtomWriter& out);

}  // namespace MovAlias
