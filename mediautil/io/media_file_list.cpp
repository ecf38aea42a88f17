#include "mediautil/io/media_file_list.h"

#include <cstring>
#include <new>

#include "services/system/log.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"

using ListScope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

namespace {

// Unsigned on purpose: a null id becomes an index that is out of range.
unsigned indexOf(MediaIdRec* id) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(id) - 1); }

MediaIdRec* idOf(unsigned index) { return reinterpret_cast<MediaIdRec*>(static_cast<std::uintptr_t>(index) + 1); }

}  // namespace

MediaFileList::~MediaFileList() {
    ListScope lock(m_mutex);
    m_files.clear();
}

unsigned MediaFileList::size() const { return static_cast<unsigned>(m_files.size()); }

FilePerClient* MediaFileList::entry(unsigned index) const {
    return index < m_files.size() ? m_files[index].get() : nullptr;
}

unsigned MediaFileList::findPath(const char* path) const {
    for (unsigned i = 0; i < m_files.size(); ++i) {
        if (std::strcmp(m_files[i]->getPath(), path) == 0) return i;
    }
    return s_none;
}

unsigned MediaFileList::append() {
    m_files.push_back(AutoPtr<FilePerClient>(new FilePerClient));
    return static_cast<unsigned>(m_files.size() - 1);
}

unsigned MediaFileList::getIndex(const char* path) {
    ListScope lock(m_mutex);
    const unsigned known = findPath(path);
    if (known != s_none) return known;
    const unsigned index = append();
    m_files[index]->setPath(path);
    // The primary file gets no such advice, which is meant: it is no essence to stream.
    if (index != 0) m_files[index]->advise(BasicIOTypes::CacheAdvice::Stream);
    return index;
}

unsigned MediaFileList::getIndex(AutoRefPtr<BasicFileIO> fp) {
    ListScope lock(m_mutex);
    const unsigned known = findPath(fp->getPath());
    if (known != s_none) {
        m_writeClamp.debug("MO: discard %s\n", fp->describe().get());
        // One reference more than the argument's own: a handle on a file that is in the list already must not survive
        // in its creator's hands.
        fp->release();
        return known;
    }
    const unsigned index = append();
    m_files[index]->setFp(fp, nullptr);
    return index;
}

AutoRefPtr<BasicFileIO> MediaFileList::getFpLocked(MediaIdRec* id, bool writable, MediaAgent agent, OpResult& result) {
    FilePerClient* file = entry(indexOf(id));
    if (file == nullptr) {
        errorMsg("MediaFileList::getFp(id=%d,%s writable,a=%p)-->oob",
                 static_cast<int>(reinterpret_cast<std::uintptr_t>(id)), writable ? "" : "not", agent.client());
        result = MO_ERROR(MediaCode::InternalError, nullptr);
        return AutoRefPtr<BasicFileIO>();
    }
    AutoRefPtr<BasicFileIO> fp = writable ? file->getWriteFp() : file->getReadFp(agent);
    if (fp.get() == nullptr) {
        result = MO_WARNING(MediaCode::NoFileHandle, nullptr);
    } else {
        result = OpResult(OpResult::Ok);
    }
    return fp;
}

AutoRefPtr<BasicFileIO> MediaFileList::getFp(MediaIdRec* id, bool writable, MediaAgent agent, OpResult& result) {
    ListScope lock(m_mutex);
    if (id != idOf(0) && !m_primaryHeld && !writable) {
        // The primary is opened, once, before the first read of any secondary file.
        AutoRefPtr<BasicFileIO> primary = getFpLocked(idOf(0), false, agent, result);
        if (primary.get() != nullptr) {
            primary->open();
            m_primaryHeld = true;
        }
        result.discard();
    }
    return getFpLocked(id, writable, agent, result);
}

void MediaFileList::recomputePrimaryHeld() {
    m_primaryHeld = !m_files.empty() && m_files[0]->isOpen(nullptr, false) && !m_files[0]->isOpen(nullptr, true);
}

OpResult MediaFileList::close(unsigned index, MediaAgent agent) {
    if (mediaObjDbg.on(MediaDbg::OpenTrace)) {
        debugMsg("MediaFileList: close %s for agent %p\n", getPath(index), agent.client());
    }
    ListScope lock(m_mutex);
    FilePerClient* file = entry(index);
    if (file == nullptr) return MO_WARNING(MediaCode::InternalError, nullptr);
    file->close(agent, &m_mutex);
    if (index == 0 && agent == nullptr) recomputePrimaryHeld();
    return OpResult(OpResult::Ok);
}

bool MediaFileList::anyClientLeft() const {
    bool any = false;
    for (const auto& file : m_files) {
        if (file->hasClient() || file->isOpen(nullptr, true)) any = true;
    }
    return any;
}

OpResult MediaFileList::close(MediaAgent agent) {
    if (mediaObjDbg.on(MediaDbg::OpenTrace)) {
        debugMsg("MediaFileList: close all %s for agent %p\n", getPath(0), agent.client());
    }
    ListScope lock(m_mutex);
    for (const auto& file : m_files)
        file->close(agent, &m_mutex);
    if (m_primaryHeld) {
        if (!anyClientLeft()) {
            for (const auto& file : m_files)
                file->close(nullptr, &m_mutex);
        }
        recomputePrimaryHeld();
    }
    return OpResult(OpResult::Ok);
}

bool MediaFileList::inheritFileHandles(unsigned index, MediaFileList& other) MO_NO_THREAD_SAFETY_ANALYSIS {
    ListScope lock(m_mutex);
    if (index >= m_files.size() || index >= other.m_files.size()) return false;
    const bool inherited = m_files[index]->inheritFileHandles(*other.m_files[index]);
    if (index == 0) recomputePrimaryHeld();
    return inherited;
}

OpResult MediaFileList::remove() {
    ListScope lock(m_mutex);
    // Looked at first, so that a refusal leaves no half-deleted movie.
    for (const auto& file : m_files) {
        bool isProtected = false;
        if (file->getProtection(isProtected) && isProtected) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    }
    OpResult result(OpResult::Ok);
    for (const auto& file : m_files) {
        if (file->remove()) continue;
        result.discard();
        result = MO_WARNING(MediaCode::UnknownError, file->getPath());
    }
    return result;
}

OpResult MediaFileList::rename(unsigned index, const char* path) {
    ListScope lock(m_mutex);
    FilePerClient* file = entry(index);
    if (file == nullptr) return MO_WARNING(MediaCode::InternalError, nullptr);
    if (!file->rename(path)) return MO_WARNING(MediaCode::UnknownError, nullptr);
    return OpResult(OpResult::Ok);
}

void MediaFileList::purge(unsigned index) {
    ListScope lock(m_mutex);
    if (FilePerClient* file = entry(index)) file->purge();
}

void MediaFileList::flush(unsigned index) {
    ListScope lock(m_mutex);
    if (FilePerClient* file = entry(index)) file->flush();
}

unsigned MediaFileList::getDirtyOccupancy() const {
    ListScope lock(m_mutex);
    unsigned sum = 0;
    for (const auto& file : m_files)
        sum += file->getDirtyOccupancy();
    return sum;
}

unsigned MediaFileList::getTotalOccupancy(MediaAgent agent, bool all) const {
    ListScope lock(m_mutex);
    unsigned sum = 0;
    for (const auto& file : m_files)
        sum += file->getTotalOccupancy(agent, all);
    return sum;
}

unsigned MediaFileList::getCacheSize(MediaAgent agent, bool all) const {
    ListScope lock(m_mutex);
    unsigned sum = 0;
    for (const auto& file : m_files)
        sum += file->getMaxCacheSize(agent, all);
    return sum;
}

const char* MediaFileList::getPath(unsigned index) {
    ListScope lock(m_mutex);
    const FilePerClient* file = entry(index);
    // Only the primary file is looked for on disk, which is meant: a movie is gone with it.
    if (file == nullptr || (index == 0 && !file->exists())) return "";
    return file->getPath();
}

OsPathId MediaFileList::getPathId(unsigned index) {
    ListScope lock(m_mutex);
    const FilePerClient* file = entry(index);
    return file != nullptr ? file->getPathId() : OsPathId(0);
}

unsigned long long MediaFileList::getMediaSize(unsigned index) {
    ListScope lock(m_mutex);
    const FilePerClient* file = entry(index);
    return file != nullptr ? file->getFileSize() : 0;
}

unsigned long long MediaFileList::getVersion() {
    ListScope lock(m_mutex);
    const FilePerClient* file = entry(0);
    return file != nullptr ? file->getVersion() : 0;
}

void MediaFileList::advise(unsigned index, BasicIOTypes::SizeAdvice advice) {
    ListScope lock(m_mutex);
    if (FilePerClient* file = entry(index)) file->advise(advice);
}

BasicIOTypes::SizeAdvice MediaFileList::getSizeAdvice(unsigned index) const {
    if (index < m_files.size()) return m_files[index]->getSizeAdvice();
    OpResult outOfRange = MO_WARNING(MediaCode::InternalError, nullptr);
    outOfRange.discard();
    return BasicIOTypes::SizeAdvice::None;
}

bool MediaFileList::allFilesOpen(MediaAgent agent, bool writable) const {
    ListScope lock(m_mutex);
    for (const auto& file : m_files) {
        if (!file->isOpen(agent, writable)) return false;
    }
    return true;
}

unsigned MediaFileList::getNumOpenFiles(MediaAgent agent) {
    ListScope lock(m_mutex);
    unsigned sum = 0;
    for (const auto& file : m_files)
        sum += file->getNumOpenFiles(agent);
    return sum;
}

bool MediaFileList::tryListOpen(std::vector<FilePerClient::OpenHandles>& clients) const {
    clients.clear();
    if (!m_mutex.trylock()) return false;
    bool known = true;
    for (std::size_t i = 0; i < m_files.size() && known; ++i)
        known = m_files[i]->tryAddOpen(clients);
    m_mutex.unlock();
    if (!known) clients.clear();
    return known;
}

void MediaFileList::disableLowLevelMessages() {
    ListScope lock(m_mutex);
    for (const auto& file : m_files)
        file->disableLowLevelMessages();
}

void MediaFileList::setReadOnly() {
    ListScope lock(m_mutex);
    for (const auto& file : m_files)
        file->setReadOnly();
}
