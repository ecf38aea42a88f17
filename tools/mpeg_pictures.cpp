#include "tools/mpeg_pictures.h"

#include <algorithm>
#include <array>

#include "shared/include/description/media_clip_param.h"

namespace {

constexpr std::size_t s_atOnce = 1u << 16;  // bytes
constexpr std::size_t s_needed = 8;         // bytes behind a start code's mark that are looked at
constexpr unsigned s_picture = 0x00, s_sequence = 0xB3, s_extension = 0xB5, s_group = 0xB8;
constexpr unsigned s_sequenceExtension = 1, s_pictureExtension = 8;

unsigned byteAt(const std::string& bytes, std::size_t at) {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

MediaVideoRate rateOf(unsigned code) {
    constexpr std::array rates = {MediaVideoRate::Unknown, MediaVideoRate::Film23976, MediaVideoRate::Film24,
                                  MediaVideoRate::Pal25,   MediaVideoRate::Ntsc2997,  MediaVideoRate::Hz30,
                                  MediaVideoRate::Hz50,    MediaVideoRate::Hz5994,    MediaVideoRate::Hz60};
    return code < rates.size() ? rates[code] : MediaVideoRate::Unknown;
}

MediaChromaSample chromaOf(unsigned code) {
    return code == 3 ? MediaChromaSample::C444 : code == 2 ? MediaChromaSample::C422 : MediaChromaSample::C420;
}

}  // namespace

bool MpegPictures::isStart(std::size_t at) const {
    return m_ahead[at] == 0 && m_ahead[at + 1] == 0 && m_ahead[at + 2] == 1;
}

// Looks at the start code there: whether the picture that is being cut ends in front of it.
bool MpegPictures::isEndOfPicture(std::size_t at) {
    const unsigned code = byteAt(m_ahead, at + 3);
    const bool isHeader = code == s_sequence || code == s_group;
    const bool isSecondField = code == s_picture && m_headers == 1 && m_isField;
    if (m_headers != 0 && (isHeader || (code == s_picture && !isSecondField))) return true;
    if (code == s_picture && ++m_headers == 1) m_kind = static_cast<SampleCodingType>(byteAt(m_ahead, at + 5) >> 3 & 7);
    const bool isPictureExtension = code == s_extension && byteAt(m_ahead, at + 4) >> 4 == s_pictureExtension;
    if (isPictureExtension && m_headers == 1) m_isField = (byteAt(m_ahead, at + 6) & 3) != 3;
    return false;
}

bool MpegPictures::fill(std::optional<Failure>& failure) {
    std::string more(s_atOnce, '\0');
    std::size_t bytes = 0;
    m_atEnd = !m_source.read(reinterpret_cast<unsigned char*>(more.data()), more.size(), bytes, failure);
    m_ahead.append(more, 0, bytes);
    return !failure;
}

bool MpegPictures::next(std::string& picture, SampleCodingType& kind, std::optional<Failure>& failure) {
    m_headers = 0;
    m_isField = false;
    for (m_at = 0;; ++m_at) {
        while (m_ahead.size() < m_at + s_needed && !m_atEnd) {
            if (!fill(failure)) return false;
        }
        const bool isOver = m_ahead.size() < m_at + 4;
        if (!isOver && !(isStart(m_at) && isEndOfPicture(m_at))) continue;
        if (isOver) m_at = m_ahead.size();
        picture = m_ahead.substr(0, m_at);
        m_ahead.erase(0, m_at);
        kind = m_kind == SampleCodingType::P || m_kind == SampleCodingType::B ? m_kind : SampleCodingType::I;
        return m_headers != 0;
    }
}

bool MpegPictures::describe(MediaClipParam& param, std::optional<Failure>& failure) {
    std::string first;
    SampleCodingType kind = SampleCodingType::I;
    if (!next(first, kind, failure) || first.size() < 12) return false;
    const MediaVideoRate rate = rateOf(byteAt(first, 7) & 15);
    if (!param.initVideo(MediaFileType::QuickTime, MediaEncodingType::Mpeg, rate)) return false;
    param.m_width = byteAt(first, 4) << 4 | byteAt(first, 5) >> 4;
    param.m_height = (byteAt(first, 5) & 15) << 8 | byteAt(first, 6);
    param.m_vscan = MediaVideoScanType::Unknown;
    const unsigned shape = byteAt(first, 7) >> 4;
    if (shape == 2 || shape == 3)
        param.m_aspect.set(shape == 2 ? MediaAspectRatio::Ratio4x3 : MediaAspectRatio::Ratio16x9);
    for (std::size_t at = 8; at + 7 < first.size(); ++at) {
        const bool isExtension = first.compare(at, 3, std::string("\0\0\1", 3)) == 0 &&
                                 byteAt(first, at + 3) == s_extension &&
                                 byteAt(first, at + 4) >> 4 == s_sequenceExtension;
        if (!isExtension) continue;
        const bool isProgressive = (byteAt(first, at + 5) & 8) != 0;
        param.m_vscan = isProgressive ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
        param.m_chroma = chromaOf(byteAt(first, at + 5) >> 1 & 3);
        break;
    }
    m_ahead.insert(0, first);
    return true;
}
