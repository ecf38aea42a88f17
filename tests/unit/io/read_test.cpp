#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "services/system/msg_clamp.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"

using kit::FakeFile;
using kit::formatted;
using kit::idOf;
using kit::isError;
using kit::isWarning;
using kit::MovieScript;
using kit::patternFrom;
using kit::ReadHook;
using kit::sampleOf;
using kit::ScriptedMovie;
using kit::TempTree;
using Chunk = MediaSampleDesc::Chunk;

namespace {

// A movie over a handle that answers what it is told to.
class FakeRead : public kit::CacheScene {
protected:
    FakeRead() {
        m_fake->m_content = patternFrom(0, 1000);
        m_movie->allocMediaId(AutoRefPtr<BasicFileIO>(m_fake));
        m_req.m_cb = &m_hook;
    }
    void TearDown() override {
        m_movie = nullptr;
        CacheScene::TearDown();
    }
    OpResult read(const MediaSampleInMovie& sample) {
        m_req.m_sample = sample;
        return m_movie->vaRead(m_req);
    }

    FakeFile* const m_fake = new FakeFile;
    AutoReleasePtr<ScriptedMovie> m_movie{new ScriptedMovie(MovieScript(), {}, true, MediaObj::CacheRefValue::None)};
    ReadHook m_hook;
    MediaReadReq m_req;
    MediaIoBuf m_buf;
};

// A movie with media in files of its own.
class FileRead : public kit::CacheScene {
protected:
    FileRead() {
        m_req.m_cb = &m_hook;
        m_script.audioIn(m_second, 100);
        m_script.m_files.push_back(m_third);
        kit::ClipScript third = m_script.m_tracks[0].m_clips[0];
        third.m_file = 2;
        kit::ClipScript own = third;
        own.m_file = 0;
        m_script.m_tracks[0].m_clips.push_back(third);
        m_script.m_tracks[0].m_clips.push_back(own);
    }
    void openMovie() { m_movie = open(scripted("movie.hdcam", m_script)); }
    ~FileRead() override { EXPECT_EQ(m_movie, nullptr); }
    void letGo() {
        m_movie->close(nullptr, m_agent).discard();
        m_movie->release();
        m_movie = nullptr;
    }

    ReadHook m_hook;
    MediaReadReq m_req;
    kit::Client m_client;
    const MediaAgent m_agent{&m_client};
    const std::string m_second = m_tree.writePattern("second.raw", 5000);
    const std::string m_third = m_tree.writePattern("third.raw", 5000);
    MovieScript m_script;
    ScriptedMovie* m_movie = nullptr;
};

}  // namespace

TEST(ReadReqText, TellsTagOriginFlagsAndSample) {
    MediaReadReq req;
    req.m_tag = reinterpret_cast<const void*>(0x10);
    req.m_sample = sampleOf({Chunk(64, 32)});
    const std::string sample = req.m_sample.toString(Brevity::Short).get();
    EXPECT_EQ(std::string(req.toString().get()), "tag=0x10,extReq," + sample);
    req.setOrigin(MediaReadReq::Origin::Internal);
    req.m_frag = true;
    EXPECT_EQ(std::string(req.toString().get()), "tag=0x10,intReq,frag," + sample);
    req.setOrigin(MediaReadReq::Origin::Redirected);
    req.m_frag = false;
    req.m_cacheL2 = true;
    EXPECT_EQ(std::string(req.toString().get()), "tag=0x10,intcpt,cL2R," + sample);
    req.m_frag = true;
    req.setOrigin(static_cast<MediaReadReq::Origin>(3));
    EXPECT_EQ(std::string(req.toString().get()), "tag=0x10,frag,cL2R," + sample);
}

TEST(ReadReqOrigin, IsExactlyOneOfThree) {
    MediaReadReq req;
    EXPECT_TRUE(req.isExternalReq());
    req.setOrigin(static_cast<MediaReadReq::Origin>(1));
    EXPECT_TRUE(req.isInternalReq());
    EXPECT_FALSE(req.isExternalReq());
    req.setOrigin(static_cast<MediaReadReq::Origin>(2));
    EXPECT_TRUE(req.isRedirectedReq());
    EXPECT_FALSE(req.isInternalReq());
}

TEST(ReadNotifyRecord, NullBufferTellsAFailure) {
    int tag = 0;
    const BasicIOTypes::ReadNotify good(nullptr, &tag);
    EXPECT_EQ(good.m_status, 0);
    EXPECT_EQ(good.m_tag, &tag);
    const BasicIOTypes::ReadNotify bad(&tag, 5);
    EXPECT_EQ(bad.m_obuf, nullptr);
    EXPECT_EQ(bad.m_status, 5);
}

TEST_F(FakeRead, SampleWithoutSizeOrOffsetIsAnError) {
    EXPECT_TRUE(isError(read(sampleOf({})), 1));
    EXPECT_TRUE(isError(read(sampleOf({Chunk(0xFFFFFFFF, 4)})), 1));
    EXPECT_TRUE(isError(read(sampleOf({Chunk(0, 0xFFFFFFFF)})), 1));
    EXPECT_EQ(m_hook.count(), 0u);
    EXPECT_EQ(m_fake->m_asyncCalls, 0);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(FakeRead, OneChunkGoesStraightToTheFileWithTheCallersHookAndMarks) {
    int tag = 0;
    m_req.m_tag = &tag;
    m_req.m_allocId = 9;
    m_req.m_frag = true;
    m_req.m_cacheL2 = true;
    EXPECT_TRUE(read(sampleOf({Chunk(0x123456789ull, 77)})));
    EXPECT_EQ(m_fake->m_asyncCalls, 1);
    EXPECT_EQ(m_fake->m_lastHook, &m_hook);
    EXPECT_EQ(m_fake->m_lastOffset, 0x123456789ull);
    EXPECT_EQ(m_fake->m_lastSize, 77u);
    EXPECT_EQ(m_fake->m_lastAllocId, 9u);
    EXPECT_EQ(m_fake->m_lastTag, &tag);
    EXPECT_TRUE(m_fake->m_lastFrag);
    EXPECT_TRUE(m_fake->m_lastCacheL2);
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FakeRead, RefusedRequestIsAReadErrorAndTheHookStaysSilent) {
    m_fake->m_asyncAnswer = false;
    EXPECT_TRUE(isWarning(read(sampleOf({Chunk(0, 4)})), 13));
    EXPECT_EQ(m_hook.count(), 0u);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(FakeRead, WithoutAHandleTheReadFailsWithALineThatSaysSo) {
    MediaFileList list;
    m_req.m_sample = sampleOf({Chunk(0, 4), Chunk(8, 4)});
    EXPECT_TRUE(isWarning(list.read(m_req, AutoRefPtr<BasicFileIO>(), false), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaFileList::read(8b,2chk) fails, srcfp null"), 1u) << m_log.text();
    m_req.m_sample = sampleOf({});
    EXPECT_TRUE(isWarning(list.read(m_req, AutoRefPtr<BasicFileIO>(m_fake), false), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaFileList::read(0b,0chk) fails, srcfp valid"), 1u) << m_log.text();
}

TEST_F(FakeRead, FileOfTheMovieThatCannotBeHadIsDealtWithByTheRoad) {
    EXPECT_TRUE(isWarning(read(sampleOf({Chunk(0, 4)}, idOf(7))), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaFileList::read(4b,1chk) fails, srcfp null"), 1u) << m_log.text();
    EXPECT_TRUE(isWarning(m_movie->vsRead(sampleOf({Chunk(0, 4)}, idOf(7)), m_buf), 1));
}

namespace {

struct MissCase {
    const char* m_what;
    MediaReadReq::Origin m_origin;
    bool m_cacheL2, m_frag, m_switch, m_recording, m_cached;
    bool m_told;
};

using Origin = MediaReadReq::Origin;

const MissCase s_misses[] = {
    {"internal whole read", Origin::Internal, true, false, false, false, false, true},
    {"internal fragment", Origin::Internal, true, true, false, false, false, false},
    {"internal fragment under the switch", Origin::Internal, true, true, true, false, false, true},
    {"no cache expected", Origin::Internal, false, false, true, false, false, false},
    {"in the cache", Origin::Internal, true, false, true, false, true, false},
    {"movie that records", Origin::Internal, true, false, true, true, false, false},
    {"external", Origin::External, true, false, true, false, false, false},
    {"redirected", Origin::Redirected, true, false, true, false, false, false},
};

}  // namespace

TEST_F(FakeRead, MissIsToldForInternalReadsThatExpectTheCacheOnly) {
    for (const MissCase& row : s_misses) {
        m_log.clear();
        mediaObjDbg.set(row.m_switch ? 1u << MediaDbg::MediaCache : 0u);
        m_fake->m_cachedAnswer = row.m_cached;
        ASSERT_TRUE(m_movie->setRecording(row.m_recording));
        m_req.setOrigin(row.m_origin);
        m_req.m_cacheL2 = row.m_cacheL2;
        m_req.m_frag = row.m_frag;
        EXPECT_TRUE(read(sampleOf({Chunk(0, 4)}))) << row.m_what;
        const std::string line = std::string("/nowhere/fake: media read cache miss: ") + m_req.toString().get();
        EXPECT_EQ(m_log.count(LogLevel::Info, line), row.m_told ? 1u : 0u) << row.m_what << "\n" << m_log.text();
        EXPECT_EQ(m_log.lines().size(), row.m_told ? 1u : 0u) << row.m_what;
    }
    // The notice changes nothing: every read went its way.
    EXPECT_EQ(m_fake->m_asyncCalls, static_cast<int>(std::size(s_misses)));
}

TEST_F(FakeRead, SynchronousReadFillsTheBufferChunkByChunk) {
    EXPECT_TRUE(m_movie->vsRead(sampleOf({Chunk(100, 10), Chunk(500, 20)}), m_buf));
    ASSERT_EQ(m_buf.size(), 30u);
    const std::string got(reinterpret_cast<const char*>(m_buf.getMem()), 30);
    EXPECT_EQ(got, patternFrom(100, 10) + patternFrom(500, 20));
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FakeRead, ShortSynchronousReadStopsAndTellsWhatCame) {
    m_fake->m_shortRead = 1;
    m_fake->m_shortBytes = 6;
    const OpResult result = m_movie->vsRead(sampleOf({Chunk(100, 10), Chunk(500, 20)}), m_buf);
    EXPECT_TRUE(isWarning(result, 13));
    const char* const text = "MediaFileList::read(/nowhere/fake,c[0]=10b@100)-->6b, fileSz=1000";
    EXPECT_STREQ(result.getMessage(), text);
    EXPECT_EQ(m_log.count(LogLevel::Error, text), 1u) << m_log.text();
    EXPECT_EQ(m_fake->m_readCalls, 1);
}

TEST_F(FakeRead, SecondChunkThatIsShortIsNamedByItsIndex) {
    const OpResult result = m_movie->vsRead(sampleOf({Chunk(0, 10), Chunk(990, 20)}), m_buf);
    EXPECT_TRUE(isWarning(result, 13));
    EXPECT_STREQ(result.getMessage(), "MediaFileList::read(/nowhere/fake,c[1]=20b@990)-->10b, fileSz=1000");
}

TEST_F(FakeRead, NegativeAnswerCountsAsShort) {
    m_fake->m_readAnswer = -1;
    const OpResult result = m_movie->vsRead(sampleOf({Chunk(0, 10)}), m_buf);
    EXPECT_TRUE(isWarning(result, 13));
    EXPECT_STREQ(result.getMessage(), "MediaFileList::read(/nowhere/fake,c[0]=10b@0)-->-1b, fileSz=1000");
}

TEST_F(FakeRead, SampleBeyondTheBuffersLimitIsRefusedInSilence) {
    EXPECT_TRUE(isWarning(m_movie->vsRead(sampleOf({Chunk(0, 0x800001)}), m_buf), 1));
    EXPECT_EQ(m_fake->m_readCalls, 0);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(FakeRead, ChunksThatAddUpToMoreThanTheirSampleNeverRunPastTheBuffer) {
    MediaSampleInMovie sample = sampleOf({Chunk(0, 10), Chunk(20, 10)});
    sample.m_info.setSize(15);
    EXPECT_TRUE(isWarning(m_movie->vsRead(sample, m_buf), 1));
    EXPECT_EQ(m_fake->m_readCalls, 1);
}

TEST_F(FakeRead, FailingFileDoesNotFloodTheLog) {
    constexpr unsigned rounds = 400;
    m_fake->m_readAnswer = -1;
    m_fake->m_cachedAnswer = false;
    m_req.setOrigin(Origin::Internal);
    m_req.m_cacheL2 = true;
    MediaFileList list;
    list.getIndex(m_tree.path("protected.raw").c_str());
    list.setReadOnly();
    const long long start = Clock::nowRelative();
    for (unsigned i = 0; i < rounds; ++i) {
        EXPECT_TRUE(isWarning(m_movie->vsRead(sampleOf({Chunk(0, 10)}), m_buf), 13));
        EXPECT_TRUE(read(sampleOf({Chunk(0, 4)})));
        EXPECT_TRUE(isWarning(list.write(sampleOf({Chunk(0, 4)}), kit::obufOf("abcd")), 1));
    }
    const auto seconds = static_cast<unsigned>((Clock::nowRelative() - start) / 1000000) + 2;
    for (const char* line : {"MediaFileList::read(*", "*media read cache miss*", "MO: no fp*"}) {
        EXPECT_GT(m_log.count(line), 0u) << line;
        EXPECT_LE(m_log.count(line), MsgClamp::s_linesPerSecond * seconds) << line;
    }
}

TEST_F(FileRead, AsynchronousReadBringsTheBytesOfTheFile) {
    openMovie();
    int tag = 0;
    m_req.m_tag = &tag;
    m_req.m_sample = sampleOf({Chunk(1234, 300)}, idOf(2));
    m_req.m_sample.m_agent = m_agent;
    EXPECT_TRUE(m_movie->vaRead(m_req));
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    const ReadHook::Answer answer = m_hook.answers()[0];
    EXPECT_FALSE(answer.m_null);
    EXPECT_EQ(answer.m_tag, &tag);
    EXPECT_EQ(answer.m_status, 0);
    EXPECT_EQ(answer.m_bytes, patternFrom(1234, 300));
    letGo();
}

TEST_F(FileRead, TwoChunksComeAsOneAnswer) {
    openMovie();
    m_req.m_sample = sampleOf({Chunk(4000, 100), Chunk(10, 50)}, idOf(3));
    m_req.m_sample.m_agent = m_agent;
    EXPECT_TRUE(m_movie->vaRead(m_req));
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(4000, 100) + patternFrom(10, 50));
    EXPECT_EQ(m_hook.count(), 1u);
    letGo();
}

TEST_F(FileRead, ClipsOffsetLeadsToItsBytes) {
    openMovie();
    const MediaClipDesc* clip = m_movie->track(0).getClip(0);
    MediaSampleInMovie sample;
    ASSERT_TRUE(clip->getMediaOffset(MediaPlayReq(7, 3, m_agent), sample, m_result));
    MediaIoBuf buf;
    EXPECT_TRUE(m_movie->vsRead(sample, buf));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buf.getMem()), buf.size()), patternFrom(28, 12));
    letGo();
}

TEST_F(FileRead, CloseOtherClosesTheTracksOtherSecondariesForThisClient) {
    openMovie();
    for (std::uintptr_t id : {1, 2, 3})
        m_movie->getFp(m_result, idOf(id), m_agent);
    ASSERT_EQ(m_movie->getNumOpenFiles(m_agent), 3u);
    m_req.m_sample = sampleOf({Chunk(0, 4)}, idOf(3));
    m_req.m_sample.set(m_agent, idOf(3), 0, 1, OsPathId(), true);
    EXPECT_TRUE(m_movie->vaRead(m_req));
    // The primary and the file that is read stay.
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 2u);
    EXPECT_EQ(m_movie->m_fileCloses, 1);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    m_req.m_sample.set(m_agent, idOf(1), 0, 2, OsPathId(), true);
    EXPECT_TRUE(m_movie->vaRead(m_req));
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 1u);
    ASSERT_TRUE(m_hook.waitForAnswers(2));
    letGo();
}

TEST_F(FileRead, CloseOtherOnATrackOutOfRangeIsIgnored) {
    openMovie();
    for (unsigned track : {1u, 0xFFFFu}) {
        m_req.m_sample = sampleOf({Chunk(0, 4)}, idOf(2));
        m_req.m_sample.set(m_agent, idOf(2), track, 0, OsPathId(), true);
        EXPECT_TRUE(m_movie->vaRead(m_req));
    }
    EXPECT_EQ(m_movie->m_fileCloses, 0);
    ASSERT_TRUE(m_hook.waitForAnswers(2));
    letGo();
}

TEST_F(FileRead, CloseOtherPassesOverAClipThatIsInNoFile) {
    kit::ClipScript nowhere = m_script.m_tracks[0].m_clips[0];
    nowhere.m_file = 9;
    m_script.m_tracks[0].m_clips.push_back(nowhere);
    openMovie();
    ASSERT_EQ(m_movie->track(0).getClip(3)->getMediaId(), nullptr);
    for (std::uintptr_t id : {1, 3})
        m_movie->getFp(m_result, idOf(id), m_agent);
    m_req.m_sample = sampleOf({Chunk(0, 4)}, idOf(3));
    m_req.m_sample.set(m_agent, idOf(3), 0, 1, OsPathId(), true);
    EXPECT_TRUE(m_movie->vaRead(m_req));
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 2u);
    EXPECT_EQ(m_movie->m_closes, 0);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(0, 4));
    letGo();
}

TEST_F(FileRead, SynchronousReadClosesNoOtherFile) {
    openMovie();
    for (std::uintptr_t id : {1, 2, 3})
        m_movie->getFp(m_result, idOf(id), m_agent);
    MediaSampleInMovie sample = sampleOf({Chunk(0, 4)}, idOf(3));
    sample.set(m_agent, idOf(3), 0, 1, OsPathId(), true);
    MediaIoBuf buf;
    EXPECT_TRUE(m_movie->vsRead(sample, buf));
    EXPECT_EQ(m_movie->getNumOpenFiles(m_agent), 3u);
    letGo();
}

TEST_F(FileRead, StaticReadGoesThroughTheLiveObjectOfTheFile) {
    openMovie();
    m_req.m_sample = sampleOf({Chunk(8, 8)}, idOf(2));
    m_req.m_sample.m_agent = m_agent;
    m_req.m_sample.m_pathId = m_movie->impl().getCacheId();
    EXPECT_TRUE(MediaObj::saRead(m_req));
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(8, 8));
    EXPECT_EQ(m_movie->getReferenceCount(), 2);
    letGo();
}

TEST_F(FileRead, StaticReadWithoutALiveObjectIsToldAndTheHookStaysSilent) {
    m_req.m_sample = sampleOf({Chunk(8, 8)}, idOf(2));
    m_req.m_sample.m_pathId = OsPathId(0xabcdef);
    EXPECT_TRUE(isWarning(MediaObj::saRead(m_req), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, std::string("MO::saRead: no object for ") + m_req.toString().get()), 1u)
        << m_log.text();
    EXPECT_EQ(m_hook.count(), 0u);
}
