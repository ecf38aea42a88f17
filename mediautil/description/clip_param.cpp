#include "shared/include/description/media_clip_param.h"

#include <iterator>

#include "mediautil/object/media_obj_impl.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/media_obj.h"

MediaClipParam::MediaClipParam() : m_params(new MediaParams) {}

MediaClipParam::MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaVideoRate videoRate,
                               unsigned int width, unsigned int height, AspectRatio aspect)
    : MediaClipParam() {
    m_encoding = encoding;
    m_dataType = dataType;
    m_videoRate = videoRate;
    m_width = width;
    m_height = height;
    m_aspect = aspect;
}

MediaClipParam::MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaVideoRate videoRate,
                               const MediaOffsetSummary& offsets, unsigned int sampleRate, unsigned int ticksPerSample,
                               unsigned int maxBitsPerSample, unsigned int bitsPerUnit, unsigned int channels,
                               MediaEndian endian, unsigned int width, unsigned int height, AspectRatio aspect)
    : MediaClipParam(encoding, dataType, videoRate, width, height, aspect) {
    m_offsets = offsets;
    setSampling(maxBitsPerSample, bitsPerUnit, channels, endian);
    setRate(sampleRate, ticksPerSample);
    // Nobody is handed this result, so that it reports itself.
    if (sampleRate == 0 || ticksPerSample == 0) static_cast<void>(MO_ERROR(MediaCode::InternalError, nullptr));
}

MediaClipParam::MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaFileType fileType,
                               SequenceCodingType coding, MediaVideoRate videoRate, unsigned int width,
                               unsigned int height, MediaChromaSample chroma, MediaVideoScanType vscan,
                               unsigned int sampleRate, unsigned int ticksPerSample, unsigned int maxBitsPerSample,
                               unsigned int bitsPerUnit, unsigned int channels, MediaEndian endian,
                               const MediaOffsetSummary& offsets, AspectRatio aspect)
    : MediaClipParam(encoding, dataType, videoRate, width, height, aspect) {
    m_fileType = fileType;
    m_coding = coding;
    m_chroma = chroma;
    m_vscan = vscan;
    m_offsets = offsets;
    setSampling(maxBitsPerSample, bitsPerUnit, channels, endian);
    setRate(sampleRate, ticksPerSample);
}

MediaClipParam::MediaClipParam(const MediaTrackDesc& track, MediaEncodingType encoding,
                               const MediaOffsetSummary& offsets, unsigned int sampleRate, unsigned int ticksPerSample,
                               unsigned int maxBitsPerSample, unsigned int bitsPerUnit, unsigned int channels,
                               MediaEndian endian, unsigned int width, unsigned int height, AspectRatio aspect)
    : MediaClipParam(encoding, track.getDataType(), track.getVideoRate(), width, height, aspect) {
    m_offsets = offsets;
    setSampling(maxBitsPerSample, bitsPerUnit, channels, endian);
    m_sampleRate = sampleRate;
    m_ticksPerSample = ticksPerSample;
    m_bitrate = sampleRate * channels * bitsPerUnit;  // not over the ticks, alone among the forms; that is meant
}

MediaClipParam::MediaClipParam(const MediaClipDesc& clip)
    : MediaClipParam(clip.getEncoding(), clip.getType(), clip.getVideoRate(), clip.getTrack().getWidth(),
                     clip.getTrack().getHeight(), clip.getTrack().getAspect()) {
    m_fileType = clip.getObj().getMovieDesc()->getFileType();
    m_coding = clip.getSequenceCoding();
    m_chroma = clip.getChroma();
    m_vscan = clip.getVscan();
    m_sampleRate = clip.getSampleRate();
    m_ticksPerSample = clip.getTicksPerSample();
    setSampling(clip.getMaxBitsPerSample(), clip.getBitsPerUnit(), clip.getChannels(), clip.getEndian());
    m_bitrate = clip.getBitrate();
    if (const MediaOffsetLookup* lookup = clip.getLookup()) m_offsets = lookup->getSummary();
    if (!clip.getExtraParam(m_extraParam, 2)) m_extraParam[0] = m_extraParam[1] = 0;
}

// The extra pair stays behind on purpose: a copy is a new description, an assignment an exact one.
MediaClipParam::MediaClipParam(const MediaClipParam& other) : MediaClipParam() {
    *this = other;
    m_extraParam[0] = m_extraParam[1] = 0;
}

MediaClipParam::~MediaClipParam() { delete m_params; }

MediaClipParam& MediaClipParam::operator=(const MediaClipParam& other) {
    if (this == &other) return *this;
    m_encoding = other.m_encoding;
    m_dataType = other.m_dataType;
    m_fileType = other.m_fileType;
    m_coding = other.m_coding;
    m_videoRate = other.m_videoRate;
    m_width = other.m_width;
    m_height = other.m_height;
    m_chroma = other.m_chroma;
    m_vscan = other.m_vscan;
    m_sampleRate = other.m_sampleRate;
    m_ticksPerSample = other.m_ticksPerSample;
    setSampling(other.m_maxBitsPerSample, other.m_bitsPerUnit, other.m_channels, other.m_endian);
    m_bitrate = other.m_bitrate;
    m_offsets = other.m_offsets;
    m_aspect = other.m_aspect;
    m_extraParam[0] = other.m_extraParam[0];
    m_extraParam[1] = other.m_extraParam[1];
    *m_params = *other.m_params;
    return *this;
}

void MediaClipParam::setSampling(unsigned int maxBitsPerSample, unsigned int bitsPerUnit, unsigned int channels,
                                 MediaEndian endian) {
    m_maxBitsPerSample = maxBitsPerSample;
    m_bitsPerUnit = bitsPerUnit;
    m_channels = channels;
    m_endian = endian;
}

void MediaClipParam::setRate(unsigned int sampleRate, unsigned int ticksPerSample) {
    m_sampleRate = sampleRate != 0 ? sampleRate : 1;
    m_ticksPerSample = ticksPerSample != 0 ? ticksPerSample : 1;
    m_bitrate = m_sampleRate / m_ticksPerSample * m_channels * m_bitsPerUnit;
}

MediaProperty MediaClipParam::getParam(MediaPropertyEnum::Name name) const {
    const MediaProperty* found = m_params->get(name);
    return found ? *found : MediaProperty();
}

OpResult MediaClipParam::setParam(const MediaProperty& property) { return m_params->set(property); }

MediaFileType MediaClipParam::getFileType(MediaEncodingType encoding, MediaEndian endian) {
    switch (encoding) {
        case MediaEncodingType::Rec601:
            return MediaFileType::Rec601;
        case MediaEncodingType::Dv:
            return MediaFileType::Dv;
        case MediaEncodingType::Mpeg:
            return MediaFileType::Mpeg2Video;
        case MediaEncodingType::Mpeg4:
            return MediaFileType::Mpeg4Video;
        case MediaEncodingType::Avc:
            return MediaFileType::Avc;
        case MediaEncodingType::Pcm:
            return endian != MediaEndian::Big ? MediaFileType::Wav : MediaFileType::Aiff;
        case MediaEncodingType::Aes3:
            return MediaFileType::Aes;
        case MediaEncodingType::ALaw:
            return MediaFileType::Wav;
        case MediaEncodingType::Hdcam:
            return MediaFileType::Hdcam;
        case MediaEncodingType::Dnxhd:
            return MediaFileType::Dnxhd;
        case MediaEncodingType::Vbi:
            return MediaFileType::Vbi;
        case MediaEncodingType::S436mVbi:
        case MediaEncodingType::S436mAnc:
            return MediaFileType::Mxf;
        case MediaEncodingType::Data:
            return MediaFileType::Data;
        case MediaEncodingType::Mpeg1:
            return MediaFileType::Mpeg1Video;
        case MediaEncodingType::Aac:
            return MediaFileType::Aac;
        case MediaEncodingType::GxfAnc:
            return MediaFileType::Gxf;
        case MediaEncodingType::Prores:
            return MediaFileType::Prores;
        case MediaEncodingType::Jpeg2000:
            return MediaFileType::Jpeg2000;
        case MediaEncodingType::Unknown:
        case MediaEncodingType::Mixed:
            break;
    }
    return MediaFileType::Unknown;
}

AutoPtr<char> MediaClipParam::toString() const {
    FormatStr text(1024);
    text.format("%s,%s", MediaNames::get(m_dataType), MediaNames::get(m_encoding));
    if (m_dataType == MediaDataType::Audio) {
        text.format(",%dchan,%dkhz,%s", static_cast<int>(m_channels), static_cast<int>(m_sampleRate / 1000),
                    MediaNames::get(m_endian));
    }
    if (m_dataType == MediaDataType::Video) {
        text.format(",%dx%d,%d/%dhz,%s,%s,%s", static_cast<int>(m_width), static_cast<int>(m_height),
                    static_cast<int>(m_sampleRate), static_cast<int>(m_ticksPerSample), MediaNames::get(m_videoRate),
                    MediaNames::get(m_chroma), MediaNames::get(m_vscan));
    }
    text.format(",%dbpu,%dbps", static_cast<int>(m_bitsPerUnit), static_cast<int>(m_bitrate));
    return text;
}

// The switch is on m_videoRate and not on the argument; that is meant.
OpResult MediaClipParam::initSampleRate(MediaVideoRate) {
    struct Row {
        unsigned int sampleRate;
        unsigned int ticksPerSample;
    };
    static constexpr Row rows[] = {{1, 1},  {25, 1}, {30000, 1001}, {24000, 1001}, {24, 1},
                                   {30, 1}, {50, 1}, {60000, 1001}, {60, 1}};
    const auto index = static_cast<std::uint32_t>(m_videoRate);
    if (index >= std::size(rows)) {
        m_sampleRate = 1;
        return MO_ERROR(MediaCode::InternalError, nullptr);
    }
    m_sampleRate = rows[index].sampleRate;
    m_ticksPerSample = rows[index].ticksPerSample;
    return OpResult(OpResult::Ok);
}

bool MediaClipParam::initAudio(MediaFileType fileType, MediaEncodingType encoding, MediaVideoRate rate,
                               unsigned int first, unsigned int second, unsigned int third) {
    MediaWriterDesc writer;
    if (fileType == MediaFileType::Unknown || !MediaObjImpl::lookup(fileType, writer, nullptr)) return false;
    return writer.m_initAudio && writer.m_initAudio(*this, encoding, rate, first, second, third);
}

bool MediaClipParam::initVideo(MediaFileType fileType, MediaEncodingType encoding, MediaVideoRate rate) {
    MediaWriterDesc writer;
    if (fileType == MediaFileType::Unknown || !MediaObjImpl::lookup(fileType, writer, nullptr)) return false;
    return writer.m_initVideo && writer.m_initVideo(*this, encoding, rate);
}
