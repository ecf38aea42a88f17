#include "backends/common/pcm_movie.h"

#include <algorithm>
#include <cstring>

#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"

namespace {

// Bits a second, at most what 32 bits hold.
std::uint32_t bitrateOf(const PcmFormat& format) {
    const std::uint64_t exact = std::uint64_t{format.sampleRate} * format.channels * format.bits;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(exact, 0xFFFFFFFFu));
}

}  // namespace

PcmLookup::PcmLookup(const MediaOffsetSummary& summary, unsigned long long maxSamples, const MediaClipDesc& clip)
    : FixedMediaLookup(summary), m_clip(clip), m_maxSamples(maxSamples) {}

OpResult PcmLookup::updateNumSamples(unsigned long long numSamples) {
    return FixedMediaLookup::updateNumSamples(std::min(numSamples, m_maxSamples));
}

MediaOffsetSummary PcmClip::summaryOf(const PcmFormat& format) {
    return MediaOffsetSummary(format.blockAlign, format.dataOffset, format.samples,
                              format.dataOffset + format.samples * format.blockAlign);
}

PcmClip::PcmClip(PcmTrack& track, const PcmFormat& format, MediaIdRec* file)
    : PcmClip(track, format, file, WithoutLookup()) {
    m_lookup = new PcmLookup(summaryOf(format), format.maxSamples, *this);
}

PcmClip::PcmClip(PcmTrack& track, const PcmFormat& format, MediaIdRec* file, WithoutLookup)
    : MediaClipDesc(MediaContainment::Embedded), m_track(track), m_lookup(nullptr) {
    m_mediaId = file;
    m_encoding = format.encoding;
    m_sampleRate = format.sampleRate;
    m_maxBitsPerSample = format.bits;
    m_bitsPerUnit = format.bits;
    m_channels = format.channels;
    m_endian = format.endian;
    m_bitrate = bitrateOf(format);
    m_minSamples = 1;
    m_length = format.samples;
}

PcmClip::~PcmClip() { m_lookup->release(); }

MediaTrackDesc& PcmClip::getTrack() { return m_track; }

const MediaTrackDesc& PcmClip::getTrack() const { return m_track; }

PcmTrack::PcmTrack(PcmMovie& obj, const PcmFormat& format, MediaIdRec* file) : PcmTrack(obj) {
    m_length = format.samples;
    m_clip = new PcmClip(*this, format, file);
}

PcmTrack::~PcmTrack() { delete m_clip.load(); }

MediaClipDesc* PcmTrack::createClip(const MediaClipParam& param, OpResult& result) {
    if (m_clip != nullptr) {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    m_clip = m_obj.makeClip(*this, param, result);
    return m_clip;
}

MediaObj& PcmTrack::getObj() { return m_obj; }

const MediaObj& PcmTrack::getObj() const { return m_obj; }

PcmMovie::PcmMovie(AutoRefPtr<BasicFileIO> file, MediaFileType type, const PcmFormat& format)
    : MediaObj(0, CacheRefValue::Cached) {
    getDesc()->init(type, format.sampleRate, false, format.encoding, MediaVideoRate::Unknown);
    MediaIdRec* const id = allocMediaId(file);
    m_track = new PcmTrack(*this, format, id);
    getDesc()->setLength(*m_track);
}

PcmMovie::PcmMovie(AutoRefPtr<BasicFileIO> file, MediaFileType type) : PcmMovie(type) { allocMediaId(file); }

PcmMovie::PcmMovie(MediaFileType type) : MediaObj(0, CacheRefValue::Cached) {
    getDesc()->init(type, 1, true, MediaEncodingType::Pcm, MediaVideoRate::Unknown);
}

PcmMovie::~PcmMovie() { delete m_track.load(); }

MediaTrackDesc* PcmMovie::createTrack(const MediaClipParam&, OpResult& result) {
    result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
    return nullptr;
}

PcmClip* PcmMovie::makeClip(PcmTrack&, const MediaClipParam&, OpResult& result) {
    result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
    return nullptr;
}

OpResult PcmMovie::openForParse(BasicFileIO& file, const char* formatName) {
    if (file.writable()) {
        const FormatStr text("%s: a finished file is opened for reading only", formatName);
        return MO_WARNING(MediaCode::FileNotWritable, text.get());
    }
    if (!file.open()) {
        const FormatStr text("%s: cannot open: %s", formatName, std::strerror(file.getLastError()));
        return MO_WARNING(MediaCode::FileNotReadable, text.get());
    }
    return OpResult(OpResult::Ok);
}
