#include "mediautil/cache/cached_media_obj.h"

#include <limits>

#include "mediautil/object/media_obj_impl.h"
#include "services/system/log.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// Start, stop and the operator's view. The cache starts itself when it is made; an init signal that comes later
// restarts its thread.

std::atomic<CachedMediaObj*> CachedMediaObj::cachedMediaObj{nullptr};
CachedMediaObj* CachedMediaObj::debugThis = nullptr;

namespace {

constexpr unsigned s_reactiveBits[] = {MediaDbg::ListObjects, MediaDbg::Status, MediaDbg::FlushAll};

void clearReactiveBits() {
    for (unsigned bit : s_reactiveBits)
        mediaObjDbg.clearBit(bit);
}

FixedPoint<16> seconds(unsigned raw) {
    return FixedPoint<16>(static_cast<long long>(raw), FixedPoint<16>::AlreadyFixed());
}

// A process that ends without a shutdown still lets go of what nobody holds, while all that this needs is alive.
class LettingGo {
public:
    explicit LettingGo(CachedMediaObj& cache) : m_cache(cache) {}
    ~LettingGo() {
        m_cache.stopThreadsCb();
        m_cache.expireZombies(std::numeric_limits<long long>::max() / 2, nullptr);
    }

private:
    CachedMediaObj& m_cache;
};

}  // namespace

// The singleton's own protocol may cost a wait when several threads ask at once; it serves the making only.
CachedMediaObj* CachedMediaObj::getRef() {
    if (CachedMediaObj* instance = cachedMediaObj.load(std::memory_order_acquire)) return instance;
    static CachedMediaObj* slot = nullptr;
    CachedMediaObj* instance = newSingleton(slot);
    cachedMediaObj.store(instance, std::memory_order_release);
    static const LettingGo atExit(*instance);
    return instance;
}

CachedMediaObj::CachedMediaObj()
    : m_rereader(*this, &CachedMediaObj::reReader, "media re-reader", 93, 16384),
      m_changeAnchor(*this, &CachedMediaObj::changeCb),
      m_debugAnchor(*this, &CachedMediaObj::debugCb),
      m_signals("CachedMediaObj", *this, &CachedMediaObj::initCb, &CachedMediaObj::shutdownSignalCb,
                &CachedMediaObj::checkFinishedCb, &CachedMediaObj::stopThreadsCb, nullptr, 100) {
    debugThis = this;
    mediaObjDbg.set(&m_debugAnchor);
    mediaZombieTime.set(&m_debugAnchor);
    mediaCacheDuration.set(&m_debugAnchor);
    Subsystem::Registry::registerSignalHandlers(m_signals);
    initCb();
    // A command that was given before there was a cache.
    if (mediaObjDbg.on()) {
        debugCb(mediaObjDbg.get());
        clearReactiveBits();
    }
    offerControl();
}

CachedMediaObj::~CachedMediaObj() = default;

bool CachedMediaObj::initCb() {
    if (m_rereader.running()) {
        Subsystem::Registry::errMsg("CMO::initCb, thread already running\n");
        stopThreadsCb();
    }
    m_zombieTime = mediaZombieTime.get() * 1000000ll;
    m_stopping = false;
    m_rereader.start();
    return true;
}

bool CachedMediaObj::shutdownSignalCb() {
    m_zombieTime = 0;
    m_stopping = true;
    return true;
}

bool CachedMediaObj::stopThreadsCb() {
    m_rereader.stop(true);
    return true;
}

bool CachedMediaObj::checkFinishedCb(bool report) {
    if (!m_rereader.running()) flushAll(nullptr);
    ZarnexPosix::ScopeLock<ExpireLock> pass(m_expireLock);
    if (!m_mapLock.trylock()) {
        if (report) Subsystem::Registry::errMsg("CMO::checkFinishedCb, lock appears stuck\n");
        return false;
    }
    const bool finished = reportLeftovers(report);
    m_mapLock.unlock();
    return finished;
}

// Answers whether nothing is left.
bool CachedMediaObj::reportLeftovers(bool report) {
    const bool empty = m_map.empty() && m_zombies.empty();
    if (empty || !report) return empty;
    int index = 0;
    for (const auto& [id, object] : m_map) {
        Subsystem::Registry::errMsg("CMO::checkFinishedCb, map[%d]: obj=%s\n", index++,
                                    object != nullptr ? object->toString(true).get() : "nil");
    }
    index = 0;
    for (const MediaObj* object : m_zombies) {
        Subsystem::Registry::errMsg("CMO::checkFinishedCb, zombies[%d]: obj=%s\n", index++,
                                    object != nullptr ? object->toString(true).get() : "nil");
    }
    return false;
}

// Asks for the map lock for a while only: who looks into a hung cache must not hang himself.
bool CachedMediaObj::lockMapPatiently() {
    constexpr long long patience = 1000000;  // µs
    const long long start = Clock::nowRelative();
    bool locked = m_mapLock.trylock();
    while (!locked && Clock::nowRelative() - start < patience) {
        waitMsec(1);
        locked = m_mapLock.trylock();
    }
    return locked;
}

void CachedMediaObj::trace(MediaObj::Trace kind) {
    const long long start = Clock::nowRelative();
    bool locked = lockMapPatiently();
    infoMsg("%s%d cached media objects, %d zombies, %d active.\n", locked ? "" : "cache locked! ",
            static_cast<int>(m_map.size()), static_cast<int>(m_zombies.size()), MediaObjImpl::active.getCount());
    if (locked && kind == MediaObj::Trace::Flush) {
        m_mapLock.unlock();
        locked = false;
        flushAll(nullptr);
    }
    // Listed even without the lock, in order to see something on a hung system.
    if (kind == MediaObj::Trace::List) listObjects(start);
    if (locked) m_mapLock.unlock();
}

void CachedMediaObj::listObjects(long long now) {
    int number = 0;
    for (const auto& [id, object] : m_map) {
        ++number;
        if (object != nullptr) {
            infoMsg("o#%d[0x%llx]: %s\n", number, id.getId(), object->toString(true).get());
        } else {
            infoMsg("o#%d[0x%llx]: 0x%llx reserved\n", number, id.getId(), id.getId());
        }
    }
    number = 0;
    for (const MediaObj* object : m_zombies) {
        const int age = object != nullptr ? static_cast<int>((now - object->impl().getLastRefTime()) / 100000) : 0;
        infoMsg("z#%d: %d.%ds old, %s\n", ++number, age / 10, age % 10,
                object != nullptr ? object->toString(true).get() : "reserved");
    }
}

bool CachedMediaObj::debugCb(unsigned bits) {
    if ((bits >> MediaDbg::ListObjects & 1) != 0) {
        trace(MediaObj::Trace::List);
    } else if ((bits >> MediaDbg::Status & 1) != 0) {
        trace(MediaObj::Trace::Status);
    } else if ((bits >> MediaDbg::FlushAll & 1) != 0) {
        trace(MediaObj::Trace::Flush);
    }
    return true;
}

bool CachedMediaObj::debugCb(const DebugRecord& record) {
    const DebuggerOn* changed = &record.changed();
    if (changed == &mediaObjDbg) {
        debugCb(mediaObjDbg.get());
        clearReactiveBits();
    } else if (changed == &mediaZombieTime) {
        m_zombieTime = mediaZombieTime.get() * 1000000ll;
    } else if (changed == &mediaCacheDuration) {
        cacheDurationChanged();
    }
    return true;
}

// A value out of range comes back to 1.0 s and not to the nearest limit, which is meant.
void CachedMediaObj::cacheDurationChanged() {
    constexpr unsigned normal = 0x10000, least = 32768, most = 0x50000;  // 1.0 s, 0.5 s, 5.0 s
    if (mediaCacheDuration.get() < least) {
        infoMsg("requested media cache duration %ss is too small\n",
                seconds(mediaCacheDuration.get()).toString(2).get());
        mediaCacheDuration.set(normal);
    }
    if (mediaCacheDuration.get() > most) {
        infoMsg("requested media cache duration %ss is too large\n",
                seconds(mediaCacheDuration.get()).toString(2).get());
        mediaCacheDuration.set(normal);
    }
    infoMsg("media cache duration is now %ss\n", seconds(mediaCacheDuration.get()).toString(2).get());
}
