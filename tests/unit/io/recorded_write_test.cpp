#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"

using kit::idOf;
using kit::sampleOf;
using Chunk = MediaSampleDesc::Chunk;

// The writes of a movie in its record log.

namespace {

class RecordedWrite : public kit::CacheScene {
protected:
    RecordedWrite() {
        m_movie->allocMediaId(m_tree.path("media.raw").c_str());
        kit::fill(m_buf, "abcd");
    }
    void TearDown() override {
        m_movie->flush(idOf(1));
        m_movie = nullptr;
        CacheScene::TearDown();
    }
    MediaSampleInMovie at(unsigned place, unsigned track) const {
        MediaSampleInMovie sample = sampleOf({Chunk(4 * place, 4)});
        sample.m_sample = place;
        sample.m_trackIndex = static_cast<std::uint16_t>(track);
        return sample;
    }
    unsigned lines() const { return m_log.count(LogLevel::Debug, "*"); }

    AutoReleasePtr<kit::ScriptedMovie> m_movie{
        new kit::ScriptedMovie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None)};
    MediaIoBuf m_buf;
};

}  // namespace

TEST_F(RecordedWrite, EveryWriteIsTold) {
    mediaObjDbg.set(1u << MediaDbg::Record2);
    EXPECT_TRUE(m_movie->vsWrite(at(0, 0xFFFF), m_buf));
    EXPECT_EQ(lines(), 1u) << m_log.text();
    EXPECT_TRUE(m_movie->vaWrite(at(1, 0xFFFF), kit::obufOf("efgh")));
    EXPECT_EQ(lines(), 2u) << m_log.text();
    mediaObjDbg.set(0u);
    EXPECT_TRUE(m_movie->vsWrite(at(2, 0xFFFF), m_buf));
    EXPECT_TRUE(m_movie->vaWrite(at(3, 0xFFFF), kit::obufOf("efgh")));
    EXPECT_EQ(lines(), 2u) << m_log.text();
}

TEST_F(RecordedWrite, WriteThatLeavesAGapIsTold) {
    mediaObjDbg.set(1u << MediaDbg::Record1);
    EXPECT_TRUE(m_movie->vsWrite(at(0, 0), m_buf));
    EXPECT_TRUE(m_movie->vaWrite(at(1, 0), kit::obufOf("efgh")));
    EXPECT_EQ(lines(), 0u) << m_log.text();
    EXPECT_TRUE(m_movie->vsWrite(at(50, 0), m_buf));
    EXPECT_TRUE(m_log.has(LogLevel::Debug, "write*")) << m_log.text();
    m_log.clear();
    EXPECT_TRUE(m_movie->vaWrite(at(90, 0), kit::obufOf("efgh")));
    EXPECT_TRUE(m_log.has(LogLevel::Debug, "write*")) << m_log.text();
}
