// Opens: of a movie that is live, beside the least that such an open can do and beside libavformat; and of a file for
// the first time, beside libsndfile and libavformat.

#include <sys/stat.h>

#include <atomic>
#include <mutex>
#include <unordered_map>

#include "bench/avformat_kit.h"
#include "bench/movie_kit.h"
#include "bench/system_calls.h"

#ifdef MEDIACORE_HAVE_SNDFILE
#include <sndfile.h>
#endif

namespace {

[[maybe_unused]] constexpr unsigned s_minute = 60 * bench::s_wavRate * bench::s_wavBlock;  // bytes

// The floor: a look at the file, a look-up in a sharded table, a reference taken and given back.
class Floor {
public:
    struct Entry {
        std::atomic<int> m_count{1};
    };

    void enter(const std::string& path) {
        struct stat found;
        if (::stat(path.c_str(), &found) != 0) bench::fail("stat", path);
        Shard& shard = shardOf(found.st_ino);
        shard.m_entries[found.st_ino] = new Entry;
    }
    void open(const char* path) {
        struct stat found;
        if (::stat(path, &found) != 0) std::abort();
        Shard& shard = shardOf(found.st_ino);
        Entry* entry = nullptr;
        {
            const std::lock_guard lock(shard.m_mutex);
            entry = shard.m_entries.find(found.st_ino)->second;
            entry->m_count.fetch_add(1, std::memory_order_relaxed);
        }
        entry->m_count.fetch_sub(1, std::memory_order_acq_rel);
    }

private:
    struct alignas(64) Shard {
        std::mutex m_mutex;
        std::unordered_map<ino_t, Entry*> m_entries;
    };
    Shard& shardOf(ino_t inode) { return m_shards[inode % 64]; }

    Shard m_shards[64];
};

#ifdef MEDIACORE_HAVE_SNDFILE
void openBySndfile(const char* path) {
    SF_INFO info{};
    SNDFILE* const file = sf_open(path, SFM_READ, &info);
    if (file == nullptr) std::abort();
    sf_close(file);
}
#endif

// ---- of a live movie

void tellHotCounts(const std::vector<std::string>& paths) {
    constexpr unsigned times = 1000;
    const auto openSome = [&paths] {
        const auto count = static_cast<std::uint32_t>(paths.size());
        bench::Random random;
        for (unsigned i = 0; i < times; ++i)
            bench::openMovie(paths[random.below(count)])->release();
    };
    const auto openAll = [&paths, &openSome] {
        for (const std::string& path : paths)
            bench::openMovie(path)->release();
        openSome();
    };
    const bench::SystemCalls calls = bench::countSystemCalls(openAll, openSome);
    openAll();
    {
        const bench::HeapCount heap;
        openSome();
        std::printf("hot open, heap: %llu allocations and %lld bytes of growth in %u opens (aim 0)\n",
                    heap.allocations(), heap.bytes(), times);
    }
    if (calls.m_counted)
        std::printf("hot open, system calls: %.3f an open (aim at most 2)\n",
                    static_cast<double>(calls.m_calls) / times);
    bench::expireMovies();
}

void measureHot(const std::vector<std::string>& paths, const bench::Options& options) {
    const auto count = static_cast<std::uint32_t>(paths.size());
    std::vector<MediaObj*> live;
    Floor floor;
    for (const std::string& path : paths) {
        live.push_back(bench::openMovie(path));
        floor.enter(path);
    }
    bench::Rounds all(options);
    const auto stat = [&floor, &paths, count, random = bench::Random()]() mutable {
        floor.open(paths[random.below(count)].c_str());
    };
    all.addCall("floor", bench::threadSeconds, stat);
    all.addCall("floor again", bench::threadSeconds, stat);
    all.addCall("ours", bench::threadSeconds, [&paths, count, random = bench::Random()]() mutable {
        bench::openMovie(paths[random.below(count)])->release();
    });
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.addCall("avformat", bench::threadSeconds, [&paths, count, random = bench::Random()]() mutable {
        bench::openByAvformat(paths[random.below(count)].c_str(), true);
    });
#endif
    all.run("floor", "floor again");
    const std::string among = " among " + std::to_string(count);
    all.tell("hot open" + among + " beside stat, look-up and reference", "ours", "floor", "3");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("hot open" + among + " beside avformat_open_input and find_stream_info of such a file", "ours", "avformat",
             "0.001");
#endif
    for (MediaObj* const object : live)
        object->release();
    bench::expireMovies();
}

// ---- for the first time

// Opens every file once with nothing of it in the cache, then lets them all go. `caller` leaves out what is done by
// other threads, `whole` counts that and the end of the objects as well.
double openAll(const std::vector<std::string>& paths, bool whole) {
    double (*const now)() = whole ? bench::processSeconds : bench::threadSeconds;
    const double begin = now();
    for (const std::string& path : paths)
        bench::openMovie(path)->release();
    double spent = now() - begin;
    bench::expireMovies();
    if (whole) spent = now() - begin;
    return spent / static_cast<double>(paths.size());
}

template <class Open>
void addPeer(bench::Rounds& all, const char* name, const std::vector<std::string>& paths, Open open) {
    all.add(name, [&paths, open] {
        const double begin = bench::threadSeconds();
        for (const std::string& path : paths)
            open(path.c_str());
        return (bench::threadSeconds() - begin) / static_cast<double>(paths.size());
    });
}

void measureFirst(const std::vector<std::string>& paths, const bench::Options& options) {
    bench::Rounds all(options);
    all.add("ours", [&paths] { return openAll(paths, false); });
    all.add("ours, whole", [&paths] { return openAll(paths, true); });
#ifdef MEDIACORE_HAVE_SNDFILE
    addPeer(all, "sndfile", paths, openBySndfile);
    addPeer(all, "sndfile again", paths, openBySndfile);
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
    addPeer(all, "avformat", paths, [](const char* path) { bench::openByAvformat(path, false); });
#endif
#ifdef MEDIACORE_HAVE_SNDFILE
    all.run("sndfile", "sndfile again");
    all.tell("first open beside sf_open and sf_close", "ours", "sndfile", "1");
    all.tell("first open, other threads' work and the object's end with it, beside the same", "ours, whole", "sndfile",
             "none");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("first open beside avformat_open_input", "ours", "avformat", "1");
#endif
#endif
}

void tellFirstCounts(const std::vector<std::string>& paths) {
    const auto openAll = [&paths] {
        for (const std::string& path : paths)
            bench::openMovie(path)->release();
    };
    const auto count = static_cast<double>(paths.size());
    const bench::SystemCalls calls = bench::countSystemCalls([] {}, openAll);
    {
        const bench::HeapCount heap;
        openAll();
        std::printf("first open, heap: %.1f allocations\n", static_cast<double>(heap.allocations()) / count);
    }
    if (calls.m_counted)
        std::printf("first open, system calls of its thread: %.2f\n", static_cast<double>(calls.m_calls) / count);
    bench::expireMovies();
}

// A recording of a minute, since the stream information is looked for in the essence.
void measureLong(const bench::Folder& folder, const bench::Options& options) {
#ifdef MEDIACORE_HAVE_AVFORMAT
    const std::string path = folder.path("minute.wav");
    bench::writeWav(path, s_minute);
    MediaObj* const live = bench::openMovie(path);
    bench::Rounds all(options);
    all.addCall("ours", bench::threadSeconds, [&path] { bench::openMovie(path)->release(); });
    const auto peer = [&path] { bench::openByAvformat(path.c_str(), true); };
    all.addCall("avformat", bench::threadSeconds, peer);
    all.addCall("avformat again", bench::threadSeconds, peer);
    all.run("avformat", "avformat again");
    all.tell("hot open of a minute beside avformat_open_input and find_stream_info", "ours", "avformat", "0.001");
    live->release();
    bench::expireMovies();
#endif
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const unsigned most = bench::raiseOpenFiles();
    const bench::Folder folder(options);
    const unsigned many = std::min(options.m_quick ? 200u : 10000u, most - most / 8);
    const std::vector<std::string> paths = bench::writeWavs(folder, many);
    const std::vector<std::string> few(paths.begin(), paths.begin() + 100);
    const std::vector<std::string> some(paths.begin(), paths.begin() + std::min(many, 1000u));
    // First, while there is no other thread.
    tellHotCounts(few);
    tellFirstCounts(some);
    measureHot(few, options);
    measureHot(paths, options);
    measureLong(folder, options);
    measureFirst(some, options);
    return 0;
}
