// Reads of a movie: the samples of one frame at a random place, beside a bare pread into the same memory, libsndfile
// and libavformat; and the asynchronous road, beside bare liburing and a pool of threads that call pread.

#include "bench/async_kit.h"
#include "services/buffer/obuf.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"

#ifdef MEDIACORE_HAVE_SNDFILE
#include <sndfile.h>
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}
#endif

namespace {

using bench::Random;

constexpr unsigned s_frameSamples = 1920;  // of a frame at 25 Hz
constexpr unsigned s_frameBytes = s_frameSamples * bench::s_wavBlock;
constexpr unsigned s_frames = bench::s_essenceBytes / s_frameBytes;

const MediaClipDesc& clipOf(const MediaObj& movie) { return *movie.getTrackAt(0)->getClip(0); }

// ---- synchronous

void readFrame(const MediaObj& movie, MediaIoBuf& buf, unsigned frame) {
    OpResult result;
    MediaSampleInMovie sample;
    const MediaPlayReq request(std::uint64_t{frame} * s_frameSamples, s_frameSamples);
    if (!clipOf(movie).getMediaOffset(request, sample, result) || !movie.vsRead(sample, buf)) std::abort();
}

void readBare(int fd, MediaIoBuf& buf, unsigned frame) {
    const off_t offset = bench::s_essenceAt + static_cast<off_t>(frame) * s_frameBytes;
    if (::pread(fd, buf.getMem(), s_frameBytes, offset) != s_frameBytes) std::abort();
}

#ifdef MEDIACORE_HAVE_SNDFILE
void readSndfile(SNDFILE* file, MediaIoBuf& buf, unsigned frame) {
    if (sf_seek(file, static_cast<sf_count_t>(frame) * s_frameSamples, SEEK_SET) < 0) std::abort();
    if (sf_readf_short(file, reinterpret_cast<short*>(buf.getMem()), s_frameSamples) != s_frameSamples) std::abort();
}
#endif

#ifdef MEDIACORE_HAVE_AVFORMAT
// What a packet brings is up to the demuxer: less than a frame's samples as a rule.
void readAvformat(AVFormatContext* context, AVPacket* packet, unsigned frame) {
    if (av_seek_frame(context, 0, static_cast<std::int64_t>(frame) * s_frameSamples, AVSEEK_FLAG_BACKWARD) < 0)
        std::abort();
    if (av_read_frame(context, packet) < 0) std::abort();
    av_packet_unref(packet);
}
#endif

void measureSync(const std::string& path, int fd, const MediaObj& movie, const bench::Options& options) {
    MediaIoBuf buf;
    if (!buf.resize(s_frameBytes, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::OwnBlock)) std::abort();
    bench::Rounds all(options);
    const auto bare = [fd, &buf, random = Random()]() mutable { readBare(fd, buf, random.below(s_frames)); };
    all.addCall("pread", bench::threadSeconds, bare);
    all.addCall("pread again", bench::threadSeconds, bare);
    all.addCall("ours", bench::threadSeconds,
                [&movie, &buf, random = Random()]() mutable { readFrame(movie, buf, random.below(s_frames)); });
#ifdef MEDIACORE_HAVE_SNDFILE
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) bench::fail("sf_open", path);
    all.addCall("sndfile", bench::threadSeconds,
                [file, &buf, random = Random()]() mutable { readSndfile(file, buf, random.below(s_frames)); });
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) != 0) bench::fail("avformat_open_input", path);
    AVPacket* packet = av_packet_alloc();
    all.addCall("avformat", bench::threadSeconds, [context, packet, random = Random()]() mutable {
        readAvformat(context, packet, random.below(s_frames));
    });
#endif
    all.run("pread", "pread again");
    all.tell("read of a frame's samples beside pread", "ours", "pread", "1.3");
#ifdef MEDIACORE_HAVE_SNDFILE
    all.tell("read of a frame's samples beside sf_seek and sf_readf", "ours", "sndfile", "1");
    sf_close(file);
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("read of a frame's samples beside av_seek_frame and a packet", "ours", "avformat", "1");
    av_packet_free(&packet);
    avformat_close_input(&context);
#endif
}

// ---- asynchronous

// The whole road: the index says where the samples lie, the movie starts the read, its hook gets them.
class MovieReader final : public bench::Reader {
public:
    explicit MovieReader(const MediaObj& movie) : m_movie(movie), m_hook(*this, &MovieReader::readCb) {}

    void read(unsigned long long offset, unsigned size) override {
        const MediaPlayReq wanted((offset - bench::s_essenceAt) / bench::s_wavBlock, size / bench::s_wavBlock);
        MediaReadReq request;
        request.m_cb = &m_hook;
        OpResult result;
        if (!clipOf(m_movie).getMediaOffset(wanted, request.m_sample, result) || !m_movie.vaRead(request)) std::abort();
    }

private:
    bool readCb(const BasicIOTypes::ReadNotify& notify) {
        if (notify.m_obuf == nullptr) std::abort();
        obufFree(notify.m_obuf);
        m_done(m_context);
        return true;
    }

    const MediaObj& m_movie;
    const BridgeAnchor<MovieReader, const BasicIOTypes::ReadNotify&, bool> m_hook;
};

void tellAllocations(const MediaObj& movie, unsigned size, bool quick) {
    constexpr unsigned inFlight = 8;
    const unsigned total = bench::readsOf(size, inFlight, quick);
    MovieReader reader(movie);
    // The pools fill up first.
    for (int i = 0; i < 2; ++i)
        bench::Drive(reader, size, 4 * inFlight, total, false).run();
    const bench::HeapCount heap;
    bench::Drive(reader, size, inFlight, total, false).run();
    std::printf("asynchronous read, %u KiB x%u: %llu allocations in %u reads (aim 0)\n", size >> 10, inFlight,
                heap.allocations(), total);
}

void measureAsync(int fd, const MediaObj& movie, unsigned size, unsigned inFlight, const bench::Options& options) {
    MovieReader ours(movie);
    bench::PoolReader pool(fd, inFlight, size, 2), poolAgain(fd, inFlight, size, 2);
    bench::Rounds all(options);
    const auto add = [&](const char* name, bench::Reader& reader) {
        all.add(name, bench::driveCase(reader, size, inFlight, false, options.m_quick));
    };
    add("ours", ours);
    add("bare pool", pool);
    add("bare pool again", poolAgain);
#ifdef MEDIACORE_HAVE_URING
    bench::UringReader ring(fd, inFlight, size);
    add("bare ring", ring);
#endif
    all.run("bare pool", "bare pool again");
    const std::string what = "asynchronous read, " + std::to_string(size >> 10) + " KiB x" + std::to_string(inFlight);
    bench::tellBesideBetter(all, what, "ours", inFlight);
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const std::string path = folder.path("essence.wav");
    const int fd = bench::makeEssence(path);
    MediaObj* const movie = bench::openMovie(path);
    measureSync(path, fd, *movie, options);
    for (const unsigned size : {4096u, 65536u, 524288u})
        tellAllocations(*movie, size, options.m_quick);
    for (const unsigned size : {4096u, 65536u, 524288u}) {
        for (const unsigned inFlight : {1u, 8u, 32u})
            measureAsync(fd, *movie, size, inFlight, options);
    }
    movie->release();
    bench::expireMovies();
    ::close(fd);
    return 0;
}
