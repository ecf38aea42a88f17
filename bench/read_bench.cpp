// Reads of a movie: a frame of DV or the samples of one frame at a random place, beside a bare pread into the same
// memory, libsndfile and libavformat; and the asynchronous road, beside bare liburing and a pool of threads that call
// pread, for samples that lie in one chunk and in two.

#include "bench/async_kit.h"
#include "bench/dv_kit.h"
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

const MediaClipDesc& clipOf(const MediaObj& movie) { return *movie.getTrackAt(0)->getClip(0); }

// ---- synchronous

// What is read at a time, somewhere among so many places that lie one behind the other.
struct Unit {
    unsigned m_samples;
    unsigned m_bytes;
    off_t m_base;  // of the first place in the file
    unsigned m_places;
};

constexpr unsigned s_frameSamples = 1602;  // of a frame at 29.97 Hz, the long one
constexpr Unit s_sound{s_frameSamples, s_frameSamples* bench::s_wavBlock, bench::s_essenceAt,
                       bench::s_essenceBytes / (s_frameSamples * bench::s_wavBlock)};
constexpr Unit s_picture{1, bench::s_dvFrameBytes, 0, bench::s_essenceBytes / bench::s_dvFrameBytes};

void readMovie(const MediaObj& movie, const Unit& unit, MediaIoBuf& buf, unsigned place) {
    OpResult result;
    MediaSampleInMovie sample;
    const MediaPlayReq request(std::uint64_t{place} * unit.m_samples, unit.m_samples);
    if (!clipOf(movie).getMediaOffset(request, sample, result) || !movie.vsRead(sample, buf)) std::abort();
}

void readBare(int fd, const Unit& unit, MediaIoBuf& buf, unsigned place) {
    const off_t offset = unit.m_base + static_cast<off_t>(place) * unit.m_bytes;
    if (::pread(fd, buf.getMem(), unit.m_bytes, offset) != static_cast<ssize_t>(unit.m_bytes)) std::abort();
}

// The two of them, into the same memory.
void addReads(bench::Rounds& all, int fd, const MediaObj& movie, const Unit& unit, MediaIoBuf& buf) {
    if (!buf.resize(unit.m_bytes, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::OwnBlock)) std::abort();
    const auto bare = [fd, &unit, &buf, random = Random()]() mutable {
        readBare(fd, unit, buf, random.below(unit.m_places));
    };
    all.addCall("pread", bench::threadSeconds, bare);
    all.addCall("pread again", bench::threadSeconds, bare);
    all.addCall("ours", bench::threadSeconds, [&movie, &unit, &buf, random = Random()]() mutable {
        readMovie(movie, unit, buf, random.below(unit.m_places));
    });
}

void measurePictures(const bench::Folder& folder, const bench::Options& options) {
    const std::string path = folder.path("essence.dv");
    bench::writeDv(path, s_picture.m_places, [](unsigned) { return true; });
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) bench::fail("open", path);
    bench::loadFile(fd, std::uint64_t{s_picture.m_places} * s_picture.m_bytes);
    MediaObj* const movie = bench::openMovie(path);
    MediaIoBuf buf;
    bench::Rounds all(options);
    addReads(all, fd, *movie, s_picture, buf);
    all.run("pread", "pread again");
    all.tell("read of a DV frame of 120,000 bytes beside pread", "ours", "pread", "1.05");
    movie->release();
    bench::expireMovies();
    ::close(fd);
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

void measureSound(const std::string& path, int fd, const MediaObj& movie, const bench::Options& options) {
    MediaIoBuf buf;
    bench::Rounds all(options);
    addReads(all, fd, movie, s_sound, buf);
#ifdef MEDIACORE_HAVE_SNDFILE
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) bench::fail("sf_open", path);
    all.addCall("sndfile", bench::threadSeconds,
                [file, &buf, random = Random()]() mutable { readSndfile(file, buf, random.below(s_sound.m_places)); });
#endif
#ifdef MEDIACORE_HAVE_AVFORMAT
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) != 0) bench::fail("avformat_open_input", path);
    AVPacket* packet = av_packet_alloc();
    all.addCall("avformat", bench::threadSeconds, [context, packet, random = Random()]() mutable {
        readAvformat(context, packet, random.below(s_sound.m_places));
    });
#endif
    all.run("pread", "pread again");
    all.tell("read of a frame's samples, 6,408 bytes, beside pread", "ours", "pread", "1.3");
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
class MovieReader : public bench::Reader {
public:
    explicit MovieReader(const MediaObj& movie) : m_movie(movie), m_hook(*this, &MovieReader::readCb) {}

    void read(unsigned long long offset, unsigned size) override {
        MediaReadReq request;
        locate(offset, size, request);
        issue(request);
    }

protected:
    void locate(unsigned long long offset, unsigned size, MediaReadReq& request) const {
        const MediaPlayReq wanted((offset - bench::s_essenceAt) / bench::s_wavBlock, size / bench::s_wavBlock);
        OpResult result;
        if (!clipOf(m_movie).getMediaOffset(wanted, request.m_sample, result)) std::abort();
    }
    void issue(MediaReadReq& request) const {
        request.m_cb = &m_hook;
        if (!m_movie.vaRead(request)) std::abort();
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

// The same of a sample in two chunks: the second half of it lies ahead of the first in the file.
class GatherReader final : public MovieReader {
public:
    using MovieReader::MovieReader;

    void read(unsigned long long offset, unsigned size) override {
        MediaReadReq request;
        locate(offset, size, request);
        request.m_sample.m_numChunks = 2;
        request.m_sample.m_chunks[0] = {offset + size / 2, size / 2};
        request.m_sample.m_chunks[1] = {offset, size / 2};
        issue(request);
    }
};

// A bare peer of that: two reads in flight for each, and it is through when both are.
class PairReader final : public bench::Reader {
public:
    explicit PairReader(bench::Reader& single) : m_single(single) {}

    void start(Done done, void* context) override {
        Reader::start(done, context);
        m_single.start([](void* self) { static_cast<PairReader*>(self)->oneDone(); }, this);
    }
    void read(unsigned long long offset, unsigned size) override {
        m_single.read(offset + size / 2, size / 2);
        m_single.read(offset, size / 2);
    }

private:
    // Which two belong together doesn't matter for the count of pairs.
    void oneDone() {
        if (m_ends.fetch_add(1, std::memory_order_acq_rel) % 2 != 0) m_done(m_context);
    }

    bench::Reader& m_single;
    std::atomic<unsigned> m_ends{0};
};

void tellAllocations(const char* what, MovieReader&& reader, unsigned size, bool quick) {
    constexpr unsigned inFlight = 8;
    const unsigned total = bench::readsOf(size, inFlight, quick);
    // The pools fill up first.
    for (int i = 0; i < 2; ++i)
        bench::Drive(reader, size, 4 * inFlight, total, false).run();
    const bench::HeapCount heap;
    bench::Drive(reader, size, inFlight, total, false).run();
    std::printf("asynchronous read%s, %u KiB x%u: %llu allocations in %u reads (aim 0)\n", what, size >> 10, inFlight,
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

// A sample in two chunks beside bare reads of both of them.
void measureGather(int fd, const MediaObj& movie, unsigned size, unsigned inFlight, const bench::Options& options) {
    GatherReader ours(movie);
    bench::PoolReader pool(fd, 2 * inFlight, size / 2, 2), poolAgain(fd, 2 * inFlight, size / 2, 2);
    PairReader pair(pool), pairAgain(poolAgain);
    bench::Rounds all(options);
    const auto add = [&](const char* name, bench::Reader& reader) {
        all.add(name, bench::driveCase(reader, size, inFlight, false, options.m_quick));
    };
    add("ours", ours);
    add("bare pool", pair);
    add("bare pool again", pairAgain);
#ifdef MEDIACORE_HAVE_URING
    bench::UringReader ring(fd, 2 * inFlight, size / 2);
    PairReader ringPair(ring);
    add("bare ring", ringPair);
#endif
    all.run("bare pool", "bare pool again");
    const std::string what = "two-chunk read, " + std::to_string(size >> 10) + " KiB x" + std::to_string(inFlight);
    bench::tellBesideBetter(all, what, "ours", 2 * inFlight, "1.15");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const std::string path = folder.path("essence.wav");
    const int fd = bench::makeEssence(path);
    MediaObj* const movie = bench::openMovie(path);
    measureSound(path, fd, *movie, options);
    measurePictures(folder, options);
    for (const unsigned size : {4096u, 65536u, 524288u}) {
        tellAllocations("", MovieReader(*movie), size, options.m_quick);
        tellAllocations(" of two chunks", GatherReader(*movie), size, options.m_quick);
    }
    for (const unsigned size : {4096u, 65536u, 524288u}) {
        for (const unsigned inFlight : {1u, 8u, 32u})
            measureAsync(fd, *movie, size, inFlight, options);
        for (const unsigned inFlight : {1u, 8u})
            measureGather(fd, *movie, size, inFlight, options);
    }
    movie->release();
    bench::expireMovies();
    ::close(fd);
    return 0;
}
