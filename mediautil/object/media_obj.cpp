#include "shared/include/object/media_obj.h"

#include <algorithm>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "services/system/text.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/irecord_train.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// The life of a movie: counts, writers, versions and its text.
// A count of 0 deletes an object that never was in the cache; what has been cached is deleted by the cache alone.

namespace {

const char* pathOrNil(const char* path) { return path != nullptr ? path : "(nil)"; }

}  // namespace

MediaObj::MediaObj(unsigned long long version, CacheRefValue cacheRefs)
    : m_impl(new MediaObjImpl(this, version, cacheRefs)), m_magic(s_magic) {
    if (mediaObjDbg.on(MediaDbg::Ctor)) {
        debugMsg("MO@%p::ctor,%d tot\n", static_cast<void*>(this), MediaObjImpl::active.getCount());
    }
}

MediaObj::~MediaObj() {
    m_magic = 0;
    int count = getReferenceCount();
    const int morphs = m_impl->m_morphCount.getCount();
    if (morphs > 0) {
        static std::atomic<bool> told{false};
        // The path comes from the list itself: the virtual operations are gone by now.
        if (!told.exchange(true)) {
            errorMsg("MO::dtor: non-zero morph count for %s (%d)\n", pathOrNil(m_impl->m_fileList.getPath(0)), morphs);
        }
    }
    m_impl->m_persistMutex.lock();
    const std::size_t clients = m_impl->m_persists.size();
    m_impl->m_persistMutex.unlock();
    const int writers = m_impl->getWriterCount();
    if (count != 0 || m_impl->isCached() || clients != 0 ||
        (writers != 0 && mediaObjDbg.on(MediaDbg::PermissionChange)) || mediaObjDbg.on(MediaDbg::Ctor)) {
        debugMsg("MO@%p::dtor,%dactive,%dclients,%dwriters,%sref=%d%s\n", static_cast<void*>(this),
                 MediaObjImpl::active.getCount(), static_cast<int>(clients), writers,
                 m_impl->isCached() ? "cached," : "", count, count < 0 ? ",process blocked" : "");
    }
    // A reference fault somewhere: this thread parks for good instead of freeing what others may still use.
    while (count < 0) {
        waitMsec(1000);
        count = getReferenceCount();
    }
    delete m_impl;
}

MediaMovieDesc* MediaObj::getDesc() { return &m_impl->m_desc; }

const MediaMovieDesc* MediaObj::getDesc() const { return &m_impl->m_desc; }

RefCount* MediaObj::getRefCount() { return &m_impl->m_refCount; }

int MediaObj::getReferenceCount() const { return m_impl->m_refCount.getCount(); }

unsigned MediaObj::getSerialNum() const { return m_impl->m_serialNum; }

void MediaObj::setCacheId(OsPathId id) { m_impl->setCacheId(id); }

void MediaObj::setCachedFileId(OsPathId id) { m_impl->setFileId(id); }

int MediaObj::preserve() {
    const int count = m_impl->m_refCount.preserve();
    if (count <= 1 || mediaObjDbg.on(MediaDbg::Reference)) {
        debugMsg("MO@%p::preserve-->%d,%s\n", static_cast<void*>(this), count, getStackTrace().get());
    }
    return count;
}

int MediaObj::release() {
    // Read before the count falls: from then on the object may be another thread's to delete.
    const bool wasCached = m_impl->getCacheId() != 0;
    const int morphs = m_impl->m_morphCount.getCount();
    int count = wasCached ? m_impl->m_refCount.releaseDownTo(2) : -1;
    if (count < 0) {
        // The idle clock starts when the count falls to the cache's own reference. It is stamped before, since
        // afterwards the expiry pass may already have deleted the object; should the count stay above 1, the stamp is
        // without effect.
        if (wasCached) m_impl->setLastRefTime(Clock::nowRelative());
        count = m_impl->m_refCount.release();
    }
    if (count < 0 || (count == 0 && wasCached) || mediaObjDbg.on(MediaDbg::Reference)) {
        debugMsg("MO@%p::release-->%d,%s\n", static_cast<void*>(this), count, getStackTrace().get());
    }
    if (count == 0 && !wasCached) delete this;
    if (count > 2 && morphs >= 3) {
        warningMsg("MO::release: %s ref cnt now %d and morph ongoing\n", pathOrNil(getPath(nullptr)), count);
    }
    return count;
}

int MediaObj::release(MediaAgent agent, bool writer) {
    if (agent != nullptr) close(nullptr, agent).discard();
    if (writer) {
        CachedMediaObj* cache = CachedMediaObj::getRef();
        cache->releaseWriter(this);
        if (m_impl->getWriterCount() == 0) {
            for (MediaObj* referenced : filterDupObjects(getExternalRefMediaObj()))
                cache->releaseWriter(referenced);
        }
    }
    return release();
}

OsPathId MediaObj::getFileId() const { return m_impl->getFileId(); }

OsPathId MediaObj::getPathId() const { return m_impl->getCacheId(); }

unsigned long long MediaObj::getVersion() const {
    if (getMovieDesc()->isWritable() || hasState(MediaObjStateLiveVersion))
        m_impl->setVersion(m_impl->m_fileList.getVersion());
    return m_impl->getVersion();
}

void MediaObj::setVersion(unsigned long long version, bool) { m_impl->setVersion(version); }

std::uint32_t MediaObj::getState() const { return 0; }

SwVersion MediaObj::getMediaLayerVersion() const { return SwVersion(); }

bool MediaObj::isZarnexMovie() const { return false; }

MediaTrackDesc* MediaObj::createTranslationTrack(unsigned, MediaFileType, OpResult&) { return nullptr; }

bool MediaObj::acceptSideBandFiles(const std::string&, std::list<std::string>&) { return false; }

void MediaObj::getSideBandFiles(std::string&, std::list<std::string>&) {}

bool MediaObj::canHaveSideBandFiles() const { return false; }

bool MediaObj::tracksMustBeAligned() const { return false; }

bool MediaObj::supportsEmptyEdits() const { return false; }

bool MediaObj::isStream() const { return true; }  // meant: a movie counts as a stream until its back-end knows better

bool MediaObj::canHaveRefMedia() const { return false; }

unsigned MediaObj::getPlayoutIopExtra() const { return 0; }

OpResult MediaObj::setRecording(bool recording) {
    MediaMovieDesc* desc = getMovieDesc();
    if (!desc->isWritable()) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    desc->setRecording(recording);
    return OpResult(OpResult::Ok);
}

bool MediaObj::isRecording() const { return getMovieDesc()->isRecording(); }

unsigned long long MediaObj::getReadSafeFrameLength() const { return m_impl->getReadSafeFrameCount(this); }

bool MediaObj::getFinalFrameLength(unsigned long long& frames) const {
    frames = ~0ull;
    return false;
}

void* MediaObj::getParseRoot() { return nullptr; }

bool MediaObj::acceptReplacement(const MediaObj*) { return true; }

std::list<MediaObj*> MediaObj::getExternalRefMediaObj() const { return {}; }

AutoReleasePtr<IRecordTrain> MediaObj::getRecordTrainInterface() {
    IRecordTrain* const train = dynamic_cast<IRecordTrain*>(this);
    if (train != nullptr) train->preserve();
    return AutoReleasePtr<IRecordTrain>(train);
}

void MediaObj::addWriter() {
    for (MediaObj* referenced : filterDupObjects(getExternalRefMediaObj()))
        referenced->addWriter();
    const int before = m_impl->getWriterCount();
    m_impl->incWriterCnt();
    if (mediaObjDbg.on(MediaDbg::WriterCount)) {
        debugMsg("%s:inc W %u->%u\n", pathOrNil(getPath(nullptr)), static_cast<unsigned>(before),
                 static_cast<unsigned>(m_impl->getWriterCount()));
    }
}

void MediaObj::dropWriter() {
    for (MediaObj* referenced : filterDupObjects(getExternalRefMediaObj()))
        referenced->dropWriter();
    const int before = m_impl->getWriterCount();
    m_impl->decWriterCnt();
    if (mediaObjDbg.on(MediaDbg::WriterCount)) {
        debugMsg("%s:dec W %u->%u\n", pathOrNil(getPath(nullptr)), static_cast<unsigned>(before),
                 static_cast<unsigned>(m_impl->getWriterCount()));
    }
}

void MediaObj::setReadOnly() {
    for (MediaObj* referenced : filterDupObjects(getExternalRefMediaObj()))
        referenced->setReadOnly();
    getMovieDesc()->setWritable(false);
    m_impl->m_fileList.setReadOnly();
}

AutoPtr<char> MediaObj::toString(bool full) const {
    const MediaMovieDesc* desc = getMovieDesc();
    const OsPathId cacheId = m_impl->getCacheId();
    FormatStr text(256u);
    if (desc->isRecording()) text.cat("rec,");
    text.cat(desc->isWritable() ? "rw" : "ro");
    text.format("(%d),", m_impl->getWriterCount());
    text.cat(FsFileIO::filePart(getPath(nullptr)));
    text.format(",%s", MediaNames::get(desc->getStandard()));
    if (mediaObjDbg.on(MediaDbg::Validation)) {
        // Addresses and versions stay out, so that the logs of two runs compare equal.
        text.format(",@<suppressed for validation>,ref=%d,%d trk,%lld f,fileId%scacheId", getReferenceCount(),
                    static_cast<int>(getTrackCount()), static_cast<long long>(getFrameLength()),
                    m_impl->m_fileList.getPathId(0) == cacheId ? "==" : "!=");
    } else if (full) {
        const OsPathId fileId = m_impl->m_fileList.getPathId(0);
        text.format(",@%p,v%lld,ref=%d,%d trk,%lld f,fileId=%llx", static_cast<const void*>(this),
                    static_cast<long long>(m_impl->getVersion()), getReferenceCount(),
                    static_cast<int>(getTrackCount()), static_cast<long long>(getFrameLength()), fileId.getId());
        if (fileId != cacheId) text.format(",cacheId=%llx", cacheId.getId());
    } else {
        text.format(",@%p,ref=%d", static_cast<const void*>(this), getReferenceCount());
    }
    return text;
}

void MediaObj::trace(Trace kind) { CachedMediaObj::getRef()->trace(kind); }

void MediaObj::flushAll(const MediaObj* only) { CachedMediaObj::getRef()->flushAll(only); }
