#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/mov/mov_facts.h"

// What the decoder's own configuration in an `esds` says of a description. Sources: ISO/IEC 14496-2 (video object
// layer), 14496-3 (AudioSpecificConfig). **Threads:** any.
namespace MovDecoderConfig {

// Sets what the bytes say, by the description's coding: the scan and shape of MPEG-4 pictures, the channels of AAC.
// What they don't say, or say in a way that isn't understood, stays as it is.
void complete(MovEntry& entry, const std::uint8_t* bytes, std::size_t size);

}  // namespace MovDecoderConfig
