// Asynchronous reads from the page cache, beside the two bare ways to have a callback on a service thread: liburing
// with a thread that waits for completions, and a pool of threads that call pread.
//
// Two ways to drive them: a client thread that keeps a number of reads in flight and sleeps in between, and chains in
// which each callback starts the next read.

#include "bench/async_kit.h"
#include "services/buffer/obuf_pool.h"
#include "services/file/async_engine.h"
#include "services/file/basic_file_io.h"

namespace {

using bench::Drive;
using bench::Reader;

// A handle that is nothing but a reference count: the engine alone is measured.
class BareHandle final : public BasicFileIO {
public:
    BareHandle() : BasicFileIO(BasicIOTypes::Mode::ReadOnly) { preserve(); }
    bool open() override { return true; }
    int read(void*, unsigned) override { return -1; }
    int readAt(unsigned long long, void*, unsigned) override { return -1; }
    bool isCached(unsigned long long, unsigned) override { return false; }
    int writeAt(unsigned long long, const void*, unsigned) override { return -1; }
    bool readAsync(const BasicIOTypes::ReadReq&) override { return false; }
    bool writeAsync(unsigned long long, phantom_OBUF* obuf) override { return obufFree(obuf), false; }
    unsigned long long getLength() override { return bench::s_essenceBytes; }
    const char* getPath() const override { return ""; }
    AutoPtr<char> describe() const override { return AutoPtr<char>(new char[1]()); }
    bool exists() override { return true; }
    bool openById(OsPathId) override { return false; }
    OsPathId getPathId() override { return {}; }
    unsigned long long getVersion() override { return 0; }
    BasicIOTypes::SizeAdvice getSizeAdvice(bool) override { return BasicIOTypes::SizeAdvice::None; }
    void advise(BasicIOTypes::SizeAdvice) override {}
    void adviseReparse(int) override {}
    void resetLookAhead() override {}
    void setLookAhead(unsigned) override {}
    int write(const void*, unsigned) override { return -1; }
    bool close() override { return true; }
    bool flush() override { return true; }

protected:
    void modeChanged() override {}
};

class EngineReader : public Reader {
public:
    EngineReader(int fd, AsyncEngine::Kind kind)
        : m_fd(fd), m_engine(AsyncEngine::forTests(kind)), m_hook(*this, &EngineReader::readCb) {
        if (m_engine == nullptr) std::abort();
    }
    ~EngineReader() override {
        m_engine.reset();
        m_handle->release();
    }
    void read(unsigned long long offset, unsigned size) override {
        if (!m_engine->read(*m_handle, m_fd, BasicIOTypes::ReadReq(m_hook, offset, size, 0, this, false, false)))
            std::abort();
    }
    AsyncEngine::Stats getStats() const { return m_engine->getStats(); }

private:
    bool readCb(const BasicIOTypes::ReadNotify& notify) {
        if (notify.m_obuf == nullptr) std::abort();
        obufFree(notify.m_obuf);
        m_done(m_context);
        return true;
    }

    int m_fd;
    BareHandle* m_handle = new BareHandle;
    std::unique_ptr<AsyncEngine> m_engine;
    BridgeAnchor<EngineReader, const BasicIOTypes::ReadNotify&, bool> m_hook;
};

struct Subject {
    std::string m_name;
    std::unique_ptr<Reader> m_reader;
};

std::vector<Subject> makeSubjects(int fd, unsigned size, unsigned inFlight) {
    std::vector<Subject> subjects;
#ifdef MEDIACORE_HAVE_URING
    subjects.push_back({"bare ring", std::make_unique<bench::UringReader>(fd, inFlight, size)});
    subjects.push_back({"ours, ring", std::make_unique<EngineReader>(fd, AsyncEngine::Kind::Uring)});
#endif
    subjects.push_back({"bare pool", std::make_unique<bench::PoolReader>(fd, inFlight, size, 2)});
    subjects.push_back({"bare pool again", std::make_unique<bench::PoolReader>(fd, inFlight, size, 2)});
    subjects.push_back({"ours, pool", std::make_unique<EngineReader>(fd, AsyncEngine::Kind::Pool)});
    return subjects;
}

void tellCounts(int fd, const bench::SyscallCounter& calls, unsigned size, bool quick) {
    constexpr unsigned inFlight = 32;
    const unsigned total = bench::readsOf(size, inFlight, quick);
    for (const auto kind : {AsyncEngine::Kind::Uring, AsyncEngine::Kind::Pool}) {
        if (AsyncEngine::forTests(kind) == nullptr) continue;
        const char* const name = kind == AsyncEngine::Kind::Uring ? "ring" : "pool";
        EngineReader reader(fd, kind);
        Drive(reader, size, inFlight, total, false).run();
        {
            const bench::HeapCount heap;
            const unsigned long long entered = calls.count();
            const AsyncEngine::Stats before = reader.getStats();
            Drive(reader, size, inFlight, total, false).run();
            const AsyncEngine::Stats after = reader.getStats();
            std::printf("%s, %u KiB x%u: %llu allocations in %u reads (aim 0), %.3f batches and %.3f wakes a read",
                        name, size >> 10, inFlight, heap.allocations(), total,
                        static_cast<double>(after.m_batches - before.m_batches) / total,
                        static_cast<double>(after.m_wakes - before.m_wakes) / total);
            if (calls.available())
                std::printf(", %.3f system calls", static_cast<double>(calls.count() - entered) / total);
            std::printf("\n");
        }
        std::vector<double> times;
        Drive(reader, size, inFlight, total, false).run(&times);
        std::printf("%s, %u KiB x%u: held in the call %.2f us in the middle, %.2f us at the ninety-ninth percentile\n",
                    name, size >> 10, inFlight, bench::median(times) * 1e6, bench::percentile(times, 0.99) * 1e6);
    }
}

void measure(int fd, unsigned size, unsigned inFlight, bool chained, const bench::Options& options) {
    std::vector<Subject> subjects = makeSubjects(fd, size, inFlight);
    bench::Rounds all(options);
    for (Subject& subject : subjects)
        all.add(subject.m_name, bench::driveCase(*subject.m_reader, size, inFlight, chained, options.m_quick));
    all.run("bare pool", "bare pool again");
    for (const Subject& subject : subjects) {
        if (subject.m_name.rfind("ours", 0) != 0) continue;
        const std::string what = std::string(chained ? "chain " : "client ") + std::to_string(size >> 10) + " KiB x" +
                                 std::to_string(inFlight) + ", " + subject.m_name;
        bench::tellBesideBetter(all, what, subject.m_name, inFlight);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::SyscallCounter calls;
    const bench::Folder folder(options);
    const int fd = bench::makeEssence(folder.path("essence.wav"));
    for (const unsigned size : {4096u, 65536u, 524288u})
        tellCounts(fd, calls, size, options.m_quick);
    for (const bool chained : {false, true}) {
        for (const unsigned size : {4096u, 65536u, 524288u}) {
            for (const unsigned inFlight : {1u, 8u, 32u})
                measure(fd, size, inFlight, chained, options);
        }
    }
    close(fd);
    return 0;
}
