#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "mediautil/cache/cached_media_obj.h"

// Looks at the parts of the cache, and drives what its own thread does at a tick.
// **Threads:** any, but for `lockMap` and `unlockMap`, which belong to one.
class CacheProbe {
public:
    CacheProbe() : m_cache(*CachedMediaObj::getRef()) {}

    CachedMediaObj& cache() const { return m_cache; }
    CachedMediaObj* operator->() const { return &m_cache; }

    // Ends the cache's own thread, so that only the test moves what is in it; and starts it again as an init signal
    // does.
    void stopThread() const { m_cache.stopThreadsCb(); }
    void startThread() const {
        if (!threadRuns()) m_cache.initCb();
    }
    bool threadRuns() const { return m_cache.m_rereader.running(); }
    bool stopping() const { return m_cache.m_stopping; }
    void setStopping(bool stopping) const { m_cache.m_stopping = stopping; }
    // µs
    long long zombieTime() const { return m_cache.m_zombieTime; }
    void setZombieTime(long long time) const { m_cache.m_zombieTime = time; }

    unsigned mapSize() const { return m_cache.counts().entries; }
    unsigned zombieCount() const { return m_cache.counts().zombies; }
    // Nothing for no entry, null for a reservation.
    std::optional<MediaObj*> entry(OsPathId id) const;
    bool has(OsPathId id) const { return entry(id).has_value(); }
    std::vector<MediaObj*> zombies() const;
    bool isZombie(const MediaObj* object) const;
    void pushZombie(MediaObj* object) const;
    void lockMap() const MO_NO_THREAD_SAFETY_ANALYSIS { m_cache.m_mapLock.lock(); }
    void unlockMap() const MO_NO_THREAD_SAFETY_ANALYSIS { m_cache.m_mapLock.unlock(); }

    // The verdict as the cache asks for it.
    bool replaceable(MediaObj* older, MediaObj* newer, bool force) const;
    // Puts an object into the entry of `id`, made if there is none.
    bool addToCache(MediaObj* object, OsPathId id) const;
    // What is wrong with the pointer, empty if nothing.
    std::string fault(MediaObj* object) const;

    // Files that wait to be parsed again.
    unsigned queued() const;
    // The force flag of a file's element; nothing when the file isn't queued.
    std::optional<bool> queuedForce(OsPathId id) const;
    void clearQueue() const;
    // From here on the watch tells nothing more of the files that are in the cache, and the queue is empty: only the
    // test brings news.
    void stopNews() const;
    // What the thread does at a tick with the queue. False when it was empty.
    bool serveOne() const;

private:
    CachedMediaObj& m_cache;
};
