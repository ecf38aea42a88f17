#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "backends/mov/mov_avc_sequence.h"
#include "backends/mov/mov_fragments.h"
#include "backends/mov/mov_media_obj.h"
#include "backends/mov/mov_parser.h"
#include "backends/mov/mov_reference_editor.h"
#include "backends/mov/mov_references.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"
#include "tests/unit/backends/mov_fixture.h"

// Movie files that mean harm: every size and count at its limits, tables that contradict each other, numbers whose sums
// don't fit. They are opened as clients do, from memory, and asked for samples at both ends and behind.

using namespace MovKit;

namespace {

using Movie = std::unique_ptr<MovMediaObj>;

const std::string s_nul(1, '\0');

// Opens movies from memory.
class HostileMovie : public kit::CacheScene {
protected:
    Movie open(const std::string& bytes) {
        m_file = new kit::FakeFile();
        m_file->m_content = bytes;
        Movie movie(static_cast<MovMediaObj*>(MovMediaObj::openFile(AutoRefPtr<BasicFileIO>(m_file), m_result)));
        m_message = m_result.getMessage() != nullptr ? m_result.getMessage() : "";
        EXPECT_EQ(movie != nullptr, m_result.success());
        m_result.discard();
        return movie;
    }
    static const MovClip& clip(const Movie& movie, unsigned track = 0) {
        return static_cast<const MovClip&>(*movie->getTrackAt(track)->getClip(0));
    }
    bool find(const MediaClipDesc& clip, unsigned long long sample, unsigned count = 1) {
        const bool found = clip.getMediaOffset(MediaPlayReq(sample, count), m_where, m_result);
        m_result.discard();
        return found && !m_where.m_frameN;
    }
    // A sentence, or a movie that answers; what lies in its own file lies within it. Gives: false for the sentence.
    bool survives(const std::string& bytes) {
        const Movie movie = open(bytes);
        if (movie == nullptr) {
            EXPECT_EQ(m_message.rfind("mov: ", 0), 0u) << m_message;
            return false;
        }
        for (unsigned i = 0; i < movie->getTrackCount(); ++i)
            askTrack(*movie, *movie->getTrackAt(i), bytes.size());
        (void)movie->getMoviePrecharge();
        return true;
    }

    MediaSampleInMovie m_where;
    std::string m_message;
    kit::FakeFile* m_file = nullptr;  // borrowed from the movie

private:
    void askTrack(const MovMediaObj& movie, const MediaTrackDesc& track, std::uint64_t fileSize) {
        for (unsigned i = 0; i < std::min(track.getClipCount(), 3u); ++i) {
            const auto& clip = static_cast<const MovClip&>(*track.getClip(i));
            const unsigned long long length = clip.getLength();
            MovSampleTime time;
            for (const unsigned long long sample : {0ull, length / 2, length - (length != 0), length, ~0ull}) {
                (void)clip.getMovLookup().getSampleTime(sample, time);
                const bool isOwn = clip.getMediaId() == movie.getMediaId(0);
                if (find(clip, sample, 7) && isOwn && sample == 0) {
                    EXPECT_LE(m_where.m_chunks[0].m_offset, fileSize);
                }
            }
        }
    }
};

Track pictures(std::uint32_t samples, std::uint32_t at) {
    Track track;
    track.m_scale = 2500;
    track.m_duration = samples * 100;
    track.m_tables = plainTables(samples, 10, 100, at);
    return track;
}

std::string extends(std::uint32_t step, std::uint32_t size) {
    return atom("mvex", full("trex", be32(1) + be32(1) + be32(step) + be32(size) + be32(0)));
}

// A fragment of one run, whose data begin that far into the file.
std::string fragment(std::uint64_t base, std::uint32_t flags, std::uint32_t count, const std::string& entries) {
    return atom("moof", full("mfhd", be32(1)) + atom("traf", full("tfhd", be32(1) + be64(base), 0x1) +
                                                                 full("trun", be32(count) + entries, flags)));
}

// A movie of nearly all that a movie has: sizes of their own, wide offsets, shifts, syncs, edits, two descriptions,
// references, timecode, user data, a fragment.
std::string richMovie() {
    Track video = pictures(4, 0);
    video.m_entries = {pictureEntry("avc1", atom("pasp", be32(16) + be32(15)) + atom("fiel", "\x02\x06")),
                       pictureEntry("mp2v")};
    video.m_edits = {{200, 0}, {100, -1}, {100, 100}};
    video.m_tables = list("stts", 2, be32(3) + be32(100) + be32(1) + be32(90)) +
                     list("ctts", 2, be32(2) + be32(100) + be32(2) + be32(0)) +
                     list("stsc", 2, be32(1) + be32(2) + be32(1) + be32(2) + be32(2) + be32(2)) +
                     full("stsz", be32(0) + be32(4) + be32(10) + be32(11) + be32(12) + be32(13)) +
                     list("co64", 2, be64(24) + be64(60)) + list("stss", 2, be32(1) + be32(3));
    video.m_more = atom("tref", atom("tmcd", be32(3)));
    Track sound = pictures(4, 24);
    sound.m_id = 2;
    sound.m_handler = "soun";
    sound.m_entries = {soundEntry("in24", 2, 16, 48000, atom("wave", atom("enda", be16(1)) + be32(8) + be32(0)))};
    sound.m_references = full("url ", "", 1) + full("alis", std::string(150, 'a'));
    sound.m_referenceCount = 2;
    sound.m_tables = list("stts", 1, be32(4) + be32(1)) + list("stsc", 1, be32(1) + be32(4) + be32(1)) +
                     full("stz2", be32(4) + be32(4) + "\x12\x34") + list("stco", 1, be32(24));
    Track code;
    code.m_handler = "tmcd";
    code.m_id = 3;
    code.m_entries = {
        atom("tmcd", std::string(6, '\0') + be16(1) + be32(0) + be32(0) + be32(25) + be32(1) + "\x19" + s_nul)};
    code.m_tables = plainTables(1, 4, 1, 24);
    const std::string more =
        atom("udta", atom("UMID", std::string(32, 'u')) + atom("CPRP", "names")) + extends(100, 10);
    return head() + atom("mdat", std::string(400, 'm')) +
           movie({video.build(), sound.build(), code.build()}, 1000, more) +
           fragment(30, 0x301, 2, be32(0) + be32(100) + be32(5) + be32(100) + be32(6));
}

struct Place {
    std::string m_type;
    std::size_t m_at;
};

// Bytes of what stands in an atom before the atoms in it; nothing for one without any.
int headOf(const std::string& type) {
    static const std::vector<std::pair<std::string, int>> heads = {
        {"moov", 0}, {"trak", 0}, {"edts", 0}, {"mdia", 0},  {"minf", 0},  {"dinf", 0},
        {"stbl", 0}, {"tref", 0}, {"udta", 0}, {"mvex", 0},  {"moof", 0},  {"traf", 0},
        {"wave", 0}, {"dref", 8}, {"stsd", 8}, {"avc1", 78}, {"mp2v", 78}, {"in24", 28}};
    for (const auto& [name, size] : heads)
        if (name == type) return size;
    return -1;
}

void collect(const std::string& bytes, std::size_t from, std::size_t end, std::vector<Place>& places) {
    for (std::size_t at = from; at + 8 <= end;) {
        std::size_t size = 0;
        for (unsigned i = 0; i < 4; ++i)
            size = size << 8 | static_cast<unsigned char>(bytes[at + i]);
        if (size < 8 || size > end - at) return;
        const std::string type = bytes.substr(at + 4, 4);
        places.push_back({type, at});
        const int before = headOf(type);
        if (before >= 0) collect(bytes, at + 8 + static_cast<std::size_t>(before), at + size, places);
        at += size;
    }
}

std::vector<Place> placesOf(const std::string& bytes) {
    std::vector<Place> places;
    collect(bytes, 0, bytes.size(), places);
    return places;
}

// Bits one behind the other, most significant first, behind the head of a sequence parameter set.
class Bits {
public:
    Bits& put(std::uint32_t value, unsigned count) {
        for (unsigned left = count; left > 0; --left)
            m_bits += (value >> (left - 1) & 1) != 0 ? '1' : '0';
        return *this;
    }
    Bits& ue(std::uint32_t value) {
        unsigned length = 0;
        while (((std::uint64_t{value} + 1) >> (length + 1)) != 0)
            ++length;
        return put(0, length).put(value + 1, length + 1);
    }
    // With a 3 wherever a start code could be read else.
    std::vector<std::uint8_t> bytes() const {
        std::vector<std::uint8_t> bytes;
        unsigned zeros = 0;
        for (std::size_t at = 0; at < m_bits.size(); at += 8) {
            unsigned byte = 0;
            for (std::size_t i = at; i < at + 8; ++i)
                byte = byte << 1 | (i < m_bits.size() && m_bits[i] == '1' ? 1 : 0);
            if (zeros == 2 && byte <= 3) bytes.push_back(3);
            zeros = zeros == 2 && byte <= 3 ? 0 : zeros;
            zeros = byte == 0 ? zeros + 1 : 0;
            bytes.push_back(static_cast<std::uint8_t>(byte));
        }
        return bytes;
    }

private:
    std::string m_bits;
};

}  // namespace

TEST_F(HostileMovie, OfEveryKindOfAtomOpens) {
    const Movie movie = open(richMovie());
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(movie->getTrackCount(), 2u);
    EXPECT_EQ(movie->getMediaCount(), 1u);
    EXPECT_GE(placesOf(richMovie()).size(), 60u);
    EXPECT_TRUE(survives(richMovie()));
}

TEST_F(HostileMovie, MayGiveAnyAtomAnySize) {
    const std::string bytes = richMovie();
    unsigned opened = 0;
    for (const Place& place : placesOf(bytes)) {
        SCOPED_TRACE(place.m_type + " at " + std::to_string(place.m_at));
        const auto size = static_cast<std::uint32_t>(bytes.size() - place.m_at);
        for (const std::uint32_t hostile :
             {0u, 1u, 7u, 8u, 9u, size, size + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            std::string changed = bytes;
            opened += survives(changed.replace(place.m_at, 4, be32(hostile)));
        }
        for (const std::uint64_t hostile : {0ull, 15ull, 16ull, 1ull << 32, 1ull << 63, ~0ull}) {
            std::string changed = bytes;
            opened += survives(changed.replace(place.m_at, 8, be32(1) + place.m_type + be64(hostile)));
        }
    }
    EXPECT_GT(opened, 0u);
}

TEST_F(HostileMovie, MayGiveAnyListAnyCount) {
    const std::string bytes = richMovie();
    unsigned counts = 0;
    for (const Place& place : placesOf(bytes)) {
        const bool isSizes = place.m_type == "stsz" || place.m_type == "stz2";
        bool isList = isSizes;
        for (const char* const type : {"stts", "ctts", "stsc", "co64", "stco", "stss", "elst", "stsd", "dref", "trun"})
            isList = isList || place.m_type == type;
        if (!isList) continue;
        SCOPED_TRACE(place.m_type + " at " + std::to_string(place.m_at));
        ++counts;
        for (const std::uint32_t hostile :
             {0u, 1u, 3u, 0x10000000u, 0x20000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            std::string changed = bytes;
            survives(changed.replace(place.m_at + (isSizes ? 16 : 12), 4, be32(hostile)));
        }
    }
    EXPECT_GE(counts, 17u);
}

TEST_F(HostileMovie, MayHaveAnyWordInItsTables) {
    const std::string bytes = richMovie();
    for (const Place& place : placesOf(bytes)) {
        if (headOf(place.m_type) >= 0 || place.m_type == "mdat" || place.m_type == "ftyp") continue;
        SCOPED_TRACE(place.m_type + " at " + std::to_string(place.m_at));
        const std::size_t end = std::min(place.m_at + 60, bytes.size() - 4);
        for (std::size_t at = place.m_at + 8; at < end; at += 4) {
            for (const std::uint32_t hostile : {0u, 0x80000000u, 0xFFFFFFFFu}) {
                std::string changed = bytes;
                survives(changed.replace(at, 4, be32(hostile)));
            }
        }
    }
}

TEST_F(HostileMovie, IsFollowedNoDeeperThanTheFormatGoes) {
    for (const char* const type : {"moov", "trak", "mdia", "minf", "stbl", "dinf", "udta", "wave", "moof", "traf"}) {
        std::string nested;
        for (unsigned i = 0; i < 2000; ++i)
            nested = atom(type, nested);
        EXPECT_FALSE(survives(head() + nested)) << type;
        EXPECT_TRUE(
            survives(head() + atom("mdat", std::string(400, 'm')) + movie({pictures(4, 24).build()}, 1000, nested)))
            << type;
        Track track = pictures(4, 24);
        track.m_entries = {pictureEntry("dvcp", nested)};
        track.m_more = nested;
        EXPECT_TRUE(survives(head() + atom("mdat", std::string(400, 'm')) + movie({track.build()}))) << type;
    }
    std::string tracks;
    for (unsigned i = 0; i < 2000; ++i)
        tracks = atom("trak", tracks);
    const std::string path = m_tree.write("deep.mov", head() + movie({pictures(4, 24).build()}, 1000, tracks));
    MovReferenceEditor editor(path);
    m_result = editor.read();
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnknownError));
}

TEST_F(HostileMovie, WithTablesThatDisagreeGivesWhatIsThere) {
    struct Row {
        const char* m_what;
        std::string m_tables;
        unsigned m_found;  // of four samples, from the first on
    };
    const std::string times = list("stts", 1, be32(4) + be32(100));
    const std::string sizes = full("stsz", be32(0) + be32(4) + be32(1) + be32(2) + be32(3) + be32(4));
    const std::string runs = list("stsc", 1, be32(1) + be32(4) + be32(1)), chunk = list("stco", 1, be32(24));
    const std::vector<Row> rows = {
        {"as they should be", times + runs + sizes + chunk, 4},
        {"fewer sizes than samples in chunks",
         times + runs + full("stsz", be32(0) + be32(2) + be32(1) + be32(2)) + chunk, 2},
        {"fewer samples in chunks than sizes", times + list("stsc", 1, be32(1) + be32(3) + be32(1)) + sizes + chunk, 3},
        {"chunks of nothing", times + list("stsc", 1, be32(1) + be32(0) + be32(1)) + sizes + chunk, 0},
        {"runs of chunks that aren't there", times + list("stsc", 1, be32(9) + be32(4) + be32(1)) + sizes + chunk, 0},
        {"a first chunk of 0", times + list("stsc", 1, be32(0) + be32(4) + be32(1)) + sizes + chunk, 4},
        {"runs backwards",
         times + list("stsc", 2, be32(2) + be32(4) + be32(1) + be32(1) + be32(4) + be32(1)) + sizes + chunk, 4},
        {"fewer times", list("stts", 1, be32(1) + be32(100)) + runs + sizes + chunk, 4},
        {"times of nothing", list("stts", 1, be32(0) + be32(0)) + runs + sizes + chunk, 4},
        {"fewer shifts", times + list("ctts", 1, be32(1) + be32(5)) + runs + sizes + chunk, 4},
        {"syncs out of order", times + list("stss", 3, be32(9) + be32(0) + be32(1)) + runs + sizes + chunk, 4},
        {"sizes of both kinds", times + runs + full("stz2", be32(4) + be32(2) + "\x12") + sizes + chunk, 4},
        {"offsets of both kinds", times + runs + sizes + list("co64", 1, be64(99)) + chunk, 4},
        {"two lists of runs", times + list("stsc", 1, be32(1) + be32(1) + be32(7)) + runs + sizes + chunk, 4},
        {"a description that isn't there", times + list("stsc", 1, be32(1) + be32(4) + be32(7)) + sizes + chunk, 4},
        {"no chunks", times + runs + sizes, 0},
        {"no sizes", times + runs + chunk, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.m_what);
        Track track = pictures(4, 24);
        track.m_tables = row.m_tables;
        const Movie movie = open(head() + atom("mdat", std::string(400, 'm')) + MovKit::movie({track.build()}));
        ASSERT_NE(movie, nullptr) << m_message;
        unsigned found = 0;
        while (found < 5 && found < clip(movie).getLength() && find(clip(movie), found))
            ++found;
        EXPECT_EQ(found, row.m_found);
        EXPECT_FALSE(find(clip(movie), 4));
    }
}

TEST_F(HostileMovie, WithoutRunsOfChunksIsRefused) {
    Track track = pictures(4, 24);
    track.m_tables = full("stsz", be32(10) + be32(4)) + list("stco", 1, be32(24));
    EXPECT_EQ(open(head() + movie({track.build()})), nullptr);
    EXPECT_EQ(m_message, "mov: track 1: no stsc atom says which samples are in a chunk");
}

// A run is kept in pieces of so many samples.
TEST_F(HostileMovie, ShowsNoPieceOfALongRunThatLiesBehindTheFile) {
    constexpr std::uint32_t piece = MovFragments::s_mostInRun, count = 2 * piece + 10;
    std::string entries;
    for (std::uint32_t i = 0; i < count; ++i)
        entries += be32(i % piece != 0 ? 100 : 0);  // the pieces begin with nothing
    const std::string before = head() + movie({pictures(0, 0).build()}, 1000, extends(100, 0));
    const std::string bytes = before + fragment(24, 0x201, count, be32(0) + entries);
    ASSERT_LT(bytes.size(), piece * 100u);  // the second piece begins behind the end
    const Movie movie = open(bytes);
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(clip(movie).getLength(), (bytes.size() - 24) / 100 + 1);
}

// Fragments have so many atoms of their own that hours of them don't use up the others.
TEST_F(HostileMovie, IsLookedAtUpToALimitThatFragmentsDoNotShare) {
    std::string many;
    many.reserve(std::size_t{8} * MovLimit::s_atoms);
    for (unsigned i = 0; i < MovLimit::s_atoms; ++i)
        many.append(
            "\0\0\0\x08"
            "free",
            8);
    const std::string before = head() + movie({pictures(0, 0).build()}, 1000, extends(100, 10));
    Movie movie = open(before + atom("moof", many) + fragment(24, 0x1, 2, be32(0)));
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(clip(movie).getLength(), 2u);
    EXPECT_EQ(m_log.text().find("more atoms than are looked at"), std::string::npos);
    movie = open(before + many + fragment(24, 0x1, 2, be32(0)));
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(clip(movie).getLength(), 0u);
    EXPECT_NE(m_log.text().find("mov: more atoms than are looked at"), std::string::npos) << m_log.text();
}

// Entries of plain sound are counted by their words.
TEST_F(HostileMovie, WithEntriesOfNoSoundAtAllHasNone) {
    Track track = pictures(0, 0);
    track.m_handler = "soun";
    track.m_scale = 48000;
    track.m_entries = {soundEntry("sowt", 2, 16, 48000)};
    for (const std::uint32_t description : {0u, 1u, 2u, 0xFFFFFFFFu}) {
        const std::string more = atom("mvex", full("trex", be32(1) + be32(description) + be32(1) + be32(0) + be32(0)));
        std::string entries;
        for (unsigned i = 0; i < MovFragments::s_mostInRun + 2; ++i)
            entries += be32(0);
        const std::string bytes = head() + movie({track.build()}, 1000, more) +
                                  fragment(24, 0x201, MovFragments::s_mostInRun + 2, be32(0) + entries);
        EXPECT_TRUE(survives(bytes)) << description;
    }
}

TEST_F(HostileMovie, FindsATimeInARunOfBillionsAtOnce) {
    kit::FakeFile file;
    file.m_content =
        head() + movie({pictures(0, 0).build()}, 1000, extends(100, 1)) + fragment(0, 0x1, 0xFFFFFFFF, be32(0));
    FileWindow window(file, 1ull << 40);
    MovMovie parsed;
    OpResult result = MovParser(window).parse(parsed);
    ASSERT_TRUE(result) << result.describe().get();
    const MovTableCache cache{AutoRefPtr<BasicFileIO>()};
    const MovTrackSamples samples(parsed.tracks[0], cache);
    EXPECT_EQ(samples.count(), 0xFFFFFFFFu);
    std::uint64_t sample = 0;
    EXPECT_TRUE(samples.sampleAt(400000000050ull, sample));
    EXPECT_EQ(sample, 4000000000u);
    EXPECT_TRUE(samples.sampleAt(~0ull, sample));
    EXPECT_EQ(sample, 0xFFFFFFFFu);
}

TEST_F(HostileMovie, OfManyEditsOverManyRunsIsOpenedInTime) {
    constexpr unsigned runs = 4000, edits = 2000;
    std::string table;
    for (unsigned i = 0; i < runs; ++i)
        table += be32(1) + be32(1) + be32(1);
    table += be32(1) + be32(1) + be32(1);
    Track track = pictures(runs, 24);
    track.m_entries = {pictureEntry(), pictureEntry("dvc ")};
    track.m_tables = list("stts", 1, be32(runs) + be32(100)) + list("stsc", runs + 1, table) +
                     full("stsz", be32(1) + be32(runs)) + list("stco", 1, be32(24));
    for (unsigned i = 0; i < edits; ++i)
        track.m_edits.push_back({40, static_cast<std::int32_t>(100 * (i % 2))});
    const Movie movie = open(head() + atom("mdat", std::string(8000, 'm')) + MovKit::movie({track.build()}));
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_LT(m_file->m_readCalls, 4000);
}

TEST_F(HostileMovie, GivesEachEditItsDescriptionWhateverTheirOrder) {
    std::string table, offsets;
    for (unsigned i = 0; i < 6; ++i) {
        table += be32(i + 1) + be32(2) + be32(i % 2 + 1);
        offsets += be32(24 + 20 * i);
    }
    Track track = pictures(12, 24);
    track.m_scale = 1000;
    track.m_entries = {pictureEntry("dvcp"), pictureEntry("apcn")};
    track.m_tables = list("stts", 1, be32(12) + be32(100)) + list("stsc", 6, table) +
                     full("stsz", be32(10) + be32(12)) + list("stco", 6, offsets);
    track.m_edits = {{200, 1000}, {200, 200}, {200, 600}, {400, 0}, {200, 200}};
    const Movie movie = open(head() + atom("mdat", std::string(400, 'm')) + MovKit::movie({track.build()}));
    ASSERT_NE(movie, nullptr) << m_message;
    const MediaTrackDesc& made = *movie->getTrackAt(0);
    ASSERT_EQ(made.getClipCount(), 6u);
    const auto prores = MediaEncodingType::Prores, dv = MediaEncodingType::Dv;
    const MediaEncodingType expected[] = {prores, prores, prores, dv, prores, prores};
    for (unsigned i = 0; i < 6; ++i) {
        EXPECT_EQ(made.getClip(i)->getEncoding(), expected[i]) << i;
        EXPECT_EQ(made.getClip(i)->getLength(), 2u) << i;
    }
    ASSERT_TRUE(find(*made.getClip(2), 0));
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 24u + 60);
}

TEST_F(HostileMovie, WhoseSamplesLastForDaysHasARateAllTheSame) {
    for (const char* const handler : {"vide", "soun", "text"}) {
        Track track = pictures(4, 24);
        track.m_handler = handler;
        track.m_scale = 1;
        track.m_entries = {soundEntry("sowt", 2, 16, 48000)};
        track.m_tables = plainTables(4, 10, 1u << 24, 24);
        const Movie movie = open(head() + atom("mdat", std::string(400, 'm')) + MovKit::movie({track.build()}));
        ASSERT_NE(movie, nullptr) << m_message;
        EXPECT_GT(clip(movie).getMediaRate(), FixedPoint<16>(0)) << handler;
        EXPECT_EQ(movie->getMoviePrecharge(), 0u);
    }
}

TEST_F(HostileMovie, OfSoundOfAllTimeLastsNoLongerThanCanBeTold) {
    Track track;
    track.m_handler = "soun";
    track.m_entries = {soundEntry("mp4a", 2, 16, 48000)};
    track.m_tables = list("stts", 4, be32(1) + be32(1) + be32(1) + be32(2) + be32(1) + be32(3) + be32(1) + be32(4)) +
                     list("stsc", 1, be32(1) + be32(4) + be32(1)) +
                     full("stsz", be32(0) + be32(4) + be32(1) + be32(1) + be32(1) + be32(1)) +
                     list("stco", 1, be32(24));
    std::string bytes = head() + atom("mdat", std::string(400, 'm')) + movie({track.build()});
    const std::size_t at = bytes.find("mdhd");
    // Version 1, with a duration of all ones.
    bytes = bytes.replace(at - 4, 32, "");
    const std::string mdhd = atom("mdhd", be32(1u << 24) + std::string(16, '\0') + be32(25) + be64(~0ull) + be32(0));
    bytes.insert(at - 4, mdhd);
    for (const char* const around : {"mdia", "trak", "moov"}) {
        const std::size_t place = bytes.find(around) - 4;
        std::uint32_t size = 0;
        for (unsigned i = 0; i < 4; ++i)
            size = size << 8 | static_cast<unsigned char>(bytes[place + i]);
        bytes.replace(place, 4, be32(size + mdhd.size() - 32));
    }
    const Movie movie = open(bytes);
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(clip(movie).getTicksPerSample(), 25u << 16);
}

TEST_F(HostileMovie, WhoseSamplesEndBehindAllNumbersHasNoEnd) {
    Track track;
    track.m_references = full("url ", "gone.raw" + s_nul);
    track.m_tables = list("stts", 1, be32(0xFFFFFFFF) + be32(0xFFFFFFFF)) +
                     list("stsc", 1, be32(1) + be32(0xFFFFFFFF) + be32(1)) +
                     full("stsz", be32(0xFFFFFFFF) + be32(0xFFFFFFFF)) + list("co64", 1, be64((1ull << 62) - 1)) +
                     list("ctts", 1, be32(0xFFFFFFFF) + be32(0x7FFFFFFF));
    const Movie movie = open(head() + MovKit::movie({track.build()}));
    ASSERT_NE(movie, nullptr) << m_message;
    EXPECT_EQ(clip(movie).getLookup()->m_endOffset, 0u);
    MovSampleTime time;
    EXPECT_TRUE(clip(movie).getMovLookup().getSampleTime(1, time));
    EXPECT_EQ(time.shown, 0x17FFFFFFEll);
    EXPECT_FALSE(clip(movie).getMovLookup().getSampleTime(0xFFFFFFFE, time));
}

TEST_F(HostileMovie, GivesAsManyLargeSamplesAsASizeHolds) {
    constexpr std::uint32_t size = 3u << 20, samples = 8192;
    Track track;
    track.m_references = full("url ", "gone.raw" + s_nul);
    track.m_tables = plainTables(samples, size, 100, 0);
    const Movie movie = open(head() + MovKit::movie({track.build()}));
    ASSERT_NE(movie, nullptr) << m_message;
    ASSERT_TRUE(find(clip(movie), 1, samples));
    EXPECT_EQ(m_where.m_count, 1365u);
    EXPECT_EQ(m_where.m_chunks[0].m_size, 1365u * size);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, std::uint64_t{size});
}

TEST_F(HostileMovie, OfManyReferencesKeepsThemAll) {
    constexpr unsigned count = 300;
    Track track = pictures(4, 0);
    track.m_references.clear();
    track.m_referenceCount = count;
    for (unsigned i = 0; i < track.m_referenceCount; ++i)
        track.m_references += full("url ", "take" + std::to_string(i) + s_nul);
    const std::string bytes = head() + movie({track.build()});
    const std::string path = m_tree.write("many.mov", bytes);
    MovReferenceEditor editor(path);
    m_result = editor.read();
    ASSERT_TRUE(m_result) << m_result.describe().get();
    EXPECT_TRUE(editor.lead(m_tree.path("take0"), m_tree.path("other")));
    m_result = editor.write(path);
    ASSERT_TRUE(m_result) << m_result.describe().get();
    MovReferenceEditor again(path);
    m_result = again.read();
    ASSERT_TRUE(m_result) << m_result.describe().get();
    for (unsigned i = 1; i < count; ++i)
        EXPECT_TRUE(again.lead(m_tree.path("take" + std::to_string(i)), m_tree.path("x"))) << i;
}

TEST(MovHostileReference, WithATerminatorInItsNameLeadsNowhere) {
    std::string alias(150, '\0');
    const std::string name = ".." + s_nul + "x";
    alias[50] = static_cast<char>(name.size());
    alias.replace(51, name.size(), name);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(alias.data());
    const MovReference reference = MovReferences::parse(MovAtom::s_alis, 0, bytes, alias.size());
    EXPECT_TRUE(reference.isRefused);
    EXPECT_TRUE(reference.candidates.empty());
}

// Deltas of a scaling list count modulo 256, and one that makes 0 ends the list.
TEST(MovHostileSequence, WithScalingListsOfAnyDeltasIsRead) {
    for (const std::uint32_t code : {15u, 16u, 511u, 512u, 513u, 0x7FFFFFFFu, 0xFFFFFFFEu}) {
        Bits bits;
        bits.put(7, 8).put(100, 8).put(0, 16).ue(3);  // a set of high profile, its number
        bits.ue(2).ue(0).ue(0).put(0, 1).put(1, 1);   // 4:2:2, bits, scaling lists
        const std::uint32_t half = code / 2 % 256;
        std::uint32_t last = 8;
        bits.put(1, 1);
        for (unsigned i = 0; i < 16 && last != 0; ++i) {
            bits.ue(code);
            last = (last + (code % 2 != 0 ? half + 1 : 256 - half)) % 256;
        }
        bits.put(0, 7);                                  // the other lists
        bits.ue(5).ue(2).ue(4).put(0, 1).ue(44).ue(35);  // numbers, order, references, size
        bits.put(1, 1).put(1, 1).put(0, 1).put(0, 1).put(1, 1);
        const std::vector<std::uint8_t> unit = bits.bytes();
        MovAvcSequence sequence;
        ASSERT_TRUE(sequence.read(unit.data(), unit.size())) << code;
        EXPECT_EQ(sequence.number, 3u) << code;
        EXPECT_EQ(sequence.frameNumberBits, 9u) << code;
        EXPECT_TRUE(sequence.isFramesOnly) << code;
    }
}
