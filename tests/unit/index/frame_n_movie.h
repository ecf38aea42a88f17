#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/media_format.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/gate.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"

// A movie whose index is a list, a client that may ask for the frame just past its end, and a format that makes black
// ones.

namespace frame_n {

using kit::isError;
using kit::isWarning;

using U64 = unsigned long long;
using Coding = SampleCodingType;
using AgentProperty = GenericProperty<MediaAgentPropId>;

// A client with one property at most.
class Player : public MediaAgent::Properties {
public:
    explicit Player(unsigned value) : m_property(MediaAgentPropId::FrameN, value), m_has(true) {}
    explicit Player(const AgentProperty& property) : m_property(property), m_has(true) {}
    Player() = default;
    const AgentProperty* get(MediaAgentPropId) const override { return m_has ? &m_property : nullptr; }

private:
    AgentProperty m_property;
    bool m_has = false;
};

// One sample of the index.
struct Entry {
    Coding m_coding = Coding::I;
    U64 m_anchor = 0;
    U64 m_offset = 0;
    unsigned m_size = 0;
};

// An index of listed samples, numbered from `m_first` on.
class Listed : public MediaOffsetLookup {
public:
    explicit Listed(const MediaClipDesc& clip) : MediaOffsetLookup(MediaOffsetSummary()), m_clip(clip) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    U64 getBaseOffset() const override { return 0; }
    std::uint32_t getFixedSize() const override { return 0; }
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        result = OpResult(OpResult::Ok);
        if (m_keeps) m_asked.push_back(req);
        if (req.m_sample == m_failsAt) {
            result = MO_WARNING(MediaCode::ReadError, "the index can't be read");
            return false;
        }
        if (req.m_sample - m_first >= m_entries.size()) return false;
        const Entry& entry = m_entries[req.m_sample - m_first];
        desc.set(req.m_count, req.m_sample, entry.m_offset, entry.m_size, 0, false);
        desc.m_info.setEncoding(entry.m_coding);
        desc.m_anchor = entry.m_anchor;
        desc.m_frameN = m_marks;
        desc.m_numChunks = m_chunks;
        return true;
    }
    OpResult update(const MediaOffsetSummary& summary) override {
        set(summary);
        return OpResult(OpResult::Ok);
    }

    std::vector<Entry> m_entries;
    U64 m_first = 0;
    U64 m_failsAt = ~U64{0};
    bool m_keeps = true;   // requests; not while several threads ask
    bool m_marks = false;  // an index that marks all its samples as frame N
    unsigned m_chunks = 1;
    mutable std::vector<MediaPlayReq> m_asked;

private:
    const MediaClipDesc& m_clip;
};

// What the maker of black frames is to do, and what it was asked.
struct Studio {
    bool m_refusesObject = false;
    bool m_refusesTrack = false;
    bool m_refusesClip = false;
    bool m_fillFails = false;
    unsigned m_size = 777;  // of a black frame
    std::atomic<int> m_objects{0};
    std::atomic<int> m_alive{0};
    std::atomic<int> m_fills{0};
    MediaClipParam m_trackParam;
    MediaClipParam m_clipParam;
    long long m_from = -1;
    U64 m_to = 0;
    bool m_flag = true;
    std::shared_ptr<kit::Gate> m_gate;  // the filling of a frame stands here
};
inline Studio* studio = nullptr;

constexpr char blackByte(unsigned i) { return static_cast<char>(i * 7 + 3); }

class FrameClip : public MediaClipDesc {
public:
    explicit FrameClip(MediaTrackDesc& track)
        : MediaClipDesc(MediaContainment::Embedded), m_track(track), m_lookup(new Listed(*this)) {
        m_encoding = MediaEncodingType::Dnxhd;
        m_sampleRate = 30000;
        m_ticksPerSample = 1001;
        m_channels = 1;
        m_mediaId = kit::idOf(1);
    }
    ~FrameClip() override { dropLookup(); }

    unsigned getEditCount() const override { return m_hasEdit ? 1 : 0; }
    MediaEditDesc* getEdit(unsigned) override { return m_hasEdit ? &m_edit : nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return m_hasEdit ? &m_edit : nullptr; }
    unsigned getClipIndex() const override { return 0; }
    MediaTrackDesc& getTrack() override { return m_track; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }
    bool fillBlack(MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second, bool flag) const override {
        if (studio->m_gate) studio->m_gate->pass();
        ++studio->m_fills;
        studio->m_from = static_cast<long long>(first.uint64Value());
        studio->m_to = second.uint64Value();
        studio->m_flag = flag;
        const bool made =
            buf.resize(studio->m_size, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign);
        for (unsigned i = 0; made && i < studio->m_size; ++i)
            buf.getMem()[i] = static_cast<unsigned char>(blackByte(i));
        return made && !studio->m_fillFails;
    }

    void dropLookup() {
        MediaOffsetLookup::release(m_lookup);
        m_lookup = nullptr;
    }
    // So many I frames of 1000 bytes, the first at byte 0 and numbered `in`.
    void hold(U64 samples, U64 in = 0) {
        m_length = samples;
        m_edit = MediaEditDesc(in, in + samples);
        m_lookup->m_first = in;
        for (U64 i = 0; i < samples; ++i)
            m_lookup->m_entries.push_back({Coding::I, in + i, i * 1000, 1000});
    }
    Listed& listed() { return *m_lookup; }

    bool m_hasEdit = true;

private:
    MediaTrackDesc& m_track;
    MediaEditDesc m_edit;
    Listed* m_lookup;  // counted
};

class FrameTrack : public MediaTrackDesc {
public:
    explicit FrameTrack(MediaObj& obj) : MediaTrackDesc(MediaDataType::Video), m_obj(obj) {
        m_videoRate = MediaVideoRate::Ntsc2997;
    }

    using MediaTrackDesc::createClip;
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override {
        studio->m_clipParam = param;
        if (studio->m_refusesClip) {
            result = MO_WARNING(MediaCode::UnsupportedMediaType, "no such clip");
            return nullptr;
        }
        result = OpResult(OpResult::Ok);
        return &addClip();
    }
    MediaObj& getObj() override { return m_obj; }
    const MediaObj& getObj() const override { return m_obj; }
    unsigned getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned index) override { return m_clips[index].get(); }
    const MediaClipDesc* getClip(unsigned index) const override { return m_clips[index].get(); }
    unsigned getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

    FrameClip& addClip() {
        m_clips.push_back(std::make_unique<FrameClip>(*this));
        return *m_clips.back();
    }

private:
    MediaObj& m_obj;
    std::vector<std::unique_ptr<FrameClip>> m_clips;
};

class FrameMovie : public MediaObj {
public:
    explicit FrameMovie(CacheRefValue refs) : MediaObj(0, refs) {
        ++studio->m_alive;
        getDesc()->init(MediaFileType::Dnxhd, 30000, false, MediaEncodingType::Dnxhd, MediaVideoRate::Ntsc2997);
    }
    ~FrameMovie() override { --studio->m_alive; }

    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return m_track ? 1 : 0; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? m_track.get() : nullptr; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? m_track.get() : nullptr; }
    using MediaObj::createTrack;
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override {
        studio->m_trackParam = param;
        if (studio->m_refusesTrack) {
            result = MO_WARNING(MediaCode::UnsupportedMediaType, "no such track");
            return nullptr;
        }
        result = OpResult(OpResult::Ok);
        return &addTrack();
    }

    FrameTrack& addTrack() {
        m_track = std::make_unique<FrameTrack>(*this);
        return *m_track;
    }
    FrameTrack& track() { return *m_track; }

private:
    std::unique_ptr<FrameTrack> m_track;
};

inline MediaObj* openScratch(MediaFileType, OpResult& result) {
    if (studio->m_refusesObject) {
        result = MO_WARNING(MediaCode::UnsupportedMediaType, "no such object");
        return nullptr;
    }
    ++studio->m_objects;
    result = OpResult(OpResult::Ok);
    return new FrameMovie(MediaObj::CacheRefValue::Cached);
}

inline bool registerWriter() {
    MediaWriterDesc writer;
    writer.m_fileType = MediaFileType::Dnxhd;
    writer.m_open = openScratch;
    MediaObj::registerCreator(writer, 0);
    return true;
}
inline const bool s_registered = registerWriter();

// A movie of one clip of 5 I frames of 1000 bytes, and a client that wants frame N.
class FrameN : public testing::Test {
protected:
    FrameN() {
        studio = &m_studio;
        m_movie = new FrameMovie(MediaObj::CacheRefValue::None);
        m_clip = &m_movie->addTrack().addClip();
        m_clip->hold(5);
    }
    ~FrameN() override {
        m_result.discard();
        m_movie = nullptr;
        EXPECT_EQ(m_studio.m_alive, 0);
        studio = nullptr;
    }

    Listed& listed() { return m_clip->listed(); }
    Entry& last() { return listed().m_entries.back(); }
    MediaPlayReq request(U64 sample) { return MediaPlayReq(sample, 1, MediaAgent(&m_client)); }
    bool ask(const MediaPlayReq& req) { return listed().getMediaOffsetFrameN(*m_clip, req, m_desc, m_result); }
    bool ask(U64 sample = 5) { return ask(request(sample)); }
    // That a request is none of a frame N, and leaves everything alone.
    void expectNone(const MediaPlayReq& req) {
        m_desc.set(3, 77, 88, 99u, 4, true);
        m_desc.m_frameN = true;
        m_result = MO_WARNING(MediaCode::ReadError, "left over");
        m_result.discard();
        EXPECT_FALSE(ask(req));
        EXPECT_EQ(m_result.getType(), OpResult::Type::Ok);
        EXPECT_TRUE(listed().m_asked.empty());
        EXPECT_EQ(m_desc.m_count, 3u);
        EXPECT_EQ(m_desc.m_sample, 77u);
        EXPECT_EQ(m_desc.m_anchor, 77u);
        EXPECT_EQ(m_desc.m_numChunks, 1u);
        EXPECT_EQ(m_desc.m_chunks[0].m_offset, 88u);
        EXPECT_EQ(m_desc.m_chunks[0].m_size, 99u);
        EXPECT_EQ(m_desc.m_info.getSize(), 99u);
        EXPECT_EQ(m_desc.m_gap, 4);
        EXPECT_TRUE(m_desc.m_frameN);
        EXPECT_TRUE(m_desc.m_internal);
        EXPECT_EQ(m_studio.m_objects, 0);
    }
    void expectPlace(U64 sample, U64 anchor, U64 offset, unsigned size, bool frameN) {
        EXPECT_EQ(m_desc.m_sample, sample);
        EXPECT_EQ(m_desc.m_anchor, anchor);
        EXPECT_EQ(m_desc.m_numChunks, 1u);
        EXPECT_EQ(m_desc.m_chunks[0].m_offset, offset);
        EXPECT_EQ(m_desc.m_chunks[0].m_size, size);
        EXPECT_EQ(m_desc.m_info.getSize(), size);
        EXPECT_EQ(m_desc.m_frameN, frameN);
    }
    void expectSilentError() {
        EXPECT_TRUE(isError(m_result, 1));
        EXPECT_EQ(m_result.getMessage(), nullptr);
    }
    std::string message() const { return m_result.getMessage() != nullptr ? m_result.getMessage() : ""; }
    // The black frame as the client gets it; "null" for none.
    std::string copyOfBlack() {
        phantom_OBUF* const obuf = listed().getFrameNObufCopy(m_readReq);
        const std::string bytes = obuf != nullptr ? kit::bytesOf(obuf) : "null";
        obufFree(obuf);
        return bytes;
    }
    std::string black() const {
        std::string bytes;
        for (unsigned i = 0; i < m_studio.m_size; ++i)
            bytes += blackByte(i);
        return bytes;
    }

    kit::LogCapture m_log;
    kit::SwitchGuard m_switches{mediaObjDbg};
    Studio m_studio;
    AutoReleasePtr<FrameMovie> m_movie;
    FrameClip* m_clip = nullptr;
    Player m_client{1};
    MediaSampleDesc m_desc;
    OpResult m_result;
    MediaReadReq m_readReq;
};

}  // namespace frame_n
