#pragma once

#include "backends/common/pcm_recording.h"

// How a WAV is recorded: PCM little-endian of 8 bits (unsigned), 16, 24 and 32, and A-law. In front of the format there
// is room for the 64-bit sizes, so that the file becomes an RF64 in place when 32 bits no longer do.
// Sources: as in wav_format.h.
namespace WavWriter {

// The largest size that the plain form tells; all ones would say that it is unknown.
constexpr std::uint64_t s_largestRiff = 0xFFFFFFFE;

// Makes the header of so many samples; a file larger than `largestRiff` becomes an RF64. Answers its size.
// Requires: room for `PcmWriter::s_mostHeader` bytes.
unsigned makeHeader(const PcmFormat& format, std::uint64_t largestRiff, std::uint8_t* bytes);

extern const PcmWriter s_writer;

}  // namespace WavWriter
