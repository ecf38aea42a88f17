// `find` in the cache beside the least that a shared map can do: an unordered map, a mutex and a reference; and the
// pass over idle objects beside a walk over such a map.

#include <atomic>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "bench/movie_kit.h"
#include "mediautil/object/media_obj_impl.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

namespace {

using bench::Random;

class PlainMap {
public:
    // As large as a movie with what belongs to it: small ones would all lie in the processor's cache.
    struct Entry {
        std::atomic<int> m_count{1};
        std::atomic<long long> m_idleSince{1};
        char m_rest[2000];
    };

    ~PlainMap() {
        for (const auto& [id, entry] : m_entries)
            delete entry;
    }
    void enter(std::uint64_t id) { m_entries[id] = new Entry; }
    Entry* find(std::uint64_t id) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_entries.find(id);
        if (found == m_entries.end()) return nullptr;
        found->second->m_count.fetch_add(1, std::memory_order_relaxed);
        return found->second;
    }
    // Entries that nobody has held since that time.
    unsigned countIdle(long long time) {
        const std::lock_guard lock(m_mutex);
        unsigned idle = 0;
        for (const auto& [id, entry] : m_entries) {
            const long long since = entry->m_idleSince.load(std::memory_order_relaxed);
            if (since != 0 && since <= time && entry->m_count.load(std::memory_order_relaxed) == 1) ++idle;
        }
        return idle;
    }
    static void release(Entry* entry) { entry->m_count.fetch_sub(1, std::memory_order_acq_rel); }

private:
    std::mutex m_mutex;
    std::unordered_map<std::uint64_t, Entry*> m_entries;
};

// The same operation on several threads at once. Answers the time of one of it: the processor's where there is only
// this thread, by the clock where they wait for each other.
template <class Operation>
double onThreads(unsigned threads, unsigned times, Operation operation) {
    std::atomic<unsigned> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> others;
    const auto work = [times, operation](unsigned seed) {
        Random random(seed);
        for (unsigned i = 0; i < times; ++i)
            operation(random);
    };
    for (unsigned i = 1; i < threads; ++i) {
        others.emplace_back([&, i] {
            ++ready;
            while (!go)
                std::this_thread::yield();
            work(i + 1);
        });
    }
    while (ready + 1 < threads)
        std::this_thread::yield();
    double (*const clock)() = threads == 1 ? bench::threadSeconds : bench::wallSeconds;
    const double begin = clock();
    go = true;
    work(1);
    for (std::thread& other : others)
        other.join();
    return (clock() - begin) / times;
}

void measure(const std::vector<OsPathId>& ids, unsigned threads, const bench::Options& options) {
    const auto count = static_cast<std::uint32_t>(ids.size());
    const unsigned times = options.m_quick ? 1000 : 200000;
    CachedMediaObj& cache = *CachedMediaObj::getRef();
    PlainMap map;
    for (const OsPathId id : ids)
        map.enter(id.getId());
    const auto plain = [&map, &ids, count](Random& random) {
        PlainMap::release(map.find(ids[random.below(count)].getId()));
    };
    const auto ours = [&cache, &ids, count](Random& random) {
        cache.find(ids[random.below(count)], false, nullptr)->release();
    };
    bench::Rounds all(options);
    all.add("map", [&] { return onThreads(threads, times, plain); });
    all.add("map again", [&] { return onThreads(threads, times, plain); });
    all.add("ours", [&] { return onThreads(threads, times, ours); });
    all.run("map", "map again");
    all.tell("find among " + std::to_string(count) + ", " + std::to_string(threads) +
                 (threads == 1 ? " thread" : " threads") + ", beside unordered map, mutex and reference",
             "ours", "map", "2");
}

// The cache's own thread makes such a pass at each tick. No object is due, and nobody holds one. Once in a zombie time
// at least, and after each first open, the pass has to walk.
void measurePass(const std::vector<OsPathId>& ids, const bench::Options& options) {
    constexpr double tick = 0.2;  // seconds
    constexpr long long unknown = 0;
    CachedMediaObj& cache = *CachedMediaObj::getRef();
    PlainMap map;
    for (const OsPathId id : ids)
        map.enter(id.getId());
    bench::Rounds all(options);
    for (const char* name : {"map", "map again"})
        all.addCall(name, bench::threadSeconds, [&map] { bench::keep(map.countIdle(0)); });
    all.addCall("ours", bench::threadSeconds, [&cache] { cache.expireZombies(Clock::nowRelative(), nullptr); });
    all.addCall("walk", bench::threadSeconds, [&cache] {
        MediaObjImpl::lowerOldestRefTime(unknown);
        cache.expireZombies(Clock::nowRelative(), nullptr);
    });
    all.run("map", "map again");
    const std::string what = std::to_string(ids.size()) + " idle objects, none due";
    const char* const peer = ", beside a walk over an unordered map of as many";
    all.tell("expiry pass over " + what + peer, "ours", "map", "1");
    all.tell("the same when it has to walk" + std::string(peer), "walk", "map", "none");
    std::printf("of one processor, if each pass walked at the tick of 200 ms: %.3g %% (aim below 1)\n",
                all.cost("walk") / tick * 100);
    std::fflush(stdout);
}

// Keeps what is idle for as long as it stands, and the cache's own thread away.
class NothingDue {
public:
    NothingDue() {
        CachedMediaObj::getRef()->stopThreadsCb();
        mediaZombieTime.setFromOutside(s_days);
    }
    ~NothingDue() { mediaZombieTime.setFromOutside(m_before); }
    NothingDue(const NothingDue&) = delete;
    NothingDue& operator=(const NothingDue&) = delete;

private:
    static constexpr unsigned s_days = 10 * 24 * 3600;  // seconds

    const unsigned m_before = mediaZombieTime.get();
};

void measureIdle(const std::vector<std::string>& paths, unsigned count, const bench::Options& options) {
    const NothingDue nothingDue;
    std::vector<OsPathId> ids;
    for (unsigned i = 0; i < count; ++i) {
        MediaObj* const object = bench::openMovie(paths[i]);
        ids.push_back(object->getPathId());
        object->release();
    }
    measurePass(ids, options);
    if (CachedMediaObj::getRef()->counts().entries != count) bench::fail("the pass", "took objects that weren't due");
    // A pass deletes a quarter of them at most.
    while (CachedMediaObj::getRef()->counts().zombies + CachedMediaObj::getRef()->counts().entries != 0)
        bench::expireMovies();
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const unsigned most = bench::raiseOpenFiles();
    const bench::Folder folder(options);
    const unsigned many = std::min(options.m_quick ? 200u : 10000u, most - most / 8);
    const std::vector<std::string> paths = bench::writeWavs(folder, many);
    for (const unsigned count : {100u, many}) {
        std::vector<MediaObj*> live;
        std::vector<OsPathId> ids;
        for (unsigned i = 0; i < count; ++i) {
            live.push_back(bench::openMovie(paths[i]));
            ids.push_back(live.back()->getPathId());
        }
        for (const unsigned threads : {1u, 2u})
            measure(ids, threads, options);
        for (MediaObj* const object : live)
            object->release();
        bench::expireMovies();
    }
    while (CachedMediaObj::getRef()->counts().zombies != 0)
        bench::expireMovies();
    for (const unsigned count : {std::min(100u, many), std::min(1000u, many), many})
        measureIdle(paths, count, options);
    return 0;
}
