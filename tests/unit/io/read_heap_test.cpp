#include <gtest/gtest.h>

#include <memory>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/heap_taken.h"
#include "tests/kit/samples.h"

using kit::HeapTaken;
using kit::sampleOf;
using Chunk = MediaSampleDesc::Chunk;

// What a read takes from the heap between the caller and the file: nothing.

namespace {

// Counts the answers, which bring no data.
class CountingHook : public BasicIOTypes::ReadHook {
public:
    mutable unsigned m_answers = 0;

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify&) const override {
        ++m_answers;
        return true;
    }
};

// Ends each read at once, without data.
class EndingFile : public kit::FakeFile {
public:
    bool readAsync(const BasicIOTypes::ReadReq& request) override {
        request.m_hook->callCb(BasicIOTypes::ReadNotify(request.m_tag, 0));
        return true;
    }
};

class ReadHeap : public kit::CacheScene {
protected:
    ReadHeap() {
        m_file->m_content = kit::patternFrom(0, 1000);
        m_movie->allocMediaId(AutoRefPtr<BasicFileIO>(m_file));
        m_req.m_cb = &m_hook;
    }
    void TearDown() override {
        m_movie = nullptr;
        CacheScene::TearDown();
    }
    void readAsync(const MediaSampleInMovie& sample) {
        m_req.m_sample = sample;
        for (unsigned i = 0; i < s_reads; ++i)
            EXPECT_TRUE(m_movie->vaRead(m_req));
    }

    static constexpr unsigned s_reads = 200;
    EndingFile* const m_file = new EndingFile;
    AutoReleasePtr<kit::ScriptedMovie> m_movie{
        new kit::ScriptedMovie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None)};
    CountingHook m_hook;
    MediaReadReq m_req;
};

}  // namespace

TEST_F(ReadHeap, CounterSeesABlock) {
    const HeapTaken taken;
    const std::unique_ptr<int> one(new int);
    EXPECT_NE(one.get(), nullptr);
    const std::unique_ptr<int[]> more(new (std::nothrow) int[3]);
    EXPECT_NE(more.get(), nullptr);
    EXPECT_EQ(taken.count(), 2u);
}

TEST_F(ReadHeap, AsynchronousReadOfOneChunkTakesNothing) {
    const MediaSampleInMovie sample = sampleOf({Chunk(100, 10)});
    const HeapTaken taken;
    readAsync(sample);
    EXPECT_EQ(taken.count(), 0u);
    EXPECT_EQ(m_hook.m_answers, s_reads);
}

TEST_F(ReadHeap, AsynchronousReadOfTwoChunksTakesNothingOnceThePoolHasABlock) {
    const MediaSampleInMovie sample = sampleOf({Chunk(100, 10), Chunk(500, 20)});
    readAsync(sample);
    const HeapTaken taken;
    readAsync(sample);
    EXPECT_EQ(taken.count(), 0u);
    EXPECT_EQ(m_hook.m_answers, 2 * s_reads);
}

TEST_F(ReadHeap, SynchronousReadsIntoOneBufferTakeItsBlockAndNoMore) {
    const MediaSampleInMovie whole = sampleOf({Chunk(100, 10), Chunk(500, 20)}), part = sampleOf({Chunk(3, 7)});
    MediaIoBuf buf;
    const HeapTaken taken;
    for (unsigned i = 0; i < s_reads; ++i) {
        EXPECT_TRUE(m_movie->vsRead(whole, buf));
        EXPECT_TRUE(m_movie->vsRead(part, buf));
    }
    EXPECT_EQ(taken.count(), 1u);
}
