// What one idle movie of a WAV costs in memory with all that belongs to it: object, cache entry, file handle, identity
// and watch; beside an open file of libsndfile and of libavformat.

#include <thread>

#include "bench/movie_kit.h"

#ifdef MEDIACORE_HAVE_SNDFILE
#include <sndfile.h>
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavformat/avformat.h>
}
#endif

namespace {

long long residentBytes() {
    std::FILE* const file = std::fopen("/proc/self/statm", "re");
    long long size = 0, resident = 0;
    if (file == nullptr || std::fscanf(file, "%lld %lld", &size, &resident) != 2) std::abort();
    std::fclose(file);
    return resident * ::sysconf(_SC_PAGESIZE);
}

struct Cost {
    double m_heap = 0;         // bytes of the heap, the blocks' heads included
    double m_resident = 0;     // bytes that the process has grown by
    double m_allocations = 0;  // blocks taken, those given back again among them
};

// What `open` of all paths leaves behind, a path. Whatever other threads still have to do is waited for by `settle`.
template <class Open, class Settle>
Cost costOf(const std::vector<std::string>& paths, Open open, Settle settle) {
    open(paths.front());  // what is made only once
    settle();
    const long long before = residentBytes();
    const bench::HeapCount heap;
    for (std::size_t i = 1; i < paths.size(); ++i)
        open(paths[i]);
    settle();
    const auto count = static_cast<double>(paths.size() - 1);
    return {static_cast<double>(heap.bytes()) / count, static_cast<double>(residentBytes() - before) / count,
            static_cast<double>(heap.allocations()) / count};
}

void tell(const char* what, const Cost& ours, const char* peer, const Cost& theirs, const char* aim) {
    std::printf(
        "%s: ours %.0f bytes (resident %.0f, %.1f allocations), %s %.0f bytes (resident %.0f, %.1f allocations), "
        "ratio %.3f (aim %s)\n",
        what, ours.m_heap, ours.m_resident, ours.m_allocations, peer, theirs.m_heap, theirs.m_resident,
        theirs.m_allocations, ours.m_heap / theirs.m_heap, aim);
}

// The watch is set by a thread of its own, which is through when it takes no more memory.
void settle() {
    long long before = -1;
    while (before != bench::s_heapBytes) {
        before = bench::s_heapBytes;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
}

Cost costOfOurs(const std::vector<std::string>& paths) {
    const Cost cost = costOf(
        paths, [](const std::string& path) { bench::openMovie(path)->release(); }, settle);
    std::printf("idle WAV object: %.0f bytes of heap, %.0f resident, %.1f allocations (aim below 8192 bytes)\n",
                cost.m_heap, cost.m_resident, cost.m_allocations);
    return cost;
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const unsigned most = bench::raiseOpenFiles();
    const bench::Folder folder(options);
    const unsigned count = std::min(options.m_quick ? 100u : 5000u, most - most / 8);
    const std::vector<std::string> paths = bench::writeWavs(folder, count);
    [[maybe_unused]] const Cost ours = costOfOurs(paths);
    bench::expireMovies();
#ifdef MEDIACORE_HAVE_SNDFILE
    std::vector<SNDFILE*> files;
    files.reserve(count);
    const Cost sndfile = costOf(
        paths,
        [&files](const std::string& path) {
            SF_INFO info{};
            files.push_back(sf_open(path.c_str(), SFM_READ, &info));
            if (files.back() == nullptr) bench::fail("sf_open", path);
        },
        [] {});
    tell("idle WAV object beside an open SNDFILE", ours, "peer", sndfile, "8192 bytes");
    for (SNDFILE* const file : files)
        sf_close(file);
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
    const std::vector<std::string> some(paths.begin(), paths.begin() + std::min(count, 500u));
    std::vector<AVFormatContext*> contexts;
    contexts.reserve(count);
    const Cost avformat = costOf(
        some,
        [&contexts](const std::string& path) {
            AVFormatContext* context = nullptr;
            if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) != 0)
                bench::fail("avformat_open_input", path);
            if (avformat_find_stream_info(context, nullptr) < 0) bench::fail("avformat_find_stream_info", path);
            contexts.push_back(context);
        },
        [] {});
    tell("idle WAV object beside an AVFormatContext", ours, "peer", avformat, "8192 bytes");
    for (AVFormatContext* context : contexts)
        avformat_close_input(&context);
#endif
    return 0;
}
