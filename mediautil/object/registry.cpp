#include <cstring>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"

Registrar<MediaReaderDesc>& MediaObjImpl::getReaderReg() {
    static Registrar<MediaReaderDesc> registrar(true);
    return registrar;
}

Registrar<MediaWriterDesc>& MediaObjImpl::getWriterReg() {
    static Registrar<MediaWriterDesc> registrar(true);
    return registrar;
}

unsigned MediaObj::registerOpener(const MediaReaderDesc& desc, int priority) {
    return MediaObjImpl::getReaderReg().registerElem(getMediaFileTypeMap().mapValue(desc.m_fileType), desc, priority);
}

unsigned MediaObj::registerCreator(const MediaWriterDesc& desc, int priority) {
    return MediaObjImpl::getWriterReg().registerElem(getMediaFileTypeMap().mapValue(desc.m_fileType), desc, priority);
}

namespace {

template <typename T>
void append(const Registrar<T>& table, MediaFormatEntry::Role role, std::vector<MediaFormatEntry>& entries) {
    for (unsigned i = 0; i < table.countElem(); ++i) {
        entries.push_back(MediaFormatEntry{role, table.getElem(i).m_fileType, table.getPriority(i)});
    }
}

}  // namespace

std::vector<MediaFormatEntry> listMediaFormats() {
    std::vector<MediaFormatEntry> entries;
    append(MediaObjImpl::getReaderReg(), MediaFormatEntry::Role::Reader, entries);
    append(MediaObjImpl::getWriterReg(), MediaFormatEntry::Role::Writer, entries);
    return entries;
}

namespace {

bool hasStyle(const MediaWriterDesc& desc, const char* style) {
    for (int i = 0; i < desc.m_numStyles; ++i) {
        if (desc.m_styles[i] != nullptr && std::strcmp(desc.m_styles[i], style) == 0) return true;
    }
    return false;
}

}  // namespace

OpResult MediaObjImpl::lookup(MediaFileType type, MediaWriterDesc& out, const char* style) {
    const Registrar<MediaWriterDesc>& writers = getWriterReg();
    for (unsigned i = 0; i < writers.countElem(); ++i) {
        if (writers.getElem(i).m_fileType == type) {
            out = writers.getElem(i);
            return OpResult(OpResult::Ok);
        }
    }
    for (unsigned i = 0; style != nullptr && i < writers.countElem(); ++i) {
        if (hasStyle(writers.getElem(i), style)) {
            out = writers.getElem(i);
            return OpResult(OpResult::Ok);
        }
    }
    return MO_WARNING(MediaCode::UnsupportedMediaType, nullptr);
}
