#include "backends/dv/dv_recording.h"

#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr const char* s_name = "dv";
constexpr std::uint64_t s_largestEnd = std::uint64_t{1} << 62;

OpResult unsupported(const char* text) { return MO_WARNING(MediaCode::OperationUnsupported, text); }

OpResult notDv(const char* text) { return MO_WARNING(MediaCode::UnsupportedMediaType, text); }

bool isSameSound(const DvAudio& one, const DvAudio& other) {
    return one.rate == other.rate && one.bits == other.bits && one.channels == other.channels;
}

}  // namespace

RecordedDvLookup::RecordedDvLookup(const DvSystem& system, const MediaOffsetSummary& summary, const MediaClipDesc& clip,
                                   std::shared_ptr<RecordedEssence> essence)
    : DvIndex(system, s_name, summary, s_largestEnd, clip, std::move(essence),
              clip.getType() == MediaDataType::Audio ? Riding::Yes : Riding::No) {}

bool RecordedDvLookup::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    if (getClip().getType() == MediaDataType::Audio) return addSound(req, desc, result);
    if (req.m_count == 1) return DvIndex::addSamples(req, desc, result);
    result = unsupported("dv: frames are entered one by one");
    return false;
}

bool RecordedDvLookup::addSound(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    result = OpResult(OpResult::Ok);
    const bool isPlaced = req.m_hasOffset && req.m_offset >= m_baseOffset;
    if (!isPlaced || (req.m_offset - m_baseOffset) % m_sampleSize != 0) {
        result = unsupported("dv: sound is entered with its frame");
        return false;
    }
    desc.set(req.m_count, req.m_sample, req.m_offset, req.m_info, 0, false);
    const unsigned long long frames = (req.m_offset - m_baseOffset) / m_sampleSize + 1;
    if (frames <= m_numSamples) return true;
    m_numSamples = frames;
    m_endOffset = m_baseOffset + frames * m_sampleSize;
    return true;
}

RecordedDvClip::RecordedDvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file,
                               std::shared_ptr<RecordedEssence> essence)
    : DvClip(track, format, file, WithoutLookup()) {
    m_lookup = new RecordedDvLookup(*format.system, summaryOf(format), *this, std::move(essence));
    describe(format);
}

DvRecording::DvRecording(AutoRefPtr<BasicFileIO> file)
    : RecordedMovie(std::make_unique<Recorder>(s_name, file), file) {}

MediaObj* DvRecording::create(const char* path, OpResult& result, MediaContainment containment,
                              BasicIOTypes::SizeAdvice advice) {
    const AutoRefPtr<BasicFileIO> file = Recorder::createFile(s_name, path, containment, advice, result);
    return file ? new DvRecording(file) : nullptr;
}

bool DvRecording::hasFrames() const {
    const DvTrack* const video = trackOf(MediaDataType::Video);
    return video != nullptr && video->getLength() != 0;
}

OpResult DvRecording::choose(const MediaClipParam& param, DvFormat& format) const {
    format = m_format;
    if (!getMovieDesc()->isWritable()) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    if (hasFrames()) return unsupported("dv: frames have been recorded already");
    if (param.m_encoding != MediaEncodingType::Dv) return notDv("dv: a track of DV is video or audio of encoding dv");
    if (param.m_dataType == MediaDataType::Audio) return chooseSound(param, format);
    format.system = DvSystem::find(param);
    if (param.m_dataType != MediaDataType::Video || format.system == nullptr)
        return notDv("dv: no system of DV has these parameters");
    format.scan = param.m_vscan;
    format.aspect = param.m_aspect.get();
    format.isPro = param.getParam(MediaPropertyEnum::Name::DvcPro).uintValue() != 0;
    return OpResult(OpResult::Ok);
}

OpResult DvRecording::chooseSound(const MediaClipParam& param, DvFormat& format) const {
    if (format.system == nullptr) return unsupported("dv: the frames' track comes before that of their sound");
    if (!format.system->carriesSound(param.m_sampleRate, param.m_channels, param.m_bitsPerUnit))
        return notDv("dv: the frames have no room for such sound");
    format.audio.rate = param.m_sampleRate;
    format.audio.bits = param.m_bitsPerUnit;
    format.audio.channels = param.m_channels;
    format.audio.perHalf = param.m_bitsPerUnit == 12 ? 2 : 1;
    return OpResult(OpResult::Ok);
}

MediaTrackDesc* DvRecording::createTrack(const MediaClipParam& param, OpResult& result) {
    DvFormat format;
    result = choose(param, format);
    if (result && trackOf(param.m_dataType) != nullptr) result = unsupported("dv: there is such a track already");
    if (!result) return nullptr;
    m_format = format;
    if (param.m_dataType == MediaDataType::Video) {
        getDesc()->setTimeBase(format.system->rate);
        getDesc()->setStandard(format.system->videoRate);
    }
    auto* track = new DvTrack(*this, param.m_dataType, getTrackCount(), format);
    install(track);
    return track;
}

DvClip* DvRecording::makeClip(DvTrack& track, const MediaClipParam& param, OpResult& result) {
    DvFormat format;
    result = choose(param, format);
    const bool isKind = param.m_dataType == track.getDataType() && format.system == m_format.system &&
                        isSameSound(format.audio, m_format.audio);
    if (result && !isKind) result = notDv("dv: the clip is of another kind than its track");
    if (!result) return nullptr;
    if (m_essence == nullptr) m_essence = getRecorder().begin(0, 0, result);
    if (m_essence == nullptr) return nullptr;
    return new RecordedDvClip(track, m_format, getMediaId(0), m_essence);
}

bool DvRecording::notifyLength(MediaTrackDesc& track) {
    const DvTrack* const video = trackOf(MediaDataType::Video);
    DvTrack* const sound = trackOf(MediaDataType::Audio);
    if (sound == &track && video != nullptr) sound->alignTo(*video);
    return RecordedMovie::notifyLength(track);
}
