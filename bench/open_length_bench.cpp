// First opens of long movies: an hour of WAV and of DV beside libavformat on the same file, and beside a minute of the
// same kind; with the bytes that an open reads.

#include "bench/avformat_kit.h"
#include "bench/dv_kit.h"
#include "bench/movie_kit.h"
#include "bench/system_calls.h"

namespace {

constexpr unsigned s_minute = 60, s_hour = 3600;  // seconds

// The length is the file's; of the essence there is a start.
std::string makeWav(const bench::Folder& folder, const char* name, unsigned seconds) {
    const std::string path = folder.path(name);
    const unsigned bytes = seconds * bench::s_wavRate * bench::s_wavBlock;
    const std::string header = bench::wavHeader(bytes, 44);
    bench::writeWav(path, s_minute * bench::s_wavRate * bench::s_wavBlock);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0 || ::pwrite(fd, header.data(), header.size(), 0) < 0 ||
        ::ftruncate(fd, static_cast<off_t>(header.size() + bytes)) != 0)
        bench::fail("pwrite", path);
    ::close(fd);
    return path;
}

// Two seconds of frames at the start, one at each sixteenth and one at the end; holes are between them.
std::string makeDv(const bench::Folder& folder, const char* name, unsigned seconds) {
    const std::string path = folder.path(name);
    const unsigned frames = seconds * 30;
    bench::writeDv(path, frames, [frames](unsigned i) { return i < 60 || i % (frames / 16) == 0 || i + 1 == frames; });
    return path;
}

// What an open asks of the system, the first one of all left out.
template <class Open>
bench::SystemCalls callsOf(const std::string& path, Open open) {
    return bench::countSystemCalls([&] { open(path), bench::expireMovies(); }, [&] { open(path); });
}

void tellReads(const char* kind, const std::string& minute, const std::string& hour) {
    const auto ours = [](const std::string& path) { bench::openMovie(path)->release(); };
    const bench::SystemCalls brief = callsOf(minute, ours), lengthy = callsOf(hour, ours);
    if (!brief.m_counted || !lengthy.m_counted) return;
    std::printf("first open of %s: %lld bytes in %ld system calls for a minute, %lld in %ld for an hour (aim alike)\n",
                kind, brief.m_bytesRead, brief.m_calls, lengthy.m_bytesRead, lengthy.m_calls);
#ifdef MEDIACORE_HAVE_AVFORMAT
    for (const bool streams : {false, true}) {
        const bench::SystemCalls peer =
            callsOf(hour, [streams](const std::string& path) { bench::openByAvformat(path.c_str(), streams); });
        std::printf("avformat_open_input%s of an hour of %s: %lld bytes in %ld system calls\n",
                    streams ? " and find_stream_info" : "", kind, peer.m_bytesRead, peer.m_calls);
    }
#endif
}

void measureOpens(const std::string& kind, const std::string& minute, const std::string& hour,
                  const bench::Options& options) {
    bench::Rounds all(options);
    all.add("hour", bench::firstOpens(hour, options.m_quick));
    all.add("hour again", bench::firstOpens(hour, options.m_quick));
    all.add("minute", bench::firstOpens(minute, options.m_quick));
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.addCall("avformat", bench::threadSeconds, [&hour] { bench::openByAvformat(hour.c_str(), false); });
    all.addCall("avformat, streams", bench::threadSeconds, [&hour] { bench::openByAvformat(hour.c_str(), true); });
#endif
    all.run("hour", "hour again");
    const std::string what = "first open of an hour of " + kind + " beside ";
    all.tell(what + "a minute", "hour", "minute", "1");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell(what + "avformat_open_input", "hour", "avformat", "none");
    all.tell(what + "avformat_open_input and find_stream_info", "hour", "avformat, streams", "0.02");
#endif
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const std::string wav[] = {makeWav(folder, "minute.wav", s_minute), makeWav(folder, "hour.wav", s_hour)};
    const std::string dv[] = {makeDv(folder, "minute.dv", s_minute), makeDv(folder, "hour.dv", s_hour)};
    // First, while there is no other thread.
    tellReads("WAV", wav[0], wav[1]);
    tellReads("DV", dv[0], dv[1]);
    measureOpens("WAV", wav[0], wav[1], options);
    measureOpens("DV", dv[0], dv[1], options);
    return 0;
}
