#include "backends/dv/dv_media_obj.h"

#include <algorithm>
#include <cstring>

#include "backends/dv/dv_black.h"
#include "backends/dv/dv_parser.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_timeBaseWithoutFile = 30000;

// What a stream of these parameters would say about itself, before its first frame.
DvFormat formatOf(const DvSystem& system, const MediaClipParam& param) {
    DvFormat format;
    format.system = &system;
    format.scan = param.m_vscan;
    if (param.m_dataType == MediaDataType::Audio) {
        format.audio.rate = param.m_sampleRate;
        format.audio.bits = param.m_bitsPerUnit;
        format.audio.channels = param.m_channels;
        format.audio.perHalf = param.m_bitsPerUnit == 12 ? 2 : 1;
    } else {
        format.audio.channels = system.channels * 2;
    }
    return format;
}

OpResult unsupported() { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

OpResult notDv(const char* text) { return MO_WARNING(MediaCode::UnsupportedMediaType, text); }

}  // namespace

OpResult DvLookup::updateNumSamples(unsigned long long frames) {
    return FixedMediaLookup::updateNumSamples(std::min(frames, m_maxFrames));
}

bool hasLastFrame(const MediaClipDesc& clip) {
    return clip.getType() == MediaDataType::Video && !clip.getObj().getMovieDesc()->isWritable();
}

// The cadence keeps to the rates within a few samples, so the frame is the nearest one by the rates or a neighbour.
bool findFrameOfSound(const MediaOffsetLookup& lookup, const DvSystem& system, const MediaPlayReq& sound,
                      unsigned long long& frame) {
    const MediaClipDesc& clip = lookup.getClip();
    const unsigned long long samples = std::uint64_t{clip.getSampleRate()} * system.ticks;
    if (sound.m_count == 1 || clip.getType() != MediaDataType::Audio || samples == 0) return false;
    const unsigned long long nearest = (sound.m_sample * system.rate + samples / 2) / samples;
    for (const unsigned long long candidate : {nearest, nearest + 1, nearest - 1}) {
        const SampleAndCount cut = lookup.getSampleAndCount(clip, candidate);
        if (cut.m_sample != sound.m_sample || cut.m_count != sound.m_count) continue;
        frame = candidate;
        return true;
    }
    return false;
}

MediaOffsetSummary DvClip::summaryOf(const DvFormat& format) {
    const unsigned size = format.system->frameSize();
    return MediaOffsetSummary(size, format.baseOffset, format.frames, format.baseOffset + format.frames * size);
}

DvClip::DvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file)
    : DvClip(track, format, file, WithoutLookup()) {
    m_lookup = new DvIndex<DvLookup>(m_system, summaryOf(format), format.maxFrames, *this);
    describe(format);
}

DvClip::DvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file, WithoutLookup)
    : MediaClipDesc(MediaContainment::Embedded), m_track(track), m_system(*format.system), m_audio(format.audio) {
    m_mediaId = file;
    m_encoding = MediaEncodingType::Dv;
}

void DvClip::describe(const DvFormat& format) {
    if (m_track.getDataType() == MediaDataType::Audio) {
        describeAudio(format);
    } else {
        describeVideo(format);
    }
}

DvClip::~DvClip() { m_lookup->release(); }

void DvClip::describeVideo(const DvFormat& format) {
    m_chroma = m_system.chroma;
    m_vscan = format.scan;
    m_sampleRate = m_system.rate;
    m_ticksPerSample = m_system.ticks;
    m_maxBitsPerSample = m_system.frameSize() * 8;
    m_bitsPerUnit = 8;
    m_channels = 1;
    m_bitrate = m_system.bitrate();
    m_minSamples = 1;
    m_length = format.frames;
}

void DvClip::describeAudio(const DvFormat& format) {
    m_sampleRate = m_audio.rate;
    m_maxBitsPerSample = m_audio.bits;
    m_bitsPerUnit = m_audio.bits;
    m_channels = m_audio.channels;
    m_bitrate = m_audio.rate * m_audio.channels * m_audio.bits;
    m_minSamples = m_lookup->getMaxSampleAndCount(*this).m_count;
    m_length = m_lookup->getSampleAndCount(*this, format.frames).m_sample;
}

MediaTrackDesc& DvClip::getTrack() { return m_track; }

const MediaTrackDesc& DvClip::getTrack() const { return m_track; }

bool DvClip::isSlave() const { return m_track.getDataType() == MediaDataType::Audio; }

const MediaClipDesc* DvClip::getSlaveClip() const {
    return isSlave() ? nullptr : m_track.getDvObj().clipOf(MediaDataType::Audio);
}

bool DvClip::fillBlack(MediaSampleBuf& buf, FixedPoint<16>, FixedPoint<16>, bool) const {
    const unsigned size = m_system.frameSize();
    if (!buf.resize(size, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign)) return false;
    DvBlack::write(m_system, m_track.isPro(), m_track.getAspect().get(), m_audio, buf.getMem());
    return true;
}

bool DvClip::fillFwdRepeat(MediaSampleBuf& buf) const { return DvBlack::isFrame(m_system, buf.getMem(), buf.size()); }

bool DvClip::fillBakRepeat(MediaSampleBuf& buf) const { return fillFwdRepeat(buf); }

DvTrack::DvTrack(DvMediaObj& obj, MediaDataType type, unsigned index, const DvFormat& format)
    : DvTrack(obj, type, index) {
    const DvSystem& system = *format.system;
    m_videoRate = system.videoRate;
    if (type == MediaDataType::Video) {
        m_width = system.width;
        m_height = system.height;
        m_aspect = format.aspect;
    }
    if (format.isPro) m_properties.set(MediaProperty(MediaPropertyEnum::Name::DvcPro, 1u)).discard();
    m_ticks = system.ticks;
}

DvTrack::DvTrack(DvMediaObj& obj, MediaDataType type, unsigned index, const DvFormat& format, MediaIdRec* file)
    : DvTrack(obj, type, index, format) {
    m_length = format.frames * m_ticks;
    m_clip = new DvClip(*this, format, file);
}

DvTrack::~DvTrack() { delete m_clip.load(); }

MediaClipDesc* DvTrack::createClip(const MediaClipParam& param, OpResult& result) {
    if (m_clip != nullptr) {
        result = unsupported();
        return nullptr;
    }
    if (m_obj.hasFile()) {
        m_clip = m_obj.makeClip(*this, param, result);
        return m_clip;
    }
    const DvSystem* system = DvSystem::find(param);
    if (param.m_encoding != MediaEncodingType::Dv || system == nullptr) {
        result = notDv("dv: no system of DV has these parameters");
        return nullptr;
    }
    // Sound doesn't know the picture, but its track may know the kind.
    const bool isBasicSound = param.m_dataType == MediaDataType::Audio && system->channels == 1;
    if (isBasicSound) system = &DvSystem::basic(system->is625, isPro() ? 1 : 0);
    const DvFormat format = formatOf(*system, param);
    auto* clip = new DvClip(*this, format, nullptr);
    MediaClipParam own(param);
    own.m_offsets.set(system->frameSize(), 0, 0, 0);  // where the essence lies elsewhere says nothing here
    result = clip->setParam(own);
    if (!result) {
        delete clip;
        return nullptr;
    }
    m_ticks = system->ticks;
    m_clip = clip;
    return m_clip;
}

MediaObj& DvTrack::getObj() { return m_obj; }

const MediaObj& DvTrack::getObj() const { return m_obj; }

unsigned long long DvTrack::getFrameLength() const { return m_length / m_ticks; }

bool DvTrack::isPro() const {
    const MediaProperty* pro = m_properties.get(MediaPropertyEnum::Name::DvcPro);
    return pro != nullptr && pro->uintValue() != 0;
}

DvMediaObj::DvMediaObj(AutoRefPtr<BasicFileIO> file, const DvFormat& format)
    : MediaObj(0, CacheRefValue::Cached), m_hasFile(true), m_timecode(format.timecode) {
    const DvSystem& system = *format.system;
    getDesc()->init(MediaFileType::Dv, system.rate, false, MediaEncodingType::Dv, system.videoRate);
    MediaIdRec* const id = allocMediaId(file);
    install(new DvTrack(*this, MediaDataType::Video, 0, format, id));
    if (format.audio.channels != 0) install(new DvTrack(*this, MediaDataType::Audio, 1, format, id));
    getDesc()->setLength(*m_tracks[0]);
}

DvMediaObj::DvMediaObj() : MediaObj(0, CacheRefValue::Cached), m_hasFile(false) {
    getDesc()->init(MediaFileType::Dv, s_timeBaseWithoutFile, true, MediaEncodingType::Dv, MediaVideoRate::Unknown);
}

DvMediaObj::DvMediaObj(AutoRefPtr<BasicFileIO> file) : MediaObj(0, CacheRefValue::Cached), m_hasFile(true) {
    getDesc()->init(MediaFileType::Dv, s_timeBaseWithoutFile, true, MediaEncodingType::Dv, MediaVideoRate::Unknown);
    allocMediaId(file);
}

DvMediaObj::~DvMediaObj() {
    for (DvTrack* track : m_tracks)
        delete track;
}

const MediaTrackDesc* DvMediaObj::getTrackAt(unsigned index) const {
    return index < m_trackCount ? m_tracks[index] : nullptr;
}

MediaTrackDesc* DvMediaObj::getTrackAt(unsigned index) { return index < m_trackCount ? m_tracks[index] : nullptr; }

DvTrack* DvMediaObj::trackOf(MediaDataType type) const {
    for (unsigned i = 0; i < m_trackCount; ++i) {
        if (m_tracks[i]->getDataType() == type) return m_tracks[i];
    }
    return nullptr;
}

void DvMediaObj::install(DvTrack* track) {
    m_tracks[m_trackCount] = track;
    ++m_trackCount;
}

DvClip* DvMediaObj::makeClip(DvTrack&, const MediaClipParam&, OpResult& result) {
    result = unsupported();
    return nullptr;
}

const MediaClipDesc* DvMediaObj::clipOf(MediaDataType type) const {
    const DvTrack* track = trackOf(type);
    return track != nullptr ? track->getClip(0) : nullptr;
}

unsigned long long DvMediaObj::getFrameLength() const { return m_trackCount != 0 ? m_tracks[0]->getFrameLength() : 0; }

MediaTrackDesc* DvMediaObj::createTrack(const MediaClipParam& param, OpResult& result) {
    const bool isKind = param.m_dataType == MediaDataType::Video || param.m_dataType == MediaDataType::Audio;
    if (m_hasFile || (isKind && trackOf(param.m_dataType) != nullptr)) {
        result = unsupported();
        return nullptr;
    }
    if (!isKind || param.m_encoding != MediaEncodingType::Dv) {
        result = notDv("dv: a track of DV is video or audio of encoding dv");
        return nullptr;
    }
    auto* track = new DvTrack(*this, param.m_dataType, m_trackCount);
    install(track);
    result = track->setParam(param);
    return track;
}

MediaObj* DvMediaObj::openObject(MediaFileType, OpResult& result) {
    result = OpResult(OpResult::Ok);
    return new DvMediaObj();
}

MediaObj* DvMediaObj::openFile(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    if (file->writable()) {
        result = MO_WARNING(MediaCode::FileNotWritable, "dv: a finished file is opened for reading only");
        return nullptr;
    }
    if (!file->open()) {
        const int error = file->getLastError();
        result = MO_WARNING(MediaCode::FileNotReadable, FormatStr("dv: cannot open: %s", std::strerror(error)).get());
        return nullptr;
    }
    FileWindow window(*file, file->getLength());
    DvFormat format;
    result = DvParser(window).parse(format);
    if (!result) return nullptr;
    if (format.maxFrames != DvFormat::s_noEnd) {
        warningMsg("dv: %s: the stream changes behind frame %llu, what follows is not shown\n", file->getPath(),
                   static_cast<unsigned long long>(format.maxFrames));
    }
    return new DvMediaObj(file, format);
}
