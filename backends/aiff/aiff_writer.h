#pragma once

#include "backends/common/pcm_recording.h"

// How an AIFF is recorded: PCM of 8, 16, 24 and 32 bits, big-endian; little-endian words of 16 bits as an AIFF-C of
// coding "sowt". Its sizes have 32 bits, and a recording ends before they are full.
// Sources: as in aiff_parser.h.
namespace AiffWriter {

extern const PcmWriter s_writer;

// The sample rate as an extended-precision number.
void putRate(std::uint32_t rate, std::uint8_t* tenBytes);

}  // namespace AiffWriter
