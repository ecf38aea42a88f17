#pragma once

#include <cstdint>
#include <memory>

#include "services/file/basic_io_types.h"
#include "support/visibility.h"

class BasicFileIO;

// What an asynchronous request tells the handle that it belongs to, apart from the requester's hook.
// **Threads:** called on an engine thread with no engine lock held; the descriptor is no longer used by the request.
class AsyncSink {
public:
    // A read has ended with 0 or an errno value. Comes before the requester's hook is called, so a hook that closes the
    // handle doesn't wait for itself.
    virtual void readDone(int error) = 0;
    // A write has ended: all bytes are with the system, or `error` is an errno value. The obuf is freed already.
    virtual void writeDone(unsigned long long offset, unsigned size, int error) = 0;
    // Asked before a write up to `end` is tried. An errno value above 0 lets it fail untried: an earlier one of the
    // handle has failed, and nothing may overtake it.
    virtual int prepareWrite([[maybe_unused]] int fd, [[maybe_unused]] unsigned long long end) { return 0; }
    // Which file it is, for those who ask what is under way; 0 when that isn't known.
    virtual OsPathId getFileId() const { return 0; }

protected:
    ~AsyncSink() = default;
};

// The asynchronous engine: takes reads and writes of open descriptors and answers them on its own threads.
// **Threads:** `read` and `write` from any thread, hooks included. Hooks run on the engine's threads, several at once,
// and may submit again, close handles and drop the last reference to one. What else waits for other requests in a hook
// polls, with `serveMeanwhile`.
// **Locks:** none is held while a hook or a sink runs; the engine's locks are leaves.
// **Owns:** a reference to the handle of each accepted request until its answer has been given.
// Each accepted request is answered exactly once. A read is whole or it fails: one that meets the end of the file is
// told as ENODATA, one without memory as ENOMEM, others with the system's errno value.
class MO_PUBLIC AsyncEngine {
public:
    enum class Kind : std::uint32_t { Uring = 0, Pool = 1 };

    // Counters since the start, for tests and measurements.
    struct Stats {
        unsigned long long m_accepted = 0;    // reads and writes accepted
        unsigned long long m_completed = 0;   // reads and writes answered
        unsigned long long m_batches = 0;     // groups that workers took from the queue
        unsigned long long m_wakes = 0;       // sleeping workers woken
        unsigned long long m_writeCalls = 0;  // system calls that wrote
        unsigned long long m_nodeBlocks = 0;  // times that the engine took memory for requests
    };

    // The process's engine, made on first use; its threads start with its first request. MEDIACORE_ASYNC=uring|pool
    // chooses its kind, otherwise io_uring is taken where the kernel offers it.
    static AsyncEngine& get();
    // An engine of its own. Gives: null when the kernel doesn't offer this kind. Destroying it ends what is under way.
    static std::unique_ptr<AsyncEngine> forTests(Kind kind);
    // True on a thread of any engine.
    static bool onEngineThread();
    // On an engine's thread, inside a hook: works on other requests that are at hand, whose hooks are then called from
    // inside this one. Whoever polls for the end of requests in a hook calls it each time, so as not to wait for
    // himself. Elsewhere it does nothing.
    static void serveMeanwhile();

    AsyncEngine(const AsyncEngine&) = delete;
    AsyncEngine& operator=(const AsyncEngine&) = delete;
    ~AsyncEngine();

    // Starts a read of `request.m_size` bytes. The descriptor must stay open until `readDone`, or the hook without a
    // sink. Fails: false for a bad descriptor number, no memory for the request, or an engine that is stopping; no
    // answer comes.
    bool read(BasicFileIO& keepAlive, int fd, const BasicIOTypes::ReadReq& request, AsyncSink* sink = nullptr);
    // Starts a write of all bytes of the obuf. Writes of one handle reach the file in the order of the calls;
    // neighbours are joined. Takes: the obuf, always. Fails: false as `read`, or for a null obuf; the sink is not told.
    bool write(BasicFileIO& keepAlive, int fd, unsigned long long offset, phantom_OBUF* obuf, AsyncSink& sink);
    // Finishes what is under way and ends the threads; requests are refused meanwhile. A later request starts them
    // again. Thread: not an engine thread.
    void stop();

    // True when every accepted request has been answered.
    bool idle() const;
    Kind getKind() const;
    Stats getStats() const;

private:
    class Impl;
    explicit AsyncEngine(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> m_impl;
};
