// The thread of the change watch: when it looks at which file, and whom it tells.

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "services/file/change_watch.h"
#include "services/file/file_system_kind.h"
#include "services/system/log.h"
#include "support/clock.h"

namespace {

// All in µs. A file is looked at with the first notice of a burst, and then once in so long.
constexpr long long settleTime = 30000;
constexpr long long pollPeriod = 1000000;
constexpr long long lingerTime = 1000000;
// The thread takes news in batches: a wake-up costs more than the work that it is for.
constexpr long long readPause = 10000;
constexpr unsigned wantsPauseMsec = 2;
// How long it sleeps where it can't be woken, for want of a descriptor.
constexpr int deafWaitMsec = 50;

}  // namespace

void ChangeWatch::startMethod() {
    m_task.store(ZarnexPosix::jlock_getCurrentTask(), std::memory_order_relaxed);
    setUp();
    while (!leaves(Clock::nowRelative())) {
        deleteDead();
        takeWants();
        checkDue();
        checkPolled();
        pause();
    }
    tearDown();
    m_task.store(0, std::memory_order_relaxed);
}

void ChangeWatch::setUp() {
    const char* const wish = std::getenv("MEDIACORE_WATCH");
    m_method = Method::Automatic;
    if (wish != nullptr && std::strcmp(wish, "poll") == 0) m_method = Method::Poll;
    if (wish != nullptr && std::strcmp(wish, "inotify") == 0) m_method = Method::Inotify;
    m_emptySince = 0;
    m_nextRead = 0;
    m_roomLeft = true;
    m_toldNoRoom = false;
    Scope lock(m_lock);
    m_wakeFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

// The files go back to where `add` had put them, so that the next thread sets them up.
void ChangeWatch::tearDown() {
    deleteDead();
    Scope lock(m_lock);
    m_files.forEach([this](File& file) MO_NO_THREAD_SAFETY_ANALYSIS {
        if (!file.m_taken) return;
        m_kernel.unwatch(file);
        file.m_taken = file.m_queued = file.m_polled = file.m_there = file.m_vanished = false;
        file.m_path.clear();
        if (file.m_wantedAt == s_notWanted) want(file);
    });
    m_due.clear();
    m_pollList.clear();
    m_polledCount.store(0, std::memory_order_relaxed);
    m_kernel.close();
    if (m_wakeFd >= 0) ::close(m_wakeFd);
    m_wakeFd = -1;
}

// What `add` notes down from here on is for the next thread, which it starts.
bool ChangeWatch::leaves(long long now) {
    Scope lock(m_lock);
    if (m_files.count() > 0 || !m_dead.empty()) {
        m_emptySince = 0;
    } else if (m_emptySince == 0) {
        m_emptySince = now;
    }
    const bool idle = m_emptySince != 0 && now - m_emptySince >= lingerTime;
    if (!idle && !stopRequested()) return false;
    m_active = false;
    return true;
}

int ChangeWatch::untilNext(long long now) const {
    long long next = now + 60 * pollPeriod;
    if (!m_due.empty()) next = std::min(next, m_due.front().m_time);
    if (!m_pollList.empty()) next = std::min(next, m_nextPoll);
    if (m_emptySince != 0) next = std::min(next, m_emptySince + lingerTime);
    if (now < m_nextRead) next = std::min(next, m_nextRead);
    return next <= now ? 0 : static_cast<int>((next - now + 999) / 1000);
}

void ChangeWatch::pause() {
    {
        Scope lock(m_lock);
        if (!m_wants.empty() || !m_dead.empty() || stopRequested()) return;
        m_asleep = m_wakeFd >= 0;
    }
    waitForNews(Clock::nowRelative());
    bool woken = false;
    {
        Scope lock(m_lock);
        m_asleep = false;
        woken = !m_wants.empty() || !m_dead.empty();
    }
    if (woken && !stopRequested()) waitMsec(wantsPauseMsec);
}

void ChangeWatch::waitForNews(long long now) {
    int wakeFd = -1;
    {
        Scope lock(m_lock);
        wakeFd = m_wakeFd;
    }
    pollfd fds[2] = {{wakeFd, POLLIN, 0}, {m_kernel.fd(), POLLIN, 0}};
    // A file that is written to all the time would keep the thread running; its notices wait, and the kernel joins
    // them.
    if (now < m_nextRead) fds[1].fd = -1;
    int wait = untilNext(now);
    if (wakeFd < 0) wait = std::min(wait, deafWaitMsec);
    if (::poll(fds, 2, wait) <= 0) return;
    std::uint64_t count = 0;
    if ((fds[0].revents & POLLIN) != 0 && ::read(wakeFd, &count, sizeof count) < 0 && errno != EAGAIN) return;
    if ((fds[1].revents & POLLIN) != 0) {
        m_kernel.readEvents(*this);
        m_nextRead = Clock::nowRelative() + readPause;
    }
}

void ChangeWatch::noticed(InotifyWatch::Target& target) {
    File& file = static_cast<File&>(target);
    if (file.m_queued) return;
    lookAt(file, std::max(Clock::nowRelative(), file.m_lookedAt + settleTime));
}

void ChangeWatch::lookAt(File& file, long long time) {
    const auto isBefore = [](long long when, const Due& due) { return when < due.m_time; };
    m_due.insert(std::upper_bound(m_due.begin(), m_due.end(), time, isBefore), {&file, time});
    file.m_queued = true;
}

void ChangeWatch::lost() {
    Scope lock(m_lock);
    m_files.forEach([this](File& file) {
        if (file.m_taken) noticed(file);
    });
}

void ChangeWatch::takeWants() {
    std::vector<File*> taken;
    {
        Scope lock(m_lock);
        taken.swap(m_wants);
        for (File* const file : taken) {
            file->m_wantedAt = s_notWanted;
            file->m_taken = true;
        }
    }
    // One that nobody wants any more meanwhile is still there: only this thread deletes what it has taken.
    for (File* const file : taken)
        check(*file);
}

void ChangeWatch::deleteDead() {
    std::vector<File*> dead;
    {
        Scope lock(m_lock);
        dead.swap(m_dead);
    }
    for (File* const file : dead) {
        forget(*file);
        delete file;
    }
}

void ChangeWatch::forget(File& file) {
    m_kernel.unwatch(file);
    setPolled(file, false);
    if (file.m_queued) std::erase_if(m_due, [&file](const Due& due) { return due.m_file == &file; });
}

// Only what is due at the start: a file that is noticed meanwhile has its own time.
void ChangeWatch::checkDue() {
    const long long now = Clock::nowRelative();
    while (!m_due.empty() && m_due.front().m_time <= now) {
        File& file = *m_due.front().m_file;
        m_due.pop_front();
        file.m_queued = false;
        checkNoticed(file);
    }
}

// A file that isn't there at the first notice may be on its way back: it is believed to have gone when that has lasted.
void ChangeWatch::checkNoticed(File& file) {
    file.m_lookedAt = Clock::nowRelative();
    FileStat stat;
    std::string path;
    const bool vanished = file.m_there && !file.m_vanished && !FileTable::locate(file.m_identity, path, stat);
    file.m_vanished = vanished;
    if (vanished) return lookAt(file, file.m_lookedAt + settleTime);
    check(file);
}

void ChangeWatch::checkPolled() {
    const long long now = Clock::nowRelative();
    if (m_pollList.empty() || now < m_nextPoll) return;
    m_nextPoll = now + pollPeriod;
    m_roomLeft = true;
    const std::vector<File*> list = m_pollList;
    for (File* const file : list)
        check(*file);
}

// Looks where the file is now, moves its watches there, and tells those who know another version.
void ChangeWatch::check(File& file) {
    const bool wasThere = file.m_there;
    const FileKey oldKey = file.m_key;
    FileStat stat;
    std::string path;
    file.m_there = FileTable::locate(file.m_identity, path, stat);
    if (file.m_there) {
        follow(file, path, stat);
    } else {
        if (file.m_path.empty()) file.m_path = FileTable::pathOf(file.m_identity);
        if (m_method != Method::Poll && m_kernel.fd() >= 0) m_kernel.watchFolder(file, file.m_path);
    }
    const bool watched = m_method != Method::Poll && InotifyWatch::isComplete(file);
    setPolled(file, !file.m_there || !watched || file.m_unseen);
    std::uint32_t reason = Removed;
    if (file.m_there) reason = !wasThere ? PutBack : (file.m_key == oldKey ? Rewritten : Replaced);
    tell(file, file.m_there ? stat.version() : 0, reason);
}

void ChangeWatch::follow(File& file, const std::string& path, FileStat& stat) {
    const bool other = path != file.m_path || !(stat.m_key == file.m_key);
    if (!other && (m_method == Method::Poll || InotifyWatch::isComplete(file) || !m_roomLeft)) return;
    if (other) FileTable::keepHandle(file.m_identity);
    file.m_path = path;
    file.m_key = stat.m_key;
    file.m_unseen = m_method == Method::Automatic && hasUnseenWriters(path.c_str());
    if (m_method == Method::Poll) return;
    setWatches(file);
    // What happened before the watch was set shows now, what comes later will be noticed.
    std::string again;
    file.m_there = FileTable::locate(file.m_identity, again, stat);
    if (file.m_there && (again != path || !(stat.m_key == file.m_key))) noticed(file);
}

void ChangeWatch::setWatches(File& file) {
    int error = m_kernel.open();
    if (error == 0) error = m_kernel.watch(file, file.m_path);
    if (error == 0) {
        m_toldNoRoom = false;
        return;
    }
    if (error != ENOSPC && error != EMFILE && error != ENFILE) return;
    m_roomLeft = false;
    if (m_toldNoRoom) return;
    m_toldNoRoom = true;
    warningMsg("file watch: the system has no watches left (%s); files are looked at once a second\n",
               std::strerror(error));
}

void ChangeWatch::setPolled(File& file, bool polled) {
    if (polled == file.m_polled) return;
    file.m_polled = polled;
    if (polled) {
        if (m_pollList.empty()) m_nextPoll = Clock::nowRelative() + pollPeriod;
        m_pollList.push_back(&file);
    } else {
        std::erase(m_pollList, &file);
    }
    m_polledCount.store(static_cast<unsigned>(m_pollList.size()), std::memory_order_relaxed);
}

void ChangeWatch::tell(File& file, unsigned long long version, std::uint32_t reason) {
    // A hook that asks anew with an old version is served by the next look, or this would never end.
    constexpr int most = 64;
    for (int i = 0; i < most && tellOne(file, version, reason); ++i) {
    }
}

// One of those who know another version. Answers whether there was one.
bool ChangeWatch::tellOne(File& file, unsigned long long version, std::uint32_t reason) {
    BasicIOTypes::Change change;
    const BasicIOTypes::ChangeHook* hook = nullptr;
    {
        Scope lock(m_lock);
        const auto isBehind = [version](const Subscriber& subscriber) { return subscriber.m_version != version; };
        const auto behind = std::find_if(file.m_subscribers.begin(), file.m_subscribers.end(), isBehind);
        if (behind == file.m_subscribers.end()) return false;
        behind->m_version = version;
        hook = behind->m_hook;
        change.m_id = behind->m_key;
        m_running = hook;
    }
    change.m_path = file.m_path.c_str();
    change.m_reason = reason;
    hook->callCb(change);
    Scope lock(m_lock);
    m_running = nullptr;
    return true;
}
