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

std::string dnxhd(unsigned content, unsigned colour = 0x80) {
    std::string head = bytesOf({0, 0, 2, 0x80, 1, content, 0x80, 0xA0});
    head.resize(44);
    return head + static_cast<char>(colour);
}

// The second part's samples lie so far apart.
std::string jpeg2000(unsigned across, unsigned down, unsigned parts = 3) {
    return bytesOf({0xFF, 0x4F, 0xFF, 0x51, 0, 0x2F}) + std::string(34, '\0') +
           bytesOf({0, parts, 7, 1, 1, 7, across, down, 7, across, down});
}

// A sequence's parameter set of High 4:2:2 profile, level 2.1, for fields.
const std::string s_avcSet("\x67\x7A\x00\x15\xBC\xE8\x21\xB6\x02\x20\x00\x00\x03\x00\x20\x00\x00\x06\x43\xE2\x85\x54",
                           22);

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

TEST(MovPictureHead, OfDnxhdSaysTheChroma) {
    EXPECT_EQ(look(entryOf(Encoding::Dnxhd), dnxhd(1, 0x80)).chroma, Chroma::C422);
    EXPECT_EQ(look(entryOf(Encoding::Dnxhd), dnxhd(1, 0xC1)).chroma, Chroma::C444);
    EXPECT_EQ(look(entryOf(Encoding::Dnxhd), dnxhd(1).substr(0, 44)).chroma, Chroma::None);
    MovEntry told = entryOf(Encoding::Dnxhd);
    told.chroma = Chroma::C422;
    EXPECT_EQ(look(told, dnxhd(1, 0xC0)).chroma, Chroma::C422);
}

TEST(MovPictureHead, OfJpeg2000SaysTheChroma) {
    const auto chromaOf = [](const std::string& bytes) { return look(entryOf(Encoding::Jpeg2000), bytes).chroma; };
    EXPECT_EQ(chromaOf(jpeg2000(1, 1)), Chroma::C444);
    EXPECT_EQ(chromaOf(jpeg2000(2, 1)), Chroma::C422);
    EXPECT_EQ(chromaOf(jpeg2000(2, 2)), Chroma::C420);
    EXPECT_EQ(chromaOf(jpeg2000(4, 1)), Chroma::C411);
    EXPECT_EQ(chromaOf(jpeg2000(3, 1)), Chroma::None);
    EXPECT_EQ(chromaOf(jpeg2000(1, 1, 1)), Chroma::None);
    EXPECT_EQ(chromaOf("in a box: " + jpeg2000(2, 1)), Chroma::C422);
    const std::string whole = jpeg2000(2, 2);
    for (std::size_t size = 0; size < whole.size() - 3; ++size)
        EXPECT_EQ(chromaOf(whole.substr(0, size)), Chroma::None) << size;
}

TEST(MovPictureHead, OfAvcSaysProfileChromaAndScan) {
    const std::string delimiter("\x09\xF0", 2), start("\0\0\0\1", 4);
    const auto unit = [](const std::string& bytes) { return bytesOf({0, 0, 0, unsigned(bytes.size())}) + bytes; };
    MovEntry units = entryOf(Encoding::Avc);
    units.lengthBytes = 4;
    for (const MovEntry& entry : {look(entryOf(Encoding::Avc), start + delimiter + start + s_avcSet + start),
                                  look(units, unit(delimiter) + unit(s_avcSet) + unit("x"))}) {
        EXPECT_TRUE(entry.hasProfile);
        EXPECT_EQ(entry.profile, 122);
        EXPECT_EQ(entry.level, 21);
        EXPECT_EQ(entry.chroma, Chroma::C422);
        EXPECT_EQ(entry.scan, Scan::Interlaced);
    }
    EXPECT_FALSE(look(units, unit(delimiter)).hasProfile);
    EXPECT_FALSE(look(units, bytesOf({0xFF, 0xFF, 0xFF, 0xFF, 0x67})).hasProfile);
    EXPECT_FALSE(look(entryOf(Encoding::Avc), s_avcSet).hasProfile);
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
    EXPECT_TRUE(MovPictureHead::isWanted(entryOf(Encoding::Jpeg2000)));
    EXPECT_FALSE(MovPictureHead::isWanted(entryOf(Encoding::Dv)));
    EXPECT_TRUE(MovPictureHead::isWanted(entryOf(Encoding::Avc)));
    MovEntry avc = entryOf(Encoding::Avc);
    avc.hasProfile = true;
    avc.chroma = Chroma::C420;
    EXPECT_FALSE(MovPictureHead::isWanted(avc));
}
