#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/common/recorded_essence.h"
#include "backends/mov/mov_run_index.h"
#include "backends/mov/mov_track_tables.h"
#include "shared/include/description/media_clip_param.h"

// What the file of a movie that is being recorded tells of it, or is to tell with its next update.

// The samples that a clip shows, as the recorder's thread has them last. **Threads:** one writes, one reads.
struct MovClipSpan {
    std::atomic<std::uint64_t> m_in{0};
    std::atomic<std::uint64_t> m_out{0};
};

// A file that samples lie in.
struct MovToldMedia {
    std::string m_path;  // absolute; of the movie's own file it isn't looked at
    bool m_isSelf = true;
    std::shared_ptr<RecordedEssence> m_essence;
};

struct MovToldClip {
    std::shared_ptr<const MovRunIndex> m_index;
    std::shared_ptr<const MovClipSpan> m_span;
    unsigned m_media = 0;      // place in the movie's list
    std::uint64_t m_base = 0;  // samples of the track before it
    std::uint64_t m_told = 0;  // of its own samples
};

struct MovToldTrack {
    MovToldTrack(const MediaClipParam& param, std::uint32_t fixedSize, bool hasOrder)
        : m_param(param), m_tables(fixedSize, hasOrder) {}

    // The files of its clips, each once, in the order of their sample descriptions.
    std::vector<unsigned> getMedia() const;
    // The sample description of that file, from 1. Requires: one of them.
    unsigned getDescription(unsigned media) const;

    const MediaClipParam m_param;
    MovTrackTables m_tables;
    std::vector<MovToldClip> m_clips;
    std::vector<std::uint8_t> m_avcC;  // of AVC, once its stream has told it
    MovPictureOrder m_order;           // of AVC
};

// The timecode of the first frame.
struct MovToldTimecode {
    std::uint32_t m_scale = 0, m_step = 1;  // frames a second as a fraction; no scale: there is none
    std::uint32_t m_counter = 0;            // frames since midnight
    bool m_isDropFrame = false;
    std::uint64_t m_at = 0;  // where its sample lies in the movie's own file; 0 while it isn't there

    bool operator==(const MovToldTimecode&) const = default;
};

struct MovToldMovie {
    std::string m_path;  // absolute, where relative references count from
    std::uint32_t m_timescale = 1;
    std::uint32_t m_created = 0;  // seconds since 1904
    std::vector<MovToldMedia> m_media;
    std::vector<std::unique_ptr<MovToldTrack>> m_tracks;
    MovToldTimecode m_timecode;
    std::vector<std::uint8_t> m_userData;  // the atoms in its `udta`
};
