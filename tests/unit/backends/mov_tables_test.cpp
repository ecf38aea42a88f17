#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "backends/mov/mov_sample_tables.h"
#include "backends/mov/mov_table_cache.h"
#include "tests/kit/fake_file.h"
#include "tests/unit/backends/mov_fixture.h"

// Sample tables that are searched where they lie, against the same tables written out.

using namespace MovKit;

namespace {

struct Sample {
    std::uint64_t m_at = 0;
    std::uint32_t m_size = 0;
    std::uint64_t m_time = 0;
    std::int32_t m_shift = 0;
    bool m_isSync = false;
    std::uint32_t m_description = 1;
};

class Dice {
public:
    explicit Dice(std::uint32_t seed) : m_state(seed) {}
    std::uint32_t roll(std::uint32_t sides) {
        m_state = m_state * 1664525u + 1013904223u;
        return (m_state >> 8) % sides;
    }

private:
    std::uint32_t m_state;
};

// A file in memory that any number of threads may read: it counts its reads and nothing else.
class SharedFile final : public kit::FakeFile {
public:
    int readAt(unsigned long long offset, void* memory, unsigned size) override {
        if (offset >= m_content.size()) return 0;
        ++m_readCalls;
        const std::size_t count = std::min<std::size_t>(size, m_content.size() - offset);
        std::copy_n(m_content.data() + offset, count, static_cast<char*>(memory));
        return static_cast<int>(count);
    }
};

// Tables of many chunks of all sizes, with their samples written out.
class Tables {
public:
    Tables(unsigned chunks, unsigned bits, bool isWide, std::uint32_t seed, unsigned mostInChunk = 5) {
        Dice dice(seed);
        std::string runs, offsets, sizes, times, shifts, syncs;
        std::uint64_t at = isWide ? 0x200000000ull : 5000;
        unsigned last = 0, lastDescription = 0, nibble = 0, runCount = 0;
        for (unsigned chunk = 0; chunk < chunks; ++chunk) {
            const unsigned inChunk = 1 + dice.roll(mostInChunk);
            const unsigned description = 1 + (chunk / 100) % 2;
            if (inChunk != last || description != lastDescription) {
                runs += be32(chunk + 1) + be32(inChunk) + be32(description);
                ++runCount;
            }
            last = inChunk;
            lastDescription = description;
            at += dice.roll(1000);
            offsets += be(at, isWide ? 8 : 4);
            for (unsigned i = 0; i < inChunk; ++i) {
                Sample sample;
                sample.m_at = at;
                sample.m_size = 1 + dice.roll(bits == 4 ? 15 : bits == 8 ? 255 : 60000);
                sample.m_description = description;
                if (bits == 4) {
                    if (m_samples.size() % 2 == 0) {
                        nibble = sample.m_size << 4;
                    } else {
                        sizes += static_cast<char>(nibble | sample.m_size);
                    }
                } else {
                    sizes += be(sample.m_size, bits / 8);
                }
                at += sample.m_size;
                m_samples.push_back(sample);
            }
        }
        if (bits == 4 && m_samples.size() % 2 != 0) sizes += static_cast<char>(nibble);
        std::uint64_t time = 0;
        unsigned timeCount = 0, shiftCount = 0, syncCount = 0;
        for (std::size_t i = 0; i < m_samples.size();) {
            const std::uint32_t count = 1 + dice.roll(7), step = 1 + dice.roll(500);
            times += be32(count) + be32(step);
            ++timeCount;
            for (std::uint32_t k = 0; k < count && i < m_samples.size(); ++k, ++i, time += step)
                m_samples[i].m_time = time;
        }
        for (std::size_t i = 0; i < m_samples.size();) {
            const std::uint32_t count = 1 + dice.roll(4);
            const auto shift = static_cast<std::int32_t>(dice.roll(300)) - 100;
            shifts += be32(count) + be32(static_cast<std::uint32_t>(shift));
            ++shiftCount;
            for (std::uint32_t k = 0; k < count && i < m_samples.size(); ++k, ++i)
                m_samples[i].m_shift = shift;
        }
        for (std::size_t i = 0; i < m_samples.size(); i += 1 + dice.roll(15)) {
            m_samples[i].m_isSync = true;
            syncs += be32(i + 1);
            ++syncCount;
        }
        m_places.samples = m_samples.size();
        m_places.sizeBits = bits;
        m_places.isWide = isWide;
        m_places.hasSyncs = true;
        place(m_places.sizes, m_samples.size(), sizes);
        place(m_places.chunks, chunks, offsets);
        place(m_places.runs, runCount, runs);
        place(m_places.times, timeCount, times);
        place(m_places.shifts, shiftCount, shifts);
        place(m_places.syncs, syncCount, syncs);
    }

    AutoRefPtr<BasicFileIO> file() const {
        auto* file = new SharedFile();
        file->m_content = m_bytes;
        return AutoRefPtr<BasicFileIO>(file);
    }

    MovTablePlaces m_places;
    std::vector<Sample> m_samples;

private:
    void place(MovTable& table, std::uint64_t count, const std::string& bytes) {
        m_bytes += std::string(m_bytes.size() % 13 + 3, 'x');
        table.offset = m_bytes.size();
        table.count = count;
        m_bytes += bytes;
    }
    std::string m_bytes;
};

::testing::AssertionResult isFound(const MovSampleTables& tables, const Tables& written, std::uint64_t number) {
    const Sample& sample = written.m_samples[number];
    MovSpot spot;
    std::uint64_t time = 0;
    std::int32_t shift = 0;
    if (!tables.find(number, spot)) return ::testing::AssertionFailure() << number << " isn't found";
    if (spot.offset != sample.m_at || spot.size != sample.m_size || spot.description != sample.m_description) {
        return ::testing::AssertionFailure() << number << " at " << spot.offset << ", " << spot.size
                                             << " bytes, not at " << sample.m_at << ", " << sample.m_size;
    }
    MovSpot alone;
    if (tables.isSync(number) != sample.m_isSync) return ::testing::AssertionFailure() << number << " sync";
    if (!tables.findAlone(number, alone) || alone.offset != sample.m_at || alone.size != sample.m_size ||
        alone.description != sample.m_description) {
        return ::testing::AssertionFailure() << number << " alone at " << alone.offset << ", " << alone.size
                                             << " bytes, not at " << sample.m_at << ", " << sample.m_size;
    }
    if (!tables.timeOf(number, time) || time != sample.m_time) {
        return ::testing::AssertionFailure() << number << " is decoded at " << time << ", not " << sample.m_time;
    }
    if (!tables.shiftOf(number, shift) || shift != sample.m_shift) {
        return ::testing::AssertionFailure() << number << " is shifted by " << shift;
    }
    if (tables.isSync(number) != sample.m_isSync) {
        return ::testing::AssertionFailure() << number << " sync, once it was looked for";
    }
    return ::testing::AssertionSuccess();
}

// A long track of samples that are chunks each, all in one run.
class LongTables {
public:
    explicit LongTables(std::uint64_t samples, std::uint32_t sizes = 4000, std::uint32_t gaps = 500) {
        m_tables.samples = samples;
        m_tables.isWide = true;
        m_tables.runs = {0, 1};
        m_tables.sizes = {12, samples};
        m_tables.chunks = {12 + samples * 4, samples};
        m_file->m_content = be32(1) + be32(1) + be32(1);
        m_file->m_content.resize(12 + samples * 12);
        Dice dice(29);
        std::uint64_t at = 1ull << 33;
        for (std::uint64_t i = 0; i < samples; ++i) {
            m_places.push_back({at, 1 + dice.roll(sizes)});
            put(m_tables.sizes.offset + i * 4, m_places.back().size, 4);
            put(m_tables.chunks.offset + i * 8, at, 8);
            at += m_places.back().size + dice.roll(gaps);
        }
    }

    bool isFound(const MovSampleTables& tables, std::uint64_t sample) const {
        MovSpot spot;
        return tables.findAlone(sample, spot) && spot.offset == m_places[sample].offset &&
               spot.size == m_places[sample].size && spot.description == 1;
    }
    // The reads of the file that finding a sample took, or -1 when it wasn't found.
    int readsFor(const MovSampleTables& tables, std::uint64_t sample) const {
        const int before = m_file->m_readCalls;
        return isFound(tables, sample) ? m_file->m_readCalls - before : -1;
    }

    MovTablePlaces m_tables;
    std::vector<MovHeldSpots::Place> m_places;

private:
    void put(std::uint64_t place, std::uint64_t value, unsigned size) {
        for (unsigned i = size; i-- > 0; value >>= 8)
            m_file->m_content[place + i] = static_cast<char>(value);
    }

    SharedFile* const m_file = new SharedFile();

public:
    const AutoRefPtr<BasicFileIO> m_held{m_file};
};

constexpr std::uint64_t s_sharing = std::uint64_t{MovHeldSpots::s_mostSlots} * MovHeldSpots::s_block;

}  // namespace

TEST(MovTables, EverySampleIsFoundInTablesOfEveryWidth) {
    for (const unsigned bits : {4u, 8u, 16u, 32u}) {
        for (const bool isWide : {false, true}) {
            const Tables written(400, bits, isWide, bits + isWide);
            const MovTableCache cache(written.file());
            const MovSampleTables tables(written.m_places, cache);
            for (std::uint64_t i = 0; i < written.m_samples.size(); ++i)
                ASSERT_TRUE(isFound(tables, written, i)) << bits << " bits, wide " << isWide;
        }
    }
}

TEST(MovTables, TheLastSampleIsFoundFirstAndThenAnyOther) {
    const Tables written(3000, 32, false, 7);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    const std::uint64_t last = written.m_samples.size() - 1;
    ASSERT_TRUE(isFound(tables, written, last));
    Dice dice(3);
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(isFound(tables, written, dice.roll(static_cast<std::uint32_t>(last))));
    MovSpot spot;
    EXPECT_FALSE(tables.find(last + 1, spot));
}

TEST(MovTables, SamplesFarIntoALongChunkAreFoundThroughTheMarks) {
    const Tables written(3, 32, false, 21, 9000);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    for (std::uint64_t i = 0; i < written.m_samples.size(); i += 37)
        ASSERT_TRUE(isFound(tables, written, i));
}

TEST(MovTables, TimesLeadBackToTheirSamples) {
    const Tables written(500, 32, false, 11);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    for (std::uint64_t i = 0; i + 1 < written.m_samples.size(); ++i) {
        std::uint64_t sample = 0;
        ASSERT_TRUE(tables.sampleAt(written.m_samples[i].m_time, sample));
        ASSERT_EQ(sample, i);
        ASSERT_TRUE(tables.sampleAt(written.m_samples[i + 1].m_time - 1, sample));
        ASSERT_EQ(sample, i);
    }
    std::uint64_t sample = 0;
    ASSERT_TRUE(tables.sampleAt(1ull << 60, sample));
    EXPECT_EQ(sample, written.m_samples.size());
}

TEST(MovTables, ManyThreadsFindTheSameSamples) {
    const Tables written(2000, 32, false, 5);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    std::vector<std::thread> threads;
    std::atomic<unsigned> wrong{0};
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            Dice dice(t);
            for (int i = 0; i < 500; ++i) {
                const std::uint64_t sample = dice.roll(static_cast<std::uint32_t>(written.m_samples.size()));
                if (!isFound(tables, written, sample)) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0u);
}

TEST(MovTables, DescriptionsChangeWhereTheRunsSaySo) {
    const Tables written(350, 32, false, 13);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    std::uint64_t at = 0;
    while (at < written.m_samples.size()) {
        std::uint32_t description = 0;
        std::uint64_t next = 0;
        ASSERT_TRUE(tables.changeOfDescription(at, description, next));
        ASSERT_GT(next, at);
        for (std::uint64_t i = at; i < next; ++i)
            ASSERT_EQ(written.m_samples[i].m_description, description);
        if (next < written.m_samples.size()) {
            EXPECT_NE(written.m_samples[next].m_description, description);
        }
        at = next;
    }
}

TEST(MovTables, AFileThatIsCutHasTheSamplesBeforeTheCut) {
    const Tables written(400, 32, false, 17);
    const MovTableCache cache(written.file());
    const MovSampleTables tables(written.m_places, cache);
    const Sample& last = written.m_samples.back();
    EXPECT_EQ(tables.samplesWithin(last.m_at + last.m_size), written.m_samples.size());
    EXPECT_EQ(tables.samplesWithin(last.m_at + last.m_size - 1), written.m_samples.size() - 1);
    const Sample& middle = written.m_samples[777 % written.m_samples.size()];
    EXPECT_EQ(tables.samplesWithin(middle.m_at), 777 % written.m_samples.size());
    EXPECT_EQ(tables.samplesWithin(0), 0u);
}

TEST(MovTables, TablesThatDisagreeGiveNoSampleAndNoHang) {
    Tables written(50, 32, false, 19);
    MovSpot spot;
    {
        MovTablePlaces places = written.m_places;
        places.chunks.count = 10;  // runs of chunks that aren't there
        const MovTableCache cache(written.file());
        const MovSampleTables tables(places, cache);
        EXPECT_FALSE(tables.find(places.samples - 1, spot));
        EXPECT_TRUE(tables.find(0, spot));
        EXPECT_FALSE(tables.findAlone(places.samples - 1, spot));
        EXPECT_TRUE(tables.findAlone(0, spot));
    }
    MovTablePlaces places = written.m_places;
    places.samples += 1000;  // more than there are sizes
    places.times.count = 1;
    const MovTableCache cache(written.file());
    const MovSampleTables tables(places, cache);
    std::uint64_t time = 0;
    EXPECT_FALSE(tables.find(places.samples - 1, spot));
    EXPECT_FALSE(tables.findAlone(places.samples - 1, spot));
    EXPECT_FALSE(tables.timeOf(places.samples - 1, time));
}

TEST(MovTables, NumbersAtTheTopOfTheirTypeDoNotWrap) {
    const std::string top = be32(0xFFFFFFFF);
    auto* file = new kit::FakeFile();
    file->m_content = top + top + top + be32(0xFFFFFFFF) + be32(0xFFFFFFFF) + be64(~0ull) + top + top;
    const AutoRefPtr<BasicFileIO> held(file);
    MovTablePlaces places;
    places.samples = 0xFFFFFFFF;
    places.fixedSize = 0xFFFFFFFF;
    places.runs = {0, 1};
    places.times = {12, 1};
    places.shifts = {12, 1};
    places.chunks = {20, 1};
    places.isWide = true;
    const MovTableCache cache(held);
    const MovSampleTables tables(places, cache);
    MovSpot spot;
    std::uint64_t value = 0, next = 0;
    std::uint32_t description = 0;
    EXPECT_FALSE(tables.find(0, spot));
    EXPECT_FALSE(tables.find(0xFFFFFFFE, spot));
    EXPECT_TRUE(tables.timeOf(0xFFFFFFFE, value));
    EXPECT_EQ(value, 0xFFFFFFFEull * 0xFFFFFFFFull);
    EXPECT_TRUE(tables.sampleAt(~0ull, value));
    (void)tables.changeOfDescription(0, description, next);
    EXPECT_EQ(tables.samplesWithin(1000), 0u);
}

TEST(MovTables, SamplesThatWereAskedForAreFoundAgainWithoutTheFile) {
    const LongTables written(1000);
    const MovTableCache cache(written.m_held);
    const MovSampleTables tables(written.m_tables, cache);
    EXPECT_GT(written.readsFor(tables, 700), 0);
    for (std::uint64_t i = 700 / MovHeldSpots::s_block * MovHeldSpots::s_block; i < 704; ++i)
        EXPECT_EQ(written.readsFor(tables, i), 0) << i;
    EXPECT_GT(written.readsFor(tables, 999), 0);
    EXPECT_EQ(written.readsFor(tables, 999), 0);
    MovSpot spot;
    EXPECT_FALSE(tables.findAlone(1000, spot));
}

TEST(MovTables, AnHourOfPicturesIsHeldWholly) {
    constexpr std::uint64_t hour = 108000;
    const LongTables written(hour);
    const MovTableCache cache(written.m_held);
    const MovSampleTables tables(written.m_tables, cache);
    for (std::uint64_t i = 0; i < hour; i += MovHeldSpots::s_block)
        ASSERT_TRUE(written.isFound(tables, i));
    for (std::uint64_t i = 0; i < hour; i += 53)
        ASSERT_EQ(written.readsFor(tables, i), 0) << i;
}

TEST(MovTables, ABlockMakesWayForOneThatIsAskedForTwiceAndNotInBetween) {
    const LongTables written(s_sharing + 1000);
    const MovTableCache cache(written.m_held);
    const MovSampleTables tables(written.m_tables, cache);
    EXPECT_TRUE(written.isFound(tables, 3));
    EXPECT_EQ(written.readsFor(tables, 4), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(written.isFound(tables, s_sharing + 5));
        EXPECT_EQ(written.readsFor(tables, 7), 0) << i;
    }
    EXPECT_TRUE(written.isFound(tables, s_sharing + 5));
    EXPECT_TRUE(written.isFound(tables, s_sharing + 6));
    EXPECT_EQ(written.readsFor(tables, s_sharing + 63), 0);
    EXPECT_GT(written.readsFor(tables, 7), 0);
}

TEST(MovTables, ManyThreadsFindTheSameSamplesWhileBlocksMakeWay) {
    const LongTables written(s_sharing + 200);
    const MovTableCache cache(written.m_held);
    const MovSampleTables tables(written.m_tables, cache);
    std::vector<std::thread> threads;
    std::atomic<unsigned> wrong{0};
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            Dice dice(t);
            for (int i = 0; i < 4000; ++i) {
                const std::uint64_t sample = dice.roll(2) * s_sharing + dice.roll(200);
                if (!written.isFound(tables, sample)) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0u);
}

TEST(MovTables, TracksOfAMovieShareWhatItMayHold) {
    const LongTables written(5000);
    const MovTableCache cache(written.m_held);
    const MovSampleTables first(written.m_tables, cache), second(written.m_tables, cache);
    EXPECT_TRUE(written.isFound(first, 10));
    constexpr unsigned page = MovHeldSpots::s_pageSlots * MovHeldSpots::s_slotBytes;
    while (cache.hasRoom(page))
        ASSERT_TRUE(cache.spend(page));
    EXPECT_FALSE(cache.spend(page));
    EXPECT_EQ(written.readsFor(first, 20), 0);
    EXPECT_TRUE(written.isFound(first, 10 + MovHeldSpots::s_block));  // of a page that is there
    EXPECT_EQ(written.readsFor(first, 11 + MovHeldSpots::s_block), 0);
    for (const std::uint64_t sample : {0u, 100u, 4900u, 100u})
        EXPECT_TRUE(written.isFound(second, sample));
    cache.giveBack(page);
    EXPECT_TRUE(written.isFound(second, 100));
    EXPECT_EQ(written.readsFor(second, 101), 0);
}

TEST(MovTables, BlocksThatDoNotFitASlotAreFoundInTheFile) {
    for (const std::uint32_t gaps : {0x7FFFFFu, 0x7FFu, 1u}) {
        const LongTables written(300, 0xFFFFFF, gaps);
        const MovTableCache cache(written.m_held);
        const MovSampleTables tables(written.m_tables, cache);
        for (unsigned turn = 0; turn < 2; ++turn) {
            for (std::uint64_t i = 0; i < 300; ++i)
                ASSERT_TRUE(written.isFound(tables, i)) << i << " with gaps up to " << gaps;
        }
    }
}

TEST(MovTables, SamplesOfOneSizeThatTouchAreHeldAsWell) {
    for (const std::uint64_t samples : {1u, 2u, 63u, 64u, 65u}) {
        const LongTables written(samples, 1, 1);
        const MovTableCache cache(written.m_held);
        const MovSampleTables tables(written.m_tables, cache);
        for (std::uint64_t i = 0; i < samples; ++i)
            ASSERT_TRUE(written.isFound(tables, i));
        EXPECT_EQ(written.readsFor(tables, samples - 1), 0) << samples;
    }
}

// What a block may look like, at its limits: each is found as it was handed over, or not held at all.
TEST(MovTables, ABlockIsHeldToTheByteOrNotAtAll) {
    constexpr std::uint64_t top = (1ull << 62) - 1;
    const std::vector<std::vector<std::uint64_t>> offsets = {
        {0, 10, 20}, {20, 10, 0}, {top, 0, top}, {0, top, 0}, {top, top, top}, {0, 1ull << 48, 0}, {1ull << 49, 0, 5}};
    const std::vector<std::vector<std::uint32_t>> sizes = {{10, 10, 10}, {0, 0, 0}, {~0u, 0, ~0u}, {1, ~0u, 2}};
    const MovTableCache cache(AutoRefPtr<BasicFileIO>(new SharedFile()));
    unsigned held = 0;
    for (const auto& at : offsets) {
        for (const auto& size : sizes) {
            MovHeldSpots spots;
            spots.init(3, cache);
            MovHeldSpots::Block block;
            block.count = 3;
            block.description = 77;
            block.syncs = 5;
            std::copy(at.begin(), at.end(), block.offsets);
            std::copy(size.begin(), size.end(), block.sizes);
            MovHeldSpots::Place place;
            ASSERT_EQ(spots.find(0, place), MovHeldSpots::Answer::Wanted);
            spots.hold(1, block);
            ASSERT_EQ(spots.find(3, place), MovHeldSpots::Answer::Absent);
            for (unsigned i = 0; i < 3; ++i) {
                const MovHeldSpots::Answer answer = spots.find(i, place);
                ASSERT_NE(answer, MovHeldSpots::Answer::Wanted);
                if (answer != MovHeldSpots::Answer::Held) continue;
                ++held;
                bool isSync = false;
                EXPECT_EQ(place.offset, at[i]);
                EXPECT_EQ(place.size, size[i]);
                EXPECT_EQ(place.description, 77u);
                EXPECT_TRUE(spots.findSync(i, isSync));
                EXPECT_EQ(isSync, i != 1);
            }
            cache.giveBack(MovHeldSpots::s_slotBytes);
        }
    }
    EXPECT_EQ(held, 3u * (3 * 4 + 2));  // of leaps of 2^48 bytes those that aren't longer
}
