#include <gtest/gtest.h>

#include <string>

#include "backends/mov/mov_picture_head.h"

// The heads of pictures, byte by byte: what they say, and that nothing is made of those that are cut or foreign.

namespace {

using Encoding = MediaEncodingType;
using Scan = MediaVideoScanType;
using Chroma = MediaChromaSample;

std::string bytesOf(std::initializer_list<unsigned> values) {
    std::string bytes;
    for (const unsigned value : values)
        bytes += static_cast<char>(value);
    return bytes;
}

// 720x576 of 16:9; its extension: of fields, 4:2:2.
const std::string s_sequence = bytesOf({0, 0, 1, 0xB3, 0x2D, 0x02, 0x40, 0x33, 0xFF, 0xFF, 0xE0, 0x18});
const std::string s_extension = bytesOf({0, 0, 1, 0xB5, 0x18, 0x54, 0x00, 0x01, 0x00, 0x00});
const std::string s_group = bytesOf({0, 0, 1, 0xB8, 0x00, 0x08, 0x00, 0x40});

std::string prores(unsigned flags) {
    return bytesOf({0, 2, 0x5C, 0}) + "icpf" +
           bytesOf({0, 0x94, 0, 0, 'L', 'a', 'v', 'c', 2, 0xD0, 2, 0x40, flags, 0, 2, 2});
}

std::string dnxhd(unsigned content) { return bytesOf({0, 0, 2, 0x80, 1, content, 0x80, 0xA0}); }

MovEntry entryOf(Encoding encoding) {
    MovEntry entry;
    entry.encoding = encoding;
    entry.width = 720;
    entry.height = 576;
    return entry;
}

MovEntry look(MovEntry entry, const std::string& bytes) {
    MovPictureHead::complete(entry, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return entry;
}

Scan scanOf(Encoding encoding, const std::string& bytes) { return look(entryOf(encoding), bytes).scan; }

}  // namespace

TEST(MovPictureHead, OfMpeg2SaysChromaScanAndShape) {
    const MovEntry entry = look(entryOf(Encoding::Mpeg), s_sequence + s_extension + s_group);
    EXPECT_EQ(entry.chroma, Chroma::C422);
    EXPECT_EQ(entry.scan, Scan::Interlaced);
    EXPECT_EQ(entry.codedAspect, MediaAspectRatio::Ratio16x9);
    std::string other = s_sequence + s_extension;
    other[7] = 0x23;   // 4:3
    other[17] = 0x4A;  // of frames, 4:2:0
    const MovEntry frames = look(entryOf(Encoding::Mpeg), other);
    EXPECT_EQ(frames.chroma, Chroma::C420);
    EXPECT_EQ(frames.scan, Scan::Progressive);
    EXPECT_EQ(frames.codedAspect, MediaAspectRatio::Ratio4x3);
}

TEST(MovPictureHead, WithSquarePixelsHasTheShapeOfItsPixels) {
    std::string square = s_sequence;
    square[7] = 0x13;
    EXPECT_EQ(look(entryOf(Encoding::Mpeg), square).codedAspect, MediaAspectRatio::Other);
    MovEntry wide = entryOf(Encoding::Mpeg);
    wide.width = 1280;
    wide.height = 720;
    EXPECT_EQ(look(wide, square).codedAspect, MediaAspectRatio::Ratio16x9);
}

TEST(MovPictureHead, DoesNotContradictTheDescription) {
    MovEntry told = entryOf(Encoding::Mpeg);
    told.scan = Scan::Progressive;
    told.chroma = Chroma::C420;
    EXPECT_EQ(look(told, s_sequence + s_extension).scan, Scan::Progressive);
    EXPECT_EQ(look(told, s_sequence + s_extension).chroma, Chroma::C420);
    told.isChromaOfProfile = true;
    EXPECT_EQ(look(told, s_sequence + s_extension).chroma, Chroma::C422);
}

TEST(MovPictureHead, IsSearchedUpToTheFirstGroupOrPicture) {
    EXPECT_EQ(scanOf(Encoding::Mpeg, s_group + s_sequence + s_extension), Scan::Unknown);
    const std::string picture = bytesOf({0, 0, 1, 0, 0, 0x0F});
    EXPECT_EQ(scanOf(Encoding::Mpeg, picture + s_sequence + s_extension), Scan::Unknown);
    const std::string userData = bytesOf({0, 0, 1, 0xB2, 'x', 'y'});
    EXPECT_EQ(scanOf(Encoding::Mpeg, s_sequence + userData + s_extension), Scan::Interlaced);
}

TEST(MovPictureHead, OfAnExtensionOfAnotherKindSaysNothing) {
    std::string other = s_sequence + s_extension;
    other[16] = 0x28;
    EXPECT_EQ(scanOf(Encoding::Mpeg, other), Scan::Unknown);
}

TEST(MovPictureHead, OfProresSaysTheScan) {
    EXPECT_EQ(scanOf(Encoding::Prores, prores(0x80)), Scan::Progressive);
    EXPECT_EQ(scanOf(Encoding::Prores, prores(0x84)), Scan::Interlaced);
    EXPECT_EQ(scanOf(Encoding::Prores, prores(0x88)), Scan::Interlaced);
    EXPECT_EQ(scanOf(Encoding::Prores, prores(0x8C)), Scan::Unknown);
    EXPECT_EQ(scanOf(Encoding::Prores, std::string(64, '\0')), Scan::Unknown);
}

TEST(MovPictureHead, OfDnxhdSaysTheScan) {
    EXPECT_EQ(scanOf(Encoding::Dnxhd, dnxhd(1)), Scan::Progressive);
    EXPECT_EQ(scanOf(Encoding::Dnxhd, dnxhd(2)), Scan::Interlaced);
    EXPECT_EQ(scanOf(Encoding::Dnxhd, dnxhd(3)), Scan::Interlaced);
    EXPECT_EQ(scanOf(Encoding::Dnxhd, dnxhd(0)), Scan::Unknown);
    EXPECT_EQ(scanOf(Encoding::Dnxhd, std::string(64, 'x')), Scan::Unknown);
}

TEST(MovPictureHead, ThatIsCutSaysWhatIsThere) {
    const std::string whole = s_sequence + s_extension;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const MovEntry entry = look(entryOf(Encoding::Mpeg), std::string(whole, 0, size));
        EXPECT_EQ(entry.codedAspect != MediaAspectRatio::Unknown, size >= 8) << size;
        EXPECT_EQ(entry.scan != Scan::Unknown, size >= 18) << size;
        EXPECT_EQ(scanOf(Encoding::Prores, prores(0x84).substr(0, size)) != Scan::Unknown, size >= 21) << size;
        EXPECT_EQ(scanOf(Encoding::Dnxhd, dnxhd(1).substr(0, size)) != Scan::Unknown, size >= 6) << size;
    }
}

TEST(MovPictureHead, IsWantedWhereTheDescriptionLeavesSomethingOpen) {
    MovEntry entry = entryOf(Encoding::Mpeg);
    EXPECT_TRUE(MovPictureHead::isWanted(entry));
    entry.scan = Scan::Interlaced;
    entry.chroma = Chroma::C422;
    entry.pixelWidth = entry.pixelHeight = 1;
    EXPECT_FALSE(MovPictureHead::isWanted(entry));
    entry.isChromaOfProfile = true;
    EXPECT_TRUE(MovPictureHead::isWanted(entry));
    EXPECT_TRUE(MovPictureHead::isWanted(entryOf(Encoding::Prores)));
    EXPECT_TRUE(MovPictureHead::isWanted(entryOf(Encoding::Dnxhd)));
    EXPECT_FALSE(MovPictureHead::isWanted(entryOf(Encoding::Avc)));
    EXPECT_FALSE(MovPictureHead::isWanted(entryOf(Encoding::Dv)));
}
