#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// Two stages: idle objects leave the map for the zombies, and zombies that nobody has held for the zombie time go.
// m_mapLock is released around whatever may touch the disk, which is why the first stage starts over after each move.

void CachedMediaObj::expireZombies(long long now, const MediaObj* only) {
    ZarnexPosix::ScopeLock<ExpireLock> pass(m_expireLock);
    expireZombiesLocked(now, only);
}

void CachedMediaObj::expireZombiesLocked(long long now, const MediaObj* only) {
    MapScope lock(m_mapLock);
    moveIdleToZombies(lock, now, only);
    deleteDueZombies(lock, now);
}

bool CachedMediaObj::isDue(const MediaObj* object, long long now, const MediaObj* only) const {
    if (object == nullptr) return false;  // a reservation
    if (object == only) return true;
    const MediaObjImpl& impl = object->impl();
    const long long since = impl.getLastRefTime();
    return !impl.m_expiring && since != 0 && since + m_zombieTime <= now && object->getReferenceCount() == 1;
}

// A client that comes back during the close stops the clock, and if it goes again in that very moment its release may
// have set the clock just before it is stopped. Such an object is idle without a clock, which is seen and mended here.
void CachedMediaObj::startLostClock(MediaObj* object) {
    if (object == nullptr) return;
    MediaObjImpl& impl = object->impl();
    if (!impl.m_expiring && impl.getLastRefTime() == 0 && object->getReferenceCount() == 1) {
        impl.setLastRefTime(Clock::nowRelative());
    }
}

// For an object in use: `otherwise`, whatever an earlier wait has left.
static long long idleSince(const MediaObj& object, long long otherwise) {
    const long long since = object.impl().getLastRefTime();
    return since != 0 && since < otherwise && object.getReferenceCount() == 1 ? since : otherwise;
}

// At most ticks nothing is due. That is known without a walk until the object that has been idle for longest is due,
// or else for the zombie time from the last walk on; and among very many a walk is faster out of the map's order.
bool CachedMediaObj::isAnyDue(long long now, const MediaObj* only) {
    const long long known = MediaObjImpl::getOldestRefTime();
    if (only == nullptr && known != 0 && known + m_zombieTime > now) return false;
    if (!m_map.hasBatches()) return true;
    long long oldest = Clock::nowRelative();
    MediaObjImpl::raiseOldestRefTime(oldest);
    bool isAny = false;
    MediaObj* objects[Map::s_batch];
    std::size_t place = 0;
    while (const unsigned count = m_map.nextBatch(place, objects)) {
        for (unsigned i = 0; i < count; ++i)
            __builtin_prefetch(&objects[i]->impl().m_expiring);
        for (unsigned i = 0; i < count; ++i) {
            if (isDue(objects[i], now, only)) {
                isAny = true;
            } else {
                startLostClock(objects[i]);
                oldest = idleSince(*objects[i], oldest);
            }
        }
    }
    MediaObjImpl::lowerOldestRefTime(isAny ? 0 : oldest);
    return isAny;
}

void CachedMediaObj::moveIdleToZombies(MapScope& lock, long long now, const MediaObj* only) {
    if (!isAnyDue(now, only)) return;
    auto entry = m_map.begin();
    while (entry != m_map.end()) {
        MediaObj* object = entry->second;
        const OsPathId key = entry->first;
        if (!isDue(object, now, only)) {
            startLostClock(object);
            ++entry;
            continue;
        }
        MediaObjImpl& impl = object->impl();
        impl.m_expiring = true;
        lock.unlock();
        object->flush(nullptr, false);
        object->close(nullptr, MediaAgent(nullptr)).discard();
        lock.lock();
        impl.m_expiring = false;
        if (!impl.isCached()) {
            // Replaced meanwhile: it waits among the zombies already, and the entry is its successor's.
        } else if (object->getReferenceCount() != 1) {
            impl.setLastRefTime(0);  // a client has come back
        } else {
            impl.setCached(false);
            eraseEntries(object, key);
            m_zombies.push_back(object);
        }
        entry = m_map.begin();
    }
}

// Removes every entry of an object. The key that it was found under may be another's by now, or nobody's: the map was
// free during the close.
void CachedMediaObj::eraseEntries(MediaObj* object, OsPathId key) {
    const OsPathId cacheId = object->impl().getCacheId();
    const OsPathId fileId = object->getFileId();
    if (cacheId != key) eraseDuplicate(object, cacheId);
    if (fileId != key) eraseDuplicate(object, fileId);
    const auto entry = m_map.find(key);
    if (entry == m_map.end() || entry->second != object) return;
    if (cacheId != key && fileId != key) {
        warningMsg("CMO::expireZombies: cacheId(0x%llx), fileId(0x%llx) is not valid for %s\n", cacheId.getId(),
                   fileId.getId(), object->toString(true).get());
    }
    entry->second = nullptr;
    m_map.erase(entry);
}

void CachedMediaObj::eraseDuplicate(MediaObj* object, OsPathId id) {
    const auto entry = m_map.find(id);
    if (entry == m_map.end() || entry->second != object) return;
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) {
        debugMsg("CMO:expireZombies: found duplicate cache entry 0x%llx for %s\n", id.getId(),
                 object->toString(true).get());
    }
    entry->second = nullptr;
    m_map.erase(entry);
}

void CachedMediaObj::deleteDueZombies(MapScope& lock, long long now) {
    constexpr long long budget = 200000;  // µs from the pass's start
    const std::size_t start = m_zombies.size();
    unsigned nDel = 0;
    for (unsigned nLook = 0; nLook < start; ++nLook) {
        const std::size_t left = m_zombies.size();
        if (left == 0) break;
        // The first one is always looked at; then a quarter of the list or the time ends the pass.
        if (nLook != 0 && (4 * nDel >= left + nDel || now + budget <= Clock::nowRelative())) break;
        MediaObj* object = m_zombies.front();
        m_zombies.pop_front();
        const AutoPtr<char> fault = validate(object);
        if (fault.get() != nullptr) {
            // A stray pointer is dropped: a leak is better than a crash.
            errorMsg("CMO::expireZombies: %s,nLook=%d,nDel=%d,nz=%d\n", fault.get(), static_cast<int>(nLook),
                     static_cast<int>(nDel), static_cast<int>(left));
            continue;
        }
        MediaObjImpl& impl = object->impl();
        if (object->getReferenceCount() >= 2) {
            impl.setLastRefTime(now);  // still held: its wait starts anew
            m_zombies.push_back(object);
        } else if (impl.getLastRefTime() + m_zombieTime > now) {
            m_zombies.push_back(object);
        } else {
            ++nDel;
            deleteZombie(lock, object);
        }
    }
}

void CachedMediaObj::deleteZombie(MapScope& lock, MediaObj* object) {
    MediaObjImpl& impl = object->impl();
    // A newer object under the same id keeps the watch.
    if (impl.getCacheId() != 0 && m_map.find(impl.getCacheId()) == m_map.end()) {
        FsFileIO::removeCb(&m_changeAnchor, impl.getFileId());
    }
    lock.unlock();
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) debugMsg("CMO:expire(%s)\n", object->toString(true).get());
    const int count = impl.m_refCount.release();
    if (count != 0) {
        errorMsg("CMO::expireZombies: %s,ref=%d\n", object->toString(true).get(), count);
    } else {
        delete object;
    }
    lock.lock();
}

void CachedMediaObj::flushAll(const MediaObj* only) {
    constexpr int tries = 29;
    int waits = 0;
    Counts left{};
    for (int i = 0; i < tries; ++i) {
        expireZombies(Clock::nowRelative() + m_zombieTime, only);
        left = counts();
        // Objects in the map mean clients, and waiting won't help; without zombies the work is done.
        if (left.entries != 0 || left.zombies == 0) break;
        waitMsec(100);
        ++waits;
    }
    if (waits > 0 && (mediaObjDbg.on(MediaDbg::CacheActivity) || left.entries != 0 || left.zombies != 0)) {
        debugMsg("CMO::flushAll: cache[%d],zombies[%d]\n", static_cast<int>(left.entries),
                 static_cast<int>(left.zombies));
    }
}
