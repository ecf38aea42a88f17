#include <gtest/gtest.h>

#include <string>

#include "backends/mov/mov_avc_config.h"
#include "backends/mov/mov_parser.h"
#include "backends/mov/mov_picture_types.h"
#include "tests/kit/fake_file.h"
#include "tests/unit/backends/mov_fixture.h"

// What the atoms of a movie say, and what is made of those that say too much.

using namespace MovKit;

namespace {

struct Parsed {
    explicit Parsed(const std::string& bytes) {
        m_file.m_content = bytes;
        FileWindow window(m_file, bytes.size());
        OpResult result = MovParser(window).parse(m_movie);
        m_good = result.success();
        if (!m_good) m_message = result.getMessage() != nullptr ? result.getMessage() : "";
        result.discard();
    }

    kit::FakeFile m_file;
    MovMovie m_movie;
    bool m_good = false;
    std::string m_message;
};

std::string messageOf(const std::string& bytes) {
    const Parsed parsed(bytes);
    return parsed.m_good ? "opened" : parsed.m_message;
}

Track plainTrack() {
    Track track;
    track.m_duration = 4;
    track.m_tables = plainTables(4, 100, 1, 16);
    return track;
}

std::string plainMovie() { return head() + movie({plainTrack().build()}) + atom("mdat", std::string(400, 'm')); }

MovEntry entryOf(const std::string& entry, const std::string& handler) {
    Track track = plainTrack();
    track.m_handler = handler;
    track.m_entries = {entry};
    const Parsed parsed(head() + movie({track.build()}));
    EXPECT_TRUE(parsed.m_good) << parsed.m_message;
    return parsed.m_good ? parsed.m_movie.tracks[0].entries[0] : MovEntry();
}

// A table's atom with the count at its place exchanged.
std::string withCount(std::string bytes, const std::string& type, unsigned behind, std::uint32_t count) {
    const std::size_t at = bytes.find(type);
    EXPECT_NE(at, std::string::npos);
    return bytes.replace(at + 4 + behind, 4, be32(count));
}

}  // namespace

TEST(MovAtoms, HeadersStandBeforeOrBehindTheMedia) {
    EXPECT_EQ(messageOf(plainMovie()), "opened");
    EXPECT_EQ(messageOf(head() + atom("mdat", std::string(9000, 'm')) + movie({plainTrack().build()})), "opened");
    EXPECT_EQ(messageOf(atom("wide", "") + be32(1) + "mdat" + be64(5016) + std::string(5000, 'm') +
                        movie({plainTrack().build()})),
              "opened");
}

TEST(MovAtoms, WhatIsNoMovieIsRefusedWithTheReason) {
    EXPECT_EQ(messageOf(""), "mov: the file is too short for an atom");
    EXPECT_EQ(messageOf("RIFF____WAVEfmt "), "mov: no atom of a movie at the start");
    EXPECT_EQ(messageOf(head() + atom("mdat", "m")), "mov: no moov atom in 25 bytes");
    EXPECT_EQ(messageOf(head() + be32(3) + "junk1234"), "mov: no atom at 16, and no moov before it");
    EXPECT_EQ(messageOf(head() + movie({plainTrack().build()}).substr(0, 200)),
              "mov: the moov atom at 16 runs past the end of the file");
    EXPECT_EQ(messageOf(head() + movie({})), "mov: no track can be shown");
    EXPECT_EQ(messageOf(head() + movie({plainTrack().build()}, 0)), "mov: no mvhd atom with a time scale");
    EXPECT_EQ(messageOf(head() + atom("moov", atom("cmov", ""))), "mov: compressed headers are not supported");
}

TEST(MovAtoms, AnAtomsSizeMayBeNothingOrStandBehindItInSixtyFourBits) {
    const std::string moov = movie({plainTrack().build()});
    EXPECT_EQ(messageOf(head() + be32(0) + moov.substr(4)), "opened");
    EXPECT_EQ(messageOf(head() + be32(1) + "moov" + be64(moov.size() + 8) + moov.substr(8)), "opened");
    for (const std::uint64_t size : {0ull, 1ull, 15ull, 1ull << 63, ~0ull, 0xFFFFFFFFull})
        EXPECT_NE(messageOf(head() + be32(1) + "moov" + be64(size) + moov.substr(8)), "opened") << size;
}

TEST(MovAtoms, ATableThatClaimsMoreThanItHoldsIsNamedWithItsPlace) {
    const std::string bytes = plainMovie();
    for (const std::uint32_t count : {2u, 0x10000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        for (const char* type : {"stts", "stsc", "stco"}) {
            const std::string place = std::to_string(bytes.find(type) - 4);
            EXPECT_EQ(
                messageOf(withCount(bytes, type, 4, count)),
                "mov: track 1: the " + std::string(type) + " atom at " + place + " claims more entries than it holds");
        }
    }
    std::string sizes = bytes;
    sizes.replace(sizes.find("stsz") + 8, 4, be32(0));  // a table of sizes that isn't there
    EXPECT_NE(messageOf(sizes).find("claims more sizes than it holds"), std::string::npos);
}

TEST(MovAtoms, ATrackThatMakesNoSenseIsLeftOutAndRemarkedOn) {
    Track bad = plainTrack();
    bad.m_id = 2;
    bad.m_tables = withCount(bad.m_tables, "stts", 4, 99);
    const Parsed parsed(head() + movie({bad.build(), plainTrack().build()}));
    ASSERT_TRUE(parsed.m_good) << parsed.m_message;
    EXPECT_EQ(parsed.m_movie.tracks.size(), 1u);
    ASSERT_EQ(parsed.m_movie.remarks.size(), 1u);
    EXPECT_NE(parsed.m_movie.remarks[0].find("track 2: the stts atom"), std::string::npos);
}

TEST(MovAtoms, AMovieThatIsCutAnywhereInItsHeadersIsRefused) {
    const std::string bytes = head() + movie({plainTrack().build()});
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(messageOf(bytes.substr(0, size)), "opened") << size;
}

TEST(MovAtoms, NoWordOfTheHeadersLeadsOutOfTheFile) {
    const std::string bytes = plainMovie();
    for (std::size_t at = 0; at + 4 <= bytes.size() - 400; ++at) {
        for (const std::uint32_t word : {0u, 1u, 7u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            std::string changed = bytes;
            const Parsed parsed(changed.replace(at, 4, be32(word)));
            if (!parsed.m_good) {
                EXPECT_EQ(parsed.m_message.rfind("mov: ", 0), 0u);
                continue;
            }
            for (const MovTrack& track : parsed.m_movie.tracks) {
                const MovTablePlaces& places = track.places;
                EXPECT_LE(places.chunks.offset + places.chunks.count * 4, bytes.size());
                EXPECT_LE(places.times.offset + places.times.count * 8, bytes.size());
                EXPECT_LE(places.runs.offset + places.runs.count * 12, bytes.size());
            }
            EXPECT_LT(parsed.m_file.m_readCalls, 100);
        }
    }
}

TEST(MovAtoms, AtomsOfEightBytesByTheThousandEndTheWalkInTime) {
    std::string many;
    for (int i = 0; i < 100000; ++i)
        many += atom("free", "");
    const Parsed parsed(head() + many + movie({plainTrack().build()}));
    EXPECT_TRUE(parsed.m_good);
    EXPECT_LT(parsed.m_file.m_readCalls, 400);
}

TEST(MovAtoms, PcmIsDescribedByItsCodeAndTheAtomsBehindIt) {
    const auto little = atom("wave", atom("frma", "in24") + atom("enda", be16(1)) + be32(8) + be32(0));
    const std::string sound1 = be32(1) + be32(3) + be32(6) + be32(2);
    const auto bytesOfLpcm = [](std::uint32_t flags) {
        return soundEntry("lpcm", 3, 16, 1,
                          be32(72) + be64(0x40F7700000000000ull) + be32(1) + be32(0x7F000000) + be32(8) + be32(flags) +
                              be32(1) + be32(1),
                          2);
    };
    struct Row {
        std::string m_entry;
        MediaEndian m_endian;
        unsigned m_bits, m_bytes;
    };
    const Row rows[] = {
        {soundEntry("sowt", 2, 16, 48000), MediaEndian::Little, 16, 4},
        {soundEntry("twos", 2, 16, 48000), MediaEndian::Big, 16, 4},
        {soundEntry("twos", 1, 8, 48000), MediaEndian::Big, 8, 1},
        {soundEntry("sowt", 1, 8, 48000), MediaEndian::Big, 8, 1},
        {soundEntry("raw ", 2, 8, 48000), MediaEndian::Little, 8, 2},
        {soundEntry("NONE", 1, 8, 48000), MediaEndian::Little, 8, 1},
        {soundEntry("in24", 2, 16, 48000), MediaEndian::Big, 24, 6},
        {soundEntry("in24", 2, 16, 48000, sound1 + little, 1), MediaEndian::Little, 24, 6},
        {soundEntry("in32", 8, 16, 48000), MediaEndian::Big, 32, 32},
        {soundEntry("lpcm", 3, 16, 1,
                    be32(72) + be64(0x40F7700000000000ull) + be32(6) + be32(0x7F000000) + be32(24) + be32(4 | 8) +
                        be32(18) + be32(1),
                    2),
         MediaEndian::Little, 24, 18},
        {soundEntry("ipcm", 2, 16, 48000, full("pcmC", std::string("\1\x18", 2))), MediaEndian::Little, 24, 6},
        {bytesOfLpcm(8), MediaEndian::Little, 8, 1},
        {bytesOfLpcm(4 | 8), MediaEndian::Big, 8, 1},
    };
    for (const Row& row : rows) {
        const MovEntry entry = entryOf(row.m_entry, "soun");
        EXPECT_EQ(entry.encoding, MediaEncodingType::Pcm);
        EXPECT_EQ(entry.endian, row.m_endian);
        EXPECT_EQ(entry.bits, row.m_bits);
        EXPECT_EQ(entry.sampleBytes, row.m_bytes);
    }
    EXPECT_EQ(entryOf(rows[9].m_entry, "soun").sampleRate, 96000u);
    EXPECT_EQ(entryOf(rows[9].m_entry, "soun").channels, 6u);
    EXPECT_EQ(entryOf(soundEntry("alaw", 2, 16, 8000), "soun").encoding, MediaEncodingType::ALaw);
    EXPECT_EQ(entryOf(soundEntry("alaw", 2, 16, 8000), "soun").sampleBytes, 2u);
}

TEST(MovAtoms, SoundThatCannotBeIsOfAnUnknownCoding) {
    EXPECT_EQ(entryOf(soundEntry("sowt", 0, 16, 48000), "soun").encoding, MediaEncodingType::Unknown);
    EXPECT_EQ(entryOf(soundEntry("sowt", 65535, 16, 48000), "soun").encoding, MediaEncodingType::Unknown);
    EXPECT_EQ(entryOf(soundEntry("twos", 2, 65535, 48000), "soun").bits, 8u);
    EXPECT_EQ(entryOf(soundEntry("fl32", 2, 32, 48000), "soun").encoding, MediaEncodingType::Unknown);
}

TEST(MovAtoms, AnElementaryStreamTellsItsCodingByItsObjectType) {
    const auto esds = [](unsigned type) {
        const std::string config = std::string(1, '\4') + '\15' + std::string(1, static_cast<char>(type)) + "\x15" +
                                   std::string(3, '\0') + be32(320000) + be32(128000);
        return full("esds", std::string("\3\x80\x80\x12", 4) + be16(1) + std::string(1, '\0') + config);
    };
    const MovEntry aac = entryOf(soundEntry("mp4a", 2, 16, 48000, esds(0x40)), "soun");
    EXPECT_EQ(aac.encoding, MediaEncodingType::Aac);
    EXPECT_EQ(aac.bitrate, 128000u);
    EXPECT_EQ(aac.sampleBytes, 0u);
    EXPECT_EQ(entryOf(soundEntry("mp4a", 2, 16, 48000, esds(0x6B)), "soun").encoding, MediaEncodingType::Unknown);
    EXPECT_EQ(entryOf(pictureEntry("mp4v", esds(0x20)), "vide").encoding, MediaEncodingType::Mpeg4);
    EXPECT_EQ(entryOf(pictureEntry("mp4v", esds(0x61)), "vide").encoding, MediaEncodingType::Mpeg);
    EXPECT_EQ(entryOf(pictureEntry("mp4v", esds(0x65)), "vide").chroma, MediaChromaSample::C422);
}

TEST(MovAtoms, APictureTellsItsFieldsItsPixelsAndItsClearPart) {
    const MovEntry entry =
        entryOf(pictureEntry("apch", atom("fiel", std::string("\2\6", 2)) + atom("pasp", be32(59) + be32(54)) +
                                         atom("clap", be32(1404) + be32(2) + be32(576) + be32(1))),
                "vide");
    EXPECT_EQ(entry.encoding, MediaEncodingType::Prores);
    EXPECT_EQ(entry.chroma, MediaChromaSample::C422);
    EXPECT_EQ(entry.scan, MediaVideoScanType::Interlaced);
    EXPECT_EQ(entry.pixelWidth, 59u);
    EXPECT_EQ(entry.cleanWidth, 702u);
    EXPECT_EQ(entry.cleanHeight, 576u);
}

TEST(MovAtoms, TheNearestOfTheUsualShapesIsTaken) {
    EXPECT_EQ(MovDescription::aspectOf(720 * 59, 576 * 54), MediaAspectRatio::Ratio4x3);
    EXPECT_EQ(MovDescription::aspectOf(720 * 118, 576 * 81), MediaAspectRatio::Ratio16x9);
    EXPECT_EQ(MovDescription::aspectOf(720 * 10, 480 * 11), MediaAspectRatio::Ratio4x3);
    EXPECT_EQ(MovDescription::aspectOf(1920, 1080), MediaAspectRatio::Ratio16x9);
    EXPECT_EQ(MovDescription::aspectOf(1080, 1920), MediaAspectRatio::Other);
    EXPECT_EQ(MovDescription::aspectOf(0, 1080), MediaAspectRatio::Unknown);
}

TEST(MovAtoms, AWriterFindsTheCodeThatAReaderKnows) {
    using E = MediaEncodingType;
    const auto codeOf = [](E encoding, MediaEndian endian, unsigned bits) {
        return MovDescription::codeOf(MediaDataType::Audio, encoding, MediaChromaSample::None, endian, bits);
    };
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Little, 8), movCode("raw "));
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Big, 8), movCode("twos"));
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Little, 16), movCode("sowt"));
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Big, 16), movCode("twos"));
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Little, 24), movCode("in24"));
    EXPECT_EQ(codeOf(E::Pcm, MediaEndian::Little, 20), 0u);
    EXPECT_EQ(codeOf(E::ALaw, MediaEndian::Big, 8), movCode("alaw"));
    EXPECT_EQ(MovDescription::codeOf(MediaDataType::Video, E::Dv, MediaChromaSample::C411, MediaEndian::Big, 0),
              movCode("dvc "));
    EXPECT_EQ(MovDescription::codeOf(MediaDataType::Video, E::Hdcam, MediaChromaSample::C422, MediaEndian::Big, 0), 0u);
}

TEST(MovAtoms, AnAvcConfigurationTellsChromaAndScan) {
    // As an encoder writes it for interlaced pictures of 4:2:2.
    const std::string unit("\x67\x7A\x00\x15\xBC\xE8\x21\xB6\x02\x20\x00\x00\x03\x00\x20\x00\x00\x06\x43\xE2\x85\x54",
                           22);
    const std::string config = std::string("\1\x7A\x00\x15\xFF\xE1", 6) + be16(unit.size()) + unit;
    MovAvcConfig avc;
    ASSERT_TRUE(avc.read(reinterpret_cast<const std::uint8_t*>(config.data()), config.size()));
    EXPECT_EQ(avc.profile, 122);
    EXPECT_EQ(avc.level, 21);
    EXPECT_EQ(avc.lengthBytes, 4);
    EXPECT_EQ(avc.chroma, MediaChromaSample::C422);
    EXPECT_EQ(avc.scan, MediaVideoScanType::Interlaced);
    for (std::size_t size = 0; size < config.size(); ++size) {
        MovAvcConfig cut;
        EXPECT_EQ(cut.read(reinterpret_cast<const std::uint8_t*>(config.data()), size), size >= 6);
    }
}

TEST(MovAtoms, PicturesTellWhetherTheyAreIPOrB) {
    const auto look = [](const std::string& bytes, MediaEncodingType encoding, unsigned lengthBytes) {
        kit::FakeFile file;
        file.m_content = "head" + bytes;
        return MovPictureTypes::look(file, encoding, lengthBytes, 4, static_cast<std::uint32_t>(bytes.size()));
    };
    const auto mpeg = [](unsigned type) {
        return std::string("\0\0\1\xB8zzzz\0\0\1\0\0", 13) + static_cast<char>(type << 3) + "zzz";
    };
    const auto unit = [](const std::string& bytes) { return be32(bytes.size()) + bytes; };
    using T = SampleCodingType;
    EXPECT_EQ(look(mpeg(1), MediaEncodingType::Mpeg, 0), T::I);
    EXPECT_EQ(look(mpeg(2), MediaEncodingType::Mpeg, 0), T::P);
    EXPECT_EQ(look(mpeg(3), MediaEncodingType::Mpeg, 0), T::B);
    EXPECT_EQ(look(mpeg(0), MediaEncodingType::Mpeg, 0), T::Unknown);
    EXPECT_EQ(look("no start code", MediaEncodingType::Mpeg, 0), T::Unknown);
    // A first macroblock of 0 is the bit 1; then the type: 1 is P (010: 1), 00110: 5 is P of all.
    const std::string delimiter = unit(std::string("\x09\xF0", 2));
    const std::string message = unit("\x06" + std::string(900, 's'));
    EXPECT_EQ(look(delimiter + message + unit("\x65\x88\x80zzzz"), MediaEncodingType::Avc, 4), T::I);
    EXPECT_EQ(look(delimiter + unit("\x41\x9A\x22zzzz"), MediaEncodingType::Avc, 4), T::P);
    EXPECT_EQ(look(unit("\x01\x9E\x22zzzz"), MediaEncodingType::Avc, 4), T::B);
    EXPECT_EQ(look(std::string("\0\0\1\x65\x88\x80zz", 8), MediaEncodingType::Avc, 0), T::I);
    EXPECT_EQ(look(be32(0xFFFFFFFF) + "\x65\x88", MediaEncodingType::Avc, 4), T::I);
    EXPECT_EQ(look(std::string(4000, '\0'), MediaEncodingType::Avc, 4), T::Unknown);
    EXPECT_EQ(look("anything", MediaEncodingType::Prores, 0), T::Unknown);
}
