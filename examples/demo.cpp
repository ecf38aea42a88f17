// Opens a real recording twice from two threads, shows that it was parsed once and that both got the same object, reads
// all its samples synchronously and asynchronously, and compares both with the data chunk as it lies in the file.

#include <mediaobj>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "services/buffer/obuf.h"
#include "services/system/log.h"
#include "support/clock.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned s_block = 4800;  // samples a read

// Counts the movies that come into being, by the line that each writes when the "ctor" bit is on.
class ParseCounter : public LogSink {
public:
    void write(const LogMessage& message) override {
        if (std::strstr(message.m_text, "::ctor,") != nullptr) ++m_parses;
    }
    int count() const { return m_parses; }

private:
    std::atomic<int> m_parses{0};
};

MediaObj* openMovie(const char* path) {
    OpResult result;
    MediaObj* movie = MediaObj::openReader(path, MediaObj::ReadMode::ReadOnly, result);
    if (movie == nullptr) std::fprintf(stderr, "%s: %s\n", path, result.describe().get());
    result.discard();
    return movie;
}

// The data chunk, found by a walk of its own over the chunks of the file.
Bytes dataChunk(const char* path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto length = static_cast<std::uint64_t>(file.tellg());
    std::array<unsigned char, 8> header;
    file.seekg(12);
    while (file.read(reinterpret_cast<char*>(header.data()), header.size())) {
        const std::uint32_t size =
            header[4] | header[5] << 8 | header[6] << 16 | static_cast<std::uint32_t>(header[7]) << 24;
        if (std::memcmp(header.data(), "data", 4) == 0) {
            Bytes data(std::min<std::uint64_t>(size, length));  // a running recorder's size is of no use
            file.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size()));
            data.resize(static_cast<std::size_t>(file.gcount()));
            return data;
        }
        file.seekg(size + size % 2, std::ios::cur);
    }
    return {};
}

// Where the next block of samples lies; false at the end of the clip.
bool locate(const MediaClipDesc& clip, std::uint64_t from, MediaSampleInMovie& where) {
    if (from >= clip.getLength()) return false;
    MediaPlayReq request;
    request.m_sample = from;
    request.m_count = static_cast<unsigned>(std::min<std::uint64_t>(s_block, clip.getLength() - from));
    // The last one or two samples of a file are asked for one by one.
    if (request.m_count < 3) request.m_count = 1;
    OpResult result;
    return clip.getMediaOffset(request, where, result);
}

Bytes readSynchronously(const MediaObj& movie, const MediaClipDesc& clip) {
    Bytes all;
    MediaIoBuf buffer;
    MediaSampleInMovie where;
    for (std::uint64_t at = 0; locate(clip, at, where); at += where.m_count) {
        if (!movie.vsRead(where, buffer)) break;
        all.insert(all.end(), buffer.getMem(), buffer.getMem() + buffer.size());
    }
    return all;
}

// Receives the blocks of asynchronous reads, in whatever order they come, at the places that their tags say.
class Receiver {
public:
    explicit Receiver(std::size_t size) : m_all(size), m_hook(*this, &Receiver::receive) {}

    const BasicIOTypes::ReadHook& hook() const { return m_hook; }
    // Waits: while 32 reads are under way.
    void expectOne() {
        while (m_pending >= 32)
            waitMsec(1);
        ++m_pending;
    }
    Bytes wait() {
        while (m_pending > 0)
            waitMsec(1);
        return m_failed ? Bytes() : m_all;
    }

    bool receive(const BasicIOTypes::ReadNotify& notify) {
        if (notify.m_obuf != nullptr) {
            copyOut(notify.m_obuf, reinterpret_cast<std::uintptr_t>(notify.m_tag));
        } else {
            m_failed = true;
        }
        --m_pending;
        return true;
    }

private:
    void copyOut(phantom_OBUF* obuf, std::size_t at) {
        std::array<iovec, 128> pieces;
        const int count = obufNTranslateHost(obuf, pieces.data(), static_cast<int>(pieces.size()));
        for (int i = 0; i < count; at += pieces[i++].iov_len)
            std::memcpy(&m_all[at], pieces[i].iov_base, pieces[i].iov_len);
        obufFree(obuf);
    }

    Bytes m_all;
    std::atomic<int> m_pending{0};
    std::atomic<bool> m_failed{false};
    BridgeAnchor<Receiver, const BasicIOTypes::ReadNotify&, bool> m_hook;
};

Bytes readAsynchronously(const MediaObj& movie, const MediaClipDesc& clip, std::size_t size) {
    Receiver receiver(size);
    MediaReadReq request;
    request.m_cb = &receiver.hook();
    std::uintptr_t place = 0;
    for (std::uint64_t at = 0; locate(clip, at, request.m_sample); at += request.m_sample.m_count) {
        request.m_tag = reinterpret_cast<const void*>(place);
        place += request.m_sample.m_info.getSize();
        receiver.expectOne();
        if (!movie.vaRead(request)) return {};
    }
    return receiver.wait();
}

bool tell(const char* what, bool good) {
    std::printf("%-58s %s\n", what, good ? "yes" : "NO");
    return good;
}

bool showOneParse(const char* path, MediaObj*& movie) {
    ParseCounter parses;
    setLogSink(&parses);
    mediaObjDbg.set(1u << MediaDbg::Ctor);
    MediaObj* second = nullptr;
    std::thread other([&] { second = openMovie(path); });
    movie = openMovie(path);
    other.join();
    mediaObjDbg.set(0u);
    setLogSink(nullptr);
    if (movie == nullptr || second == nullptr) return false;
    const bool once = tell("two threads opened it, one parse happened:", parses.count() == 1);
    const bool same = tell("both got the same object:", movie == second);
    second->release();
    return once && same;
}

bool showReads(const char* path, const MediaObj& movie) {
    const MediaTrackDesc* track = movie.getTrackAt(0);
    if (track == nullptr || track->getClipCount() == 0) return tell("it has a track with a clip:", false);
    const MediaClipDesc& clip = *track->getClip(0);
    if (movie.getMovieDesc()->getFileType() != MediaFileType::Wav) {
        std::printf("its clip: %s (only a WAV has a data chunk to compare with)\n", clip.toString().get());
        return true;
    }
    Bytes expected = dataChunk(path);
    expected.resize(clip.getLength() * clip.getLookup()->getFixedSize());  // whole samples
    std::printf("its data chunk has %zu bytes, its clip %llu samples (%s)\n", expected.size(), clip.getLength(),
                clip.toString().get());
    const bool synchronous =
        tell("synchronous reads equal the data chunk:", readSynchronously(movie, clip) == expected);
    const Bytes async = readAsynchronously(movie, clip, expected.size());
    return tell("asynchronous reads equal the data chunk:", async == expected) && synchronous;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE.wav\n", argv[0]);
        return 2;
    }
    forceMediaUtilLink();
    MediaObj* movie = nullptr;
    std::printf("%s\n", argv[1]);
    bool good = showOneParse(argv[1], movie);
    if (movie != nullptr) {
        good = showReads(argv[1], *movie) && good;
        movie->release();
    }
    good = tell("nothing was left behind:", MediaObj::shutdown()) && good;
    return good ? 0 : 1;
}
