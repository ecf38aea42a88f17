#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/unit/backends/read_back.h"
#include "tests/unit/backends/wav_fixture.h"

// A WAV as a movie of the library: its description, its properties, its index and how that follows a growing file.

using namespace WavKit;

namespace {

constexpr std::uint32_t s_unknown = WavBuilder::s_unknownSize;

const std::string s_essence = WavBuilder::pattern(400);  // 100 samples

class WavMovie : public WavScene {
protected:
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        WavScene::TearDown();
    }

    void openBytes(const std::string& bytes) { m_movie = openWav(m_tree.write("a.wav", bytes)); }
    const MediaClipDesc& clip() const { return *m_movie->getTrackAt(0)->getClip(0); }
    unsigned long long samples() const {
        return static_cast<const FixedMediaLookup*>(clip().getLookup())->getNumSamples();
    }

    bool find(unsigned long long sample, unsigned count, MediaSampleInMovie& where) {
        return findSamples(clip(), sample, count, where);
    }
    std::string read(const MediaSampleInMovie& where) { return readSamples(*m_movie, where); }

    MediaObj* m_movie = nullptr;
};

}  // namespace

TEST_F(WavMovie, IsOneAudioTrackOfOneClipInSamples) {
    openBytes(WavBuilder()
                  .fmt({.m_channels = 6, .m_rate = 44100, .m_bits = 24})
                  .data(WavBuilder::pattern(18 * 44100))
                  .bytes());
    const MediaMovieDesc& desc = *m_movie->getMovieDesc();
    EXPECT_EQ(desc.getFileType(), MediaFileType::Wav);
    EXPECT_EQ(desc.getTimeBase(), 44100u);
    EXPECT_EQ(desc.getMaxTrackLength(), 44100u);
    EXPECT_FALSE(desc.isWritable());
    EXPECT_FALSE(m_movie->isRecording());
    EXPECT_FALSE(m_movie->isStream());
    EXPECT_EQ(m_movie->getContainment(), MediaContainment::Embedded);
    ASSERT_EQ(m_movie->getTrackCount(), 1u);
    EXPECT_EQ(m_movie->getTrackAt(1), nullptr);
    const MediaTrackDesc& track = *m_movie->getTrackAt(0);
    EXPECT_EQ(track.getDataType(), MediaDataType::Audio);
    EXPECT_EQ(track.getLength(), 44100u);
    EXPECT_EQ(track.getClipCount(), 1u);
    EXPECT_EQ(track.getClip(1), nullptr);
    EXPECT_EQ(clip().getEncoding(), MediaEncodingType::Pcm);
    EXPECT_EQ(clip().getSampleRate(), 44100u);
    EXPECT_EQ(clip().getTicksPerSample(), 1u);
    EXPECT_EQ(clip().getChannels(), 6u);
    EXPECT_EQ(clip().getBitsPerUnit(), 24u);
    EXPECT_EQ(clip().getMaxBitsPerSample(), 24u);
    EXPECT_EQ(clip().getEndian(), MediaEndian::Little);
    EXPECT_EQ(clip().getBitrate(), 44100u * 6 * 24);
    EXPECT_EQ(clip().getLength(), 44100u);
    EXPECT_EQ(clip().getFileType(), MediaFileType::Wav);
    EXPECT_EQ(clip().getMediaId(), m_movie->getMediaId(0));
    EXPECT_EQ(&clip().getObj(), m_movie);
    EXPECT_STREQ(clip().toString().get(), "audio,pcm,6chan,44khz,lendian,24bpu,6350400bps,len=44100");
}

TEST_F(WavMovie, OfALawSaysSo) {
    openBytes(WavBuilder().fmt({.m_tag = 6, .m_channels = 1, .m_rate = 8000, .m_bits = 8}).data(s_essence).bytes());
    EXPECT_EQ(clip().getEncoding(), MediaEncodingType::ALaw);
    EXPECT_EQ(clip().getFileType(), MediaFileType::Wav);
    EXPECT_EQ(clip().getLength(), 400u);
    EXPECT_EQ(m_movie->getMovieDesc()->getFileType(), MediaFileType::Wav);
}

TEST_F(WavMovie, OfTheLargestRateHasTheLargestBitrateThatFits) {
    openBytes(WavBuilder()
                  .fmt({.m_channels = 32, .m_rate = 0xFFFFFFFF, .m_bits = 32})
                  .data(WavBuilder::pattern(1280))
                  .bytes());
    EXPECT_EQ(clip().getBitrate(), 0xFFFFFFFFu);
    EXPECT_EQ(clip().getSampleRate(), 0xFFFFFFFFu);
    EXPECT_EQ(clip().getLength(), 10u);
    EXPECT_EQ(m_movie->getFrameLength(), 0u);
}

TEST_F(WavMovie, WithoutASampleOpensEmpty) {
    openBytes(WavBuilder().fmt().data("").chunk("LIST", "INFO").bytes());
    MediaSampleInMovie where;
    EXPECT_EQ(clip().getLength(), 0u);
    EXPECT_FALSE(find(0, 1, where));
    EXPECT_EQ(m_movie->getFrameLength(), 0u);
}

TEST_F(WavMovie, HasNoFurtherTrackOrClip) {
    openBytes(WavBuilder().fmt().data(s_essence).bytes());
    EXPECT_EQ(m_movie->createTrack(MediaClipParam(), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_EQ(m_movie->getTrackAt(0)->createClip(MediaClipParam(), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
}

TEST_F(WavMovie, IsNotOpenedForWriting) {
    const std::string path = m_tree.write("a.wav", WavBuilder().fmt().data(s_essence).bytes());
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "wav: a finished file is opened for reading only");
}

TEST_F(WavMovie, IsSharedWhileItsFileStaysAsItIs) {
    openBytes(WavBuilder().fmt().data(s_essence).bytes());
    MediaObj* again = openWav(m_tree.path("a.wav"));
    EXPECT_EQ(again, m_movie);
    again->release();
}

TEST_F(WavMovie, IsParsedAgainWhenItsFileHasChanged) {
    openBytes(WavBuilder().fmt().data(s_essence).bytes());
    m_tree.write("a.wav", WavBuilder().fmt().data(s_essence + s_essence).bytes());
    MediaObj* again = openWav(m_tree.path("a.wav"));
    EXPECT_NE(again, m_movie);
    EXPECT_EQ(again->getTrackAt(0)->getLength(), 200u);
    again->release();
}

TEST_F(WavMovie, KeepsTheTimeReferenceAndTheUmid) {
    const std::string umid = WavBuilder::pattern(64);
    const WavBext bext{.m_timeReference = 0x1234567890ull, .m_umid = umid};
    for (const bool behind : {false, true}) {
        WavBuilder wav;
        if (!behind) wav.bext(bext);
        wav.fmt().data(s_essence);
        if (behind) wav.bext(bext);
        MediaObj* movie = openWav(m_tree.write("a.wav", wav.bytes()));
        const MediaPropertyList& properties = movie->getProperties();
        MediaProperty reference;
        reference.init(MediaPropertyEnum::Name::FirstFrame, MediaPropertyEnum::Type::Unsigned64, 0x1234567890ull);
        const MediaProperty* kept = properties.get(MediaPropertyEnum::Name::FirstFrame);
        ASSERT_NE(kept, nullptr);
        EXPECT_TRUE(*kept == reference);
        const MediaProperty* id = properties.get(MediaPropertyEnum::Name::UmidValue);
        ASSERT_NE(id, nullptr);
        EXPECT_EQ(std::string(static_cast<const char*>(id->memValue()), id->nMemBytes()), umid);
        movie->release();
    }
}

TEST_F(WavMovie, WithoutBextHasNoProperties) {
    openBytes(WavBuilder().fmt().data(s_essence).bytes());
    EXPECT_EQ(m_movie->getProperties().getPropertyCount(), 0u);
}

TEST_F(WavMovie, GivesEveryByteOfItsEssence) {
    openBytes(WavBuilder().chunk("JUNK", "abc").fmt().data(s_essence).chunk("LIST", "INFO").bytes());
    MediaSampleInMovie where;
    ASSERT_TRUE(find(0, 100, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, 56u);
    EXPECT_EQ(read(where), s_essence);
    ASSERT_TRUE(find(97, 50, where));
    EXPECT_EQ(where.m_count, 3u);
    EXPECT_EQ(read(where), s_essence.substr(97 * 4));
    ASSERT_TRUE(find(99, 1, where));
    EXPECT_EQ(read(where), s_essence.substr(99 * 4));
    EXPECT_FALSE(find(98, 50, where));
}

TEST_F(WavMovie, WhoseFileHasLostItsTailReadsShortWithAText) {
    openBytes(WavBuilder().fmt().data(s_essence).bytes());
    MediaSampleInMovie where;
    ASSERT_TRUE(find(50, 50, where));
    m_tree.write("a.wav", WavBuilder().fmt().data(s_essence).bytes().substr(0, 44 + 240));
    MediaIoBuf buffer;
    m_result = m_movie->vsRead(where, buffer);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::ReadError));
    EXPECT_EQ(m_result.getMessage(),
              "MediaFileList::read(" + m_tree.path("a.wav") + ",c[0]=200b@244)-->40b, fileSz=284");
}

TEST_F(WavMovie, OfARecorderGrowsWithItsFile) {
    for (const std::uint32_t size : {0u, s_unknown}) {
        const std::string name = "grow" + std::to_string(size) + ".wav";
        m_movie = openWav(m_tree.write(name, WavBuilder().fmt().claim("data", size, s_essence).bytes()));
        MediaSampleInMovie where;
        EXPECT_FALSE(find(100, 1, where));
        EXPECT_EQ(samples(), 100u);
        m_tree.append(name, s_essence.substr(0, 6));
        ASSERT_TRUE(find(100, 1, where));
        EXPECT_EQ(samples(), 101u);
        EXPECT_EQ(read(where), s_essence.substr(0, 4));
        EXPECT_FALSE(find(101, 1, where)) << "half a sample is none";
        m_tree.append(name, s_essence.substr(6));
        ASSERT_TRUE(find(101, 99, where));
        EXPECT_EQ(read(where), s_essence.substr(4));
        EXPECT_EQ(samples(), 200u);
        m_movie->release();
        m_movie = nullptr;
    }
}

TEST_F(WavMovie, ThatHasJustBegunGrowsFromNothing) {
    openBytes(WavBuilder().fmt().claim("data", 0).bytes());
    MediaSampleInMovie where;
    EXPECT_FALSE(find(0, 1, where));
    m_tree.append("a.wav", s_essence);
    ASSERT_TRUE(find(0, 100, where));
    EXPECT_EQ(read(where), s_essence);
}

TEST_F(WavMovie, ThatClaimsMoreThanItHasGrowsUpToItsClaim) {
    openBytes(WavBuilder().fmt().claim("data", 600, s_essence).bytes());
    MediaSampleInMovie where;
    EXPECT_EQ(clip().getLength(), 100u);
    m_tree.append("a.wav", s_essence);
    EXPECT_FALSE(find(150, 1, where)) << "what stands behind the claim is no essence";
    EXPECT_EQ(samples(), 150u);
    ASSERT_TRUE(find(149, 1, where));
}

TEST_F(WavMovie, ThatIsFinishedNeverGrowsIntoWhatStandsBehind) {
    openBytes(WavBuilder().fmt().data(s_essence).chunk("LIST", std::string(400, 'x')).bytes());
    MediaSampleInMovie where;
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(find(100, 1, where));
        EXPECT_EQ(samples(), 100u);
        m_tree.append("a.wav", s_essence);
    }
}
