#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"

using kit::ClipScript;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
using kit::TrackScript;

// A movie whose clips lie in several files, from a time in the movie to the bytes of a file.

namespace {

constexpr unsigned s_primary = 0;
constexpr unsigned s_first = 1;
constexpr unsigned s_second = 2;

// Clips that run at 100 samples a second, which is the movie's time base: a sample is a tick.
ClipScript clipOf(MediaEncodingType encoding, unsigned file, unsigned long long base, unsigned sampleSize,
                  unsigned long long samples, unsigned sampleRate = 100) {
    ClipScript clip;
    clip.m_encoding = encoding;
    clip.m_sampleRate = sampleRate;
    clip.m_samples = samples;
    clip.m_base = base;
    clip.m_sampleSize = sampleSize;
    clip.m_file = file;
    clip.m_container = file == s_primary ? MediaContainment::Embedded : MediaContainment::ByRef;
    return clip;
}

TrackScript trackOf(MediaDataType type, std::vector<ClipScript> clips) {
    TrackScript track;
    track.m_type = type;
    track.m_clips = std::move(clips);
    return track;
}

enum TrackOf : unsigned { VideoTrack, LineTrack, AncTrack, AudioTrack };

// Video in two files, line data in the first of them and beside the movie, and audio in the movie's own file and in
// both others at three rates.
MovieScript threeFiles(const std::string& first, const std::string& second) {
    MovieScript script;
    script.m_timeBase = 100;
    script.m_standard = MediaVideoRate::Unknown;
    script.m_files = {first, second};
    script.m_tracks = {
        trackOf(MediaDataType::Video, {clipOf(MediaEncodingType::Mpeg, s_first, 16, 40, 100),
                                       clipOf(MediaEncodingType::Mpeg, s_second, 32, 40, 100)}),
        trackOf(MediaDataType::Data, {clipOf(MediaEncodingType::Vbi, s_first, 4016, 4, 201)}),
        trackOf(MediaDataType::Data, {clipOf(MediaEncodingType::S436mAnc, s_primary, 1000, 8, 201)}),
        trackOf(MediaDataType::Audio, {clipOf(MediaEncodingType::Pcm, s_primary, 0, 4, 100),
                                       clipOf(MediaEncodingType::Pcm, s_first, 0, 4, 50, 50),
                                       clipOf(MediaEncodingType::Pcm, s_second, 0, 4, 400, 400)}),
    };
    return script;
}

// Such a movie as this house's writers make it.
class HouseMovie : public ScriptedMovie {
public:
    HouseMovie(const MovieScript& script, const std::string& path, SwVersion version)
        : ScriptedMovie(script, path, false, CacheRefValue::None), m_version(version) {
        computeSyncAdjustments();
    }
    bool isZarnexMovie() const override { return true; }
    SwVersion getMediaLayerVersion() const override { return m_version; }

private:
    const SwVersion m_version;
};

std::string patternFrom(unsigned long long offset, unsigned size) {
    std::string bytes;
    for (unsigned i = 0; i < size; ++i)
        bytes += TempTree::patternAt(offset + i);
    return bytes;
}

class ClipsInFiles : public kit::CacheScene {
protected:
    void make(SwVersion version) {
        m_movie = new HouseMovie(threeFiles(m_tree.path("first.raw"), m_tree.path("second.raw")),
                                 m_tree.path("movie.hdcam"), version);
    }
    void SetUp() override {
        for (const char* name : {"movie.hdcam", "first.raw", "second.raw"})
            m_tree.writePattern(name, 6000);
        make(SwVersion(5, 3, 9, 0));
    }
    void TearDown() override {
        m_movie = nullptr;
        CacheScene::TearDown();
    }

    const ScriptedMovie& movie() const { return *m_movie.get(); }
    const MediaTrackDesc& track(unsigned index) const { return *movie().getTrackAt(index); }

    // The sample that a time falls on, by the clip that covers it.
    bool place(unsigned trackIndex, FixedPoint<16> time, MediaSampleInMovie& sample) {
        FixedPoint<16> start;
        const MediaClipDesc* clip = track(trackIndex).clipAt(time, start);
        if (!clip) return false;
        const FixedPoint<16> behindStart = time > start ? time - start : FixedPoint<16>(0);
        const auto first = clip->convertFrom(behindStart, 100).round().uint64Value();
        return clip->getMediaOffset(MediaPlayReq(first, 1, m_agent), sample, m_result);
    }

    void expectBytes(const MediaSampleInMovie& sample, unsigned long long offset, unsigned size) {
        MediaIoBuf buf;
        EXPECT_TRUE(movie().vsRead(sample, buf).success());
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(buf.getMem()), buf.size()), patternFrom(offset, size));
    }

    // Plays a sample as a client does, and waits until its bytes have come.
    void play(unsigned trackIndex, FixedPoint<16> time, MediaAgent agent) {
        MediaReadReq req;
        ASSERT_TRUE(place(trackIndex, time, req.m_sample));
        req.m_sample.m_agent = agent;
        req.m_cb = &m_hook;
        const unsigned before = m_hook.count();
        EXPECT_TRUE(movie().vaRead(req).success());
        ASSERT_TRUE(m_hook.waitForAnswers(before + 1));
        const auto& chunk = req.m_sample.m_chunks[0];
        EXPECT_EQ(m_hook.answers().back().m_bytes, patternFrom(chunk.m_offset, chunk.m_size));
    }
    bool hasOpen(MediaAgent agent, unsigned file) {
        const unsigned before = m_movie->getNumOpenFiles(agent);
        m_movie->close(m_movie->getMediaId(file), agent).discard();
        const bool was = m_movie->getNumOpenFiles(agent) < before;
        if (was) static_cast<void>(m_movie->getFp(m_result, m_movie->getMediaId(file), agent));
        return was;
    }

    kit::Client m_client, m_otherClient;
    const MediaAgent m_agent{&m_client};
    const MediaAgent m_other{&m_otherClient};
    kit::ReadHook m_hook;
    AutoReleasePtr<ScriptedMovie> m_movie;
};

}  // namespace

TEST_F(ClipsInFiles, EveryTimeLeadsToTheBytesOfTheNearestSample) {
    for (int halves = 0; halves < 400; ++halves) {
        const FixedPoint<16> time = FixedPoint<16>(halves) / 2;
        SCOPED_TRACE(testing::Message() << "at " << halves << " halves");
        const unsigned nearest = static_cast<unsigned>(halves + 1) / 2;
        FixedPoint<16> start;
        const MediaClipDesc* clip = track(VideoTrack).clipAt(time, start);
        ASSERT_NE(clip, nullptr);
        const bool isSecond = nearest >= 100;
        EXPECT_EQ(clip->getClipIndex(), isSecond ? 1u : 0u);
        EXPECT_EQ(start, FixedPoint<16>(isSecond ? 100 : 0));
        if (nearest == 200) continue;
        MediaSampleInMovie sample;
        ASSERT_TRUE(place(VideoTrack, time, sample));
        EXPECT_EQ(sample.m_mediaId, m_movie->getMediaId(isSecond ? s_second : s_first));
        EXPECT_EQ(sample.m_clipIndex, isSecond ? 1u : 0u);
        EXPECT_EQ(sample.m_sample, nearest % 100);
        expectBytes(sample, (isSecond ? 32 : 16) + 40ull * (nearest % 100), 40);
    }
}

TEST_F(ClipsInFiles, ATimePastTheEndIsTheLastClipsAndHasNoBytes) {
    MediaSampleInMovie sample;
    for (const FixedPoint<16> time : {FixedPoint<16>(250), FixedPoint<16>(1000000)}) {
        FixedPoint<16> start;
        EXPECT_EQ(track(VideoTrack).clipAt(time, start), track(VideoTrack).getClip(1));
        EXPECT_EQ(start, FixedPoint<16>(100));
        EXPECT_FALSE(place(VideoTrack, time, sample));
        EXPECT_TRUE(m_result.success());
    }
    ASSERT_TRUE(place(VideoTrack, FixedPoint<16>(199), sample));
    expectBytes(sample, 32 + 99 * 40, 40);
}

TEST_F(ClipsInFiles, ClipsOfThreeRatesFollowEachOtherToTheSample) {
    struct Row {
        double m_time;
        unsigned m_clip;
        int m_start;
        unsigned m_sample;
        unsigned m_file;
    };
    // 100 samples at 100 Hz, 50 at 50 Hz, 400 at 400 Hz: a second each.
    for (const Row& row :
         {Row{0, 0, 0, 0, s_primary}, Row{99.25, 0, 0, 99, s_primary}, Row{99.5, 1, 100, 0, s_first},
          Row{101, 1, 100, 1, s_first}, Row{198.75, 1, 100, 49, s_first}, Row{199, 2, 200, 0, s_second},
          Row{199.875, 2, 200, 0, s_second}, Row{200, 2, 200, 0, s_second}, Row{200.25, 2, 200, 1, s_second},
          Row{299.75, 2, 200, 399, s_second}}) {
        SCOPED_TRACE(row.m_time);
        FixedPoint<16> start;
        const MediaClipDesc* clip = track(AudioTrack).clipAt(FixedPoint<16>(row.m_time), start);
        ASSERT_NE(clip, nullptr);
        EXPECT_EQ(clip->getClipIndex(), row.m_clip);
        EXPECT_EQ(start, FixedPoint<16>(row.m_start));
        MediaSampleInMovie sample;
        ASSERT_TRUE(place(AudioTrack, FixedPoint<16>(row.m_time), sample));
        EXPECT_EQ(sample.m_mediaId, m_movie->getMediaId(row.m_file));
        EXPECT_EQ(sample.m_sample, row.m_sample);
        expectBytes(sample, 4ull * row.m_sample, 4);
    }
}

TEST_F(ClipsInFiles, OnlyATrackOfSeveralClipsLetsTheReaderCloseOtherFiles) {
    for (const unsigned index : {VideoTrack, LineTrack, AncTrack, AudioTrack}) {
        MediaSampleInMovie sample;
        ASSERT_TRUE(place(index, FixedPoint<16>(5), sample));
        EXPECT_EQ(sample.m_closeOther, index == VideoTrack || index == AudioTrack) << index;
        EXPECT_EQ(sample.m_trackIndex, index);
        EXPECT_EQ(sample.m_pathId, m_movie->getPathId());
        EXPECT_TRUE(sample.m_agent == m_agent);
    }
}

TEST_F(ClipsInFiles, TheFirstReadOfASecondaryOpensThePrimaryOnce) {
    play(VideoTrack, FixedPoint<16>(10), m_agent);
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 2u);
    EXPECT_TRUE(hasOpen(m_agent, s_primary));
    EXPECT_TRUE(hasOpen(m_agent, s_first));
    // The movie holds its primary now, so that another client's read opens just its own file.
    play(VideoTrack, FixedPoint<16>(10), m_other);
    EXPECT_EQ(m_movie->getNumOpenFiles(m_other), 1u);
    EXPECT_TRUE(hasOpen(m_other, s_first));
    m_movie->close(nullptr, m_agent).discard();
    m_movie->close(nullptr, m_other).discard();
}

TEST_F(ClipsInFiles, AClientThatMovesThroughATrackKeepsOneSecondaryOpen) {
    for (const int time : {10, 99, 100, 199, 150, 50, 0}) {
        SCOPED_TRACE(time);
        play(VideoTrack, FixedPoint<16>(time), m_agent);
        EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 2u);
        EXPECT_EQ(hasOpen(m_agent, s_first), time < 100);
        EXPECT_EQ(hasOpen(m_agent, s_second), time >= 100);
        EXPECT_TRUE(hasOpen(m_agent, s_primary));
    }
    m_movie->close(nullptr, m_agent).discard();
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 0u);
}

TEST_F(ClipsInFiles, AnotherClientsFilesStayOpenWhenOneMovesOn) {
    play(VideoTrack, FixedPoint<16>(10), m_agent);
    play(VideoTrack, FixedPoint<16>(10), m_other);
    play(VideoTrack, FixedPoint<16>(110), m_agent);
    EXPECT_FALSE(hasOpen(m_agent, s_first));
    EXPECT_TRUE(hasOpen(m_other, s_first));
    play(VideoTrack, FixedPoint<16>(11), m_other);
    m_movie->close(nullptr, m_agent).discard();
    m_movie->close(nullptr, m_other).discard();
}

TEST_F(ClipsInFiles, AReadOfThePrimaryLetsGoOfTheTracksOtherFilesAndKeepsThose) {
    play(AudioTrack, FixedPoint<16>(110), m_agent);
    play(AudioTrack, FixedPoint<16>(250), m_agent);
    EXPECT_FALSE(hasOpen(m_agent, s_first));
    EXPECT_TRUE(hasOpen(m_agent, s_second));
    play(AudioTrack, FixedPoint<16>(5), m_agent);
    EXPECT_FALSE(hasOpen(m_agent, s_second));
    EXPECT_TRUE(hasOpen(m_agent, s_primary));
    // A track of one clip closes nothing.
    play(LineTrack, FixedPoint<16>(5), m_agent);
    play(AncTrack, FixedPoint<16>(5), m_agent);
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 2u);
    m_movie->close(nullptr, m_agent).discard();
}

TEST_F(ClipsInFiles, AReadOfThePrimaryAloneOpensNothingElse) {
    play(AudioTrack, FixedPoint<16>(5), m_agent);
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 1u);
    // It didn't make the movie hold its primary, so a secondary's first read does.
    play(VideoTrack, FixedPoint<16>(5), m_other);
    EXPECT_EQ(m_movie->getNumOpenFiles(m_other), 2u);
    m_movie->close(nullptr, m_agent).discard();
    m_movie->close(nullptr, m_other).discard();
}

TEST_F(ClipsInFiles, LineDataOfAnOldWriterIsReadOneFrameOnAndShownWhereItWasAskedFor) {
    EXPECT_EQ(track(VideoTrack).getSyncAdjustment(), 0);
    EXPECT_EQ(track(LineTrack).getSyncAdjustment(), 1);
    EXPECT_EQ(track(AncTrack).getSyncAdjustment(), 1);
    EXPECT_EQ(track(AudioTrack).getSyncAdjustment(), 0);
    for (const unsigned frame : {0u, 1u, 99u, 199u}) {
        SCOPED_TRACE(frame);
        EXPECT_EQ(movie().getSyncAdjustedFrame(frame, LineTrack), frame + 1);
        MediaSampleInMovie sample;
        ASSERT_TRUE(place(LineTrack, FixedPoint<16>(static_cast<int>(frame)), sample));
        EXPECT_EQ(sample.m_sample, frame);
        EXPECT_EQ(sample.m_anchor, frame);
        expectBytes(sample, 4016 + 4ull * (frame + 1), 4);
        ASSERT_TRUE(place(AncTrack, FixedPoint<16>(static_cast<int>(frame)), sample));
        EXPECT_EQ(sample.m_sample, frame);
        expectBytes(sample, 1000 + 8ull * (frame + 1), 8);
        ASSERT_TRUE(place(VideoTrack, FixedPoint<16>(static_cast<int>(frame)), sample));
        expectBytes(sample, (frame < 100 ? 16 : 32) + 40ull * (frame % 100), 40);
    }
}

TEST_F(ClipsInFiles, TheLastFrameOfAdjustedLineDataIsPastTheEndOfItsFile) {
    m_tree.writePattern("first.raw", 4016 + 201 * 4);
    MediaSampleInMovie sample;
    EXPECT_FALSE(place(LineTrack, FixedPoint<16>(200), sample));
    EXPECT_TRUE(m_result.success());
    ASSERT_TRUE(place(LineTrack, FixedPoint<16>(199), sample));
    expectBytes(sample, 4016 + 200 * 4, 4);
    // A file that has grown serves it.
    m_tree.writePattern("first.raw", 6000);
    ASSERT_TRUE(place(LineTrack, FixedPoint<16>(200), sample));
    EXPECT_EQ(sample.m_sample, 200u);
    expectBytes(sample, 4016 + 201 * 4, 4);
}

TEST_F(ClipsInFiles, LineDataOfANewWriterIsReadWhereItIs) {
    make(SwVersion(5, 4, 0, 0));
    EXPECT_EQ(track(LineTrack).getSyncAdjustment(), 0);
    MediaSampleInMovie sample;
    ASSERT_TRUE(place(LineTrack, FixedPoint<16>(7), sample));
    expectBytes(sample, 4016 + 4 * 7, 4);
}

TEST_F(ClipsInFiles, TheMovieKnowsItsFilesByItsClips) {
    EXPECT_EQ(m_movie->getMediaCount(), 3u);
    EXPECT_EQ(m_movie->findClipUsing(m_movie->getMediaId(s_primary)), track(AncTrack).getClip(0));
    EXPECT_EQ(m_movie->findClipUsing(m_movie->getMediaId(s_first)), track(VideoTrack).getClip(0));
    EXPECT_EQ(m_movie->findClipUsing(m_movie->getMediaId(s_second)), track(VideoTrack).getClip(1));
    EXPECT_EQ(track(VideoTrack).commonId(), nullptr);
    EXPECT_EQ(track(LineTrack).commonId(), m_movie->getMediaId(s_first));
    EXPECT_EQ(m_movie->commonId(), nullptr);
    EXPECT_EQ(track(VideoTrack).getContainment(), MediaContainment::ByRef);
    EXPECT_EQ(track(AncTrack).getContainment(), MediaContainment::Embedded);
    EXPECT_EQ(track(AudioTrack).getContainment(), MediaContainment::Mixed);
    EXPECT_EQ(m_movie->getContainment(), MediaContainment::Mixed);
    EXPECT_EQ(m_movie->calcEncoding(), MediaEncodingType::Mixed);
}
