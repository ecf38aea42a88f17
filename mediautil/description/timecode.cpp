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

}  // namespace

bool MediaTimecode::validateFast() {
    if (isValid()) return true;
    invalidate();
    return false;
}

void MediaTimecode::invalidate() { *this = MediaTimecode(); }

int MediaTimecode::dropFactor() const {
    const int fps = framesPerSecond();
    return m_dropFrame && (fps == 30 || fps == 60) ? fps / 30 : 0;
}

void MediaTimecode::setCounter(int counter, const FixedPoint<16>& rate, bool drop) {
    m_dropFrame = drop;
    m_rate = rate;
    if (validateFast()) setCounter(counter);
}

void MediaTimecode::setCounter(int counter) {
    if (!isValid()) return;
    if (const int factor = dropFactor()) {
        setDropCounter(counter, factor);
        return;
    }
    // 64 bits, so that no rate that a file may state overflows the frames of an hour.
    const long long fps = framesPerSecond();
    long long frames = counter;
    m_hours = static_cast<std::uint8_t>(reduce(frames, fps * 3600));
    m_minutes = static_cast<std::uint8_t>(reduce(frames, fps * 60));
    m_seconds = static_cast<std::uint8_t>(reduce(frames, fps));
    m_frames = static_cast<std::uint8_t>(frames);
}

void MediaTimecode::setDropCounter(int counter, int factor) {
    m_hours = static_cast<std::uint8_t>(reduce(counter, factor * s_hour));
    int minutes = 10 * reduce(counter, factor * s_tenMinutes);
    if (counter >= factor * s_firstMinute) {
        counter -= factor * s_firstMinute;
        minutes += reduce(counter, factor * s_otherMinute) + 1;
        counter += factor * s_dropped;
    }
    m_minutes = static_cast<std::uint8_t>(minutes);
    m_seconds = static_cast<std::uint8_t>(reduce(counter, framesPerSecond()));
    m_frames = static_cast<std::uint8_t>(counter);
}

int MediaTimecode::getCounter() const {
    if (!isValid()) return 0;
    const long long fps = framesPerSecond();
    if (const int factor = dropFactor()) {
        const long long minutes = m_minutes / 10 * factor * s_tenMinutes + m_minutes % 10 * factor * s_otherMinute;
        return static_cast<int>(m_hours * factor * s_hour + minutes + m_seconds * fps + m_frames);
    }
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
