#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// The map: look-up, reservations, entries and the way of a writer out. A reservation ends in one of two ways, by
// `cancel` or by `addToCache`, and nobody else changes it.

MediaObj* CachedMediaObj::find(OsPathId id, bool wantWriter, bool* hasWriters) {
    if (hasWriters != nullptr) *hasWriters = false;
    MapScope lock(m_mapLock);
    const auto entry = m_map.find(id);
    if (entry == m_map.end() || entry->second == nullptr) return nullptr;
    MediaObj* object = entry->second;
    object->preserve();
    if (wantWriter) {
        if (object->impl().isWritable()) {
            object->addWriter();
            if (mediaObjDbg.on(MediaDbg::PermissionChange))
                debugMsg("CMO:find inc W: %s\n", object->toString(true).get());
        } else if (object->getMovieDesc()->isWritable() && !waitForReadOnly(lock, object)) {
            return nullptr;
        }
    }
    if (hasWriters != nullptr) *hasWriters = object->impl().isWritable();
    return object;
}

// The last writer has gone and `releaseWriter` is closing the object with the lock released. True once it is read-only;
// false after the time limit, with the reference given back.
bool CachedMediaObj::waitForReadOnly(MapScope& lock, MediaObj* object) {
    constexpr long long limitMs = 3000;
    const bool log = mediaObjDbg.on(MediaDbg::PermissionChange);
    lock.unlock();
    if (log) debugMsg("CMO:find: wait for ro change: %s\n", object->toString(true).get());
    const long long start = Clock::nowRelative();
    long long elapsed = 0;
    while (object->getMovieDesc()->isWritable()) {
        waitMsec(1);
        elapsed = (Clock::nowRelative() - start) / 1000;
        if (elapsed > limitMs) {
            errorMsg("CMO:find: ro timeout @%dms: %s\n", static_cast<int>(elapsed), object->toString(true).get());
            object->release();
            return false;
        }
    }
    lock.lock();
    if (log) debugMsg("CMO:find: wait done @%dms: %s\n", static_cast<int>(elapsed), object->toString(true).get());
    return true;
}

bool CachedMediaObj::reserve(OsPathId id) {
    MapScope lock(m_mapLock);
    if (m_map.find(id) != m_map.end()) return false;
    m_map.insert(m_map.begin(), {id, nullptr});
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) debugMsg("CMO:reserve(0x%llx)\n", id.getId());
    return true;
}

void CachedMediaObj::cancel(OsPathId id) {
    MapScope lock(m_mapLock);
    const char* word = "not found";
    const auto entry = m_map.find(id);
    if (entry != m_map.end()) {
        word = entry->second != nullptr ? "used" : "unused";
        if (entry->second == nullptr) m_map.erase(entry);
    }
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) debugMsg("CMO:reservation(0x%llx) %s\n", id.getId(), word);
}

// Out of the map, to be deleted once nobody holds it.
void CachedMediaObj::retire(MediaObj* object) {
    object->impl().setCached(false);
    m_zombies.push_back(object);
}

bool CachedMediaObj::addToCache(Map::iterator entry, MediaObj* object, OsPathId id) {
    bool replaceEntry = true;
    MediaObjImpl& impl = object->impl();
    impl.setCacheId(id);
    impl.setCached(true);
    MediaObjImpl::lowerOldestRefTime(impl.getLastRefTime());
    if (object->getFileId() == 0) impl.setFileId(impl.m_fileList.getPathId(0));
    if (object->getFileId() != id && !addFileEntry(object, replaceEntry)) return false;
    if (entry == m_map.end()) {
        m_map.insert(m_map.begin(), {impl.getCacheId(), object});
        return true;
    }
    // Meant: when the second entry has retired an object already, a value that stands here is overwritten as it is.
    if (MediaObj* older = entry->second; replaceEntry && older != nullptr) {
        retire(older);
        if (mediaObjDbg.on(MediaDbg::CacheActivity)) {
            debugMsg("CMO:replace %s w/ %s\n", older->toString(false).get(), object->toString(true).get());
        }
    }
    entry->second = object;
    return true;
}

// The second entry of an object whose file id differs from its cache id.
bool CachedMediaObj::addFileEntry(MediaObj* object, bool& replaceEntry) {
    const bool log = mediaObjDbg.on(MediaDbg::CacheActivity);
    const OsPathId fileId = object->getFileId();
    const auto second = m_map.find(fileId);
    if (second == m_map.end()) {
        m_map.insert(m_map.begin(), {fileId, object});
        if (log) {
            debugMsg("CMO::replace: adding an additional cache entry of 0x%llx for %s\n", fileId.getId(),
                     object->toString(true).get());
        }
        return true;
    }
    MediaObj* older = second->second;
    if (log) {
        debugMsg("CMO::replace additional cache entry 0x%llx for %s w/ %s\n", fileId.getId(),
                 older != nullptr ? older->toString(true).get() : "reserved", object->toString(true).get());
    }
    if (older == nullptr) {
        second->second = object;
        return true;
    }
    if (!replaceable(older, object, true)) {
        errorMsg("CMO::addToCache: failed to replace %s w/ %s\n", older->toString(true).get(),
                 object->toString(true).get());
        retire(object);
        return false;
    }
    replaceEntry = false;
    second->second = object;
    older->replaceWith(object);
    retire(older);
    return true;
}

void CachedMediaObj::updateId(MediaObj* object) {
    MapScope lock(m_mapLock);
    const OsPathId oldId = object->impl().getCacheId();
    const OsPathId newId = object->impl().m_fileList.getPathId(0);
    const char* word = "ignored";
    if (oldId != newId) {
        const auto entry = m_map.find(oldId);
        if (entry == m_map.end()) {
            word = "not in cache";
        } else if (entry->second == nullptr) {
            word = "error: cache entry=0";
        } else {
            m_map.erase(entry);
            object->setCacheId(newId);
            m_map.insert(m_map.begin(), {newId, object});
            word = "udpated";  // spelled so: operators look for this text
        }
    }
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) {
        debugMsg("CMO:updateId(%s,0x%llx==>%llx) %s\n", object->toString(false).get(), oldId.getId(), newId.getId(),
                 word);
    }
}

void CachedMediaObj::releaseWriter(MediaObj* object) {
    MapScope lock(m_mapLock);
    MediaObjImpl& impl = object->impl();
    object->dropWriter();
    if (impl.getWriterCount() < 1) {
        // The close may flush and write headers. Meanwhile the descriptor still says writable with no writer left, and
        // that is the state in which `find` waits.
        lock.unlock();
        object->close(nullptr, MediaAgent(nullptr)).discard();
        lock.lock();
        object->setReadOnly();
        object->setVersion(impl.m_fileList.getVersion(), true);
        FsFileIO::addCb(getCbInfo(), BasicIOTypes::PathWatch(impl.getCacheId(), impl.getFileId()), impl.getVersion());
    }
    if (mediaObjDbg.on(MediaDbg::PermissionChange)) {
        debugMsg("CMO:release: set W=%d: %s\n", impl.getWriterCount(), object->toString(true).get());
    }
}

// Null for a live object, else what is wrong with the pointer.
AutoPtr<char> CachedMediaObj::validate(MediaObj* object) {
    if (object->isValid()) return nullptr;
    FormatStr text(128u);
    text.format("obj(%p) is not valid", static_cast<void*>(object));
    return text;
}

CachedMediaObj::Counts CachedMediaObj::counts() {
    MapScope lock(m_mapLock);
    return {static_cast<unsigned>(m_map.size()), static_cast<unsigned>(m_zombies.size())};
}
