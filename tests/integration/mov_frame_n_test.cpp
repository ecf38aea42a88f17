#include <gtest/gtest.h>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"

// The frame behind the last one of movies that ffmpeg has written, for clips that end in I, P and B pictures: what is
// read is the last anchor, byte by byte, or a black frame.

namespace {

using Words = std::vector<std::string>;

Words operator+(Words list, const Words& more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

// Wants a picture behind the last one.
class Player : public MediaAgent::Properties {
public:
    const GenericProperty<MediaAgentPropId>* get(MediaAgentPropId) const override { return &m_property; }

private:
    const GenericProperty<MediaAgentPropId> m_property{MediaAgentPropId::FrameN, 1};
};

class MovFrameN : public kit::CacheScene {
protected:
    void SetUp() override {
        CacheScene::SetUp();
        m_cache.stopNews();
    }
    void TearDown() override {
        close();
        CacheScene::TearDown();
    }
    void close() {
        if (m_movie == nullptr) return;
        m_movie->close(nullptr, MediaAgent(&m_player)).discard();
        m_movie->release();
        m_movie = nullptr;
        expireAll();
    }
    void write(const std::string& name, const Words& arguments) {
        close();
        m_path = m_tree.path(name);
        movpeers::write(arguments, m_path);
        open();
    }
    void open() {
        m_movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }
    // Gives the track's one edit another length, in the movie's milliseconds; the media stays.
    void setEditLength(unsigned length) {
        close();
        std::string bytes = kit::bytesAt(m_path, 0, 1 << 20);
        const std::size_t edits = bytes.rfind("elst");
        ASSERT_NE(edits, std::string::npos);
        ASSERT_EQ(bytes.substr(edits + 4, 8), std::string("\0\0\0\0\0\0\0\1", 8));
        bytes.replace(edits + 12, 4, {'\0', '\0', static_cast<char>(length >> 8), static_cast<char>(length)});
        m_path = m_tree.write("shorter.mp4", bytes);
        open();
    }
    const MediaClipDesc& clip(unsigned track = 0) const {
        const MediaTrackDesc& desc = *m_movie->getTrackAt(track);
        return *desc.getClip(desc.getClipCount() - 1);
    }
    unsigned long long end(unsigned track = 0) const { return clip(track).getEdit(0)->getOut(); }
    bool ask(unsigned long long sample, unsigned track = 0) {
        m_result.discard();
        m_result = OpResult(OpResult::Ok);
        return clip(track).getMediaOffset(MediaPlayReq(sample, 1, MediaAgent(&m_player)), m_where, m_result);
    }
    std::string read() {
        kit::ReadHook hook;
        MediaReadReq req;
        req.m_cb = &hook;
        req.m_sample = m_where;
        OpResult result = m_movie->vaRead(req);
        EXPECT_TRUE(result.success()) << result.describe().get();
        if (!result || !hook.waitForAnswers(1)) return "nothing";
        return hook.answers()[0].m_bytes;
    }
    // The frame behind the end is the last picture before it that isn't a B; `kind` is that of the very last picture.
    void expectLastAnchor(char kind) {
        const std::vector<movpeers::Packet> packets = movpeers::packetsOf(m_path, "v:0", true);
        ASSERT_LE(end(), packets.size());
        unsigned long long anchor = end() - 1;
        EXPECT_EQ(packets[anchor].m_kind, kind);
        while (anchor > 0 && packets[anchor].m_kind == 'B')
            --anchor;
        ASSERT_TRUE(ask(end())) << m_result.describe().get();
        EXPECT_EQ(m_where.m_sample, end());
        EXPECT_EQ(m_where.m_anchor, anchor);
        EXPECT_FALSE(m_where.m_frameN);
        EXPECT_TRUE(read() == packets[anchor].m_bytes);
        EXPECT_FALSE(ask(end() + 1));
        EXPECT_TRUE(m_result);
    }

    const Player m_player;
    std::string m_path;
    MediaObj* m_movie = nullptr;
    MediaSampleInMovie m_where;
    const kit::SwitchGuard m_switches{mediaObjDbg};
};

const Words s_source = {"-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=1"};

Words pictures(const char* count, const Words& coding) { return s_source + Words{"-frames:v", count} + coding; }

const Words s_avc = {"-c:v",     "libx264", "-preset", "ultrafast",    "-g",
                     "12",       "-bf",     "2",       "-x264-params", "b-adapt=0:scenecut=0",
                     "-pix_fmt", "yuv420p"};
const Words s_mpeg = {"-c:v", "mpeg2video", "-g", "12", "-bf", "2", "-sc_threshold", "1000000000"};
const Words s_dv = {"-s", "720x576", "-c:v", "dvvideo", "-pix_fmt", "yuv420p"};

}  // namespace

TEST_F(MovFrameN, IsTheAnchorOfAvcThatEndsInB) {
    write("b.mp4", pictures("10", s_avc));
    expectLastAnchor('B');
}

TEST_F(MovFrameN, IsTheLastPictureOfAvcThatEndsInP) {
    write("p.mp4", pictures("11", s_avc + Words{"-bf", "0"}));
    expectLastAnchor('P');
}

TEST_F(MovFrameN, IsTheLastPictureOfAvcThatEndsInI) {
    write("i.mp4", pictures("13", s_avc + Words{"-bf", "0"}));
    expectLastAnchor('I');
}

TEST_F(MovFrameN, IsTheAnchorOfMpegThatEndsInB) {
    write("b.mov", pictures("10", s_mpeg));
    expectLastAnchor('B');
}

TEST_F(MovFrameN, IsTheLastPictureOfMpegThatEndsInPOrI) {
    write("p.mov", pictures("12", s_mpeg + Words{"-bf", "0"}));
    expectLastAnchor('P');
    write("i.mov", pictures("13", s_mpeg + Words{"-bf", "0"}));
    expectLastAnchor('I');
}

TEST_F(MovFrameN, IsTheLastPictureOfIntraCodings) {
    write("d.mov", pictures("3", s_dv));
    expectLastAnchor('I');
    write("p.mov", pictures("3", Words{"-c:v", "prores_ks"}));
    expectLastAnchor('I');
}

TEST_F(MovFrameN, OfFragmentsIsTheAnchorToo) {
    write("f.mp4", pictures("10", s_avc + Words{"-movflags", "frag_keyframe+empty_moov"}));
    expectLastAnchor('B');
}

TEST_F(MovFrameN, OfAClipWithARolloutIsThePictureThatTheMediaHasThere) {
    write("r.mp4", pictures("13", s_avc));
    const std::vector<movpeers::Packet> packets = movpeers::packetsOf(m_path, "v:0");
    ASSERT_EQ(packets.size(), 13u);
    setEditLength(320);
    ASSERT_EQ(clip().getLength(), 8u);
    ASSERT_EQ(clip().getRollout(), 5u);
    for (const bool black : {false, true}) {
        if (black) mediaObjDbg.setBit(MediaDbg::SynthFrameN);
        ASSERT_TRUE(ask(end())) << m_result.describe().get();
        EXPECT_EQ(m_where.m_sample, 8u);
        EXPECT_FALSE(m_where.m_frameN);
        EXPECT_EQ(m_where.m_chunks[0].m_offset, packets[8].m_at);
        EXPECT_TRUE(read() == packets[8].m_bytes);
        // Behind the last of the media there is nothing, as the clip ends elsewhere.
        EXPECT_FALSE(ask(13));
        EXPECT_TRUE(m_result);
    }
}

TEST_F(MovFrameN, IsOnlyForWhoAsksForIt) {
    write("b.mp4", pictures("10", s_avc));
    for (const bool black : {false, true}) {
        if (black) mediaObjDbg.setBit(MediaDbg::SynthFrameN);
        EXPECT_FALSE(clip().getMediaOffset(MediaPlayReq(end(), 1), m_where, m_result));
        EXPECT_TRUE(m_result);
    }
}

TEST_F(MovFrameN, IsBlackDvWhileTheSwitchIsOn) {
    write("d.mov", pictures("3", s_dv));
    ASSERT_TRUE(ask(2));
    const MediaSampleDesc last = m_where;
    mediaObjDbg.setBit(MediaDbg::SynthFrameN);
    ASSERT_TRUE(ask(3)) << m_result.describe().get();
    EXPECT_TRUE(m_where.m_frameN);
    EXPECT_EQ(m_where.m_sample, 3u);
    EXPECT_EQ(m_where.m_anchor, 2u);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, last.m_chunks[0].m_offset + 144000);
    const std::string black = read();
    ASSERT_EQ(black.size(), 144000u);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(read() == black);
    // The peer sees a black picture: every line of luminance at its lowest.
    const std::string raw = m_tree.write("black.dv", black), seen = m_tree.path("black.yuv");
    // It has a word on the timecode that isn't there.
    movpeers::write({"-v", "fatal", "-i", raw, "-f", "rawvideo", "-pix_fmt", "yuv420p"}, seen);
    EXPECT_TRUE(kit::bytesAt(seen, 0, 720 * 576) == std::string(720 * 576, '\x10'));
}

TEST_F(MovFrameN, OfACodingThatNobodyMakesIsAnErrorWhileTheSwitchIsOn) {
    write("b.mp4", pictures("10", s_avc));
    mediaObjDbg.setBit(MediaDbg::SynthFrameN);
    EXPECT_FALSE(ask(end()));
    EXPECT_TRUE(kit::isError(m_result, MediaCode::InternalError)) << m_result.describe().get();
    m_result.discard();
}

TEST_F(MovFrameN, SoundEndsWhereItEnds) {
    write("s.mov", {"-f", "lavfi", "-i", "sine=r=48000:d=0.2", "-c:a", "pcm_s16le"});
    for (const bool black : {false, true}) {
        if (black) mediaObjDbg.setBit(MediaDbg::SynthFrameN);
        EXPECT_FALSE(ask(end()));
        EXPECT_TRUE(m_result);
    }
}
