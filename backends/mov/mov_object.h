#pragma once

#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/media_obj.h"

// A movie of this type without a file: it makes one track for others, whose clip fills with frames. How these look is
// no matter of the wrapper, so the track is one of a movie of the essence's own type: DV, or plain sound.
class MovObject final : public MediaObj {
public:
    // The registered maker.
    static MediaObj* open(MediaFileType type, OpResult& result);

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return m_track != nullptr ? 1 : 0; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? m_track : nullptr; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? m_track : nullptr; }
    // Fails: null; warning 17 when there is one, 8 for essence that nobody here can make frames of.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }

private:
    MovObject();

    AutoReleasePtr<MediaObj> m_maker;  // of the essence's type; owns the track
    MediaTrackDesc* m_track = nullptr;
};
