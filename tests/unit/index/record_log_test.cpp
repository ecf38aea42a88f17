#include "mediautil/index/record_log.h"

#include <thread>

#include "tests/unit/index/recording_movie.h"

using recording::Clip;
using OpType = RecordLogEntry::OpType;
using U64 = unsigned long long;

// The flight recorder of a movie: what it enters, what it finds wrong, and what it prints then.

namespace {

class RecordLog : public recording::Scene {
protected:
    static constexpr unsigned s_size = MediaRecordTracker::Logger::s_size;

    // A write of so many samples, of no place and of no bytes unless told.
    static MediaSampleInMovie written(U64 sample, unsigned count = 1, unsigned track = 0, U64 offset = 0,
                                      unsigned bytes = 0) {
        MediaSampleInMovie desc;
        desc.set(count, sample, offset, bytes, 0, false);
        desc.set(MediaAgent(), nullptr, track, 0, OsPathId(), false);
        return desc;
    }
    void write(U64 sample, unsigned count = 1, unsigned track = 0, U64 offset = 0, unsigned bytes = 0) {
        m_tracker->log(written(sample, count, track, offset, bytes));
    }
    void addTo(const Clip& clip, U64 sample, unsigned count = 1) {
        m_tracker->log(clip, MediaRecordReq(sample, count, SampleInfo()));
    }
    const RecordLogEntry& entry(unsigned index) const { return m_tracker->logger().getEntry(index); }
    static std::string text(const RecordLogEntry& entry) { return entry.toString().get(); }
    // What was printed since the last call, one line below the other.
    std::string printed() {
        std::string all;
        for (const kit::LogCapture::Line& line : m_log.lines()) {
            EXPECT_EQ(line.m_level, LogLevel::Debug);
            all += line.m_text + "\n";
        }
        m_log.clear();
        return all;
    }

    const std::unique_ptr<MediaRecordTracker> m_tracker = std::make_unique<MediaRecordTracker>();
};

}  // namespace

TEST_F(RecordLog, KindsOfLinesHaveNames) {
    const char* const names[] = {"nil", "as", "wr", "wes", "wkl", "wtc", "?"};
    for (std::uint32_t type = 0; type < std::size(names); ++type)
        EXPECT_STREQ(RecordLogEntry::getName(static_cast<OpType>(type)), names[type]);
    EXPECT_STREQ(RecordLogEntry::getName(static_cast<OpType>(0xFFFFFFFF)), "?");
}

TEST_F(RecordLog, CodingsHaveNames) {
    const char* const names[] = {"unk", "I", "P", "B", "?"};
    for (std::uint32_t type = 0; type < std::size(names); ++type)
        EXPECT_STREQ(RecordLogEntry::getName(static_cast<SampleCodingType>(type)), names[type]);
    EXPECT_STREQ(RecordLogEntry::getName(static_cast<SampleCodingType>(0xFFFFFFFF)), "?");
}

TEST_F(RecordLog, LineThatWasNeverUsedIsNil) {
    const RecordLogEntry none;
    EXPECT_EQ(none.getOpType(), OpType::Nil);
    EXPECT_FALSE(none.wasListed());
    EXPECT_EQ(text(none), "nil,t0,c0,unk,0s@0,0b@0,");
}

TEST_F(RecordLog, LineOfAWriteTellsTheRecord) {
    MediaSampleInMovie sample = kit::sampleOf({{123456789012, 500}, {7, 41}});
    sample.set(MediaAgent(), kit::idOf(1), 3, 2, OsPathId(), false);
    sample.m_sample = 1ull << 40;
    sample.m_count = 3;
    sample.m_info.setEncoding(SampleCodingType::B);
    sample.m_timecode.setCounter(25 * 3661 + 4, FixedPoint<16>(25), false);
    RecordLogEntry line;
    line.setListed();
    line = sample;
    EXPECT_EQ(text(line), "wr,t3,c2,B,3s@1099511627776,541b@123456789012,01:01:01.04");
    EXPECT_EQ(line.getOpType(), OpType::Write);
    EXPECT_EQ(line.getSampleNum(), 1ull << 40);
    EXPECT_EQ(line.getFileOffset(), 123456789012);
    EXPECT_EQ(line.getNBytes(), 541u);
    EXPECT_EQ(line.getNSamples(), 3u);
    EXPECT_EQ(line.getTrackIndex(), 3u);
    EXPECT_FALSE(line.wasListed());
}

TEST_F(RecordLog, LineOfAnAddTellsTheRequestAndItsClip) {
    video();
    audio();
    Clip& clip = m_movie->track(1).addClip(MediaEncodingType::Pcm, 48000);
    SampleInfo info;
    info.reset(7680);
    info.setEncoding(SampleCodingType::P);
    MediaRecordReq req(77, 1920, info, 5000);
    req.m_timecode.setCounter(26, FixedPoint<16>(25), false);
    RecordLogEntry line;
    line.setListed();
    line.set(clip, req);
    EXPECT_EQ(text(line), "as,t1,c1,P,1920s@77,7680b@5000,00:00:01.01");
    EXPECT_FALSE(line.wasListed());
}

TEST_F(RecordLog, PlaceOfAnAddIsNotKnownUnlessTheRequestHasOne) {
    MediaRecordReq req(0, 1, SampleInfo());
    req.m_offset = 5000;
    RecordLogEntry line;
    line.set(video(), req);
    EXPECT_EQ(line.getFileOffset(), 0);
}

TEST_F(RecordLog, CountsAreCutToTheirBits) {
    MediaSampleInMovie sample = written(0, 65536 + 7, 256 + 3);
    sample.m_clipIndex = 512 + 1;
    RecordLogEntry line;
    line = sample;
    EXPECT_EQ(text(line), "wr,t3,c1,I,7s@0,0b@0,");
}

TEST_F(RecordLog, FirstLineIsAtIndexNoughtAndTheRingComesRound) {
    write(500, 1, 200);
    EXPECT_EQ(entry(0).getSampleNum(), 500u);
    EXPECT_EQ(entry(1).getOpType(), OpType::Nil);
    for (unsigned i = 1; i <= s_size; ++i)
        write(500 + i, 1, 200);
    EXPECT_EQ(s_size, 4096u);
    EXPECT_EQ(entry(0).getSampleNum(), 500u + s_size);
    EXPECT_EQ(entry(1).getSampleNum(), 501u);
    EXPECT_EQ(entry(s_size - 1).getSampleNum(), 500u + s_size - 1);
}

TEST_F(RecordLog, IndexWrapsByAMask) {
    EXPECT_EQ(MediaRecordTracker::Logger::wrapIndex(4095), 4095u);
    EXPECT_EQ(MediaRecordTracker::Logger::wrapIndex(4096), 0u);
    EXPECT_EQ(MediaRecordTracker::Logger::wrapIndex(0xFFFFFFFF), 4095u);
}

TEST_F(RecordLog, EntryOfNoIndexIsTheFirstOrNone) {
    write(500);
    const MediaRecordTracker::Logger& ring = m_tracker->logger();
    EXPECT_EQ(&ring.getEntry(5000), &ring.getEntry(0));
    EXPECT_EQ(&ring.getEntry(4096), &ring.getEntry(0));
    EXPECT_NE(&ring.getEntry(4095), &ring.getEntry(0));
    EXPECT_EQ(ring.getEntry(5000, 0, OpType::Write), nullptr);
    EXPECT_EQ(ring.getEntry(4096, 0, OpType::Write), nullptr);
    EXPECT_EQ(ring.getEntry(0, 0, OpType::Write), &ring.getEntry(0));
    EXPECT_EQ(ring.getEntry(0, 1, OpType::Write), nullptr) << "of another track";
    EXPECT_EQ(ring.getEntry(0, 0, OpType::Add), nullptr) << "of another kind";
}

TEST_F(RecordLog, WritesThatFollowOneAnotherPrintNothing) {
    write(10, 4);
    write(14, 6);
    write(20, 1);
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, GapOfSamplesIsPrintedWithTheWritesOfItsTrack) {
    write(0, 4);
    write(4, 6);
    write(70, 1, 1);
    addTo(video(), 0);
    write(12);
    EXPECT_EQ(printed(),
              "write,sgap 10-12\n"
              "  wr,t0,c0,I,4s@0,0b@0,\n"
              "  wr,t0,c0,I,6s@4,0b@0,\n"
              "  wr,t0,c0,I,1s@12,0b@0,\n");
}

TEST_F(RecordLog, SamplesThatGoBackAreAGapToo) {
    write(10, 4);
    write(12);
    EXPECT_EQ(printed().substr(0, 17), "write,sgap 14-12\n");
}

TEST_F(RecordLog, NoLineIsPrintedTwice) {
    write(0);
    write(5);
    EXPECT_EQ(printed(), "write,sgap 1-5\n  wr,t0,c0,I,1s@0,0b@0,\n  wr,t0,c0,I,1s@5,0b@0,\n");
    write(6);
    write(9);
    EXPECT_EQ(printed(), "write,sgap 7-9\n  wr,t0,c0,I,1s@6,0b@0,\n  wr,t0,c0,I,1s@9,0b@0,\n");
}

TEST_F(RecordLog, OverlapOfBytesIsPrinted) {
    write(0, 1, 0, 1000, 500);
    write(1, 1, 0, 1200, 500);
    EXPECT_EQ(printed(),
              "write,boverlap? 1500 - 1200\n"
              "  wr,t0,c0,I,1s@0,500b@1000,\n"
              "  wr,t0,c0,I,1s@1,500b@1200,\n");
}

TEST_F(RecordLog, BytesThatTouchOrLeaveAHoleAreNoOverlap) {
    write(0, 1, 0, 1000, 500);
    write(1, 1, 0, 1500, 500);
    write(2, 1, 0, 9000, 500);
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, UnknownPlaceIsNoOverlap) {
    write(0, 1, 0, 1000, 500);
    write(1, 1, 0, 0, 500);
    write(2, 1, 0, 100, 50);
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, PlaceBelowZeroIsNoOverlap) {
    write(0, 1, 0, 1000, 500);
    write(1, 1, 0, ~0ull, 500);
    write(2, 1, 0, 100, 50);
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, PlaceWhoseEndIsBeyondAllNumbersIsStillAnOverlap) {
    const U64 last = (1ull << 63) - 1;
    write(0, 1, 0, last, 500);
    write(1, 1, 0, last, 500);
    EXPECT_EQ(printed().substr(0, 61), "write,boverlap? 9223372036854776307 - 9223372036854775807\n  w");
}

TEST_F(RecordLog, GapAndOverlapShareALine) {
    write(0, 1, 0, 1000, 500);
    write(2, 1, 0, 1200, 500);
    EXPECT_EQ(printed().substr(0, 37), "write,sgap 1-2,boverlap? 1500 - 1200\n");
}

// All numbers as long as they can be; the sample sum wraps.
TEST_F(RecordLog, LongestFindingIsPrintedWhole) {
    write(~0ull - 1, 1, 0, (1ull << 63) - 1, 0xFFFFFFFF);
    write(~0ull - 3, 1, 0, (1ull << 63) - 1, 1);
    const std::string lines = printed();
    EXPECT_EQ(lines.substr(0, lines.find('\n')),
              "write,sgap 18446744073709551615-18446744073709551612,"
              "boverlap? 9223372041149743102 - 9223372036854775807");
}

TEST_F(RecordLog, CountAboveItsBitsShowsAsAGapOfTheNextWrite) {
    write(0, 65536 + 7);
    EXPECT_EQ(printed(), "");
    write(65536 + 7);
    EXPECT_EQ(printed().substr(0, 19), "write,sgap 7-65543\n");
}

TEST_F(RecordLog, TracksAreCheckedEachForItself) {
    write(0, 1, 0);
    write(50, 1, 63);
    write(1, 1, 0);
    EXPECT_EQ(printed(), "");
    write(60, 1, 63);
    EXPECT_EQ(printed(), "write,sgap 51-60\n  wr,t63,c0,I,1s@50,0b@0,\n  wr,t63,c0,I,1s@60,0b@0,\n");
}

TEST_F(RecordLog, TracksFromSixtyFourOnAreEnteredAndNotChecked) {
    for (const unsigned track : {64u, 255u, 0xFFFFu}) {
        write(0, 1, track);
        write(10, 1, track);
    }
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(text(entry(1)), "wr,t64,c0,I,1s@10,0b@0,");
    EXPECT_EQ(text(entry(5)), "wr,t255,c0,I,1s@10,0b@0,");
}

TEST_F(RecordLog, TrackIndexThatIsCutIsNotTakenForItsNamesake) {
    write(0, 1, 0);
    write(10, 1, 256);
    write(20, 1, 256);
    EXPECT_EQ(printed(), "");
    write(1, 1, 0);
    EXPECT_EQ(printed(), "") << "the track's last write is still its own";
}

TEST_F(RecordLog, LineThatTheRingHasGivenToAnotherTrackIsNotCompared) {
    write(0, 1, 0);
    for (unsigned i = 0; i < s_size; ++i)
        write(i, 1, 1);
    write(500, 1, 0);
    EXPECT_EQ(printed(), "");
    write(600, 1, 0);
    EXPECT_EQ(printed().substr(0, 19), "write,sgap 501-600\n");
}

TEST_F(RecordLog, LineThatTheRingHasGivenToTheSameTrackIsComparedAsItStands) {
    Clip& clip = video();
    write(0, 1, 0);
    // Lines of adds lie between the writes, all but one round of the ring.
    for (unsigned i = 1; i < s_size; ++i)
        addTo(clip, i);
    EXPECT_EQ(printed(), "");
    // This write takes the place of the first, and is therefore compared with itself.
    write(500, 1, 0);
    EXPECT_EQ(printed(), "write,sgap 501-500\n  wr,t0,c0,I,1s@500,0b@0,\n");
}

TEST_F(RecordLog, GapOfAnAddIsPrintedAsAWriteAndShowsTheWrites) {
    Clip& clip = video();
    write(0);
    addTo(clip, 0, 4);
    addTo(clip, 4, 4);
    EXPECT_EQ(printed(), "");
    addTo(clip, 10);
    EXPECT_EQ(printed(), "write,sgap 8-10\n  wr,t0,c0,I,1s@0,0b@0,\n");
}

TEST_F(RecordLog, AddsAreNotCheckedForOverlaps) {
    Clip& clip = video();
    SampleInfo info;
    info.reset(500);
    m_tracker->log(clip, MediaRecordReq(0, 1, info, 1000));
    m_tracker->log(clip, MediaRecordReq(1, 1, info, 1200));
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, AddsAndWritesOfATrackAreCheckedEachForItself) {
    Clip& clip = video();
    addTo(clip, 0, 4);
    write(50);
    addTo(clip, 4, 4);
    write(51);
    EXPECT_EQ(printed(), "");
}

TEST_F(RecordLog, AddsOfATrackFromSixtyFourOnAreEnteredAndNotChecked) {
    for (unsigned i = 0; i < 65; ++i)
        video();
    Clip& clip = m_movie->track(64).clip();
    addTo(clip, 0);
    addTo(clip, 10);
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(text(entry(1)), "as,t64,c0,I,1s@10,0b@0,");
}

TEST_F(RecordLog, ListingGoesFromTheOldestToTheNewestRoundTheRing) {
    for (unsigned i = 0; i < s_size; ++i)
        write(i, 1, 1);
    write(0, 1, 0);
    EXPECT_EQ(printed(), "");
    write(s_size + 5, 1, 1);
    const std::vector<kit::LogCapture::Line> lines = m_log.lines();
    ASSERT_EQ(lines.size(), s_size) << "two of the ring's lines are gone, one is the gap and one is new";
    EXPECT_EQ(lines[0].m_text, kit::formatted("write,sgap %u-%u", s_size, s_size + 5));
    EXPECT_EQ(lines[1].m_text, "  wr,t1,c0,I,1s@2,0b@0,");
    EXPECT_EQ(lines[2].m_text, "  wr,t1,c0,I,1s@3,0b@0,");
    EXPECT_EQ(lines[s_size - 1].m_text, kit::formatted("  wr,t1,c0,I,1s@%u,0b@0,", s_size + 5));
}

TEST_F(RecordLog, EveryLineIsPrintedUnderTheSecondSwitchAlone) {
    mediaObjDbg.set(1u << MediaDbg::Record1);
    write(0);
    EXPECT_EQ(printed(), "");
    mediaObjDbg.set(1u << MediaDbg::Record2);
    write(1);
    addTo(video(), 7);
    EXPECT_EQ(printed(), "wr,t0,c0,I,1s@1,0b@0,\nas,t0,c0,I,1s@7,0b@0,\n");
    write(3);
    EXPECT_EQ(printed(),
              "wr,t0,c0,I,1s@3,0b@0,\nwrite,sgap 2-3\n"
              "  wr,t0,c0,I,1s@0,0b@0,\n  wr,t0,c0,I,1s@1,0b@0,\n  wr,t0,c0,I,1s@3,0b@0,\n");
}

TEST_F(RecordLog, HostileNumbersAreEnteredAndCompared) {
    const U64 numbers[] = {0, 1, 10, 11, 1ull << 31, 1ull << 32, 1ull << 63, ~0ull};
    const unsigned counts[] = {0, 1, 65535, 65536, 1u << 31, ~0u};
    Clip& clip = video();
    for (const U64 sample : numbers) {
        for (const unsigned count : counts) {
            for (const U64 offset : numbers) {
                write(sample, count, 0, offset, count);
                write(sample + (count & 0xFFFF), 1, 0, 0, 0);
                addTo(clip, sample, count);
                addTo(clip, sample + (count & 0xFFFF), 1);
                m_log.clear();
                write(3, 1, 1);
                EXPECT_EQ(printed(), "") << "and a track of its own is left alone";
                write(2, 1, 1);
                EXPECT_EQ(printed().substr(0, 15), "write,sgap 4-2\n");
                write(2, 1, 1);
                EXPECT_EQ(printed().substr(0, 15), "write,sgap 3-2\n");
            }
        }
    }
}

TEST_F(RecordLog, MovieHasOneForItsAddsAndItsWrites) {
    Clip& clip = video();
    m_movie->log(written(0));
    m_movie->log(clip, MediaRecordReq(0, 1, SampleInfo()));
    EXPECT_EQ(printed(), "");
    m_movie->log(clip, MediaRecordReq(5, 1, SampleInfo()));
    EXPECT_EQ(printed(), "write,sgap 1-5\n  wr,t0,c0,I,1s@0,0b@0,\n");
    const AutoReleasePtr<recording::Movie> other(new recording::Movie);
    other->log(written(77));
    EXPECT_EQ(printed(), "") << "each movie its own";
}

// The first of them all makes the log, and each writer stays on a track of its own, as recorders do.
TEST_F(RecordLog, WritersAtOneMomentGetDifferentLines) {
    constexpr unsigned s_writers = 4;
    constexpr unsigned s_each = 1000;
    std::vector<std::thread> writers;
    for (unsigned track = 0; track < s_writers; ++track) {
        writers.emplace_back([this, track] {
            for (unsigned i = 0; i < s_each; ++i)
                m_movie->log(written(i, 1, track));
        });
    }
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(printed(), "");
    for (unsigned track = 0; track < s_writers; ++track) {
        m_movie->log(written(s_each + 1, 1, track));
        EXPECT_EQ(m_log.lines().size(), s_each + 2) << "the gap, and every write of the track";
        m_log.clear();
    }
}
