#include <vector>

#include "mediautil/object/media_obj_impl.h"
#include "mediautil/object/rereader_lock.h"
#include "shared/include/object/media_obj.h"

// Holders and their moves. The process-wide holder lock serialises every change of a holder, and of the lists that
// holders stand in; under it an object's list lock comes before a holder's own, which guards no more than the pointer,
// so that `preserve` takes it alone and never waits for the holder lock.

using HolderScope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;
using PersistScope = ZarnexPosix::ScopeLock<ZarnexPosix::JMultiLock<ZarnexPosix::JMutex>>;

MediaObj::Persist::Persist(OnChanged* onChanged, OnChanging* onChanging)
    : m_onChanged(onChanged), m_onChanging(onChanging) {}

MediaObj::Persist::Persist(const Persist& other) : m_onChanged(other.m_onChanged), m_onChanging(other.m_onChanging) {
    HolderScope moving(RereaderLock::getRef());
    // The other holder is read under the holder lock alone, which keeps every change of it away.
    MediaObj* obj = other.current();
    setCurrent(obj);
    if (obj != nullptr) {
        obj->preserve();
        obj->impl().add(*this);
    }
}

MediaObj::Persist::~Persist() { *this = static_cast<MediaObj*>(nullptr); }

MediaObj* MediaObj::Persist::current() const { return m_obj; }

MediaObj* MediaObj::Persist::preserve() const {
    PersistScope lock(m_lock);
    if (m_obj != nullptr) m_obj->preserve();
    return m_obj;
}

void MediaObj::Persist::setCurrent(MediaObj* obj) {
    PersistScope lock(m_lock);
    m_obj = obj;
}

// Stores `other` and answers the object that the holder has left, whose reference is then the caller's to give back.
// With the object that is held already nothing changes and `same` says so. Requires: the holder lock.
MediaObj* MediaObj::Persist::exchange(MediaObj* other, bool preserveNew, bool& same) {
    MediaObj* old = current();
    same = old == other;
    if (same) return nullptr;
    if (old != nullptr) old->impl().remove(*this);
    if (other != nullptr) {
        if (preserveNew) other->preserve();
        other->impl().add(*this);
        if (old != nullptr) old->impl().copyLengthWatchTo(other->impl());
    }
    setCurrent(other);
    return old;
}

MediaObj::Persist& MediaObj::Persist::operator=(ScopeHold& hold) { return *this = hold.forget(); }

MediaObj::Persist& MediaObj::Persist::operator=(MediaObj* obj) {
    bool same = false;
    HolderScope moving(RereaderLock::getRef());
    MediaObj* old = exchange(obj, false, same);
    moving.unlock();
    // The last reference may mean a long destruction, which takes no holder locks.
    if (same) old = obj;
    if (old != nullptr) old->release();
    return *this;
}

MediaObj::Persist& MediaObj::Persist::operator=(const Persist& other) {
    if (this == &other) return *this;
    bool same = false;
    HolderScope moving(RereaderLock::getRef());
    MediaObj* old = exchange(other.current(), true, same);
    moving.unlock();
    if (old != nullptr) old->release();
    return *this;
}

void MediaObj::Persist::replace(MediaObj* other) {
    PersistScope lock(m_lock);
    if (m_onChanging != nullptr) (void)m_onChanging->callCb(*other);
    if (m_obj != nullptr && other != nullptr) m_obj->impl().copyLengthWatchTo(other->impl());
    m_obj = other;  // with the reference that `replaceWith` took; it also gives the old one back
    if (m_onChanged != nullptr) (void)m_onChanged->callCb(*this);
}

void MediaObj::replaceWith(MediaObj* other) {
    if (other == this) return;  // its holders are where they are to go
    HolderScope moving(RereaderLock::getRef());
    unsigned moved = 0;
    {
        HolderScope lock(m_impl->m_persistMutex);
        auto& holders = m_impl->m_persists;
        while (!holders.empty()) {
            other->preserve();
            holders.front()->replace(other);
            // The other list takes no lock: the holder lock keeps all its other changes away.
            other->impl().takeFront(holders);
            ++moved;
        }
    }
    while (moved-- > 0)
        release();
}
