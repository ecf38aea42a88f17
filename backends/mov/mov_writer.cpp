#include "backends/mov/mov_writer.h"

#include "backends/common/sound_param.h"
#include "backends/mov/mov_object.h"
#include "backends/mov/mov_recording.h"
#include "backends/mov/mov_sample_entry.h"

namespace {

bool isRecordable(const MediaClipParam& param) {
    OpResult result = MovSampleEntry::check(param);
    const bool isGood = result.success();
    result.discard();
    return isGood;
}

bool isProgressive(MediaVideoRate rate) {
    return rate != MediaVideoRate::Pal25 && rate != MediaVideoRate::Ntsc2997 && rate != MediaVideoRate::Hz30;
}

// Pictures of high definition, for whoever has nothing to say of them.
bool initPictures(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate) {
    param.m_encoding = encoding;
    param.m_dataType = MediaDataType::Video;
    param.m_coding = encoding == MediaEncodingType::Prores ? SequenceCodingType::Intra : SequenceCodingType::LongGop;
    param.m_videoRate = rate;
    param.m_width = 1920;
    param.m_height = 1080;
    param.m_chroma = encoding == MediaEncodingType::Avc ? MediaChromaSample::C420 : MediaChromaSample::C422;
    param.m_vscan = isProgressive(rate) ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
    param.m_bitsPerUnit = 8;
    param.m_channels = 1;
    OpResult result = param.initSampleRate(rate);
    const bool isGood = result.success();
    result.discard();
    return isGood;
}

bool initVideo(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate) {
    MediaClipParam filled;
    const bool isFilled = encoding == MediaEncodingType::Dv ? filled.initVideo(MediaFileType::Dv, encoding, rate)
                                                            : initPictures(filled, encoding, rate);
    if (!isFilled || !isRecordable(filled)) return false;
    filled.m_fileType = MediaFileType::QuickTime;
    param = filled;
    return true;
}

// Parameters of sound of a track of its own. The three numbers are samples a second, channels and bits of a word.
bool initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate, unsigned sampleRate,
               unsigned channels, unsigned bits) {
    MediaClipParam filled = soundParam(MediaFileType::QuickTime, encoding, sampleRate, channels, bits);
    filled.m_videoRate = rate;
    filled.m_endian = encoding == MediaEncodingType::ALaw ? MediaEndian::Big : MediaEndian::Little;
    filled.m_offsets.set(bits / 8 * channels, 0, 0, 0);
    if (!isRecordable(filled)) return false;
    param = filled;
    return true;
}

}  // namespace

MediaWriterDesc MovWriter::describe() {
    MediaWriterDesc desc;
    desc.m_fileType = MediaFileType::QuickTime;
    desc.m_create = &MovRecording::create;
    desc.m_open = &MovObject::open;
    desc.m_initVideo = &initVideo;
    desc.m_initAudio = &initAudio;
    return desc;
}
