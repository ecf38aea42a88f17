#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "shared/include/io/media_io_buf.h"
#include "tests/unit/index/fixture.h"

namespace {

constexpr auto s_discard = MediaIoBuf::Preservation::Discard;
constexpr auto s_keep = MediaIoBuf::Preservation::Keep;
constexpr auto s_keepForeign = MediaIoBuf::AllocChange::KeepForeign;
constexpr auto s_ownBlock = MediaIoBuf::AllocChange::OwnBlock;
constexpr unsigned s_limit = 0x800000;

// A buffer over memory that belongs to the test.
class ForeignBuf : public MediaIoBuf {
public:
    ForeignBuf(unsigned char* memory, std::uint32_t capacity) {
        m_mem = memory;
        m_capacity = capacity;
        m_foreign = 1;
    }
    bool isForeign() const { return m_foreign != 0; }
};

void fill(MediaIoBuf& buf, unsigned char first) {
    for (unsigned i = 0; i < buf.size(); ++i)
        buf.getMem()[i] = static_cast<unsigned char>(first + i);
}

bool holds(const MediaIoBuf& buf, unsigned char first, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        if (buf.getMem()[i] != static_cast<unsigned char>(first + i)) return false;
    }
    return true;
}

TEST(MediaIoBuf, StartsEmpty) {
    const MediaIoBuf buf;
    EXPECT_EQ(buf.size(), 0U);
    EXPECT_EQ(buf.getMem(), nullptr);
}

TEST(MediaIoBuf, ASizeOfZeroAllocatesNothing) {
    MediaIoBuf buf;
    EXPECT_TRUE(buf.resize(0, s_discard, s_keepForeign));
    EXPECT_EQ(buf.getMem(), nullptr);
    EXPECT_EQ(buf.size(), 0U);
}

TEST(MediaIoBuf, TheLargestBlockIsEightMebibytes) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(s_limit, s_discard, s_keepForeign));
    EXPECT_EQ(buf.size(), s_limit);
    fill(buf, 3);
    const unsigned char* const block = buf.getMem();
    EXPECT_FALSE(buf.resize(s_limit + 1, s_discard, s_keepForeign));
    EXPECT_FALSE(buf.resize(0xFFFFFFFF, s_keep, s_ownBlock));
    EXPECT_EQ(buf.size(), s_limit);
    EXPECT_EQ(buf.getMem(), block);
    EXPECT_TRUE(holds(buf, 3, s_limit));
}

TEST(MediaIoBuf, ShrinkingAndGrowingWithinTheCapacityKeepsTheBlock) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(1000, s_discard, s_keepForeign));
    fill(buf, 0);
    const unsigned char* const block = buf.getMem();
    for (const unsigned size : {10U, 0U, 999U, 1000U}) {
        EXPECT_TRUE(buf.resize(size, s_discard, s_keepForeign));
        EXPECT_EQ(buf.size(), size);
        EXPECT_EQ(buf.getMem(), block);
    }
    EXPECT_TRUE(holds(buf, 0, 1000));
}

TEST(MediaIoBuf, GrowingKeepsTheWholeOldBlockWhenAsked) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(1000, s_discard, s_keepForeign));
    fill(buf, 7);
    ASSERT_TRUE(buf.resize(10, s_discard, s_keepForeign));
    ASSERT_TRUE(buf.resize(2000, s_keep, s_keepForeign));
    EXPECT_EQ(buf.size(), 2000U);
    EXPECT_TRUE(holds(buf, 7, 1000));
}

TEST(MediaIoBuf, ForeignMemoryServesWithinItsCapacity) {
    unsigned char memory[64] = {};
    ForeignBuf buf(memory, sizeof memory);
    EXPECT_TRUE(buf.resize(64, s_discard, s_keepForeign));
    EXPECT_EQ(buf.getMem(), memory);
    EXPECT_FALSE(buf.resize(65, s_discard, s_keepForeign));
    EXPECT_EQ(buf.getMem(), memory);
    EXPECT_EQ(buf.size(), 64U);
    EXPECT_TRUE(buf.isForeign());
}

TEST(MediaIoBuf, ForeignMemoryAboveTheLimitServesWithinItsCapacity) {
    MediaIoBuf lender;
    ASSERT_TRUE(lender.resize(1, s_discard, s_keepForeign));
    // Only the numbers are touched.
    ForeignBuf buf(lender.getMem(), s_limit + 100);
    EXPECT_TRUE(buf.resize(s_limit + 100, s_discard, s_keepForeign));
    EXPECT_EQ(buf.size(), s_limit + 100);
    EXPECT_TRUE(buf.resize(5, s_discard, s_keepForeign));
    EXPECT_TRUE(buf.resize(s_limit + 1, s_discard, s_keepForeign));
    EXPECT_EQ(buf.getMem(), lender.getMem());
}

TEST(MediaIoBuf, OwnMemoryReplacesForeignMemoryThatWouldBeLargeEnough) {
    unsigned char memory[64] = {1, 2, 3};
    ForeignBuf buf(memory, sizeof memory);
    EXPECT_TRUE(buf.resize(16, s_discard, s_ownBlock));
    EXPECT_NE(buf.getMem(), memory);
    EXPECT_FALSE(buf.isForeign());
    EXPECT_EQ(buf.size(), 16U);
    std::memset(buf.getMem(), 9, 16);
    EXPECT_EQ(memory[0], 1);
    // The capacity is the new block's.
    const unsigned char* const block = buf.getMem();
    EXPECT_TRUE(buf.resize(16, s_discard, s_ownBlock));
    EXPECT_EQ(buf.getMem(), block);
}

TEST(MediaIoBuf, OwnMemoryAboveTheLimitIsRefusedAndLeavesTheForeignBlock) {
    unsigned char memory[8] = {};
    ForeignBuf buf(memory, sizeof memory);
    EXPECT_FALSE(buf.resize(s_limit + 1, s_discard, s_ownBlock));
    EXPECT_EQ(buf.getMem(), memory);
    EXPECT_TRUE(buf.isForeign());
}

TEST(MediaIoBuf, ACopyHasItsOwnBlock) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(100, s_discard, s_keepForeign));
    fill(buf, 1);
    MediaIoBuf copy(buf);
    EXPECT_EQ(copy.size(), 100U);
    EXPECT_NE(copy.getMem(), buf.getMem());
    EXPECT_TRUE(holds(copy, 1, 100));

    MediaIoBuf assigned;
    ASSERT_TRUE(assigned.resize(500, s_discard, s_keepForeign));
    const unsigned char* const block = assigned.getMem();
    assigned = buf;
    EXPECT_EQ(assigned.size(), 100U);
    EXPECT_EQ(assigned.getMem(), block);
    EXPECT_TRUE(holds(assigned, 1, 100));
    assigned = std::as_const(assigned);
    EXPECT_TRUE(holds(assigned, 1, 100));
}

TEST(MediaIoBuf, ACopyOfAnEmptyBufferIsEmpty) {
    const MediaIoBuf empty;
    const MediaIoBuf copy(empty);
    EXPECT_EQ(copy.size(), 0U);
    EXPECT_EQ(copy.getMem(), nullptr);
}

TEST(MediaIoBuf, AssigningToForeignMemoryLeavesThatMemoryAlone) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(4, s_discard, s_keepForeign));
    fill(buf, 50);
    unsigned char memory[8] = {};
    ForeignBuf foreign(memory, sizeof memory);
    static_cast<MediaIoBuf&>(foreign) = buf;
    EXPECT_FALSE(foreign.isForeign());
    EXPECT_TRUE(holds(foreign, 50, 4));
    EXPECT_EQ(std::count(memory, memory + 8, 0), 8);
}

TEST(MediaSampleBuf, BytesOfASampleAreRoundedUp) {
    EXPECT_EQ(MediaSampleBuf::bytesPerSample(0), 0U);
    EXPECT_EQ(MediaSampleBuf::bytesPerSample(1), 1U);
    EXPECT_EQ(MediaSampleBuf::bytesPerSample(8), 1U);
    EXPECT_EQ(MediaSampleBuf::bytesPerSample(9), 2U);
    EXPECT_EQ(MediaSampleBuf::bytesPerSample(20), 3U);
}

TEST(MediaSampleBuf, IsSizedForTheClipsLeastSamples) {
    IndexScene scene;
    scene.m_clip.setSizes(20, 100, 4);
    const MediaSampleBuf buf(scene.m_clip);
    EXPECT_EQ(buf.size(), 1200U);
    EXPECT_EQ(buf.getParam().m_channels, 4U);
    EXPECT_EQ(buf.getParam().m_encoding, MediaEncodingType::Pcm);
    EXPECT_FALSE(buf.isMpegBuf());
}

TEST(MediaSampleBuf, KnowsMpegEssence) {
    IndexScene scene(MediaDataType::Video, MediaVideoRate::Pal25, MediaEncodingType::Mpeg, 25);
    EXPECT_TRUE(MediaSampleBuf(scene.m_clip).isMpegBuf());
}

TEST(MediaSampleBuf, NumbersThatNoBlockCanHoldLeaveItEmpty) {
    IndexScene scene;
    scene.m_clip.setSizes(8, s_limit, 2);
    const MediaSampleBuf large(scene.m_clip);
    EXPECT_EQ(large.size(), 0U);
    EXPECT_EQ(large.getMem(), nullptr);
}

TEST(MediaSampleBuf, ItsSizeIsTakenIn32Bits) {
    IndexScene scene;
    scene.m_clip.setSizes(8, 0x80000001, 2);
    EXPECT_EQ(MediaSampleBuf(scene.m_clip).size(), 2U);
}

}  // namespace
