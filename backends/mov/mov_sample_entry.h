#pragma once

#include <cstdint>
#include <vector>

#include "backends/mov/mov_atom_writer.h"
#include "support/op_result.h"

class MediaClipParam;

// How the samples of a recorded track are described in its file.
// Sources: QuickTime File Format Specification (sample descriptions, versions 0 to 2 of sound), ISO/IEC 14496-15
// (avcC).
namespace MovSampleEntry {

// Whether a track of these parameters can be recorded: PCM of 8, 16, 24 and 32 bits (bytes without a sign where
// the order is little-endian, with one where it is big-endian), A-law, DV, MPEG-2, ProRes, AVC. Fails: warning 8 with a
// sentence.
OpResult check(const MediaClipParam& param);
// The coding's four characters; 0 for one that has none here.
MovCode codeOf(const MediaClipParam& param);
// Bytes a sample, 0 when samples differ.
std::uint32_t fixedSizeOf(const MediaClipParam& param);
// Whether its pictures depend on one another.
bool hasOrder(const MediaClipParam& param);
// Adds the entry; its samples lie in the file of that data reference. `avcC` is the decoder's configuration of AVC, or
// empty while that isn't known. Requires: parameters that have been checked.
void put(MovAtomWriter& out, const MediaClipParam& param, unsigned reference, const std::vector<std::uint8_t>& avcC);

}  // namespace MovSampleEntry
