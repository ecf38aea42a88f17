#pragma once

#include <cstdint>

#include "backends/dv/dv_system.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/media_timecode.h"

// The sound that rides in the frames of a stream. All channels are of one kind; 0 channels is no sound.
struct DvAudio {
    unsigned rate = 48000;  // Hz
    unsigned bits = 16;     // of a word: 16, 12 (coded on a curve) or 20
    unsigned channels = 0;  // that carry sound
    unsigned perHalf = 1;   // channels in one half of the sequences of a DIF channel: 1 or 2
};

// What a DV stream says about itself, once it has been checked.
struct DvFormat {
    static constexpr std::uint64_t s_noEnd = ~std::uint64_t{0};

    const DvSystem* system = nullptr;  // for ever
    bool isPro = false;                // by the rules of SMPTE ST 314M or ST 370M; else of IEC 61834
    MediaAspectRatio aspect = MediaAspectRatio::Unknown;
    MediaVideoScanType scan = MediaVideoScanType::Interlaced;
    MediaTimecode timecode;  // of the first frame; invalid when the stream has none
    DvAudio audio;
    std::uint64_t baseOffset = 0;       // of the first whole frame, bytes from the file's start
    std::uint64_t frames = 0;           // whole ones of this system
    std::uint64_t maxFrames = s_noEnd;  // where another system or another beat follows; else no end
};
