#include "backends/common/pcm_writer_desc.h"
#include "backends/link_anchors.h"
#include "backends/wav/wav_media_obj.h"
#include "backends/wav/wav_writer.h"

namespace {

constexpr int s_priority = 100;

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Wav, &WavMediaObj::openFile), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(
    describePcmWriter<WavWriter::s_writer, MediaEndian::Little>(MediaFileType::Wav), s_priority);

}  // namespace

void forceLinkWavMediaObj() {}
