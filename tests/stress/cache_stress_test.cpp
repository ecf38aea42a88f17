#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <thread>

#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/hooks.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/temp_tree.h"
#include "tests/kit/watchdog.h"

using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

// Many clients at a few dozen files: everything that a client may do, at once, with expiry and re-parses in between.

namespace {

constexpr unsigned kThreads = 10;
constexpr unsigned kFiles = 32;
constexpr unsigned kHolders = 16;
constexpr unsigned kIterations = 4000;  // a thread

// Takes the messages and keeps none, so that the texts are made and nothing grows.
class Swallow : public LogSink {
public:
    Swallow() : m_before(setLogSink(this)) {}
    ~Swallow() override { setLogSink(m_before); }
    void write(const LogMessage& message) override { m_bytes.fetch_add(message.m_length, std::memory_order_relaxed); }

private:
    std::atomic<std::size_t> m_bytes{0};
    LogSink* m_before;
};

class CacheStress : public ::testing::Test {
protected:
    CacheStress() {
        m_cache.stopThread();
        for (unsigned i = 0; i < kFiles; ++i) {
            m_paths.push_back(m_tree.writePattern("f" + std::to_string(i) + (i % 3 == 0 ? ".601" : ".hdcam"), 8192));
            Scripts::set(m_paths.back(), scriptOf(i));
            // The handle keeps the file known by its id also while no movie of it is live.
            m_known.push_back(new FsFileIO("stress", m_paths.back().c_str(), BasicIOTypes::Mode::ReadOnly));
            m_ids.push_back(m_known.back()->getPathId());
        }
        warmUp();
        m_leaks = std::make_unique<kit::LeakCheck>();
        m_cache->initCb();
        m_cache.setZombieTime(20000);
    }
    ~CacheStress() override { Scripts::clear(); }

    static MovieScript scriptOf(unsigned file) {
        MovieScript script = MovieScript::ofTracks(1 + file % 2, 1024);
        script.m_accept = file % 7 != 0;
        script.m_morph = false;
        return script;
    }
    // What the process keeps for good from its first use on.
    void warmUp() {
        OpResult result;
        AutoReleasePtr<MediaObj> movie(MediaObj::openReader(m_paths[0].c_str(), MediaObj::ReadMode::ReadOnly, result));
        kit::ReadHook hook;
        MediaReadReq req;
        req.m_cb = &hook;
        req.m_sample = sampleAt(0);
        EXPECT_TRUE(movie->vaRead(req));
        EXPECT_TRUE(hook.waitForAnswers(1));
        movie = nullptr;
        m_cache.setZombieTime(0);
        m_cache->flushAll(nullptr);
        EXPECT_EQ(m_cache.mapSize() + m_cache.zombieCount(), 0u);
    }
    static MediaSampleInMovie sampleAt(unsigned long long offset) {
        MediaSampleInMovie sample;
        sample.set(16, 0, offset, 64u, 0, false);
        sample.m_mediaId = reinterpret_cast<MediaIdRec*>(std::uintptr_t{1});
        return sample;
    }

    // Stops everything as a host does, and finds nothing left.
    void endsEmpty() {
        EXPECT_TRUE(MediaObj::shutdown());
        EXPECT_EQ(m_cache.mapSize(), 0u);
        EXPECT_EQ(m_cache.zombieCount(), 0u);
        m_cache.clearQueue();
        EXPECT_EQ(m_leaks->difference(), "");
    }

    template <class Work>
    static void inThreads(unsigned count, Work work) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < count; ++i)
            threads.emplace_back([&work, i] { work(i); });
        for (std::thread& thread : threads)
            thread.join();
    }

    const kit::Watchdog m_watchdog{std::chrono::seconds(280)};
    Swallow m_log;
    CacheProbe m_cache;
    TempTree m_tree;
    std::vector<std::string> m_paths;
    std::vector<AutoRefPtr<BasicFileIO>> m_known;
    std::vector<OsPathId> m_ids;
    std::unique_ptr<kit::LeakCheck> m_leaks;
};

// One client's random walk over what the library offers.
class Walker {
public:
    Walker(unsigned seed, const CacheProbe& cache, const TempTree& tree, const std::vector<std::string>& paths,
           const std::vector<OsPathId>& ids, std::vector<std::unique_ptr<MediaObj::Persist>>& holders)
        : m_random(seed + 1), m_cache(cache), m_tree(tree), m_paths(paths), m_ids(ids), m_holders(holders) {}

    void step() {
        switch (below(16)) {
            case 0:
            case 1:
                openAndRead();
                break;
            case 2:
                openForced();
                break;
            case 3:
                openById();
                break;
            case 4:
                reread();
                break;
            case 5:
                holdNew();
                break;
            case 6:
                assignHolders();
                break;
            case 7:
                copyHolder();
                break;
            case 8:
                lookAtHolder();
                break;
            case 9:
                moveHolders();
                break;
            case 10:
                lookAtLive();
                break;
            case 11:
                notify();
                break;
            case 12:
                rewrite();
                break;
            case 13:
                m_cache->expireZombies(Clock::nowRelative(), nullptr);
                break;
            case 14:
                MediaObj::trace(below(4) == 0 ? MediaObj::Trace::List : MediaObj::Trace::Status);
                break;
            default:
                write();
                break;
        }
    }
    // What went wrong, one below the other.
    const std::string& failures() const { return m_failures; }

private:
    void failed(const char* what, const OpResult& result) {
        m_failures += std::string(what) + ": " + result.describe().get() + "\n";
    }
    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random()) % limit; }
    unsigned file() { return below(static_cast<unsigned>(m_paths.size())); }
    MediaObj::Persist& holder() { return *m_holders[below(static_cast<unsigned>(m_holders.size()))]; }

    MediaObj* open(unsigned file, MediaObj::ReadMode mode = MediaObj::ReadMode::ReadOnly, bool force = false) {
        OpResult result;
        MediaObj* movie = MediaObj::openReader(m_paths[file].c_str(), mode, result, MediaFileType::Unknown, force);
        if (movie == nullptr) failed(mode == MediaObj::ReadMode::ReadOnly ? "open" : "open for writing", result);
        result.discard();
        return movie;
    }
    // What any client may ask of a movie that it holds.
    void look(const MediaObj& movie) {
        if (!movie.isValid() || movie.getTrackCount() == 0) m_failures += "a movie that is held isn't whole\n";
        (void)movie.getReadSafeFrameLength();
        (void)movie.getVersion();
        if (movie.toString(true).get() == nullptr) m_failures += "no text\n";
    }
    void openAndRead() {
        MediaObj* movie = open(file());
        if (movie == nullptr) return;
        look(*movie);
        const MediaAgent agent(&m_client);
        MediaSampleInMovie sample;
        sample.set(16, 0, 64u * below(100), 64u, 0, false);
        sample.m_mediaId = movie->getMediaId(0);
        sample.m_agent = agent;
        MediaIoBuf buf;
        // A read may meet the very moment in which the file is cut and written anew, and is short then.
        OpResult result = movie->vsRead(sample, buf);
        result.discard();
        movie->release(agent, false);
    }
    void openForced() {
        if (MediaObj* movie = open(file(), MediaObj::ReadMode::ReadOnly, true)) movie->release();
    }
    void openById() {
        OpResult result;
        AutoReleasePtr<MediaObj> movie(MediaObj::openReader(m_ids[file()], MediaObj::ReadMode::ReadOnly, result));
        if (movie.get() == nullptr) failed("open by id", result);
        result.discard();
    }
    void reread() {
        AutoReleasePtr<MediaObj> movie(open(file()));
        if (movie.get() == nullptr) return;
        OpResult result = movie->reread();
        if (!result) failed("reread", result);
        result.discard();
    }
    void holdNew() { holder() = open(file()); }
    void assignHolders() {
        if (below(8) == 0) {
            holder() = static_cast<MediaObj*>(nullptr);
            return;
        }
        holder() = holder();
    }
    void copyHolder() {
        const MediaObj::Persist copy(holder());
        AutoReleasePtr<MediaObj> movie(copy.preserve());
        if (movie.get() != nullptr) look(*movie.get());
    }
    void lookAtHolder() {
        AutoReleasePtr<MediaObj> movie(holder().preserve());
        if (movie.get() != nullptr) look(*movie.get());
    }
    void moveHolders() {
        AutoReleasePtr<MediaObj> from(holder().preserve()), to(open(file()));
        if (from.get() != nullptr && to.get() != nullptr && from.get() != to.get()) from->replaceWith(to.get());
    }
    void lookAtLive() {
        AutoReleasePtr<MediaObj> movie(MediaObj::getOpenObj(m_ids[file()]));
        if (movie.get() != nullptr) look(*movie.get());
    }
    void notify() {
        const unsigned index = file();
        BasicIOTypes::Change change;
        change.m_path = m_paths[index].c_str();
        change.m_id = m_ids[index];
        change.m_force = below(2) == 0;
        m_cache->changeCb(change);
    }
    void rewrite() {
        const unsigned index = file();
        const std::string name = m_paths[index].substr(m_paths[index].rfind('/') + 1);
        m_tree.writePattern(name, 8192 + below(64));
    }
    void write() {
        MediaObj* movie = open(file(), MediaObj::ReadMode::ReadWrite);
        if (movie == nullptr) return;
        look(*movie);
        movie->release(MediaAgent(&m_client), true);
    }

    std::minstd_rand m_random;
    const CacheProbe& m_cache;
    const TempTree& m_tree;
    const std::vector<std::string>& m_paths;
    const std::vector<OsPathId>& m_ids;
    std::vector<std::unique_ptr<MediaObj::Persist>>& m_holders;
    kit::Client m_client;
    std::string m_failures;
};

}  // namespace

TEST_F(CacheStress, ManyClientsAtAFewDozenFilesLeaveNothingBehind) {
    kit::ChangedHook changed;
    kit::ChangingHook changing;
    std::vector<std::unique_ptr<MediaObj::Persist>> holders;
    for (unsigned i = 0; i < kHolders; ++i)
        holders.push_back(std::make_unique<MediaObj::Persist>(&changed, &changing));
    std::vector<std::string> failures(kThreads);
    inThreads(kThreads, [&](unsigned seed) {
        Walker walker(seed, m_cache, m_tree, m_paths, m_ids, holders);
        for (unsigned i = 0; i < kIterations; ++i)
            walker.step();
        failures[seed] = walker.failures();
    });
    for (const std::string& text : failures)
        EXPECT_EQ(text, "");
    EXPECT_GT(changed.count(), 0);
    EXPECT_EQ(changed.count(), changing.count());
    holders.clear();
    endsEmpty();
}

TEST_F(CacheStress, ClientsOfOneFileShareOneObjectAndParseItNoMoreThanNeeded) {
    m_cache.setZombieTime(1000000000000ll);
    const std::string& path = m_paths[1];
    std::atomic<unsigned> different{0};
    for (unsigned round = 0; round < 20; ++round) {
        std::vector<MediaObj*> got(kThreads);
        inThreads(kThreads, [&](unsigned i) {
            OpResult result;
            got[i] = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        });
        for (MediaObj* movie : got) {
            if (movie != got[0]) ++different;
        }
        EXPECT_EQ(got[0]->getReferenceCount(), static_cast<int>(kThreads) + 1);
        for (MediaObj* movie : got)
            movie->release();
    }
    EXPECT_EQ(different, 0u);
    EXPECT_EQ(Scripts::opens(path), 1u);
    endsEmpty();
}

TEST_F(CacheStress, ObjectsThatFallIdleWhilePassesRunAreNeitherLostNorLeftBehind) {
    m_cache.setZombieTime(0);
    inThreads(8, [&](unsigned i) {
        for (unsigned round = 0; round < 1500; ++round) {
            if (i >= 6) {
                m_cache->expireZombies(Clock::nowRelative(), nullptr);
                continue;
            }
            OpResult result;
            AutoReleasePtr<MediaObj> movie(
                MediaObj::openReader(m_paths[(i + round) % 4].c_str(), MediaObj::ReadMode::ReadOnly, result));
            ASSERT_NE(movie.get(), nullptr);
            ASSERT_TRUE(movie->isValid());
        }
    });
    endsEmpty();
}

TEST_F(CacheStress, HoldersThatAreMovedCopiedAndDestroyedAtOnceKeepTheCounts) {
    OpResult result;
    std::vector<MediaObj*> movies;
    for (unsigned i = 0; i < 4; ++i) {
        movies.push_back(MediaObj::openReader(m_paths[i].c_str(), MediaObj::ReadMode::ReadOnly, result));
        ASSERT_NE(movies.back(), nullptr);
    }
    MediaObj::Persist shared[4];
    inThreads(8, [&](unsigned i) {
        std::minstd_rand random(i + 1);
        for (unsigned round = 0; round < 1500; ++round) {
            const unsigned from = static_cast<unsigned>(random()) % 4,
                           to = (from + 1 + static_cast<unsigned>(random()) % 3) % 4;
            switch (random() % 5) {
                case 0:
                    movies[from]->replaceWith(movies[to]);
                    break;
                case 1:
                    shared[from] = shared[to];
                    break;
                case 2:
                    movies[to]->preserve();
                    shared[from] = movies[to];
                    break;
                case 3: {
                    MediaObj::Persist copy(shared[from]);
                    copy = shared[to];
                    break;
                }
                default: {
                    AutoReleasePtr<MediaObj> seen(shared[from].preserve());
                    break;
                }
            }
        }
    });
    for (MediaObj::Persist& holder : shared)
        holder = static_cast<MediaObj*>(nullptr);
    for (MediaObj* movie : movies) {
        EXPECT_EQ(movie->getReferenceCount(), 2);
        EXPECT_TRUE(movie->impl().m_persists.empty());
        movie->release();
    }
    endsEmpty();
}
