#include <new>

#include "mediautil/object/media_obj_impl.h"
#include "neighbours/translation_media_obj.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_format.h"

// Movies of structure only, copied from this one or empty.

MediaObj* MediaObj::createTranslationObj(OpResult& result) const {
    result = OpResult(OpResult::Ok);
    MediaObj* copy = new (std::nothrow) TranslationMediaObj(FilterMediaObj::OpenAsWriter::No);
    if (copy == nullptr) {
        result = MO_WARNING(MediaCode::InternalError, nullptr);
        return nullptr;
    }
    // It will never be cached, so the reference set aside for the cache goes directly on the count.
    copy->getRefCount()->release();
    copy->beginMorph();
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        OpResult ofTrack(OpResult::Ok);
        // A failure stays to be seen, also when the tracks behind it are copied well.
        if (copy->copyClips(*getTrackAt(i), ofTrack) == nullptr) result = ofTrack;
    }
    copy->setDefaultVideoRate(getVideoRate());
    copy->endMorph();
    return copy;
}

MediaObj* MediaObj::openTranslationObj(MediaFileType type, OpResult& result) {
    MediaWriterDesc desc;
    result = MediaObjImpl::lookup(type, desc, nullptr);  // proves only that the format is there
    if (!result) return nullptr;
    MediaObj* object = TranslationMediaObj::create(type);
    if (object != nullptr) object->getRefCount()->release();
    return object;
}
