#pragma once

#include <cstdint>

#include "support/auto_ptr.h"
#include "support/fixed_point.h"
#include "support/visibility.h"

// A time of day in frames: hours, minutes, seconds and frames at a rate, with drop-frame counting where asked.
//
// As made by default it is invalid: a rate below 1 frame a second marks it so, and the marker stored is -1.
class MO_PUBLIC MediaTimecode {
public:
    bool isValid() const { return m_rate.intValue() > 0; }

    // True and untouched when valid; otherwise invalidated and false.
    bool validateFast();

    // Zeroes every field and sets the rate to -1.
    void invalidate();

    // Sets the digits from a count of frames since 00:00:00.00, in the counting and at the rate that this timecode
    // has. Does nothing on an invalid one. The hours wrap at 256, unreported.
    void setCounter(int counter);

    // The same with rate and drop flag given. A rate below 1 leaves the timecode invalid.
    void setCounter(int counter, const FixedPoint<16>& rate, bool drop);

    // Frames since 00:00:00.00; 0 on an invalid timecode.
    int getCounter() const;

    // "hh:mm:ss.ff". The drop flag doesn't show. Gives: array text, owned by the caller.
    AutoPtr<char> toString() const;

    std::uint8_t m_hours = 0;
    std::uint8_t m_minutes = 0;
    std::uint8_t m_seconds = 0;
    std::uint8_t m_frames = 0;
    bool m_dropFrame = false;           // counts in drop-frame, at 29.97 and 59.94 only
    std::uint8_t m_extraByte = 0;       // carried and copied
    FixedPoint<16> m_rate{-1};          // frames a second
    std::uint8_t m_extraBytes[4] = {};  // carried and copied
    std::uint32_t m_extraWord = 0;      // carried and copied

private:
    int framesPerSecond() const { return m_rate.round().intValue(); }

    // Times 30 that the rate is when frame numbers are dropped, or 0 when none are.
    int dropFactor() const {
        const int fps = framesPerSecond();
        return !m_dropFrame ? 0 : fps == 30 ? 1 : fps == 60 ? 2 : 0;
    }
    template <int Factor>
    void setDropCounter(int counter);
    void setPlainCounter(int counter);
};

// "hh:mm:ss.mmm" of a time in seconds, milliseconds truncated. Gives: array text, owned by the caller.
MO_PUBLIC AutoPtr<char> timeToString(const FixedPoint<16>& time);
