#pragma once

#include <optional>

#include "tools/failure.h"
#include "tools/output.h"

class MediaClipDesc;
class MediaTrackDesc;

// Where a video frame's samples lie.
struct FrameRow {
    unsigned long long m_frame = 0;
    unsigned long long m_sample = 0;  // in the clip
    unsigned m_count = 0;
    unsigned long long m_offset = 0;  // bytes from the file's start
    unsigned m_bytes = 0;

    Json document() const;
};

// The frames of a track as its indexes answer them.
class FrameList {
public:
    explicit FrameList(const MediaTrackDesc& track);

    unsigned long long count() const { return m_count; }
    // False when the index says no; without a failure the media end before this frame.
    bool find(unsigned long long frame, FrameRow& row, std::optional<Failure>& failure) const;

private:
    const MediaTrackDesc& m_track;
    const unsigned long long m_count;  // by the track's length
};
