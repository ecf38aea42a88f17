#include "backends/mov/mov_recording.h"

#include <algorithm>
#include <numeric>

#include "backends/mov/mov_alias.h"
#include "backends/mov/mov_sample_entry.h"
#include "backends/mov/mov_timecode.h"
#include "services/file/fs_file_io.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/naming/default_media_namer.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr std::uint64_t s_mostTimescale = 0x7FFFFFFF;
constexpr unsigned s_names = 50;  // that are tried for a file

OpResult notWritable() { return MO_WARNING(MediaCode::FileNotWritable, nullptr); }

std::string absolute(const char* path) {
    const AutoRefPtr<FsFileIO> file(new FsFileIO("temp", path, BasicIOTypes::Mode::ReadOnly));
    return file->getAbsolutePath();
}

}  // namespace

MovRecordedClip::MovRecordedClip(MovRecordedTrack& track, unsigned index, const MediaClipParam& param,
                                 std::shared_ptr<MovMediaFile> file)
    : MediaClipDesc(file->isOwn() ? MediaContainment::Embedded : MediaContainment::ByRef),
      m_track(track),
      m_index(index),
      m_runs(std::make_shared<MovRunIndex>(MovSampleEntry::fixedSizeOf(param))),
      m_span(std::make_shared<MovClipSpan>()),
      m_lookup(new MovRecordedLookup(*this, m_runs, file)) {
    m_mediaId = file->m_id;
    m_minSamples = 1;
}

MovRecordedClip::~MovRecordedClip() { m_lookup->release(); }

MediaTrackDesc& MovRecordedClip::getTrack() { return m_track; }

const MediaTrackDesc& MovRecordedClip::getTrack() const { return m_track; }

void MovRecordedClip::setLength(unsigned long long samples) {
    MediaClipDesc::setLength(samples);
    m_span->m_in.store(m_edit.getIn(), std::memory_order_relaxed);
    m_span->m_out.store(m_edit.getOut(), std::memory_order_relaxed);
}

MovRecordedTrack::MovRecordedTrack(MovRecordedMovie& obj, unsigned index, const MediaClipParam& param)
    : MediaTrackDesc(param.m_dataType), m_obj(obj), m_index(index), m_kind(param) {}

MovRecordedTrack::~MovRecordedTrack() {
    for (std::uint64_t i = 0; i < m_clips.size(); ++i)
        delete m_clips.get(i);
}

MediaObj& MovRecordedTrack::getObj() { return m_obj; }

const MediaObj& MovRecordedTrack::getObj() const { return m_obj; }

MediaClipDesc* MovRecordedTrack::createClip(const MediaClipParam& param, OpResult& result) {
    result = m_obj.getMovieDesc()->isWritable() ? MovSampleEntry::check(param) : notWritable();
    const bool isSame =
        param.paramIdMatch(m_kind) && MovSampleEntry::fixedSizeOf(param) == MovSampleEntry::fixedSizeOf(m_kind);
    if (result && !isSame)
        result = MO_WARNING(MediaCode::UnsupportedMediaType, "mov: the clip is of another kind than its track");
    if (!result) return nullptr;
    const std::shared_ptr<MovMediaFile> file = m_obj.openMedia(*this, result);
    if (file == nullptr) return nullptr;
    auto clip = std::make_unique<MovRecordedClip>(*this, getClipCount(), param, file);
    result = clip->setParam(param);
    if (!result) return nullptr;
    m_obj.recorder().getKeeper().addClip(m_index, {clip->getRuns(), clip->getSpan(), file->m_number});
    if (!m_clips.push(clip.get())) return nullptr;
    return clip.release();
}

MovRecordedMovie::MovRecordedMovie(AutoRefPtr<BasicFileIO> file)
    : MediaObj(0, CacheRefValue::Cached), m_properties([this](const char* names) {
          m_userData.setClipProperties(names);
          return keepUserData(OpResult(OpResult::Ok));
      }) {
    getDesc()->init(MediaFileType::QuickTime, 1, true, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
    allocMediaId(file);
}

MovRecordedMovie::~MovRecordedMovie() {
    for (std::uint64_t i = 0; i < m_tracks.size(); ++i)
        delete m_tracks.get(i);
}

MediaTrackDesc* MovRecordedMovie::createTrack(const MediaClipParam& param, OpResult& result) {
    result = getDesc()->isWritable() ? MovSampleEntry::check(param) : notWritable();
    if (!result) return nullptr;
    auto track = std::make_unique<MovRecordedTrack>(*this, getTrackCount(), param);
    takeRate(param);
    result = track->setParam(param);
    if (!result) return nullptr;
    recorder().getKeeper().addTrack(param);
    if (!m_tracks.push(track.get())) return nullptr;
    return track.release();
}

OpResult MovRecordedMovie::keepUserData(OpResult result) {
    if (result) recorder().getKeeper().setUserData(m_userData.write());
    return result;
}

OpResult MovRecordedMovie::generateUmid() { return keepUserData(m_userData.generateUmid()); }

OpResult MovRecordedMovie::setProxyUmid(const MediaObj& other) {
    return keepUserData(m_userData.setUmid(other.getUmid()));
}

OpResult MovRecordedMovie::setTimecode(const MediaTimecode& timecode) {
    MovToldTimecode told;
    OpResult result = getDesc()->isWritable() ? MovTimecode::tell(timecode, told) : notWritable();
    if (!result) return result;
    recorder().getKeeper().setTimecode(told);
    m_timecode = timecode;
    return result;
}

// Once a track has length, the time base stays.
void MovRecordedMovie::takeRate(const MediaClipParam& param) {
    const bool isFirst = getTrackCount() == 0;
    const std::uint64_t base =
        isFirst ? param.m_sampleRate
                : std::lcm(std::uint64_t{getDesc()->getTimeBase()}, std::uint64_t{param.m_sampleRate});
    bool isEmpty = true;
    for (unsigned i = 0; i < getTrackCount(); ++i)
        isEmpty = isEmpty && getTrackAt(i)->getLength() == 0;
    if (isEmpty && base <= s_mostTimescale) getDesc()->setTimeBase(static_cast<unsigned>(base));
    recorder().getKeeper().setTimescale(getDesc()->getTimeBase());
    const bool isVideo = param.m_dataType == MediaDataType::Video;
    if (isVideo && getDesc()->getStandard() == MediaVideoRate::Unknown) getDesc()->setStandard(param.m_videoRate);
    if (isFirst) getDesc()->setEncoding(param.m_encoding);
    if (!isFirst && getDesc()->getEncoding() != param.m_encoding) getDesc()->setEncoding(MediaEncodingType::Mixed);
}

MovRecording::MovRecording(AutoRefPtr<BasicFileIO> file, const std::string& path, bool isByRef)
    : RecordedMovie(std::make_unique<MovRecorder>(file, path), file), m_isByRef(isByRef) {}

MediaObj* MovRecording::create(const char* path, OpResult& result, MediaContainment containment, MediaFileType, bool,
                               BasicIOTypes::SizeAdvice advice, const char*) {
    if (containment == MediaContainment::Mixed) {
        result = MO_WARNING(MediaCode::OperationUnsupported, "mov: samples lie in the movie or beside it, not both");
        return nullptr;
    }
    const AutoRefPtr<BasicFileIO> file = Recorder::createFile("mov", path, MediaContainment::Embedded, advice, result);
    return file ? new MovRecording(file, absolute(path), containment == MediaContainment::ByRef) : nullptr;
}

std::shared_ptr<MovMediaFile> MovRecording::openMedia(const MovRecordedTrack& track, OpResult& result) {
    return m_isByRef ? createMedia(track, result) : getRecorder().getOwn(getMediaId(0), result);
}

std::shared_ptr<MovMediaFile> MovRecording::createMedia(const MovRecordedTrack& track, OpResult& result) {
    // Bare samples of sound are no file of any type.
    const bool isSound = track.getDataType() == MediaDataType::Audio;
    const MediaFileType type = isSound ? MediaFileType::Data : track.getKind().getFileType();
    const NameReq req(absolute(getPath(nullptr)).c_str(), static_cast<int>(m_mediaCount), type);
    DefaultMediaNamer namer(nullptr, nullptr, s_names);
    if (!namer.createName(req) || req.m_name[0] == 0) {
        result = MO_WARNING(MediaCode::InternalError, "mov: there is no name for a file of samples");
        return nullptr;
    }
    const AutoRefPtr<BasicFileIO> file =
        Recorder::createFile("mov", req.m_name, MediaContainment::Embedded, BasicIOTypes::SizeAdvice::None, result);
    if (!file) return nullptr;
    ++m_mediaCount;
    return getRecorder().addFile(allocMediaId(file), req.m_name, file, result);
}

OpResult MovRecording::renameMediaId(MediaIdRec* id, const char* path) {
    const std::string from = absolute(getPath(id));
    const auto tell = [this, id](const char* to) {
        MovIndexKeeper& keeper = getRecorder().getKeeper();
        const MovMediaFile* const file = getRecorder().find(id);
        if (id == getMediaId(0)) {
            keeper.setPath(absolute(to));
        } else if (file != nullptr) {
            keeper.setMediaPath(file->m_number, MovAlias::normal(absolute(to)));
        }
        return getRecorder().update();
    };
    OpResult result = RecordedMovie::renameMediaId(id, path);
    if (!result) return result;
    result = tell(path);
    if (result) return result;
    // A move that the index can't tell of is taken back.
    RecordedMovie::renameMediaId(id, from.c_str()).discard();
    tell(from.c_str()).discard();
    return result;
}
