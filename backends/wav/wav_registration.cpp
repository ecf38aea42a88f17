#include "backends/link_anchors.h"
#include "backends/wav/wav_media_obj.h"
#include "shared/include/object/media_format.h"

namespace {

constexpr int s_priority = 100;

[[maybe_unused]] const unsigned s_registered =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Wav, &WavMediaObj::openFile), s_priority);

}  // namespace

void forceLinkWavMediaObj() {}
