#include "services/file/change_watch.h"

#include <unistd.h>

#include <algorithm>
#include <new>

#include "services/system/log.h"
#include "support/clock.h"

namespace {

constexpr unsigned threadPriority = 50;
constexpr unsigned threadStack = 256 * 1024;
constexpr unsigned signalPriority = 200;  // behind the cache, whose thread takes its watches back

std::atomic<ChangeWatch*> s_instance{nullptr};
std::atomic<pid_t> s_process{0};  // that made it

// The thread must not go on while static objects are destroyed. A process that was forked off later has no such thread.
struct AtExit {
    ~AtExit() {
        ChangeWatch* const watch = s_instance.load(std::memory_order_acquire);
        if (watch != nullptr && ::getpid() == s_process.load(std::memory_order_relaxed)) watch->stop();
    }
};
AtExit s_atExit;

}  // namespace

ChangeWatch::ChangeWatch()
    : BaseThread("file watch", threadPriority, threadStack),
      m_signals("ChangeWatch", *this, nullptr, nullptr, nullptr, &ChangeWatch::stopSignal, nullptr, signalPriority) {}

ChangeWatch& ChangeWatch::get() {
    // Never destroyed: the last objects take their watches back very late.
    static ChangeWatch* const watch = [] {
        ChangeWatch* const made = new ChangeWatch;
        Subsystem::Registry::registerSignalHandlers(made->m_signals);
        s_process.store(::getpid(), std::memory_order_relaxed);
        s_instance.store(made, std::memory_order_release);
        return made;
    }();
    return *watch;
}

ChangeWatch::File* ChangeWatch::find(OsPathId id) const {
    return m_files.find(id.getId(), [id](const File& file) { return file.getId() == id; });
}

ChangeWatch::File* ChangeWatch::enter(OsPathId id) {
    FileIdentity* const identity = FileTable::acquireById(id);
    if (identity == nullptr) return nullptr;
    File* const file = new (std::nothrow) File(*identity);
    if (file == nullptr) {
        FileTable::release(*identity);
        return nullptr;
    }
    m_files.insert(*file);
    return file;
}

void ChangeWatch::want(File& file) {
    if (file.m_wantedAt == s_notWanted) {
        file.m_wantedAt = m_wants.size();
        m_wants.push_back(&file);
    }
    wakeThread();
}

void ChangeWatch::unwant(File& file) {
    if (file.m_wantedAt == s_notWanted) return;
    File* const last = m_wants.back();
    m_wants[file.m_wantedAt] = last;
    last->m_wantedAt = file.m_wantedAt;
    m_wants.pop_back();
    file.m_wantedAt = s_notWanted;
}

void ChangeWatch::wakeThread() {
    if (!m_asleep) return;
    const std::uint64_t one = 1;
    m_asleep = ::write(m_wakeFd, &one, sizeof one) < 0;
}

void ChangeWatch::add(const BasicIOTypes::ChangeHook& hook, BasicIOTypes::PathWatch watch, unsigned long long version) {
    const OsPathId id = watch.m_fileId != 0 ? watch.m_fileId : watch.m_cacheId;
    bool active = false;
    {
        Scope lock(m_lock);
        File* file = find(id);
        if (file == nullptr) file = enter(id);
        if (file == nullptr) {
            warningMsg("file watch: no file of id 0x%llx is known\n", id.getId());
            return;
        }
        const auto same = [&hook](const Subscriber& subscriber) { return subscriber.m_hook == &hook; };
        const auto known = std::find_if(file->m_subscribers.begin(), file->m_subscribers.end(), same);
        const Subscriber subscriber{&hook, watch.m_cacheId, version};
        if (known != file->m_subscribers.end()) {
            *known = subscriber;
        } else {
            file->m_subscribers.push_back(subscriber);
        }
        want(*file);
        active = m_active;
    }
    if (!active) ensureThread();
}

void ChangeWatch::remove(const BasicIOTypes::ChangeHook& hook, OsPathId fileId) {
    File* unused = nullptr;
    {
        Scope lock(m_lock);
        File* const file = find(fileId);
        if (file == nullptr) return;
        std::erase_if(file->m_subscribers,
                      [&hook](const Subscriber& subscriber) { return subscriber.m_hook == &hook; });
        if (!file->m_subscribers.empty()) return;
        m_files.remove(*file);
        unwant(*file);
        if (file->m_taken) {
            m_dead.push_back(file);
            wakeThread();
        } else {
            unused = file;
        }
    }
    delete unused;
}

void ChangeWatch::finish(const BasicIOTypes::ChangeHook& hook) {
    if (m_task.load(std::memory_order_relaxed) == ZarnexPosix::jlock_getCurrentTask()) return;
    for (;;) {
        {
            Scope lock(m_lock);
            if (m_running != &hook) return;
        }
        waitMsec(1);
    }
}

unsigned ChangeWatch::size() const {
    Scope lock(m_lock);
    return m_files.count();
}

void ChangeWatch::ensureThread() {
    Scope start(m_startLock);
    {
        Scope lock(m_lock);
        if (m_active) return;
        m_active = true;
    }
    // The one before may still be on its way out.
    BaseThread::wait();
    if (BaseThread::start()) return;
    Scope lock(m_lock);
    m_active = false;
    errorMsg("file watch: no thread; changes of files are not seen\n");
}

bool ChangeWatch::stop() {
    if (m_task.load(std::memory_order_relaxed) == ZarnexPosix::jlock_getCurrentTask()) return BaseThread::stop(false);
    Scope start(m_startLock);
    BaseThread::stop(false);
    {
        Scope lock(m_lock);
        wakeThread();
    }
    BaseThread::wait();
    return true;
}
