// A whole recording beside libavformat's stream copy into the same format: the same samples out of the same file in the
// page cache, from the opening of the source to the end of the copy and its removal. By the clock, and in processor
// time of all threads.

#include "bench/record_kit.h"

#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavformat/avformat.h>
}
#endif

namespace {

using bench::Essence;

// As a copier takes it that doesn't have to keep up with anything: eight pictures' sound at once.
constexpr Essence s_longSound{"blocks of sound of 51,264 bytes", ".wav",
                              8 * bench::s_soundSamples,         8 * bench::s_sound.m_bytes,
                              bench::s_sound.m_blocks / 8,       1};

// What is copied.
struct Source {
    const Essence& m_essence;
    std::string m_path;
    unsigned m_blocks;

    unsigned long long bytes() const { return std::uint64_t{m_blocks} * m_essence.m_bytes; }
};

// Gives: a buffer with the same bytes.
phantom_OBUF* copyOf(const MediaIoBuf& buf) {
    phantom_OBUF* const obuf = obufAllocate(0, buf.size());
    iovec piece{};
    if (obufNTranslateHost(obuf, &piece, 1) != 1 || piece.iov_len < buf.size()) std::abort();
    std::memcpy(piece.iov_base, buf.getMem(), buf.size());
    return obuf;
}

void copyOurs(const bench::Folder& folder, const Source& source, bool isHandedOver) {
    MediaObj* const movie = bench::openMovie(source.m_path);
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    const unsigned samples = source.m_essence.m_samples;
    bench::Recording recording(folder, source.m_essence);
    MediaIoBuf buf;
    MediaSampleInMovie found, where;
    for (unsigned i = 0; i < source.m_blocks; ++i) {
        OpResult result;
        if (!clip.getMediaOffset(MediaPlayReq(std::uint64_t{i} * samples, samples), found, result)) std::abort();
        if (!movie->vsRead(found, buf)) std::abort();
        recording.add(where);
        if (isHandedOver)
            recording.handOver(where, copyOf(buf));
        else
            recording.write(where, buf);
    }
    recording.finish();
    recording.check(source.m_blocks);
    movie->release();
}

#ifdef MEDIACORE_HAVE_AVFORMAT
// What ffmpeg does with `-c copy`, without its threads and its start.
void copyByAvformat(const bench::Folder& folder, const Source& source) {
    const std::string path = folder.path(std::string("copied") + source.m_essence.m_suffix);
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext *in = nullptr, *out = nullptr;
    if (avformat_open_input(&in, source.m_path.c_str(), nullptr, nullptr) != 0)
        bench::fail("avformat_open_input", path);
    if (avformat_find_stream_info(in, nullptr) < 0) bench::fail("avformat_find_stream_info", path);
    if (avformat_alloc_output_context2(&out, nullptr, nullptr, path.c_str()) < 0) bench::fail("no muxer", path);
    AVStream* const from = in->streams[0];
    AVStream* const to = avformat_new_stream(out, nullptr);
    if (to == nullptr || avcodec_parameters_copy(to->codecpar, from->codecpar) < 0) std::abort();
    to->codecpar->codec_tag = 0;
    to->time_base = from->time_base;
    to->avg_frame_rate = from->avg_frame_rate;
    if (avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) bench::fail("avio_open", path);
    if (avformat_write_header(out, nullptr) < 0) bench::fail("avformat_write_header", path);
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(in, packet) >= 0) {
        const bool isOurs = packet->stream_index == from->index;
        av_packet_rescale_ts(packet, from->time_base, to->time_base);
        packet->stream_index = 0;
        packet->pos = -1;
        if (!isOurs)
            av_packet_unref(packet);
        else if (av_interleaved_write_frame(out, packet) < 0)
            bench::fail("av_interleaved_write_frame", path);
    }
    if (av_write_trailer(out) != 0) bench::fail("av_write_trailer", path);
    av_packet_free(&packet);
    avio_closep(&out->pb);
    avformat_free_context(out);
    avformat_close_input(&in);
    if (std::filesystem::file_size(path) < source.bytes()) std::abort();
    ::unlink(path.c_str());
}

double timed(double (*clock)(), const std::function<void()>& work) {
    const double begin = clock();
    work();
    return clock() - begin;
}

void measure(const bench::Folder& folder, const Source& source, const char* what, const bench::Options& options) {
    for (const auto clock : {&bench::wallSeconds, &bench::processSeconds}) {
        bench::Rounds all(options);
        all.add("ours", [&, clock] { return timed(clock, [&] { copyOurs(folder, source, false); }); });
        all.add("handed", [&, clock] { return timed(clock, [&] { copyOurs(folder, source, true); }); });
        for (const char* name : {"avformat", "avformat again"})
            all.add(name, [&, clock] { return timed(clock, [&] { copyByAvformat(folder, source); }); });
        all.run("avformat", "avformat again");
        const std::string by = clock == &bench::wallSeconds ? ", by the clock" : ", processor time of all threads";
        all.tell(std::string("a whole recording of ") + what + by, "ours", "avformat", "1");
        all.tell(std::string("the same, handed over") + by, "handed", "avformat", "1");
    }
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
#ifdef MEDIACORE_HAVE_AVFORMAT
    const unsigned part = options.m_quick ? 20 : 1;
    const Source sound{bench::s_sound, folder.path("source.wav"), bench::s_sound.m_blocks / part};
    bench::writeWav(sound.m_path, static_cast<unsigned>(sound.bytes()));
    const Source picture{bench::s_picture, folder.path("source.dv"), bench::s_picture.m_blocks / part};
    bench::writeDv(picture.m_path, picture.m_blocks, [](unsigned) { return true; });
    measure(folder, sound, "sound as WAV, a picture's at a time", options);
    measure(folder, {s_longSound, sound.m_path, sound.m_blocks / 8}, "sound as WAV, eight pictures' at a time",
            options);
    measure(folder, picture, "pictures as DV", options);
#else
    std::puts("built without libavformat: nothing to compare with");
#endif
    return 0;
}
