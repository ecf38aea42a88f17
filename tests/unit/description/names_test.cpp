#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "shared/include/description/media_names.h"

namespace {

// Every row of a table in its order, and nothing behind it.
template <typename T>
void expectRows(const EnumMap<T>& map, const std::vector<EnumPair<std::uint32_t>>& rows) {
    ASSERT_EQ(map.count(), static_cast<int>(rows.size()));
    for (unsigned int i = 0; i < rows.size(); ++i) {
        EXPECT_STREQ(map.pair(i).name, rows[i].name) << "row " << i;
        EXPECT_EQ(static_cast<std::uint32_t>(map.pair(i).value), rows[i].value) << "row " << i;
    }
    EXPECT_EQ(map.pair(static_cast<unsigned int>(rows.size())).name, nullptr) << "closing row";
}

}  // namespace

TEST(NameTables, DataTypesHaveTheirRows) {
    expectRows(getMediaDataTypeMap(), {{"?media", 0}, {"video", 1}, {"audio", 2}});
}

TEST(NameTables, VideoRatesHaveTheirRowsWithTwoNamesForEachClassicRate) {
    expectRows(getMediaVideoRateMap(), {{"?vrate", 0},
                                        {"pal", 1},
                                        {"25hz", 1},
                                        {"ntsc", 2},
                                        {"29.97hz", 2},
                                        {"23.976hz", 3},
                                        {"24hz", 4},
                                        {"30hz", 5},
                                        {"50hz", 6},
                                        {"59.94hz", 7},
                                        {"60hz", 8}});
}

TEST(NameTables, EncodingsHaveTheirRows) {
    expectRows(getMediaEncodingTypeMap(),
               {{"?encoding", 0}, {"rec601", 1},    {"dv", 2},       {"mpeg", 3},  {"mpeg4", 4},  {"avc", 5},
                {"pcm", 6},       {"aes3", 7},      {"a-law", 8},    {"hdcam", 9}, {"dnxhd", 10}, {"vbi", 11},
                {"s436mVbi", 12}, {"s436mAnc", 13}, {"data", 14},    {"mpg1", 15}, {"aac", 16},   {"mixed", 17},
                {"gxfAnc", 18},   {"prores", 19},   {"jpeg2000", 20}});
}

TEST(NameTables, FileTypesHaveTheirRowsInTheOrderThatDecidesWhichAnswers) {
    expectRows(getMediaFileTypeMap(),
               {{"unknown", 0}, {"dv", 1},      {"dif", 1},    {"mov", 2},   {"mxf", 3},  {"gxf", 4},    {"ts", 5},
                {"mts", 5},     {"mps", 6},     {"mp4", 2},    {"rt", 8},    {"m2v", 9},  {"mpg", 9},    {"m4v", 10},
                {"avc", 11},    {"mpa", 12},    {"mp2", 13},   {"mp2a", 13}, {"mp3", 14}, {"hdcam", 15}, {"601", 16},
                {"dnxhd", 17},  {"aiff", 18},   {"aifc", 18},  {"aif", 18},  {"wav", 19}, {"wave", 19},  {"ac3", 20},
                {"vbi", 21},    {"436", 22},    {"data", 23},  {"mpg", 24},  {"aes", 25}, {"aac", 26},   {"prores", 30},
                {"null", 27},   {"filter", 28}, {"trans", 29}, {"jp2c", 31}});
}

TEST(NameTables, ContainmentsHaveTheirRowsAndNoneForZero) {
    expectRows(getMediaContainmentMap(), {{"byRef", 1}, {"embedded", 2}, {"mixed", 3}});
}

TEST(NameTables, ChromaSamplesHaveTheirRows) {
    expectRows(getMediaChromaSampleMap(), {{"no chroma", 0},
                                           {"4:2:0", 1},
                                           {"420", 1},
                                           {"4:1:1", 2},
                                           {"411", 2},
                                           {"4:2:2", 3},
                                           {"422", 3},
                                           {"4:4:4", 4},
                                           {"444", 4}});
}

TEST(NameTables, ScansAndAspectRatiosHaveTheirRows) {
    expectRows(getMediaVideoScanTypeMap(), {{"unknown", 0}, {"interlaced", 1}, {"progressive", 2}});
    expectRows(getMediaAspectRatioMap(), {{"Unknown", 0}, {"4:3", 1}, {"16:9", 2}, {"Other", 3}});
}

TEST(NameTables, ActiveFormatsHaveTheirRowsWithTheSpellingsThatLogsCarry) {
    expectRows(getS2016ActiveFmtDescMap(),
               {{"Unknown", 0xff},      {"SdReserved1", 0x08},   {"HdReserved1", 0x0c},  {"SdReserved5", 0x28},
                {"HdReserved5", 0x2c},  {"SdReserved6", 0x30},   {"HdReserved6", 0x34},  {"SdReserved7", 0x38},
                {"HdReserved7", 0x3c},  {"SdReserved12", 0x60},  {"HdReserved12", 0x64}, {"SdLb169", 0x10},
                {"SdLb149", 0x18},      {"SdLb169Vc", 0x20},     {"SdFf43", 0x40},       {"SdFf43Dup", 0x48},
                {"SdLb169VcIp", 0x50},  {"SdLb149Vc", 0x58},     {"SdFf43Alt149", 0x68}, {"SdLb169Alt149", 0x70},
                {"SdLb169Alt43", 0x78}, {"HdFf169", 0x14},       {"HdPb149HcDup", 0x1c}, {"HdLb169Vc", 0x24},
                {"HdFf169Dup", 0x44},   {"HdPb43Hc", 0x4c},      {"HdFf169Ip", 0x54},    {"HdPb149Hc", 0x5c},
                {"HdPb43Atl149", 0x6c}, {"HdFf169Alt149", 0x74}, {"HdFF169Alt43", 0x7c}});
}

TEST(NameTables, EveryEnumeratorHasTheValueOfItsActiveFormat) {
    EXPECT_STREQ(MediaNames::get(S2016ActiveFmtDesc::SdLb169), "SdLb169");
    EXPECT_STREQ(MediaNames::get(S2016ActiveFmtDesc::HdPb43Alt149), "HdPb43Atl149");
    EXPECT_STREQ(MediaNames::get(S2016ActiveFmtDesc::HdFf169Alt43), "HdFF169Alt43");
    EXPECT_STREQ(MediaNames::get(S2016ActiveFmtDesc::Unknown), "Unknown");
    EXPECT_STREQ(MediaNames::get(static_cast<S2016ActiveFmtDesc>(0)), "?");
}

TEST(EnumMap, AnswersTheFirstRowOfAValueAndOfAText) {
    static constexpr EnumPair<int> rows[] = {{"one", 1}, {"uno", 1}, {"two", 2}, {"one", 3}, {nullptr, 0}};
    const EnumMap<int> map(rows, 4);
    EXPECT_STREQ(map.mapValue(1), "one");
    int value = 7;
    EXPECT_TRUE(map.mapString("one", value));
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(map.mapString("uno", value));
    EXPECT_EQ(value, 1);
    EXPECT_STREQ(map.mapValue(3), "one");
}

TEST(EnumMap, AMissLeavesTheOutputAloneAndPrintsAQuestionMark) {
    static constexpr EnumPair<int> rows[] = {{"one", 1}, {nullptr, 9}};
    const EnumMap<int> map(rows, 1);
    int value = 7;
    EXPECT_FALSE(map.mapString("One", value));
    EXPECT_FALSE(map.mapString("", value));
    EXPECT_EQ(value, 7);
    EXPECT_EQ(map.mapValue(9), nullptr);
    EXPECT_STREQ(map.mapValueForced(9), "?");
}

TEST(MediaNames, PrintTheFirstNameAndParseTheOthers) {
    EXPECT_STREQ(MediaNames::get(static_cast<MediaVideoRate>(1)), "pal");
    EXPECT_STREQ(MediaNames::get(static_cast<MediaVideoRate>(2)), "ntsc");
    EXPECT_EQ(MediaNames::getVideoRate("25hz"), MediaVideoRate::Pal25);
    EXPECT_EQ(MediaNames::getVideoRate("59.94hz"), MediaVideoRate::Hz5994);
    EXPECT_EQ(MediaNames::getVideoRate("PAL"), MediaVideoRate::Unknown);
    EXPECT_EQ(MediaNames::getEncodingType("jpeg2000"), MediaEncodingType::Jpeg2000);
    EXPECT_EQ(MediaNames::getEncodingType("nothing"), MediaEncodingType::Unknown);
    EXPECT_EQ(MediaNames::getDataType("audio"), MediaDataType::Audio);
    EXPECT_EQ(MediaNames::getDataType("data"), MediaDataType::Unknown);
    EXPECT_EQ(MediaNames::getDataType(nullptr), MediaDataType::Unknown);
}

TEST(MediaNames, FileType24PrintsMpgAndMpgParsesTo9) {
    EXPECT_STREQ(MediaNames::get(static_cast<MediaFileType>(24)), "mpg");
    EXPECT_EQ(static_cast<int>(MediaNames::getFileType("mpg")), 9);
}

TEST(MediaNames, Mp4ParsesToTheTypeThatPrintsMov) {
    EXPECT_EQ(static_cast<int>(MediaNames::getFileType("mp4")), 2);
    EXPECT_STREQ(MediaNames::get(static_cast<MediaFileType>(2)), "mov");
}

TEST(MediaNames, ValuesWithoutARowPrintAQuestionMark) {
    EXPECT_STREQ(MediaNames::get(static_cast<MediaContainment>(0)), "?");
    EXPECT_STREQ(MediaNames::get(static_cast<MediaFileType>(7)), "?");
    EXPECT_STREQ(MediaNames::get(static_cast<MediaVideoRate>(9)), "?");
    EXPECT_STREQ(MediaNames::get(static_cast<MediaEncodingType>(21)), "?");
    EXPECT_STREQ(MediaNames::get(MediaDataType::Data), "?");
}

TEST(MediaNames, ASuffixInUpperCaseIsFoundOnTheSecondTry) {
    EXPECT_EQ(static_cast<int>(MediaNames::getFileType("clip.MPG")), 9);
    EXPECT_EQ(MediaNames::getFileType("/a.b/c.MxF"), MediaFileType::Mxf);
    EXPECT_EQ(MediaNames::getFileType("mxf"), MediaFileType::Mxf);
}

TEST(MediaNames, ATrailingDotAndAnUnknownSuffixGiveNoFileType) {
    EXPECT_EQ(MediaNames::getFileType("movie."), MediaFileType::Unknown);
    EXPECT_EQ(MediaNames::getFileType(""), MediaFileType::Unknown);
    EXPECT_EQ(MediaNames::getFileType("movie.doc"), MediaFileType::Unknown);
    EXPECT_EQ(MediaNames::getFileType(nullptr), MediaFileType::Unknown);
    EXPECT_EQ(MediaNames::getFileType(("x." + std::string(4000, 'M')).c_str()), MediaFileType::Unknown);
}

TEST(MediaNames, ANameWithoutADotIsTakenWhole) {
    EXPECT_EQ(MediaNames::getFileType("WAVE"), MediaFileType::Wav);
    EXPECT_EQ(MediaNames::getFileType("/media/mxf"), MediaFileType::Unknown);
    EXPECT_EQ(MediaNames::getFileType("/media.mxf/movie"), MediaFileType::Unknown);
}

TEST(MediaNames, EndianAndSequenceCodingPrintWithoutATable) {
    EXPECT_STREQ(MediaNames::get(MediaEndian::Big), "bendian");
    EXPECT_STREQ(MediaNames::get(MediaEndian::Little), "lendian");
    EXPECT_STREQ(MediaNames::get(static_cast<MediaEndian>(7)), "lendian");
    EXPECT_STREQ(MediaNames::get(SequenceCodingType::Intra), "intra");
    EXPECT_STREQ(MediaNames::get(SequenceCodingType::LongGop), "long-gop");
    EXPECT_STREQ(MediaNames::get(static_cast<SequenceCodingType>(2)), "??");
}

TEST(MediaNames, ATrackPrintsItsTypeAndOrdinal) {
    EXPECT_STREQ(MediaNames::get(encodeMte(MediaDataType::Video, 0)).get(), "video0");
    EXPECT_STREQ(MediaNames::get(encodeMte(MediaDataType::Audio, 3)).get(), "audio3");
    EXPECT_STREQ(MediaNames::get(encodeMte(MediaDataType::Data, 1)).get(), "?1");
}

TEST(MediaTrackEnum, HoldsTypeAndOrdinal) {
    EXPECT_EQ(static_cast<std::uint32_t>(encodeMte(MediaDataType::Video, 0)), 0x10000u);
    EXPECT_EQ(static_cast<std::uint32_t>(encodeMte(MediaDataType::Audio, 1)), 0x20001u);
    EXPECT_EQ(decodeMteType(encodeMte(MediaDataType::Audio, 5)), MediaDataType::Audio);
    EXPECT_EQ(decodeMteOrdinal(encodeMte(MediaDataType::Audio, 5)), 5u);
    EXPECT_EQ(static_cast<std::uint32_t>(decodeMteType(MediaTrackEnum::End)), 0xffffffffu);
}
