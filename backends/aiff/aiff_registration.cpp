#include "backends/aiff/aiff_parser.h"
#include "backends/aiff/aiff_writer.h"
#include "backends/common/pcm_movie.h"
#include "backends/common/pcm_writer_desc.h"
#include "backends/link_anchors.h"

namespace {

constexpr int s_priority = 110;

// The reader of AIFF and AIFF-C. Fails: null with the sentence that says why.
MediaObj* openAiff(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    result = PcmMovie::openForParse(*file, "aiff");
    if (!result) return nullptr;
    FileWindow window(*file, file->getLength());
    PcmFormat format;
    result = AiffParser(window).parse(format);
    return result ? new PcmMovie(file, MediaFileType::Aiff, format) : nullptr;
}

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Aiff, &openAiff), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(
    describePcmWriter<AiffWriter::s_writer, MediaEndian::Big>(MediaFileType::Aiff), s_priority);

}  // namespace

void forceLinkAifMediaObj() {}
