#include "backends/wav/wav_media_obj.h"

#include "backends/wav/wav_parser.h"

WavMediaObj::WavMediaObj(AutoRefPtr<BasicFileIO> file, const WavFormat& format)
    : PcmMovie(file, MediaFileType::Wav, format) {
    keepBext(format);
}

void WavMediaObj::keepBext(const WavFormat& format) {
    if (!format.hasBext) return;
    MediaProperty reference;
    reference.init(MediaPropertyEnum::Name::FirstFrame, MediaPropertyEnum::Type::Unsigned64, format.timeReference);
    (void)m_properties.set(reference);
    if (!format.hasUmid) return;
    MediaProperty umid;
    umid.init(MediaPropertyEnum::Name::UmidValue);
    umid.set(format.umid, sizeof format.umid, true);
    (void)m_properties.set(umid);
}

MediaObj* WavMediaObj::openFile(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    result = openForParse(*file, "wav");
    if (!result) return nullptr;
    FileWindow window(*file, file->getLength());
    WavFormat format;
    result = WavParser(window).parse(format);
    return result ? new WavMediaObj(file, format) : nullptr;
}
