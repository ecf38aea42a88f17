#pragma once

#include <cstdint>

#include "services/file/basic_file_io.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/index/sample_info.h"

// Says from a coded picture's own headers whether it is I, P or B. Reads the head of the sample, and of AVC in units
// the head of each unit up to the first slice; nothing is decoded.
// Sources: ISO/IEC 13818-2 (picture header), 14496-2 (VOP), 14496-10 (slice header).
namespace MovPictureTypes {

// Bytes at the head of a sample that are searched.
constexpr unsigned s_head = 2048;
// Units of a sample of AVC that are looked at.
constexpr unsigned s_units = 64;

// True for a coding whose pictures tell it.
bool tells(MediaEncodingType encoding);
// Unknown for a sample that doesn't say or can't be read. `lengthBytes`: of the length in front of each unit of AVC, 0
// for start codes. Thread: any; allocates nothing.
SampleCodingType look(BasicFileIO& file, MediaEncodingType encoding, unsigned lengthBytes, std::uint64_t offset,
                      std::uint32_t size);

}  // namespace MovPictureTypes
