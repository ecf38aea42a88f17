#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// Files change underneath. The file layer's thread only queues the file's id; the re-reader's thread parses one file a
// tick, through the full open path, and ticks the expiry. A file that keeps changing costs at most one parse a tick.

namespace {

constexpr long long s_tick = 200000;  // µs

// The handle for a parse of what the file holds now.
void makeFresh(FsFileIO& file) {
    file.refresh();
    file.adviseReparse(1);
}

void logReread(const MediaObj* object, const BasicFileIO& file, long long start) {
    if (!mediaObjDbg.on(MediaDbg::RereadActivity)) return;
    const AutoPtr<char> text = object != nullptr ? object->toString(true) : AutoPtr<char>();
    debugMsg("CMO:Reread %s %s in %dus\n", text.get() != nullptr ? text.get() : file.getPath(),
             object != nullptr ? "done" : "failed", static_cast<int>(Clock::nowRelative() - start));
}

}  // namespace

bool CachedMediaObj::changeCb(const BasicIOTypes::Change& change) {
    const bool log = mediaObjDbg.on(MediaDbg::RereadActivity);
    MapScope lock(m_mapLock);
    const auto entry = m_map.find(change.m_id);
    if (entry == m_map.end()) {
        if (log) debugMsg("CMO:changeCb: %s,#%llx not in cache\n", change.m_path, change.m_id.getId());
        return true;
    }
    MediaObj* object = entry->second;
    if (object == nullptr) return true;  // the parse under way reads what is there
    const MediaMovieDesc* desc = object->getMovieDesc();
    if (desc->isWritable() || desc->isRecording()) {
        if (log) debugMsg("CMO:changeCb: cancel reread of %s\n", object->toString(true).get());
        return true;
    }
    // The text is made now: the object may go once the lock is released.
    const AutoPtr<char> text = log ? object->toString(true) : AutoPtr<char>();
    lock.unlock();
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> queueLock(m_rereadLock);
    for (const ReadingElement& element : m_rereadQueue) {
        if (element.m_id == change.m_id) {
            if (log) debugMsg("CMO:changeCb: ignore dup reread of %s\n", text.get());
            return true;
        }
    }
    m_rereadQueue.push_back(ReadingElement(change));
    if (log) debugMsg("CMO:changeCb: sched reread of %s\n", text.get());
    return true;
}

void CachedMediaObj::reReader() {
    long long last = Clock::nowRelative();
    while (!m_rereader.stopRequested()) {
        const long long next = last + s_tick;
        const long long now = Clock::nowRelative();
        last = now;
        if (now < next) {
            waitMsec(static_cast<unsigned>((next - now) / 1000));
            last = next;
        }
        expireZombies(last, nullptr);
        if (m_stopping) break;
        ReadingElement element{BasicIOTypes::Change()};
        if (nextToReread(element)) rereadFile(element);
    }
    // Shutdown: goes on emptying the cache until the thread is stopped.
    while (!m_rereader.stopRequested()) {
        flushAll(nullptr);
        waitMsec(100);
    }
}

bool CachedMediaObj::nextToReread(ReadingElement& element) {
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_rereadLock);
    if (m_rereadQueue.empty()) return false;
    element = m_rereadQueue.front();
    m_rereadQueue.pop_front();
    return true;
}

void CachedMediaObj::rereadFile(const ReadingElement& element) {
    FsFileIO* handle = new FsFileIO("CMO::reReader", static_cast<const char*>(nullptr), BasicIOTypes::Mode::ReadOnly);
    AutoRefPtr<BasicFileIO> file(handle);
    if (!file->openById(element.m_id)) return;  // the file has gone
    const long long start = Clock::nowRelative();
    makeFresh(*handle);
    OpResult result(OpResult::Ok);
    AutoReleasePtr<MediaObj> object(MediaObj::openReader(file, result, MediaFileType::Unknown, element.m_force));
    result.discard();  // the old object stays, and the next change brings the next try
    logReread(object.get(), *file, start);
}

OpResult MediaObj::reread() const {
    if (isRecording() || getMovieDesc()->isWritable()) return OpResult(OpResult::Ok);
    FsFileIO* handle = new FsFileIO("MO::reread", getPathId(), BasicIOTypes::Mode::ReadOnly);
    AutoRefPtr<BasicFileIO> file(handle);
    if (!file->exists()) return MO_WARNING(MediaCode::FileNonExistent, nullptr);
    const long long start = Clock::nowRelative();
    makeFresh(*handle);
    OpResult result(OpResult::Ok);
    AutoReleasePtr<MediaObj> object(openReaderInt(file, MediaFileType::Unknown, result, true));
    logReread(object.get(), *file, start);
    return result;
}
