#include "tools/info_document.h"

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"

namespace {

// Not by way of the fixed-point duration, which has a sixteenth of a millisecond less to say.
double secondsOf(unsigned long long ticks, const MediaMovieDesc& desc) {
    return static_cast<double>(ticks) / desc.getTimeBase();
}

Json describeClip(const MediaObj& movie, const MediaClipDesc& clip) {
    MediaIdRec* const file = clip.getMediaId();
    return Json{{"encoding", MediaNames::get(clip.getEncoding())},
                {"sampleRate", clip.getSampleRate()},
                {"ticksPerSample", clip.getTicksPerSample()},
                {"channels", clip.getChannels()},
                {"bitsPerUnit", clip.getBitsPerUnit()},
                {"endian", MediaNames::get(clip.getEndian())},
                {"bitrate", clip.getBitrate()},
                {"samples", clip.getLength()},
                {"file", file != nullptr ? movie.getPath(file) : ""}};
}

Json describeTrack(const MediaObj& movie, unsigned index) {
    const MediaTrackDesc& track = *movie.getTrackAt(index);
    Json clips = Json::array();
    for (unsigned i = 0; i < track.getClipCount(); ++i)
        clips.push_back(describeClip(movie, *track.getClip(i)));
    return Json{{"name", trackName(movie, index)},
                {"type", MediaNames::get(track.getDataType())},
                {"length", track.getLength()},
                {"durationSeconds", secondsOf(track.getLength(), *movie.getMovieDesc())},
                {"clips", std::move(clips)}};
}

Json describeFiles(const MediaObj& movie) {
    Json files = Json::array();
    for (unsigned i = 0; i < movie.getMediaCount(); ++i) {
        MediaIdRec* const file = movie.getMediaId(i);
        files.push_back(Json{{"path", movie.getPath(file)}, {"bytes", movie.getMediaSize(file)}});
    }
    return files;
}

Json describeTracks(const MediaObj& movie) {
    Json tracks = Json::array();
    for (unsigned i = 0; i < movie.getTrackCount(); ++i)
        tracks.push_back(describeTrack(movie, i));
    return tracks;
}

}  // namespace

Json describeMovie(const Movie& movie) {
    const MediaObj& object = *movie;
    const MediaMovieDesc& desc = *object.getMovieDesc();
    return Json{{"path", movie.path()},
                {"fileType", MediaNames::get(desc.getFileType())},
                {"videoRate", MediaNames::get(object.getVideoRate())},
                {"timeBase", desc.getTimeBase()},
                {"frames", object.getFrameLength()},
                {"durationSeconds", secondsOf(desc.getMaxTrackLength(), desc)},
                {"writable", desc.isWritable()},
                {"recording", object.isRecording()},
                {"tracks", describeTracks(object)},
                {"files", describeFiles(object)}};
}
