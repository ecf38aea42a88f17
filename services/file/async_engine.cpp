#include "services/file/async_engine.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "services/buffer/obuf_pool.h"
#include "services/file/basic_file_io.h"
#include "services/file/file_ops.h"
#include "services/file/pool_engine.h"
#include "services/file/request_queue.h"
#include "services/file/uring_engine.h"
#include "services/system/locks.h"
#include "services/system/log.h"
#include "services/system/msg_clamp.h"
#include "support/signals.h"

namespace {

// A second worker pays for its wake-up from some 64 KiB of waiting work on. Sleeping at once instead of looking at the
// empty queue for a while is meant: a spinning worker keeps the client that it waits for from running.
constexpr RequestQueue::Limits s_readLimits{32, 256 * 1024, 64 * 1024};
// Each of these may sit on a device, so each request is worth a worker of its own.
constexpr RequestQueue::Limits s_slowLimits{1, 0, 0};
constexpr RequestQueue::Limits s_writeLimits{1024, ~0ull, ~0ull};
constexpr unsigned s_readers = 2;
constexpr unsigned s_slowReaders = 8;

constexpr const char* s_readerNames[s_readers] = {"media io 0", "media io 1"};
constexpr const char* s_slowNames[s_slowReaders] = {"media io slow 0", "media io slow 1", "media io slow 2",
                                                    "media io slow 3", "media io slow 4", "media io slow 5",
                                                    "media io slow 6", "media io slow 7"};

bool isOffered(AsyncEngine::Kind kind) {
#ifdef MEDIACORE_HAVE_URING
    if (kind == AsyncEngine::Kind::Uring) return UringWorker::isOffered();
#endif
    return kind == AsyncEngine::Kind::Pool;
}

AsyncEngine::Kind chooseKind() {
    const char* wanted = std::getenv("MEDIACORE_ASYNC");
    if (wanted != nullptr && std::strcmp(wanted, "pool") == 0) return AsyncEngine::Kind::Pool;
    if (wanted != nullptr && *wanted != 0 && std::strcmp(wanted, "uring") != 0) {
        warningMsg("MEDIACORE_ASYNC=%s is neither uring nor pool", wanted);
    }
    if (isOffered(AsyncEngine::Kind::Uring)) return AsyncEngine::Kind::Uring;
    if (wanted != nullptr && std::strcmp(wanted, "uring") == 0)
        warningMsg("MEDIACORE_ASYNC=uring: the kernel gives no ring");
    return AsyncEngine::Kind::Pool;
}

// A queue with the threads that serve it.
class Crew {
public:
    explicit Crew(const RequestQueue::Limits& limits) : m_queue(limits) {}
    ~Crew() { clear(); }

    void add(AsyncWorker* worker) { m_workers.push_back(worker); }
    bool start();
    void finish();
    void clear();

    RequestQueue m_queue;

private:
    std::vector<AsyncWorker*> m_workers;  // owned
};

// Answers whether there is a thread: the ones that couldn't be had are done without.
bool Crew::start() {
    m_queue.open();
    unsigned started = 0;
    for (AsyncWorker* worker : m_workers)
        started += worker->start() ? 1 : 0;
    if (started == 0) m_queue.close();
    return started != 0;
}

void Crew::finish() {
    m_queue.close();
    for (AsyncWorker* worker : m_workers)
        worker->join();
}

void Crew::clear() {
    finish();
    for (AsyncWorker* worker : m_workers)
        delete worker;
    m_workers.clear();
}

}  // namespace

class AsyncEngine::Impl {
public:
    explicit Impl(Kind kind);
    ~Impl() { stop(); }

    bool submit(Crew& crew, const AsyncRequest& request);
    void stop();
    void stopForGood();
    bool idle() const;
    Stats getStats() const;
    void manage();

    const Kind m_kind;
    Crew m_slow{s_slowLimits};  // before the readers that use it
    Crew m_reads{s_readLimits};
    Crew m_writes{s_writeLimits};

private:
    bool start();
    bool checkFinishedCb(bool report);
    bool stopThreadsCb();
    bool releaseMemoryCb();

    WriteWorker* m_writer;
    ZarnexPosix::JMutex m_mutex;  // held while the threads are started or ended
    bool m_running MO_GUARDED_BY(m_mutex) = false;
    std::atomic<int> m_stops{0};  // above 0 requests are refused, so that nobody starts what is ending
    Subsystem::Signals<Impl> m_signals{
        "AsyncEngine",          *this, nullptr, nullptr, &Impl::checkFinishedCb, &Impl::stopThreadsCb,
        &Impl::releaseMemoryCb, 90};
};

AsyncEngine::Impl::Impl(Kind kind) : m_kind(kind), m_writer(new WriteWorker(m_writes.m_queue, "media io writer")) {
    m_writes.add(m_writer);
#ifdef MEDIACORE_HAVE_URING
    if (kind == Kind::Uring) {
        for (const char* name : s_readerNames)
            m_reads.add(new UringWorker(m_reads.m_queue, name));
        return;
    }
#endif
    for (const char* name : s_slowNames)
        m_slow.add(new PoolWorker(m_slow.m_queue, nullptr, name));
    for (const char* name : s_readerNames)
        m_reads.add(new PoolWorker(m_reads.m_queue, &m_slow.m_queue, name));
}

bool AsyncEngine::Impl::submit(Crew& crew, const AsyncRequest& request) {
    request.m_handle->preserve();
    for (;;) {
        if (m_stops.load(std::memory_order_relaxed) != 0) break;
        const RequestQueue::Outcome outcome = crew.m_queue.submit(request);
        if (outcome == RequestQueue::Outcome::Accepted) return true;
        if (outcome == RequestQueue::Outcome::NoMemory || !start()) break;
    }
    request.m_handle->release();
    return false;
}

bool AsyncEngine::Impl::start() {
    // A worker finds its queue closed only while the threads are being ended, and he who ends them holds the lock.
    if (AsyncWorker::current() != nullptr && m_stops != 0) return false;
    const ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
    if (m_running) return true;
    if (m_stops != 0) return false;
    m_slow.start();
    m_running = m_writes.start() && m_reads.start();
    if (!m_running) {
        static MsgClamp s_clamp;
        s_clamp.error("AsyncEngine: no thread for asynchronous reads and writes");
        m_reads.finish();
        m_slow.finish();
        m_writes.finish();
    }
    return m_running;
}

void AsyncEngine::Impl::stop() {
    const ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
    ++m_stops;
    m_reads.finish();
    m_slow.finish();
    m_writes.finish();
    m_running = false;
    --m_stops;
}

void AsyncEngine::Impl::stopForGood() {
    ++m_stops;
    stop();
}

bool AsyncEngine::Impl::idle() const {
    const RequestQueue::Counters reads = m_reads.m_queue.getCounters();
    const RequestQueue::Counters slow = m_slow.m_queue.getCounters();
    const RequestQueue::Counters writes = m_writes.m_queue.getCounters();
    return reads.m_accepted == reads.m_completed && slow.m_accepted == slow.m_completed &&
           writes.m_accepted == writes.m_completed;
}

AsyncEngine::Stats AsyncEngine::Impl::getStats() const {
    const RequestQueue::Counters slow = m_slow.m_queue.getCounters();
    const RequestQueue::Counters reads = m_reads.m_queue.getCounters();
    const RequestQueue::Counters writes = m_writes.m_queue.getCounters();
    Stats stats;
    stats.m_accepted = reads.m_accepted + writes.m_accepted;
    // A read that was passed on counts as answered in the first queue already.
    stats.m_completed =
        reads.m_completed + writes.m_completed - std::min(reads.m_completed, slow.m_accepted - slow.m_completed);
    stats.m_batches = reads.m_batches + slow.m_batches + writes.m_batches;
    stats.m_wakes = reads.m_wakes + slow.m_wakes + writes.m_wakes;
    stats.m_writeCalls = m_writer->getCalls();
    stats.m_nodeBlocks = reads.m_blocks + slow.m_blocks + writes.m_blocks;
    return stats;
}

void AsyncEngine::Impl::manage() { Subsystem::Registry::registerSignalHandlers(m_signals); }

bool AsyncEngine::Impl::checkFinishedCb(bool report) {
    if (idle()) return true;
    if (report) {
        const Stats stats = getStats();
        Subsystem::Registry::errMsg("AsyncEngine: %llu requests are under way\n", stats.m_accepted - stats.m_completed);
    }
    return false;
}

bool AsyncEngine::Impl::stopThreadsCb() {
    stop();
    return true;
}

bool AsyncEngine::Impl::releaseMemoryCb() {
    obufTrim();
    return true;
}

AsyncEngine::AsyncEngine(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

AsyncEngine::~AsyncEngine() = default;

AsyncEngine& AsyncEngine::get() {
    // The engine itself is for ever, since handles may go after the statics; its threads end with the statics.
    struct Holder {
        Holder() { m_engine->m_impl->manage(); }
        ~Holder() { m_engine->m_impl->stopForGood(); }
        AsyncEngine* const m_engine = new AsyncEngine(std::make_unique<Impl>(chooseKind()));
    };
    static Holder holder;
    return *holder.m_engine;
}

std::unique_ptr<AsyncEngine> AsyncEngine::forTests(Kind kind) {
    if (!isOffered(kind)) return nullptr;
    return std::unique_ptr<AsyncEngine>(new AsyncEngine(std::make_unique<Impl>(kind)));
}

bool AsyncEngine::onEngineThread() { return AsyncWorker::current() != nullptr; }

void AsyncEngine::serveMeanwhile() {
    if (AsyncWorker* const worker = AsyncWorker::current(); worker != nullptr) worker->serveMeanwhile();
}

bool AsyncEngine::read(BasicFileIO& keepAlive, int fd, const BasicIOTypes::ReadReq& request, AsyncSink* sink) {
    if (fd < 0 || request.m_hook == nullptr) return false;
    AsyncRequest own;
    own.m_handle = &keepAlive;
    own.m_sink = sink;
    own.m_hook = request.m_hook;
    own.m_tag = request.m_tag;
    own.m_offset = request.m_offset;
    own.m_size = request.m_size;
    own.m_allocId = request.m_allocId;
    own.m_fd = fd;
    own.m_begun = FileOps::begin(FileOps::Kind::Read, sink != nullptr ? sink->getFileId() : OsPathId(0), own.m_offset,
                                 own.m_size);
    if (m_impl->submit(m_impl->m_reads, own)) return true;
    FileOps::cancel(FileOps::Kind::Read, own.m_begun);
    return false;
}

bool AsyncEngine::write(BasicFileIO& keepAlive, int fd, unsigned long long offset, phantom_OBUF* obuf,
                        AsyncSink& sink) {
    AsyncRequest own;
    own.m_handle = &keepAlive;
    own.m_sink = &sink;
    own.m_obuf = obuf;
    own.m_offset = offset;
    own.m_size = obufSize(obuf);
    own.m_fd = fd;
    own.m_begun = FileOps::begin(FileOps::Kind::Write, sink.getFileId(), offset, own.m_size);
    if (fd >= 0 && obuf != nullptr && m_impl->submit(m_impl->m_writes, own)) return true;
    FileOps::cancel(FileOps::Kind::Write, own.m_begun);
    obufFree(obuf);
    return false;
}

void AsyncEngine::stop() { m_impl->stop(); }

bool AsyncEngine::idle() const { return m_impl->idle(); }

AsyncEngine::Kind AsyncEngine::getKind() const { return m_impl->m_kind; }

AsyncEngine::Stats AsyncEngine::getStats() const { return m_impl->getStats(); }
