#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/unit/backends/aiff_fixture.h"
#include "tests/unit/backends/read_back.h"

// An AIFF as a movie of the library: its description, its essence, and where that ends.

using namespace AiffKit;

namespace {

const std::string s_essence = pattern(400);  // 100 samples

class AiffMovie : public kit::CacheScene {
protected:
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }

    void openBytes(const std::string& bytes) {
        const std::string path = m_tree.write("a.aiff", bytes);
        m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }
    const MediaClipDesc& clip() const { return *m_movie->getTrackAt(0)->getClip(0); }

    bool find(unsigned long long sample, unsigned count, MediaSampleInMovie& where) {
        return findSamples(clip(), sample, count, where);
    }
    std::string read(const MediaSampleInMovie& where) { return readSamples(*m_movie, where); }

    MediaObj* m_movie = nullptr;
};

}  // namespace

TEST_F(AiffMovie, IsOneAudioTrackOfOneClipInSamples) {
    const Comm comm{.m_channels = 6, .m_frames = 4410, .m_bits = 24, .m_rate = extended(44100)};
    ASSERT_NO_FATAL_FAILURE(openBytes(Aiff().comm(comm).ssnd(pattern(18 * 4410)).bytes()));
    EXPECT_EQ(m_movie->getMovieDesc()->getFileType(), MediaFileType::Aiff);
    EXPECT_EQ(m_movie->getMovieDesc()->getTimeBase(), 44100u);
    EXPECT_FALSE(m_movie->getMovieDesc()->isWritable());
    ASSERT_EQ(m_movie->getTrackCount(), 1u);
    EXPECT_EQ(m_movie->getTrackAt(0)->getDataType(), MediaDataType::Audio);
    EXPECT_EQ(m_movie->getTrackAt(0)->getLength(), 4410u);
    EXPECT_EQ(clip().getEncoding(), MediaEncodingType::Pcm);
    EXPECT_EQ(clip().getEndian(), MediaEndian::Big);
    EXPECT_EQ(clip().getSampleRate(), 44100u);
    EXPECT_EQ(clip().getChannels(), 6u);
    EXPECT_EQ(clip().getBitsPerUnit(), 24u);
    EXPECT_EQ(clip().getBitrate(), 44100u * 6 * 24);
    EXPECT_EQ(clip().getLength(), 4410u);
    EXPECT_EQ(clip().getFileType(), MediaFileType::Aiff);
    EXPECT_EQ(m_movie->getProperties().getPropertyCount(), 0u);
}

TEST_F(AiffMovie, GivesEveryByteOfItsEssence) {
    const Comm comm{.m_frames = 100, .m_coding = "sowt"};
    ASSERT_NO_FATAL_FAILURE(openBytes(Aiff("AIFC").comm(comm).ssnd(s_essence, 6).chunk("NAME", "behind").bytes()));
    EXPECT_EQ(clip().getEndian(), MediaEndian::Little);
    MediaSampleInMovie where;
    ASSERT_TRUE(find(0, 100, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, 64u);
    EXPECT_EQ(read(where), s_essence);
    ASSERT_TRUE(find(97, 50, where));
    EXPECT_EQ(where.m_count, 3u);
    EXPECT_EQ(read(where), s_essence.substr(97 * 4));
    EXPECT_FALSE(find(100, 1, where));
}

TEST_F(AiffMovie, NeverGrowsIntoWhatStandsBehindItsEssence) {
    // One says too many frames, one has more essence than frames.
    for (const std::uint32_t frames : {90u, 1000u}) {
        const std::uint32_t samples = frames < 100 ? frames : 100;
        ASSERT_NO_FATAL_FAILURE(
            openBytes(Aiff().comm({.m_frames = frames}).ssnd(s_essence).chunk("ID3 ", pattern(4000)).bytes()));
        MediaSampleInMovie where;
        for (int round = 0; round < 2; ++round) {
            EXPECT_FALSE(find(samples, 1, where)) << frames;
            ASSERT_TRUE(find(samples - 1, 1, where));
            EXPECT_EQ(read(where), s_essence.substr((samples - 1) * 4, 4));
            m_tree.append("a.aiff", s_essence);
        }
        m_movie->release();
        m_movie = nullptr;
    }
}

TEST_F(AiffMovie, WhoseEssenceStillComesGrowsUpToItsFrames) {
    const std::string body = be(0, 8) + s_essence;
    ASSERT_NO_FATAL_FAILURE(openBytes(Aiff().comm({.m_frames = 150}).claim("SSND", 0x7F000000, body).bytes()));
    MediaSampleInMovie where;
    EXPECT_EQ(clip().getLength(), 100u);
    EXPECT_FALSE(find(100, 1, where));
    m_tree.append("a.aiff", s_essence);
    EXPECT_FALSE(find(150, 1, where)) << "what stands behind the claim is no essence";
    ASSERT_TRUE(find(100, 50, where));
    EXPECT_EQ(read(where), s_essence.substr(0, 200));
}

TEST_F(AiffMovie, WithoutASampleOpensEmpty) {
    ASSERT_NO_FATAL_FAILURE(openBytes(Aiff().comm({.m_frames = 0}).bytes()));
    MediaSampleInMovie where;
    EXPECT_EQ(clip().getLength(), 0u);
    EXPECT_FALSE(find(0, 1, where));
}

TEST_F(AiffMovie, HasNoFurtherTrackOrClip) {
    ASSERT_NO_FATAL_FAILURE(openBytes(Aiff().comm({.m_frames = 100}).ssnd(s_essence).bytes()));
    EXPECT_EQ(m_movie->createTrack(MediaClipParam(), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_EQ(m_movie->getTrackAt(0)->createClip(MediaClipParam(), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
}

TEST_F(AiffMovie, OfARefusedCodingSaysWhyThroughTheLibrary) {
    const std::string path =
        m_tree.write("a.aiff", Aiff("AIFC").comm({.m_bits = 32, .m_coding = "fl32"}).ssnd(pattern(80)).bytes());
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "aiff: samples of coding \"fl32\" are not supported");
}

TEST_F(AiffMovie, IsNotOpenedForWriting) {
    const std::string path = m_tree.write("a.aiff", Aiff().comm({.m_frames = 100}).ssnd(s_essence).bytes());
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "aiff: a finished file is opened for reading only");
}
