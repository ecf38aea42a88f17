#pragma once

#include <memory>
#include <string>
#include <vector>

#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

// A movie that is told what it is: its tracks, clips and lookups show the fields that a back-end sets.

class TestClip;
class TestTrack;

class TestLookup : public MediaOffsetLookup {
public:
    explicit TestLookup(const MediaClipDesc& clip) : MediaOffsetLookup(MediaOffsetSummary()), m_clip(clip) {}

    void close() const override { ++m_closes; }
    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override { return m_baseOffset; }
    std::uint32_t getFixedSize() const override { return m_sampleSize; }

    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        m_lastSample = req.m_sample;
        if (m_refuse) {
            result = MO_WARNING(MediaCode::OutOfRange, nullptr);
            result.discard();
            return false;
        }
        desc.set(req.m_count, req.m_sample, 4096, 512u, 0, false);
        desc.m_anchor = req.m_sample - 3;
        if (req.m_sample < m_codings.size()) desc.m_info.setEncoding(m_codings[req.m_sample]);
        return true;
    }

    bool getFrameInfo(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        ++m_frameInfos;
        return getMediaOffset(req, desc, result);
    }

    OpResult update(const MediaOffsetSummary& summary) override {
        ++m_updates;
        if (m_refuse) return MO_WARNING(MediaCode::InternalError, nullptr);
        MediaOffsetSummary::operator=(summary);
        return OpResult(OpResult::Ok);
    }

    bool m_refuse = false;
    std::vector<SampleCodingType> m_codings;  // of the first samples; the others are I
    mutable int m_closes = 0;
    mutable int m_frameInfos = 0;
    int m_updates = 0;
    mutable unsigned long long m_lastSample = 0;

private:
    const MediaClipDesc& m_clip;
};

class TestClip : public MediaClipDesc {
public:
    explicit TestClip(TestTrack& track, MediaContainment container = MediaContainment::Embedded)
        : MediaClipDesc(container), m_track(track), m_lookup(new TestLookup(*this)) {}
    // A copy in another track; it has no lookup.
    TestClip(TestTrack& track, const MediaClipDesc& source) : MediaClipDesc(source), m_track(track) {}
    ~TestClip() override { dropLookup(); }

    void dropLookup() {
        MediaOffsetLookup::release(m_lookup);
        m_lookup = nullptr;
    }

    bool getExtraParam(unsigned int* extra, unsigned int count) const override {
        if (m_extra.empty()) return false;
        for (unsigned int i = 0; i < count; ++i)
            extra[i] = m_extra[i];
        return true;
    }
    unsigned int getEditCount() const override { return static_cast<unsigned int>(m_edits.size()); }
    MediaEditDesc* getEdit(unsigned int index) override { return &m_edits[index]; }
    const MediaEditDesc* getEdit(unsigned int index) const override { return &m_edits[index]; }
    unsigned int getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override;
    const MediaTrackDesc& getTrack() const override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }
    bool isSlave() const override { return m_slave; }
    using MediaClipDesc::getSlaveClip;
    const MediaClipDesc* getSlaveClip() const override { return m_slaveClip; }
    void setDefaultVideoRate(MediaVideoRate rate) override { m_toldRate = rate; }

    void setRate(unsigned int sampleRate, unsigned int ticks) {
        m_sampleRate = sampleRate;
        m_ticksPerSample = ticks;
    }

    using MediaClipDesc::m_backEndParam;
    using MediaClipDesc::m_bitrate;
    using MediaClipDesc::m_bitsPerUnit;
    using MediaClipDesc::m_channels;
    using MediaClipDesc::m_chroma;
    using MediaClipDesc::m_coding;
    using MediaClipDesc::m_container;
    using MediaClipDesc::m_encoding;
    using MediaClipDesc::m_endian;
    using MediaClipDesc::m_length;
    using MediaClipDesc::m_maxBitsPerSample;
    using MediaClipDesc::m_mediaId;
    using MediaClipDesc::m_minSamples;
    using MediaClipDesc::m_paramId;
    using MediaClipDesc::m_rollout;
    using MediaClipDesc::m_targetRollout;
    using MediaClipDesc::m_vscan;

    std::vector<unsigned int> m_extra;
    std::vector<MediaEditDesc> m_edits;
    unsigned int m_index = 0;
    bool m_slave = false;
    MediaClipDesc* m_slaveClip = nullptr;
    MediaVideoRate m_toldRate = MediaVideoRate::Unknown;

    TestLookup& lookup() { return *m_lookup; }

private:
    TestTrack& m_track;
    TestLookup* m_lookup = nullptr;
};

class TestMovie;

class TestTrack : public MediaTrackDesc {
public:
    TestTrack(TestMovie& movie, MediaDataType type, unsigned int index)
        : MediaTrackDesc(type), m_movie(movie), m_index(index) {}

    using MediaTrackDesc::createClip;
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override {
        if (m_refuseClips) {
            result = MO_WARNING(MediaCode::ClipNotSupported, nullptr);
            result.discard();
            return nullptr;
        }
        TestClip& clip = addClip();
        result = clip.setParam(param);
        return &clip;
    }
    MediaClipDesc* copyClip(const MediaClipDesc& source, OpResult& result) override {
        if (!m_canCopy) return MediaTrackDesc::copyClip(source, result);
        m_clips.push_back(std::make_unique<TestClip>(*this, source));
        result = OpResult(OpResult::Ok);
        return m_clips.back().get();
    }
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned int getClipCount() const override { return static_cast<unsigned int>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned int index) override { return m_clips[index].get(); }
    const MediaClipDesc* getClip(unsigned int index) const override { return m_clips[index].get(); }
    unsigned int getTrackIndex() const override { return m_index; }
    const MediaPropertyList& getProperties() const override {
        return m_hasBag ? m_bag : MediaTrackDesc::getProperties();
    }
    FixedPoint<16> getMaxTime() const override { return m_maxTime; }

    // The last clip made is the last one of the track.
    TestClip& addClip(MediaContainment container = MediaContainment::Embedded) {
        m_clips.push_back(std::make_unique<TestClip>(*this, container));
        m_clips.back()->m_index = getClipCount() - 1;
        return *m_clips.back();
    }
    TestClip& addClip(MediaEncodingType encoding, unsigned int sampleRate, unsigned int ticks,
                      unsigned long long length) {
        TestClip& clip = addClip();
        clip.m_encoding = encoding;
        clip.setRate(sampleRate, ticks);
        clip.m_length = length;
        return clip;
    }
    TestClip& clip(unsigned int index) { return *m_clips[index]; }

    using MediaTrackDesc::m_aspect;
    using MediaTrackDesc::m_containment;
    using MediaTrackDesc::m_height;
    using MediaTrackDesc::m_length;
    using MediaTrackDesc::m_type;
    using MediaTrackDesc::m_videoRate;
    using MediaTrackDesc::m_width;

    MediaParams m_bag;
    bool m_hasBag = true;
    bool m_canCopy = false;
    bool m_refuseClips = false;
    FixedPoint<16> m_maxTime{3600};

private:
    TestMovie& m_movie;
    unsigned int m_index;
    std::vector<std::unique_ptr<TestClip>> m_clips;
};

class TestMovie : public MediaObj {
public:
    explicit TestMovie(CacheRefValue refs = CacheRefValue::None) : MediaObj(1, refs) {
        getDesc()->init(MediaFileType::Mxf, 100, true, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
    }

    // One that was never released gives back its maker's reference.
    ~TestMovie() override {
        if (getReferenceCount() > 0) getRefCount()->release();
    }

    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    MediaTrackDesc* getTrackAt(unsigned index) override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    using MediaObj::createTrack;
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override {
        TestTrack& made = addTrack(MediaDataType::Unknown);
        result = made.setParam(param);
        made.m_refuseClips = m_refuseClips;
        made.m_canCopy = m_canCopy;
        return &made;
    }
    SwVersion getMediaLayerVersion() const override { return m_version; }
    bool isZarnexMovie() const override { return m_native; }

    TestTrack& addTrack(MediaDataType type) {
        m_tracks.push_back(std::make_unique<TestTrack>(*this, type, getTrackCount()));
        return *m_tracks.back();
    }
    TestTrack& addTrack(MediaDataType type, MediaEncodingType encoding) {
        TestTrack& made = addTrack(type);
        made.addClip().m_encoding = encoding;
        return made;
    }
    TestTrack& track(unsigned index) { return *m_tracks[index]; }

    SwVersion m_version;
    bool m_native = false;
    bool m_refuseClips = false;
    bool m_canCopy = false;

private:
    std::vector<std::unique_ptr<TestTrack>> m_tracks;
};

inline MediaTrackDesc& TestClip::getTrack() { return m_track; }
inline const MediaTrackDesc& TestClip::getTrack() const { return m_track; }
inline MediaObj& TestTrack::getObj() { return m_movie; }
inline const MediaObj& TestTrack::getObj() const { return m_movie; }

// The n-th file of a list, as its id is: a number that is never dereferenced.
inline MediaIdRec* mediaId(std::uintptr_t number) { return reinterpret_cast<MediaIdRec*>(number); }

// Takes the log's messages for the length of a test.
class CapturedLog : public LogSink {
public:
    CapturedLog() : m_before(setLogSink(this)) {}
    ~CapturedLog() override { setLogSink(m_before); }

    void write(const LogMessage& message) override { m_lines.emplace_back(message.m_text, message.m_length); }

    std::vector<std::string> m_lines;

private:
    LogSink* m_before;
};
