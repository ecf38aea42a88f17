#include "backends/aiff/aiff_parser.h"
#include "backends/aiff/aiff_writer.h"
#include "backends/common/pcm_movie.h"
#include "backends/link_anchors.h"
#include "shared/include/object/media_format.h"

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

MediaObj* createAiff(const char* path, OpResult& result, MediaContainment containment, MediaFileType, bool,
                     BasicIOTypes::SizeAdvice advice, const char*) {
    return PcmRecording::create(AiffWriter::s_writer, path, result, containment, advice);
}

// Parameters of sound in an AIFF. The three numbers are samples a second, channels and bits of a word.
bool initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate, unsigned sampleRate,
               unsigned channels, unsigned bits) {
    return AiffWriter::s_writer.initAudio(param, encoding, MediaEndian::Big, sampleRate, channels, bits);
}

MediaWriterDesc writerDesc() {
    MediaWriterDesc desc;
    desc.m_fileType = MediaFileType::Aiff;
    desc.m_create = &createAiff;
    desc.m_initAudio = &initAudio;
    return desc;
}

[[maybe_unused]] const unsigned s_reader =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Aiff, &openAiff), s_priority);
[[maybe_unused]] const unsigned s_writer = MediaObj::registerCreator(writerDesc(), s_priority);

}  // namespace

void forceLinkAifMediaObj() {}
