#include <gtest/gtest.h>
#include <sys/stat.h>

#include "mediautil/object/media_obj_impl.h"
#include "services/file/async_engine.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

using kit::bytesAt;
using kit::idOf;
using kit::isError;
using kit::isWarning;
using kit::obufOf;
using kit::patternFrom;
using kit::sampleOf;
using Chunk = MediaSampleDesc::Chunk;

// Offsets, sizes and counts at the edges of the file and of the numbers that hold them. After each failure the next
// good request is served.

namespace {

constexpr unsigned kEnd = 5000;  // bytes of the file
constexpr unsigned long long k2To31 = 1ull << 31, k2To32 = 1ull << 32, k2To63 = 1ull << 63;
constexpr unsigned kMost = MediaIoBuf::s_maxSize;

class Numbers : public kit::CacheScene {
protected:
    Numbers() {
        m_script.audioIn(m_media, 100);
        m_script.m_tracks.emplace_back();  // a track without clips
        m_movie = open(scripted("movie.hdcam", m_script));
        m_req.m_cb = &m_hook;
    }
    void TearDown() override {
        m_movie->close(nullptr, MediaAgent(nullptr)).discard();
        m_movie->release();
        CacheScene::TearDown();
    }
    // Starts it; the answer, if one is to come, is the hook's next.
    OpResult readAsync(std::initializer_list<Chunk> chunks) {
        m_req.m_sample = sampleOf(chunks, idOf(2));
        return m_movie->vaRead(m_req);
    }
    kit::ReadHook::Answer nextAnswer() {
        EXPECT_TRUE(m_hook.waitForAnswers(++m_answers));
        return m_hook.answers()[m_answers - 1];
    }
    void expectGoodReads() {
        MediaIoBuf buf;
        EXPECT_TRUE(m_movie->vsRead(sampleOf({Chunk(11, 7)}, idOf(2)), buf));
        EXPECT_EQ(kit::bytesOf(buf), patternFrom(11, 7));
        EXPECT_TRUE(readAsync({Chunk(12, 8)}));
        EXPECT_EQ(nextAnswer().m_bytes, patternFrom(12, 8));
    }
    unsigned long long length() const {
        struct stat stat = {};
        return ::stat(m_media.c_str(), &stat) == 0 ? static_cast<unsigned long long>(stat.st_size) : 0;
    }

    const std::string m_media = m_tree.writePattern("media.raw", kEnd);
    kit::MovieScript m_script;
    kit::ScriptedMovie* m_movie;
    kit::ReadHook m_hook;
    unsigned m_answers = 0;
    MediaReadReq m_req;
};

enum class Outcome { Good, Error, Refused, TooLarge, Short };

struct Range {
    unsigned long long m_offset;
    unsigned m_size;
    Outcome m_sync;   // Short also where the file refuses the range
    Outcome m_async;  // Short: accepted, and a failure comes
};

constexpr auto Good = Outcome::Good, Short = Outcome::Short, Refused = Outcome::Refused, TooLarge = Outcome::TooLarge,
               Error = Outcome::Error;

const Range s_ranges[] = {
    {0, 0, Good, Good},
    {0, 1, Good, Good},
    {0, kEnd, Good, Good},
    {0, kEnd + 1, Short, Short},
    {0, kMost, Short, Short},
    {0, kMost + 1, TooLarge, Short},
    {0, 0x80000000u, TooLarge, Refused},
    {0, 0xFFFFFFFEu, TooLarge, Refused},
    {0, 0xFFFFFFFFu, TooLarge, Error},  // the mark of a size that isn't known
    {1, kEnd - 1, Good, Good},
    {1, kEnd, Short, Short},
    {kEnd - 1, 1, Good, Good},
    {kEnd - 1, 2, Short, Short},
    {kEnd, 0, Good, Good},
    {kEnd, 1, Short, Short},
    {kEnd + 1, 0, Good, Good},
    {kEnd + 1, 1, Short, Short},
    {k2To31, 0, Good, Good},
    {k2To31, 1, Short, Short},
    {k2To32 - 2, 1, Short, Short},
    {k2To32 - 1, 1, Short, Error},  // the mark of an offset that isn't known
    {k2To32, 0, Good, Good},
    {k2To32, 1, Short, Short},
    {k2To32, kEnd, Short, Short},
    {k2To63 - 1, 0, Good, Good},
    {k2To63 - 1, 1, Short, Refused},
    {k2To63, 0, Short, Refused},
    {k2To63, 1, Short, Refused},
    {~0ull, 1, Short, Refused},
    {~0ull, kEnd, Short, Refused},
};

std::string describe(const Range& range) {
    return std::to_string(range.m_size) + " bytes at " + std::to_string(range.m_offset);
}

}  // namespace

TEST_F(Numbers, SynchronousReadOfOneChunk) {
    for (const Range& range : s_ranges) {
        SCOPED_TRACE(describe(range));
        MediaIoBuf buf;
        kit::fill(buf, "before");
        const OpResult result = m_movie->vsRead(sampleOf({Chunk(range.m_offset, range.m_size)}, idOf(2)), buf);
        if (range.m_sync == Good) {
            EXPECT_TRUE(result);
            EXPECT_EQ(kit::bytesOf(buf), patternFrom(range.m_offset, range.m_size));
        } else {
            EXPECT_TRUE(isWarning(result, range.m_sync == TooLarge ? 1 : 13));
            if (range.m_sync == TooLarge) {
                EXPECT_EQ(kit::bytesOf(buf), "before");
            }
            expectGoodReads();
        }
    }
}

TEST_F(Numbers, SynchronousReadOfTwoChunksNamesTheOneThatFails) {
    for (const Range& range : s_ranges) {
        SCOPED_TRACE(describe(range));
        MediaIoBuf buf;
        MediaSampleInMovie sample = sampleOf({Chunk(40, 3), Chunk(range.m_offset, range.m_size)}, idOf(2));
        const bool tooLarge = range.m_size > kMost - 3;
        if (tooLarge) sample.m_info.setSize(range.m_size);
        const OpResult result = m_movie->vsRead(sample, buf);
        if (range.m_sync == Good) {
            EXPECT_TRUE(result);
            EXPECT_EQ(kit::bytesOf(buf), patternFrom(40, 3) + patternFrom(range.m_offset, range.m_size));
            continue;
        }
        EXPECT_TRUE(isWarning(result, tooLarge ? 1 : 13));
        if (!tooLarge) {
            EXPECT_NE(std::string(result.getMessage()).find(",c[1]="), std::string::npos);
        }
        expectGoodReads();
    }
}

TEST_F(Numbers, ShortReadTellsItsNumbersInFull) {
    MediaIoBuf buf;
    const auto told = [&](unsigned long long offset, unsigned size) {
        const OpResult result = m_movie->vsRead(sampleOf({Chunk(offset, size)}, idOf(2)), buf);
        EXPECT_TRUE(isWarning(result, 13));
        return std::string(result.getMessage());
    };
    const std::string start = "MediaFileList::read(" + m_media + ",c[0]=";
    EXPECT_EQ(told(kEnd - 1, 2), start + "2b@4999)-->1b, fileSz=5000");
    EXPECT_EQ(told(k2To32, 2), start + "2b@4294967296)-->0b, fileSz=5000");
    EXPECT_EQ(told(k2To63, 2), start + "2b@-9223372036854775808)-->-1b, fileSz=5000");
}

TEST_F(Numbers, AsynchronousReadOfOneChunk) {
    for (const Range& range : s_ranges) {
        SCOPED_TRACE(describe(range));
        const OpResult result = readAsync({Chunk(range.m_offset, range.m_size)});
        if (range.m_async == Error) {
            EXPECT_TRUE(isError(result, 1));
        } else if (range.m_async == Refused) {
            EXPECT_TRUE(isWarning(result, 13));
        } else {
            EXPECT_TRUE(result);
            const kit::ReadHook::Answer answer = nextAnswer();
            EXPECT_EQ(answer.m_null, range.m_async == Short);
            EXPECT_EQ(answer.m_status, range.m_async == Short ? ENODATA : 0);
            if (range.m_async == Good) {
                EXPECT_EQ(answer.m_bytes, patternFrom(range.m_offset, range.m_size));
            }
        }
        if (range.m_async != Good) expectGoodReads();
        EXPECT_EQ(m_hook.count(), m_answers);
    }
}

TEST_F(Numbers, AsynchronousReadWhoseFirstChunkIsOutOfTheFileFailsWhole) {
    for (const Range& range : s_ranges) {
        if (range.m_async != Short) continue;
        SCOPED_TRACE(describe(range));
        EXPECT_TRUE(readAsync({Chunk(range.m_offset, range.m_size), Chunk(40, 3)}));
        const kit::ReadHook::Answer answer = nextAnswer();
        EXPECT_TRUE(answer.m_null);
        EXPECT_EQ(answer.m_status, ENODATA);
        expectGoodReads();
    }
}

TEST_F(Numbers, AsynchronousReadWhoseSecondChunkIsOutOfTheFileGivesTheFirst) {
    for (const Range& range : s_ranges) {
        if (range.m_async != Short) continue;
        SCOPED_TRACE(describe(range));
        EXPECT_TRUE(readAsync({Chunk(40, 3), Chunk(range.m_offset, range.m_size)}));
        const kit::ReadHook::Answer answer = nextAnswer();
        EXPECT_EQ(answer.m_bytes, patternFrom(40, 3));
        EXPECT_EQ(answer.m_status, 0);
        expectGoodReads();
    }
}

TEST_F(Numbers, AsynchronousReadWhoseFirstChunkIsRefusedFailsTwice) {
    for (const Range& range : s_ranges) {
        if (range.m_async != Refused) continue;
        SCOPED_TRACE(describe(range));
        EXPECT_TRUE(isWarning(readAsync({Chunk(range.m_offset, range.m_size), Chunk(40, 3)}), 13));
        const kit::ReadHook::Answer answer = nextAnswer();
        EXPECT_TRUE(answer.m_null);
        EXPECT_EQ(answer.m_status, 0);
        expectGoodReads();
    }
}

TEST_F(Numbers, SampleWithoutChunksIsNothingToReadOrWrite) {
    MediaIoBuf buf;
    kit::fill(buf, "before");
    EXPECT_TRUE(isError(readAsync({}), 1));
    EXPECT_TRUE(m_movie->vsRead(sampleOf({}, idOf(2)), buf));
    EXPECT_EQ(buf.size(), 0u);
    EXPECT_TRUE(m_movie->vsWrite(sampleOf({}, idOf(2)), buf));
    EXPECT_TRUE(m_movie->vaWrite(sampleOf({}, idOf(2)), nullptr));
    EXPECT_EQ(length(), kEnd);
    expectGoodReads();
}

TEST_F(Numbers, FileIdsThatAreNoneAreRefusedOnEveryRoad) {
    for (const std::uintptr_t id : {std::uintptr_t{0}, std::uintptr_t{3}, std::uintptr_t{1} << 31,
                                    std::uintptr_t{0xFFFFFFFF}, std::uintptr_t{1} << 32, ~std::uintptr_t{0}}) {
        SCOPED_TRACE(id);
        MediaIoBuf buf;
        const MediaSampleInMovie sample = sampleOf({Chunk(0, 4)}, idOf(id));
        m_req.m_sample = sample;
        EXPECT_TRUE(isWarning(m_movie->vaRead(m_req), 1));
        EXPECT_TRUE(isWarning(m_movie->vsRead(sample, buf), 1));
        kit::fill(buf, "abcd");
        EXPECT_TRUE(isError(m_movie->vsWrite(sample, buf), 1));
        EXPECT_TRUE(isWarning(m_movie->vaWrite(sample, obufOf("abcd")), 1));
    }
    expectGoodReads();
}

TEST_F(Numbers, TracksThatAreEmptyOrNoneCloseNothing) {
    for (const unsigned track : {1u, 2u, 0xFFFEu, 0xFFFFu}) {
        m_req.m_sample = sampleOf({Chunk(12, 8)}, idOf(2));
        m_req.m_sample.set(MediaAgent(nullptr), idOf(2), track, 0, OsPathId(), true);
        EXPECT_TRUE(m_movie->vaRead(m_req));
        EXPECT_EQ(nextAnswer().m_bytes, patternFrom(12, 8));
    }
    EXPECT_EQ(m_movie->m_fileCloses, 0);
}

TEST_F(Numbers, SynchronousWriteAnywhereInAFile) {
    MediaIoBuf buf;
    kit::fill(buf, "z");
    for (const unsigned long long offset : {0ull, 1ull, kEnd + 0ull, kEnd + 2ull, k2To31, k2To32 - 1, k2To32}) {
        EXPECT_TRUE(m_movie->vsWrite(sampleOf({Chunk(offset, 1)}, idOf(2)), buf)) << offset;
        EXPECT_EQ(bytesAt(m_media, offset, 1), "z") << offset;
    }
    EXPECT_EQ(length(), k2To32 + 1);
    EXPECT_EQ(bytesAt(m_media, kEnd + 1, 1), std::string(1, '\0'));
}

TEST_F(Numbers, AsynchronousWriteAnywhereInAFile) {
    for (const unsigned long long offset : {0ull, 1ull, kEnd + 0ull, kEnd + 2ull, k2To31, k2To32 - 1, k2To32}) {
        EXPECT_TRUE(m_movie->vaWrite(sampleOf({Chunk(offset, 1)}, idOf(2)), obufOf("z"))) << offset;
    }
    m_movie->flush(idOf(2));
    for (const unsigned long long offset : {0ull, 1ull, kEnd + 0ull, kEnd + 2ull, k2To31, k2To32 - 1, k2To32})
        EXPECT_EQ(bytesAt(m_media, offset, 1), "z") << offset;
    EXPECT_EQ(length(), k2To32 + 1);
}

TEST_F(Numbers, WriteBeyondWhatAFileCanBeIsRefusedAndTheNextIsDone) {
    MediaIoBuf buf;
    kit::fill(buf, "yz");
    for (const unsigned long long offset : {k2To63 - 1, k2To63, ~0ull}) {
        SCOPED_TRACE(offset);
        EXPECT_TRUE(isWarning(m_movie->vsWrite(sampleOf({Chunk(offset, 2)}, idOf(2)), buf), 12));
        EXPECT_TRUE(isWarning(m_movie->vsWrite(sampleOf({Chunk(0, 1), Chunk(offset, 1)}, idOf(2)), buf), 12));
        EXPECT_TRUE(isWarning(m_movie->vaWrite(sampleOf({Chunk(offset, 2)}, idOf(2)), obufOf("yz")), 12));
        EXPECT_EQ(length(), kEnd);
        EXPECT_TRUE(m_movie->vsWrite(sampleOf({Chunk(5, 2)}, idOf(2)), buf));
        EXPECT_TRUE(m_movie->vaWrite(sampleOf({Chunk(7, 2)}, idOf(2)), obufOf("yz")));
        m_movie->flush(idOf(2));
        EXPECT_EQ(bytesAt(m_media, 5, 4), "yzyz");
    }
}

TEST_F(Numbers, WriteOfMoreThanItsBufferIsRefusedAtEverySize) {
    MediaIoBuf buf;
    kit::fill(buf, "yz");
    for (const unsigned size : {3u, kMost, kMost + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_TRUE(isWarning(m_movie->vsWrite(sampleOf({Chunk(0, size)}, idOf(2)), buf), 1)) << size;
        EXPECT_TRUE(isWarning(m_movie->vsWrite(sampleOf({Chunk(0, 1), Chunk(9, size)}, idOf(2)), buf), 1)) << size;
    }
    EXPECT_EQ(bytesAt(m_media, 0, kEnd), patternFrom(0, kEnd));
    EXPECT_TRUE(m_movie->vsWrite(sampleOf({Chunk(0, 2)}, idOf(2)), buf));
    EXPECT_EQ(bytesAt(m_media, 0, 2), "yz");
}

TEST_F(Numbers, LargestBufferIsWrittenAndReadBackWhole) {
    MediaIoBuf buf, back;
    kit::fill(buf, std::string(kMost, 'm'));
    const MediaSampleInMovie sample = sampleOf({Chunk(kEnd, kMost - 1), Chunk(3, 1)}, idOf(2));
    EXPECT_TRUE(m_movie->vsWrite(sample, buf));
    EXPECT_EQ(length(), kEnd + kMost - 1ull);
    EXPECT_TRUE(m_movie->vsRead(sample, back));
    EXPECT_EQ(kit::bytesOf(back), std::string(kMost, 'm'));
    EXPECT_EQ(bytesAt(m_media, 2, 3), patternFrom(2, 1) + "m" + patternFrom(4, 1));
}

TEST_F(Numbers, StaticRoadsRefuseIdsThatNobodyHas) {
    for (const unsigned long long id : {0ull, k2To32, k2To63, ~0ull}) {
        SCOPED_TRACE(id);
        m_req.m_sample = sampleOf({Chunk(0, 4)}, idOf(2));
        m_req.m_sample.m_pathId = OsPathId(id);
        EXPECT_TRUE(isWarning(MediaObj::saRead(m_req), 1));
        EXPECT_TRUE(isWarning(MediaObj::saWrite(m_req.m_sample, obufOf("abcd")), 1));
    }
    EXPECT_EQ(m_hook.count(), 0u);
    expectGoodReads();
}

// These tests and those of the writes run on the engine that the kernel's offer chooses; here they run on the other
// one.
TEST(OtherEngine, ServesTheSameReadsAndWrites) {
    if (AsyncEngine::get().getKind() == AsyncEngine::Kind::Pool) GTEST_SKIP() << "it is the only one, or this one";
    kit::Command command;
    command.m_arguments = {"/proc/self/exe", "--gtest_brief=1", "--gtest_filter=Numbers.*:Write.*:MovieWrite.*"};
    command.m_environment = {{"MEDIACORE_ASYNC", "pool"}, {"GTEST_OUTPUT", std::nullopt}};
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_out << outcome.m_err;
    EXPECT_NE(outcome.m_out.find("[  PASSED  ]"), std::string::npos) << outcome.m_out;
}
