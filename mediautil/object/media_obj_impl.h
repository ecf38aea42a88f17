#pragma once

#include <atomic>
#include <list>

#include "mediautil/description/priv_movie_desc.h"
#include "mediautil/io/media_file_list.h"
#include "mediautil/object/length_watch.h"
#include "mediautil/object/registrar.h"
#include "services/file/os_path_id.h"
#include "services/system/locks.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/media_obj.h"
#include "support/atomic_ops.h"
#include "support/ref_count.h"

class MediaRecordTracker;

// The private record of a movie: identity, counts, files, descriptor and holders.
// **Threads:** counts are atomic. The time and version fields are relaxed atomics that the cache reads under its map
// lock; a stale read costs at most one turn of the expiry pass. **Locks:** m_persistMutex guards the holders; changes
// of a holder take the process-wide holder lock first.
class MediaObjImpl {
public:
    MediaObjImpl(MediaObj* obj, unsigned long long version, MediaObj::CacheRefValue cacheRefs);
    MediaObjImpl(const MediaObjImpl&) = delete;
    ~MediaObjImpl();

    // The tables of formats, made on first use so that a back-end may register whatever the order of initialisers.
    static Registrar<MediaReaderDesc>& getReaderReg();
    static Registrar<MediaWriterDesc>& getWriterReg();
    // The first writer of that type, else the first that has the style. Fails: warning 8; `out` untouched.
    static OpResult lookup(MediaFileType type, MediaWriterDesc& out, const char* style);

    int getWriterCount() const { return m_writerCount.load(std::memory_order_relaxed); }
    void incWriterCnt() { m_writerCount.fetch_add(1, std::memory_order_relaxed); }
    void decWriterCnt() { m_writerCount.fetch_sub(1, std::memory_order_relaxed); }
    bool isWritable() const { return getWriterCount() >= 1; }
    // In a morph, or in the last steps of its end, which a reader waits for as well. The count is asked first: it falls
    // within the end.
    bool isUnfinished() const { return m_morphCount.getCount() > 0 || m_morphEnds.getCount() > 0; }
    OsPathId getCacheId() const { return m_cacheId.load(std::memory_order_relaxed); }
    OsPathId getFileId() const { return m_fileId.load(std::memory_order_relaxed); }
    void setCacheId(OsPathId id) { m_cacheId.store(id.getId(), std::memory_order_relaxed); }
    void setFileId(OsPathId id) { m_fileId.store(id.getId(), std::memory_order_relaxed); }
    void setCached(bool cached) { m_cached.store(cached, std::memory_order_relaxed); }
    bool isCached() const { return m_cached.load(std::memory_order_relaxed); }
    unsigned long long getVersion() const { return m_version.load(std::memory_order_relaxed); }
    void setVersion(unsigned long long version) { m_version.store(version, std::memory_order_relaxed); }
    long long getLastRefTime() const { return m_lastRefTime.load(std::memory_order_relaxed); }
    void setLastRefTime(long long time) {
        m_lastRefTime.store(time, std::memory_order_relaxed);
        lowerOldestRefTime(time);
    }

    // No object that is idle has an older `getLastRefTime`, µs; 0 when that isn't known. Every stamp lowers it, and
    // only a walk over all objects may raise it, to the time of the walk, since what comes to be idle later is stamped
    // later.
    static long long getOldestRefTime() { return oldestRef.m_time.load(std::memory_order_acquire); }
    static void raiseOldestRefTime(long long time) { oldestRef.m_time.exchange(time, std::memory_order_acq_rel); }
    static void lowerOldestRefTime(long long time) {
        long long oldest = oldestRef.m_time.load(std::memory_order_relaxed);
        while (time < oldest && !oldestRef.m_time.compare_exchange_weak(oldest, time, std::memory_order_acq_rel)) {
        }
    }

    // Frames that may be read now; makes the length watch on first use.
    unsigned long long getReadSafeFrameCount(const MediaObj* obj);
    // The watch, or null before its first use.
    LengthWatch* lengthWatch() const { return m_lengthWatch.load(std::memory_order_acquire); }
    // The record log, made on first use. Null when there is no memory for it.
    MediaRecordTracker* recordTracker();
    // Keeps the text for as long as the object lives. Gives: borrowed; null without memory.
    const char* keepSourceUmid(const char* text);
    // Gives `other` a copy of this object's watch, if there is one. A watch that `other` had is overwritten in place
    // and not freed: a reader may be inside it.
    void copyLengthWatchTo(MediaObjImpl& other) const;

    void add(MediaObj::Persist& holder) MO_EXCLUDES(m_persistMutex);
    void remove(MediaObj::Persist& holder) MO_EXCLUDES(m_persistMutex);
    unsigned getHolderCount() const MO_EXCLUDES(m_persistMutex) {
        ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_persistMutex);
        return static_cast<unsigned>(m_persists.size());
    }
    // Moves the first holder of another object's list to the head of this one. Requires: the holder lock.
    void takeFront(std::list<MediaObj::Persist*>& from) MO_NO_THREAD_SAFETY_ANALYSIS {
        m_persists.splice(m_persists.begin(), from, from.begin());
    }

    static AtomicCounter active;      // live objects
    static AtomicCounter sSerialNum;  // the last serial number given out
    // For back-ends that read raw headers; the core neither reads nor writes it.
    static unsigned maxMediaHeaderSize;

private:
    // On a line of memory of its own: each release of an idle object reads it.
    struct alignas(64) OldestRef {
        std::atomic<long long> m_time{0};
    };
    static OldestRef oldestRef;

    std::atomic<unsigned long long> m_cacheId{0};  // key in the cache map; not 0 once installed
    std::atomic<unsigned long long> m_fileId{0};   // of the primary file
    std::atomic<bool> m_cached{false};             // stands in the cache map
    std::atomic<int> m_writerCount{0};             // changed under the cache's map lock

public:
    PrivMovieDesc<MediaObj> m_desc;
    MediaFileList m_fileList;
    RefCount m_refCount;
    AtomicCounter m_morphCount;
    AtomicCounter m_morphEnds{0};   // calls of endMorph at work
    AtomicCounter m_morphWaits{0};  // openers that wait for the end

private:
    std::atomic<long long> m_lastRefTime{0};  // µs; when the count last fell to the cache's own, 0 is not idle

public:
    const long long m_createTime;         // µs of Clock::nowRelative
    std::atomic<bool> m_expiring{false};  // the expiry pass is flushing this object with the map lock released

private:
    std::atomic<unsigned long long> m_version;  // of the content that the object was built from

public:
    std::list<MediaObj::Persist*> m_persists MO_GUARDED_BY(m_persistMutex);  // the holders that follow this object
    const unsigned m_serialNum;
    std::atomic<MediaVideoRate> m_defaultVideoRate;

private:
    std::atomic<LengthWatch*> m_lengthWatch{nullptr};           // owned, made on first use
    std::atomic<MediaRecordTracker*> m_recordTracker{nullptr};  // the same
    std::atomic<char*> m_sourceUmid{nullptr};                   // array text, owned; made on first success

public:
    mutable ZarnexPosix::JMutex m_persistMutex;
    std::atomic<MediaContainment> m_containment{};  // cached answer of getContainment
};
