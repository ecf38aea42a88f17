#pragma once

#include <atomic>
#include <deque>
#include <string>
#include <vector>

#include "services/file/basic_io_types.h"
#include "services/file/file_table.h"
#include "services/file/inotify_watch.h"
#include "services/system/locks.h"
#include "support/base_thread.h"
#include "support/signals.h"

// Tells who asked for it that a file has changed: that its version differs from the one he knows, 0 standing for a file
// that has gone. The kernel's notices only say when to look; where they can't see all writers, or none are left, and
// while a file is gone, it is looked at once a second.
// **Threads:** `add`, `remove` and `finish` from any; all work and all calls on one thread, "file watch", which starts
// with the first watch and ends a second after the last, or by the subsystem's stop signal.
// **Locks:** m_lock; none is held during a call. `add` and `remove` only note down what is wanted, a system call or two
// apart that wake the thread; what changes until it comes round shows in the version.
class ChangeWatch final : private BaseThread, private InotifyWatch::Sink {
public:
    // What was seen, for messages: `Change::m_reason`.
    enum Reason : std::uint32_t { Rewritten = 1, Replaced = 2, Removed = 3, PutBack = 4 };

    static ChangeWatch& get();

    void add(const BasicIOTypes::ChangeHook& hook, BasicIOTypes::PathWatch watch, unsigned long long version);
    void remove(const BasicIOTypes::ChangeHook& hook, OsPathId fileId);
    void finish(const BasicIOTypes::ChangeHook& hook);
    // Ends the thread. The watches stay and are taken up again, with what has changed meanwhile, by the next `add`.
    bool stop();
    // Files watched now; for tests and status lines.
    unsigned size() const;
    // Files that are looked at once a second, as of the last pass.
    unsigned getPolled() const { return m_polledCount.load(std::memory_order_relaxed); }

private:
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    enum class Method { Automatic, Poll, Inotify };

    struct Subscriber {
        const BasicIOTypes::ChangeHook* m_hook;  // borrowed
        OsPathId m_key;                          // what the hook is told
        unsigned long long m_version;            // the last one that it was told of
    };

    static constexpr std::size_t s_notWanted = ~std::size_t{0};

    struct File : InotifyWatch::Target {
        explicit File(FileIdentity& identity) : m_identity(identity) {}
        ~File() { FileTable::release(m_identity); }

        OsPathId getId() const { return m_identity.getId(); }

        FileIdentity& m_identity;  // counted
        // Under m_lock.
        File* m_nextById = nullptr;
        std::vector<Subscriber> m_subscribers;
        std::size_t m_wantedAt = s_notWanted;  // place in m_wants
        bool m_taken = false;                  // the thread knows it and is the one to delete it
        // The thread's.
        std::string m_path;
        FileKey m_key;
        bool m_there = false;
        bool m_vanished = false;   // was there, and wasn't at the last look
        bool m_queued = false;     // in m_due
        bool m_polled = false;     // in m_pollList
        bool m_unseen = false;     // others than this machine may write it
        long long m_lookedAt = 0;  // µs of Clock::nowRelative, when it was last looked at for a notice
    };
    struct IdHash {
        std::uint64_t operator()(const File& file) const { return file.getId().getId(); }
    };
    struct Due {
        File* m_file;
        long long m_time;  // µs of Clock::nowRelative
    };

    ChangeWatch();

    void startMethod() override;
    void noticed(InotifyWatch::Target& target) override;
    void lost() override;
    bool stopSignal() { return stop(); }

    File* find(OsPathId id) const MO_REQUIRES(m_lock);
    File* enter(OsPathId id) MO_REQUIRES(m_lock);
    void want(File& file) MO_REQUIRES(m_lock);
    void unwant(File& file) MO_REQUIRES(m_lock);
    void wakeThread() MO_REQUIRES(m_lock);
    void ensureThread();

    void setUp();
    void tearDown();
    bool leaves(long long now);
    void pause();
    void waitForNews(long long now);
    int untilNext(long long now) const;
    void takeWants();
    void deleteDead();
    void forget(File& file);
    void lookAt(File& file, long long time);
    void checkDue();
    void checkNoticed(File& file);
    void checkPolled();
    void check(File& file);
    void follow(File& file, const std::string& path, FileStat& stat);
    void setWatches(File& file);
    void setPolled(File& file, bool polled);
    void tell(File& file, unsigned long long version, std::uint32_t reason);
    bool tellOne(File& file, unsigned long long version, std::uint32_t reason);

    mutable ZarnexPosix::JMutex m_lock;
    ZarnexPosix::JMutex m_startLock MO_ACQUIRED_BEFORE(m_lock);
    NodeTable<File, &File::m_nextById, IdHash> m_files MO_GUARDED_BY(m_lock);
    std::vector<File*> m_wants MO_GUARDED_BY(m_lock);  // to be set up or looked at
    std::vector<File*> m_dead MO_GUARDED_BY(m_lock);   // nobody's any more; the thread deletes them
    const BasicIOTypes::ChangeHook* m_running MO_GUARDED_BY(m_lock) = nullptr;
    bool m_active MO_GUARDED_BY(m_lock) = false;  // the thread will still look at m_wants
    bool m_asleep MO_GUARDED_BY(m_lock) = false;  // and has to be woken for it
    int m_wakeFd MO_GUARDED_BY(m_lock) = -1;
    std::atomic<ZarnexPosix::jlock_Task> m_task{0};  // the thread, while it runs
    std::atomic<unsigned> m_polledCount{0};

    // The thread's.
    InotifyWatch m_kernel;
    Method m_method = Method::Automatic;
    std::deque<Due> m_due;  // in the order of their times
    std::vector<File*> m_pollList;
    long long m_nextPoll = 0;    // these three in µs of Clock::nowRelative
    long long m_nextRead = 0;    // not before this are the kernel's notices taken again
    long long m_emptySince = 0;  // 0 while there are files
    bool m_roomLeft = true;      // the kernel has had watches left in this pass
    bool m_toldNoRoom = false;

    Subsystem::Signals<ChangeWatch> m_signals;
};
