#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/media_obj.h"

// A movie's way to its files: ids, handles and what is asked of the list.

using SizeAdvice = BasicIOTypes::SizeAdvice;

namespace {

unsigned indexOf(MediaIdRec* id) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(id) - 1); }

MediaIdRec* idOf(unsigned index) { return reinterpret_cast<MediaIdRec*>(static_cast<std::uintptr_t>(index) + 1); }

// The index that a null id stands for where it means the primary file.
unsigned indexOrPrimary(MediaIdRec* id) { return id != nullptr ? indexOf(id) : 0; }

// Counts a new entry in the movie's descriptor and gives it its stripes, if nobody has.
MediaIdRec* enter(MediaObj& obj, MediaFileList& files, unsigned index, SizeAdvice primary, SizeAdvice secondary) {
    MediaMovieDesc* desc = obj.getMovieDesc();
    if (desc->getNumMedia() <= index) {
        desc->setNumMedia(index + 1);
        if (files.getSizeAdvice(index) == SizeAdvice::None) files.advise(index, index == 0 ? primary : secondary);
    }
    return idOf(index);
}

}  // namespace

// The advice of the two forms differs on purpose: an open handle on a secondary file carries essence, a mere name may
// not.
MediaIdRec* MediaObj::allocMediaId(const char* path) {
    MediaFileList& files = m_impl->m_fileList;
    return enter(*this, files, files.getIndex(path), SizeAdvice::None, SizeAdvice::SmallStripe);
}

MediaIdRec* MediaObj::allocMediaId(AutoRefPtr<BasicFileIO> file) {
    MediaFileList& files = m_impl->m_fileList;
    return enter(*this, files, files.getIndex(file), SizeAdvice::SmallStripe, SizeAdvice::LargeStripe);
}

AutoRefPtr<BasicFileIO> MediaObj::getFp(OpResult& result, MediaIdRec* id, MediaAgent agent) const {
    return getFp(result, id, false, agent);
}

AutoRefPtr<BasicFileIO> MediaObj::getFp(OpResult& result, MediaIdRec* id, bool writable, MediaAgent agent) const {
    return m_impl->m_fileList.getFp(id, writable, agent, result);
}

AutoRefPtr<BasicFileIO> MediaObj::open(MediaIdRec* id, MediaAgent agent, ReadMode mode, OpResult& result) const {
    if (id == nullptr) {
        result = OpResult(OpResult::Ok);
        return AutoRefPtr<BasicFileIO>();
    }
    return getFp(result, id, mode == ReadMode::ReadWrite, agent);
}

OpResult MediaObj::close(MediaIdRec* id, MediaAgent agent) const {
    if (id != nullptr) return m_impl->m_fileList.close(indexOf(id), agent);
    for (unsigned i = 0; i < getTrackCount(); ++i)
        getTrackAt(i)->close();
    return m_impl->m_fileList.close(agent);
}

void MediaObj::flush(MediaIdRec* id) { m_impl->m_fileList.flush(indexOf(id)); }

void MediaObj::flush(const MediaTrackDesc* track, bool now) {
    if (!now) return;
    MediaFileList& files = m_impl->m_fileList;
    if (track == nullptr) {
        for (unsigned i = 0; i < files.size(); ++i)
            files.flush(i);
        return;
    }
    for (unsigned i = 0; i < track->getClipCount(); ++i)
        files.flush(indexOf(track->getClip(i)->getMediaId()));
}

void MediaObj::purge() const {
    MediaFileList& files = m_impl->m_fileList;
    for (unsigned i = 0; i < files.size(); ++i)
        files.purge(i);
}

OpResult MediaObj::remove() {
    setReadOnly();
    return m_impl->m_fileList.remove();
}

OsPathId MediaObj::getPathId(MediaIdRec* id) const { return m_impl->m_fileList.getPathId(indexOf(id)); }

const char* MediaObj::getPath(MediaIdRec* id) const { return m_impl->m_fileList.getPath(indexOrPrimary(id)); }

unsigned long long MediaObj::getMediaSize(MediaIdRec* id) const {
    return m_impl->m_fileList.getMediaSize(indexOrPrimary(id));
}

MediaIdRec* MediaObj::getMediaId(unsigned index) const {
    return index < m_impl->m_fileList.size() ? idOf(index) : nullptr;
}

unsigned MediaObj::getMediaIndex(MediaIdRec* id) const {
    const unsigned index = indexOf(id);
    return index < m_impl->m_fileList.size() ? index : 0xFFFFFFFFu;
}

unsigned MediaObj::getMediaCount() const { return m_impl->m_fileList.size(); }

bool MediaObj::allFilesOpen(MediaAgent agent, bool writable) const {
    return m_impl->m_fileList.allFilesOpen(agent, writable);
}

unsigned MediaObj::getNumOpenFiles(MediaAgent agent) const { return m_impl->m_fileList.getNumOpenFiles(agent); }

unsigned MediaObj::getDirtyOccupancy() const { return m_impl->m_fileList.getDirtyOccupancy(); }

unsigned MediaObj::getTotalOccupancy(MediaAgent agent, bool all) const {
    return m_impl->m_fileList.getTotalOccupancy(agent, all);
}

unsigned MediaObj::getCacheSize(MediaAgent agent, bool all) const {
    return m_impl->m_fileList.getCacheSize(agent, all);
}

void MediaObj::disableLowLevelMessages() { m_impl->m_fileList.disableLowLevelMessages(); }
