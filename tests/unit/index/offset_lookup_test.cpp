#include <gtest/gtest.h>

#include <memory>

#include "tests/unit/index/fixture.h"

namespace {

// A lookup that leaves everything that it may to the base class.
class PlainLookup : public MediaOffsetLookup {
public:
    explicit PlainLookup(const MediaClipDesc& clip) : MediaOffsetLookup(summaryOf(4, 1000, 10)), m_clip(clip) {}
    ~PlainLookup() override {
        if (m_graves) m_graves->push_back(this);
    }

    bool needToBeChained() const override { return m_wantsChain; }
    void close() const override {
        ++m_closes;
        MediaOffsetLookup::close();
    }
    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override { return 0; }
    std::uint32_t getFixedSize() const override { return 0; }
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        result = OpResult::Ok;
        desc.set(req.m_count, req.m_sample, 7, 8U, 0, false);
        return m_found;
    }
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override {
        m_added += req.m_count;
        return MediaOffsetLookup::addSamples(req, desc, result);
    }
    OpResult update(const MediaOffsetSummary&) override { return OpResult::Ok; }

    bool m_wantsChain = false;
    bool m_found = true;
    mutable int m_closes = 0;
    unsigned m_added = 0;
    std::vector<const PlainLookup*>* m_graves = nullptr;

private:
    const MediaClipDesc& m_clip;
};

class OffsetLookup : public testing::Test {
protected:
    SampleAndCount askAudio(MediaVideoRate rate, unsigned sampleRate, unsigned long long frame,
                            MediaEncodingType encoding = MediaEncodingType::Pcm, unsigned ticks = 1) {
        IndexScene scene(MediaDataType::Audio, rate, encoding, sampleRate);
        scene.m_clip.setTicks(ticks);
        return PlainLookup(scene.m_clip).getSampleAndCount(scene.m_clip, frame);
    }

    IndexScene m_scene;
    PlainLookup m_lookup{m_scene.m_clip};
};

void expectAnswer(const SampleAndCount& got, unsigned long long sample, unsigned count, unsigned period) {
    EXPECT_EQ(got.m_sample, sample);
    EXPECT_EQ(got.m_count, count);
    EXPECT_EQ(got.m_period, period);
}

TEST_F(OffsetLookup, VideoHasOneSampleAFrame) {
    IndexScene video(MediaDataType::Video, MediaVideoRate::Ntsc2997, MediaEncodingType::Rec601, 30000);
    expectAnswer(m_lookup.getSampleAndCount(video.m_clip, 12345), 12345, 1, 1);
    expectAnswer(m_lookup.getMaxSampleAndCount(video.m_clip), 0, 1, 1);
}

TEST_F(OffsetLookup, DataHasOneSampleAFrameWhateverItsEncoding) {
    IndexScene data(MediaDataType::Data, MediaVideoRate::Ntsc2997, MediaEncodingType::Aac, 48000);
    expectAnswer(m_lookup.getSampleAndCount(data.m_clip, 9), 9, 1, 1);
}

TEST_F(OffsetLookup, AudioAt2997FollowsTheTable) {
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 48000, 4), 6406, 1602, 5);
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 48000, 5), 8008, 1600, 5);
    expectAnswer(askAudio(MediaVideoRate::Unknown, 48000, 5), 8008, 1600, 5);
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 44100, 68), 100060, 1470, 200);
}

TEST_F(OffsetLookup, AudioAt5994FollowsTheTable) {
    expectAnswer(askAudio(MediaVideoRate::Hz5994, 48000, 3), 2401, 801, 10);
    expectAnswer(askAudio(MediaVideoRate::Hz5994, 8000, 15), 4004, 133, 15);
}

TEST_F(OffsetLookup, AudioAtWholeRatesIsCutAtTheFramesEdges) {
    expectAnswer(askAudio(MediaVideoRate::Pal25, 48000, 0), 0, 1920, 1);
    expectAnswer(askAudio(MediaVideoRate::Pal25, 48000, 1), 1920, 1920, 1);
    expectAnswer(askAudio(MediaVideoRate::Hz50, 96000, 3), 5760, 1920, 1);
    expectAnswer(askAudio(MediaVideoRate::Film24, 48000, 100), 200000, 2000, 1);
}

TEST_F(OffsetLookup, FramesStartOnEvenSamplesOutsideTheTables) {
    // 44100 / 24 is 1837.5.
    expectAnswer(askAudio(MediaVideoRate::Film24, 44100, 0), 0, 1836, 1);
    expectAnswer(askAudio(MediaVideoRate::Film24, 44100, 1), 1836, 1838, 1);
    expectAnswer(askAudio(MediaVideoRate::Film24, 44100, 2), 3674, 1838, 1);
    unsigned long long next = 0;
    for (unsigned long long frame = 0; frame < 1000; ++frame) {
        const SampleAndCount got = askAudio(MediaVideoRate::Film23976, 44100, frame);
        ASSERT_EQ(got.m_sample % 2, 0U);
        ASSERT_EQ(got.m_sample, next);
        next = got.m_sample + got.m_count;
    }
}

TEST_F(OffsetLookup, UnknownRateOutsideTheTablesIsOneFrameASecond) {
    expectAnswer(askAudio(MediaVideoRate::Unknown, 96000, 2), 192000, 96000, 1);
}

TEST_F(OffsetLookup, AacCountsCodedUnitsRoundedUp) {
    const auto aac = MediaEncodingType::Aac;
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 48000, 0, aac, 1024), 0, 2, 1);
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 48000, 1, aac, 1024), 2, 2, 1);
    expectAnswer(askAudio(MediaVideoRate::Ntsc2997, 48000, 2, aac, 1024), 4, 1, 1);
    // Edges of 25 Hz: 1920, 3840, 5760 samples.
    expectAnswer(askAudio(MediaVideoRate::Pal25, 48000, 1, aac, 1024), 2, 2, 1);
    expectAnswer(askAudio(MediaVideoRate::Pal25, 48000, 2, aac, 1024), 4, 2, 1);
}

TEST_F(OffsetLookup, AacOfUnknownRateIsTreatedAs2997) {
    for (unsigned long long frame = 0; frame < 40; ++frame) {
        const auto unknown = askAudio(MediaVideoRate::Unknown, 48000, frame, MediaEncodingType::Aac, 1024);
        const auto ntsc = askAudio(MediaVideoRate::Ntsc2997, 48000, frame, MediaEncodingType::Aac, 1024);
        expectAnswer(unknown, ntsc.m_sample, ntsc.m_count, 1);
    }
}

TEST_F(OffsetLookup, TheLargestCountIsProbedAndCarriesNoPlace) {
    IndexScene at2997(MediaDataType::Audio, MediaVideoRate::Ntsc2997);
    expectAnswer(m_lookup.getMaxSampleAndCount(at2997.m_clip), 0, 1602, 1);
    IndexScene at25(MediaDataType::Audio, MediaVideoRate::Pal25);
    expectAnswer(m_lookup.getMaxSampleAndCount(at25.m_clip), 0, 1920, 1);
    IndexScene at5994(MediaDataType::Audio, MediaVideoRate::Hz5994, MediaEncodingType::Pcm, 44100);
    expectAnswer(m_lookup.getMaxSampleAndCount(at5994.m_clip), 0, 736, 1);
}

TEST_F(OffsetLookup, TheLargestCountAsksTheDerivedClassForFiveFrames) {
    class Probed : public PlainLookup {
    public:
        using PlainLookup::PlainLookup;
        SampleAndCount getSampleAndCount(const MediaClipDesc&, unsigned long long frame) const override {
            m_frames.push_back(frame);
            return {frame, static_cast<unsigned>(frame == 3 ? 50 : frame), 9};
        }
        mutable std::vector<unsigned long long> m_frames;
    };
    const Probed probed(m_scene.m_clip);
    expectAnswer(probed.getMaxSampleAndCount(m_scene.m_clip), 0, 50, 1);
    EXPECT_EQ(probed.m_frames, (std::vector<unsigned long long>{0, 1, 2, 3, 4}));
}

TEST_F(OffsetLookup, AReferenceCountFromTwoToAHundredIsNoFault) {
    const LogCapture log;
    for (int count = 2; count <= 100; ++count)
        EXPECT_EQ(m_lookup.preserve(), count);
    EXPECT_TRUE(log.lines().empty());
    for (int count = 99; count >= 1; --count)
        EXPECT_EQ(m_lookup.release(), count);
}

TEST_F(OffsetLookup, TheHundredAndFirstReferenceIsToldAndHeld) {
    const LogCapture log;
    for (int count = 2; count <= 101; ++count)
        m_lookup.preserve();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"MediaOffsetLookup::preserve(): ==>101"});
    EXPECT_EQ(m_lookup.release(), 100);
    for (int count = 99; count >= 1; --count)
        m_lookup.release();
}

TEST_F(OffsetLookup, TheLastReleaseDeletes) {
    std::vector<const PlainLookup*> graves;
    auto* lookup = new PlainLookup(m_scene.m_clip);
    lookup->m_graves = &graves;
    lookup->preserve();
    EXPECT_EQ(lookup->release(), 1);
    EXPECT_TRUE(graves.empty());
    EXPECT_EQ(MediaOffsetLookup::release(lookup), 0);
    EXPECT_EQ(graves.size(), 1U);
}

TEST_F(OffsetLookup, ReleaseOfNullAnswersZero) { EXPECT_EQ(MediaOffsetLookup::release(nullptr), 0); }

TEST_F(OffsetLookup, ALookupThatDoesNotAskForItIsNotChained) {
    PlainLookup next(m_scene.m_clip);
    EXPECT_FALSE(m_lookup.appendChainedLookup(&next));
    EXPECT_EQ(next.preserve(), 2);
    EXPECT_EQ(next.release(), 1);
    m_lookup.close();
    EXPECT_EQ(next.m_closes, 0);
}

TEST_F(OffsetLookup, ChainingAppendsAtTheEndAndTakesAReference) {
    std::vector<const PlainLookup*> graves;
    auto* head = new PlainLookup(m_scene.m_clip);
    auto* middle = new PlainLookup(m_scene.m_clip);
    auto* tail = new PlainLookup(m_scene.m_clip);
    for (PlainLookup* lookup : {head, middle, tail}) {
        lookup->m_graves = &graves;
        lookup->m_wantsChain = true;
    }
    EXPECT_TRUE(head->appendChainedLookup(middle));
    EXPECT_TRUE(head->appendChainedLookup(tail));
    EXPECT_EQ(middle->release(), 1);
    EXPECT_EQ(tail->release(), 1);

    head->close();
    EXPECT_EQ(middle->m_closes, 1);
    EXPECT_EQ(tail->m_closes, 1);
    middle->close();
    EXPECT_EQ(tail->m_closes, 2);

    EXPECT_EQ(head->release(), 0);
    EXPECT_EQ(graves, (std::vector<const PlainLookup*>{head, middle, tail}));
}

TEST_F(OffsetLookup, AMemberOfAChainThatIsHeldElsewhereOutlivesIt) {
    auto* head = new PlainLookup(m_scene.m_clip);
    PlainLookup next(m_scene.m_clip);
    next.m_wantsChain = true;
    EXPECT_TRUE(head->appendChainedLookup(&next));
    EXPECT_EQ(head->release(), 0);
    EXPECT_EQ(next.preserve(), 2);
    EXPECT_EQ(next.release(), 1);
}

TEST_F(OffsetLookup, AddedSamplesGoAlongTheChainAndEndInSuccess) {
    auto* next = new PlainLookup(m_scene.m_clip);
    next->m_wantsChain = true;
    ASSERT_TRUE(m_lookup.appendChainedLookup(next));
    next->release();
    MediaSampleDesc desc;
    OpResult result = MO_WARNING(1, "stale");
    result.discard();
    EXPECT_TRUE(m_lookup.addSamples(MediaRecordReq(0, 6, SampleInfo()), desc, result));
    EXPECT_TRUE(result.success());
    EXPECT_EQ(m_lookup.m_added, 6U);
    EXPECT_EQ(next->m_added, 6U);
    EXPECT_EQ(desc.m_numChunks, 0U);
}

TEST_F(OffsetLookup, FrameInfoIsThePlaceOfTheSample) {
    MediaSampleDesc desc;
    OpResult result;
    EXPECT_TRUE(m_lookup.getFrameInfo(MediaPlayReq(5, 2), desc, result));
    EXPECT_EQ(desc.m_sample, 5U);
    EXPECT_EQ(desc.m_chunks[0].m_offset, 7U);
    m_lookup.m_found = false;
    EXPECT_FALSE(m_lookup.getFrameInfo(MediaPlayReq(5, 2), desc, result));
}

TEST_F(OffsetLookup, UpdatingTheNumberOfSamplesHasNoMeaningInTheBase) {
    OpResult result = m_lookup.updateNumSamples(5);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(result.getSubsystem(), mediaCoreOpSubsystem.getId());
    const LogCapture log;
    result.deliverNote(true);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_NE(log.lines()[0].find("updateNumSamples"), std::string::npos) << log.lines()[0];
    EXPECT_NE(log.lines()[0].find("shared/include/mediaobj"), std::string::npos) << log.lines()[0];
    EXPECT_EQ(m_lookup.m_numSamples, 10U);
}

TEST_F(OffsetLookup, TheBaseLeavesTheRestToDerivedClasses) {
    EXPECT_FALSE(m_lookup.detach(&m_scene.m_clip));
    EXPECT_EQ(m_lookup.setParams(EmptyMediaProperties()), 0);
    EXPECT_TRUE(m_lookup.addEmptyEdit(5).success());
    MediaOffsetSummary summary(1, 2, 3, 4);
    unsigned size = 5;
    EXPECT_FALSE(m_lookup.getAncillarySummary(summary, size));
    EXPECT_EQ(summary.m_endOffset, 4U);
    EXPECT_EQ(size, 5U);
}

TEST_F(OffsetLookup, SummaryIsACopy) {
    MediaOffsetSummary summary = m_lookup.getSummary();
    EXPECT_EQ(summary.m_sampleSize, 4U);
    EXPECT_EQ(summary.m_endOffset, 1040U);
    summary.m_numSamples = 99;
    EXPECT_EQ(m_lookup.m_numSamples, 10U);
}

}  // namespace
