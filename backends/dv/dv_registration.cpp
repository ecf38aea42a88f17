#include "backends/common/sound_param.h"
#include "backends/dv/dv_media_obj.h"
#include "backends/dv/dv_recording.h"
#include "backends/link_anchors.h"
#include "shared/include/object/media_format.h"

namespace {

// Behind the formats that begin with a mark of their own: a stream has to be searched for.
constexpr int s_priority = 200;

// Parameters of the usual picture at that rate.
bool initVideo(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate) {
    const DvSystem* system = DvSystem::find(rate);
    if (encoding != MediaEncodingType::Dv || system == nullptr) return false;
    param.m_encoding = encoding;
    param.m_dataType = MediaDataType::Video;
    param.m_fileType = MediaFileType::Dv;
    param.m_coding = SequenceCodingType::Intra;
    param.m_videoRate = rate;
    param.m_width = system->width;
    param.m_height = system->height;
    param.m_chroma = system->chroma;
    param.m_vscan = system->isHalfOfPair() ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
    param.m_sampleRate = system->rate;
    param.m_ticksPerSample = system->ticks;
    param.m_maxBitsPerSample = system->frameSize() * 8;
    param.m_bitsPerUnit = 8;
    param.m_channels = 1;
    param.m_endian = MediaEndian::Big;
    param.m_bitrate = system->bitrate();
    param.m_offsets.set(system->frameSize(), 0, 0, 0);
    return true;
}

// Parameters of sound in the frames of that rate. The three numbers are samples a second, channels and bits of a word.
bool initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate, unsigned sampleRate,
               unsigned channels, unsigned bits) {
    const DvSystem* system = DvSystem::find(rate);
    if (encoding != MediaEncodingType::Dv || system == nullptr) return false;
    if (!system->carriesSound(sampleRate, channels, bits)) return false;
    param = soundParam(MediaFileType::Dv, encoding, sampleRate, channels, bits);
    param.m_videoRate = rate;
    param.m_endian = MediaEndian::Big;
    param.m_offsets.set(system->frameSize(), 0, 0, 0);
    return true;
}

MediaObj* createDv(const char* path, OpResult& result, MediaContainment containment, MediaFileType, bool,
                   BasicIOTypes::SizeAdvice advice, const char*) {
    return DvRecording::create(path, result, containment, advice);
}

// The clips of a movie without a file fill with frames of DV.
MediaWriterDesc writerDesc() {
    MediaWriterDesc desc;
    desc.m_fileType = MediaFileType::Dv;
    desc.m_create = &createDv;
    desc.m_open = &DvMediaObj::openObject;
    desc.m_initVideo = &initVideo;
    desc.m_initAudio = &initAudio;
    return desc;
}

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Dv, &DvMediaObj::openFile), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(writerDesc(), s_priority);

}  // namespace

void forceLinkDvMediaObj() {}
