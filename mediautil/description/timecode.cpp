#include "shared/include/description/media_timecode.h"

#include "services/system/format_str.h"
#include "support/numeric.h"

namespace {

// Drop-frame counts at 30 frames a second; at 60 each one doubles.
constexpr int s_hour = 107892;
constexpr int s_tenMinutes = 17982;
constexpr int s_firstMinute = 1800;  // of ten, the one that drops nothing
constexpr int s_otherMinute = 1798;
constexpr int s_dropped = 2;  // frame numbers left out at the start of every other minute

// A record that is copied from, since one that is put together field by field and copied at once stalls the processor.
constexpr MediaTimecode s_invalid;

}  // namespace

bool MediaTimecode::validateFast() {
    if (isValid()) return true;
    invalidate();
    return false;
}

void MediaTimecode::invalidate() { *this = s_invalid; }

void MediaTimecode::setCounter(int counter, const FixedPoint<16>& rate, bool drop) {
    m_dropFrame = drop;
    m_rate = rate;
    if (validateFast()) setCounter(counter);
}

void MediaTimecode::setCounter(int counter) {
    if (!isValid()) return;
    switch (dropFactor()) {
        case 1:
            return setDropCounter<1>(counter);
        case 2:
            return setDropCounter<2>(counter);
        default:
            return setPlainCounter(counter);
    }
}

void MediaTimecode::setPlainCounter(int counter) {
    // 64 bits, so that no rate that a file may state overflows the frames of an hour.
    const long long fps = framesPerSecond();
    long long frames = counter;
    m_hours = static_cast<std::uint8_t>(reduce(frames, fps * 3600));
    m_minutes = static_cast<std::uint8_t>(reduce(frames, fps * 60));
    m_seconds = static_cast<std::uint8_t>(reduce(frames, fps));
    m_frames = static_cast<std::uint8_t>(frames);
}

// By a constant factor: every frame that is shown or recorded comes by, and divisions by constants are cheap.
template <int Factor>
void MediaTimecode::setDropCounter(int counter) {
    m_hours = static_cast<std::uint8_t>(reduce(counter, Factor * s_hour));
    int minutes = 10 * reduce(counter, Factor * s_tenMinutes);
    if (counter >= Factor * s_firstMinute) {
        counter -= Factor * s_firstMinute;
        minutes += reduce(counter, Factor * s_otherMinute) + 1;
        counter += Factor * s_dropped;
    }
    m_minutes = static_cast<std::uint8_t>(minutes);
    m_seconds = static_cast<std::uint8_t>(reduce(counter, Factor * 30));
    m_frames = static_cast<std::uint8_t>(counter);
}

int MediaTimecode::getCounter() const {
    if (const int factor = dropFactor()) {
        // Every tenth minute drops nothing.
        const int minutes = m_minutes * s_otherMinute + m_minutes / 10 * s_dropped;
        return factor * (m_hours * s_hour + minutes + m_seconds * 30) + m_frames;
    }
    if (!isValid()) return 0;
    const long long fps = framesPerSecond();
    return static_cast<int>(((m_hours * 60 + m_minutes) * 60 + m_seconds) * fps + m_frames);
}

AutoPtr<char> MediaTimecode::toString() const {
    return FormatStr("%02d:%02d:%02d.%02d", m_hours, m_minutes, m_seconds, m_frames);
}

AutoPtr<char> timeToString(const FixedPoint<16>& time) {
    const unsigned int seconds = time.uint32Value();
    const unsigned int milliseconds = ((time - seconds) * 1000).uint32Value();
    return FormatStr("%02d:%02d:%02d.%03d", static_cast<int>(seconds / 3600), static_cast<int>(seconds / 60 % 60),
                     static_cast<int>(seconds % 60), static_cast<int>(milliseconds));
}
