#include "mediautil/object/media_obj_impl.h"

#include <new>

#include "support/clock.h"

AtomicCounter MediaObjImpl::active(0);
AtomicCounter MediaObjImpl::sSerialNum(0);
unsigned MediaObjImpl::maxMediaHeaderSize;

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
}

unsigned long long MediaObjImpl::getReadSafeFrameCount(const MediaObj* obj) {
    LengthWatch* watch = lengthWatch();
    if (watch == nullptr) {
        LengthWatch* made = new (std::nothrow) LengthWatch;
        if (made == nullptr) return 0;
        if (m_lengthWatch.compare_exchange_strong(watch, made, std::memory_order_acq_rel)) {
            watch = made;
        } else {
            delete made;  // another reader was first
        }
    }
    return watch->safeLength(obj);
}

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
