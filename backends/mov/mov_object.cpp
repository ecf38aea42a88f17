#include "backends/mov/mov_object.h"

#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_timeBase = 60000;  // ticks a second: a movie without a file counts nothing

// The type whose frames stand for this essence; Unknown when there is none.
MediaFileType makerOf(const MediaClipParam& param) {
    if (param.m_encoding == MediaEncodingType::Dv) return MediaFileType::Dv;
    const bool isPcm = param.m_encoding == MediaEncodingType::Pcm;
    if (!isPcm && param.m_encoding != MediaEncodingType::ALaw) return MediaFileType::Unknown;
    // Bytes of sound have a sign in the one and none in the other; here their order tells it.
    const bool hasSign = isPcm && param.m_bitsPerUnit == 8 && param.m_endian == MediaEndian::Big;
    return hasSign ? MediaFileType::Aiff : MediaFileType::Wav;
}

}  // namespace

MovObject::MovObject() : MediaObj(0, CacheRefValue::Cached) {
    getDesc()->init(MediaFileType::QuickTime, s_timeBase, true, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
}

MediaObj* MovObject::open(MediaFileType, OpResult& result) {
    result = OpResult(OpResult::Ok);
    return new MovObject();
}

MediaTrackDesc* MovObject::createTrack(const MediaClipParam& param, OpResult& result) {
    if (m_track != nullptr) {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    const MediaFileType type = makerOf(param);
    if (type == MediaFileType::Unknown) {
        result = MO_WARNING(MediaCode::UnsupportedMediaType, "mov: no frames can be made of this encoding");
        return nullptr;
    }
    m_maker = MediaObj::openObj(type, result);
    if (!m_maker.get()) return nullptr;
    m_track = m_maker.get()->createTrack(param, result);
    return m_track;
}
