#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "shared/include/object/media_format.h"
#include "shared/include/object/media_obj.h"

namespace {

using Role = MediaFormatEntry::Role;

std::vector<int> prioritiesOf(Role role, MediaFileType type) {
    std::vector<int> priorities;
    for (const MediaFormatEntry& entry : listMediaFormats()) {
        if (entry.m_role == role && entry.m_fileType == type) priorities.push_back(entry.m_priority);
    }
    return priorities;
}

}  // namespace

TEST(FormatList, ReadersStandInTheOrderInWhichTheyAreAsked) {
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Vbi, nullptr), 300);
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Vbi, nullptr), -5);
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Vbi, nullptr), 20);
    EXPECT_THAT(prioritiesOf(Role::Reader, MediaFileType::Vbi), testing::ElementsAre(-5, 20, 300));
}

TEST(FormatList, WritersComeBehindAllReaders) {
    MediaWriterDesc writer;
    writer.m_fileType = MediaFileType::Gxf;
    MediaObj::registerCreator(writer, 1);
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Gxf, nullptr), 1000);
    const std::vector<MediaFormatEntry> entries = listMediaFormats();
    EXPECT_TRUE(std::is_partitioned(entries.begin(), entries.end(),
                                    [](const MediaFormatEntry& entry) { return entry.m_role == Role::Reader; }));
    EXPECT_THAT(prioritiesOf(Role::Writer, MediaFileType::Gxf), testing::ElementsAre(1));
    EXPECT_THAT(prioritiesOf(Role::Reader, MediaFileType::Gxf), testing::ElementsAre(1000));
}

TEST(FormatList, AnUnregisteredFormatIsNotListed) {
    EXPECT_TRUE(prioritiesOf(Role::Writer, MediaFileType::Jpeg2000).empty());
}
