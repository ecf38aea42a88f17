#pragma once

#include "tools/output.h"
#include "tools/track_units.h"

class MediaClipDesc;
class MediaTrackDesc;

// Where a video frame's samples lie.
struct FrameRow {
    unsigned long long m_frame = 0;
    unsigned long long m_sample = 0;  // in the clip
    unsigned m_count = 0;
    unsigned long long m_offset = 0;  // bytes from the file's start
    unsigned m_bytes = 0;
    const char* m_coding = nullptr;  // of the picture; null where there is none, or the index doesn't know

    Json document() const;
};

// The video frames of a track as its indexes answer them. A track of sound may end with a part of a frame.
class FrameList final : public TrackUnits {
public:
    explicit FrameList(const MediaTrackDesc& track);

    const char* name() const override { return "frame"; }
    unsigned long long count() const override { return m_count; }
    // True for frames that may have a coding of their own: pictures.
    bool hasCoding() const;
    unsigned long long bytesOf(unsigned long long from, unsigned long long count) const override;
    // One frame, whatever the limits.
    bool locate(unsigned long long at, unsigned long long most, unsigned bytes, Stretch& stretch,
                std::optional<Failure>& failure) const override;
    // False when the index says no; without a failure the media end before this frame.
    bool find(unsigned long long frame, FrameRow& row, std::optional<Failure>& failure) const;

private:
    bool ask(unsigned long long frame, MediaSampleInMovie& where, std::optional<Failure>& failure) const;

    const MediaTrackDesc& m_track;
    const unsigned long long m_count;
};
