#pragma once

#include <optional>

#include "shared/include/index/media_sample_desc.h"
#include "tools/failure.h"

// What a track is counted in when it is read, from 0: its samples, or the video frames that they belong to.
class TrackUnits {
public:
    // Units that are read at once.
    struct Stretch {
        MediaSampleInMovie m_where;
        unsigned long long m_units = 0;
    };

    virtual ~TrackUnits() = default;

    virtual const char* name() const = 0;  // of one, for messages
    virtual unsigned long long count() const = 0;
    // Bytes of a part of the track; 0 when that isn't known without a walk through the index.
    virtual unsigned long long bytesOf(unsigned long long from, unsigned long long count) const = 0;
    // Where units from `at` on lie: at most `most`, and at most `bytes` of them where their size is known, but one at
    // least. A unit may have no samples: m_where.m_count is 0 then. Requires: `at` below count(), `most` above 0.
    // Fails: false with the reason.
    virtual bool locate(unsigned long long at, unsigned long long most, unsigned bytes, Stretch& stretch,
                        std::optional<Failure>& failure) const = 0;
};
