#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "mediautil/object/registrar.h"
#include "mediautil/object/suffix.h"
#include "shared/include/description/media_names.h"
#include "tests/kit/cache_scene.h"

namespace {

MediaReaderDesc readerOf(MediaFileType type) { return MediaReaderDesc(type, nullptr); }

std::string suffixOf(const std::string& path) {
    char suffix[32] = "untouched";
    return getSuffix(suffix, path.c_str()) ? suffix : "(none)";
}

}  // namespace

TEST(Suffix, IsTheLowerCaseTextBehindTheLastDot) {
    EXPECT_EQ(suffixOf("movie.MXF"), "mxf");
    EXPECT_EQ(suffixOf("/a/b.c/movie.tar.Wav"), "wav");
    EXPECT_EQ(suffixOf("movie.x"), "x");
}

TEST(Suffix, OfANameWithoutADotOrWithNothingBehindItIsNone) {
    EXPECT_EQ(suffixOf("movie"), "(none)");
    EXPECT_EQ(suffixOf("movie."), "(none)");
    EXPECT_EQ(suffixOf(""), "(none)");
}

TEST(Suffix, DotOfAFolderCountsWhenTheNameHasNone) { EXPECT_EQ(suffixOf("/a.wav/movie"), "wav/movie"); }

TEST(Suffix, ThirtyCharactersAreTheLongest) {
    EXPECT_EQ(suffixOf("m." + std::string(30, 'a')), std::string(30, 'a'));
    EXPECT_EQ(suffixOf("m." + std::string(31, 'a')), "(none)");
    EXPECT_EQ(suffixOf("m." + std::string(300, 'a')), "(none)");
}

TEST(SuffixTypes, NameThatTellsNothingMapsToNothing) {
    for (const std::string& path : {std::string("movie"), std::string("movie."), "m." + std::string(31, 'a'),
                                    std::string("movie.nosuchsuffix")}) {
        EXPECT_TRUE(mapSuffixToFileTypes(path.c_str()).empty()) << path;
        EXPECT_EQ(mapSuffixToFileType(path.c_str()), MediaFileType::Unknown) << path;
    }
}

TEST(SuffixTypes, UpperCaseMxfIsType3) {
    EXPECT_EQ(mapSuffixToFileTypes("movie.MXF"), std::vector<MediaFileType>{static_cast<MediaFileType>(3)});
    EXPECT_EQ(mapSuffixToFileType("movie.MXF"), static_cast<MediaFileType>(3));
}

TEST(SuffixTypes, MpgIsNineAndThenTwentyFour) {
    const std::vector<MediaFileType> types = mapSuffixToFileTypes("movie.mpg");
    ASSERT_EQ(types.size(), 2u);
    EXPECT_EQ(static_cast<unsigned>(types[0]), 9u);
    EXPECT_EQ(static_cast<unsigned>(types[1]), 24u);
    EXPECT_EQ(static_cast<unsigned>(mapSuffixToFileType("movie.mpg")), 9u);
}

TEST(RegistrarTable, LowerPriorityStandsFirstAndEqualOnesInTheOrderOfRegistration) {
    Registrar<MediaReaderDesc> table(true);
    EXPECT_EQ(table.registerElem("b1", readerOf(MediaFileType::Dv), 5), 1u);
    EXPECT_EQ(table.registerElem("b2", readerOf(MediaFileType::Gxf), 5), 2u);
    EXPECT_EQ(table.registerElem("c", readerOf(MediaFileType::Wav), 9), 3u);
    EXPECT_EQ(table.registerElem("a", readerOf(MediaFileType::Mxf), -1), 4u);
    EXPECT_EQ(table.registerElem("b3", readerOf(MediaFileType::Aes), 5), 5u);
    ASSERT_EQ(table.countElem(), 5u);
    const char* const names[] = {"a", "b1", "b2", "b3", "c"};
    const MediaFileType types[] = {MediaFileType::Mxf, MediaFileType::Dv, MediaFileType::Gxf, MediaFileType::Aes,
                                   MediaFileType::Wav};
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_STREQ(table.getName(i), names[i]);
        EXPECT_EQ(table.getElem(i).m_fileType, types[i]);
    }
}

TEST(RegistrarTable, LookupAnswersTheFirstOfThatName) {
    Registrar<MediaReaderDesc> table(true);
    table.registerElem("same", readerOf(MediaFileType::Dv), 5);
    table.registerElem("same", readerOf(MediaFileType::Gxf), 1);
    MediaReaderDesc found;
    EXPECT_TRUE(table.lookup("same", found));
    EXPECT_EQ(found.m_fileType, MediaFileType::Gxf);
    EXPECT_FALSE(table.lookup("Same", found));
    EXPECT_EQ(found.m_fileType, MediaFileType::Gxf);
}

TEST(RegistrarTable, FiftiethElementIsTheLastThatFits) {
    Registrar<MediaReaderDesc> table(true);
    for (unsigned i = 0; i < 50; ++i)
        EXPECT_EQ(table.registerElem("x", readerOf(MediaFileType::Dv), -static_cast<int>(i)), i + 1);
    EXPECT_EQ(table.countElem(), 50u);
    EXPECT_EQ(table.getPriority(0), -49);
    EXPECT_EQ(table.getPriority(49), 0);
    EXPECT_EQ(Registrar<MediaReaderDesc>::s_capacity, 50u);
}

TEST(FormatTables, RegistrationUsesTheFirstNameOfTheTypeAndAnswersTheNewCount) {
    const unsigned before = MediaObjImpl::getReaderReg().countElem();
    EXPECT_EQ(MediaObj::registerOpener(readerOf(MediaFileType::Dv), 1000000), before + 1);
    EXPECT_STREQ(MediaObjImpl::getReaderReg().getName(before), "dv");
    const unsigned writersBefore = MediaObjImpl::getWriterReg().countElem();
    MediaWriterDesc writer;
    writer.m_fileType = MediaFileType::Vbi;
    EXPECT_EQ(MediaObj::registerCreator(writer, 1000000), writersBefore + 1);
    EXPECT_STREQ(MediaObjImpl::getWriterReg().getName(writersBefore), "vbi");
}

TEST(FormatTables, DefaultDescriptorsAreZero) {
    const MediaReaderDesc reader;
    EXPECT_EQ(reader.m_fileType, MediaFileType::Unknown);
    EXPECT_EQ(reader.m_open, nullptr);
    const MediaWriterDesc writer;
    EXPECT_EQ(writer.m_fileType, MediaFileType::Unknown);
    EXPECT_EQ(writer.m_create, nullptr);
    EXPECT_EQ(writer.m_open, nullptr);
    EXPECT_EQ(writer.m_initVideo, nullptr);
    EXPECT_EQ(writer.m_initAudio, nullptr);
    EXPECT_EQ(writer.m_styles, nullptr);
    EXPECT_EQ(writer.m_numStyles, 0);
}

TEST(WriterLookup, ByTypeTakesNoNoticeOfTheStyle) {
    MediaWriterDesc writer;
    EXPECT_TRUE(MediaObjImpl::lookup(kit::s_scripted, writer, "kit style"));
    EXPECT_EQ(writer.m_fileType, kit::s_scripted);
}

TEST(WriterLookup, StyleServesOnlyAfterNoWriterHadTheTypeAndNullStylesArePassedOver) {
    MediaWriterDesc writer;
    EXPECT_TRUE(MediaObjImpl::lookup(kit::s_nobodysType, writer, "kit style"));
    EXPECT_EQ(writer.m_fileType, kit::s_writeOnlyType);
    ASSERT_EQ(writer.m_numStyles, 2);
    EXPECT_EQ(writer.m_styles[0], nullptr);
}

TEST(WriterLookup, WithoutTypeAndStyleIsUnsupportedAndLeavesTheAnswerAlone) {
    MediaWriterDesc writer;
    writer.m_fileType = MediaFileType::Aac;
    EXPECT_TRUE(kit::isWarning(MediaObjImpl::lookup(kit::s_nobodysType, writer, nullptr), 8));
    EXPECT_TRUE(kit::isWarning(MediaObjImpl::lookup(kit::s_nobodysType, writer, "no such style"), 8));
    EXPECT_EQ(writer.m_fileType, MediaFileType::Aac);
}

TEST(WriterLookup, HeaderSizeForBackEndsIsZeroUntilOneSetsIt) { EXPECT_EQ(MediaObjImpl::maxMediaHeaderSize, 0u); }
