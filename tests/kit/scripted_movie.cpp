#include "tests/kit/scripted_movie.h"

#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"

namespace kit {

MovieScript& MovieScript::audio(unsigned long long samples, unsigned long long base) {
    ClipScript clip;
    clip.m_samples = samples;
    clip.m_base = base;
    TrackScript track;
    track.m_clips.push_back(clip);
    m_tracks.push_back(track);
    return *this;
}

MovieScript& MovieScript::audioIn(const std::string& path, unsigned long long samples) {
    audio(samples);
    m_files.push_back(path);
    m_tracks.back().m_clips[0].m_file = static_cast<unsigned>(m_files.size());
    m_tracks.back().m_clips[0].m_container = MediaContainment::ByRef;
    return *this;
}

MovieScript MovieScript::ofTracks(unsigned count, unsigned long long samples) {
    MovieScript script;
    for (unsigned i = 0; i < count; ++i)
        script.audio(samples);
    return script;
}

MovieScript& MovieScript::refuse(OpResult::Type type, int code, const char* text) {
    m_failure = type;
    m_failureCode = code;
    m_failureText = text;
    return *this;
}

namespace {

// Samples of one size.
class FixedLookup : public FixedMediaLookup {
public:
    FixedLookup(const MediaClipDesc& clip, const ClipScript& script)
        : FixedMediaLookup(MediaOffsetSummary(script.m_sampleSize, script.m_base, script.m_samples,
                                              script.m_base + script.m_sampleSize * script.m_samples)),
          m_clip(clip) {}
    const MediaClipDesc& getClip() const override { return m_clip; }

private:
    const MediaClipDesc& m_clip;
};

// Samples whose chunks are told one by one.
class ListedLookup : public MediaOffsetLookup {
public:
    ListedLookup(const MediaClipDesc& clip, const ClipScript& script)
        : MediaOffsetLookup(MediaOffsetSummary(0, script.m_base, script.m_listed.size(), 0)),
          m_clip(clip),
          m_samples(script.m_listed) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override { return m_baseOffset; }
    std::uint32_t getFixedSize() const override { return 0; }
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        result = OpResult(OpResult::Ok);
        if (req.m_sample >= m_samples.size()) return false;
        const auto& chunks = m_samples[req.m_sample];
        unsigned size = 0;
        for (const auto& chunk : chunks)
            size += chunk.m_size;
        desc.set(1, req.m_sample, chunks.empty() ? 0 : chunks[0].m_offset, size, 0, false);
        desc.m_numChunks = static_cast<std::uint32_t>(chunks.size());
        for (std::size_t i = 0; i < chunks.size() && i < MediaSampleDesc::s_maxChunks; ++i)
            desc.m_chunks[i] = chunks[i];
        return true;
    }
    OpResult update(const MediaOffsetSummary& summary) override {
        set(summary);
        return OpResult(OpResult::Ok);
    }

private:
    const MediaClipDesc& m_clip;
    const std::vector<std::vector<MediaSampleDesc::Chunk>> m_samples;
};

MediaOffsetLookup* makeLookup(const MediaClipDesc& clip, const ClipScript& script) {
    if (script.m_sampleSize != 0) return new FixedLookup(clip, script);
    return new ListedLookup(clip, script);
}

// Ticks of the movie's time base that a clip lasts.
unsigned long long ticksOf(const ClipScript& clip, unsigned timeBase) {
    return clip.m_samples * clip.m_ticksPerSample * timeBase / clip.m_sampleRate;
}

unsigned long long lengthOf(const TrackScript& track, unsigned timeBase) {
    if (track.m_length != 0) return track.m_length;
    unsigned long long ticks = 0;
    for (const ClipScript& clip : track.m_clips)
        ticks += ticksOf(clip, timeBase);
    return ticks;
}

}  // namespace

ScriptedClip::ScriptedClip(ScriptedTrack& track, unsigned index, const ClipScript& script, MediaIdRec* id)
    : MediaClipDesc(script.m_container), m_track(track), m_index(index), m_lookup(makeLookup(*this, script)) {
    m_mediaId = id;
    m_encoding = script.m_encoding;
    m_sampleRate = script.m_sampleRate;
    m_ticksPerSample = script.m_ticksPerSample;
    m_maxBitsPerSample = script.m_bits * script.m_channels;
    m_bitsPerUnit = script.m_bits;
    m_channels = script.m_channels;
    m_endian = MediaEndian::Little;
    m_bitrate = script.m_bitrate;
    m_length = script.m_samples;
}

ScriptedClip::~ScriptedClip() { m_lookup->release(); }

MediaTrackDesc& ScriptedClip::getTrack() { return m_track; }

const MediaTrackDesc& ScriptedClip::getTrack() const { return m_track; }

ScriptedTrack::ScriptedTrack(ScriptedMovie& movie, unsigned index, const TrackScript& script)
    : MediaTrackDesc(script.m_type), m_movie(movie), m_index(index) {
    m_videoRate = script.m_rate;
    for (const ClipScript& clip : script.m_clips) {
        const unsigned place = static_cast<unsigned>(m_clips.size());
        m_clips.push_back(std::make_unique<ScriptedClip>(*this, place, clip, movie.getMediaId(clip.m_file)));
    }
}

MediaClipDesc* ScriptedTrack::createClip(const MediaClipParam& param, OpResult& result) {
    ClipScript script;
    script.m_encoding = param.m_encoding;
    script.m_sampleRate = param.m_sampleRate;
    script.m_ticksPerSample = param.m_ticksPerSample;
    const unsigned place = static_cast<unsigned>(m_clips.size());
    m_clips.push_back(std::make_unique<ScriptedClip>(*this, place, script, m_movie.getMediaId(0)));
    result = OpResult(OpResult::Ok);
    return m_clips.back().get();
}

MediaObj& ScriptedTrack::getObj() { return m_movie; }

const MediaObj& ScriptedTrack::getObj() const { return m_movie; }

ScriptedMovie::ScriptedMovie(const MovieScript& script, const std::string& path, bool writable, CacheRefValue refs)
    : MediaObj(0, refs) {
    if (!path.empty()) allocMediaId(path.c_str());
    build(script, s_scripted, writable);
    setVersion(impl().m_fileList.getVersion(), false);
}

ScriptedMovie::ScriptedMovie(const MovieScript& script, const AutoRefPtr<BasicFileIO>& file, MediaFileType type)
    : MediaObj(0, CacheRefValue::Cached) {
    if (script.m_entersPath) {
        allocMediaId(file->getPath());
    } else {
        allocMediaId(file);
    }
    build(script, type, file->writable());
}

void ScriptedMovie::build(const MovieScript& script, MediaFileType type, bool writable) {
    m_accept = script.m_accept;
    m_state = script.m_state;
    m_fixedVersion = script.m_fixedVersion;
    m_references = script.m_references;
    m_closeGate = script.m_closeGate;
    getDesc()->init(type, script.m_timeBase, writable, script.m_encoding, script.m_standard);
    for (const std::string& path : script.m_files)
        allocMediaId(path.c_str());
    for (const TrackScript& track : script.m_tracks) {
        m_tracks.push_back(std::make_unique<ScriptedTrack>(*this, getTrackCount(), track));
        setTrackLength(getTrackCount() - 1, lengthOf(track, script.m_timeBase));
    }
    if (script.m_morph) beginMorph();
}

ScriptedMovie::~ScriptedMovie() {
    if (m_deleteGate) m_deleteGate->pass();
    if (m_deleted != nullptr) ++*m_deleted;
}

MediaTrackDesc* ScriptedMovie::createTrack(const MediaClipParam& param, OpResult& result) {
    TrackScript script;
    script.m_type = param.m_dataType;
    m_tracks.push_back(std::make_unique<ScriptedTrack>(*this, getTrackCount(), script));
    result = OpResult(OpResult::Ok);
    return m_tracks.back().get();
}

unsigned long long ScriptedMovie::getVersion() const {
    const unsigned long long fixed = m_fixedVersion;
    return fixed != 0 ? fixed : MediaObj::getVersion();
}

void ScriptedMovie::flush(const MediaTrackDesc* track, bool now) {
    ++m_flushes;
    MediaObj::flush(track, now);
}

OpResult ScriptedMovie::close(MediaIdRec* id, MediaAgent agent) const {
    if (id != nullptr) {
        ++m_fileCloses;
        return MediaObj::close(id, agent);
    }
    ++m_closes;
    if (m_closeGate) m_closeGate->pass();
    return MediaObj::close(id, agent);
}

bool ScriptedMovie::acceptReplacement(const MediaObj*) {
    ++m_vetoAsked;
    return m_accept;
}

void ScriptedMovie::setClipProperties(bool) {
    ++m_clipPropsSet;
    if (m_propsGate) m_propsGate->pass();
}

void ScriptedMovie::computeSyncAdjustments() {
    ++m_syncComputed;
    MediaObj::computeSyncAdjustments();
}

void ScriptedMovie::setTrackLength(unsigned index, unsigned long long ticks) {
    track(index).setLength(ticks);
    getDesc()->setLength(track(index));
}

}  // namespace kit
