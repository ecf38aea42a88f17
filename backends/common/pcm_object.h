#pragma once

#include "backends/common/pcm_movie.h"

// A movie of sound without a file: it makes one track with one clip for others, which fills with silence and looks at
// the samples that it is shown.
class PcmObject final : public PcmMovie {
public:
    explicit PcmObject(MediaFileType type) : PcmMovie(type) {}

    // The registered maker.
    static MediaObj* open(MediaFileType type, OpResult& result);

    using MediaObj::createTrack;
    // Fails: null; warning 17 when there is one, 8 for what isn't sound as plain samples.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    // Fails: null; as above, and what the parameters' check says.
    PcmClip* makeClip(PcmTrack& track, const MediaClipParam& param, OpResult& result) override;
};
