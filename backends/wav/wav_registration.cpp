#include "backends/link_anchors.h"
#include "backends/wav/wav_media_obj.h"
#include "backends/wav/wav_writer.h"
#include "shared/include/object/media_format.h"

namespace {

constexpr int s_priority = 100;

MediaObj* createWav(const char* path, OpResult& result, MediaContainment containment, MediaFileType, bool,
                    BasicIOTypes::SizeAdvice advice, const char*) {
    return PcmRecording::create(WavWriter::s_writer, path, result, containment, advice);
}

// Parameters of sound in a WAV. The three numbers are samples a second, channels and bits of a word.
bool initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate, unsigned sampleRate,
               unsigned channels, unsigned bits) {
    return WavWriter::s_writer.initAudio(param, encoding, MediaEndian::Little, sampleRate, channels, bits);
}

MediaWriterDesc writerDesc() {
    MediaWriterDesc desc;
    desc.m_fileType = MediaFileType::Wav;
    desc.m_create = &createWav;
    desc.m_initAudio = &initAudio;
    return desc;
}

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Wav, &WavMediaObj::openFile), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(writerDesc(), s_priority);

}  // namespace

void forceLinkWavMediaObj() {}
