#pragma once

// Asynchronous reads: the two bare ways to have a callback on a service thread, and what drives them and ours alike.

#ifdef MEDIACORE_HAVE_URING
#include <liburing.h>
#endif

#include <sys/mman.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/movie_kit.h"
#include "services/system/short_lock.h"

namespace bench {

// The file that is read: a WAV whose essence begins with a page.
constexpr unsigned s_essenceAt = 4096;
constexpr unsigned s_essenceBytes = 128u << 20;

// ---- what is driven

class Reader {
public:
    using Done = void (*)(void* context);
    virtual ~Reader() = default;
    virtual void start(Done done, void* context) { m_done = done, m_context = context; }
    virtual void read(unsigned long long offset, unsigned size) = 0;

protected:
    Done m_done = nullptr;
    void* m_context = nullptr;
};

// Buffers for the bare peers: mapped and touched beforehand, the last one used first.
class Buffers {
public:
    Buffers(unsigned count, std::size_t size) {
        for (unsigned i = 0; i < count; ++i) {
            void* memory =
                mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
            m_all.push_back({memory, size});
            m_free.push_back(memory);
        }
    }
    ~Buffers() {
        for (auto& [memory, size] : m_all)
            munmap(memory, size);
    }
    void* get() {
        const ShortScope scope(m_lock);
        void* memory = m_free.back();
        m_free.pop_back();
        return memory;
    }
    void put(void* memory) {
        const ShortScope scope(m_lock);
        m_free.push_back(memory);
    }

private:
    ShortLock m_lock;
    std::vector<std::pair<void*, std::size_t>> m_all;
    std::vector<void*> m_free;
};

class PoolReader : public Reader {
public:
    PoolReader(int fd, unsigned inFlight, std::size_t size, unsigned threads)
        : m_fd(fd), m_buffers(inFlight + 1, size) {
        for (unsigned i = 0; i < threads; ++i)
            m_threads.emplace_back([this] { serve(); });
    }
    ~PoolReader() override {
        {
            const std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        for (std::thread& thread : m_threads)
            thread.join();
    }
    void read(unsigned long long offset, unsigned size) override {
        {
            const std::lock_guard lock(m_mutex);
            m_queue.push_back({offset, size});
        }
        m_wake.notify_one();
    }

private:
    struct Item {
        unsigned long long m_offset;
        unsigned m_size;
    };
    void serve() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) return;
            const Item item = m_queue.front();
            m_queue.pop_front();
            lock.unlock();
            void* memory = m_buffers.get();
            if (pread(m_fd, memory, item.m_size, static_cast<off_t>(item.m_offset)) !=
                static_cast<ssize_t>(item.m_size))
                std::abort();
            m_buffers.put(memory);
            m_done(m_context);
            lock.lock();
        }
    }

    int m_fd;
    Buffers m_buffers;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};

#ifdef MEDIACORE_HAVE_URING
// The caller submits, a service thread waits for completions and calls back.
class UringReader : public Reader {
public:
    UringReader(int fd, unsigned inFlight, std::size_t size) : m_fd(fd), m_buffers(inFlight + 1, size) {
        if (io_uring_queue_init(64, &m_ring, 0) != 0) std::abort();
        m_thread = std::thread([this] { serve(); });
    }
    ~UringReader() override {
        {
            const std::lock_guard lock(m_submit);
            io_uring_sqe* entry = io_uring_get_sqe(&m_ring);
            io_uring_prep_nop(entry);
            io_uring_sqe_set_data(entry, nullptr);
            io_uring_submit(&m_ring);
        }
        m_thread.join();
        io_uring_queue_exit(&m_ring);
    }
    void read(unsigned long long offset, unsigned size) override {
        const std::lock_guard lock(m_submit);
        void* memory = m_buffers.get();
        io_uring_sqe* entry = io_uring_get_sqe(&m_ring);
        io_uring_prep_read(entry, m_fd, memory, size, offset);
        io_uring_sqe_set_data(entry, memory);
        io_uring_submit(&m_ring);
    }

private:
    void serve() {
        for (;;) {
            io_uring_cqe* first = nullptr;
            if (io_uring_wait_cqe(&m_ring, &first) != 0) continue;
            io_uring_cqe* completions[64];
            void* memory[64];
            const unsigned count = io_uring_peek_batch_cqe(&m_ring, completions, 64);
            for (unsigned i = 0; i < count; ++i)
                memory[i] = io_uring_cqe_get_data(completions[i]);
            io_uring_cq_advance(&m_ring, count);
            for (unsigned i = 0; i < count; ++i) {
                if (memory[i] == nullptr) return;
                m_buffers.put(memory[i]);
                m_done(m_context);
            }
        }
    }

    int m_fd;
    Buffers m_buffers;
    io_uring m_ring{};
    std::mutex m_submit;
    std::thread m_thread;
};
#endif

// ---- the drivers

// Keeps `inFlight` reads going until `total` are through, and answers the seconds that it took.
class Drive {
public:
    Drive(Reader& reader, unsigned size, unsigned inFlight, unsigned total, bool chained)
        : m_reader(reader), m_size(size), m_inFlight(inFlight), m_total(total), m_chained(chained) {}

    double run(std::vector<double>* callTimes = nullptr) {
        m_reader.start([](void* self) { static_cast<Drive*>(self)->done(); }, this);
        const double begin = wallSeconds();
        if (m_chained) {
            for (unsigned i = 0; i < m_inFlight; ++i)
                startNext();
            waitUntil(m_total);
        } else {
            for (unsigned started = 0; started < m_total;) {
                // With half of them back there is work for a batch, and still something under way meanwhile.
                waitUntil(m_inFlight == 1 ? started : started < m_inFlight ? 0 : started - m_inFlight / 2);
                const unsigned upTo = std::min(m_total, m_finished.load(std::memory_order_acquire) + m_inFlight);
                for (; started < upTo; ++started)
                    timedRead(callTimes);
            }
            waitUntil(m_total);
        }
        return wallSeconds() - begin;
    }

private:
    void startNext() {
        const unsigned number = m_started.fetch_add(1, std::memory_order_relaxed);
        if (number < m_total) m_reader.read(offsetOf(number), m_size);
    }
    void timedRead(std::vector<double>* callTimes) {
        const unsigned long long offset = offsetOf(m_started.fetch_add(1, std::memory_order_relaxed));
        if (callTimes == nullptr) return m_reader.read(offset, m_size);
        const double begin = wallSeconds();
        m_reader.read(offset, m_size);
        callTimes->push_back(wallSeconds() - begin);
    }
    unsigned long long offsetOf(unsigned number) const {
        return s_essenceAt + (number * 0x9E3779B97F4A7C15ull >> 20) % ((s_essenceBytes - m_size) / 4096) * 4096;
    }
    void done() {
        if (m_chained) startNext();
        const unsigned finished = m_finished.fetch_add(1, std::memory_order_seq_cst) + 1;
        if (m_awaited.load(std::memory_order_seq_cst) <= finished &&
            m_asleep.exchange(0, std::memory_order_seq_cst) != 0) {
            WordWait::wake(m_asleep, 1);
        }
    }
    void waitUntil(unsigned finished) {
        while (m_finished.load(std::memory_order_seq_cst) < finished) {
            m_awaited.store(finished, std::memory_order_seq_cst);
            m_asleep.store(1, std::memory_order_seq_cst);
            if (m_finished.load(std::memory_order_seq_cst) < finished) WordWait::sleepWhile(m_asleep, 1);
        }
        m_asleep.store(0, std::memory_order_seq_cst);
    }

    Reader& m_reader;
    const unsigned m_size, m_inFlight, m_total;
    const bool m_chained;
    std::atomic<unsigned> m_started{0}, m_finished{0}, m_awaited{0xFFFFFFFFu};
    std::atomic<std::uint32_t> m_asleep{0};
};

// How many reads make a round.
inline unsigned readsOf(unsigned size, unsigned inFlight, bool quick) {
    const unsigned total = std::max(64u, std::min(8000u, (96u << 20) / size)) / (inFlight == 1 ? 4 : 1);
    return quick ? total / 16 + inFlight : total;
}

// A case of that reader for a round.
inline std::function<double()> driveCase(Reader& reader, unsigned size, unsigned inFlight, bool chained, bool quick) {
    const unsigned total = readsOf(size, inFlight, quick);
    return [&reader, size, inFlight, total, chained] {
        return Drive(reader, size, inFlight, total, chained).run() / total;
    };
}

// One read at a time is compared with the pool, more of them with the better of the two.
inline void tellBesideBetter(const Rounds& all, const std::string& what, const std::string& ours, unsigned inFlight,
                             const char* aim = nullptr) {
    std::string better = "bare pool";
#ifdef MEDIACORE_HAVE_URING
    if (inFlight > 1 && all.cost("bare ring") < all.cost("bare pool")) better = "bare ring";
#endif
    all.tell(what + " beside " + better, ours, better, aim != nullptr ? aim : inFlight > 1 ? "1.15" : "1");
}

// The file, open. Answers its descriptor.
inline int makeEssence(const std::string& path) {
    writeWav(path, s_essenceBytes, s_essenceAt);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) fail("open", path);
    return fd;
}

}  // namespace bench
