#pragma once

#include <cstdint>

#include "backends/dv/dv_format.h"

// Makes frames of a system: a black picture, silence, no timecode.
namespace DvBlack {

// Fills `frame` with one black frame. The silence is of the kind given; without a channel there is no sound.
// Requires: `system.frameSize()` bytes.
void write(const DvSystem& system, bool isPro, MediaAspectRatio aspect, const DvAudio& audio, std::uint8_t* frame);

// Whether these bytes are a frame of that system.
bool isFrame(const DvSystem& system, const std::uint8_t* frame, std::uint64_t size);

}  // namespace DvBlack
