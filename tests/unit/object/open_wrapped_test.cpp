#include <thread>

#include "services/file/fs_file_io.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wav_builder.h"

// The switch under which an open answers a stand-in for what is only read.

using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::SwitchGuard;
using kit::WavBuilder;

namespace {

class OpenWrapped : public kit::CacheScene {
protected:
    MediaObj* openPath(const std::string& path, bool force = false,
                       MediaObj::ReadMode mode = MediaObj::ReadMode::ReadOnly) {
        m_result.discard();
        MediaObj* object = MediaObj::openReader(path.c_str(), mode, m_result, MediaFileType::Unknown, force);
        EXPECT_NE(object, nullptr) << path << ": " << m_result.describe().get();
        return object;
    }
    MediaObj* cached(const std::string& path) const {
        return m_cache.entry(kit::TempTree::idOf(path)).value_or(nullptr);
    }
    // The bytes of some samples, by the synchronous road.
    static std::string readSync(const MediaObj& movie, const MediaSampleInMovie& where) {
        MediaIoBuf buffer;
        const OpResult result = movie.vsRead(where, buffer);
        EXPECT_TRUE(result.success()) << result.describe().get();
        return std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size());
    }
    static MediaSampleInMovie find(const MediaObj& movie, unsigned long long sample, unsigned count,
                                   MediaAgent agent = MediaAgent()) {
        MediaSampleInMovie where;
        OpResult result;
        EXPECT_TRUE(movie.getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(sample, count, agent), where, result));
        return where;
    }

    const MovieScript m_one = MovieScript::ofTracks(1, 48000);
    const std::string m_essence = WavBuilder::pattern(400);  // 100 samples
};

}  // namespace

TEST_F(OpenWrapped, WithoutTheSwitchTheCachedObjectGoesOut) {
    const std::string path = scripted("m.hdcam", m_one);
    const AutoReleasePtr<MediaObj> movie(openPath(path));
    EXPECT_EQ(movie.get(), cached(path));
}

TEST_F(OpenWrapped, AStandInGoesOutForANewObject) {
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const std::string path = scripted("m.hdcam", m_one);
    MediaObj* movie = openPath(path);
    MediaObj* behind = cached(path);
    ASSERT_NE(behind, nullptr);
    EXPECT_NE(movie, behind);
    EXPECT_EQ(movie->getReferenceCount(), 1);
    EXPECT_EQ(behind->getReferenceCount(), 2);  // the cache's and the stand-in's
    EXPECT_EQ(movie->impl().getCacheId(), 0u);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_EQ(movie->getTrackAt(0), behind->getTrackAt(0));
    EXPECT_EQ(movie->getPathId(), behind->impl().getCacheId());
    EXPECT_STREQ(movie->getPath(nullptr), path.c_str());
    const int active = MediaObjImpl::active.getCount();
    EXPECT_EQ(movie->release(), 0);
    EXPECT_EQ(MediaObjImpl::active.getCount(), active - 1);
    EXPECT_EQ(behind->getReferenceCount(), 1);
    EXPECT_EQ(cached(path), behind);
}

TEST_F(OpenWrapped, AnObjectThatIsFoundLiveGoesOutAsItIs) {
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const std::string path = scripted("m.hdcam", m_one);
    const AutoReleasePtr<MediaObj> first(openPath(path));
    const AutoReleasePtr<MediaObj> second(openPath(path));
    EXPECT_EQ(second.get(), cached(path));
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(kit::Scripts::opens(path), 1u);
}

TEST_F(OpenWrapped, AnObjectThatCanBeWrittenGoesOutAsItIs) {
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const std::string path = scripted("m.hdcam", m_one);
    MediaObj* movie = openPath(path, false, MediaObj::ReadMode::ReadWrite);
    EXPECT_EQ(movie, cached(path));
    movie->release(nullAgent(), true);
}

TEST_F(OpenWrapped, AWritersMovieGoesOutAsItIs) {
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const std::string path = scripted("m.hdcam", m_one);
    MediaObj* movie = openWriter(path);
    EXPECT_EQ(movie, cached(path));
    const AutoReleasePtr<MediaObj> reader(openPath(path));
    EXPECT_EQ(reader.get(), movie);
    movie->release(nullAgent(), true);
}

TEST_F(OpenWrapped, TheStandInIsForTheObjectThatStays) {
    const std::string path = scripted("m.hdcam", m_one);
    ScriptedMovie* older = open(path);
    older->m_accept = false;  // so that the parse of a changed file loses to it
    m_tree.write("m.hdcam", "changed");
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    MediaObj* movie = openPath(path);
    EXPECT_EQ(kit::Scripts::opens(path), 2u);
    EXPECT_EQ(cached(path), older);
    EXPECT_NE(movie, older);
    EXPECT_EQ(movie->getTrackAt(0), older->getTrackAt(0));
    EXPECT_EQ(older->getReferenceCount(), 3);
    movie->release();
    older->release();
}

TEST_F(OpenWrapped, AFailedOpenStaysNull) {
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const std::string path =
        scripted("m.hdcam", MovieScript().refuse(OpResult::Type::Warning, MediaCode::ParserError, "broken"));
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::UnsupportedMediaType));
}

TEST_F(OpenWrapped, TheStandInHasTheDefaultRateOfItsMovie) {
    const std::string path = scripted("m.hdcam", m_one);
    ScriptedMovie* older = open(path);
    older->m_accept = false;
    m_tree.write("m.hdcam", "changed");
    older->setDefaultVideoRate(MediaVideoRate::Hz50);
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    MediaObj* movie = openPath(path);
    EXPECT_EQ(movie->getVideoRate(), MediaVideoRate::Hz50);
    movie->setDefaultVideoRate(MediaVideoRate::Pal25);
    EXPECT_EQ(movie->getVideoRate(), MediaVideoRate::Pal25);
    EXPECT_EQ(older->getVideoRate(), MediaVideoRate::Pal25);
    movie->release();
    older->release();
}

TEST_F(OpenWrapped, AScriptedMovieIsReadThroughItsStandIn) {
    const std::string path = m_tree.writePattern("m.hdcam", 4 * 100);
    kit::Scripts::set(path, MovieScript::ofTracks(1, 100));
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const AutoReleasePtr<MediaObj> movie(openPath(path));
    ASSERT_NE(movie.get(), cached(path));
    const std::string bytes = readSync(*movie.get(), find(*movie.get(), 10, 1));
    ASSERT_EQ(bytes.size(), 4u);
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(bytes[i], kit::TempTree::patternAt(40 + i));
}

TEST_F(OpenWrapped, AWavIsReadThroughItsStandInOnBothRoads) {
    const std::string path = m_tree.write("a.wav", WavBuilder().fmt().data(m_essence).bytes());
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    const AutoReleasePtr<MediaObj> movie(openPath(path));
    MediaObj* behind = cached(path);
    ASSERT_NE(behind, nullptr);
    ASSERT_NE(movie.get(), behind);
    EXPECT_EQ(movie->getMovieDesc()->getFileType(), MediaFileType::Wav);
    EXPECT_EQ(movie->getTrackCount(), 1u);
    EXPECT_EQ(movie->getTrack(encodeMte(MediaDataType::Audio, 0)), behind->getTrackAt(0));
    EXPECT_EQ(movie->getContainment(), MediaContainment::Embedded);
    EXPECT_EQ(movie->calcEncoding(), MediaEncodingType::Pcm);
    EXPECT_EQ(movie->getFrameLength(), behind->getFrameLength());
    EXPECT_FALSE(movie->isStream());

    const MediaSampleInMovie where = find(*movie.get(), 0, 100);
    EXPECT_EQ(readSync(*movie.get(), where), m_essence);
    const kit::ReadHook hook;
    MediaReadReq request;
    request.m_cb = &hook;
    request.m_sample = where;
    ASSERT_TRUE(movie->vaRead(request).success());
    ASSERT_TRUE(hook.waitForAnswers(1));
    EXPECT_EQ(hook.answers()[0].m_bytes, m_essence);
    // A read without an object at hand finds the one behind.
    ASSERT_TRUE(MediaObj::saRead(request).success());
    ASSERT_TRUE(hook.waitForAnswers(2));
    EXPECT_EQ(hook.answers()[1].m_bytes, m_essence);
}

TEST_F(OpenWrapped, AClientsReleaseClosesItsHandlesOnTheMovieBehind) {
    const std::string path = m_tree.write("a.wav", WavBuilder().fmt().data(m_essence).bytes());
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    MediaObj* movie = openPath(path);
    MediaObj* behind = cached(path);
    const kit::Client client;
    const MediaAgent agent(&client);
    EXPECT_EQ(readSync(*movie, find(*movie, 0, 100, agent)), m_essence);
    EXPECT_EQ(behind->getNumOpenFiles(agent), 1u);
    EXPECT_EQ(movie->release(agent, false), 0);
    EXPECT_EQ(behind->getNumOpenFiles(agent), 0u);
    EXPECT_EQ(behind->getReferenceCount(), 1);
}

TEST_F(OpenWrapped, AHolderOfAStandInHoldsTheMovieBehind) {
    const std::string path = scripted("m.hdcam", m_one);
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    {
        MediaObj::Persist holder;
        holder = openPath(path);
        EXPECT_EQ(cached(path)->getReferenceCount(), 2);
        const AutoReleasePtr<MediaObj> seen(holder.preserve());
        EXPECT_EQ(seen->getReferenceCount(), 2);
    }
    EXPECT_EQ(cached(path)->getReferenceCount(), 1);
}

TEST_F(OpenWrapped, AParseOfAChangedFileLeavesNothingBehind) {
    const std::string path = scripted("m.hdcam", m_one);
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    MediaObj* movie = openPath(path);
    const int active = MediaObjImpl::active.getCount();
    EXPECT_TRUE(movie->reread().success());
    EXPECT_EQ(kit::Scripts::opens(path), 2u);
    EXPECT_EQ(movie->getReferenceCount(), 1);
    movie->release();
    expireAll();
    EXPECT_LT(MediaObjImpl::active.getCount(), active);
}

TEST_F(OpenWrapped, ManyThreadsReadThroughStandInsAtOnce) {
    const std::string path = m_tree.write("a.wav", WavBuilder().fmt().data(m_essence).bytes());
    const SwitchGuard on(mediaObjDbg, MediaDbg::WrapInTlmo);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 50; ++n) {
                OpResult result;
                const AutoReleasePtr<MediaObj> movie(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly,
                                                                          result, MediaFileType::Unknown, true));
                if (movie.get() == nullptr || readSync(*movie.get(), find(*movie.get(), 0, 100)) != m_essence) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}
