#include "mediautil/object/media_obj_impl.h"

#include <new>

#include "mediautil/index/record_log.h"
#include "support/clock.h"

AtomicCounter MediaObjImpl::active(0);
AtomicCounter MediaObjImpl::sSerialNum(0);
unsigned MediaObjImpl::maxMediaHeaderSize;
constinit MediaObjImpl::OldestRef MediaObjImpl::oldestRef;

MediaObjImpl::MediaObjImpl(MediaObj* obj, unsigned long long version, MediaObj::CacheRefValue cacheRefs)
    : m_desc(obj),
      m_refCount(false, static_cast<int>(cacheRefs) + 1),
      m_morphCount(0),
      m_createTime(Clock::nowRelative()),
      m_version(version),
      m_serialNum(static_cast<unsigned>(++sSerialNum)),
      m_defaultVideoRate(MediaVideoRate::Ntsc2997) {
    ++active;
}

MediaObjImpl::~MediaObjImpl() {
    --active;
    delete m_lengthWatch.load(std::memory_order_acquire);
    delete m_recordTracker.load(std::memory_order_acquire);
    delete[] m_sourceUmid.load(std::memory_order_acquire);
}

namespace {

// The object that `place` owns, made if there is none yet; a thread that was first wins.
template <class Part>
Part* makeOnce(std::atomic<Part*>& place) {
    Part* part = place.load(std::memory_order_acquire);
    if (part != nullptr) return part;
    Part* const made = new (std::nothrow) Part;
    if (made == nullptr) return nullptr;
    if (place.compare_exchange_strong(part, made, std::memory_order_acq_rel)) return made;
    delete made;
    return part;
}

}  // namespace

unsigned long long MediaObjImpl::getReadSafeFrameCount(const MediaObj* obj) {
    LengthWatch* const watch = makeOnce(m_lengthWatch);
    if (watch == nullptr) return 0;
    return watch->safeLength(obj);
}

MediaRecordTracker* MediaObjImpl::recordTracker() { return makeOnce(m_recordTracker); }

void MediaObjImpl::copyLengthWatchTo(MediaObjImpl& other) const {
    const LengthWatch* watch = lengthWatch();
    if (watch == nullptr) return;
    LengthWatch* had = other.lengthWatch();
    if (had == nullptr) {
        LengthWatch* copy = new (std::nothrow) LengthWatch(*watch);
        if (copy == nullptr || other.m_lengthWatch.compare_exchange_strong(had, copy, std::memory_order_acq_rel))
            return;
        delete copy;  // a reader was first
    }
    had->takeOver(*watch);
}

void MediaObjImpl::add(MediaObj::Persist& holder) {
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_persistMutex);
    m_persists.push_front(&holder);
}

void MediaObjImpl::remove(MediaObj::Persist& holder) {
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_persistMutex);
    m_persists.remove(&holder);
}
