#include "mediautil/description/platform_records.h"
#include "shared/include/description/media_clip_param.h"

// A MediaClipParam from the platform's description record.

namespace {

MediaDataType dataTypeOf(ZxMediaType type) {
    switch (type) {
        case ZxMediaType::Mpeg2Video:
        case ZxMediaType::Dv25:
        case ZxMediaType::Dv50:
        case ZxMediaType::Dv100:
        case ZxMediaType::Mpeg1Video:
        case ZxMediaType::Mpeg4Video:
        case ZxMediaType::Hdcam:
        case ZxMediaType::Dnxhd:
        case ZxMediaType::Avc:
        case ZxMediaType::AvcIntra:
        case ZxMediaType::Prores:
        case ZxMediaType::Uncompressed:
        case ZxMediaType::Jpeg2000:
            return MediaDataType::Video;
        case ZxMediaType::Pcm:
        case ZxMediaType::Aes3:
        case ZxMediaType::MpegAudio:
        case ZxMediaType::Ac3:
        case ZxMediaType::ALaw:
        case ZxMediaType::Aac:
            return MediaDataType::Audio;
        case ZxMediaType::Unknown:
        case ZxMediaType::Vbi:
        case ZxMediaType::Ancillary:
        case ZxMediaType::Data:
            break;
    }
    return MediaDataType::Unknown;
}

MediaVideoRate videoRateOf(std::uint32_t rateTimes100) {
    switch (rateTimes100) {
        case 2398:
            return MediaVideoRate::Film23976;
        case 2400:
            return MediaVideoRate::Film24;
        case 2500:
            return MediaVideoRate::Pal25;
        case 2997:
            return MediaVideoRate::Ntsc2997;
        case 3000:
            return MediaVideoRate::Hz30;
        case 5000:
            return MediaVideoRate::Hz50;
        case 5994:
            return MediaVideoRate::Hz5994;
        case 6000:
            return MediaVideoRate::Hz60;
        default:
            return MediaVideoRate::Unknown;
    }
}

MediaVideoScanType scanOf(ZxFrameStruct frameStruct, unsigned int height) {
    if (frameStruct == ZxFrameStruct::Progressive) return MediaVideoScanType::Progressive;
    if (frameStruct == ZxFrameStruct::Interlaced) return MediaVideoScanType::Interlaced;
    return height == 720 ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
}

}  // namespace

MediaClipParam::MediaClipParam(const ZxMediaSummary1& summary, ZxFrameStruct frameStruct) : MediaClipParam() {
    m_encoding = toMediaEncodingType(summary.type);
    m_dataType = dataTypeOf(summary.type);
    if (summary.aspect >= 1 && summary.aspect <= 3) m_aspect.set(static_cast<MediaAspectRatio>(summary.aspect));
    m_bitrate = summary.bitrate;
    if (m_dataType == MediaDataType::Video) {
        takeVideo(summary, frameStruct);
    } else {
        takeOther(summary);
    }
}

void MediaClipParam::takeOther(const ZxMediaSummary1& summary) {
    constexpr std::uint32_t packetsOf1024At48k = 4687;  // 46.875 a second, cut to hundredths
    m_sampleRate = summary.rateTimes100 / 100;
    if (summary.rateTimes100 == packetsOf1024At48k) {
        m_sampleRate = 48000;
        m_ticksPerSample = 1024;
    }
    setSampling(summary.bitsPerSample, summary.bitsPerSample, summary.channels,
                summary.isBigEndian ? MediaEndian::Big : MediaEndian::Little);
}

void MediaClipParam::takeVideo(const ZxMediaSummary1& summary, ZxFrameStruct frameStruct) {
    m_coding = summary.gopLength > 1 ? SequenceCodingType::LongGop : SequenceCodingType::Intra;
    m_width = summary.width;
    m_height = summary.height;
    m_chroma = toMediaChromaSample(summary.chroma);
    m_vscan = scanOf(frameStruct, m_height);
    m_sampleRate = summary.rateTimes100;
    m_ticksPerSample = 100;
    m_videoRate = videoRateOf(summary.rateTimes100);
    m_channels = 1;
    if (summary.type != ZxMediaType::Uncompressed) return;
    m_maxBitsPerSample = summary.bitsPerSample;
    m_bitsPerUnit = 8;
    m_offsets.m_sampleSize = summary.bitsPerSample / 8;
}
