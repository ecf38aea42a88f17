#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
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
#include "tests/kit/leak_check.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wait_for.h"

// The frame just past a clip's last: who gets one, which anchor is shown again, and the black one that is made.

using kit::isError;
using kit::isWarning;

namespace {

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
Studio* studio = nullptr;

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

MediaObj* openScratch(MediaFileType, OpResult& result) {
    if (studio->m_refusesObject) {
        result = MO_WARNING(MediaCode::UnsupportedMediaType, "no such object");
        return nullptr;
    }
    ++studio->m_objects;
    result = OpResult(OpResult::Ok);
    return new FrameMovie(MediaObj::CacheRefValue::Cached);
}

bool registerWriter() {
    MediaWriterDesc writer;
    writer.m_fileType = MediaFileType::Dnxhd;
    writer.m_open = openScratch;
    MediaObj::registerCreator(writer, 0);
    return true;
}
const bool s_registered = registerWriter();

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

// The same with the switch on.
class BlackFrameN : public FrameN {
protected:
    BlackFrameN() { mediaObjDbg.setBit(MediaDbg::SynthFrameN); }
};

}  // namespace

TEST_F(FrameN, NullAgentGetsNone) { expectNone(MediaPlayReq(5, 1)); }

TEST_F(FrameN, EmptyClipHasNone) {
    m_clip->setLength(0);
    expectNone(request(0));
}

TEST_F(FrameN, OneSampleBeforeTheEndIsNone) { expectNone(request(4)); }

TEST_F(FrameN, OneSampleFurtherIsNone) { expectNone(request(6)); }

TEST_F(FrameN, ClientWithoutThePropertyGetsNone) {
    const Player plain;
    expectNone(MediaPlayReq(5, 1, MediaAgent(&plain)));
}

TEST_F(FrameN, ClientWhosePropertyIsZeroGetsNone) {
    const Player zero(0u);
    expectNone(MediaPlayReq(5, 1, MediaAgent(&zero)));
}

TEST_F(FrameN, PropertyOfAnotherIdIsNotTheOneAskedFor) {
    const Player other(AgentProperty(static_cast<MediaAgentPropId>(0x10000003), 1));
    expectNone(MediaPlayReq(5, 1, MediaAgent(&other)));
}

TEST_F(FrameN, PropertyHasTheNumberThatClientsKnow) {
    EXPECT_EQ(static_cast<std::uint32_t>(MediaAgentPropId::FrameN), 0x10000002u);
    const Player many(4711);
    EXPECT_TRUE(ask(MediaPlayReq(5, 1, MediaAgent(&many))));
}

TEST_F(FrameN, NoneIsNoneWithTheSwitchOnAsWell) {
    mediaObjDbg.setBit(MediaDbg::SynthFrameN);
    EXPECT_FALSE(ask(4));
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(m_studio.m_objects, 0);
}

TEST_F(FrameN, CountsFromTheInPoint) {
    listed().m_entries.clear();
    m_clip->hold(5, 10);
    expectNone(request(5));
    EXPECT_TRUE(ask(15));
    expectPlace(15, 14, 4000, 1000, false);
}

TEST_F(FrameN, ClipWithoutEditsCountsFromItsFirstSample) {
    m_clip->m_hasEdit = false;
    expectNone(request(4));
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4000, 1000, false);
}

TEST_F(FrameN, LastPictureIsShownAgain) {
    for (const Coding coding : {Coding::I, Coding::P, Coding::Unknown}) {
        last() = {coding, 3, 4000, 1000};
        EXPECT_TRUE(ask());
        EXPECT_TRUE(m_result.success());
        expectPlace(5, 4, 4000, 1000, false);
        EXPECT_EQ(m_desc.m_info.getEncoding(), coding);
    }
    EXPECT_EQ(copyOfBlack(), "null");
}

TEST_F(FrameN, AsksForTheLastSampleByBothItsNumbers) {
    MediaPlayReq req = request(5);
    req.m_count = 7;
    req.m_sample2 = 99;
    req.m_flag = true;
    req.m_extra = true;
    EXPECT_TRUE(ask(req));
    ASSERT_EQ(listed().m_asked.size(), 1u);
    const MediaPlayReq& asked = listed().m_asked[0];
    EXPECT_EQ(asked.m_sample, 4u);
    EXPECT_EQ(asked.m_sample2, 4u);
    EXPECT_EQ(asked.m_count, 7u);
    EXPECT_TRUE(asked.m_flag);
    EXPECT_TRUE(asked.m_extra);
    EXPECT_TRUE(asked.m_agent == &m_client);
    EXPECT_EQ(m_desc.m_count, 7u);
}

TEST_F(FrameN, RepeatedPictureIsReadFromTheFile) {
    listed().m_marks = true;
    EXPECT_TRUE(ask());
    EXPECT_FALSE(m_desc.m_frameN);
}

TEST_F(FrameN, RepeatedPictureKeepsItsTwoChunks) {
    listed().m_chunks = 2;
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_desc.m_numChunks, 2u);
}

TEST_F(FrameN, AnchorOfTheLastPictureIsShownWhenThatIsNoAnchor) {
    listed().m_entries[2] = {Coding::P, 0, 2500, 600};
    last() = {Coding::B, 2, 4000, 100};
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 2, 2500, 600, false);
    ASSERT_EQ(listed().m_asked.size(), 2u);
    EXPECT_EQ(listed().m_asked[1].m_sample, 2u);
    EXPECT_EQ(listed().m_asked[1].m_sample2, 2u);
    EXPECT_EQ(listed().m_asked[1].m_count, 1u);
}

TEST_F(FrameN, PictureThatIsNoAnchorNeedsAnEarlierOne) {
    for (const U64 anchor : {U64{4}, U64{5}, U64{1000}}) {
        last() = {Coding::B, anchor, 4000, 100};
        listed().m_asked.clear();
        EXPECT_FALSE(ask());
        expectSilentError();
        EXPECT_EQ(listed().m_asked.size(), 1u);
        m_result.discard();
    }
}

TEST_F(FrameN, AnchorThatIsNoAnchorEitherIsTold) {
    listed().m_entries[2].m_coding = Coding::B;
    last() = {Coding::B, 2, 4000, 100};
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_STREQ(m_result.getMessage(), "expected I or P frame");
    EXPECT_EQ(listed().m_asked.size(), 2u);
}

TEST_F(FrameN, LastSampleThatIsQuietlyMissingIsToldWithTheRequest) {
    listed().m_entries.pop_back();
    MediaPlayReq req = request(5);
    req.m_count = 3;
    req.m_sample2 = 8;
    const std::string clip = m_clip->toString().get();
    for (const bool flag : {false, true}) {
        req.m_flag = flag;
        EXPECT_FALSE(ask(req));
        EXPECT_TRUE(isError(m_result, 1));
        EXPECT_EQ(message(), "Unexpected getMediaOffset() failure while looking for last anchor frame: clip=[" + clip +
                                 "],req=[5,3,8," + (flag ? "1" : "0") + "]");
        m_result.discard();
    }
}

TEST_F(FrameN, LastSampleThatFailsKeepsItsReason) {
    listed().m_failsAt = 4;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(FrameN, AnchorThatIsQuietlyMissingIsAnErrorWithoutWords) {
    listed().m_first = 4;
    listed().m_entries = {{Coding::B, 2, 4000, 100}};
    EXPECT_FALSE(ask());
    expectSilentError();
}

TEST_F(FrameN, AnchorThatFailsKeepsItsReason) {
    last() = {Coding::B, 2, 4000, 100};
    listed().m_failsAt = 2;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(BlackFrameN, LiesRightBehindTheLastPicture) {
    last() = {Coding::I, 2, 5000, 1000};
    m_desc.m_frameN = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 4, 6000, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
    EXPECT_EQ(m_desc.m_info.m_refType, 14u);
}

TEST_F(BlackFrameN, LastPictureIsItsAnchorUnlessThatIsNone) {
    last() = {Coding::P, 2, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4300, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
    last() = {Coding::B, 2, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 2, 4300, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
}

TEST_F(BlackFrameN, IsOneChunkEvenBehindTwo) {
    listed().m_chunks = 2;
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 5000, 777, true);
}

TEST_F(BlackFrameN, LeavesTheSecondNumberOfTheRequestAlone) {
    MediaPlayReq req = request(5);
    req.m_sample2 = 99;
    req.m_count = 7;
    EXPECT_TRUE(ask(req));
    ASSERT_EQ(listed().m_asked.size(), 1u);
    EXPECT_EQ(listed().m_asked[0].m_sample, 4u);
    EXPECT_EQ(listed().m_asked[0].m_sample2, 99u);
    EXPECT_EQ(listed().m_asked[0].m_count, 7u);
}

TEST_F(BlackFrameN, IsOneSampleOfTheClipsOwnKindMadeInAScratchMovie) {
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_alive, 1);  // the clip's own
    for (const MediaClipParam* param : {&m_studio.m_trackParam, &m_studio.m_clipParam}) {
        EXPECT_EQ(param->m_dataType, MediaDataType::Video);
        EXPECT_EQ(param->m_encoding, MediaEncodingType::Dnxhd);
        EXPECT_EQ(param->m_sampleRate, 30000u);
        EXPECT_EQ(param->m_ticksPerSample, 1001u);
    }
    EXPECT_EQ(m_studio.m_fills, 1);
    EXPECT_EQ(m_studio.m_from, 0);
    EXPECT_EQ(m_studio.m_to, 1001u);
    EXPECT_FALSE(m_studio.m_flag);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, IsMadeOnce) {
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(ask());
    const Player second(2u);
    EXPECT_TRUE(ask(MediaPlayReq(5, 1, MediaAgent(&second))));
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_fills, 1);
}

TEST_F(BlackFrameN, IsNotMadeWhileTheSwitchIsOff) {
    mediaObjDbg.set(0u);
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_objects, 0);
    EXPECT_EQ(copyOfBlack(), "null");
}

TEST_F(BlackFrameN, OfALongGopNeedsNoAnchorAtAll) {
    last() = {Coding::B, 4, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4300, 777, true);
}

TEST_F(BlackFrameN, ThatCannotBeMadeIsAnErrorAndItsReasonIsDelivered) {
    const struct {
        bool Studio::*m_refuses;
        const char* m_reason;
    } s_refusals[] = {{&Studio::m_refusesObject, "no such object"},
                      {&Studio::m_refusesTrack, "no such track"},
                      {&Studio::m_refusesClip, "no such clip"}};
    for (const auto& refusal : s_refusals) {
        m_studio.*refusal.m_refuses = true;
        m_log.clear();
        EXPECT_FALSE(ask());
        expectSilentError();
        m_result.discard();
        EXPECT_EQ(m_log.count(std::string("*") + refusal.m_reason + "*"), 1u) << m_log.text();
        EXPECT_TRUE(listed().m_asked.empty());
        EXPECT_EQ(copyOfBlack(), "null");
        EXPECT_EQ(m_studio.m_alive, 1);
        m_studio.*refusal.m_refuses = false;
    }
    EXPECT_EQ(m_studio.m_fills, 0);
}

TEST_F(BlackFrameN, ThatCouldNotBeMadeIsTriedAgain) {
    m_studio.m_refusesObject = true;
    EXPECT_FALSE(ask());
    m_result.discard();
    m_studio.m_refusesObject = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, ThatIsFilledInVainIsLoggedAndUsedAllTheSame) {
    m_studio.m_fillFails = true;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 4, 5000, 777, true);
    EXPECT_TRUE(m_log.has("*FrameNData*")) << m_log.text();
    EXPECT_EQ(copyOfBlack(), black());
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_fills, 1);
}

TEST_F(BlackFrameN, BehindASampleThatIsQuietlyMissingIsAnErrorWithoutWords) {
    listed().m_entries.pop_back();
    EXPECT_FALSE(ask());
    expectSilentError();
}

TEST_F(BlackFrameN, BehindASampleThatFailsKeepsItsReason) {
    listed().m_failsAt = 4;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(FrameN, LookupThatMadeNoneHasNoCopyToGive) { EXPECT_EQ(listed().getFrameNObufCopy(m_readReq), nullptr); }

TEST_F(BlackFrameN, EachReaderGetsABufferOfHisOwnOverTheSameBytes) {
    EXPECT_TRUE(ask());
    phantom_OBUF* const first = listed().getFrameNObufCopy(m_readReq);
    phantom_OBUF* const second = listed().getFrameNObufCopy(m_readReq);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    iovec one{};
    iovec other{};
    EXPECT_EQ(obufNTranslateHost(first, &one, 1), 1);
    EXPECT_EQ(obufNTranslateHost(second, &other, 1), 1);
    EXPECT_EQ(one.iov_base, other.iov_base);
    obufFree(first);
    EXPECT_EQ(kit::bytesOf(second), black());
    obufFree(second);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, BufferOfAReaderOutlivesTheLookup) {
    EXPECT_TRUE(ask());
    phantom_OBUF* const copy = listed().getFrameNObufCopy(m_readReq);
    m_clip->dropLookup();
    EXPECT_EQ(kit::bytesOf(copy), black());
    obufFree(copy);
}

TEST_F(BlackFrameN, LargerThanAPoolsBlockComesWhole) {
    m_studio.m_size = 1000001;
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 5000, 1000001, true);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, OfNoBytesIsAnEmptyBuffer) {
    m_studio.m_size = 0;
    EXPECT_TRUE(ask());
    phantom_OBUF* const copy = listed().getFrameNObufCopy(m_readReq);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(obufSize(copy), 0u);
    obufFree(copy);
}

TEST_F(BlackFrameN, IsLetGoOfWithItsLookup) {
    EXPECT_TRUE(ask());
    EXPECT_EQ(copyOfBlack(), black());
    m_clip->dropLookup();
    const kit::LeakCheck leaks;
    for (int i = 0; i < 3; ++i) {
        FrameClip& clip = m_movie->track().addClip();
        clip.hold(2);
        EXPECT_TRUE(clip.listed().getMediaOffsetFrameN(clip, request(2), m_desc, m_result));
        phantom_OBUF* const copy = clip.listed().getFrameNObufCopy(m_readReq);
        EXPECT_NE(copy, nullptr);
        obufFree(copy);
        clip.dropLookup();
    }
    EXPECT_EQ(leaks.difference(), "");
}

TEST_F(BlackFrameN, TwoClientsAtOnceHaveOneMade) {
    listed().m_keeps = false;
    m_studio.m_gate = std::make_shared<kit::Gate>();
    m_studio.m_gate->close();
    std::atomic<int> asking{0};
    std::atomic<int> good{0};
    const std::string wanted = black();
    const auto client = [&] {
        const Player player(1u);
        MediaSampleDesc desc;
        OpResult result;
        ++asking;
        for (int i = 0; i < 50; ++i) {
            const bool found =
                listed().getMediaOffsetFrameN(*m_clip, MediaPlayReq(5, 1, MediaAgent(&player)), desc, result);
            phantom_OBUF* const copy = listed().getFrameNObufCopy(MediaReadReq());
            if (found && result && copy != nullptr && kit::bytesOf(copy) == wanted) ++good;
            obufFree(copy);
        }
    };
    std::thread first(client);
    std::thread second(client);
    EXPECT_TRUE(kit::waitFor([&] { return asking == 2 && m_studio.m_gate->waiting() == 1; }));
    m_studio.m_gate->open();
    first.join();
    second.join();
    EXPECT_EQ(good, 100);
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_fills, 1);
}

namespace {

// Notes the thread on which it is called.
class ThreadHook : public kit::ReadHook {
public:
    mutable std::thread::id m_thread;

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
        m_thread = std::this_thread::get_id();
        return kit::ReadHook::vCallCb(notify);
    }
};

// A read of frame N through its movie, which has no file at all.
class FrameNRead : public BlackFrameN {
protected:
    FrameNRead() {
        m_readReq.m_cb = &m_hook;
        m_readReq.m_tag = this;
    }
    OpResult read() {
        static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
        m_readReq.m_sample.m_trackIndex = 0;
        return m_movie->vaRead(m_readReq);
    }
    void expectRefused() {
        m_result = m_movie->vaRead(m_readReq);
        expectSilentError();
        EXPECT_EQ(m_hook.count(), 0u);
    }

    ThreadHook m_hook;
};

}  // namespace

TEST_F(FrameNRead, IsAnsweredAtOnceOnTheCallersThread) {
    ASSERT_TRUE(ask());
    EXPECT_TRUE(read().success());
    ASSERT_EQ(m_hook.count(), 1u);
    const kit::ReadHook::Answer answer = m_hook.answers()[0];
    EXPECT_EQ(answer.m_bytes, black());
    EXPECT_EQ(answer.m_tag, this);
    EXPECT_EQ(answer.m_status, 0);
    EXPECT_FALSE(answer.m_null);
    EXPECT_EQ(m_hook.m_thread, std::this_thread::get_id());
}

TEST_F(FrameNRead, TakesTheLastClipOfTheTrack) {
    ASSERT_TRUE(ask());
    m_movie->track().addClip().hold(2);
    EXPECT_TRUE(isError(read(), 1));  // that clip has made none
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, OfATrackThatIsNotThereFails) {
    ASSERT_TRUE(ask());
    static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
    for (const unsigned index : {1u, 0xFFFFu}) {
        m_readReq.m_sample.m_trackIndex = static_cast<std::uint16_t>(index);
        expectRefused();
    }
}

TEST_F(FrameNRead, OfATrackWithoutClipsFails) {
    ASSERT_TRUE(ask());
    const AutoReleasePtr<FrameMovie> empty(new FrameMovie(MediaObj::CacheRefValue::None));
    empty->addTrack();
    static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
    m_readReq.m_sample.m_trackIndex = 0;
    m_result = empty->vaRead(m_readReq);
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, OfAClipWithoutAnIndexFails) {
    ASSERT_TRUE(ask());
    m_clip->dropLookup();
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, WithoutAFrameMadeFails) {
    ASSERT_TRUE(listed().getMediaOffset(request(4), m_desc, m_result));
    m_desc.m_frameN = true;
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, WithoutAPlaceFailsAheadOfAllElse) {
    ASSERT_TRUE(ask());
    m_desc.m_numChunks = 0;
    m_result = read();
    expectSilentError();
    m_desc.m_numChunks = 1;
    m_desc.m_chunks[0].m_offset = MediaSampleDesc::s_unknownOffset;
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}
