#include "neighbours/translation_media_obj.h"

#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "tests/kit/cache_scene.h"

// A movie of structure only, as it is built by hand.

using kit::isError;
using kit::isWarning;
using OpenAsWriter = FilterMediaObj::OpenAsWriter;

namespace {

MediaClipParam picture() {
    MediaClipParam param(MediaEncodingType::Dv, MediaDataType::Video, MediaVideoRate::Pal25, 720, 576, AspectRatio());
    param.m_sampleRate = 25;
    param.m_bitsPerUnit = 8;
    param.m_offsets = MediaOffsetSummary(144000, 0, 50, 7200000);
    param.m_extraParam[0] = 3;
    param.m_extraParam[1] = 4;
    return param;
}

MediaClipParam sound(unsigned rate) {
    MediaClipParam param(MediaEncodingType::Pcm, MediaDataType::Audio, MediaVideoRate::Unknown, 0, 0, AspectRatio());
    param.m_sampleRate = rate;
    param.m_channels = 2;
    param.m_bitsPerUnit = 16;
    return param;
}

// A clip of another movie, as long as it is told.
class SourceMovie {
public:
    SourceMovie(const MediaClipParam& param, unsigned long long samples) : m_movie(TranslationMediaObj::create({})) {
        m_movie->getRefCount()->release();
        MediaTrackDesc* track = m_movie->createTrack(param, m_result);
        m_clip = track->createClip(param, m_result);
        m_clip->setLength(samples);
    }
    MediaTrackDesc& track() const { return *m_movie->getTrackAt(0); }
    const MediaClipDesc& clip() const { return *m_clip; }

private:
    AutoReleasePtr<MediaObj> m_movie;
    OpResult m_result;
    MediaClipDesc* m_clip = nullptr;
};

class TranslationMovie : public testing::Test {
protected:
    TranslationMovie() { m_movie->getRefCount()->release(); }
    ~TranslationMovie() override { m_result.discard(); }

    const int m_active = MediaObjImpl::active.getCount();
    AutoReleasePtr<MediaObj> m_movie{TranslationMediaObj::create(MediaFileType::Mxf)};
    OpResult m_result;
};

}  // namespace

TEST(TranslationLife, BeginsWithOneReferenceSetAsideForTheCache) {
    MediaObj* movie = new TranslationMediaObj(OpenAsWriter::No);
    EXPECT_EQ(movie->getReferenceCount(), 2);
    EXPECT_FALSE(movie->getMovieDesc()->isWritable());
    EXPECT_EQ(movie->release(), 1);
    EXPECT_EQ(movie->release(), 0);
}

TEST(TranslationLife, OfATypeIsWritable) {
    MediaObj* movie = TranslationMediaObj::create(MediaFileType::Wav);
    EXPECT_EQ(movie->getReferenceCount(), 2);
    EXPECT_TRUE(movie->getMovieDesc()->isWritable());
    EXPECT_EQ(movie->getMovieDesc()->getFileType(), MediaFileType::Wav);
    EXPECT_EQ(movie->getMovieDesc()->getTimeBase(), 1u);
    movie->release();
    movie->release();
}

TEST_F(TranslationMovie, TakesItsTimeBaseFromItsFirstTrack) {
    EXPECT_NE(m_movie->createTrack(picture(), m_result), nullptr);
    EXPECT_TRUE(m_result.success());
    EXPECT_NE(m_movie->createTrack(sound(48000), m_result), nullptr);
    EXPECT_EQ(m_movie->getMovieDesc()->getTimeBase(), 25u);
    EXPECT_EQ(m_movie->getMovieDesc()->getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(m_movie->getMovieDesc()->getStandard(), MediaVideoRate::Pal25);
    EXPECT_EQ(m_movie->getMovieDesc()->getFileType(), MediaFileType::Mxf);
}

TEST_F(TranslationMovie, OfARatelessFirstTrackCountsInSeconds) {
    EXPECT_NE(m_movie->createTrack(sound(0), m_result), nullptr);
    EXPECT_EQ(m_movie->getMovieDesc()->getTimeBase(), 1u);
}

TEST_F(TranslationMovie, HasTracksOfTheKindAskedFor) {
    MediaClipParam param = picture();
    param.setParam(MediaProperty(MediaPropertyEnum::Name::AfdValue, 9)).discard();
    param.setParam(MediaProperty(MediaPropertyEnum::Name::NBlack, 5)).discard();
    MediaTrackDesc* track = m_movie->createTrack(param, m_result);
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(track->getDataType(), MediaDataType::Video);
    EXPECT_EQ(track->getWidth(), 720u);
    EXPECT_EQ(track->getHeight(), 576u);
    EXPECT_EQ(track->getVideoRate(), MediaVideoRate::Pal25);
    ASSERT_NE(track->getProperty(MediaPropertyEnum::Name::AfdValue), nullptr);
    EXPECT_EQ(track->getProperty(MediaPropertyEnum::Name::AfdValue)->uintValue(), 9u);
    EXPECT_EQ(track->getProperty(MediaPropertyEnum::Name::NBlack), nullptr);
    EXPECT_EQ(&track->getObj(), m_movie.get());
    EXPECT_EQ(track->getTrackIndex(), 0u);
    EXPECT_EQ(m_movie->getTrackAt(1), nullptr);
    MediaTrackDesc* like = m_movie->createTrack(*track, m_result);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(like->getHeight(), 576u);
    EXPECT_EQ(like->getTrackIndex(), 1u);
    EXPECT_EQ(like->getProperty(MediaPropertyEnum::Name::AfdValue)->uintValue(), 9u);
}

TEST_F(TranslationMovie, HasClipsOfTheKindAskedFor) {
    MediaTrackDesc* track = m_movie->createTrack(picture(), m_result);
    MediaClipDesc* clip = track->createClip(picture(), m_result);
    EXPECT_TRUE(m_result.success());
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(clip->getSampleRate(), 25u);
    EXPECT_EQ(clip->getContainer(), MediaContainment::Embedded);
    EXPECT_EQ(clip->getLength(), 0u);
    EXPECT_EQ(clip->getClipIndex(), 0u);
    EXPECT_EQ(&clip->getTrack(), track);
    EXPECT_EQ(clip->getLookup()->getSummary().m_sampleSize, 144000u);
    EXPECT_EQ(clip->getLookup()->getFixedSize(), 144000u);
    EXPECT_EQ(&clip->getLookup()->getClip(), clip);
    unsigned extra[2] = {0, 0};
    EXPECT_TRUE(clip->getExtraParam(extra, 2));
    EXPECT_EQ(extra[0], 3u);
    EXPECT_EQ(extra[1], 4u);
}

TEST_F(TranslationMovie, ClipOfAnotherTypeThanItsTrackIsRefused) {
    MediaTrackDesc* track = m_movie->createTrack(picture(), m_result);
    EXPECT_EQ(track->createClip(sound(48000), m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::InternalError));
    const SourceMovie source(sound(48000), 10);
    EXPECT_EQ(track->copyClip(source.clip(), m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::InternalError));
    EXPECT_EQ(track->getClipCount(), 0u);
    EXPECT_EQ(track->getLength(), 0u);
}

TEST_F(TranslationMovie, ClipOfAnotherRateThanItsTrackIsRefused) {
    MediaTrackDesc* track = m_movie->createTrack(picture(), m_result);
    MediaClipParam other = picture();
    other.m_videoRate = MediaVideoRate::Ntsc2997;
    EXPECT_EQ(track->createClip(other, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::InternalError));
    EXPECT_EQ(track->getClipCount(), 0u);
}

TEST_F(TranslationMovie, ClipWithoutARateIsRefused) {
    MediaTrackDesc* track = m_movie->createTrack(sound(48000), m_result);
    EXPECT_EQ(track->createClip(sound(0), m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
    MediaClipParam tickless = sound(48000);
    tickless.m_ticksPerSample = 0;
    EXPECT_EQ(track->createClip(tickless, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "a clip without a sample rate");
    EXPECT_EQ(track->getClipCount(), 0u);
}

TEST_F(TranslationMovie, ClipThatRefersIsRefusedAsInEveryMovie) {
    MediaTrackDesc* track = m_movie->createTrack(sound(48000), m_result);
    const SourceMovie source(sound(48000), 10);
    EXPECT_EQ(track->createClip(source.clip(), MediaContainment::ByRef, m_result), nullptr);
    EXPECT_TRUE(isError(m_result, MediaCode::OperationUnsupported));
}

TEST_F(TranslationMovie, GrowsByEachCopiedClipInTicksOfItsTimeBase) {
    MediaTrackDesc* video = m_movie->createTrack(picture(), m_result);
    MediaTrackDesc* audio = m_movie->createTrack(sound(48000), m_result);
    const SourceMovie frames(picture(), 50), seconds(sound(48000), 96000), more(sound(44100), 44100);
    ASSERT_NE(video->copyClip(frames.clip(), m_result), nullptr);
    EXPECT_EQ(m_movie->getFrameLength(), 50u);
    ASSERT_NE(audio->copyClip(seconds.clip(), m_result), nullptr);
    ASSERT_NE(audio->copyClip(more.clip(), m_result), nullptr);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(video->getLength(), 50u);
    EXPECT_EQ(audio->getLength(), 75u);
    EXPECT_EQ(m_movie->getMovieDesc()->getLastTrackLength(), 75u);
    EXPECT_EQ(m_movie->getMovieDesc()->getMaxTrackLength(), 75u);
    EXPECT_EQ(audio->getClip(1)->getClipIndex(), 1u);
    FixedPoint<16> start(0);
    EXPECT_EQ(audio->clipAt(FixedPoint<16>(60), start), audio->getClip(1));
    EXPECT_EQ(start, FixedPoint<16>(50));
}

TEST_F(TranslationMovie, CopiesEditsAndDiscriminators) {
    // A clip with an edit of its own.
    class EditedClip : public MediaClipDesc {
    public:
        explicit EditedClip(const MediaClipDesc& like, MediaTrackDesc& track) : MediaClipDesc(like), m_track(track) {}
        unsigned getEditCount() const override { return 1; }
        MediaEditDesc* getEdit(unsigned) override { return &m_edit; }
        const MediaEditDesc* getEdit(unsigned) const override { return &m_edit; }
        unsigned getClipIndex() const override { return 0; }
        MediaTrackDesc& getTrack() override { return m_track; }
        MediaOffsetLookup* getLookup() override { return nullptr; }
        const MediaTrackDesc& getTrack() const override { return m_track; }
        const MediaOffsetLookup* getLookup() const override { return nullptr; }
        SequenceCodingType getSequenceCoding() const override { return SequenceCodingType::LongGop; }
        bool getExtraParam(unsigned* extra, unsigned count) const override {
            for (unsigned i = 0; i < count; ++i)
                extra[i] = 7 + i;
            return true;
        }

    private:
        MediaTrackDesc& m_track;
        MediaEditDesc m_edit{10, 20};
    };
    const SourceMovie source(picture(), 30);
    const EditedClip edited(source.clip(), source.track());
    MediaTrackDesc* track = m_movie->createTrack(picture(), m_result);
    MediaClipDesc* copy = track->copyClip(edited, m_result);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy->getEditCount(), 1u);
    EXPECT_EQ(copy->getEdit(0)->getIn(), 10u);
    EXPECT_EQ(copy->getEdit(0)->getOut(), 20u);
    EXPECT_EQ(copy->getEdit(1), nullptr);
    EXPECT_EQ(copy->getSequenceCoding(), SequenceCodingType::LongGop);
    unsigned extra[2] = {0, 0};
    EXPECT_TRUE(copy->getExtraParam(extra, 2));
    EXPECT_EQ(extra[0], 7u);
    EXPECT_EQ(extra[1], 8u);
    EXPECT_EQ(copy->getLookup()->getSummary().m_numSamples, 0u);  // the source has no index
}

TEST_F(TranslationMovie, TakesNoEssence) {
    MediaTrackDesc* track = m_movie->createTrack(picture(), m_result);
    MediaClipDesc* clip = track->createClip(picture(), m_result);
    MediaSampleInMovie where;
    EXPECT_FALSE(clip->getLookup()->addSamples(MediaRecordReq(0, 1, SampleInfo()), where, m_result));
    EXPECT_TRUE(isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "a translation takes no essence");
    EXPECT_TRUE(isWarning(clip->getLookup()->addEmptyEdit(1), MediaCode::OperationUnsupported));
    EXPECT_EQ(clip->getLookup()->getSummary().m_numSamples, 50u);
}

TEST_F(TranslationMovie, GoesWithAllItsTracks) {
    MediaTrackDesc* track = m_movie->createTrack(sound(48000), m_result);
    const SourceMovie* source = new SourceMovie(sound(48000), 10);
    ASSERT_NE(track->copyClip(source->clip(), m_result), nullptr);
    delete source;
    EXPECT_STREQ(track->getClip(0)->toString().get(), "audio,pcm,2chan,48khz,bendian,16bpu,0bps,len=10");
    m_movie = nullptr;
    EXPECT_EQ(MediaObjImpl::active.getCount(), m_active);
}
