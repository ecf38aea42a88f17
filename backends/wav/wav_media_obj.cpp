#include "backends/wav/wav_media_obj.h"

#include <algorithm>

#include "backends/wav/wav_parser.h"
#include "services/metadata/generic_umid.h"

WavMediaObj::WavMediaObj(AutoRefPtr<BasicFileIO> file, const WavFormat& format)
    : PcmMovie(file, MediaFileType::Wav, format) {
    keepBext(format);
}

void WavMediaObj::keepBext(const WavFormat& format) {
    if (!format.hasBext) return;
    MediaProperty reference;
    reference.init(MediaPropertyEnum::Name::FirstFrame, MediaPropertyEnum::Type::Unsigned64, format.timeReference);
    m_properties.set(reference).discard();
    if (format.hasUmid) keepUmid(format);
}

void WavMediaObj::keepUmid(const WavFormat& format) {
    MediaProperty umid;
    umid.init(MediaPropertyEnum::Name::UmidValue);
    umid.set(format.umid, sizeof format.umid, true);
    m_properties.set(umid).discard();
    // An extended identifier begins with the basic one, but for the length that it states.
    std::uint8_t basic[GenericUmid::s_bytes];
    std::copy_n(format.umid, sizeof basic, basic);
    if (basic[GenericUmid::s_lengthAt] == GenericUmid::s_extendedLength)
        basic[GenericUmid::s_lengthAt] = GenericUmid::s_basicLength;
    const AutoPtr<GenericUmid> known = GenericUmid::createFromBytes(basic);
    const UserDataKey key(UserDataEnum::KeyKind::Umid, UserDataEnum::ValueKind::Umid);
    if (known.get() != nullptr) m_userData.setText(key, known->getStringValue());
}

MediaObj* WavMediaObj::openFile(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    result = openForParse(*file, "wav");
    if (!result) return nullptr;
    FileWindow window(*file, file->getLength());
    WavFormat format;
    result = WavParser(window).parse(format);
    return result ? new WavMediaObj(file, format) : nullptr;
}
