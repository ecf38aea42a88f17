#include "tests/kit/cache_probe.h"

#include <algorithm>

#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"

namespace {

template <class Lock>
class Held {
public:
    explicit Held(Lock& lock) MO_NO_THREAD_SAFETY_ANALYSIS : m_lock(lock) { m_lock.lock(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() MO_NO_THREAD_SAFETY_ANALYSIS { m_lock.unlock(); }

private:
    Lock& m_lock;
};

}  // namespace

std::optional<MediaObj*> CacheProbe::entry(OsPathId id) const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_mapLock);
    const auto found = m_cache.m_map.find(id);
    if (found == m_cache.m_map.end()) return {};
    return found->second;
}

std::vector<MediaObj*> CacheProbe::zombies() const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_mapLock);
    return {m_cache.m_zombies.begin(), m_cache.m_zombies.end()};
}

bool CacheProbe::isZombie(const MediaObj* object) const {
    const std::vector<MediaObj*> all = zombies();
    return std::find(all.begin(), all.end(), object) != all.end();
}

void CacheProbe::pushZombie(MediaObj* object) const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_mapLock);
    m_cache.m_zombies.push_back(object);
}

bool CacheProbe::replaceable(MediaObj* older, MediaObj* newer, bool force) const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_mapLock);
    return m_cache.replaceable(older, newer, force);
}

bool CacheProbe::addToCache(MediaObj* object, OsPathId id) const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_mapLock);
    return m_cache.addToCache(m_cache.m_map.find(id), object, id);
}

std::string CacheProbe::fault(MediaObj* object) const {
    const AutoPtr<char> text = m_cache.validate(object);
    return text.get() != nullptr ? text.get() : "";
}

unsigned CacheProbe::queued() const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_rereadLock);
    return static_cast<unsigned>(m_cache.m_rereadQueue.size());
}

std::optional<bool> CacheProbe::queuedForce(OsPathId id) const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_rereadLock);
    for (const auto& element : m_cache.m_rereadQueue) {
        if (element.m_id == id) return element.m_force;
    }
    return {};
}

void CacheProbe::clearQueue() const MO_NO_THREAD_SAFETY_ANALYSIS {
    const Held lock(m_cache.m_rereadLock);
    m_cache.m_rereadQueue.clear();
}

void CacheProbe::stopNews() const MO_NO_THREAD_SAFETY_ANALYSIS {
    {
        const Held lock(m_cache.m_mapLock);
        for (const auto& [id, object] : m_cache.m_map) {
            if (object != nullptr) FsFileIO::removeCb(m_cache.getCbInfo(), object->impl().getFileId());
        }
    }
    FsFileIO::finishCb(m_cache.getCbInfo());
    clearQueue();
}

bool CacheProbe::serveOne() const {
    CachedMediaObj::ReadingElement element{BasicIOTypes::Change()};
    if (!m_cache.nextToReread(element)) return false;
    m_cache.rereadFile(element);
    return true;
}
