#include <gtest/gtest.h>

#include <type_traits>

#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_summary.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/index/sample_and_count.h"
#include "shared/include/index/sample_info.h"

namespace {

MediaIdRec* idOf(std::uintptr_t position) { return reinterpret_cast<MediaIdRec*>(position); }

MediaSampleInMovie sampleOfTwoChunks() {
    MediaSampleInMovie sample;
    sample.MediaSampleDesc::set(2, 30, 400, 50U, 0, false);
    sample.m_numChunks = 2;
    sample.m_chunks[1] = MediaSampleDesc::Chunk(900, 60);
    sample.set(MediaAgent(), idOf(1), 2, 3, OsPathId(0xabc), false);
    return sample;
}

TEST(SampleInfo, StartsAsAnISampleWithItsReferenceKind) {
    const SampleInfo info;
    EXPECT_EQ(info.getEncoding(), SampleCodingType::I);
    EXPECT_EQ(info.m_refType, 14);
    EXPECT_EQ(info.m_ref1, 0x80);
    EXPECT_EQ(info.m_ref2, 0x80);
    EXPECT_EQ(info.getSize(), 0U);
    EXPECT_EQ(sizeof(SampleInfo), 8U);
}

TEST(SampleInfo, ResetLeavesNoReferenceKind) {
    SampleInfo info;
    info.setEncoding(SampleCodingType::B);
    info.m_ref1 = 1;
    info.m_ref2 = 2;
    info.reset(77);
    EXPECT_EQ(info.getEncoding(), SampleCodingType::I);
    EXPECT_EQ(info.m_refType, 0);
    EXPECT_EQ(info.m_ref1, 0x80);
    EXPECT_EQ(info.m_ref2, 0x80);
    EXPECT_EQ(info.getSize(), 77U);
}

TEST(SampleInfo, EachCodingTypeHasItsReferenceKind) {
    EXPECT_EQ(SampleInfo::defaultRefTypeForEncoding(SampleCodingType::B), 1);
    EXPECT_EQ(SampleInfo::defaultRefTypeForEncoding(SampleCodingType::P), 11);
    EXPECT_EQ(SampleInfo::defaultRefTypeForEncoding(SampleCodingType::I), 14);
    EXPECT_EQ(SampleInfo::defaultRefTypeForEncoding(SampleCodingType::Unknown), 0);
    EXPECT_EQ(SampleInfo::defaultRefTypeForEncoding(static_cast<SampleCodingType>(9)), 0);
    SampleInfo info;
    info.setSize(5);
    info.setEncoding(SampleCodingType::P);
    EXPECT_EQ(info.getEncoding(), SampleCodingType::P);
    EXPECT_EQ(info.m_refType, 11);
    EXPECT_EQ(info.getSize(), 5U);
}

TEST(SampleAndCount, StartsWithNoSamplesAndAPeriodOfOne) {
    const SampleAndCount answer;
    EXPECT_EQ(answer.m_sample, 0U);
    EXPECT_EQ(answer.m_count, 0U);
    EXPECT_EQ(answer.m_period, 1U);
    EXPECT_TRUE(std::is_trivially_copyable_v<SampleAndCount>);
}

TEST(MediaOffsetSummary, StartsAtZeroAndTakesItsFourNumbersInOrder) {
    MediaOffsetSummary summary;
    EXPECT_EQ(summary.m_sampleSize, 0U);
    EXPECT_EQ(summary.m_baseOffset, 0U);
    EXPECT_EQ(summary.m_numSamples, 0U);
    EXPECT_EQ(summary.m_endOffset, 0U);
    summary.set(4, 1000, 10, 1040);
    MediaOffsetSummary other;
    other.set(summary);
    const MediaOffsetSummary copy(other);
    EXPECT_EQ(copy.m_sampleSize, 4U);
    EXPECT_EQ(copy.m_baseOffset, 1000U);
    EXPECT_EQ(copy.m_numSamples, 10U);
    EXPECT_EQ(copy.m_endOffset, 1040U);
}

TEST(MediaPlayReq, IsCopiedMemberByMember) {
    MediaPlayReq req(12, 3);
    req.m_sample2 = 40;
    req.m_flag = true;
    req.m_extra = true;
    const MediaPlayReq copy = req;
    EXPECT_EQ(copy.m_sample, 12U);
    EXPECT_EQ(copy.m_count, 3U);
    EXPECT_EQ(copy.m_sample2, 40U);
    EXPECT_TRUE(copy.m_flag);
    EXPECT_TRUE(copy.m_agent == nullptr);
    EXPECT_TRUE(copy.m_extra);
}

TEST(MediaRecordReq, LeavesThePlaceToTheIndexWithoutAnOffset) {
    SampleInfo info;
    info.setSize(9);
    const MediaRecordReq req(100, 7, info);
    EXPECT_EQ(req.m_sample, 100U);
    EXPECT_EQ(req.m_count, 7U);
    EXPECT_FALSE(req.m_flag);
    EXPECT_FALSE(req.m_hasOffset);
    EXPECT_EQ(req.m_offset, 0U);
    EXPECT_FALSE(req.m_timecode.isValid());
    EXPECT_EQ(req.m_info.getSize(), 9U);
    EXPECT_EQ(req.m_trailer, 0U);
}

TEST(MediaRecordReq, KeepsAnOffsetOfZeroThatIsGiven) {
    const MediaRecordReq req(100, 7, SampleInfo(), 0);
    EXPECT_TRUE(req.m_hasOffset);
    EXPECT_EQ(req.m_offset, 0U);
    const MediaRecordReq other(100, 7, SampleInfo(), 5555);
    EXPECT_TRUE(other.m_hasOffset);
    EXPECT_EQ(other.m_offset, 5555U);
    EXPECT_FALSE(other.m_flag);
}

TEST(MediaSampleDesc, StartsWithNothing) {
    const MediaSampleDesc desc;
    EXPECT_EQ(desc.m_count, 0U);
    EXPECT_EQ(desc.m_sample, 0U);
    EXPECT_EQ(desc.m_anchor, 0U);
    EXPECT_EQ(desc.m_info.m_refType, 14);
    EXPECT_FALSE(desc.m_timecode.isValid());
    EXPECT_FALSE(desc.m_tcAvailable);
    EXPECT_FALSE(desc.m_frameN);
    EXPECT_EQ(desc.m_numChunks, 0U);
    EXPECT_EQ(desc.m_chunks[1].m_offset, 0U);
    EXPECT_EQ(desc.m_chunks[1].m_size, 0U);
    EXPECT_EQ(desc.m_reserved, 0U);
    EXPECT_EQ(desc.m_gap, 0);
    EXPECT_FALSE(desc.m_internal);
    EXPECT_FALSE(desc.hasOffset());
    EXPECT_FALSE(desc.hasSize());
}

TEST(MediaSampleDesc, SetMakesTheSampleItsOwnAnchor) {
    MediaSampleDesc desc;
    desc.m_tcAvailable = true;
    desc.m_frameN = true;
    desc.m_numChunks = 2;
    SampleInfo info;
    info.setEncoding(SampleCodingType::P);
    info.setSize(60);
    desc.set(3, 17, 4000, info, -2, true);
    EXPECT_EQ(desc.m_count, 3U);
    EXPECT_EQ(desc.m_sample, 17U);
    EXPECT_EQ(desc.m_anchor, 17U);
    EXPECT_EQ(desc.m_info.getEncoding(), SampleCodingType::P);
    EXPECT_EQ(desc.m_info.m_refType, 11);
    EXPECT_EQ(desc.m_numChunks, 1U);
    EXPECT_EQ(desc.m_chunks[0].m_offset, 4000U);
    EXPECT_EQ(desc.m_chunks[0].m_size, 60U);
    EXPECT_EQ(desc.m_gap, -2);
    EXPECT_TRUE(desc.m_internal);
    EXPECT_FALSE(desc.m_tcAvailable);
    EXPECT_FALSE(desc.m_frameN);
}

TEST(MediaSampleDesc, SetWithAPlainSizeResetsTheInfo) {
    MediaSampleDesc desc;
    desc.m_info.setEncoding(SampleCodingType::B);
    desc.set(1, 17, 4000, 60U, 0, false);
    EXPECT_EQ(desc.m_info.getEncoding(), SampleCodingType::I);
    EXPECT_EQ(desc.m_info.m_refType, 0);
    EXPECT_EQ(desc.m_info.getSize(), 60U);
    EXPECT_EQ(desc.m_chunks[0].m_size, 60U);
    EXPECT_EQ(desc.m_anchor, 17U);
}

TEST(MediaSampleDesc, ResetForgetsWhatWasSet) {
    MediaSampleDesc desc;
    desc.set(3, 17, 4000, 60U, 5, true);
    desc.m_timecode.setCounter(25, FixedPoint<16>(25), false);
    desc.m_reserved = 6;
    desc.reset();
    EXPECT_EQ(desc.m_count, 0U);
    EXPECT_EQ(desc.m_sample, 0U);
    EXPECT_EQ(desc.m_anchor, 0U);
    EXPECT_FALSE(desc.m_timecode.isValid());
    EXPECT_EQ(desc.m_numChunks, 0U);
    EXPECT_EQ(desc.m_reserved, 0U);
    EXPECT_EQ(desc.m_gap, 0);
    EXPECT_FALSE(desc.m_internal);
}

TEST(MediaSampleDesc, AllOnesMeanThatOffsetOrSizeIsNotKnown) {
    MediaSampleDesc desc;
    desc.set(1, 0, 0xFFFFFFFFULL, 10U, 0, false);
    EXPECT_FALSE(desc.hasOffset());
    EXPECT_TRUE(desc.hasSize());
    desc.set(1, 0, 0x100000000ULL, 0xFFFFFFFFU, 0, false);
    EXPECT_TRUE(desc.hasOffset());
    EXPECT_FALSE(desc.hasSize());
    desc.set(1, 0, 0, 0U, 0, false);
    EXPECT_TRUE(desc.hasOffset());
    EXPECT_TRUE(desc.hasSize());
    desc.m_numChunks = 0;
    EXPECT_FALSE(desc.hasOffset());
    EXPECT_FALSE(desc.hasSize());
}

TEST(MediaSampleInMovie, StartsNowhere) {
    const MediaSampleInMovie sample;
    EXPECT_TRUE(sample.m_agent == nullptr);
    EXPECT_EQ(sample.m_mediaId, nullptr);
    EXPECT_EQ(sample.m_trackIndex, 0xFFFF);
    EXPECT_EQ(sample.m_clipIndex, 0xFFFF);
    EXPECT_EQ(sample.m_pathId, OsPathId(0));
    EXPECT_FALSE(sample.m_closeOther);
    EXPECT_EQ(sample.m_numChunks, 0U);
}

TEST(MediaSampleInMovie, SetOfThePlaceLeavesTheBytesAlone) {
    MediaSampleInMovie sample;
    sample.set(3, 17, 4000, 60U, 0, false);
    sample.set(MediaAgent(), idOf(2), 4, 5, OsPathId(66), true);
    EXPECT_EQ(sample.m_mediaId, idOf(2));
    EXPECT_EQ(sample.m_trackIndex, 4);
    EXPECT_EQ(sample.m_clipIndex, 5);
    EXPECT_EQ(sample.m_pathId, OsPathId(66));
    EXPECT_TRUE(sample.m_closeOther);
    EXPECT_EQ(sample.m_sample, 17U);
    EXPECT_EQ(sample.m_chunks[0].m_offset, 4000U);
}

TEST(MediaSampleInMovie, ShortTextNamesFileTrackClipAndChunk) {
    MediaSampleInMovie sample;
    sample.set(3, 17, 4000, 60U, 0, false);
    sample.set(MediaAgent(), idOf(2), 4, 5, OsPathId(66), true);
    EXPECT_STREQ(sample.toString(Brevity::Short).get(), "mid=0x2,trk4,clp5,3s@17,60b@4000");
}

TEST(MediaSampleInMovie, LongTextAddsAgentAndObject) {
    MediaSampleInMovie sample;
    sample.set(3, 17, 4000, 60U, 0, false);
    sample.set(MediaAgent(), idOf(2), 4, 5, OsPathId(0xabc), true);
    EXPECT_STREQ(sample.toString(Brevity::Long).get(),
                 "agnt=(nil),mid=0x2,trk4,clp5,obj=0xabc,closeOther,3s@17,60b@4000");
    sample.m_closeOther = false;
    EXPECT_STREQ(sample.toString(Brevity::Long).get(), "agnt=(nil),mid=0x2,trk4,clp5,obj=0xabc,3s@17,60b@4000");
}

TEST(MediaSampleInMovie, SeveralChunksStandInAListThatIsNotClosed) {
    EXPECT_STREQ(sampleOfTwoChunks().toString(Brevity::Short).get(), "mid=0x1,trk2,clp3,2s@30,c[2]={50b@400,,60b@900,");
}

TEST(MediaSampleInMovie, TextOfAnEmptySampleHasNoChunk) {
    EXPECT_STREQ(MediaSampleInMovie().toString(Brevity::Short).get(), "mid=(nil),trk65535,clp65535,0s@0");
}

TEST(MediaSampleInMovie, TextPrefersAValidTimecodeToOneThatIsMerelyAvailable) {
    MediaSampleInMovie sample = sampleOfTwoChunks();
    sample.m_numChunks = 1;
    sample.m_tcAvailable = true;
    EXPECT_STREQ(sample.toString(Brevity::Short).get(), "mid=0x1,trk2,clp3,2s@30,50b@400,tc avail");
    sample.m_timecode.setCounter(26, FixedPoint<16>(25), false);
    EXPECT_STREQ(sample.toString(Brevity::Short).get(), "mid=0x1,trk2,clp3,2s@30,50b@400,00:00:01.01");
}

TEST(MediaEditDesc, LengthIsNeverNegative) {
    EXPECT_EQ(MediaEditDesc(10, 4).getLength(), 0U);
    EXPECT_EQ(MediaEditDesc(10, 4).numSamples(), 0U);
    EXPECT_EQ(MediaEditDesc(10, 10).getLength(), 0U);
    EXPECT_EQ(MediaEditDesc(10, 35).getLength(), 25U);
    EXPECT_EQ(MediaEditDesc(10, 35).numSamples(), 25U);
    EXPECT_EQ(MediaEditDesc().getLength(), 0U);
}

TEST(MediaEditDesc, PrechargeIsTheInPointAndLeavesTheOutPoint) {
    MediaEditDesc edit(0, 100);
    edit.setPrecharge(10);
    EXPECT_EQ(edit.getIn(), 10U);
    EXPECT_EQ(edit.getOut(), 100U);
    edit.increaseOut(20);
    EXPECT_EQ(edit.getOut(), 120U);
    edit.setLength(5);
    EXPECT_EQ(edit.getIn(), 10U);
    EXPECT_EQ(edit.getOut(), 15U);
}

}  // namespace
