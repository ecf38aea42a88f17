#include "backends/dv/dv_recording.h"
#include "tests/unit/backends/dv_fixture.h"
#include "tests/unit/backends/recording_fixture.h"

// DV streams that are recorded: frames and nothing else, with the sound that rides in them.

using namespace RecordKit;
using DvKit::Frame;

namespace {

constexpr MediaFileType s_dv = MediaFileType::Dv;

class DvRecorded : public RecordScene {
protected:
    // What a stream of such frames is described as when it is read.
    void learn(const std::string& stream) {
        MediaObj* const source =
            MediaObj::openReader(m_tree.write("source.dv", stream).c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(source, nullptr) << m_result.describe().get();
        m_video = source->getTrackAt(0)->getParam();
        if (source->getTrackCount() > 1) m_sound = source->getTrackAt(1)->getParam();
        source->release();
    }
    void startBoth(const std::string& stream) {
        learn(stream);
        start("a.dv", m_video);
        MediaTrackDesc* const sound = m_movie->createTrack(m_sound, m_result);
        ASSERT_NE(sound, nullptr) << m_result.describe().get();
        ASSERT_NE(sound->createClip(m_sound, m_result), nullptr) << m_result.describe().get();
    }
    void recordFrames(const std::string& stream, bool async = false) {
        for (std::size_t at = 0; at < stream.size(); at += m_size) {
            const MediaSampleInMovie where = add(1);
            OpResult result = async ? m_movie->vaWrite(where, kit::obufOf(stream.substr(at, m_size)))
                                    : write(where, stream.substr(at, m_size));
            ASSERT_TRUE(result.success()) << result.describe().get();
        }
    }
    bool addTo(unsigned track, const MediaRecordReq& req) {
        MediaSampleInMovie where;
        m_result.discard();
        return m_movie->getTrackAt(track)->addSamples(req, where, m_result);
    }

    MediaClipParam m_video, m_sound;
};

class DvRecordedOfSystem : public DvRecorded, public testing::WithParamInterface<unsigned> {};

MediaRecordReq frameReq(unsigned long long frame, unsigned count, unsigned size) {
    SampleInfo info;
    info.reset(size);
    return MediaRecordReq(frame, count, info);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Systems, DvRecordedOfSystem, testing::Range(0u, s_dvSystemCount));

TEST_P(DvRecordedOfSystem, IsNothingButItsFramesAndDescribesItselfAlike) {
    const DvSystem& system = DvKit::system(GetParam());
    const std::string stream = DvKit::stream(system, 7);
    startBoth(stream);
    recordFrames(stream.substr(0, 3 * m_size));
    recordFrames(stream.substr(3 * m_size), true);
    MediaObj* const recorded = m_movie;
    recorded->preserve();
    endRecording();
    EXPECT_TRUE(file() == stream);

    MediaObj* const parsed = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, s_dv, true);
    ASSERT_NE(parsed, nullptr) << m_result.describe().get();
    EXPECT_NE(parsed, recorded);
    EXPECT_EQ(describe(*parsed), describe(*recorded));
    ASSERT_EQ(parsed->getTrackCount(), 2u);
    for (unsigned frame = 0; frame < 8; ++frame) {
        for (const unsigned track : {0u, 1u}) {
            const MediaClipDesc& before = *recorded->getTrackAt(track)->getClip(0);
            const MediaClipDesc& after = *parsed->getTrackAt(track)->getClip(0);
            const SampleAndCount samples = after.getSampleAndCount(frame);
            const MediaPlayReq req(samples.m_sample, samples.m_count);
            MediaSampleInMovie one, other;
            EXPECT_EQ(before.getMediaOffset(req, one, m_result), after.getMediaOffset(req, other, m_result));
            EXPECT_EQ(one.m_chunks[0].m_offset, other.m_chunks[0].m_offset);
            EXPECT_EQ(one.m_chunks[0].m_size, other.m_chunks[0].m_size);
            EXPECT_EQ(one.m_count, other.m_count);
        }
    }
    parsed->release();
    recorded->release();
}

TEST_F(DvRecorded, SoundFollowsItsFramesToTheTick) {
    startBoth(DvKit::stream(DvKit::system(DvKit::Ntsc25), 1));
    for (unsigned frame = 0; frame < 50; ++frame) {
        EXPECT_TRUE(addTo(0, frameReq(frame, 1, m_size)));
        EXPECT_EQ(m_movie->getTrackAt(0)->getLength(), 1001u * (frame + 1));
        EXPECT_EQ(m_movie->getTrackAt(1)->getLength(), 1001u * (frame + 1));
    }
    EXPECT_EQ(m_movie->getTrackAt(1)->getClip(0)->getLength(), 80080u);
    EXPECT_EQ(m_movie->getMovieDesc()->getMaxTrackLength(), 50050u);
}

TEST_F(DvRecorded, TellsNoPlaceOfFramesOrSoundThatAreNotWritten) {
    const std::string stream = DvKit::stream(DvKit::system(DvKit::Pal420), 2);
    startBoth(stream);
    const MediaClipDesc& sound = *m_movie->getTrackAt(1)->getClip(0);
    const auto isSoundThere = [&](unsigned frame) {
        MediaSampleInMovie where;
        return sound.getMediaOffset(MediaPlayReq(frame * 1920ull, 1920), where, m_result);
    };
    const MediaSampleInMovie first = add(1), second = add(1);
    EXPECT_FALSE(isThere(0, 1));
    EXPECT_FALSE(isSoundThere(0));
    ASSERT_TRUE(write(second, stream.substr(m_size)).success());
    EXPECT_FALSE(isSoundThere(0));
    EXPECT_TRUE(isSoundThere(1));
    EXPECT_TRUE(isThere(1, 1));
    {
        const HeldWrites held;
        ASSERT_TRUE(m_movie->vaWrite(first, kit::obufOf(stream.substr(0, m_size))).success());
        EXPECT_FALSE(isThere(0, 1));
        EXPECT_FALSE(isSoundThere(0));
    }
    EXPECT_TRUE(arrives(0, 1));
    EXPECT_TRUE(isSoundThere(0));
    EXPECT_FALSE(isSoundThere(2));
}

TEST_F(DvRecorded, WithoutATrackOfSoundHasItsFramesAlone) {
    const std::string stream = DvKit::stream(DvKit::system(DvKit::Pal420), 3);
    learn(stream);
    start("a.dv", m_video);
    recordFrames(stream);
    EXPECT_EQ(m_movie->getTrackCount(), 1u);
    endRecording();
    EXPECT_TRUE(file() == stream);
}

TEST_F(DvRecorded, TakesFramesOneByOneAndSoundOnlyWithThem) {
    startBoth(DvKit::stream(DvKit::system(DvKit::Pal420), 1));
    EXPECT_FALSE(addTo(0, frameReq(0, 2, 2 * m_size)));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "dv: frames are entered one by one");
    EXPECT_FALSE(addTo(0, frameReq(0, 1, m_size - 1)));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_FALSE(addTo(1, frameReq(0, 1920, m_size)));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "dv: sound is entered with its frame");
    m_result.discard();
}

TEST_F(DvRecorded, RefusesWhatNoSystemCarries) {
    learn(DvKit::stream(DvKit::system(DvKit::Pal420), 1));
    MediaObj* const movie = create(m_tree.path("a.dv"));
    ASSERT_NE(movie, nullptr) << m_result.describe().get();
    const auto refusal = [&](const MediaClipParam& param, int code) {
        m_result.discard();
        EXPECT_EQ(movie->createTrack(param, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, code));
        return std::string(m_result.getMessage());
    };
    EXPECT_EQ(refusal(m_sound, MediaCode::OperationUnsupported),
              "dv: the frames' track comes before that of their sound");
    MediaClipParam other(m_video);
    other.m_width = 704;
    EXPECT_EQ(refusal(other, MediaCode::UnsupportedMediaType), "dv: no system of DV has these parameters");
    other = m_video;
    other.m_encoding = MediaEncodingType::Mpeg;
    EXPECT_EQ(refusal(other, MediaCode::UnsupportedMediaType), "dv: a track of DV is video or audio of encoding dv");
    MediaTrackDesc* const track = movie->createTrack(m_video, m_result);
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(refusal(m_video, MediaCode::OperationUnsupported), "dv: there is such a track already");
    other = m_sound;
    other.m_channels = 3;
    EXPECT_EQ(refusal(other, MediaCode::UnsupportedMediaType), "dv: the frames have no room for such sound");
    EXPECT_EQ(track->createClip(m_sound, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "dv: the clip is of another kind than its track");
    m_result.discard();
    movie->release(MediaAgent(nullptr), true);
}

TEST_F(DvRecorded, TakesNoTrackOnceThereAreFrames) {
    const std::string stream = DvKit::stream(DvKit::system(DvKit::Pal420), 1);
    learn(stream);
    start("a.dv", m_video);
    recordFrames(stream);
    EXPECT_EQ(m_movie->createTrack(m_sound, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "dv: frames have been recorded already");
    m_result.discard();
}

TEST_F(DvRecorded, IsNotMadeOverAFileThatIsThere) {
    const std::string path = m_tree.write("a.dv", "somebody's");
    refuse(path, MediaCode::FileExists, "dv: " + path + " is there already and is not overwritten");
    EXPECT_EQ(kit::bytesAt(path, 0, 100), "somebody's");
}

TEST_F(DvRecorded, WhoseEmptyFileAnotherProcessHasBegunIsRefused) {
    learn(DvKit::stream(DvKit::system(DvKit::Pal420), 1));
    const std::string path = m_tree.write("a.dv", "");
    MediaObj* const movie = create(path);
    ASSERT_NE(movie, nullptr);
    MediaTrackDesc* const track = movie->createTrack(m_video, m_result);
    ASSERT_NE(track, nullptr);
    m_tree.append("a.dv", "somebody's");
    EXPECT_EQ(track->createClip(m_video, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::FileExists));
    movie->release(MediaAgent(nullptr), true);
    EXPECT_EQ(kit::bytesAt(path, 0, 100), "somebody's");
}
