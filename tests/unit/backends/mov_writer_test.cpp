#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "backends/mov/mov_reference_editor.h"
#include "shared/include/index/media_edit_desc.h"
#include "tests/unit/backends/mov_hole.h"
#include "tests/unit/backends/mov_seen.h"
#include "tests/unit/backends/recording_fixture.h"

// Movies that are recorded: what their files say, at every byte of every write, and what the recorder's own objects
// say.

using namespace RecordKit;

namespace {

constexpr MediaFileType s_mov = MediaFileType::QuickTime;
constexpr unsigned s_rate = 1000;  // samples of sound a second

MediaClipParam picturesOf(MediaEncodingType encoding, MediaVideoRate rate = MediaVideoRate::Pal25) {
    MediaClipParam param;
    EXPECT_TRUE(param.initVideo(s_mov, encoding, rate));
    return param;
}

class RecordedMovie : public kit::CacheScene {
protected:
    ~RecordedMovie() override { FileCalls::setFault(nullptr); }

    MediaObj* create(const std::string& name = "a.mov", MediaContainment containment = MediaContainment::Embedded) {
        m_path = m_tree.path(name);
        m_movie = MediaObj::openWriter(m_path.c_str(), false, m_result, containment, s_mov, nullptr,
                                       BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(m_movie, nullptr) << m_result.describe().get();
        return m_movie;
    }
    MediaTrackDesc* track(const MediaClipParam& param) {
        MediaTrackDesc* const made = m_movie->createTrack(param, m_result);
        EXPECT_NE(made, nullptr) << m_result.describe().get();
        return made != nullptr && made->createClip(param, m_result) != nullptr ? made : nullptr;
    }
    MediaTrackDesc* sound(unsigned channels = 2, unsigned bits = 16) {
        return track(soundOf(s_mov, s_rate, channels, bits));
    }
    bool enter(MediaTrackDesc& track, unsigned long long sample, unsigned count, unsigned bytes,
               MediaSampleInMovie& where, SampleCodingType kind = SampleCodingType::I) {
        SampleInfo info;
        info.reset(bytes);
        info.setEncoding(kind);
        return track.addSamples(MediaRecordReq(sample, count, info), where, m_result);
    }
    // Behind those in the index, with bytes that tell their place.
    bool record(MediaTrackDesc& track, unsigned count, unsigned bytes, bool async = false,
                SampleCodingType kind = SampleCodingType::I) {
        MediaClipDesc& clip = *track.getClip(track.getClipCount() - 1);
        const MediaOffsetSummary summary = clip.getLookup()->getSummary();
        MediaSampleInMovie where;
        if (!enter(track, summary.m_numSamples, count, bytes, where, kind)) return false;
        const std::string text = kit::patternFrom(where.m_chunks[0].m_offset, where.m_chunks[0].m_size);
        if (async) return m_movie->vaWrite(where, kit::obufOf(text)).success();
        MediaIoBuf buffer;
        kit::fill(buffer, text);
        return m_movie->vsWrite(where, buffer).success();
    }
    // Whether the movie tells of places by 64 bits.
    bool isWide() const { return kit::bytesAt(m_path, seen().m_moovAt, 20000).find("co64") != std::string::npos; }
    void end() {
        EXPECT_TRUE(m_movie->setRecording(false));
        m_movie->release(nullAgent(), true);
        m_movie = nullptr;
    }
    MovSeen seen() const { return MovSeen::of(m_path); }

    MediaObj* m_movie = nullptr;
    std::string m_path;
    static inline std::atomic<int> s_left{0};  // writes before the one that fails
};

// Writes reach the file in pieces, ever smaller ones and at last one byte at a time, and in front of each the file is
// looked at. Blocks of essence, which are larger than any part of an index here, go whole.
class ByteByByte {
public:
    explicit ByteByByte(const std::string& path, std::size_t whole = s_essence) {
        s_whole = whole;
        s_path = path;
        s_looks = s_movies = 0;
        s_samples = 0;
        s_error.clear();
        FileCalls::setFault(&look);
    }
    ~ByteByByte() { FileCalls::setFault(nullptr); }
    ByteByByte(const ByteByByte&) = delete;
    ByteByByte& operator=(const ByteByByte&) = delete;

    static constexpr unsigned s_essence = 9000;

    static inline std::size_t s_whole = s_essence;
    static inline std::string s_path, s_error;
    static inline unsigned s_looks = 0, s_movies = 0, s_most = 0;
    static inline std::uint64_t s_samples = 0;

private:
    static int look(FileCall call, const char*, int, std::size_t& size) {
        if (call != FileCall::Write || size >= s_whole) return 0;
        size = size > 16 ? std::min<std::size_t>(size / 2, 4096) : 1;
        ++s_looks;
        const MovSeen seen = MovSeen::of(s_path);
        std::uint64_t samples = 0;
        std::uint64_t end = 0;
        for (const MovSeen::Track& track : seen.m_tracks) {
            samples += track.m_samples;
            end = std::max(end, track.m_end);
        }
        s_movies += seen.m_moovs != 0 ? 1 : 0;
        s_most = std::max(s_most, seen.m_moovs);
        const bool isGone = s_samples != 0 && seen.m_moovs == 0;
        if (!s_error.empty()) return 0;
        // Before the first head there are only zeros.
        if (s_samples != 0 && !seen.m_error.empty()) s_error = seen.m_error;
        if (isGone) s_error = "the index has gone";
        if (samples < s_samples) s_error = "the index has gone back";
        if (end > std::filesystem::file_size(s_path)) s_error = "the index is ahead of the samples";
        s_samples = std::max(s_samples, samples);
        return 0;
    }
};

}  // namespace

TEST_F(RecordedMovie, IsWholeAtEveryByteThatIsWritten) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    ASSERT_TRUE(video != nullptr && audio != nullptr);
    ByteByByte watch(m_path);
    for (unsigned i = 0; i < 60; ++i) {
        ASSERT_TRUE(record(*video, 1, ByteByByte::s_essence + i));
        ASSERT_TRUE(record(*audio, 40, 160));
        if (i % 20 == 0) m_movie->flush(nullptr, true);
    }
    end();
    EXPECT_EQ(ByteByByte::s_error, "");
    EXPECT_GT(ByteByByte::s_looks, 150u);
    EXPECT_EQ(ByteByByte::s_samples, 60u + 60 * 40);
    EXPECT_EQ(seen().m_moovs, 1u);
}

TEST_F(RecordedMovie, StaysWholeWhileItsIndexMovesToLargerRooms) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    ASSERT_NE(video, nullptr);
    std::vector<MediaTrackDesc*> sounds;
    for (unsigned i = 0; i < 5; ++i)
        sounds.push_back(sound(1, 8 * (1 + i % 4)));
    constexpr unsigned frames = 160;
    std::uint64_t firstAt = 0;
    ByteByByte::s_most = 0;
    for (unsigned i = 0; i < frames; ++i) {
        ASSERT_TRUE(record(*video, 1, 20 + i));
        for (unsigned j = 0; j < sounds.size(); ++j)
            ASSERT_TRUE(record(*sounds[j], 4, 4 * (1 + j % 4)));
        if (i % 20 != 19) continue;
        const ByteByByte watch(m_path);  // before a second has gone by: all updates are made here
        ByteByByte::s_samples = firstAt != 0 ? 1 : 0;
        m_movie->flush(nullptr, true);
        ASSERT_EQ(ByteByByte::s_error, "");
        if (firstAt == 0) firstAt = seen().m_moovAt;
    }
    EXPECT_GT(seen().m_moovAt, firstAt + 10000) << "no move was seen";
    EXPECT_EQ(ByteByByte::s_most, 2u) << "for a moment there are two, but never none";
    end();
    const MovSeen last = seen();
    EXPECT_EQ(last.m_error, "");
    EXPECT_EQ(last.m_moovs, 1u);
    ASSERT_EQ(last.m_tracks.size(), 6u);
    EXPECT_EQ(last.m_tracks[0].m_samples, frames);
    EXPECT_GE(std::count(last.m_top.begin(), last.m_top.end(), "mdat"), 2);
    for (std::size_t i = 0; i < last.m_tracks[0].m_at.size(); ++i) {
        const std::uint64_t at = last.m_tracks[0].m_at[i];
        const std::uint32_t size = last.m_tracks[0].m_sizes[i];
        ASSERT_TRUE(kit::bytesAt(m_path, at, size) == kit::patternFrom(at, size)) << i;
    }
}

TEST_F(RecordedMovie, TellsOfTwoKindsOfTracksWithTheirTimes) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores, MediaVideoRate::Ntsc2997));
    MediaTrackDesc* const audio = sound(1, 24);
    EXPECT_EQ(m_movie->getMovieDesc()->getTimeBase(), 30000u);
    for (unsigned i = 0; i < 30; ++i)
        ASSERT_TRUE(record(*video, 1, 100 + i));
    ASSERT_TRUE(record(*audio, 1001, 3003));
    EXPECT_EQ(video->getLength(), 30030u);
    EXPECT_EQ(audio->getLength(), 30030u);
    end();
    const MovSeen file = seen();
    EXPECT_EQ(file.m_error, "");
    EXPECT_EQ(file.m_timescale, 30000u);
    ASSERT_EQ(file.m_tracks.size(), 2u);
    EXPECT_EQ(file.m_tracks[0].m_code, "apcn");
    EXPECT_EQ(file.m_tracks[0].m_samples, 30u);
    EXPECT_EQ(file.m_tracks[0].m_edits[0].m_ticks, 30030u);
    EXPECT_EQ(file.m_tracks[1].m_code, "in24");
    EXPECT_EQ(file.m_tracks[1].m_samples, 1001u);
    EXPECT_EQ(file.m_tracks[1].m_at.size(), 1001u);
}

TEST_F(RecordedMovie, ShowsPicturesOfLongGroupsInTheirOrder) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Mpeg));
    for (const SampleCodingType kind :
         {SampleCodingType::I, SampleCodingType::B, SampleCodingType::B, SampleCodingType::P, SampleCodingType::B,
          SampleCodingType::P, SampleCodingType::I})
        ASSERT_TRUE(record(*video, 1, 50, false, kind));
    end();
    const MovSeen file = seen();
    const MovSeen::Track& told = file.m_tracks.at(0);
    EXPECT_EQ(told.m_late, (std::vector<std::uint32_t>{3, 0, 0, 2, 0, 1, 1}));
    EXPECT_EQ(told.m_syncs, (std::vector<std::uint32_t>{1, 7}));
    EXPECT_EQ(told.m_edits.at(0).m_in, 1u);
}

TEST_F(RecordedMovie, TellsOfPrechargeAndRolloutByItsEdit) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    for (unsigned i = 0; i < 20; ++i)
        ASSERT_TRUE(record(*video, 1, 50));
    ASSERT_TRUE(video->setPrecharge(3));
    ASSERT_TRUE(video->setTargetRollout(1000));
    for (unsigned i = 0; i < 5; ++i)
        ASSERT_TRUE(record(*video, 1, 50));
    end();
    const MovSeen file = seen();
    const MovSeen::Track& told = file.m_tracks.at(0);
    EXPECT_EQ(told.m_samples, 25u);
    ASSERT_EQ(told.m_edits.size(), 1u);
    EXPECT_EQ(told.m_edits[0].m_in, 3u);
    EXPECT_EQ(told.m_edits[0].m_ticks, 17u);
}

TEST_F(RecordedMovie, TellsOfEachClipByAnEdit) {
    create();
    const MediaClipParam param = picturesOf(MediaEncodingType::Prores);
    MediaTrackDesc* const video = track(param);
    for (unsigned i = 0; i < 4; ++i)
        ASSERT_TRUE(record(*video, 1, 50));
    ASSERT_NE(video->createClip(param, m_result), nullptr);
    for (unsigned i = 0; i < 6; ++i)
        ASSERT_TRUE(record(*video, 1, 60));
    end();
    const MovSeen file = seen();
    const MovSeen::Track& told = file.m_tracks.at(0);
    EXPECT_EQ(told.m_samples, 10u);
    ASSERT_EQ(told.m_edits.size(), 2u);
    EXPECT_EQ(told.m_edits[0].m_ticks, 4u);
    EXPECT_EQ(told.m_edits[1].m_in, 4u);
    EXPECT_EQ(told.m_edits[1].m_ticks, 6u);
}

TEST_F(RecordedMovie, GivesItsReaderOnlyWhatIsInTheFile) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    ASSERT_TRUE(record(*audio, 100, 400));
    ASSERT_TRUE(record(*video, 1, 77));
    ASSERT_TRUE(record(*audio, 50, 200));
    MediaSampleInMovie where;
    ASSERT_TRUE(enter(*video, 1, 1, 88, where));
    const MediaClipDesc& pictures = *video->getClip(0);
    const MediaClipDesc& samples = *audio->getClip(0);
    MediaSampleInMovie found;
    EXPECT_TRUE(pictures.getMediaOffset(MediaPlayReq(0, 1), found, m_result));
    EXPECT_EQ(found.m_chunks[0].m_size, 77u);
    EXPECT_FALSE(pictures.getMediaOffset(MediaPlayReq(1, 1), found, m_result)) << "entered and not written";
    EXPECT_FALSE(pictures.getMediaOffset(MediaPlayReq(2, 1), found, m_result));
    // Across the picture between them.
    EXPECT_TRUE(samples.getMediaOffset(MediaPlayReq(90, 20), found, m_result));
    EXPECT_EQ(found.m_count, 20u);
    ASSERT_EQ(found.m_numChunks, 2u);
    EXPECT_EQ(found.m_chunks[0].m_size, 40u);
    EXPECT_EQ(found.m_chunks[1].m_size, 40u);
    MediaIoBuf buffer;
    ASSERT_TRUE(m_movie->vsRead(found, buffer));
    EXPECT_EQ(kit::bytesOf(buffer),
              kit::patternFrom(found.m_chunks[0].m_offset, 40) + kit::patternFrom(found.m_chunks[1].m_offset, 40));
    end();
    EXPECT_EQ(seen().m_tracks.at(0).m_samples, 1u) << "the picture that was entered and not written";
}

TEST_F(RecordedMovie, IsReadByOthersWhileItIsRecorded) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    constexpr unsigned frames = 400;
    const auto follow = [this](const MediaClipDesc& clip, unsigned samples, unsigned atOnce) {
        for (unsigned sample = 0; sample < samples;) {
            MediaSampleInMovie where;
            OpResult result;
            MediaIoBuf buffer;
            const bool isThere = clip.getMediaOffset(MediaPlayReq(sample, atOnce), where, result);
            if (!isThere) std::this_thread::yield();
            if (!isThere || !m_movie->vsRead(where, buffer)) continue;
            std::string wanted;
            for (unsigned i = 0; i < where.m_numChunks; ++i)
                wanted += kit::patternFrom(where.m_chunks[i].m_offset, where.m_chunks[i].m_size);
            EXPECT_TRUE(kit::bytesOf(buffer) == wanted) << sample;
            sample += where.m_count;
        }
    };
    std::thread first(follow, std::cref(*video->getClip(0)), frames, 1);
    std::thread second(follow, std::cref(*audio->getClip(0)), frames * 40, 30);
    for (unsigned i = 0; i < frames; ++i) {
        EXPECT_TRUE(record(*video, 1, 20 + i, i % 2 == 0));
        EXPECT_TRUE(record(*audio, 40, 160, i % 3 == 0));
    }
    m_movie->flush(nullptr, true);
    first.join();
    second.join();
    end();
    EXPECT_EQ(seen().m_error, "");
}

TEST_F(RecordedMovie, TakesSamplesAgainInTheirPlace) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    MediaSampleInMovie first, again;
    ASSERT_TRUE(enter(*video, 0, 1, 77, first));
    ASSERT_TRUE(enter(*audio, 0, 100, 400, again));
    EXPECT_TRUE(enter(*video, 0, 1, 77, again));
    EXPECT_EQ(again.m_chunks[0].m_offset, first.m_chunks[0].m_offset);
    EXPECT_FALSE(enter(*video, 0, 1, 78, again)) << "another size";
    EXPECT_TRUE(kit::isWarning(m_result, 11));
    EXPECT_FALSE(enter(*video, 3, 1, 77, again)) << "a hole";
    EXPECT_TRUE(kit::isWarning(m_result, 17));
    EXPECT_FALSE(enter(*video, 1, 2, 77, again)) << "two at once";
    EXPECT_TRUE(kit::isWarning(m_result, 11));
    EXPECT_FALSE(enter(*audio, 100, 1, 5, again)) << "no sample of this sound";
    EXPECT_TRUE(kit::isWarning(m_result, 11));
    EXPECT_TRUE(enter(*audio, 98, 100, 400, again)) << "off by two samples, and so moved";
    EXPECT_EQ(again.m_gap, -2);
    EXPECT_EQ(again.m_chunks[0].m_size, 98 * 4u);
    m_movie->release(nullAgent(), true);
}

TEST_F(RecordedMovie, RefusesWhatNoTrackCanHold) {
    create();
    MediaClipParam param = soundOf(s_mov, s_rate, 2, 16);
    param.m_encoding = MediaEncodingType::Aac;
    EXPECT_EQ(m_movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, 8));
    param = soundOf(s_mov, s_rate, 2, 16);
    param.m_channels = 65;
    EXPECT_EQ(m_movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, 8));
    param = picturesOf(MediaEncodingType::Prores);
    param.m_width = 0;
    EXPECT_EQ(m_movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, 8));
    MediaTrackDesc* const audio = sound();
    EXPECT_EQ(audio->createClip(soundOf(s_mov, s_rate, 4, 16), m_result), nullptr) << "another kind than the track's";
    EXPECT_TRUE(kit::isWarning(m_result, 8));
    m_movie->release(nullAgent(), true);
}

TEST_F(RecordedMovie, GoesOnBehindItsEnd) {
    create();
    MediaTrackDesc* const audio = sound();
    ASSERT_TRUE(record(*audio, 500, 2000));
    ASSERT_TRUE(m_movie->setRecording(false));
    EXPECT_EQ(seen().m_tracks.at(0).m_samples, 500u);
    ASSERT_TRUE(record(*audio, 700, 2800));
    EXPECT_EQ(seen().m_error, "");
    end();
    EXPECT_EQ(seen().m_error, "");
    EXPECT_EQ(seen().m_tracks.at(0).m_samples, 1200u);
    EXPECT_EQ(seen().m_top.back(), "mdat");
}

TEST_F(RecordedMovie, TellsOfNothingThatWasLost) {
    create();
    MediaTrackDesc* const audio = sound();
    for (unsigned i = 0; i < 30; ++i)
        ASSERT_TRUE(record(*audio, 100, 400, true));
    EXPECT_TRUE(m_movie->setRecording(true));
    m_movie->flush(nullptr, true);
    {
        HeldWrites held;
        for (unsigned i = 0; i < 30; ++i)
            ASSERT_TRUE(record(*audio, 100, 400, true));
        HeldWrites::letGo(ENOSPC);
        EXPECT_FALSE(m_movie->setRecording(false)) << "samples were lost";
    }
    FileCalls::setFault(nullptr);
    const MovSeen file = seen();
    EXPECT_EQ(file.m_error, "");
    EXPECT_EQ(file.m_moovs, 1u);
    EXPECT_EQ(file.m_tracks.at(0).m_samples, 3000u);
    EXPECT_LE(file.m_tracks.at(0).m_end, std::filesystem::file_size(m_path));
    m_movie->release(nullAgent(), true);
}

// Over the moves of the index as well.
TEST_F(RecordedMovie, IsWholeWhicheverWriteFails) {
    constexpr unsigned blocks = 90, channels = 20;
    unsigned failures = 0, moves = 0;
    for (unsigned number = 30; number < 3000; number += 331) {
        SCOPED_TRACE(number);
        create("f" + std::to_string(number) + ".mov");
        std::vector<MediaTrackDesc*> sounds;
        for (unsigned i = 0; i < channels; ++i)
            sounds.push_back(sound(1, 8));
        s_left = static_cast<int>(number);
        FileCalls::setFault([](FileCall call, const char*, int, std::size_t&) {
            return call == FileCall::Write && --s_left == 0 ? ENOSPC : 0;
        });
        std::uint64_t told = 0;
        for (unsigned i = 0; i < blocks; ++i) {
            for (MediaTrackDesc* const track : sounds)
                (void)record(*track, 4, 4);
            if (i % 15 != 14) continue;
            m_movie->flush(nullptr, true);
            const MovSeen now = seen();
            const std::uint64_t samples = now.m_tracks.empty() ? 0 : now.m_tracks[0].m_samples;
            ASSERT_TRUE(told == 0 || now.m_error.empty()) << now.m_error;
            ASSERT_GE(samples, told);
            told = samples;
        }
        m_result.discard();
        failures += s_left <= 0 ? 1 : 0;
        FileCalls::setFault(nullptr);
        m_movie->setRecording(false).discard();
        m_movie->release(nullAgent(), true);
        EXPECT_EQ(seen().m_error, "");
        EXPECT_GE(seen().m_moovs, 1u);
        const std::vector<std::string> top = seen().m_top;
        moves += std::count(top.begin(), top.end(), "mdat") > 1 ? 1 : 0;
        std::filesystem::resize_file(m_path, 0);
    }
    EXPECT_GT(failures, 7u);
    EXPECT_GT(moves, 7u);
}

TEST_F(RecordedMovie, RefersToSamplesInFilesBesideIt) {
    create("film.mov", MediaContainment::ByRef);
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    for (unsigned i = 0; i < 60; ++i) {
        ASSERT_TRUE(record(*video, 1, 50 + i, i % 2 == 0));
        ASSERT_TRUE(record(*audio, 40, 160, i % 3 == 0));
    }
    EXPECT_EQ(m_movie->getMediaCount(), 3u);
    EXPECT_EQ(video->getContainment(), MediaContainment::ByRef);
    end();
    const MovSeen file = seen();
    EXPECT_EQ(file.m_error, "");
    EXPECT_EQ(file.m_tracks.at(0).m_samples, 60u);
    EXPECT_EQ(file.m_tracks.at(0).m_at.at(0), 0u);
    EXPECT_EQ(file.m_tracks.at(1).m_samples, 2400u);
    EXPECT_EQ(std::filesystem::file_size(m_tree.path("film_1.prores")), 60 * 50u + 59 * 60 / 2);
    EXPECT_EQ(kit::bytesAt(m_tree.path("film_2.data"), 0, 9600), kit::patternFrom(0, 9600));
}

// A place that needs more than 32 bits makes all of its track's wide, and for that the index moves, behind it.
TEST_F(RecordedMovie, TellsOfSamplesPastFourGigabytes) {
    constexpr std::uint64_t limit = 1ull << 32;
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
    MediaTrackDesc* const audio = sound();
    ASSERT_TRUE(record(*audio, 100, 400));
    ASSERT_TRUE(record(*video, 1, 70));
    m_movie->flush(nullptr, true);
    skipEssenceTo(*m_movie, limit - 1);
    ASSERT_TRUE(record(*video, 1, 80));
    m_movie->flush(nullptr, true);
    EXPECT_EQ(seen().m_tracks.at(0).m_at.back(), limit - 1);
    EXPECT_FALSE(isWide());
    EXPECT_LT(seen().m_moovAt, limit);
    {
        const ByteByByte watch(m_path);
        ByteByByte::s_samples = 1;
        for (unsigned i = 0; i < 20; ++i) {
            ASSERT_TRUE(record(*video, 1, ByteByByte::s_essence + i));
            ASSERT_TRUE(record(*audio, 40, 160));
        }
        m_movie->flush(nullptr, true);
        EXPECT_EQ(ByteByByte::s_error, "");
        EXPECT_GT(ByteByByte::s_looks, 20u);
    }
    for (unsigned i = 0; i < 10; ++i) {
        ASSERT_TRUE(record(*video, 1, 90 + i, true));
        ASSERT_TRUE(record(*audio, 40, 160, true));
    }
    EXPECT_GT(seen().m_moovAt, limit);
    end();
    const MovSeen file = seen();
    EXPECT_TRUE(isWide());
    EXPECT_EQ(file.m_error, "");
    EXPECT_EQ(file.m_moovs, 1u);
    EXPECT_EQ(file.m_top.back(), "mdat");
    EXPECT_EQ(file.m_tracks.at(0).m_samples, 32u);
    EXPECT_EQ(file.m_tracks.at(1).m_samples, 1300u);
    EXPECT_GT(file.m_tracks.at(1).m_at.back(), limit);
    expireAll();
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(again, nullptr) << m_result.describe().get();
    for (unsigned i = 0; i < 32; ++i) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        ASSERT_TRUE(again->getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(i, 1), where, m_result)) << i;
        EXPECT_EQ(where.m_chunks[0].m_offset, file.m_tracks.at(0).m_at[i]);
        ASSERT_TRUE(again->vsRead(where, buffer));
        EXPECT_TRUE(kit::bytesOf(buffer) == kit::patternFrom(where.m_chunks[0].m_offset, where.m_chunks[0].m_size))
            << i;
    }
    again->release();
}

// Each in a file of its own, and of the first with what its edit leaves out.
TEST_F(RecordedMovie, ReadsEachClipFromTheFileThatItRefersTo) {
    create("film.mov", MediaContainment::ByRef);
    const MediaClipParam param = picturesOf(MediaEncodingType::Prores);
    MediaTrackDesc* const video = track(param);
    for (unsigned i = 0; i < 9; ++i)
        ASSERT_TRUE(record(*video, 1, 50 + i));
    ASSERT_TRUE(video->setPrecharge(3));
    ASSERT_TRUE(video->setTargetRollout(1000));
    for (unsigned i = 0; i < 5; ++i)
        ASSERT_TRUE(record(*video, 1, 70));
    ASSERT_NE(video->createClip(param, m_result), nullptr);
    for (unsigned i = 0; i < 4; ++i)
        ASSERT_TRUE(record(*video, 1, 80 + i));
    end();
    EXPECT_EQ(seen().m_tracks.at(0).m_references, 2u);
    expireAll();
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(again, nullptr) << m_result.describe().get();
    const MediaTrackDesc& pictures = *again->getTrackAt(0);
    ASSERT_EQ(pictures.getClipCount(), 2u);
    for (unsigned number = 0; number < 2; ++number) {
        const MediaClipDesc& clip = *pictures.getClip(number);
        const std::string file = m_tree.path(number == 0 ? "film_1.prores" : "film_2.prores");
        EXPECT_EQ(std::string(again->getPath(clip.getMediaId())), file);
        ASSERT_EQ(clip.getLength(), number == 0 ? 6u : 4u);
        for (unsigned i = 0; i < clip.getLength(); ++i) {
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            ASSERT_TRUE(clip.getMediaOffset(MediaPlayReq(clip.getEdit(0)->getIn() + i, 1), where, m_result)) << i;
            EXPECT_EQ(where.m_chunks[0].m_size, number == 0 ? 53 + i : 80 + i);
            ASSERT_TRUE(again->vsRead(where, buffer)) << i;
            EXPECT_TRUE(kit::bytesOf(buffer) == kit::bytesAt(file, where.m_chunks[0].m_offset, buffer.size())) << i;
        }
    }
    EXPECT_EQ(pictures.getClip(0)->getRollout(), 5u);
    again->release();
}

// With whatever lies between them there.
TEST_F(RecordedMovie, RefersToSamplesThatOthersHavePutFarApart) {
    constexpr std::uint64_t apart = 3ull << 30;
    create("film.mov", MediaContainment::ByRef);
    MediaTrackDesc* const audio = sound();
    const std::string samples = m_tree.path("film_1.data");
    for (unsigned i = 0; i < 4; ++i) {
        std::fstream(samples, std::ios::in | std::ios::out | std::ios::binary)
            .seekp(static_cast<std::streamoff>(i * apart + 16))
            .write(kit::patternFrom(i, 400).data(), 400);
        SampleInfo info;
        info.reset(400);
        MediaSampleInMovie where;
        ASSERT_TRUE(audio->addSamples(MediaRecordReq(i * 100, 100, info, i * apart + 16), where, m_result));
        EXPECT_EQ(where.m_chunks[0].m_offset, i * apart + 16);
        EXPECT_TRUE(audio->getClip(0)->getMediaOffset(MediaPlayReq(i * 100, 100), where, m_result)) << i;
    }
    ASSERT_TRUE(record(*audio, 50, 200));
    end();
    const MovSeen file = seen();
    EXPECT_EQ(file.m_error, "");
    EXPECT_TRUE(isWide());
    EXPECT_EQ(file.m_tracks.at(0).m_samples, 450u);
    expireAll();
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(again, nullptr) << m_result.describe().get();
    for (unsigned i = 0; i < 4; ++i) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        ASSERT_TRUE(
            again->getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(i * 100, i < 3 ? 100 : 150), where, m_result))
            << i;
        EXPECT_EQ(where.m_chunks[0].m_offset, i * apart + 16);
        ASSERT_TRUE(again->vsRead(where, buffer));
        const std::string last = kit::patternFrom(3 * apart + 416, 200);
        EXPECT_TRUE(kit::bytesOf(buffer) == kit::patternFrom(i, 400) + (i == 3 ? last : "")) << i;
    }
    again->release();
}

TEST_F(RecordedMovie, KeepsItsIdentifierAndItsClipProperties) {
    create();
    MediaTrackDesc* const audio = sound();
    EXPECT_EQ(m_movie->getUmid(), nullptr);
    ASSERT_TRUE(m_movie->generateUmid());
    const std::string umid = m_movie->getUmid();
    EXPECT_TRUE(m_movie->addClipProperty("subtitles"));
    EXPECT_TRUE(m_movie->addClipProperty("stereo"));
    EXPECT_FALSE(m_movie->addClipProperty("stereo"));
    ASSERT_TRUE(record(*audio, 100, 400));
    end();
    expireAll();
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(again, nullptr) << m_result.describe().get();
    ASSERT_NE(again->getUmid(), nullptr);
    EXPECT_EQ(std::string(again->getUmid()), umid);
    EXPECT_EQ(std::string(again->getClipProperties()), "subtitles,stereo");
    EXPECT_TRUE(kit::isWarning(again->isClipSupported("stereo"), 14));
    const std::string path = m_path;
    create("proxy.mov");
    EXPECT_TRUE(m_movie->setProxyUmid(*again));
    EXPECT_EQ(std::string(m_movie->getUmid()), umid);
    m_movie->release(nullAgent(), true);
    again->release();
}

// The track of the timecode belongs to the layout of the index, or moves it to a larger room.
TEST_F(RecordedMovie, IsWholeAtEveryByteWhileItsTimecodeComes) {
    for (const bool isLate : {false, true}) {
        SCOPED_TRACE(isLate);
        create(isLate ? "late.mov" : "early.mov");
        MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Prores));
        MediaTimecode timecode;
        timecode.setCounter(1234, FixedPoint<16>(25), false);
        {
            const ByteByByte watch(m_path);
            if (!isLate) {
                ASSERT_TRUE(m_movie->setTimecode(timecode));
            }
            for (unsigned i = 0; i < 30; ++i)
                ASSERT_TRUE(record(*video, 1, ByteByByte::s_essence, i % 2 == 0));
            if (isLate) {
                ASSERT_TRUE(m_movie->setTimecode(timecode));
            }
            m_movie->flush(nullptr, true);
            ASSERT_TRUE(record(*video, 1, ByteByByte::s_essence));
            end();
            EXPECT_EQ(ByteByByte::s_error, "");
        }
        const MovSeen file = seen();
        EXPECT_EQ(file.m_error, "");
        ASSERT_EQ(file.m_tracks.size(), 2u);
        EXPECT_EQ(file.m_tracks[0].m_samples, 31u);
        EXPECT_EQ(file.m_tracks[1].m_code, "tmcd");
        ASSERT_EQ(file.m_tracks[1].m_at.size(), 1u) << "its sample is there once";
        EXPECT_EQ(kit::bytesAt(m_path, file.m_tracks[1].m_at[0], 4), std::string("\0\0\4\xD2", 4));
        EXPECT_EQ(file.m_top.back(), "mdat");
        EXPECT_EQ(kit::bytesAt(m_path, std::filesystem::file_size(m_path) - 4, 4) == std::string("\0\0\4\xD2", 4),
                  false)
            << "samples follow it";
    }
}

TEST_F(RecordedMovie, TakesBackNoTimecodeButTakesAnother) {
    create();
    MediaTrackDesc* const audio = sound();
    MediaTimecode timecode;
    EXPECT_TRUE(kit::isWarning(m_movie->setTimecode(timecode), 1)) << "not valid";
    timecode.setCounter(100, FixedPoint<16>(12.34), false);
    EXPECT_TRUE(kit::isWarning(m_movie->setTimecode(timecode), 8));
    timecode.setCounter(100, FixedPoint<16>(300), false);
    EXPECT_TRUE(kit::isWarning(m_movie->setTimecode(timecode), 8));
    EXPECT_FALSE(m_movie->getTimecode().isValid());
    ASSERT_TRUE(record(*audio, 100, 400));
    for (const int rate : {12, 25, 25}) {
        timecode.setCounter(100, FixedPoint<16>(rate), true);
        EXPECT_TRUE(m_movie->setTimecode(timecode));
        m_movie->flush(nullptr, true);
    }
    EXPECT_TRUE(kit::isWarning(m_movie->setTimecode(MediaAgent(nullptr), 0, timecode), 1));
    ASSERT_TRUE(m_movie->setRecording(false));
    timecode.setCounter(101, FixedPoint<16>(25), false);
    EXPECT_TRUE(m_movie->setTimecode(timecode)) << "as long as it may be written";
    m_movie->release(nullAgent(), true);
    expireAll();
    const MovSeen file = seen();
    EXPECT_EQ(file.m_error, "");
    ASSERT_EQ(file.m_tracks.size(), 2u);
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    EXPECT_EQ(again->getTimecode().getCounter(), 101);
    EXPECT_FALSE(again->getTimecode().m_dropFrame);
    EXPECT_EQ(again->getTrackCount(), 1u);
    EXPECT_TRUE(kit::isWarning(again->setTimecode(timecode), MediaCode::OperationUnsupported));
    again->release();
}

TEST_F(RecordedMovie, IsReadAsItWasRecorded) {
    create();
    MediaTrackDesc* const video = track(picturesOf(MediaEncodingType::Mpeg));
    MediaTrackDesc* const audio = sound(2, 24);
    const SampleCodingType kinds[] = {SampleCodingType::I, SampleCodingType::B, SampleCodingType::B,
                                      SampleCodingType::P};
    for (unsigned i = 0; i < 100; ++i) {
        ASSERT_TRUE(record(*video, 1, 200 + i, false, kinds[i % 4]));
        ASSERT_TRUE(record(*audio, 40, 240));
    }
    end();
    expireAll();
    MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(again, nullptr) << m_result.describe().get();
    ASSERT_EQ(again->getTrackCount(), 2u);
    const MediaClipDesc& pictures = *again->getTrackAt(0)->getClip(0);
    const MediaClipDesc& samples = *again->getTrackAt(1)->getClip(0);
    EXPECT_EQ(pictures.getLength(), 100u);
    EXPECT_EQ(samples.getLength(), 4000u);
    EXPECT_EQ(pictures.getEncoding(), MediaEncodingType::Mpeg);
    EXPECT_EQ(samples.getEndian(), MediaEndian::Little);
    EXPECT_EQ(samples.getBitsPerUnit(), 24u);
    EXPECT_EQ(again->getFrameLength(), 100u);
    for (unsigned i = 0; i < 100; ++i) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        ASSERT_TRUE(pictures.getMediaOffset(MediaPlayReq(i, 1), where, m_result)) << i;
        EXPECT_EQ(where.m_chunks[0].m_size, 200 + i);
        ASSERT_TRUE(again->vsRead(where, buffer));
        EXPECT_TRUE(kit::bytesOf(buffer) == kit::patternFrom(where.m_chunks[0].m_offset, 200 + i)) << i;
    }
    again->release();
}

// In the room that a recording has left, and, where there is none, behind the end of the file.
TEST_F(RecordedMovie, IsWholeAtEveryByteWhileItsReferencesChange) {
    for (const bool hasRoom : {true, false}) {
        SCOPED_TRACE(hasRoom);
        create(hasRoom ? "room.mov" : "none.mov", MediaContainment::ByRef);
        MediaTrackDesc* const audio = sound();
        ASSERT_TRUE(record(*audio, 500, 2000));
        end();
        const std::string samples = m_tree.path(hasRoom ? "room_1.data" : "none_1.data");
        if (!hasRoom) {
            std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(32 + 8).write("just an atom", 12);  // in the place of the room's mark
        }
        const std::uint64_t size = std::filesystem::file_size(m_path);
        std::string before = samples;
        for (const char* const name : {"other.data", "a name that is much longer than the one in front of it.data",
                                       "third.data", "back.data", "forth.data"}) {
            MovReferenceEditor editor(m_path);
            ASSERT_TRUE(editor.read());
            ASSERT_TRUE(editor.hasOthers());
            ASSERT_TRUE(editor.lead(before, m_tree.path(name)));
            before = m_tree.path(name);
            const ByteByByte watch(m_path, 1u << 20);
            ByteByByte::s_samples = 1;
            ASSERT_TRUE(editor.write(m_path));
            EXPECT_EQ(ByteByByte::s_error, "");
            EXPECT_GT(ByteByByte::s_looks, 15u);
            EXPECT_EQ(seen().m_moovs, 1u);
            const std::string movie = kit::bytesAt(m_path, seen().m_moovAt, 2000);
            EXPECT_NE(movie.find(name), std::string::npos);
        }
        EXPECT_EQ(std::filesystem::file_size(m_path) == size, hasRoom);
        EXPECT_LT(std::filesystem::file_size(m_path), 2 * size) << "the first place serves again";
    }
}
