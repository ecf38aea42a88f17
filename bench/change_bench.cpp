// From a write in one process to the movie that another process holds: how long until the change watch tells, and until
// the holder stands on the new movie. The watch alone hears of the same writes.

#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "bench/movie_kit.h"
#include "services/file/fs_file_io.h"
#include "shared/include/description/media_track_desc.h"
#include "support/bridge.h"

namespace {

constexpr unsigned s_step = 4800;  // bytes that each write makes the movie longer by
constexpr unsigned s_tickMsec = 200;

// The process that writes. It has no thread and no part of the library's in it: it is forked before the first of them.
class Writer {
public:
    explicit Writer(const std::string& path) : m_path(path) {
        m_written = static_cast<std::atomic<double>*>(
            ::mmap(nullptr, sizeof(std::atomic<double>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        if (m_written == MAP_FAILED || ::pipe2(m_pipe, O_CLOEXEC) != 0) bench::fail("pipe", path);
        m_pid = ::fork();
        if (m_pid == 0) write();
        ::close(m_pipe[0]);
    }
    ~Writer() {
        ::close(m_pipe[1]);
        ::waitpid(m_pid, nullptr, 0);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Asks for a header that tells of so many bytes.
    void ask(unsigned bytes) {
        m_written->store(0);
        if (::write(m_pipe[1], &bytes, sizeof bytes) != sizeof bytes) bench::fail("write", m_path);
    }
    // When it was written, or 0.
    double written() const { return m_written->load(); }

private:
    [[noreturn]] void write() const {
        ::close(m_pipe[1]);
        const int fd = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
        unsigned bytes = 0;
        while (fd >= 0 && ::read(m_pipe[0], &bytes, sizeof bytes) == sizeof bytes) {
            const std::string header = bench::wavHeader(bytes, 44);
            if (::pwrite(fd, header.data(), header.size(), 0) < 0) ::_exit(1);
            m_written->store(bench::wallSeconds());
        }
        ::_exit(0);
    }

    const std::string m_path;
    std::atomic<double>* m_written = nullptr;  // shared by the two
    int m_pipe[2] = {-1, -1};
    pid_t m_pid = -1;
};

// Hears of both.
class Listener {
public:
    explicit Listener(const std::string& path) : m_holder(&m_movedHook) {
        m_holder = bench::openMovie(path);
        MediaObj* const movie = m_holder.preserve();
        const OsPathId id = movie->getFileId();
        FsFileIO::addCb(&m_changedHook, BasicIOTypes::PathWatch(id, id), movie->getVersion());
        movie->release();
        m_id = id;
    }
    ~Listener() {
        FsFileIO::removeCb(&m_changedHook, m_id);
        FsFileIO::finishCb(&m_changedHook);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void reset() {
        m_changed = 0;
        m_moved = 0;
    }
    // When, or 0.
    double changed() const { return m_changed; }
    double moved() const { return m_moved; }
    unsigned long long length() const {
        MediaObj* const movie = m_holder.preserve();
        const unsigned long long length = movie->getTrackAt(0)->getLength();
        movie->release();
        return length;
    }

private:
    bool hearChange(const BasicIOTypes::Change&) {
        m_changed = bench::wallSeconds();
        return true;
    }
    bool hearMove(const MediaObj::Persist&) {
        m_moved = bench::wallSeconds();
        return true;
    }

    std::atomic<double> m_changed{0}, m_moved{0};
    BridgeAnchor<Listener, const BasicIOTypes::Change&, bool> m_changedHook{*this, &Listener::hearChange};
    BridgeAnchor<Listener, const MediaObj::Persist&, bool> m_movedHook{*this, &Listener::hearMove};
    OsPathId m_id;
    MediaObj::Persist m_holder;
};

void pause(unsigned usec) { std::this_thread::sleep_for(std::chrono::microseconds(usec)); }

void tell(const char* what, const std::vector<double>& seconds, const char* aim) {
    std::printf("%s: median %.3g ms, 90th percentile %.3g ms, 99th %.3g ms, longest %.3g ms, %zu writes (aim %s)\n",
                what, bench::median(seconds) * 1e3, bench::percentile(seconds, 0.9) * 1e3,
                bench::percentile(seconds, 0.99) * 1e3, bench::percentile(seconds, 1) * 1e3, seconds.size(), aim);
    std::fflush(stdout);
}

// What the parse costs that each change takes: the movie opened anew by force.
double parseSeconds(const std::string& path) {
    std::vector<double> costs;
    for (unsigned i = 0; i < 50; ++i) {
        OpResult result;
        const double begin = bench::wallSeconds();
        MediaObj* const movie =
            MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result, MediaFileType::Unknown, true);
        costs.push_back(bench::wallSeconds() - begin);
        if (movie == nullptr) bench::fail("openReader", path);
        movie->release();
    }
    return bench::median(costs);
}

void measure(const std::string& path, unsigned writes) {
    Writer writer(path);
    Listener listener(path);
    bench::Random random;
    std::vector<double> watch, holder, behind;
    for (unsigned i = 1; i <= writes; ++i) {
        // Anywhere in a tick.
        pause(20000 + random.below(s_tickMsec * 1000));
        listener.reset();
        writer.ask((i + 1) * s_step);
        while (writer.written() == 0 || listener.changed() == 0 || listener.moved() == 0)
            pause(200);
        if (listener.length() != (i + 1) * s_step / bench::s_wavBlock) std::abort();
        watch.push_back(listener.changed() - writer.written());
        holder.push_back(listener.moved() - writer.written());
        behind.push_back(listener.moved() - listener.changed());
    }
    tell("from a write in another process to the change watch's call", watch, "none");
    tell("from a write in another process to the holder's move", holder, "median below 120 ms");
    tell("from the watch's call to the holder's move", behind, "99th below a tick, 200 ms, and a parse");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const std::string path = folder.path("growing.wav");
    const unsigned writes = options.m_quick ? 3 : 20 * options.m_rounds;
    bench::writeWav(path, s_step);
    if (::truncate(path.c_str(), 44 + off_t{writes + 2} * s_step) != 0) bench::fail("truncate", path);
    measure(path, writes);
    std::printf("a parse of that file: %.3g ms\n", parseSeconds(path) * 1e3);
    return 0;
}
