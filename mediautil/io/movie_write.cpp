#include "mediautil/object/media_obj_impl.h"
#include "services/buffer/obuf.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"

// The roads of a write that begin at a movie.

OpResult MediaObj::vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    if (mediaObjDbg.on(MediaDbg::Record1, MediaDbg::Record2)) log(sample);
    return m_impl->m_fileList.write(sample, obuf);
}

OpResult MediaObj::vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf) {
    if (mediaObjDbg.on(MediaDbg::Record1, MediaDbg::Record2)) log(sample);
    return m_impl->m_fileList.write(sample, buf);
}

// Silent without an object, unlike its counterpart for reads, which is meant.
OpResult MediaObj::saWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    AutoReleasePtr<MediaObj> obj(getOpenObj(sample.m_pathId));
    if (obj.get() == nullptr) {
        obufFree(obuf);
        return MO_WARNING(MediaCode::InternalError, nullptr);
    }
    return obj->vaWrite(sample, obuf);
}
