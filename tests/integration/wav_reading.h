#pragma once

#include <string>

#include "shared/include/index/media_sample_desc.h"
#include "shared/include/object/media_obj.h"
#include "tests/integration/peers.h"

// Reading the essence of an audio file through the library, as a client does, and comparing it with what the other
// programs say.
namespace wavread {

// Opens it; a failure fails the test. Gives: one reference.
MediaObj* openMovie(const std::string& path);
const MediaClipDesc& clipOf(const MediaObj& movie);
// Where up to `count` samples from `sample` on lie. The last one or two of a file are found one by one. False at the
// end.
bool locate(const MediaClipDesc& clip, unsigned long long sample, unsigned count, MediaSampleInMovie& where);
// One sample or block; empty when that fails.
std::string readOne(const MediaObj& movie, const MediaSampleInMovie& where);
// The whole essence, block by block, in blocks of differing sizes.
std::string readAll(const MediaObj& movie);

// All facts of the movie are those that ffprobe tells.
void expectFacts(const MediaObj& movie, MediaFileType type, const peers::AudioFacts& facts);
// Blocks at many places, in no order, are those of the essence.
void expectBlocksAnywhere(const MediaObj& movie, const std::string& essence);

}  // namespace wavread
