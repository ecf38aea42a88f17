#include "backends/link_anchors.h"
#include "backends/mov/mov_media_obj.h"
#include "backends/mov/mov_writer.h"
#include "shared/include/object/media_format.h"

namespace {

constexpr int s_priority = 100;

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::QuickTime, &MovMediaObj::openFile), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(MovWriter::describe(), s_priority);

}  // namespace

void forceLinkQtMediaObj() {}
