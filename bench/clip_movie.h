#pragma once

// A movie of one track that is given its clips and reads no file: for what the core works out from a description.

#include <memory>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace bench {

// What the clips are made of, all of them alike.
struct ClipPlan {
    unsigned m_clips = 1;
    unsigned m_timeBase = 48000;  // of the movie
    unsigned m_rate = 48000;      // samples in `m_ticks` seconds
    unsigned m_ticks = 1;
    unsigned m_sampleSize = 4;             // bytes
    unsigned long long m_samples = 48000;  // of a clip
    MediaDataType m_type = MediaDataType::Audio;
    MediaVideoRate m_videoRate = MediaVideoRate::Pal25;

    unsigned long long bytes() const { return m_samples * m_sampleSize; }
    // Ticks of the movie that a clip takes up.
    unsigned long long length() const { return m_samples * m_ticks * m_timeBase / m_rate; }
};

// The clips lie one behind the other in one file.
class PlannedLookup final : public FixedMediaLookup {
public:
    PlannedLookup(const ClipPlan& plan, unsigned index, const MediaClipDesc& clip)
        : FixedMediaLookup(
              MediaOffsetSummary(plan.m_sampleSize, index * plan.bytes(), plan.m_samples, (index + 1) * plan.bytes())),
          m_clip(clip) {}
    const MediaClipDesc& getClip() const override { return m_clip; }

private:
    const MediaClipDesc& m_clip;  // borrowed: the owner
};

class PlannedClip final : public MediaClipDesc {
public:
    PlannedClip(MediaTrackDesc& track, const ClipPlan& plan, unsigned index)
        : MediaClipDesc(MediaContainment::Embedded),
          m_track(track),
          m_index(index),
          m_lookup(new PlannedLookup(plan, index, *this)) {
        m_encoding = plan.m_type == MediaDataType::Audio ? MediaEncodingType::Pcm : MediaEncodingType::Dv;
        m_sampleRate = plan.m_rate;
        m_ticksPerSample = plan.m_ticks;
        m_length = plan.m_samples;
    }
    ~PlannedClip() override { m_lookup->release(); }

    unsigned getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return nullptr; }
    unsigned getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override { return m_track; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

private:
    MediaTrackDesc& m_track;  // borrowed: the owner
    const unsigned m_index;
    PlannedLookup* m_lookup;  // one reference
};

class PlannedTrack final : public MediaTrackDesc {
public:
    PlannedTrack(MediaObj& movie, const ClipPlan& plan) : MediaTrackDesc(plan.m_type), m_movie(movie) {
        m_videoRate = plan.m_videoRate;
        for (unsigned i = 0; i < plan.m_clips; ++i)
            m_clips.push_back(std::make_unique<PlannedClip>(*this, plan, i));
        m_length = plan.m_clips * plan.length();
    }

    using MediaTrackDesc::createClip;
    MediaClipDesc* createClip(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    MediaObj& getObj() override { return m_movie; }
    const MediaObj& getObj() const override { return m_movie; }
    unsigned getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned index) override { return m_clips[index].get(); }
    const MediaClipDesc* getClip(unsigned index) const override { return m_clips[index].get(); }
    unsigned getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

private:
    MediaObj& m_movie;  // borrowed: the owner
    std::vector<std::unique_ptr<PlannedClip>> m_clips;
};

class PlannedMovie final : public MediaObj {
public:
    // Gives: one reference. Lives on the heap, since its last release ends it.
    static PlannedMovie* make(const ClipPlan& plan) { return new PlannedMovie(plan); }

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return 1; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? &m_track : nullptr; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? &m_track : nullptr; }
    MediaTrackDesc* createTrack(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }

private:
    explicit PlannedMovie(const ClipPlan& plan) : MediaObj(0, CacheRefValue::None), m_track(*this, plan) {
        getDesc()->init(MediaFileType::Data, plan.m_timeBase, false, MediaEncodingType::Pcm, plan.m_videoRate);
        getDesc()->setLength(m_track);
    }

    PlannedTrack m_track;
};

}  // namespace bench
