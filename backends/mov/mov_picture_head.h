#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/mov/mov_facts.h"

// What the head of a coded picture says of all pictures of its description, for what the description itself leaves
// open: the chroma, scan and shape of MPEG-2 and of AVC, the scan of ProRes, scan and chroma of DNxHD, the chroma of
// JPEG 2000. Nothing is decoded.
// Sources: ISO/IEC 13818-2 (sequence header and extension), 14496-10 (sequence parameter set), 15444-1 (image size),
// SMPTE RDD 36 (frame header), SMPTE ST 2019-1 (coding unit's header). **Threads:** any.
namespace MovPictureHead {

// Bytes at the head of a sample that are looked at.
constexpr unsigned s_size = 512;

// True when a picture can say something that the description hasn't said.
bool isWanted(const MovEntry& entry);
// Fills in what the bytes say. What they don't say, or say in a way that isn't understood, stays as it is.
void complete(MovEntry& entry, const std::uint8_t* bytes, std::size_t size);

}  // namespace MovPictureHead
