#include <cstdint>
#include <optional>
#include <vector>

#include "tests/unit/index/fixture.h"

// Sample numbers, counts and frames that no honest client asks for. What an index answers is compared with sums that
// are wide enough for them, and the request after it is served as if nothing had been.

namespace {

using U64 = unsigned long long;
__extension__ using Wide = __int128;

constexpr U64 s_2e31 = 1ULL << 31;
constexpr U64 s_2e32 = 1ULL << 32;
constexpr U64 s_2e62 = 1ULL << 62;
constexpr U64 s_2e63 = 1ULL << 63;
constexpr U64 s_most = ~0ULL;
constexpr U64 s_samples = 10;

// Both sides of every end, and of every place where a number or its product with a size of 2 to the power n turns over.
constexpr U64 s_hostile[] = {0,          1,          6,          7,          8,          9,          10,         11,
                             12,         s_2e31 - 1, s_2e31,     s_2e31 + 1, s_2e32 - 1, s_2e32,     s_2e32 + 1, s_2e62,
                             s_2e62 + 3, s_2e62 * 3, s_2e63 - 1, s_2e63,     s_2e63 + 5, s_most - 1, s_most};
constexpr unsigned s_counts[] = {0,          1,          2,         3, 4, 10, 11, 1600, 1U << 30, (1U << 30) + 2,
                                 0x7fffffff, 0x80000000, 0xffffffff};

// What a request is to be answered.
struct Answer {
    bool m_found = false;
    bool m_told = true;  // the place is in the description, found or not
    unsigned m_count = 0;
    U64 m_offset = 0;
    U64 m_bytes = 0;
};

class HostileIndex : public testing::Test {
protected:
    // An index of ten samples over a file of exactly that length; the file is sparse.
    void indexOf(unsigned size, U64 base) {
        m_size = size;
        m_base = base;
        m_file.setLength(base + size * s_samples);
        m_scene.m_movie->m_path = m_file.path();
        m_lookup.emplace(m_scene.m_clip, summaryOf(size, base, s_samples));
    }

    Wide end() const { return Wide{m_base} + Wide{m_size} * s_samples; }

    Answer right(U64 sample, unsigned count) const {
        const Wide offset = m_base + Wide{sample} * m_size;
        Answer answer;
        answer.m_count = count;
        answer.m_offset = static_cast<U64>(offset);
        answer.m_bytes = m_size;
        if (offset >= end()) return answer;
        answer.m_found = true;
        const Wide left = end() - offset;
        if (count == 1) return answer;  // the file holds whole samples
        answer.m_bytes = static_cast<std::uint32_t>(Wide{m_size} * count);
        if (answer.m_bytes <= left) return answer;
        const Wide samplesLeft = left / m_size;
        if (samplesLeft < 3) return Answer{false, false};
        answer.m_count = static_cast<unsigned>(samplesLeft);
        answer.m_bytes = static_cast<U64>(samplesLeft * m_size);
        return answer;
    }

    void expectAnswer(U64 sample, unsigned count, const Answer& wanted) {
        SCOPED_TRACE(testing::Message() << "sample " << sample << ", count " << count << ", size " << m_size
                                        << ", base " << m_base);
        MediaSampleDesc desc;
        OpResult result = OpResult::Ok;
        EXPECT_EQ(m_lookup->getMediaOffset(MediaPlayReq(sample, count), desc, result), wanted.m_found);
        EXPECT_TRUE(result.success());
        EXPECT_EQ(desc.m_numChunks, wanted.m_told ? 1U : 0U);
        if (!wanted.m_told) return;
        EXPECT_EQ(desc.m_sample, sample);
        EXPECT_EQ(desc.m_count, wanted.m_count);
        EXPECT_EQ(desc.m_chunks[0].m_offset, wanted.m_offset);
        EXPECT_EQ(desc.m_chunks[0].m_size, wanted.m_bytes);
    }

    void expectAsBefore() {
        EXPECT_EQ(m_lookup->getNumSamples(), s_samples);
        EXPECT_EQ(m_lookup->m_endOffset, static_cast<U64>(end()));
        expectAnswer(5, 1, Answer{true, true, 1, m_base + 5ULL * m_size, m_size});
    }

    GrowingFile m_file;
    IndexScene m_scene;
    std::optional<FixedLookup> m_lookup;
    unsigned m_size = 0;
    U64 m_base = 0;
};

}  // namespace

TEST_F(HostileIndex, EveryRequestIsAnsweredByWhatTheFileHolds) {
    for (const unsigned size : {1U, 4U, 120000U, 0x10000000U}) {
        for (const U64 base : {U64{0}, U64{1000}, s_2e32 + 7}) {
            indexOf(size, base);
            for (const U64 sample : s_hostile) {
                for (const unsigned count : s_counts)
                    expectAnswer(sample, count, right(sample, count));
            }
            expectAsBefore();
        }
    }
}

TEST_F(HostileIndex, ASampleWhosePlaceWrapsIsPastTheEndAndNotTheFirstOne) {
    indexOf(4, 1000);
    // Times four these are nothing, and twelve bytes.
    expectAnswer(s_2e62, 1, Answer{false, true, 1, 1000, 4});
    expectAnswer(s_2e62 + 3, 1, Answer{false, true, 1, 1012, 4});
    expectAnswer(s_2e62 + 3, 4, Answer{false, true, 4, 1012, 4});
    expectAsBefore();
}

TEST_F(HostileIndex, APlaceThatWrapsBehindItsBaseIsPastTheEnd) {
    m_size = 1;
    m_base = 4096;
    m_file.setLength(m_base + s_samples);
    m_scene.m_movie->m_path = m_file.path();
    m_lookup.emplace(m_scene.m_clip, summaryOf(m_size, m_base, s_samples));
    expectAnswer(s_most - 4095, 1, Answer{false, true, 1, 0, 1});
    expectAsBefore();
}

TEST_F(HostileIndex, ABlockAtTheEndOfWhatNumbersCanCountIsCutThere) {
    const FixedLookup lookup(m_scene.m_clip, MediaOffsetSummary(1, s_most - 20, 20, s_most));
    MediaSampleDesc desc;
    OpResult result = OpResult::Ok;
    ASSERT_TRUE(lookup.getMediaOffset(MediaPlayReq(15, 100), desc, result));
    EXPECT_EQ(desc.m_count, 5U);
    EXPECT_EQ(desc.m_chunks[0].m_size, 5U);
    ASSERT_TRUE(lookup.getMediaOffset(MediaPlayReq(19, 1), desc, result));
    EXPECT_EQ(desc.m_chunks[0].m_offset, s_most - 1);
}

TEST_F(HostileIndex, DvFramesAreFoundBySignedArithmeticOrArePastTheEnd) {
    m_scene.m_clip.setEncoding(MediaEncodingType::Dv);
    indexOf(120000, 64);
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            if (count == 1) continue;
            if (count == 0) {
                expectAnswer(sample, 0, Answer{false, false});
                continue;
            }
            const Wide thousandths = Wide{sample} * 1000;
            if (thousandths > INT64_MAX) {
                MediaSampleDesc desc;
                OpResult result = OpResult::Ok;
                EXPECT_FALSE(m_lookup->getMediaOffset(MediaPlayReq(sample, count), desc, result));
                EXPECT_TRUE(result.success());
                EXPECT_EQ(desc.m_sample, sample);
                continue;
            }
            const Wide frame = (thousandths / count + 500) / 1000;
            const U64 offset = 64 + static_cast<std::uint32_t>(frame * 120000);
            const bool found = offset < 64 + 120000 * s_samples;
            expectAnswer(sample, count, Answer{found, true, count, offset, 120000});
        }
    }
    expectAsBefore();
}

TEST_F(HostileIndex, AnyNumberOfSamplesIsTakenAndTheEndWraps) {
    indexOf(4, 1000);
    for (const U64 samples : s_hostile) {
        EXPECT_TRUE(m_lookup->updateNumSamples(samples).success());
        EXPECT_EQ(m_lookup->getNumSamples(), samples);
        EXPECT_EQ(m_lookup->m_endOffset, static_cast<U64>(1000 + Wide{samples} * 4));
        // What lies behind the end that is claimed is sought in the file.
        const bool claimed = Wide{1000 + 4 * 5} < Wide{m_lookup->m_endOffset.get()};
        expectAnswer(5, 1, Answer{true, true, 1, 1020, 4});
        EXPECT_EQ(m_lookup->getNumSamples(), claimed ? samples : s_samples);
    }
    EXPECT_TRUE(m_lookup->updateNumSamples(s_samples).success());
    expectAsBefore();
}

TEST_F(HostileIndex, EverySummaryIsTakenAndRepeated) {
    indexOf(4, 1000);
    m_file.setLength(0);
    for (const U64 number : s_hostile) {
        const auto size = static_cast<std::uint32_t>(number);
        EXPECT_TRUE(m_lookup->update(MediaOffsetSummary(size, number, number, number)).success());
        const MediaOffsetSummary kept = m_lookup->getSummary();
        EXPECT_EQ(kept.m_sampleSize, size);
        EXPECT_EQ(kept.m_baseOffset, number);
        EXPECT_EQ(kept.m_numSamples, number);
        EXPECT_EQ(kept.m_endOffset, number);
        // No sample lies in it: it ends where it begins, and the file is empty.
        MediaSampleDesc desc;
        OpResult result = OpResult::Ok;
        EXPECT_FALSE(m_lookup->getMediaOffset(MediaPlayReq(number, 1), desc, result)) << number;
        EXPECT_TRUE(result.success()) << number;
    }
    m_file.setLength(1000 + 4 * s_samples);
    EXPECT_TRUE(m_lookup->update(summaryOf(4, 1000, s_samples)).success());
    expectAsBefore();
}

TEST_F(HostileIndex, AddedSamplesOfAnyNumberAreWhereTheArithmeticPutsThem) {
    const LogCapture log;  // of overlaps
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            SCOPED_TRACE(testing::Message() << "sample " << sample << ", count " << count);
            indexOf(4, 1000);
            MediaSampleDesc desc;
            OpResult result = OpResult::Ok;
            EXPECT_TRUE(m_lookup->addSamples(MediaRecordReq(sample, count, SampleInfo()), desc, result));
            EXPECT_TRUE(result.success());
            EXPECT_EQ(desc.m_sample, sample);
            EXPECT_EQ(desc.m_count, count);
            const U64 computed = static_cast<U64>(1000 + Wide{sample} * 4);
            const auto gap = static_cast<long long>(computed - 1040);
            const bool moved = count != 1 && gap >= -24 && gap <= 24;
            EXPECT_EQ(desc.m_chunks[0].m_offset, moved ? 1040 : computed);
            EXPECT_EQ(desc.m_gap, count == 1 ? 0 : gap / 4);
            const U64 behind = sample + count;
            EXPECT_EQ(m_lookup->getNumSamples(), behind > s_samples ? behind : s_samples);
        }
    }
}

TEST_F(HostileIndex, AnOverlapOfHalfOfAllNumbersHasItsGap) {
    FixedLookup lookup(m_scene.m_clip, MediaOffsetSummary(1, 0, 0, s_2e63));
    MediaSampleDesc desc;
    OpResult result = OpResult::Ok;
    const LogCapture log;
    EXPECT_TRUE(lookup.addSamples(MediaRecordReq(0, 2, SampleInfo()), desc, result));
    EXPECT_EQ(desc.m_gap, INT64_MIN);
    EXPECT_EQ(desc.m_chunks[0].m_offset, 0U);
    EXPECT_EQ(desc.m_chunks[0].m_size, 2U);
    EXPECT_EQ(lookup.getNumSamples(), 2U);
}

TEST_F(HostileIndex, AddedSamplesWithoutSizeHaveNoGap) {
    FixedLookup lookup(m_scene.m_clip, MediaOffsetSummary(0, 100, 0, 100));
    for (const U64 sample : s_hostile) {
        MediaSampleDesc desc;
        OpResult result = OpResult::Ok;
        EXPECT_TRUE(lookup.addSamples(MediaRecordReq(sample, 3, SampleInfo()), desc, result));
        EXPECT_EQ(desc.m_chunks[0].m_offset, 100U);
        EXPECT_EQ(desc.m_chunks[0].m_size, 0U);
        EXPECT_EQ(desc.m_gap, 0);
    }
}

namespace {

SampleAndCount askAudio(MediaVideoRate rate, unsigned sampleRate, U64 frame,
                        MediaEncodingType encoding = MediaEncodingType::Pcm) {
    const IndexScene scene(MediaDataType::Audio, rate, encoding, sampleRate);
    const FixedLookup lookup(scene.m_clip, summaryOf(4, 0, 0));
    return lookup.getSampleAndCount(scene.m_clip, frame);
}

}  // namespace

TEST(HostileFrames, OfVideoAndDataAreTheirOwnSamples) {
    for (const MediaDataType type :
         {MediaDataType::Unknown, MediaDataType::Video, MediaDataType::Data, static_cast<MediaDataType>(0xffffffff)}) {
        const IndexScene scene(type);
        const FixedLookup lookup(scene.m_clip, summaryOf(4, 0, 0));
        for (const U64 frame : s_hostile) {
            const SampleAndCount got = lookup.getSampleAndCount(scene.m_clip, frame);
            EXPECT_EQ(got.m_sample, frame);
            EXPECT_EQ(got.m_count, 1U);
            EXPECT_EQ(got.m_period, 1U);
        }
    }
}

TEST(HostileFrames, OfTheTablesKeepTheirCountsAndPeriods) {
    for (const U64 frame : s_hostile) {
        const SampleAndCount at48k = askAudio(MediaVideoRate::Ntsc2997, 48000, frame);
        EXPECT_EQ(at48k.m_count, frame % 5 == 0 ? 1600U : 1602U) << frame;
        EXPECT_EQ(at48k.m_period, 5U);
        EXPECT_EQ(at48k.m_sample, frame / 5 * 8008 + (frame % 5 == 0 ? 0 : frame % 5 * 1602 - 2)) << frame;
        EXPECT_EQ(askAudio(MediaVideoRate::Hz5994, 48000, frame).m_count, frame % 10 < 2 ? 800U : 801U) << frame;
        EXPECT_EQ(askAudio(MediaVideoRate::Unknown, 8000, frame).m_count, frame % 15 == 0 ? 266U : 267U) << frame;
    }
}

TEST(HostileFrames, OutsideTheTablesStartOnEvenSamples) {
    for (unsigned rate = 0; rate < 10; ++rate) {
        for (const unsigned sampleRate : {1U, 22050U, 96000U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
            for (const U64 frame : s_hostile) {
                const auto videoRate = static_cast<MediaVideoRate>(rate);
                EXPECT_EQ(askAudio(videoRate, sampleRate, frame).m_sample % 2, 0U);
                // Units of one tick are the samples themselves, though the unknown rate is 29.97 Hz there.
                EXPECT_EQ(askAudio(videoRate, sampleRate, frame, MediaEncodingType::Aac).m_sample % 2, 0U);
            }
        }
    }
}

TEST(HostileFrames, WithoutASampleRateHaveNoSamples) {
    for (unsigned rate = 0; rate < 10; ++rate) {
        for (const U64 frame : {U64{0}, U64{1}, s_2e32}) {
            const SampleAndCount got = askAudio(static_cast<MediaVideoRate>(rate), 0, frame);
            EXPECT_EQ(got.m_sample, 0U);
            EXPECT_EQ(got.m_count, 0U);
            EXPECT_EQ(got.m_period, 1U);
        }
    }
}

TEST(HostileFrames, OfARateThatNobodyKnowsAreOneASecond) {
    const SampleAndCount got = askAudio(static_cast<MediaVideoRate>(0xffffffff), 48000, 3);
    EXPECT_EQ(got.m_sample, 144000U);
    EXPECT_EQ(got.m_count, 48000U);
    EXPECT_EQ(got.m_period, 1U);
}
