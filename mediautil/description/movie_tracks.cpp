#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/media_obj.h"

// Tracks of a movie by name, and walks over them.

MediaTrackEnum MediaObj::getNext(MediaTrackEnum current, unsigned& index) const {
    static constexpr MediaDataType order[] = {MediaDataType::Video, MediaDataType::Audio};
    // Signed, so that the end marker stands in front of every track.
    const auto behind = static_cast<std::int32_t>(current);
    for (MediaDataType type : order) {
        unsigned ordinal = 0;
        for (unsigned i = 0; i < getTrackCount(); ++i) {
            if (getTrackAt(i)->getDataType() != type) continue;
            const MediaTrackEnum track = encodeMte(type, ordinal++);
            if (static_cast<std::int32_t>(track) <= behind) continue;
            index = i;
            return track;
        }
    }
    index = static_cast<unsigned>(-1);
    return MediaTrackEnum::End;
}

MediaTrackEnum MediaObj::getTrackEnum(unsigned short index) const {
    if (index >= getTrackCount()) return MediaTrackEnum::None;
    const MediaDataType type = getTrackAt(index)->getDataType();
    unsigned ordinal = 0;
    for (unsigned i = 0; i < index; ++i) {
        if (getTrackAt(i)->getDataType() == type) ++ordinal;
    }
    return encodeMte(type, ordinal);
}

unsigned MediaObj::getTrackIndex(MediaTrackEnum track) const {
    const MediaDataType type = decodeMteType(track);
    const unsigned ordinal = decodeMteOrdinal(track);
    unsigned passed = 0;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        if (type != s_anyTrackType && getTrackAt(i)->getDataType() != type) continue;
        if (passed++ == ordinal) return i;
    }
    return static_cast<unsigned>(-1);
}

MediaTrackDesc* MediaObj::getTrack(MediaTrackEnum track) {
    const unsigned index = getTrackIndex(track);
    return index != static_cast<unsigned>(-1) ? getTrackAt(index) : nullptr;
}

const MediaTrackDesc* MediaObj::getTrack(MediaTrackEnum track) const {
    const unsigned index = getTrackIndex(track);
    return index != static_cast<unsigned>(-1) ? getTrackAt(index) : nullptr;
}

const MediaClipDesc* MediaObj::findClipUsing(MediaIdRec* id) const {
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        const MediaTrackDesc* track = getTrackAt(i);
        for (unsigned j = 0; j < track->getClipCount(); ++j) {
            const MediaClipDesc* clip = track->getClip(j);
            if (clip->getMediaId() == id) return clip;
        }
    }
    return nullptr;
}
