#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/cache/replacement_verdict.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/switches.h"

// Which of two objects stays, who gets a reference, and how writers and open files move. The loser waits among the
// zombies, and holders follow the winner. The writer count lands on the object that is handed back.

namespace {

ReplacementVerdict::Side sideOf(MediaObj& object) {
    return {object.getVersion(), object.getMovieDesc()->getLastTrackLength(), object.getTrackCount(),
            object.impl().m_createTime};
}

bool anyTrackShorterBy(MediaObj& object, unsigned framesize) {
    const unsigned long long length = object.getMovieDesc()->getLastTrackLength();
    for (unsigned i = 0; i < object.getTrackCount(); ++i) {
        const unsigned long long track = object.getTrackAt(i)->getLength();
        if (length > track && length - track > framesize) return true;
    }
    return false;
}

// Only tells: tracks of one movie ought to be equally long to within a frame.
void checkTrackLengths(MediaObj& object) {
    const FixedPoint<16> perFrame = object.getMovieDesc()->getTimeBase() / object.getRealVideoRate();
    const unsigned framesize = perFrame.round().uintValue();
    if (framesize == 0 || !anyTrackShorterBy(object, framesize)) return;
    debugMsg("CMO: track length discrepancy in %s\n", object.toString(true).get());
    for (unsigned i = 0; i < object.getTrackCount(); ++i) {
        debugMsg("track %d length: %lld\n", static_cast<int>(i),
                 static_cast<long long>(object.getTrackAt(i)->getLength() / framesize));
    }
}

void logVerdict(ReplacementVerdict::Code code, MediaObj& older, MediaObj& newer) {
    const bool wanted = (ReplacementVerdict::noteworthy(code) && mediaObjDbg.on(MediaDbg::RereadErrors)) ||
                        mediaObjDbg.on(MediaDbg::RereadActivity, MediaDbg::CacheActivity);
    if (!wanted) return;
    debugMsg("CMO: %sreplace %s\n", ReplacementVerdict::text(code), older.toString(true).get());
    debugMsg("...with %s\n", newer.toString(true).get());
}

}  // namespace

bool CachedMediaObj::replaceable(MediaObj* oldObject, MediaObj* newObject, bool force) {
    const ReplacementVerdict::Side older = sideOf(*oldObject), newer = sideOf(*newObject);
    ReplacementVerdict::Code code = ReplacementVerdict::judge(older, newer, force);
    if (ReplacementVerdict::asksBackEnd(older, newer, code)) {
        if (!oldObject->acceptReplacement(newObject)) {
            code = ReplacementVerdict::Vetoed;
        } else if (mediaObjDbg.on(MediaDbg::RereadErrors)) {
            checkTrackLengths(*newObject);
        }
    }
    m_verdicts.count(code);
    logVerdict(code, *oldObject, *newObject);
    return ReplacementVerdict::replaces(code);
}

MediaObj* CachedMediaObj::replace(MediaObj* object, OsPathId id, bool writer, bool force) {
    const bool create = id == 0;
    if (create) {
        id = object->impl().getCacheId();
        if (id == 0) id = object->impl().m_fileList.getPathId(0);
    }
    MediaObj::ScopeHold hold;
    MapScope lock(m_mapLock);
    const auto entry = m_map.find(id);
    if (entry == m_map.end()) return install(lock, entry, nullptr, object, id, writer);
    if (entry->second == nullptr) return installReserved(entry, object, id, writer);
    hold = entry->second;
    // Somebody is writing or has the file: what stands stays.
    if (create || hold->getMovieDesc()->isWritable()) return keepExisting(lock, hold, object, create, writer);
    // A writer replaces a read-only object without asking.
    if (!writer && !replaceable(hold.get(), object, force)) {
        m_zombies.push_back(object);
        lock.unlock();
        object->replaceWith(hold.get());
        object->release();
        return hold.forget();
    }
    return install(lock, entry, hold.get(), object, id, writer);
}

void CachedMediaObj::watch(MediaObj* object, OsPathId id) {
    FsFileIO::addCb(&m_changeAnchor, BasicIOTypes::PathWatch(id, object->getFileId()), object->getVersion());
}

MediaObj* CachedMediaObj::installReserved(Map::iterator entry, MediaObj* object, OsPathId id, bool writer) {
    if (!addToCache(entry, object, id)) return nullptr;
    if (writer) object->addWriter();
    if (mediaObjDbg.on(MediaDbg::CacheActivity)) debugMsg("CMO:install %s\n", object->toString(true).get());
    if (!writer) watch(object, id);
    return object;
}

MediaObj* CachedMediaObj::keepExisting(MapScope& lock, MediaObj::ScopeHold& hold, MediaObj* object, bool create,
                                       bool writer) {
    m_zombies.push_back(object);
    lock.unlock();
    if (create) {
        // Told at all times: a caller's file went to somebody else.
        debugMsg("CMO:create %s loses to %s\n", object->toString(true).get(), hold->toString(true).get());
    } else {
        if (mediaObjDbg.on(MediaDbg::CacheActivity)) debugMsg("CMO:dismiss new %s\n", object->toString(true).get());
        object->replaceWith(hold.get());
    }
    object->release();
    if (create) return nullptr;
    if (writer) {
        lock.lock();
        hold->addWriter();
        if (mediaObjDbg.on(MediaDbg::PermissionChange)) {
            debugMsg("CMO:keep old: set W=%d: %s\n", hold->impl().getWriterCount(), hold->toString(true).get());
        }
    }
    return hold.forget();
}

MediaObj* CachedMediaObj::install(MapScope& lock, Map::iterator entry, MediaObj* oldObject, MediaObj* object,
                                  OsPathId id, bool writer) {
    if (!addToCache(entry, object, id)) return nullptr;
    if (oldObject == nullptr && mediaObjDbg.on(MediaDbg::CacheActivity)) {
        debugMsg("CMO:insert %s\n", object->toString(true).get());
    }
    if (writer) {
        object->addWriter();
        if (mediaObjDbg.on(MediaDbg::PermissionChange)) {
            debugMsg("CMO:replace new: set W=%d: %s\n", object->impl().getWriterCount(), object->toString(true).get());
        }
    } else if (oldObject != nullptr) {
        // Media files stay open across a header's update; the primary file's handle belongs to the new parse.
        MediaFileList& oldFiles = oldObject->impl().m_fileList;
        MediaFileList& newFiles = object->impl().m_fileList;
        if (oldFiles.size() == newFiles.size()) {
            for (unsigned i = 1; i < newFiles.size(); ++i)
                newFiles.inheritFileHandles(i, oldFiles);
        }
    }
    lock.unlock();
    if (oldObject != nullptr) oldObject->replaceWith(object);
    if (!writer) watch(object, id);
    return object;
}
