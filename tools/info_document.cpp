#include "tools/info_document.h"

#include <algorithm>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_desc.h"
#include "tools/movie.h"
#include "tools/property_document.h"

namespace {

// Not by way of the fixed-point duration, which has a sixteenth of a millisecond less to say.
double secondsOf(unsigned long long ticks, const MediaMovieDesc& desc) {
    return static_cast<double>(ticks) / desc.getTimeBase();
}

// What only pictures have. A fact that the movie doesn't tell isn't there.
void addPictureOf(const MediaClipDesc& clip, Json& facts) {
    facts["sequenceCoding"] = MediaNames::get(clip.getSequenceCoding());
    if (clip.getChroma() != MediaChromaSample::None) facts["chroma"] = MediaNames::get(clip.getChroma());
    if (clip.getVscan() != MediaVideoScanType::Unknown) facts["scan"] = MediaNames::get(clip.getVscan());
}

Json describeClip(const MediaObj& movie, const MediaClipDesc& clip) {
    MediaIdRec* const file = clip.getMediaId();
    Json facts{{"encoding", MediaNames::get(clip.getEncoding())},
               {"sampleRate", clip.getSampleRate()},
               {"ticksPerSample", clip.getTicksPerSample()},
               {"channels", clip.getChannels()},
               {"bitsPerUnit", clip.getBitsPerUnit()},
               {"endian", MediaNames::get(clip.getEndian())},
               {"bitrate", clip.getBitrate()},
               {"samples", clip.getLength()},
               {"file", file != nullptr ? movie.getPath(file) : ""}};
    if (clip.getType() == MediaDataType::Video) addPictureOf(clip, facts);
    return facts;
}

void addProperties(const MediaPropertyList& bag, Json& facts) {
    if (bag.getPropertyCount() > 0) facts["properties"] = describeProperties(bag);
}

// What a track need not have.
void addRest(const MediaTrackDesc& track, Json& facts) {
    if (track.getWidth() != 0) facts["width"] = track.getWidth();
    if (track.getHeight() != 0) facts["height"] = track.getHeight();
    if (track.getAspectRatio() != MediaAspectRatio::Unknown) facts["aspect"] = MediaNames::get(track.getAspectRatio());
    if (track.getSyncAdjustment() != 0) facts["syncAdjustment"] = track.getSyncAdjustment();
    addProperties(track.getProperties(), facts);
}

Json describeTrack(const MediaObj& movie, unsigned index) {
    const MediaTrackDesc& track = *movie.getTrackAt(index);
    Json clips = Json::array();
    for (unsigned i = 0; i < track.getClipCount(); ++i)
        clips.push_back(describeClip(movie, *track.getClip(i)));
    Json facts{{"name", trackName(movie, index)},
               {"type", MediaNames::get(track.getDataType())},
               {"length", track.getLength()},
               {"durationSeconds", secondsOf(track.getLength(), *movie.getMovieDesc())}};
    addRest(track, facts);
    facts["clips"] = std::move(clips);
    return facts;
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

Json describeTimecode(const MediaTimecode& timecode) {
    return Json{{"text", timecode.toString().get()}, {"dropFrame", timecode.m_dropFrame}};
}

// The names of a list that is joined by commas.
Json namesIn(const std::string& list) {
    Json names = Json::array();
    for (std::size_t at = 0; at < list.size();) {
        const std::size_t comma = std::min(list.find(',', at), list.size());
        names.push_back(list.substr(at, comma - at));
        at = comma + 1;
    }
    return names;
}

// What a movie need not have.
void addRest(const MediaObj& movie, Json& facts) {
    if (const char* umid = movie.getUmid(); umid != nullptr) facts["umid"] = umid;
    if (const Json names = namesIn(movie.getClipProperties()); !names.empty()) facts["clipProperties"] = names;
    const MediaTimecode timecode = movie.getTimecode();
    if (timecode.isValid()) facts["timecode"] = describeTimecode(timecode);
    if (const unsigned gop = movie.getMovieGopLength(); gop != 0) facts["gopLength"] = gop;
    addProperties(movie.getProperties(), facts);
}

}  // namespace

Json describeMovie(const std::string& path, const MediaObj& movie) {
    const MediaMovieDesc& desc = *movie.getMovieDesc();
    Json facts{{"path", path},
               {"fileType", MediaNames::get(desc.getFileType())},
               {"videoRate", MediaNames::get(movie.getVideoRate())},
               {"timeBase", desc.getTimeBase()},
               {"frames", movie.getFrameLength()},
               {"durationSeconds", secondsOf(desc.getMaxTrackLength(), desc)},
               {"writable", desc.isWritable()},
               {"recording", movie.isRecording()}};
    addRest(movie, facts);
    facts["tracks"] = describeTracks(movie);
    facts["files"] = describeFiles(movie);
    return facts;
}
