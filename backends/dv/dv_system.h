#pragma once

#include <cstdint>

#include "backends/dv/dv_layout.h"
#include "shared/include/description/media_enums.h"

class MediaClipParam;

// A system of DV: the picture, the rate and the number of bytes that a frame has. There is one constant object for
// each.
struct DvSystem {
    const char* name;          // for messages
    bool is625;                // DSF: 12 sequences a channel, else 10
    std::uint8_t signal;       // STYPE of the video source pack
    std::uint8_t audioSignal;  // STYPE of the audio source pack
    unsigned channels;         // of DIF, in a frame
    unsigned width;            // as coded
    unsigned fullWidth;        // of the raster that the coded lines stand for
    unsigned height;
    MediaChromaSample chroma;
    MediaVideoRate videoRate;
    unsigned rate;  // frames in `ticks` seconds
    unsigned ticks;

    unsigned sequences() const { return is625 ? 12 : 10; }  // of a channel
    unsigned frameSequences() const { return channels * sequences(); }
    unsigned frameSize() const { return frameSequences() * DvLayout::s_sequence; }
    bool isHighDef() const { return height >= 720; }
    // Two frames of these share the four channels of a signal of half the rate.
    bool isHalfOfPair() const { return height == 720; }
    // Bits a second, rounded.
    unsigned bitrate() const;
    // Whether its frames have room for such sound.
    bool carriesSound(unsigned sampleRate, unsigned channels, unsigned bits) const;

    // The system by what a stream says; null for a signal that isn't known. `apt` is the header's track application id.
    static const DvSystem* find(bool is625, unsigned signal, unsigned apt);
    // The 25 Mbit/s system of a stream that doesn't say its signal.
    static const DvSystem& basic(bool is625, unsigned apt);
    // The system that carries essence of these parameters, or null. Audio goes by the video rate alone, which unknown
    // counts as 29.97 Hz.
    static const DvSystem* find(const MediaClipParam& param);
    // The usual system of a video rate, or null.
    static const DvSystem* find(MediaVideoRate rate);
};

// All systems, in the order in which they are tried.
constexpr unsigned s_dvSystemCount = 9;
extern const DvSystem s_dvSystems[s_dvSystemCount];
