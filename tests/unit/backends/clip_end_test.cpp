#include "backends/common/own_params.h"
#include "backends/dv/dv_recording.h"
#include "services/metadata/generic_umid.h"
#include "shared/include/io/media_read_req.h"
#include "tests/kit/agents.h"
#include "tests/kit/hooks.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/backends/dv_fixture.h"
#include "tests/unit/backends/recording_fixture.h"
#include "tests/unit/backends/wav_fixture.h"

// What a client finds behind a clip's last sample: nothing, or a picture if it asks for one.

using namespace RecordKit;
using DvKit::Frame;
using kit::isWarning;

namespace {

// Wants a picture behind the last one.
class Player : public MediaAgent::Properties {
public:
    const GenericProperty<MediaAgentPropId>* get(MediaAgentPropId) const override { return &m_property; }

private:
    const GenericProperty<MediaAgentPropId> m_property{MediaAgentPropId::FrameN, 1};
};

class ClipEnd : public RecordScene {
protected:
    void TearDown() override {
        if (m_read != nullptr) m_read->close(nullptr, MediaAgent(&m_player)).discard();
        if (m_read != nullptr) m_read->release();
        RecordScene::TearDown();
    }
    void openBytes(const std::string& bytes, const std::string& name) {
        m_result.discard();
        m_read = MediaObj::openReader(m_tree.write(name, bytes).c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_read, nullptr) << m_result.describe().get();
    }
    bool ask(const MediaObj& movie, unsigned track, unsigned long long sample, unsigned count = 1) {
        const MediaClipDesc& clip = *movie.getTrackAt(track)->getClip(0);
        m_result.discard();
        const bool found = clip.getMediaOffset(MediaPlayReq(sample, count, MediaAgent(&m_player)), m_where, m_result);
        EXPECT_TRUE(m_result.success()) << m_result.describe().get();
        return found;
    }
    // What comes of a read of the place that was found.
    std::string readIt(const MediaObj& movie) {
        kit::ReadHook hook;
        MediaReadReq req;
        req.m_cb = &hook;
        req.m_sample = m_where;
        OpResult result = movie.vaRead(req);
        EXPECT_TRUE(result.success()) << result.describe().get();
        if (!result || !hook.waitForAnswers(1)) return "nothing";
        return hook.answers()[0].m_bytes;
    }
    void showBlack() { mediaObjDbg.setBit(MediaDbg::SynthFrameN); }

    const Player m_player;
    MediaObj* m_read = nullptr;
    MediaSampleInMovie m_where;
    const kit::SwitchGuard m_switches{mediaObjDbg};
};

class ClipEndOfSystem : public ClipEnd, public testing::WithParamInterface<unsigned> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Systems, ClipEndOfSystem, testing::Range(0u, s_dvSystemCount));

TEST_P(ClipEndOfSystem, ShowsTheLastDvFrameAgain) {
    const DvSystem& system = DvKit::system(GetParam());
    const std::string stream = DvKit::stream(system, 3);
    openBytes(stream, "a.dv");
    ASSERT_TRUE(ask(*m_read, 0, 3));
    EXPECT_EQ(m_where.m_sample, 3u);
    EXPECT_EQ(m_where.m_anchor, 2u);
    EXPECT_FALSE(m_where.m_frameN);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 2u * system.frameSize());
    EXPECT_TRUE(readIt(*m_read) == stream.substr(2 * system.frameSize()));
}

TEST_P(ClipEndOfSystem, ShowsABlackDvFrameWhileTheSwitchIsOn) {
    const DvSystem& system = DvKit::system(GetParam());
    openBytes(DvKit::stream(system, 3), "a.dv");
    const bool isPro = m_read->getTrackAt(0)->getProperty(MediaPropertyEnum::Name::DvcPro) != nullptr;
    const MediaAspectRatio aspect = m_read->getTrackAt(0)->getAspectRatio();
    showBlack();
    ASSERT_TRUE(ask(*m_read, 0, 3));
    EXPECT_EQ(m_where.m_sample, 3u);
    EXPECT_EQ(m_where.m_anchor, 2u);
    EXPECT_TRUE(m_where.m_frameN);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 3u * system.frameSize());
    EXPECT_EQ(m_where.m_chunks[0].m_size, system.frameSize());
    const std::string black = Frame(system, DvKit::sound(system.channels * 2), isPro, aspect).bytes();
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(readIt(*m_read) == black);
}

TEST_F(ClipEnd, OfDvIsWhereItIsForOtherClients) {
    const DvSystem& system = DvKit::system(DvKit::Pal420);
    openBytes(DvKit::stream(system, 3), "a.dv");
    const kit::Client plain;
    for (const bool black : {false, true}) {
        if (black) showBlack();
        for (const MediaAgent& agent : {MediaAgent(), MediaAgent(&plain)}) {
            EXPECT_FALSE(
                m_read->getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(3, 1, agent), m_where, m_result));
            EXPECT_TRUE(m_result.success());
            EXPECT_EQ(m_where.m_chunks[0].m_offset, 3u * system.frameSize());
        }
    }
}

TEST_F(ClipEnd, OfDvIsOneFrameAndNoMore) {
    openBytes(DvKit::stream(DvKit::system(DvKit::Pal420), 3), "a.dv");
    for (const bool black : {false, true}) {
        if (black) showBlack();
        EXPECT_TRUE(ask(*m_read, 0, 2));
        EXPECT_EQ(m_where.m_anchor, 2u);
        EXPECT_FALSE(m_where.m_frameN);
        EXPECT_FALSE(ask(*m_read, 0, 4));
        EXPECT_FALSE(m_where.m_frameN);
        EXPECT_FALSE(ask(*m_read, 0, 1000000));
    }
}

TEST_F(ClipEnd, OfDvThatHasGrownIsTheFrameThatCame) {
    const DvSystem& system = DvKit::system(DvKit::Pal420);
    openBytes(DvKit::stream(system, 3), "a.dv");
    ASSERT_TRUE(ask(*m_read, 0, 3));
    EXPECT_EQ(m_where.m_anchor, 2u);
    const std::string next = Frame(system).number(99).bytes();
    m_tree.append("a.dv", next);
    ASSERT_TRUE(ask(*m_read, 0, 3));
    EXPECT_EQ(m_where.m_anchor, 3u);
    EXPECT_TRUE(readIt(*m_read) == next);
}

TEST_F(ClipEnd, OfSoundInDvStaysQuiet) {
    openBytes(DvKit::stream(DvKit::system(DvKit::Ntsc25), 3), "a.dv");
    const MediaClipDesc& sound = *m_read->getTrackAt(1)->getClip(0);
    for (const bool black : {false, true}) {
        if (black) showBlack();
        EXPECT_FALSE(ask(*m_read, 1, sound.getLength(), sound.getSampleAndCount(3).m_count));
        EXPECT_FALSE(m_where.m_frameN);
    }
}

TEST_F(ClipEnd, OfWavStaysQuiet) {
    openBytes(WavBuilder().fmt().data(WavBuilder::pattern(400)).bytes(), "a.wav");
    for (const bool black : {false, true}) {
        if (black) showBlack();
        for (const unsigned count : {1u, 100u}) {
            EXPECT_FALSE(ask(*m_read, 0, 100, count));
            EXPECT_FALSE(m_where.m_frameN);
        }
    }
}

TEST_F(ClipEnd, OfARecordingIsNotThereYet) {
    const std::string stream = DvKit::stream(DvKit::system(DvKit::Pal420), 2);
    openBytes(stream, "source.dv");
    start("a.dv", m_read->getTrackAt(0)->getParam());
    for (const bool black : {false, true}) {
        if (black) showBlack();
        const MediaSampleInMovie where = add(1);
        EXPECT_FALSE(ask(*m_movie, 0, where.m_sample));
        OpResult written = write(where, stream.substr(where.m_sample * m_size, m_size));
        ASSERT_TRUE(written.success());
        EXPECT_TRUE(ask(*m_movie, 0, where.m_sample));
        EXPECT_FALSE(ask(*m_movie, 0, where.m_sample + 1));
    }
    mediaObjDbg.set(0u);
    MediaObj* const recorded = m_movie;
    recorded->preserve();
    endRecording();
    EXPECT_TRUE(ask(*recorded, 0, 2));
    EXPECT_EQ(m_where.m_anchor, 1u);
    EXPECT_TRUE(readIt(*recorded) == stream.substr(m_size));
    showBlack();
    EXPECT_TRUE(ask(*recorded, 0, 2));
    EXPECT_TRUE(m_where.m_frameN);
    recorded->close(nullptr, MediaAgent(&m_player)).discard();
    recorded->release();
}

namespace {

constexpr std::uint8_t s_umid[32] = {0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0D,
                                     0x21, 0x13, 0x00, 0x00, 0x07, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55,
                                     0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

// What a movie of sound carries about itself.
class CarriedByWav : public ClipEnd {
protected:
    void openWith(const std::string& umid) {
        if (m_read != nullptr) m_read->release();
        m_read = nullptr;
        const kit::WavBext bext{.m_umid = umid};
        openBytes(WavBuilder().bext(bext).fmt().data(WavBuilder::pattern(400)).bytes(),
                  std::to_string(++m_files) + ".wav");
    }
    static std::string bytesOf(const std::uint8_t (&bytes)[32]) {
        return std::string(reinterpret_cast<const char*>(bytes), 32);
    }

    int m_files = 0;
};

}  // namespace

TEST_F(CarriedByWav, UmidOfTheBextChunkIsTheMovies) {
    openWith(bytesOf(s_umid));
    EXPECT_STREQ(m_read->getUmid(),
                 "urn:smpte:umid:060A2B34.01010105.01010D21.13000007.00112233.44556677.8899AABB.CCDDEEFF");
    EXPECT_STREQ(m_read->getSourceUmid(m_result),
                 "urn:smpte:umid:060A2B34.01010105.01010D21.13000000.00112233.44556677.8899AABB.CCDDEEFF");
}

TEST_F(CarriedByWav, ExtendedUmidBeginsWithTheBasicOne) {
    std::string extended = bytesOf(s_umid) + std::string(32, 'x');
    extended[12] = 0x33;
    openWith(extended);
    EXPECT_STREQ(m_read->getUmid(),
                 "urn:smpte:umid:060A2B34.01010105.01010D21.13000007.00112233.44556677.8899AABB.CCDDEEFF");
}

TEST_F(CarriedByWav, BytesThatAreNoUmidStayAPropertyAlone) {
    openWith(WavBuilder::pattern(64));
    EXPECT_EQ(m_read->getUmid(), nullptr);
    EXPECT_NE(m_read->getProperties().get(MediaPropertyEnum::Name::UmidValue), nullptr);
    EXPECT_EQ(m_read->getSourceUmid(m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, 2));
}

TEST_F(CarriedByWav, ClipPropertiesAreItsOwnCopy) {
    openWith(bytesOf(s_umid));
    std::string name = "a name that is too long to lie in the string itself";
    EXPECT_TRUE(m_read->addClipProperty(name.c_str()));
    const std::string list = name;
    name.assign(name.size(), 'x');
    EXPECT_EQ(m_read->getClipProperties(), list);
    EXPECT_TRUE(m_read->addClipProperty("two"));
    EXPECT_EQ(m_read->getClipProperties(), list + ",two");
    EXPECT_FALSE(m_read->addClipProperty("two"));
    m_read->resetClipProperties();
    EXPECT_STREQ(m_read->getClipProperties(), "");
    EXPECT_NE(m_read->getUmid(), nullptr);
}

TEST(OwnParams, KeepTextsAndBlocksOfTheirOwn) {
    OwnParams bag;
    std::string text = "text";
    std::string block("bl\0ck", 5);
    MediaProperty binary;
    binary.init(MediaPropertyEnum::Name::UmidValue);
    binary.set(block.data(), 5, false);
    EXPECT_TRUE(bag.set(ClipPropsProperty(text.c_str())).success());
    EXPECT_TRUE(bag.set(binary).success());
    EXPECT_TRUE(bag.set(MediaProperty(MediaPropertyEnum::Name::NBlack, 7u)).success());
    EXPECT_TRUE(bag.set(MediaProperty(MediaPropertyEnum::Name::CodePage, nullptr)).success());
    text = "----";
    block = "-----";
    EXPECT_STREQ(bag.get(MediaPropertyEnum::Name::ClipProps)->stringValue(), "text");
    const MediaProperty& kept = *bag.get(MediaPropertyEnum::Name::UmidValue);
    EXPECT_EQ(std::string(static_cast<const char*>(kept.memValue()), kept.nMemBytes()), std::string("bl\0ck", 5));
    EXPECT_EQ(bag.get(MediaPropertyEnum::Name::NBlack)->uintValue(), 7u);
    EXPECT_EQ(bag.get(MediaPropertyEnum::Name::CodePage)->stringValue(), nullptr);
    const std::string own = bag.get(MediaPropertyEnum::Name::ClipProps)->stringValue();
    EXPECT_TRUE(bag.set(*bag.get(MediaPropertyEnum::Name::ClipProps)).success());
    EXPECT_EQ(bag.get(MediaPropertyEnum::Name::ClipProps)->stringValue(), own);
    EXPECT_EQ(bag.getPropertyCount(), 4u);
}
