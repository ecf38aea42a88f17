#include "services/metadata/agent_properties.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "services/metadata/platform_records.h"

using Property = GenericProperty<MediaAgentPropId>;

TEST(GenericPropertyTest, TheTypeIsTheTopFourBitsOfTheId) {
    EXPECT_EQ(Property::typeOf(static_cast<MediaAgentPropId>(0x10000002)), 1u);
    EXPECT_EQ(Property::typeOf(static_cast<MediaAgentPropId>(0xf0000001)), 15u);
    EXPECT_EQ(Property::typeOf(static_cast<MediaAgentPropId>(0x0fffffff)), 0u);
}

TEST(GenericPropertyTest, CarriesItsIdAndItsNumber) {
    const Property property(MediaAgentPropId::FrameN, 7);
    EXPECT_EQ(property.getId(), MediaAgentPropId::FrameN);
    EXPECT_EQ(static_cast<unsigned>(property.getId()), 0x10000002u);
    EXPECT_EQ(property.uintValue(), 7u);
    EXPECT_EQ(Property().uintValue(), 0u);
    EXPECT_EQ(Property().getId(), MediaAgentPropId::None);
}

TEST(GenericPropertySetTest, AnswersNullForWhatItHasnt) {
    const GenericPropertySet<MediaAgentPropId> set;
    EXPECT_EQ(set.get(MediaAgentPropId::FrameN), nullptr);
}

TEST(GenericPropertySetTest, APropertySetAgainTakesThePlaceOfTheFirst) {
    GenericPropertySet<MediaAgentPropId> set;
    set.set(Property(MediaAgentPropId::FrameN, 1));
    set.set(Property(static_cast<MediaAgentPropId>(0x10000003), 5));
    set.set(Property(MediaAgentPropId::FrameN, 2));
    const IGenericProperties<MediaAgentPropId>& asked = set;
    ASSERT_NE(asked.get(MediaAgentPropId::FrameN), nullptr);
    EXPECT_EQ(asked.get(MediaAgentPropId::FrameN)->uintValue(), 2u);
    EXPECT_EQ(asked.get(static_cast<MediaAgentPropId>(0x10000003))->uintValue(), 5u);
}

TEST(ZxMediaSummary1Test, BeginsWithNothingKnown) {
    const ZxMediaSummary1 summary;
    EXPECT_EQ(summary.type, ZxMediaType::Unknown);
    EXPECT_EQ(summary.chroma, ZxVideoSampleRatio::Unknown);
    EXPECT_EQ(summary.rateTimes100, 0u);
    EXPECT_EQ(summary.height, 0u);
}

TEST(ZxMediaSummary1Test, TheFieldsLieInTheRecordsOrder) {
    EXPECT_EQ(offsetof(ZxMediaSummary1, type), 0u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, chroma), 4u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, aspect), 8u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, bitrate), 12u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, bitsPerSample), 16u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, rateTimes100), 20u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, channels), 24u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, gopLength), 28u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, isBigEndian), 32u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, width), 34u);
    EXPECT_EQ(offsetof(ZxMediaSummary1, height), 36u);
}
