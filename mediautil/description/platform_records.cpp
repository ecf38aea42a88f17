#include "mediautil/description/platform_records.h"

MediaEncodingType toMediaEncodingType(ZxMediaType type) {
    switch (type) {
        case ZxMediaType::Mpeg2Video:
            return MediaEncodingType::Mpeg;
        case ZxMediaType::Pcm:
            return MediaEncodingType::Pcm;
        case ZxMediaType::Aes3:
            return MediaEncodingType::Aes3;
        case ZxMediaType::Dv25:
        case ZxMediaType::Dv50:
        case ZxMediaType::Dv100:
            return MediaEncodingType::Dv;
        case ZxMediaType::ALaw:
            return MediaEncodingType::ALaw;
        case ZxMediaType::Mpeg1Video:
            return MediaEncodingType::Mpeg1;
        case ZxMediaType::Mpeg4Video:
            return MediaEncodingType::Mpeg4;
        case ZxMediaType::Hdcam:
            return MediaEncodingType::Hdcam;
        case ZxMediaType::Vbi:
            return MediaEncodingType::Vbi;
        case ZxMediaType::Ancillary:
            return MediaEncodingType::S436mAnc;
        case ZxMediaType::Data:
            return MediaEncodingType::Data;
        case ZxMediaType::Dnxhd:
            return MediaEncodingType::Dnxhd;
        case ZxMediaType::Avc:
        case ZxMediaType::AvcIntra:
            return MediaEncodingType::Avc;
        case ZxMediaType::Aac:
            return MediaEncodingType::Aac;
        case ZxMediaType::Prores:
            return MediaEncodingType::Prores;
        case ZxMediaType::Uncompressed:
            return MediaEncodingType::Rec601;
        case ZxMediaType::Jpeg2000:
            return MediaEncodingType::Jpeg2000;
        case ZxMediaType::Unknown:
        case ZxMediaType::MpegAudio:
        case ZxMediaType::Ac3:
            break;
    }
    return MediaEncodingType::Unknown;
}

MediaChromaSample toMediaChromaSample(ZxVideoSampleRatio ratio) {
    switch (ratio) {
        case ZxVideoSampleRatio::Ratio420:
            return MediaChromaSample::C420;
        case ZxVideoSampleRatio::Ratio411:
            return MediaChromaSample::C411;
        case ZxVideoSampleRatio::Ratio422:
            return MediaChromaSample::C422;
        case ZxVideoSampleRatio::Ratio444:
            return MediaChromaSample::C444;
        case ZxVideoSampleRatio::Unknown:
            break;
    }
    return MediaChromaSample::None;
}
