#pragma once

// Recordings for measurements: what is recorded, into which movie, and the bare file that gets the same bytes at the
// same places.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/dv_kit.h"
#include "services/buffer/obuf.h"
#include "services/file/fs_file_io.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"

namespace bench {

// What is recorded at a time, how many of it are one recording, and how many are handed over in a row: tens of
// megabytes, and several that keep a writer busy.
struct Essence {
    const char* m_name;
    const char* m_suffix;
    unsigned m_samples;
    unsigned m_bytes;
    unsigned m_blocks;
    unsigned m_burst;
};

constexpr unsigned s_soundSamples = 1602;  // of a frame at 29.97 Hz, the long one
constexpr Essence s_picture{"DV frames of 120,000 bytes", ".dv", 1, s_dvFrameBytes, 400, 50};
constexpr Essence s_sound{"blocks of sound of 6,408 bytes", ".wav", s_soundSamples,
                          s_soundSamples* s_wavBlock,       5000,   1000};

inline bool isPicture(const Essence& essence) { return &essence == &s_picture; }

inline MediaClipParam paramOf(const Essence& essence) {
    MediaClipParam param;
    const bool good =
        isPicture(essence)
            ? param.initVideo(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Ntsc2997)
            : param.initAudio(MediaFileType::Wav, MediaEncodingType::Pcm, MediaVideoRate::Unknown, s_wavRate, 2, 16);
    if (!good) std::abort();
    return param;
}

// The bytes of a block: all blocks are alike.
class Block {
public:
    explicit Block(const Essence& essence) : m_size(essence.m_bytes), m_obuf(obufAllocate(0, essence.m_bytes)) {
        std::vector<unsigned char> bytes(essence.m_bytes);
        if (isPicture(essence)) bytes = blackDvFrame();
        for (std::size_t i = 0; i < bytes.size() && !isPicture(essence); ++i)
            bytes[i] = static_cast<unsigned char>(i * 131 >> 3);
        iovec piece{};
        const bool good = m_buf.resize(m_size, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::OwnBlock);
        if (!good || obufNTranslateHost(m_obuf, &piece, 1) != 1 || piece.iov_len < m_size) std::abort();
        std::memcpy(m_buf.getMem(), bytes.data(), m_size);
        std::memcpy(piece.iov_base, bytes.data(), m_size);
    }
    ~Block() { obufFree(m_obuf); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    unsigned size() const { return m_size; }
    const MediaIoBuf& buf() const { return m_buf; }
    const void* bytes() const { return m_buf.getMem(); }
    // Gives: one more reference to the same bytes.
    phantom_OBUF* obuf() const { return obufDup(m_obuf); }

private:
    const unsigned m_size;
    MediaIoBuf m_buf;
    phantom_OBUF* const m_obuf;  // owned
};

// A movie that is being recorded, up to its clip. Its file goes with it.
class Recording {
public:
    Recording(const Folder& folder, const Essence& essence)
        : m_essence(essence), m_path(folder.path(std::string("recorded") + essence.m_suffix)) {
        OpResult result;
        m_movie = MediaObj::openWriter(m_path.c_str(), false, result, MediaContainment::Embedded,
                                       MediaFileType::Unknown, nullptr, BasicIOTypes::SizeAdvice::None);
        if (m_movie == nullptr) tell(result);
        const MediaClipParam param = paramOf(essence);
        m_track = m_movie->createTrack(param, result);
        m_clip = m_track != nullptr ? m_track->createClip(param, result) : nullptr;
        if (m_clip == nullptr || !m_movie->setRecording(true)) tell(result);
        m_info.reset(essence.m_bytes);
    }
    ~Recording() {
        m_movie->release(MediaAgent(nullptr), true);
        ::unlink(m_path.c_str());
        expireMovies();
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    const std::string& path() const { return m_path; }
    const MediaObj& movie() const { return *m_movie; }
    unsigned long long base() const { return m_clip->getLookup()->getBaseOffset(); }

    // Enters a block behind the last one.
    void add(MediaSampleInMovie& where) {
        OpResult result;
        const MediaRecordReq request(m_next, m_essence.m_samples, m_info);
        if (!m_track->addSamples(request, where, result)) tell(result);
        m_next += m_essence.m_samples;
    }
    void write(const MediaSampleInMovie& where, const Block& block) { write(where, block.buf()); }
    void write(const MediaSampleInMovie& where, const MediaIoBuf& buf) {
        if (!m_movie->vsWrite(where, buf)) std::abort();
    }
    // Takes: the obuf.
    void handOver(const MediaSampleInMovie& where, phantom_OBUF* obuf) {
        if (!m_movie->vaWrite(where, obuf)) std::abort();
    }
    unsigned long long bytesUnderWay() { return handle().getPendingBytes(); }
    // Waits: until all is written.
    void finish() {
        if (!m_movie->setRecording(false)) std::abort();
    }
    // So many blocks have been recorded, or the measurement says nothing.
    void check(unsigned blocks) const {
        if (std::filesystem::file_size(m_path) != base() + std::uint64_t{blocks} * m_essence.m_bytes) std::abort();
    }

private:
    [[noreturn]] void tell(const OpResult& result) const {
        fail("record", m_path + ": " + (result.getMessage() != nullptr ? result.getMessage() : ""));
    }
    FsFileIO& handle() {
        OpResult result;
        const AutoRefPtr<BasicFileIO> file = m_movie->getFp(result, m_movie->getMediaId(0), true, MediaAgent(nullptr));
        auto* const own = dynamic_cast<FsFileIO*>(file.get());
        if (!result || own == nullptr) std::abort();
        return *own;  // the movie keeps it
    }

    const Essence& m_essence;
    const std::string m_path;
    MediaObj* m_movie = nullptr;  // the writer's reference
    MediaTrackDesc* m_track = nullptr;
    MediaClipDesc* m_clip = nullptr;
    SampleInfo m_info;
    unsigned long long m_next = 0;  // sample
};

// A file of its own for the bare cases, empty at first; it goes with this.
class BareFile {
public:
    BareFile(const Folder& folder, unsigned long long base, unsigned size)
        : m_path(folder.path("bare")),
          m_fd(::open(m_path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)),
          m_base(base),
          m_size(size) {
        if (m_fd < 0) fail("open", m_path);
    }
    ~BareFile() {
        ::close(m_fd);
        ::unlink(m_path.c_str());
    }
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

    void write(unsigned block, const void* bytes) const {
        if (::pwrite(m_fd, bytes, m_size, offsetOf(block)) != static_cast<ssize_t>(m_size)) std::abort();
    }
    void read(unsigned block, void* bytes) const {
        if (::pread(m_fd, bytes, m_size, offsetOf(block)) != static_cast<ssize_t>(m_size)) std::abort();
    }

private:
    off_t offsetOf(unsigned block) const { return static_cast<off_t>(m_base + std::uint64_t{block} * m_size); }

    const std::string m_path;
    const int m_fd;
    const unsigned long long m_base;
    const unsigned m_size;
};

// A thread that writes the blocks that it is handed, in their order: asynchronous recording without anything round it.
class BareWriter {
public:
    explicit BareWriter(const BareFile& file) : m_file(file), m_thread([this] { serve(); }) {}
    ~BareWriter() {
        {
            const std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    BareWriter(const BareWriter&) = delete;
    BareWriter& operator=(const BareWriter&) = delete;

    void handOver(unsigned block, const void* bytes) {
        m_underWay.fetch_add(1, std::memory_order_relaxed);
        {
            const std::lock_guard lock(m_mutex);
            m_queue.push_back({block, bytes});
        }
        m_wake.notify_one();
    }
    unsigned underWay() const { return m_underWay.load(std::memory_order_acquire); }

private:
    struct Item {
        unsigned m_block;
        const void* m_bytes;
    };
    void serve() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) return;
            const Item item = m_queue.front();
            m_queue.pop_front();
            lock.unlock();
            m_file.write(item.m_block, item.m_bytes);
            m_underWay.fetch_sub(1, std::memory_order_release);
            lock.lock();
        }
    }

    const BareFile& m_file;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    bool m_stop = false;
    std::atomic<unsigned> m_underWay{0};
    std::thread m_thread;
};

// Looks again a little later, so that the others get the processor.
template <class IsTrue>
void pollUntil(IsTrue isTrue) {
    while (!isTrue())
        std::this_thread::sleep_for(std::chrono::microseconds(20));
}

}  // namespace bench
