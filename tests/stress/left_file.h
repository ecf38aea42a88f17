#pragma once

#include <string>
#include <vector>

#include "tests/stress/stress_recorder.h"

// What a recorder has left that was killed.
namespace stress {

// Samples of each track that a file tells of, as the system has it and without the library; empty while it tells
// nothing.
using Told = std::vector<unsigned long long>;
Told toldBy(const std::string& path, Kind kind);

// What is wrong with a file that has told of `least`: it tells of fewer samples by now, doesn't open, or one of the
// samples isn't what was recorded. Empty when all is well; `samples` counts those that were compared.
std::string faultOf(const std::string& path, Kind kind, const Told& least, unsigned long long& samples);

// The same of several movie files by one run of ffmpeg, which must not say a word, and whether of films it shows what
// their edits say. Requires: each tells of samples in each track, and a film of its edit.
std::string faultByFfmpeg(const std::vector<std::string>& paths, Kind kind);

}  // namespace stress
