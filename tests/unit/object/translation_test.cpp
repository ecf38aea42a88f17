#include "shared/include/description/media_clip_param.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/irecord_train.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wav_builder.h"

// Copies of a movie's structure, empty movies of structure, and the record train.

using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
namespace Scripts = kit::Scripts;

namespace {

kit::ClipScript videoClip(unsigned long long frames) {
    kit::ClipScript clip;
    clip.m_encoding = MediaEncodingType::Dv;
    clip.m_sampleRate = 25;
    clip.m_bits = 8;
    clip.m_channels = 0;
    clip.m_samples = frames;
    clip.m_sampleSize = 144000;
    clip.m_bitrate = 28800000;
    return clip;
}

// A picture of two clips, and a sound.
MovieScript pictureAndSound() {
    MovieScript script;
    script.m_encoding = MediaEncodingType::Mixed;
    kit::TrackScript video;
    video.m_type = MediaDataType::Video;
    video.m_rate = MediaVideoRate::Pal25;
    video.m_clips = {videoClip(50), videoClip(25)};
    script.m_tracks.push_back(video);
    script.audio(144000);
    return script;
}

kit::TrackScript rateless() {
    kit::ClipScript clip;
    clip.m_sampleRate = 0;
    kit::TrackScript track;
    track.m_clips = {clip};
    track.m_length = 1;
    return track;
}

class Translation : public kit::CacheScene {
protected:
    // Takes: nothing; the copy is released at its end.
    AutoReleasePtr<MediaObj> copyOf(const MediaObj& source) {
        m_result.discard();
        return AutoReleasePtr<MediaObj>(source.createTranslationObj(m_result));
    }
};

void expectSameClip(const MediaClipDesc& copy, const MediaClipDesc& source) {
    EXPECT_STREQ(copy.toString().get(), source.toString().get());
    EXPECT_EQ(copy.getParamId(), source.getParamId());
    EXPECT_EQ(copy.getContainer(), source.getContainer());
    EXPECT_EQ(copy.getSequenceCoding(), source.getSequenceCoding());
    EXPECT_EQ(copy.getLookup()->getSummary().m_sampleSize, source.getLookup()->getSummary().m_sampleSize);
    EXPECT_EQ(copy.getLookup()->getSummary().m_numSamples, source.getLookup()->getSummary().m_numSamples);
}

void expectSameTrack(const MediaTrackDesc& copy, const MediaTrackDesc& source) {
    EXPECT_EQ(copy.getDataType(), source.getDataType());
    EXPECT_EQ(copy.getVideoRate(), source.getVideoRate());
    EXPECT_EQ(copy.getLength(), source.getLength());
    EXPECT_EQ(copy.getTrackIndex(), source.getTrackIndex());
    EXPECT_EQ(copy.getSyncAdjustment(), source.getSyncAdjustment());
    ASSERT_EQ(copy.getClipCount(), source.getClipCount());
    for (unsigned i = 0; i < source.getClipCount(); ++i) {
        SCOPED_TRACE("clip " + std::to_string(i));
        EXPECT_EQ(copy.getClip(i)->getClipIndex(), i);
        EXPECT_EQ(&copy.getClip(i)->getTrack(), &copy);
        expectSameClip(*copy.getClip(i), *source.getClip(i));
    }
    EXPECT_EQ(copy.getClip(source.getClipCount()), nullptr);
}

void expectSameStructure(const MediaObj& copy, const MediaObj& source) {
    EXPECT_EQ(copy.getMovieDesc()->getFileType(), source.getMovieDesc()->getFileType());
    EXPECT_EQ(copy.getMovieDesc()->getTimeBase(), source.getMovieDesc()->getTimeBase());
    EXPECT_EQ(copy.getMovieDesc()->getEncoding(), source.getMovieDesc()->getEncoding());
    EXPECT_EQ(copy.getMovieDesc()->getStandard(), source.getMovieDesc()->getStandard());
    EXPECT_EQ(copy.getFrameLength(), source.getFrameLength());
    EXPECT_EQ(copy.getVideoRate(), source.getVideoRate());
    EXPECT_EQ(copy.getContainment(), source.getContainment());
    ASSERT_EQ(copy.getTrackCount(), source.getTrackCount());
    for (unsigned i = 0; i < source.getTrackCount(); ++i) {
        SCOPED_TRACE("track " + std::to_string(i));
        EXPECT_EQ(&copy.getTrackAt(i)->getObj(), &copy);
        expectSameTrack(*copy.getTrackAt(i), *source.getTrackAt(i));
    }
    EXPECT_EQ(copy.getTrackAt(source.getTrackCount()), nullptr);
}

}  // namespace

TEST_F(Translation, HasTheTracksClipsRatesAndLengthsOfItsMovie) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    movie->track(0).setSyncAdjustment(1);
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_TRUE(m_result.success());
    ASSERT_NE(copy.get(), nullptr);
    ASSERT_EQ(copy->getTrackCount(), 2u);
    EXPECT_EQ(copy->getTrackAt(0)->getClipCount(), 2u);
    EXPECT_EQ(copy->getTrackAt(0)->getLength(), 75u * 48000 / 25);
    expectSameStructure(*copy.get(), *movie.get());
    MediaEncodingType encoding = MediaEncodingType::Unknown;
    EXPECT_TRUE(copy->canReceive(*movie.get(), encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Mixed);
}

TEST_F(Translation, OfATranslationIsTheSameAgain) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    const AutoReleasePtr<MediaObj> again = copyOf(*copy.get());
    EXPECT_TRUE(m_result.success());
    expectSameStructure(*again.get(), *movie.get());
}

TEST_F(Translation, IsInNoCacheAndGoesWithItsOneReference) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    const int active = MediaObjImpl::active.getCount();
    const int references = movie->getReferenceCount();
    MediaObj* copy = movie->createTranslationObj(m_result);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->getReferenceCount(), 1);
    EXPECT_EQ(copy->impl().getCacheId(), 0u);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_EQ(movie->getReferenceCount(), references);
    EXPECT_EQ(MediaObjImpl::active.getCount(), active + 1);
    EXPECT_EQ(copy->release(), 0);
    EXPECT_EQ(MediaObjImpl::active.getCount(), active);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
}

TEST_F(Translation, OutlivesItsMovie) {
    ScriptedMovie* movie = open(scripted("m.hdcam", pictureAndSound()));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie);
    movie->release();
    expireAll();
    ASSERT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(copy->getTrackCount(), 2u);
    EXPECT_EQ(copy->getFrameLength(), 75u);
    EXPECT_STREQ(copy->getTrackAt(1)->getClip(0)->toString().get(),
                 "audio,pcm,2chan,48khz,lendian,16bpu,0bps,len=144000");
}

TEST_F(Translation, HasNoFileAndNoEssence) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_EQ(copy->getMediaCount(), 0u);
    EXPECT_STREQ(copy->getPath(nullptr), "");
    EXPECT_EQ(copy->commonId(), nullptr);
    const MediaClipDesc& clip = *copy->getTrackAt(1)->getClip(0);
    EXPECT_EQ(clip.getMediaId(), nullptr);
    MediaSampleInMovie where;
    OpResult result;
    EXPECT_FALSE(clip.getMediaOffset(MediaPlayReq(0, 1), where, result));
    EXPECT_TRUE(isWarning(result, MediaCode::NoFileHandle));
    EXPECT_STREQ(result.getMessage(), "a translation holds no essence");
}

TEST_F(Translation, IsReadOnlyAndNoStream) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_FALSE(copy->getMovieDesc()->isWritable());
    EXPECT_FALSE(copy->isStream());
    EXPECT_TRUE(isWarning(copy->setRecording(true), MediaCode::FileNotWritable));
}

TEST_F(Translation, MorphsOnceWhileItIsBuilt) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", pictureAndSound())));
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::Morph);
    m_log.clear();
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_FALSE(copy->isMorphing());
    EXPECT_EQ(m_log.count(LogLevel::Debug, "MO::beginMorph()-->1"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Debug, "MO::endMorph()-->0"), 1u) << m_log.text();
}

TEST_F(Translation, TakesTheVideoRateAsItsDefault) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", MovieScript::ofTracks(1, 48000))));
    movie->setDefaultVideoRate(MediaVideoRate::Hz50);
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_EQ(copy->getVideoRate(), MediaVideoRate::Hz50);
}

TEST_F(Translation, OfAMovieWithoutTracksIsEmpty) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", MovieScript())));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(copy->getTrackCount(), 0u);
    EXPECT_EQ(copy->getFrameLength(), 0u);
}

TEST_F(Translation, KeepsTheTypeOfATrackWithoutClips) {
    MovieScript script;
    script.m_tracks.emplace_back();
    script.m_tracks[0].m_type = MediaDataType::Video;
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", script)));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    ASSERT_EQ(copy->getTrackCount(), 1u);
    EXPECT_EQ(copy->getTrackAt(0)->getDataType(), MediaDataType::Video);
    EXPECT_EQ(copy->getTrackAt(0)->getClipCount(), 0u);
}

TEST_F(Translation, GoesOnBehindATrackThatCannotBeCopiedAndSaysSo) {
    MovieScript script = MovieScript::ofTracks(1, 48000);
    script.m_tracks.push_back(rateless());
    script.audio(96000);
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", script)));
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "a clip without a sample rate");
    ASSERT_NE(copy.get(), nullptr);
    ASSERT_EQ(copy->getTrackCount(), 3u);
    EXPECT_EQ(copy->getTrackAt(0)->getLength(), 48000u);
    EXPECT_EQ(copy->getTrackAt(1)->getClipCount(), 0u);
    EXPECT_EQ(copy->getTrackAt(2)->getLength(), 96000u);
    EXPECT_FALSE(copy->isMorphing());
}

TEST_F(Translation, ForgetsTheResultOfAnEarlierCall) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", MovieScript::ofTracks(1, 48000))));
    m_result = MO_WARNING(MediaCode::ReadError, nullptr);
    m_result.discard();
    const AutoReleasePtr<MediaObj> copy(movie->createTranslationObj(m_result));
    EXPECT_TRUE(m_result.success());
}

TEST_F(Translation, OfAWavSaysWhatItIsLike) {
    const std::string path = m_tree.write("a.wav", kit::WavBuilder()
                                                       .fmt({.m_channels = 6, .m_rate = 44100, .m_bits = 24})
                                                       .data(std::string(18 * 441, 'a'))
                                                       .bytes());
    AutoReleasePtr<MediaObj> movie(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result));
    ASSERT_NE(movie.get(), nullptr);
    const AutoReleasePtr<MediaObj> copy = copyOf(*movie.get());
    EXPECT_TRUE(m_result.success());
    expectSameStructure(*copy.get(), *movie.get());
    EXPECT_EQ(copy->getTrackAt(0)->getLength(), 441u);
    EXPECT_EQ(copy->getTrackAt(0)->getMaxTime(), movie->getTrackAt(0)->getMaxTime());
}

TEST_F(Translation, OfATypeIsAnEmptyMovieOfThatType) {
    const int active = MediaObjImpl::active.getCount();
    MediaObj* movie = MediaObj::openTranslationObj(kit::s_scripted, m_result);
    EXPECT_TRUE(m_result.success());
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->getReferenceCount(), 1);
    EXPECT_EQ(movie->impl().getCacheId(), 0u);
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_FALSE(movie->isMorphing());
    EXPECT_EQ(movie->getTrackCount(), 0u);
    EXPECT_EQ(movie->getMediaCount(), 0u);
    EXPECT_EQ(movie->getMovieDesc()->getFileType(), kit::s_scripted);
    EXPECT_TRUE(movie->getMovieDesc()->isWritable());
    EXPECT_EQ(movie->release(), 0);
    EXPECT_EQ(MediaObjImpl::active.getCount(), active);
}

TEST_F(Translation, OfATypeKeepsThatTypeWhenItIsFilled) {
    AutoReleasePtr<ScriptedMovie> source(open(scripted("m.hdcam", pictureAndSound())));
    const AutoReleasePtr<MediaObj> movie(MediaObj::openTranslationObj(kit::s_scriptedToo, m_result));
    ASSERT_NE(movie.get(), nullptr);
    EXPECT_NE(movie->copyClips(*source->getTrackAt(0), m_result), nullptr);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(movie->getMovieDesc()->getFileType(), kit::s_scriptedToo);
    EXPECT_EQ(movie->getMovieDesc()->getTimeBase(), 48000u);
    EXPECT_EQ(movie->getFrameLength(), 75u);
}

TEST_F(Translation, OfATypeAsksTheFormatForNothing) {
    Scripts::setUnbound(MovieScript().refuse(OpResult::Type::Warning, MediaCode::ClipNotSupported), true);
    const AutoReleasePtr<MediaObj> movie(MediaObj::openTranslationObj(kit::s_scripted, m_result));
    EXPECT_NE(movie.get(), nullptr);
    EXPECT_TRUE(m_result.success());
}

TEST_F(Translation, OfATypeWithoutAWriterIsRefused) {
    EXPECT_EQ(MediaObj::openTranslationObj(kit::s_nobodysType, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_EQ(MediaObj::openTranslationObj(kit::s_readOnlyType, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
}

namespace {

// The counts of the two bases are one, and nobody asks for the base itself.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winaccessible-base"

// A back-end that supports a record train.
class TrainMovie : public ScriptedMovie, public IRecordTrain {
public:
    TrainMovie() : ScriptedMovie(MovieScript(), {}, false, CacheRefValue::None) {}
    using ScriptedMovie::release;
    int preserve() override {
        ++m_preserves;
        return ScriptedMovie::preserve();
    }
    int release() override { return ScriptedMovie::release(); }

    int m_preserves = 0;
};

#pragma GCC diagnostic pop

class RecordTrain : public kit::CacheScene {};

}  // namespace

TEST_F(RecordTrain, OfABackEndWithoutOneIsEmptyAndChangesNoCount) {
    AutoReleasePtr<ScriptedMovie> movie(open(scripted("m.hdcam", MovieScript::ofTracks(1, 48000))));
    const int before = movie->getReferenceCount();
    {
        const AutoReleasePtr<IRecordTrain> train = movie->getRecordTrainInterface();
        EXPECT_EQ(train.get(), nullptr);
        EXPECT_EQ(movie->getReferenceCount(), before);
    }
    EXPECT_EQ(movie->getReferenceCount(), before);
}

TEST_F(RecordTrain, HoldsAReferenceOfItsMovieUntilItGoes) {
    const AutoReleasePtr<TrainMovie> movie(new TrainMovie);
    {
        const AutoReleasePtr<IRecordTrain> train = movie->getRecordTrainInterface();
        EXPECT_EQ(train.get(), static_cast<IRecordTrain*>(movie.get()));
        EXPECT_EQ(movie->m_preserves, 1);
        EXPECT_EQ(movie->getReferenceCount(), 2);
    }
    EXPECT_EQ(movie->getReferenceCount(), 1);
}

TEST_F(RecordTrain, KeepsItsMovieAliveByItself) {
    const int active = MediaObjImpl::active.getCount();
    MediaObj* movie = new TrainMovie;
    {
        const AutoReleasePtr<IRecordTrain> train = movie->getRecordTrainInterface();
        EXPECT_EQ(movie->release(), 1);
        EXPECT_EQ(MediaObjImpl::active.getCount(), active + 1);
    }
    EXPECT_EQ(MediaObjImpl::active.getCount(), active);
}
