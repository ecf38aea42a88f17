#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mediautil/description/priv_movie_desc.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"
#include "support/auto_ptr.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/samples.h"

// A movie that a test records into: tracks, clips and edits as the test puts them, on indexes of the test's choice.

namespace recording {

using U64 = unsigned long long;

// A descriptor with an in point, which keeps what it is told.
class SelectingDesc : public PrivMovieDesc<MediaObj> {
public:
    using PrivMovieDesc::PrivMovieDesc;
    OpResult setSelectIn(U64 in) override {
        m_selectIn = in;
        m_selected.push_back(in);
        if (m_refuses) return PrivMovieDesc::setSelectIn(in);
        return OpResult(OpResult::Ok);
    }

    std::vector<U64> m_selected;
    bool m_refuses = false;  // as the descriptor of a movie without in and out points does
};

// An index that puts samples where it is told to, or refuses them.
class PlacingLookup : public MediaOffsetLookup {
public:
    explicit PlacingLookup(const MediaClipDesc& clip) : MediaOffsetLookup({}), m_clip(clip) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    U64 getBaseOffset() const override { return 0; }
    std::uint32_t getFixedSize() const override { return 0; }
    bool getMediaOffset(const MediaPlayReq&, MediaSampleDesc&, OpResult& result) const override {
        result = OpResult(OpResult::Ok);
        return false;
    }
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override {
        if (m_refuses) {
            result = MO_WARNING(MediaCode::OutOfRange, "refused");
            return false;
        }
        desc.set(req.m_count, req.m_sample, m_place, req.m_info, m_gap, false);
        if (m_keeps) m_requests.push_back(req);
        return true;
    }
    OpResult addEmptyEdit(U64 sample) override {
        if (m_refuses) return MO_WARNING(MediaCode::OutOfRange, "refused");
        m_emptyEdits.push_back(sample);
        return OpResult(OpResult::Ok);
    }
    OpResult adviseLookAhead(const MediaPlayReq& req, bool flag, phantom_obAllocationId_t allocationId) override {
        m_advised = req.m_sample;
        m_advisedFlag = flag;
        m_advisedAllocation = allocationId;
        if (m_refuses) return MO_WARNING(MediaCode::OutOfRange, "refused");
        return OpResult(OpResult::Ok);
    }
    bool needToBeChained() const override { return m_wantsChain; }
    OpResult update(const MediaOffsetSummary& summary) override {
        set(summary);
        return OpResult(OpResult::Ok);
    }

    bool m_refuses = false;
    bool m_keeps = true;  // requests
    bool m_wantsChain = false;
    U64 m_place = 0;
    long long m_gap = 0;
    std::vector<MediaRecordReq> m_requests;
    std::vector<U64> m_emptyEdits;
    U64 m_advised = 0;
    bool m_advisedFlag = false;
    phantom_obAllocationId_t m_advisedAllocation = 0;

private:
    const MediaClipDesc& m_clip;
};

// An empty index by multiplication.
class FixedIndex : public FixedMediaLookup {
public:
    FixedIndex(const MediaClipDesc& clip, unsigned size, U64 base)
        : FixedMediaLookup({size, base, 0, base}), m_clip(clip) {}
    const MediaClipDesc& getClip() const override { return m_clip; }

private:
    const MediaClipDesc& m_clip;
};

class Clip : public MediaClipDesc {
public:
    Clip(MediaTrackDesc& track, unsigned index, MediaEncodingType encoding, unsigned rate, unsigned ticks)
        : MediaClipDesc(MediaContainment::Embedded),
          m_edits(1),
          m_lookup(new PlacingLookup(*this)),
          m_track(track),
          m_index(index) {
        m_encoding = encoding;
        m_sampleRate = rate;
        m_ticksPerSample = ticks;
        m_mediaId = kit::idOf(7 + index);
    }
    ~Clip() override { MediaOffsetLookup::release(m_lookup); }

    unsigned int getEditCount() const override { return static_cast<unsigned>(m_edits.size()); }
    MediaEditDesc* getEdit(unsigned int index) override { return &m_edits[index]; }
    const MediaEditDesc* getEdit(unsigned int index) const override { return &m_edits[index]; }
    unsigned int getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override { return m_track; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }
    MediaClipDesc* getSlaveClip() override { return m_slave; }
    const MediaClipDesc* getSlaveClip() const override { return m_slave; }
    void setLength(U64 samples) override {
        ++m_lengthsSet;
        MediaClipDesc::setLength(samples);
    }
    void adviseCapacity(U64 ticks) override { m_capacities.push_back(ticks); }

    // Gives the clip so many samples behind that in point.
    void hold(U64 samples, U64 in = 0) {
        m_edits.back() = MediaEditDesc(in, in + samples);
        m_length = samples;
    }
    // Takes: the maker's reference. Null leaves the clip without an index.
    void setLookup(MediaOffsetLookup* lookup) {
        MediaOffsetLookup::release(m_lookup);
        m_lookup = lookup;
    }
    PlacingLookup& placing() { return static_cast<PlacingLookup&>(*m_lookup); }
    const MediaEditDesc& edit() const { return m_edits.back(); }

    using MediaClipDesc::m_mediaId;
    std::vector<MediaEditDesc> m_edits;
    MediaClipDesc* m_slave = nullptr;
    std::vector<U64> m_capacities;
    unsigned m_lengthsSet = 0;

private:
    MediaOffsetLookup* m_lookup;  // counted
    MediaTrackDesc& m_track;
    const unsigned m_index;
};

class Track : public MediaTrackDesc {
public:
    Track(MediaObj& obj, unsigned index, MediaDataType type, MediaVideoRate rate)
        : MediaTrackDesc(type), m_obj(obj), m_index(index) {
        m_videoRate = rate;
    }

    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override {
        result = OpResult(OpResult::Ok);
        return &addClip(param.m_encoding, param.m_sampleRate, param.m_ticksPerSample);
    }
    using MediaTrackDesc::createClip;
    MediaObj& getObj() override { return m_obj; }
    const MediaObj& getObj() const override { return m_obj; }
    unsigned int getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned int index) override { return m_clips[index].get(); }
    const MediaClipDesc* getClip(unsigned int index) const override { return m_clips[index].get(); }
    unsigned int getTrackIndex() const override { return m_index; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }
    const MediaPropertyList& getProperties() const override { return m_bag; }
    OpResult beginRollout() override {
        ++m_rolloutsBegun;
        return MediaTrackDesc::beginRollout();
    }

    Clip& addClip(MediaEncodingType encoding, unsigned rate, unsigned ticks = 1) {
        const unsigned index = getClipCount();
        m_clips.push_back(std::make_unique<Clip>(*this, index, encoding, rate, ticks));
        return *m_clips.back();
    }
    Clip& clip(unsigned index = 0) { return *m_clips[index]; }
    void setLength(U64 ticks) { m_length = ticks; }
    void forgetPrecharge() { m_prechargeFrames = s_unknownPrecharge; }

    MediaParams m_bag;
    unsigned m_rolloutsBegun = 0;

private:
    MediaObj& m_obj;
    const unsigned m_index;
    std::vector<std::unique_ptr<Clip>> m_clips;
};

// A handle that says what is asked of it ahead of reads.
class LookAheadFile : public kit::FakeFile {
public:
    void resetLookAhead() override { m_asked += "reset "; }
    void setLookAhead(unsigned bytes) override { m_asked += std::to_string(bytes) + " "; }

    std::string m_asked;
};

// Counts of 90000 a second, writable, at 25 frames a second.
class Movie : public MediaObj {
public:
    Movie() : MediaObj(1, CacheRefValue::None), m_desc(this) { init(90000, true); }

    MediaMovieDesc* getMovieDesc() override { return &m_desc; }
    const MediaMovieDesc* getMovieDesc() const override { return &m_desc; }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return m_tracks[index].get(); }
    MediaTrackDesc* getTrackAt(unsigned index) override { return m_tracks[index].get(); }
    using MediaObj::createTrack;
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override {
        result = OpResult(OpResult::Ok);
        return &addTrack(param.m_dataType);
    }
    using MediaObj::getPathId;
    OsPathId getPathId() const override { return {4711}; }
    bool notifyLength(MediaTrackDesc& track) override {
        ++m_notified;
        return MediaObj::notifyLength(track);
    }
    unsigned getMediaCount() const override { return static_cast<unsigned>(m_files.size()); }
    MediaIdRec* getMediaId(unsigned index) const override { return kit::idOf(index + 1); }
    using MediaObj::getFp;
    AutoRefPtr<BasicFileIO> getFp(OpResult& result, MediaIdRec* id, MediaAgent) const override {
        LookAheadFile* const file = m_files[reinterpret_cast<std::uintptr_t>(id) - 1];
        if (file == nullptr) {
            result = MO_WARNING(MediaCode::NoFileHandle, "no handle");
            return {};
        }
        result = OpResult(OpResult::Ok);
        return AutoRefPtr<BasicFileIO>(file);
    }

    Track& addTrack(MediaDataType type, MediaVideoRate rate = MediaVideoRate::Pal25) {
        m_tracks.push_back(std::make_unique<Track>(*this, getTrackCount(), type, rate));
        return *m_tracks.back();
    }
    Track& track(unsigned index) { return *m_tracks[index]; }
    void init(unsigned timeBase, bool writable) {
        m_desc.init(MediaFileType::Unknown, timeBase, writable, MediaEncodingType::Unknown, MediaVideoRate::Pal25);
    }

    SelectingDesc m_desc;
    unsigned m_notified = 0;
    std::vector<LookAheadFile*> m_files;  // borrowed; null: no handle

private:
    std::vector<std::unique_ptr<Track>> m_tracks;
};

// Ticks of the movie's time base in a frame of the video clip.
constexpr U64 s_frame = 3600;

// A movie of no tracks, and what its log says. All switches are off at the end.
class Scene : public testing::Test {
protected:
    ~Scene() override {
        m_result.discard();
        mediaObjDbg.set(0u);
    }

    // A clip of one frame a sample on a track of its own.
    Clip& video(unsigned rate = 25, unsigned ticks = 1, MediaVideoRate videoRate = MediaVideoRate::Pal25) {
        return m_movie->addTrack(MediaDataType::Video, videoRate).addClip(MediaEncodingType::Dv, rate, ticks);
    }
    Clip& audio(MediaEncodingType encoding = MediaEncodingType::Pcm, MediaVideoRate videoRate = MediaVideoRate::Pal25) {
        return m_movie->addTrack(MediaDataType::Audio, videoRate).addClip(encoding, 48000);
    }
    // What a track answers, with the outcome in m_result and the place in m_sample.
    bool add(MediaTrackDesc& track, U64 sample, unsigned count = 1) {
        return track.addSamples(MediaRecordReq(sample, count, SampleInfo()), m_sample, m_result);
    }
    // The same on a clip alone.
    bool add(MediaClipDesc& clip, U64 sample, unsigned count = 1) {
        return clip.addSamples(MediaRecordReq(sample, count, SampleInfo()), m_sample, m_result);
    }
    std::string message() const { return m_result.getMessage() != nullptr ? m_result.getMessage() : ""; }

    kit::LogCapture m_log;
    const AutoReleasePtr<Movie> m_hold{new Movie};
    Movie* const m_movie = m_hold.get();
    MediaSampleInMovie m_sample;
    OpResult m_result{OpResult::Ok};
};

}  // namespace recording
