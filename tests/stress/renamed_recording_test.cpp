#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"
#include "tests/kit/wait_for.h"
#include "tests/stress/stress_recorder.h"

// A movie is renamed with its media files again and again while it is being recorded and read, all through one object.

namespace {

constexpr unsigned s_tracks = 2, s_readers = 3;
constexpr unsigned s_block = 480, s_sampleSize = 4;
constexpr unsigned s_blocksAhead = 200;  // which last longer than a rename

std::string essence(unsigned track, unsigned block) {
    return kit::patternFrom(track * 101 + block * 7, s_block * s_sampleSize);
}

// What the threads have in common. Nothing in it asserts: a thread that finds a fault leaves it and ends.
class Traffic {
public:
    explicit Traffic(MediaObj& movie) : m_movie(movie) {
        m_threads.emplace_back([this] { record(); });
        for (unsigned i = 0; i < s_readers; ++i)
            m_threads.emplace_back([this, i] { read(i); });
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;
    ~Traffic() { stop(); }

    void stop() {
        m_isOver = true;
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }
    // Until the recorder has written another block, and each reader read a few. Then there is more to record.
    bool goesOn() {
        const unsigned blocks = m_blocks, reads = m_reads;
        m_wanted = blocks + s_blocksAhead;
        return kit::waitFor([&] { return m_faults != 0 || (m_blocks > blocks && m_reads > reads + 4 * s_readers); }) &&
               m_faults == 0;
    }
    unsigned getBlocks() const { return m_blocks; }
    unsigned getFaults() const { return m_faults; }

    // Null reads as the movie itself does.
    static bool isRight(const MediaObj& movie, unsigned track, unsigned block, MediaAgent agent) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        OpResult result;
        const MediaClipDesc& clip = *movie.getTrackAt(track)->getClip(0);
        const MediaPlayReq request(static_cast<unsigned long long>(block) * s_block, s_block);
        const bool isFound = clip.getMediaOffset(request, where, result);
        where.m_agent = agent;
        if (isFound) result = movie.vsRead(where, buffer);
        const bool isGood = result && kit::bytesOf(buffer) == essence(track, block);
        if (!result) std::fprintf(stderr, "track %u, block %u: %s\n", track, block, result.describe().get());
        result.discard();
        return isGood;
    }

private:
    void record() {
        while (!m_isOver && m_faults == 0) {
            const unsigned block = m_blocks;
            if (block >= m_wanted) {
                std::this_thread::yield();
                continue;
            }
            for (unsigned i = 0; i < s_tracks; ++i)
                m_faults += add(*m_movie.getTrackAt(i), block, essence(i, block)) ? 0 : 1;
            m_blocks = block + 1;
        }
    }
    bool add(MediaTrackDesc& track, unsigned block, const std::string& bytes) {
        SampleInfo info;
        info.reset(static_cast<unsigned>(bytes.size()));
        MediaSampleInMovie where;
        OpResult result;
        const unsigned long long first = static_cast<unsigned long long>(block) * s_block;
        const bool isTaken = track.addSamples(MediaRecordReq(first, s_block, info), where, result);
        MediaIoBuf buffer;
        kit::fill(buffer, bytes);
        if (isTaken) result = m_movie.vsWrite(where, buffer);
        const bool isGood = isTaken && result.success();
        if (!isGood) std::fprintf(stderr, "block %u: %s\n", block, result.describe().get());
        result.discard();
        return isGood;
    }
    // The first reader has no name.
    void read(unsigned reader) {
        const kit::Client client;
        const MediaAgent agent(reader == 0 ? nullptr : &client);
        for (unsigned round = reader; !m_isOver && m_faults == 0; ++round) {
            const unsigned blocks = m_blocks;
            if (blocks == 0) {
                std::this_thread::yield();
                continue;
            }
            m_faults += isRight(m_movie, round % s_tracks, round * 31 % blocks, agent) ? 0 : 1;
            ++m_reads;
        }
        if (reader != 0) m_movie.close(nullptr, agent).discard();
    }

    MediaObj& m_movie;
    std::atomic<bool> m_isOver{false};
    std::atomic<unsigned> m_wanted{0}, m_blocks{0}, m_reads{0}, m_faults{0};
    std::vector<std::thread> m_threads;
};

class RenamedRecording : public kit::CacheScene {
protected:
    MediaObj* start(const std::string& path) {
        MediaObj* const movie = MediaObj::openWriter(path.c_str(), false, m_result, MediaContainment::ByRef,
                                                     MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        MediaClipParam param;
        EXPECT_TRUE(
            param.initAudio(MediaFileType::QuickTime, MediaEncodingType::Pcm, MediaVideoRate::Unknown, 48000, 2, 16));
        for (unsigned i = 0; movie != nullptr && i < s_tracks; ++i) {
            MediaTrackDesc* const track = movie->createTrack(param, m_result);
            EXPECT_TRUE(track != nullptr && track->createClip(param, m_result) != nullptr) << m_result.describe().get();
        }
        return movie;
    }
};

}  // namespace

TEST_F(RenamedRecording, GoesOnForItsRecorderAndItsReaders) {
    MediaObj* const movie = start(m_tree.path("start.mov"));
    ASSERT_NE(movie, nullptr);
    const OsPathId id = movie->getFileId();
    const unsigned renames = stress::lengthFrom("MEDIACORE_SOAK_RENAMES", 12);
    unsigned blocks = 0;
    std::string now = m_tree.path("start.mov");
    {
        Traffic traffic(*movie);
        for (unsigned i = 0; i < renames && traffic.goesOn(); ++i) {
            static constexpr const char* places[] = {"a/film.mov", "a/other.mov", "film.mov", "b/c/d/film.mov"};
            const std::string next = m_tree.path(places[i % 4]);
            m_result = movie->rename(next.c_str(), i % 3 != 0, nullptr);
            ASSERT_TRUE(m_result.success()) << next << m_result.describe().get();
            now = next;
            EXPECT_EQ(movie->getPath(movie->getMediaId(0)), now);
        }
        EXPECT_TRUE(traffic.goesOn());
        traffic.stop();
        EXPECT_EQ(traffic.getFaults(), 0u);
        blocks = traffic.getBlocks();
    }
    EXPECT_EQ(movie->getFileId(), id);
    EXPECT_TRUE(movie->setRecording(false));
    movie->release(nullAgent(), true);
    expireAll();
    MediaObj* const fresh = MediaObj::openReader(now.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(fresh, nullptr) << m_result.describe().get();
    EXPECT_EQ(fresh->getMediaCount(), s_tracks + 1);
    for (unsigned i = 0; i < s_tracks; ++i) {
        EXPECT_EQ(fresh->getTrackAt(i)->getLength(), static_cast<unsigned long long>(blocks) * s_block);
        for (unsigned block = 0; block < blocks; ++block)
            ASSERT_TRUE(Traffic::isRight(*fresh, i, block, nullAgent())) << i << " " << block;
        const std::filesystem::path media = fresh->getPath(fresh->getMediaId(i + 1));
        EXPECT_EQ(media.parent_path(), std::filesystem::path(now).parent_path());
    }
    fresh->release();
}
