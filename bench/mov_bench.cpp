// Long movie files: an hour and ten hours of pictures that differ in size with eight tracks of sound, whose headers are
// made here and whose essence is a hole. First opens and what they keep in memory beside libavformat on the same file,
// and a picture at a random place beside a bare pread and libavformat.

#include "bench/avformat_kit.h"
#include "bench/movie_kit.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"

#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavcodec/packet.h>
}
#endif

namespace {

constexpr unsigned s_hour = 108000, s_tenHours = 1080000;                     // pictures, 30 a second
constexpr unsigned s_sounds = 8;                                              // tracks of two channels of 16 bits
constexpr unsigned s_soundSamples = 1600, s_soundBytes = 4 * s_soundSamples;  // beside each picture

unsigned pictureSize(unsigned picture) { return 6000 + picture * 2654435761u % 4096; }

class Bytes {
public:
    Bytes& number(std::uint64_t value, unsigned count) {
        for (unsigned i = count; i-- > 0;)
            m_bytes += static_cast<char>(value >> (8 * i) & 0xFF);
        return *this;
    }
    Bytes& text(const std::string& text) {
        m_bytes += text;
        return *this;
    }
    const std::string& get() const { return m_bytes; }

private:
    std::string m_bytes;
};

std::string atom(const char* type, const std::string& body) {
    return Bytes().number(body.size() + 8, 4).text(type).text(body).get();
}
std::string full(const char* type, const std::string& body) { return atom(type, std::string(4, '\0') + body); }
std::string list(const char* type, unsigned count, const std::string& entries) {
    return full(type, Bytes().number(count, 4).get() + entries);
}

std::string trackOf(unsigned id, const char* handler, unsigned scale, std::uint64_t duration, const std::string& entry,
                    const std::string& tables) {
    const std::string zeros(68, '\0');
    const std::string tkhd = full("tkhd", Bytes().number(0, 8).number(id, 4).text(zeros).get());
    const std::string mdhd = full("mdhd", Bytes().number(0, 8).number(scale, 4).number(duration, 4).number(0, 4).get());
    const std::string hdlr = full("hdlr", Bytes().number(0, 4).text(handler).number(0, 13).get());
    const std::string self = Bytes().number(12, 4).text("url ").number(1, 4).get();
    const std::string stbl = atom("stbl", list("stsd", 1, entry) + tables);
    return atom("trak", tkhd + atom("mdia", mdhd + hdlr + atom("minf", atom("dinf", list("dref", 1, self)) + stbl)));
}

std::string videoTrack(unsigned pictures, const std::vector<std::uint64_t>& places) {
    const std::string entry = atom(
        "apcn", Bytes().number(1, 8).number(0, 16).number(1920, 2).number(1080, 2).text(std::string(50, '\0')).get());
    Bytes sizes, offsets;
    sizes.number(0, 4).number(pictures, 4);
    offsets.number(pictures, 4);
    for (unsigned i = 0; i < pictures; ++i) {
        sizes.number(pictureSize(i), 4);
        offsets.number(places[i], 8);
    }
    return trackOf(1, "vide", 30000, std::uint64_t{pictures} * 1000, entry,
                   list("stts", 1, Bytes().number(pictures, 4).number(1000, 4).get()) +
                       list("stsc", 1, Bytes().number(1, 4).number(1, 4).number(1, 4).get()) +
                       full("stsz", sizes.get()) + full("co64", offsets.get()));
}

std::string soundTrack(unsigned index, unsigned pictures, const std::vector<std::uint64_t>& places) {
    const std::string entry = atom("sowt", Bytes()
                                               .number(1, 8)
                                               .number(0, 8)
                                               .number(2, 2)
                                               .number(16, 2)
                                               .number(0, 4)
                                               .number(std::uint64_t{48000} << 16, 4)
                                               .get());
    Bytes offsets;
    offsets.number(pictures, 4);
    for (unsigned i = 0; i < pictures; ++i)
        offsets.number(places[i] + pictureSize(i) + std::uint64_t{index} * s_soundBytes, 8);
    const std::uint64_t samples = std::uint64_t{pictures} * s_soundSamples;
    return trackOf(2 + index, "soun", 48000, samples, entry,
                   list("stts", 1, Bytes().number(samples, 4).number(1, 4).get()) +
                       list("stsc", 1, Bytes().number(1, 4).number(s_soundSamples, 4).number(1, 4).get()) +
                       full("stsz", Bytes().number(4, 4).number(samples, 4).get()) + full("co64", offsets.get()));
}

struct Made {
    std::string m_path;
    std::vector<std::uint64_t> m_places;  // of the pictures
};

// The headers stand behind the essence, which is never written.
Made make(const bench::Folder& folder, const char* name, unsigned pictures) {
    Made made{folder.path(name), {}};
    const std::string head = atom("ftyp", std::string("qt  \0\0\0\0", 8));
    std::uint64_t at = head.size() + 16;
    for (unsigned i = 0; i < pictures; ++i) {
        made.m_places.push_back(at);
        at += pictureSize(i) + std::uint64_t{s_sounds} * s_soundBytes;
    }
    std::string tracks = full(
        "mvhd", Bytes().number(0, 8).number(1000, 4).number(pictures / 3 * 100, 4).text(std::string(80, '\0')).get());
    tracks += videoTrack(pictures, made.m_places);
    for (unsigned i = 0; i < s_sounds; ++i)
        tracks += soundTrack(i, pictures, made.m_places);
    const std::string moov = atom("moov", tracks);
    const std::string mdat = Bytes().number(1, 4).text("mdat").number(at - head.size(), 8).get();
    const int fd = ::open(made.m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::pwrite(fd, (head + mdat).data(), head.size() + mdat.size(), 0) < 0 ||
        ::pwrite(fd, moov.data(), moov.size(), static_cast<off_t>(at)) != static_cast<ssize_t>(moov.size()))
        bench::fail("write", made.m_path);
    ::close(fd);
    return made;
}

// ---- opens

void measureOpens(const Made& hour, const Made& ten, const bench::Options& options) {
    bench::Rounds all(options);
    all.add("hour", bench::firstOpens(hour.m_path, options.m_quick));
    all.add("hour again", bench::firstOpens(hour.m_path, options.m_quick));
    all.add("ten hours", bench::firstOpens(ten.m_path, options.m_quick));
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.add("avformat", [&hour] {
        const double begin = bench::threadSeconds();
        bench::openByAvformat(hour.m_path.c_str(), false);
        return bench::threadSeconds() - begin;
    });
#endif
    all.run("hour", "hour again");
    all.tell("first open of ten hours of MOV with eight tracks of sound beside one hour", "ten hours", "hour", "1");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("first open of an hour of MOV beside avformat_open_input", "hour", "avformat", "0.1");
#endif
}

void askFor(const MediaClipDesc& clip, unsigned long long sample) {
    MediaSampleInMovie where;
    OpResult result;
    if (!clip.getMediaOffset(MediaPlayReq(sample, 1), where, result)) std::abort();
}

struct Kept {
    long long m_few = 0;  // bytes, when every track has been asked for its last sample
    long long m_all = 0;  // and when every picture has been asked for
};

Kept bytesOfOurs(const std::string& path) {
    bench::firstOpen(path);  // what is made only once
    Kept kept;
    const bench::HeapCount heap;
    MediaObj* const movie = bench::openMovie(path);
    for (unsigned i = 0; i < movie->getTrackCount(); ++i)
        askFor(*movie->getTrackAt(i)->getClip(0), movie->getTrackAt(i)->getClip(0)->getLength() - 1);
    kept.m_few = heap.bytes();
    const MediaClipDesc& pictures = *movie->getTrackAt(0)->getClip(0);
    for (unsigned long long i = 0; i < pictures.getLength(); ++i)
        askFor(pictures, i);
    kept.m_all = heap.bytes();
    movie->release();
    bench::expireMovies();
    return kept;
}

void measureMemory(const Made& hour, const Made& ten) {
    const Kept ours = bytesOfOurs(hour.m_path), longer = bytesOfOurs(ten.m_path);
    std::printf("memory of an open hour of MOV: ours %lld bytes, of ten hours %lld\n", ours.m_few, longer.m_few);
    std::printf("when every picture has been asked for: ours %lld bytes, of ten hours %lld", ours.m_all, longer.m_all);
#ifdef MEDIACORE_HAVE_AVFORMAT
    const bench::HeapCount heap;
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, hour.m_path.c_str(), nullptr, nullptr) != 0) std::abort();
    const long long peer = heap.bytes();
    avformat_close_input(&context);
    std::printf("; avformat's of an hour %lld, ratio %.4f (aim 0.05)", peer,
                static_cast<double>(ours.m_all) / static_cast<double>(peer));
#endif
    std::printf("\n");
}

// ---- reads

void readOurs(const MediaClipDesc& clip, MediaObj& movie, MediaIoBuf& buf, unsigned picture) {
    OpResult result;
    MediaSampleInMovie sample;
    if (!clip.getMediaOffset(MediaPlayReq(picture, 1), sample, result) || !movie.vsRead(sample, buf)) std::abort();
}

void readBare(int fd, MediaIoBuf& buf, const Made& made, unsigned picture) {
    const auto size = static_cast<ssize_t>(pictureSize(picture));
    if (::pread(fd, buf.getMem(), pictureSize(picture), static_cast<off_t>(made.m_places[picture])) != size)
        std::abort();
}

#ifdef MEDIACORE_HAVE_AVFORMAT
void readAvformat(AVFormatContext* context, AVPacket* packet, unsigned picture) {
    if (av_seek_frame(context, 0, std::int64_t{picture} * 1000, AVSEEK_FLAG_BACKWARD) < 0) std::abort();
    if (av_read_frame(context, packet) < 0 || packet->size != static_cast<int>(pictureSize(picture))) std::abort();
    av_packet_unref(packet);
}
#endif

// Random reads choose among so many places, all over the movie.
void measureReads(const Made& made, const std::string& length, unsigned places, const bench::Options& options) {
    const int fd = ::open(made.m_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) bench::fail("open", made.m_path);
    MediaObj* const movie = bench::openMovie(made.m_path);
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    MediaIoBuf buf;
    if (!buf.resize(1 << 14, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::OwnBlock)) std::abort();
    std::vector<unsigned> pictures;
    bench::Random random;
    for (unsigned i = 0; i < places; ++i)
        pictures.push_back(random.below(static_cast<unsigned>(made.m_places.size())));
    for (const unsigned picture : pictures)
        readOurs(clip, *movie, buf, picture);
    auto any = [&pictures, places, random = bench::Random()]() mutable { return pictures[random.below(places)]; };
    bench::Rounds all(options);
    const auto bare = [fd, &buf, &made, any]() mutable { readBare(fd, buf, made, any()); };
    all.addCall("pread", bench::threadSeconds, bare);
    all.addCall("pread again", bench::threadSeconds, bare);
    all.addCall("ours", bench::threadSeconds,
                [&clip, movie, &buf, any]() mutable { readOurs(clip, *movie, buf, any()); });
#ifdef MEDIACORE_HAVE_AVFORMAT
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, made.m_path.c_str(), nullptr, nullptr) != 0) std::abort();
    for (unsigned i = 1; i < context->nb_streams; ++i)
        context->streams[i]->discard = AVDISCARD_ALL;
    AVPacket* packet = av_packet_alloc();
    all.addCall("avformat", bench::threadSeconds,
                [context, packet, any]() mutable { readAvformat(context, packet, any()); });
#endif
    all.run("pread", "pread again");
    all.tell("read of a picture of 6 to 10 KB anywhere in " + length + " of MOV beside pread", "ours", "pread", "1.3");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("the same beside av_seek_frame and a packet", "ours", "avformat", "1");
    av_packet_free(&packet);
    avformat_close_input(&context);
#endif
    movie->release();
    bench::expireMovies();
    ::close(fd);
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const Made hour = make(folder, "hour.mov", s_hour);
    const Made ten = make(folder, "ten.mov", options.m_quick ? s_hour : s_tenHours);
    measureMemory(hour, ten);
    measureOpens(hour, ten, options);
    measureReads(hour, "an hour", 1 << 12, options);
    // Enough of them that most of what is held in memory has made way before it is asked for again.
    measureReads(ten, "ten hours", options.m_quick ? 1 << 12 : 1 << 16, options);
    return 0;
}
