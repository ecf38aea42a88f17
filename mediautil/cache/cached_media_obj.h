#pragma once

#include <atomic>
#include <list>
#include <string>
#include <vector>

#include "mediautil/cache/object_map.h"
#include "mediautil/cache/verdict_counts.h"
#include "services/file/basic_io_types.h"
#include "services/file/file_per_client.h"
#include "services/system/debugger_on.h"
#include "services/system/locks.h"
#include "shared/include/object/media_obj.h"
#include "support/bridge.h"
#include "support/signals.h"
#include "support/singleton_helper.h"
#include "support/thread_method.h"

// The process-wide cache that makes one live object stand for one file. Its map goes from a file's id to its object; a
// null value is a reservation. It shares objects, counts writers, decides which of two objects stays, keeps idle ones
// for a while and parses changed files again on its own thread.
// **Locks**, in this order: m_expireLock, m_mapLock, then the holder lock and an object's own; m_rereadLock is never
// held together with m_mapLock. A parse, close, flush or deletion never runs under m_mapLock.
// **Threads:** any; the file layer's call `changeCb`; its own is "media re-reader".
// **Defined in** map.cpp, replacement.cpp, expiry.cpp, rereader.cpp, service.cpp, control.cpp. What is counted, in all
// of the library: counters.cpp.
class CachedMediaObj : public SingletonHelper<CachedMediaObj> {
public:
    using Map = ObjectMap;
    class AutoCancel;

    // The instance, made on first use and never deleted in normal running.
    static CachedMediaObj* getRef();
    // True once the instance has been made.
    static bool exists() { return cachedMediaObj.load(std::memory_order_acquire) != nullptr; }

    // The object of a file, with a writer added if one is wanted and the object is being written. Gives: one reference,
    // or null for no object and for a reservation. Waits: while the last writer's close is under way, at most 3000 ms.
    MediaObj* find(OsPathId id, bool wantWriter, bool* hasWriters) MO_EXCLUDES(m_mapLock);
    // Claims an empty entry; false when there is one, whatever it holds.
    bool reserve(OsPathId id) MO_EXCLUDES(m_mapLock);
    // Gives up a reservation that wasn't used.
    void cancel(OsPathId id) MO_EXCLUDES(m_mapLock);
    // Settles which object stands for a file; 0 means a creation. Takes: the caller's reference to `object`.
    // Gives: the winner with one reference, or null.
    MediaObj* replace(MediaObj* object, OsPathId id, bool writer, bool force) MO_EXCLUDES(m_mapLock);
    // Gives an object whose primary file changed its id the new key.
    void updateId(MediaObj* object) MO_EXCLUDES(m_mapLock);
    // A writer goes. The last one closes the object, turns it read-only and has its file watched.
    void releaseWriter(MediaObj* object) MO_EXCLUDES(m_mapLock);
    const BasicIOTypes::ChangeHook* getCbInfo() const { return &m_changeAnchor; }

    // One pass: idle objects become zombies, unreferenced zombies go. `now` in µs of Clock::nowRelative, or a time to
    // come that makes everything due. `only`, if not null, leaves the map whatever its idle time; the caller owes the
    // guarantee that its other references go, for the pass stays with it until then.
    void expireZombies(long long now, const MediaObj* only) MO_EXCLUDES(m_mapLock);
    // Lets go of what nobody holds. Waits: 100 ms polls, 29 at most.
    void flushAll(const MediaObj* only) MO_EXCLUDES(m_mapLock);

    // A file has changed; called by the file layer.
    bool changeCb(const BasicIOTypes::Change& change) MO_EXCLUDES(m_mapLock);

    void trace(MediaObj::Trace kind) MO_NO_THREAD_SAFETY_ANALYSIS;
    bool debugCb(unsigned bits);
    bool debugCb(const DebugRecord& record);
    bool initCb();
    bool shutdownSignalCb();
    bool checkFinishedCb(bool report);
    bool stopThreadsCb();

    // What stands in the cache now.
    struct Counts {
        unsigned entries;  // map entries, reservations and second entries included
        unsigned zombies;
    };
    Counts counts() MO_EXCLUDES(m_mapLock);
    // The same. Waits: for the map lock, at most a second. Fails: false without it, and `counts` is untouched.
    bool tryCounts(Counts& counts) MO_EXCLUDES(m_mapLock) MO_NO_THREAD_SAFETY_ANALYSIS;
    const VerdictCounts& verdicts() const { return m_verdicts; }

    // What the cache knows of one object at a moment.
    struct ObjectFacts {
        enum class State : std::uint32_t { Cached, Reserved, Zombie };

        State state = State::Reserved;
        OsPathId id = {};  // key in the map; a zombie's last one
        std::string path;  // empty for a reservation, which has nothing below either
        unsigned serial = 0;
        int references = 0;    // the cache's own included
        unsigned holders = 0;  // of type Persist
        int writers = 0;
        int waiting = 0;  // openers that wait for the end of a morph
        bool morphing = false;
        bool writable = false;
        bool recording = false;
        unsigned long long version = 0;
        long long age = 0;    // µs since the object was made
        long long idle = -1;  // µs since its last user went; below 0 while there is one
        // Clients with open files, and how many each has. Not known while somebody is at the files.
        bool clientsKnown = false;
        std::vector<FilePerClient::OpenHandles> clients = {};
    };
    // Everything in the map and among the zombies. Waits: for the map lock, at most a second.
    // Fails: false without it, and `facts` is untouched.
    bool listFacts(std::vector<ObjectFacts>& facts) MO_EXCLUDES(m_mapLock) MO_NO_THREAD_SAFETY_ANALYSIS;

private:
    friend class SingletonHelper<CachedMediaObj>;
    friend class CacheProbe;  // tests look at the parts

    // A file to be parsed again.
    struct ReadingElement {
        explicit ReadingElement(const BasicIOTypes::Change& change) : m_id(change.m_id), m_force(change.m_force) {}

        OsPathId m_id;
        bool m_force;  // parse even if the version is unchanged
    };

    using MapLock = ZarnexPosix::JMultiLock<ZarnexPosix::JMutex>;
    using ExpireLock = ZarnexPosix::JMultiTrackLock<ZarnexPosix::JLWSemaphore>;
    using MapScope = ZarnexPosix::ScopeLock<MapLock>;

    CachedMediaObj();
    ~CachedMediaObj();

    // Puts an object in, under its cache id and its file id. False when the second entry can't be had.
    bool addToCache(Map::iterator entry, MediaObj* object, OsPathId id) MO_REQUIRES(m_mapLock);
    bool addFileEntry(MediaObj* object, bool& replaceEntry) MO_REQUIRES(m_mapLock);
    bool replaceable(MediaObj* oldObject, MediaObj* newObject, bool force) MO_REQUIRES(m_mapLock);
    MediaObj* installReserved(Map::iterator entry, MediaObj* object, OsPathId id, bool writer) MO_REQUIRES(m_mapLock);
    // These are called with m_mapLock held by `lock`, and come back with it released or held as they need.
    MediaObj* keepExisting(MapScope& lock, MediaObj::ScopeHold& hold, MediaObj* object, bool create,
                           bool writer) MO_NO_THREAD_SAFETY_ANALYSIS;
    MediaObj* install(MapScope& lock, Map::iterator entry, MediaObj* oldObject, MediaObj* object, OsPathId id,
                      bool writer) MO_NO_THREAD_SAFETY_ANALYSIS;
    void watch(MediaObj* object, OsPathId id);
    void retire(MediaObj* object) MO_REQUIRES(m_mapLock);
    bool waitForReadOnly(MapScope& lock, MediaObj* object) MO_NO_THREAD_SAFETY_ANALYSIS;

    void expireZombiesLocked(long long now, const MediaObj* only);
    bool isDue(const MediaObj* object, long long now, const MediaObj* only) const MO_REQUIRES(m_mapLock);
    bool isAnyDue(long long now, const MediaObj* only) MO_REQUIRES(m_mapLock);
    void startLostClock(MediaObj* object) MO_REQUIRES(m_mapLock);
    void moveIdleToZombies(MapScope& lock, long long now, const MediaObj* only) MO_NO_THREAD_SAFETY_ANALYSIS;
    void eraseEntries(MediaObj* object, OsPathId key) MO_REQUIRES(m_mapLock);
    void eraseDuplicate(MediaObj* object, OsPathId id) MO_REQUIRES(m_mapLock);
    void deleteDueZombies(MapScope& lock, long long now) MO_NO_THREAD_SAFETY_ANALYSIS;
    void deleteZombie(MapScope& lock, MediaObj* object) MO_NO_THREAD_SAFETY_ANALYSIS;
    // Null for a live object, else why it isn't one. Gives: array text.
    AutoPtr<char> validate(MediaObj* object);

    void reReader();
    bool nextToReread(ReadingElement& element);
    void rereadFile(const ReadingElement& element);

    bool lockMapPatiently() MO_NO_THREAD_SAFETY_ANALYSIS;
    void listObjects(long long now) MO_NO_THREAD_SAFETY_ANALYSIS;
    bool reportLeftovers(bool report) MO_REQUIRES(m_mapLock);
    void cacheDurationChanged();
    static void offerControl();

    static std::atomic<CachedMediaObj*> cachedMediaObj;
    static CachedMediaObj* debugThis;  // the instance, for a debugger

    ExpireLock m_expireLock;  // one expiry pass at a time
    MapLock m_mapLock;        // the map, the zombies and all writer counts
    Map m_map MO_GUARDED_BY(m_mapLock);
    std::list<MediaObj*> m_zombies MO_GUARDED_BY(m_mapLock);  // out of the map, waiting to be deleted
    std::atomic<long long> m_zombieTime{0};                   // µs that an idle object stays
    ZarnexPosix::JMutex m_rereadLock;
    std::list<ReadingElement> m_rereadQueue MO_GUARDED_BY(m_rereadLock);  // at most one element a file
    ThreadMethod<CachedMediaObj> m_rereader;
    BridgeAnchor<CachedMediaObj, const BasicIOTypes::Change&, bool> m_changeAnchor;
    BridgeAnchor<CachedMediaObj, const DebugRecord&, bool> m_debugAnchor;
    Subsystem::Signals<CachedMediaObj> m_signals;
    std::atomic<bool> m_stopping{false};  // ends the re-reader's main loop
    VerdictCounts m_verdicts;
};

// Gives up a reservation at the end of a scope, whatever became of the parse.
class CachedMediaObj::AutoCancel {
public:
    AutoCancel(CachedMediaObj& cache, OsPathId id, bool active) : m_cache(cache), m_id(id), m_active(active) {}
    AutoCancel(const AutoCancel&) = delete;
    ~AutoCancel() {
        if (m_active) m_cache.cancel(m_id);
    }

private:
    CachedMediaObj& m_cache;
    const OsPathId m_id;
    const bool m_active;
};
