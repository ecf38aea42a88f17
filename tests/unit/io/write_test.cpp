#include <gtest/gtest.h>
#include <sys/stat.h>

#include "mediautil/object/media_obj_impl.h"
#include "services/file/async_engine.h"
#include "services/file/file_calls.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/samples.h"
#include "tests/kit/wait_for.h"

using kit::bytesAt;
using kit::formatted;
using kit::idOf;
using kit::isError;
using kit::isWarning;
using kit::obufOf;
using kit::patternFrom;
using kit::sampleOf;
using Chunk = MediaSampleDesc::Chunk;

// The roads of a write, on files that are there, read back without the library.

namespace {

// Writes and their failures in a file list that has one file, which isn't there yet.
class Write : public kit::CacheScene {
protected:
    Write() { m_list.getIndex(m_path.c_str()); }
    ~Write() override { FileCalls::setFault(nullptr); }
    void TearDown() override {
        // The writes that are under way hold their buffers still.
        m_list.flush(0);
        FileCalls::setFault(nullptr);
        CacheScene::TearDown();
        EXPECT_EQ(m_leaks.difference(), "");
    }
    OpResult write(const MediaSampleInMovie& sample, const std::string& bytes) {
        MediaIoBuf buf;
        kit::fill(buf, bytes);
        return m_list.write(sample, static_cast<const MediaIoBuf&>(buf));
    }
    OpResult writeObuf(const MediaSampleInMovie& sample, const std::string& bytes) {
        return m_list.write(sample, obufOf(bytes));
    }
    std::string written(unsigned long long offset, std::size_t size) {
        m_list.flush(0);
        return bytesAt(m_path, offset, size);
    }
    unsigned long long length() const {
        struct stat stat = {};
        return ::stat(m_path.c_str(), &stat) == 0 ? static_cast<unsigned long long>(stat.st_size) : 0;
    }
    static std::string text(const MediaSampleInMovie& sample) { return sample.toString(Brevity::Long).get(); }

    const kit::LeakCheck m_leaks = warm();
    const std::string m_path = m_tree.path("media.raw");
    MediaFileList m_list;

private:
    // The engine's threads stay from its first request on.
    kit::LeakCheck warm() const {
        MediaFileList list;
        list.getIndex(m_tree.path("warm.raw").c_str());
        EXPECT_TRUE(list.write(sampleOf({Chunk(0, 1)}), obufOf("x")));
        list.flush(0);
        return {};
    }
};

// Lets writes fail: the first ones move at most so many bytes, and what comes behind them meets a full device.
std::atomic<int> s_goodWrites{0};
std::atomic<std::size_t> s_mostBytes{0};
int fillUp(FileCall call, const char*, int, std::size_t& size) {
    if (call != FileCall::Write) return 0;
    if (s_goodWrites-- <= 0) return ENOSPC;
    if (size > s_mostBytes) size = s_mostBytes;
    return 0;
}
void limitDevice(int goodWrites, std::size_t mostBytes) {
    s_goodWrites = goodWrites;
    s_mostBytes = mostBytes;
    FileCalls::setFault(fillUp);
}

// Behind three bytes that are there, a write that failed when nobody waited for it any more.
class LateFailure : public Write {
protected:
    void SetUp() override {
        Write::SetUp();
        EXPECT_TRUE(writeObuf(sampleOf({Chunk(0, 3)}), "abc"));
        EXPECT_EQ(written(0, 9), "abc");
        limitDevice(0, 0);
        EXPECT_TRUE(writeObuf(sampleOf({Chunk(3, 3)}), "def"));
        ASSERT_TRUE(kit::waitFor([] { return AsyncEngine::get().idle(); }));
        FileCalls::setFault(nullptr);
    }
};

}  // namespace

TEST_F(Write, ChunksGoToTheirPlacesOneBehindTheOtherInTheBuffer) {
    EXPECT_TRUE(write(sampleOf({Chunk(100, 10), Chunk(20, 5)}), patternFrom(0, 15)));
    EXPECT_EQ(bytesAt(m_path, 100, 100), patternFrom(0, 10));
    EXPECT_EQ(bytesAt(m_path, 20, 5), patternFrom(10, 5));
    EXPECT_EQ(bytesAt(m_path, 25, 5), std::string(5, '\0'));
    EXPECT_EQ(length(), 110u);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Write, BufferMayHoldMoreThanTheSample) {
    EXPECT_TRUE(write(sampleOf({Chunk(0, 10)}), patternFrom(0, 4000)));
    EXPECT_EQ(bytesAt(m_path, 0, 100), patternFrom(0, 10));
}

TEST_F(Write, SampleWithoutBytesIsOkAndTouchesNoFile) {
    EXPECT_TRUE(write(sampleOf({}), "abc"));
    EXPECT_TRUE(write(sampleOf({Chunk(5, 0), Chunk(9, 0)}), "abc"));
    // Not even one that isn't there.
    EXPECT_TRUE(write(sampleOf({}, idOf(9)), "abc"));
    EXPECT_TRUE(m_list.write(sampleOf({}, idOf(9)), nullptr));
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(5, 0)}), ""));
    EXPECT_FALSE(m_tree.exists("media.raw"));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Write, FileThatTheListDoesNotHaveIsAnErrorWithALine) {
    const MediaSampleInMovie sample = sampleOf({Chunk(0, 3)}, idOf(9));
    EXPECT_TRUE(isError(write(sample, "abc"), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO: no fp for write(" + text(sample) + ",MediaIoBuf)"), 1u) << m_log.text();
    EXPECT_TRUE(isError(write(sampleOf({Chunk(0, 3)}, nullptr), "abc"), 1));
}

TEST_F(Write, WithoutAWriteHandleTheResultIsThatOfGettingOne) {
    m_list.setReadOnly();
    const MediaSampleInMovie sample = sampleOf({Chunk(0, 3)});
    EXPECT_TRUE(isWarning(write(sample, "abc"), 16));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO: no fp for write(" + text(sample) + ",MediaIoBuf)"), 1u) << m_log.text();
    EXPECT_FALSE(m_tree.exists("media.raw"));
}

TEST_F(Write, ChunksLargerThanTheirBufferAreRefusedBeforeTheFirstByte) {
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(0, 3), Chunk(10, 3)}), "abcde"), 1));
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(0, 1)}), ""), 1));
    // Two halves of 2^32 bytes are not nothing.
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(0, 0x80000000), Chunk(0, 0x80000000)}), "abcde"), 1));
    MediaSampleInMovie three = sampleOf({Chunk(0, 1), Chunk(1, 1)});
    three.m_numChunks = 3;
    EXPECT_TRUE(isWarning(write(three, "abcde"), 1));
    EXPECT_EQ(length(), 0u);
    EXPECT_TRUE(write(sampleOf({Chunk(0, 3), Chunk(10, 2)}), "abcde"));
    EXPECT_EQ(bytesAt(m_path, 10, 2), "de");
}

TEST_F(Write, ShortWriteStopsThere) {
    limitDevice(1, 4);
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(0, 10), Chunk(50, 5)}), patternFrom(0, 15)), 12));
    EXPECT_EQ(bytesAt(m_path, 0, 100), patternFrom(0, 4));
    FileCalls::setFault(nullptr);
    EXPECT_TRUE(write(sampleOf({Chunk(0, 10), Chunk(50, 5)}), patternFrom(0, 15)));
    EXPECT_EQ(bytesAt(m_path, 0, 10), patternFrom(0, 10));
    EXPECT_EQ(bytesAt(m_path, 50, 100), patternFrom(10, 5));
}

TEST_F(Write, SecondChunkThatFailsLeavesTheFirstWritten) {
    limitDevice(1, 1000);
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(0, 10), Chunk(50, 5)}), patternFrom(0, 15)), 12));
    EXPECT_EQ(bytesAt(m_path, 0, 100), patternFrom(0, 10));
}

TEST_F(Write, ObufGoesToThePlaceOfTheFirstChunkWhole) {
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(30, 10)}), patternFrom(0, 10)));
    EXPECT_EQ(written(30, 100), patternFrom(0, 10));
    // The second chunk says where nothing goes.
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(100, 6), Chunk(500, 6)}), patternFrom(5, 12)));
    EXPECT_EQ(written(100, 1000), patternFrom(5, 12));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Write, ObufOfManyPiecesArrivesInOrder) {
    phantom_OBUF* const whole = obufOf(patternFrom(0, 10));
    std::string bytes = patternFrom(0, 10);
    for (unsigned i = 1; i < 300; ++i) {
        ASSERT_NE(obufInsert(whole, obufOf(patternFrom(7 * i, 10)), obufAppend), 0);
        bytes += patternFrom(7 * i, 10);
    }
    EXPECT_TRUE(m_list.write(sampleOf({Chunk(30, 3000)}), whole));
    EXPECT_EQ(written(30, 4000), bytes);
}

TEST_F(Write, ObufSmallerThanItsSampleIsWritten) {
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(0, 10)}), patternFrom(0, 4)));
    EXPECT_EQ(written(0, 100), patternFrom(0, 4));
}

TEST_F(Write, ObufTooLargeIsRefusedWithALineThatSaysSo) {
    const MediaSampleInMovie sample = sampleOf({Chunk(0, 10)});
    phantom_OBUF* const obuf = obufOf(patternFrom(0, 11));
    const std::string pointer = formatted("%p", static_cast<void*>(obuf));
    EXPECT_TRUE(isWarning(m_list.write(sample, obuf), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO(" + m_path + "): obuf too large, expected 10b,got 11b: write(" +
                                               text(sample) + ",obuf=" + pointer + ",sz=11,max=10)"),
              1u)
        << m_log.text();
    EXPECT_EQ(written(0, 100), "");
}

TEST_F(Write, SampleWithoutBytesRejectsAnObufThatHasSome) {
    const MediaSampleInMovie sample = sampleOf({});
    EXPECT_TRUE(isWarning(writeObuf(sample, "abc"), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO(" + m_path + "): obuf too large, expected 0b,got 3b: write(" +
                                               text(sample) + ",obuf=*,sz=3,max=0)"),
              1u)
        << m_log.text();
}

TEST_F(Write, SampleOfTwoGibibytesOrMoreSetsNoLimit) {
    for (const unsigned size : {0x80000000u, 0xFFFFFFFFu}) {
        MediaSampleInMovie sample = sampleOf({Chunk(0, 4)});
        sample.m_info.setSize(size);
        EXPECT_TRUE(writeObuf(sample, patternFrom(size, 4000)));
        EXPECT_EQ(written(0, 5000), patternFrom(size, 4000));
    }
    MediaSampleInMovie sample = sampleOf({Chunk(0, 4)});
    sample.m_info.setSize(0x7FFFFFFF);
    EXPECT_TRUE(writeObuf(sample, patternFrom(9, 4000)));
    EXPECT_EQ(written(0, 5000), patternFrom(9, 4000));
}

TEST_F(Write, MissingObufIsRefusedWithALineThatSaysSo) {
    const MediaSampleInMovie sample = sampleOf({Chunk(0, 10)});
    EXPECT_TRUE(isWarning(m_list.write(sample, nullptr), 1));
    const std::string null = formatted("%p", static_cast<void*>(nullptr));
    EXPECT_EQ(
        m_log.count(LogLevel::Error, "MO(" + m_path + "): no obuf: write(" + text(sample) + ",obuf=" + null + ")"), 1u)
        << m_log.text();
}

TEST_F(Write, MissingObufOfASampleThatClaimsNoSizeIsRefusedByTheFile) {
    MediaSampleInMovie sample = sampleOf({Chunk(0, 10)});
    sample.m_info.setSize(0);
    EXPECT_TRUE(isWarning(m_list.write(sample, nullptr), 12));
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(0, 3)}), "abc"));
    EXPECT_EQ(written(0, 9), "abc");
}

TEST_F(Write, ObufWithoutAHandleIsRefusedWithALineThatSaysSo) {
    m_list.setReadOnly();
    const MediaSampleInMovie sample = sampleOf({Chunk(0, 10)});
    EXPECT_TRUE(isWarning(writeObuf(sample, "abc"), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO: no fp: write(" + text(sample) + ",obuf=*,sz=3,max=10)"), 1u)
        << m_log.text();
    EXPECT_TRUE(isWarning(m_list.write(sample, nullptr), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MO: no fp: write(" + text(sample) + ",obuf=*)"), 2u) << m_log.text();
    EXPECT_TRUE(isWarning(writeObuf(sampleOf({}, idOf(9)), "abc"), 1));
}

TEST_F(LateFailure, IsToldByTheNextWriteAndTheOneBehindGoesOn) {
    EXPECT_TRUE(isWarning(writeObuf(sampleOf({Chunk(6, 3)}), "ghi"), 12));
    EXPECT_TRUE(writeObuf(sampleOf({Chunk(3, 3)}), "jkl"));
    EXPECT_EQ(written(0, 9), "abcjkl");
}

TEST_F(LateFailure, IsToldByASynchronousWriteToo) {
    EXPECT_TRUE(isWarning(write(sampleOf({Chunk(6, 3)}), "ghi"), 12));
    EXPECT_TRUE(write(sampleOf({Chunk(6, 3)}), "ghi"));
    EXPECT_EQ(written(6, 9), "ghi");
}

TEST_F(Write, ThousandObufsLandWhereTheyBelong) {
    std::string whole;
    for (unsigned i = 0; i < 1000; ++i) {
        EXPECT_TRUE(writeObuf(sampleOf({Chunk(whole.size(), 50 + i % 7)}), patternFrom(i, 50 + i % 7)));
        whole += patternFrom(i, 50 + i % 7);
    }
    EXPECT_EQ(written(0, whole.size() + 1), whole);
}

namespace {

// Through a movie that the cache knows, into a file of its media.
class MovieWrite : public kit::CacheScene {
protected:
    MovieWrite() {
        m_script.audioIn(m_media, 100);
        m_movie = open(scripted("movie.hdcam", m_script));
    }
    void TearDown() override {
        m_movie->close(nullptr, MediaAgent(nullptr)).discard();
        m_movie->release();
        CacheScene::TearDown();
    }

    const std::string m_media = m_tree.writePattern("media.raw", 1000);
    kit::MovieScript m_script;
    kit::ScriptedMovie* m_movie;
};

}  // namespace

TEST_F(MovieWrite, SynchronousWriteReachesTheFileOfTheSample) {
    MediaIoBuf buf;
    kit::fill(buf, "abcdef");
    EXPECT_TRUE(m_movie->vsWrite(sampleOf({Chunk(10, 2), Chunk(990, 4)}, idOf(2)), buf));
    EXPECT_EQ(bytesAt(m_media, 9, 4), patternFrom(9, 1) + "ab" + patternFrom(12, 1));
    EXPECT_EQ(bytesAt(m_media, 989, 100), patternFrom(989, 1) + "cdef" + patternFrom(994, 6));
    EXPECT_EQ(bytesAt(m_tree.path("movie.hdcam"), 0, 9), "first");
}

TEST_F(MovieWrite, WhatWasWrittenIsReadBack) {
    MediaIoBuf buf, back;
    kit::fill(buf, patternFrom(77, 600));
    const MediaSampleInMovie sample = sampleOf({Chunk(2000, 500), Chunk(100, 100)}, idOf(2));
    EXPECT_TRUE(m_movie->vsWrite(sample, buf));
    EXPECT_TRUE(m_movie->vsRead(sample, back));
    EXPECT_EQ(kit::bytesOf(back), patternFrom(77, 600));
}

TEST_F(MovieWrite, AsynchronousWriteReachesTheFileOfTheSample) {
    EXPECT_TRUE(m_movie->vaWrite(sampleOf({Chunk(998, 4)}, idOf(2)), obufOf("wxyz")));
    m_movie->flush(idOf(2));
    EXPECT_EQ(bytesAt(m_media, 997, 10), patternFrom(997, 1) + "wxyz");
}

TEST_F(MovieWrite, StaticWriteGoesThroughTheLiveObjectOfTheFile) {
    MediaSampleInMovie sample = sampleOf({Chunk(0, 4)}, idOf(2));
    sample.m_pathId = m_movie->impl().getCacheId();
    EXPECT_TRUE(MediaObj::saWrite(sample, obufOf("wxyz")));
    m_movie->flush(idOf(2));
    EXPECT_EQ(bytesAt(m_media, 0, 5), "wxyz" + patternFrom(4, 1));
    EXPECT_EQ(m_movie->getReferenceCount(), 2);
}

TEST_F(MovieWrite, StaticWriteWithoutALiveObjectIsRefusedInSilenceAndFreesTheObuf) {
    m_cache.stopNews();
    const kit::LeakCheck leaks;
    MediaSampleInMovie sample = sampleOf({Chunk(0, 4)}, idOf(2));
    sample.m_pathId = OsPathId(0xabcdef);
    EXPECT_TRUE(isWarning(MediaObj::saWrite(sample, obufOf("wxyz")), 1));
    EXPECT_TRUE(isWarning(MediaObj::saWrite(sample, nullptr), 1));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_EQ(leaks.difference(), "");
    EXPECT_EQ(bytesAt(m_media, 0, 4), patternFrom(0, 4));
}
