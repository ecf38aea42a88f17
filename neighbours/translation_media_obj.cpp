#include "neighbours/translation_media_obj.h"

#include <new>

#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"

TranslationMediaObj::TranslationMediaObj(OpenAsWriter asWriter) : FilterMediaObj(asWriter, CacheRefValue::Cached) {}

TranslationMediaObj* TranslationMediaObj::create(MediaFileType type) {
    TranslationMediaObj* movie = new (std::nothrow) TranslationMediaObj(OpenAsWriter::Yes);
    if (movie != nullptr) movie->describe(type, 1, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
    return movie;
}

// A file type that is known already stays: it is what the movie was asked to be.
void TranslationMediaObj::describe(MediaFileType type, unsigned timeBase, MediaEncodingType encoding,
                                   MediaVideoRate standard) {
    MediaMovieDesc& desc = *getMovieDesc();
    if (desc.getFileType() != MediaFileType::Unknown) type = desc.getFileType();
    desc.init(type, timeBase != 0 ? timeBase : 1, desc.isWritable(), encoding, standard);
}

TranslationTrack& TranslationMediaObj::append() {
    m_tracks.push_back(std::make_unique<TranslationTrack>(*this, getTrackCount()));
    return *m_tracks.back();
}

MediaTrackDesc* TranslationMediaObj::createTrack(const MediaClipParam& param, OpResult& result) {
    if (m_tracks.empty()) describe(param.m_fileType, param.m_sampleRate, param.m_encoding, param.m_videoRate);
    TranslationTrack& track = append();
    result = track.setParam(param);
    return &track;
}

MediaTrackDesc* TranslationMediaObj::createTrack(const MediaTrackDesc& source, OpResult& result) {
    const MediaMovieDesc& desc = *source.getObj().getMovieDesc();
    if (m_tracks.empty()) describe(desc.getFileType(), desc.getTimeBase(), desc.getEncoding(), desc.getStandard());
    TranslationTrack& track = append();
    result = track.setParam(source);
    track.setSyncAdjustment(source.getSyncAdjustment());
    return &track;
}
