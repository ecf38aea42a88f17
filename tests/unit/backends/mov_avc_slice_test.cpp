#include <gtest/gtest.h>

#include <string>

#include "backends/mov/mov_avc_slice.h"
#include "backends/mov/mov_decoder_config.h"
#include "backends/mov/mov_picture_order.h"

// Heads of slices of AVC, bit by bit, and the configurations of other decoders: what they say, and that nothing is made
// of those that are cut.

namespace {

std::string bytesOf(std::initializer_list<unsigned> values) {
    std::string bytes;
    for (const unsigned value : values)
        bytes += static_cast<char>(value);
    return bytes;
}

// A unit of that kind whose bits are written out; what stands between them isn't counted.
std::string unitOf(unsigned head, const std::string& text) {
    std::string bytes = bytesOf({head});
    unsigned count = 0;
    for (const char bit : text) {
        if (bit != '0' && bit != '1') continue;
        if (count % 8 == 0) bytes += '\0';
        if (bit == '1') bytes.back() = static_cast<char>(bytes.back() | 0x80 >> count % 8);
        ++count;
    }
    return bytes;
}

const std::uint8_t* start(const std::string& bytes) { return reinterpret_cast<const std::uint8_t*>(bytes.data()); }

// Numbers and counts of four bits each, one picture in each list.
MovAvcSequence sequence() {
    MovAvcSequence sequence;
    sequence.frameNumberBits = sequence.orderBits = 4;
    return sequence;
}

MovAvcSlice sliceOf(const std::string& unit, const MovAvcPictureSet& set = {}) {
    MovAvcSlice slice;
    EXPECT_TRUE(slice.read(start(unit), unit.size(), sequence(), set));
    return slice;
}

// Of a recorded stream: its sets, a first picture, one of P, one of B, and one of P with which all is forgotten.
const std::string s_sequence = bytesOf({0x67, 0x4D, 0x00, 0x1E, 0xF6, 0xF4, 0x03, 0xC5, 0x8B, 0x6E});
const std::string s_set = bytesOf({0x68, 0xCE, 0x3C, 0x80});
const std::string s_first = bytesOf({0x65, 0x88, 0x84, 0x0A, 0x0D, 0x00, 0x80});
const std::string s_p = bytesOf({0x61, 0x9A, 0x2C, 0x29, 0x40});
const std::string s_b = bytesOf({0x01, 0x9E, 0x45, 0x14, 0xA0});
const std::string s_reset = bytesOf({0x61, 0x9A, 0x48, 0x4D, 0xA5});

// The changes to the list of references, the weights of two pictures, and what is kept up to the last step.
const std::string s_weighted =
    "1 00110 1 0011 0110 0  1 1 011 00100  00100 010 1 010 011 1 1 1 010 011 0 0  1 00100 010 1 010 011 ";

}  // namespace

TEST(MovAvcSlice, SaysItsPicturesPlaceInTime) {
    EXPECT_TRUE(sliceOf(s_first).isFirst);
    EXPECT_TRUE(sliceOf(s_first).isReference);
    const MovAvcSlice p = sliceOf(s_p), b = sliceOf(s_b), reset = sliceOf(s_reset);
    EXPECT_FALSE(p.isFirst);
    EXPECT_TRUE(p.isReference);
    EXPECT_EQ(p.frame, 1u);
    EXPECT_EQ(p.count, 6u);
    EXPECT_FALSE(b.isReference);
    EXPECT_EQ(b.frame, 2u);
    EXPECT_EQ(b.count, 2u);
    EXPECT_FALSE(p.isReset);
    EXPECT_TRUE(reset.isReset);
    EXPECT_EQ(reset.frame, 2u);
    EXPECT_EQ(reset.count, 4u);
}

TEST(MovAvcSlice, IsReadPastListsAndWeights) {
    MovAvcPictureSet set;
    set.isWeighted = true;
    set.references[0] = 2;
    EXPECT_TRUE(sliceOf(unitOf(0x61, s_weighted + "00110 1"), set).isReset);
    EXPECT_FALSE(sliceOf(unitOf(0x61, s_weighted + "1"), set).isReset);
    EXPECT_EQ(sliceOf(unitOf(0x61, s_weighted + "1"), set).count, 6u);
    MovAvcPictureSet both;
    both.weightKind = 1;
    const std::string ofB = "1 00111 1 0011 0110 1 1 1 010 0 0  1 1 0 0 0 1 1 1 1 1 1 1 1 0  1 ";
    EXPECT_TRUE(sliceOf(unitOf(0x21, ofB + "00110 1"), both).isReset);
    EXPECT_FALSE(sliceOf(unitOf(0x21, ofB + "1"), both).isReset);
    EXPECT_FALSE(sliceOf(unitOf(0x01, ofB + "00110 1"), both).isReset);
}

TEST(MovAvcSlice, ThatIsCutSaysNothingThatIsNotThere) {
    for (std::size_t size = 1; size <= s_reset.size(); ++size) {
        MovAvcSlice slice;
        EXPECT_EQ(slice.read(start(s_reset), size, sequence(), {}), size >= 3) << size;
        EXPECT_EQ(slice.isReset, size >= 4) << size;
    }
    for (std::size_t size = 1; size + 1 < s_set.size(); ++size)
        EXPECT_FALSE(MovAvcPictureSet().read(start(s_set), size)) << size;
    EXPECT_TRUE(MovAvcPictureSet().read(start(s_set), s_set.size()));
    EXPECT_FALSE(MovAvcPictureSet().read(start(s_sequence), s_sequence.size()));
}

TEST(MovPictureOrder, KnowsNoPicturesWithoutTheirSets) {
    const auto sampleOf = [](std::initializer_list<std::string> units) {
        std::string bytes;
        for (const std::string& unit : units)
            bytes += bytesOf({0, 0, 0, static_cast<unsigned>(unit.size())}) + unit;
        return bytes;
    };
    const std::string whole = sampleOf({s_sequence, s_set, s_first});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        MovPictureOrder order;
        order.look(0, start(whole), size);
        EXPECT_EQ(order.get(0).m_isTold, size == whole.size()) << size;
    }
    for (const std::string& part : {sampleOf({s_first}), sampleOf({s_sequence, s_first}), sampleOf({s_set, s_first})}) {
        MovPictureOrder order;
        order.look(0, start(part), part.size());
        EXPECT_FALSE(order.get(0).m_isTold);
    }
}

TEST(MovDecoderConfig, OfMpeg4TellsTheScan) {
    const std::string layer = bytesOf({0, 0, 1, 0xB0, 1, 0,    0,    1,    0xB5, 0x89, 0x13, 0,    0,    1,    0,
                                       0, 0, 1, 0x20, 0, 0xC4, 0x8D, 0x88, 0,    0xCD, 0x0A, 0x04, 0x1E, 0x1C, 0x43});
    for (std::size_t size = 0; size <= layer.size(); ++size) {
        MovEntry entry;
        entry.encoding = MediaEncodingType::Mpeg4;
        MovDecoderConfig::complete(entry, start(layer), size);
        const bool isThere = size + 1 >= layer.size();
        EXPECT_EQ(entry.scan, isThere ? MediaVideoScanType::Interlaced : MediaVideoScanType::Unknown) << size;
    }
}

TEST(MovDecoderConfig, OfAacTellsTheChannels) {
    const auto channelsOf = [](std::initializer_list<unsigned> values) {
        MovEntry entry;
        entry.encoding = MediaEncodingType::Aac;
        entry.channels = 2;
        const std::string bytes = bytesOf(values);
        MovDecoderConfig::complete(entry, start(bytes), bytes.size());
        return entry.channels;
    };
    EXPECT_EQ(channelsOf({0x11, 0x88}), 1u);
    EXPECT_EQ(channelsOf({0x11, 0xB0}), 6u);
    EXPECT_EQ(channelsOf({0x11, 0xB8}), 8u);
    EXPECT_EQ(channelsOf({0x11, 0x80}), 2u);                    // told by the stream itself
    EXPECT_EQ(channelsOf({0x11}), 2u);                          // cut
    EXPECT_EQ(channelsOf({0x17, 0x80, 0xBB, 0x80, 0x08}), 1u);  // a rate of its own
    EXPECT_EQ(channelsOf({0xE9, 0x88}), 2u);                    // two made of one
}
