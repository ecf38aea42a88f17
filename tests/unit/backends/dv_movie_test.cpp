#include <cstring>
#include <filesystem>

#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/media_format.h"
#include "tests/unit/backends/dv_fixture.h"
#include "tests/unit/backends/read_back.h"

// A DV stream as a movie of the library: its description, its index, how that follows a growing file, and its frames
// for others.

using namespace DvKit;

namespace {

class DvMovie : public DvScene {
protected:
    const MediaTrackDesc& video() const { return *m_movie->getTrackAt(0); }
    const MediaTrackDesc& audio() const { return *m_movie->getTrackAt(1); }
    const MediaClipDesc& picture() const { return *video().getClip(0); }
    const MediaClipDesc& sounds() const { return *audio().getClip(0); }

    std::string read(const MediaSampleInMovie& where) { return readSamples(*m_movie, where); }
    std::string readFrame(unsigned long long frame) {
        MediaSampleInMovie where;
        return findSamples(picture(), frame, 1, where) ? read(where) : "";
    }
};

std::string bytesOf(const MediaIoBuf& buf) {
    return std::string(reinterpret_cast<const char*>(buf.getMem()), buf.size());
}

// A movie without a file, and the tracks and clips that it is asked for.
class DvObject : public kit::CacheScene {
protected:
    void SetUp() override {
        m_object = MediaObj::openObj(MediaFileType::Dv, m_result);
        ASSERT_NE(m_object, nullptr) << m_result.describe().get();
    }
    void TearDown() override {
        m_result.discard();
        m_object->release();
        CacheScene::TearDown();
    }
    static MediaClipParam videoParam(MediaVideoRate rate = MediaVideoRate::Pal25) {
        MediaClipParam param;
        EXPECT_TRUE(param.initVideo(MediaFileType::Dv, MediaEncodingType::Dv, rate));
        return param;
    }
    MediaClipDesc* make(const MediaClipParam& param) {
        MediaTrackDesc* track = m_object->createTrack(param, m_result);
        return track != nullptr ? track->createClip(param, m_result) : nullptr;
    }

    MediaObj* m_object = nullptr;
};

}  // namespace

TEST_F(DvMovie, IsAVideoTrackAndAnAudioTrackOnATimeBaseThatCountsFrames) {
    openBytes(stream(system(Ntsc25), 7));
    const MediaMovieDesc& desc = *m_movie->getMovieDesc();
    EXPECT_EQ(desc.getFileType(), MediaFileType::Dv);
    EXPECT_EQ(desc.getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(desc.getStandard(), MediaVideoRate::Ntsc2997);
    EXPECT_EQ(desc.getTimeBase(), 30000u);
    EXPECT_EQ(desc.getMaxTrackLength(), 7007u);
    EXPECT_FALSE(desc.isWritable());
    EXPECT_FALSE(m_movie->isStream());
    EXPECT_EQ(m_movie->getContainment(), MediaContainment::Embedded);
    EXPECT_EQ(m_movie->calcEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(m_movie->getVideoSequenceCoding(), SequenceCodingType::Intra);
    EXPECT_EQ(m_movie->getMovieGopLength(), 0u);
    EXPECT_EQ(m_movie->getVideoRate(), MediaVideoRate::Ntsc2997);
    EXPECT_EQ(m_movie->getFrameLength(), 7u);
    ASSERT_EQ(m_movie->getTrackCount(), 2u);
    EXPECT_EQ(m_movie->getTrackAt(2), nullptr);
    EXPECT_EQ(video().getTrackIndex(), 0u);
    EXPECT_EQ(audio().getTrackIndex(), 1u);
    EXPECT_EQ(video().getLength(), 7007u);
    EXPECT_EQ(audio().getLength(), 7007u);
    EXPECT_EQ(audio().getFrameLength(), 7u);
    EXPECT_EQ(m_movie->commonId(), m_movie->getMediaId(0));
}

TEST_F(DvMovie, VideoClipIsDescribedByTheSystem) {
    openBytes(Frame(system(Pal420), sound(2), false, MediaAspectRatio::Ratio16x9).bytes());
    EXPECT_EQ(video().getDataType(), MediaDataType::Video);
    EXPECT_EQ(video().getVideoRate(), MediaVideoRate::Pal25);
    EXPECT_EQ(video().getWidth(), 720u);
    EXPECT_EQ(video().getHeight(), 576u);
    EXPECT_EQ(video().getAspectRatio(), MediaAspectRatio::Ratio16x9);
    EXPECT_EQ(video().getProperties().getPropertyCount(), 0u);
    const MediaClipDesc& clip = picture();
    EXPECT_EQ(clip.getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(clip.getChroma(), MediaChromaSample::C420);
    EXPECT_EQ(clip.getVscan(), MediaVideoScanType::Interlaced);
    EXPECT_EQ(clip.getSampleRate(), 25u);
    EXPECT_EQ(clip.getTicksPerSample(), 1u);
    EXPECT_EQ(clip.getBitrate(), 28800000u);
    EXPECT_EQ(clip.getMaxBitsPerSample(), 144000u * 8);
    EXPECT_EQ(clip.getBitsPerUnit(), 8u);
    EXPECT_EQ(clip.getChannels(), 1u);
    EXPECT_EQ(clip.getMinSamples(), 1u);
    EXPECT_EQ(clip.getLength(), 1u);
    EXPECT_EQ(clip.getFileType(), MediaFileType::Dv);
    EXPECT_EQ(clip.getLookup()->getFixedSize(), 144000u);
    EXPECT_FALSE(clip.isSlave());
    EXPECT_EQ(MediaSampleBuf(clip).size(), 144000u);
}

TEST_F(DvMovie, AudioClipIsASlaveOfTheVideoClip) {
    openBytes(stream(system(Ntsc25), 6));
    const MediaClipDesc& clip = sounds();
    EXPECT_EQ(audio().getDataType(), MediaDataType::Audio);
    EXPECT_TRUE(clip.isSlave());
    EXPECT_TRUE(audio().isSlave());
    EXPECT_FALSE(video().isSlave());
    EXPECT_EQ(picture().getSlaveClip(), &clip);
    EXPECT_EQ(m_movie->getTrackAt(0)->getSlaveTrack(), &audio());
    EXPECT_EQ(clip.getSlaveClip(), nullptr);
    EXPECT_EQ(clip.getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(clip.getSampleRate(), 48000u);
    EXPECT_EQ(clip.getTicksPerSample(), 1u);
    EXPECT_EQ(clip.getChannels(), 2u);
    EXPECT_EQ(clip.getBitsPerUnit(), 16u);
    EXPECT_EQ(clip.getMinSamples(), 1602u);
    EXPECT_EQ(clip.getLength(), 8008u + 1600u);
    EXPECT_EQ(clip.getLookup()->getFixedSize(), 120000u);
    EXPECT_EQ(MediaSampleBuf(clip).size(), 1602u * 2 * 2);
}

TEST_F(DvMovie, WithoutSoundHasNoAudioTrack) {
    openBytes(Frame(system(Pal420), sound(0)).bytes());
    EXPECT_EQ(m_movie->getTrackCount(), 1u);
    EXPECT_EQ(picture().getSlaveClip(), nullptr);
    EXPECT_EQ(m_movie->getTrackAt(0)->getSlaveTrack(), nullptr);
}

TEST_F(DvMovie, NamesTheProfessionalKind) {
    openBytes(Frame(system(Ntsc50)).bytes());
    const MediaProperty* pro = video().getProperty(MediaPropertyEnum::Name::DvcPro);
    ASSERT_NE(pro, nullptr);
    EXPECT_EQ(pro->uintValue(), 1u);
}

TEST_F(DvMovie, AnswersTheTimecodeOfItsFirstFrame) {
    openBytes(Frame(system(Ntsc25)).timecode(0x44, 0x03, 0x02, 0x01).bytes());
    const MediaTimecode timecode = m_movie->getTimecode();
    EXPECT_TRUE(timecode.isValid());
    EXPECT_STREQ(timecode.toString().get(), "01:02:03.04");
    EXPECT_TRUE(timecode.m_dropFrame);
    MediaTimecode counted;
    counted.setCounter(timecode.getCounter(), timecode.m_rate, true);
    EXPECT_STREQ(counted.toString().get(), "01:02:03.04");
}

TEST_F(DvMovie, EveryFrameIsReadAsItLies) {
    const std::string bytes = stream(system(Ntsc25), 9, 40);
    openBytes(bytes.substr(100));
    EXPECT_EQ(m_movie->getFrameLength(), 8u);
    for (unsigned frame = 0; frame < 8; ++frame)
        EXPECT_TRUE(readFrame(frame) == bytes.substr((frame + 1) * 120000, 120000)) << frame;
    MediaSampleInMovie where;
    EXPECT_FALSE(findSamples(picture(), 8, 1, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, 119900u + 8 * 120000u);
}

TEST_F(DvMovie, CountsEveryFrameOfADayExactly) {
    constexpr unsigned long long frames = 2589408;  // 24 hours of 29.97 Hz
    const std::string path = m_tree.write("day.dv", stream(system(Ntsc25), 1));
    std::error_code failure;
    std::filesystem::resize_file(path, frames * 120000, failure);
    if (failure) GTEST_SKIP() << "no sparse file of that size: " << failure.message();
    m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(m_movie, nullptr);
    EXPECT_EQ(m_movie->getFrameLength(), frames);
    EXPECT_EQ(video().getFrameLength(), frames);
    EXPECT_EQ(audio().getFrameLength(), frames);
    EXPECT_EQ(video().getLength(), frames * 1001);
    EXPECT_EQ(sounds().getLength(), sounds().getSampleAndCount(frames).m_sample);
    MediaSampleInMovie where;
    ASSERT_TRUE(findSamples(picture(), frames - 1, 1, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, (frames - 1) * 120000);
    EXPECT_EQ(where.m_chunks[0].m_size, 120000u);
    EXPECT_FALSE(findSamples(picture(), frames, 1, where));
}

TEST_F(DvMovie, SoundIsAddressedByTheFrameThatItRidesIn) {
    openBytes(stream(system(Ntsc25), 12));
    for (unsigned frame = 0; frame < 12; ++frame) {
        const SampleAndCount samples = sounds().getSampleAndCount(frame);
        MediaSampleInMovie where;
        ASSERT_TRUE(findSamples(sounds(), samples.m_sample, samples.m_count, where)) << frame;
        EXPECT_EQ(where.m_numChunks, 1u);
        EXPECT_EQ(where.m_chunks[0].m_offset, frame * 120000u);
        EXPECT_EQ(where.m_chunks[0].m_size, 120000u);
        EXPECT_TRUE(read(where) == readFrame(frame));
    }
    MediaSampleInMovie where;
    const SampleAndCount behind = sounds().getSampleAndCount(12);
    EXPECT_EQ(behind.m_sample, sounds().getLength());
    EXPECT_FALSE(findSamples(sounds(), behind.m_sample, behind.m_count, where));
}

TEST_F(DvMovie, SoundIsFoundInItsFrameHoweverFarOn) {
    constexpr unsigned long long frames = 107892;  // an hour of 29.97 Hz, past 4 GiB
    const std::string path = m_tree.write("hour.dv", stream(system(Ntsc25), 1));
    std::error_code failure;
    std::filesystem::resize_file(path, frames * 120000, failure);
    if (failure) GTEST_SKIP() << "no sparse file of that size: " << failure.message();
    m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(m_movie, nullptr);
    // Among them those where a count times a sample number is half a frame off, and all of the last ones.
    for (unsigned long long frame = 0; frame < frames; frame += frame < frames - 60 ? 7 : 1) {
        const SampleAndCount samples = sounds().getSampleAndCount(frame);
        MediaSampleInMovie where;
        ASSERT_TRUE(findSamples(sounds(), samples.m_sample, samples.m_count, where)) << frame;
        ASSERT_EQ(where.m_chunks[0].m_offset, frame * 120000) << frame;
        ASSERT_EQ(where.m_chunks[0].m_size, 120000u);
        ASSERT_EQ(where.m_sample, samples.m_sample);
        ASSERT_EQ(where.m_anchor, samples.m_sample);
        ASSERT_EQ(where.m_count, samples.m_count);
    }
}

TEST_F(DvMovie, SoundThatIsNotCutByTheCadenceIsFoundInTheNearestFrame) {
    openBytes(stream(system(Ntsc25), 6));
    MediaSampleInMovie where;
    ASSERT_TRUE(findSamples(sounds(), 3204, 1602, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, 240000u);
    ASSERT_TRUE(findSamples(sounds(), 3202, 1600, where));
    EXPECT_EQ(where.m_chunks[0].m_offset, 240000u);
    EXPECT_FALSE(findSamples(sounds(), 0, 0, where));
    EXPECT_FALSE(findSamples(sounds(), 0xFFFFFFFFFFFFFFFFull, 1602, where));
}

TEST_F(DvMovie, SoundFollowsAStreamThatGrows) {
    const std::string bytes = stream(system(Ntsc25), 5);
    openBytes(bytes.substr(0, 120000 * 2));
    const SampleAndCount last = sounds().getSampleAndCount(4);
    MediaSampleInMovie where;
    EXPECT_FALSE(findSamples(sounds(), last.m_sample, last.m_count, where));
    m_tree.append("a.dv", bytes.substr(120000 * 2));
    ASSERT_TRUE(findSamples(sounds(), last.m_sample, last.m_count, where));
    EXPECT_TRUE(read(where) == bytes.substr(120000 * 4));
}

TEST_F(DvMovie, FollowsAStreamThatGrows) {
    const std::string bytes = stream(system(Pal420), 5);
    openBytes(bytes.substr(0, 144000 * 2 + 7));
    MediaSampleInMovie where;
    EXPECT_FALSE(findSamples(picture(), 2, 1, where));
    m_tree.append("a.dv", bytes.substr(144000 * 2 + 7));
    EXPECT_TRUE(findSamples(picture(), 4, 1, where));
    EXPECT_FALSE(findSamples(picture(), 5, 1, where));
    EXPECT_TRUE(readFrame(3) == bytes.substr(144000 * 3, 144000));
}

TEST_F(DvMovie, IsSafeToReadUpToTheLastFrameThatItsFileHolds) {
    openBytes(stream(system(Pal420), 5));
    std::filesystem::resize_file(m_tree.path("a.dv"), 144000 * 3 + 7);
    EXPECT_EQ(m_movie->getFrameLength(), 5u);
    // The sound rides on the frames and takes none of them away.
    EXPECT_EQ(m_movie->getReadSafeFrameLength(), 3u);
    m_tree.append("a.dv", std::string(144000, 'x'));
    EXPECT_EQ(m_movie->getReadSafeFrameLength(), 4u);
}

TEST_F(DvMovie, NeverShowsWhatFollowsAChangeOfTheSystem) {
    openBytes(stream(system(Pal420), 4) + stream(system(Ntsc25), 12));
    EXPECT_EQ(m_movie->getFrameLength(), 4u);
    MediaSampleInMovie where;
    EXPECT_TRUE(findSamples(picture(), 3, 1, where));
    EXPECT_FALSE(findSamples(picture(), 4, 1, where));
    EXPECT_FALSE(findSamples(picture(), 5, 1, where));
    EXPECT_EQ(m_log.count(LogLevel::Warning, "dv: *a.dv: the stream changes behind frame 4, what follows is not shown"),
              1u)
        << m_log.text();
}

TEST_F(DvMovie, IsFoundByItsContentWhereTheNameSaysNothing) {
    openBytes(stream(system(Pal420), 1), "capture");
    EXPECT_EQ(m_movie->getMovieDesc()->getFileType(), MediaFileType::Dv);
}

TEST_F(DvMovie, OpensForReadingOnly) {
    const std::string path = m_tree.write("a.dv", stream(system(Pal420), 1));
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result), nullptr);
    EXPECT_STREQ(m_result.getMessage(), "dv: a finished file is opened for reading only");
    m_result.discard();
}

TEST_F(DvMovie, TakesNoFurtherTracksOrClips) {
    openBytes(stream(system(Pal420), 1));
    const MediaClipParam param(picture());
    EXPECT_EQ(m_movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    m_result.discard();
    EXPECT_EQ(m_movie->getTrackAt(0)->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    m_result.discard();
}

TEST_F(DvMovie, FillsWithBlackOfItsOwnKind) {
    const Frame frame(system(Ntsc25), sound(1, 32000), true, MediaAspectRatio::Ratio16x9);
    openBytes(frame.bytes());
    MediaSampleBuf buf(picture());
    ASSERT_TRUE(picture().fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
    EXPECT_TRUE(bytesOf(buf) == frame.bytes());
    MediaSampleBuf other(sounds());
    ASSERT_TRUE(sounds().fillBlack(other, FixedPoint<16>(0), FixedPoint<16>(1), false));
    EXPECT_EQ(other.size(), 120000u);
}

TEST_F(DvMovie, FillGoesThroughAMovieWithoutAFileAndLeavesNothing) {
    openBytes(stream(system(Pal411), 1));
    MediaSampleBuf buf(picture());
    for (const MediaClipDesc* clip : {&picture(), &sounds()}) {
        ASSERT_TRUE(clip->fill(MediaClipDesc::FillType::Black, buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
        const Verdict verdict(bytesOf(buf));
        expectFrames(verdict, system(Pal411), 0, 1);
        EXPECT_EQ(verdict.m_format.audio.channels, 2u);
        EXPECT_EQ(verdict.m_format.aspect, MediaAspectRatio::Ratio4x3);
    }
}

TEST_F(DvMovie, RepeatOfAFrameIsThatFrame) {
    openBytes(stream(system(Ntsc25), 1));
    const std::string held = Frame(system(Ntsc25)).number(77).bytes();
    MediaSampleBuf buf(picture());
    std::memcpy(buf.getMem(), held.data(), held.size());
    for (const auto type : {MediaClipDesc::FillType::ForwardRepeat, MediaClipDesc::FillType::BackwardRepeat}) {
        EXPECT_TRUE(picture().fill(type, buf, FixedPoint<16>(0), FixedPoint<16>(0), false));
        EXPECT_TRUE(bytesOf(buf) == held);
    }
    EXPECT_TRUE(picture().fillFwdRepeat(buf));
    EXPECT_TRUE(picture().fillBakRepeat(buf));
    std::memset(buf.getMem(), 0, buf.size());
    EXPECT_FALSE(picture().fillFwdRepeat(buf));
    EXPECT_FALSE(picture().fillBakRepeat(buf));
    buf.resize(1000, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign);
    EXPECT_FALSE(picture().fillFwdRepeat(buf));
    EXPECT_FALSE(
        picture().fill(static_cast<MediaClipDesc::FillType>(3), buf, FixedPoint<16>(0), FixedPoint<16>(0), false));
}

TEST_F(DvObject, MakesATrackAndAClipOfEachRate) {
    for (const DvSystem& one : s_dvSystems) {
        if (DvSystem::find(one.videoRate) != &one) continue;
        SCOPED_TRACE(one.name);
        MediaObj* object = MediaObj::openObj(MediaFileType::Dv, m_result);
        ASSERT_NE(object, nullptr);
        const MediaClipParam param = videoParam(one.videoRate);
        MediaTrackDesc* track = object->createTrack(param, m_result);
        ASSERT_NE(track, nullptr) << m_result.describe().get();
        EXPECT_EQ(track->getClipCount(), 0u);
        MediaClipDesc* clip = track->createClip(param, m_result);
        ASSERT_NE(clip, nullptr) << m_result.describe().get();
        EXPECT_EQ(track->getVideoRate(), one.videoRate);
        EXPECT_EQ(clip->getMediaId(), nullptr);
        EXPECT_EQ(clip->getLength(), 0u);
        EXPECT_EQ(clip->getLookup()->getFixedSize(), one.frameSize());
        EXPECT_TRUE(MediaClipParam(*clip).paramIdMatch(param));
        MediaSampleBuf buf(*clip);
        EXPECT_TRUE(clip->fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
        EXPECT_EQ(Verdict(bytesOf(buf)).m_format.system, &one);
        EXPECT_EQ(track->createClip(param, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
        m_result.discard();
        EXPECT_EQ(object->release(), 0);
    }
}

TEST_F(DvObject, MakesSoundThatRidesOnItsVideo) {
    MediaClipDesc* video = make(videoParam());
    ASSERT_NE(video, nullptr);
    MediaClipParam param;
    ASSERT_TRUE(param.initAudio(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Pal25, 32000, 4, 12));
    MediaClipDesc* audio = make(param);
    ASSERT_NE(audio, nullptr) << m_result.describe().get();
    EXPECT_EQ(video->getSlaveClip(), audio);
    EXPECT_TRUE(audio->isSlave());
    EXPECT_EQ(audio->getSampleRate(), 32000u);
    MediaSampleBuf buf(*audio);
    ASSERT_TRUE(audio->fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
    const Verdict verdict(bytesOf(buf));
    EXPECT_EQ(verdict.m_format.audio.channels, 4u);
    EXPECT_EQ(verdict.m_format.audio.bits, 12u);
    EXPECT_EQ(m_object->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
}

TEST_F(DvObject, RefusesWhatIsNotDv) {
    MediaClipParam param = videoParam();
    param.m_encoding = MediaEncodingType::Mpeg;
    EXPECT_EQ(m_object->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    m_result.discard();
    param = videoParam();
    param.m_dataType = MediaDataType::Data;
    EXPECT_EQ(m_object->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    m_result.discard();
    param = videoParam();
    param.m_height = 608;
    EXPECT_EQ(make(param), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "dv: no system of DV has these parameters");
}

TEST_F(DvObject, ClipOfAnotherTypeThanItsTrackIsRefusedByItsCheck) {
    MediaTrackDesc* track = m_object->createTrack(videoParam(), m_result);
    ASSERT_NE(track, nullptr);
    MediaClipParam param;
    ASSERT_TRUE(param.initAudio(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Pal25, 48000, 2, 16));
    EXPECT_EQ(track->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::InternalError));
    EXPECT_EQ(track->getClipCount(), 0u);
}

TEST_F(DvObject, ParametersAreFilledInForWhatDvHasOnly) {
    MediaClipParam param;
    EXPECT_FALSE(param.initVideo(MediaFileType::Dv, MediaEncodingType::Mpeg, MediaVideoRate::Pal25));
    EXPECT_FALSE(param.initVideo(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Film24));
    const auto audio = [&param](unsigned rate, unsigned channels, unsigned bits) {
        return param.initAudio(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Ntsc2997, rate, channels,
                               bits);
    };
    EXPECT_TRUE(audio(48000, 2, 16));
    EXPECT_EQ(param.m_bitrate, 48000u * 32);
    EXPECT_TRUE(audio(32000, 4, 12));
    EXPECT_FALSE(audio(48000, 0, 16));
    EXPECT_FALSE(audio(48000, 3, 16));
    EXPECT_FALSE(audio(96000, 2, 16));
    EXPECT_FALSE(audio(48000, 2, 24));
    EXPECT_FALSE(audio(48000, 2, 12));
}
