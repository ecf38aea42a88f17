#include "backends/mov/mov_sample_entry.h"

#include <bit>
#include <numeric>
#include <string>

#include "backends/mov/mov_description.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_mostChannels = 64;
constexpr std::uint32_t s_dpi = 72u << 16;
constexpr unsigned s_mostPlainRate = 0xFFFF;  // that 16 bits before the point hold

OpResult refuse(const FormatStr& text) { return MO_WARNING(MediaCode::UnsupportedMediaType, text.get()); }

bool isDvcPro(const MediaClipParam& param) { return param.getParam(MediaPropertyEnum::Name::DvcPro).uintValue() != 0; }

MovCode codeOfDv(const MediaClipParam& param) {
    const bool is50 = param.m_sampleRate == param.m_ticksPerSample * 50 || param.m_sampleRate == 25;
    if (param.m_height == 720) return is50 ? movCode("dvhq") : movCode("dvhp");
    if (param.m_height >= 1080) return is50 ? movCode("dvh5") : movCode("dvh6");
    const bool is625 = param.m_height == 576;
    if (param.m_chroma == MediaChromaSample::C422) return is625 ? movCode("dv5p") : movCode("dv5n");
    if (!is625) return movCode("dvc ");
    return param.m_chroma == MediaChromaSample::C411 || isDvcPro(param) ? movCode("dvpp") : movCode("dvcp");
}

// The kinds of ProRes aim at so many bits a pixel, in standard definition at more. What stands here lies between the
// target rates that are published for the usual rasters from 720 by 486 to 2048 by 1080. Without a bitrate it is the
// usual kind.
MovCode codeOfProres(const MediaClipParam& param) {
    const std::uint64_t pixels = std::uint64_t{param.m_width} * param.m_height * param.m_sampleRate;
    const std::uint64_t milliBits = std::uint64_t{param.m_bitrate} * 1000 * param.m_ticksPerSample / pixels;
    const bool isSmall = param.m_height < 720;
    if (param.m_chroma == MediaChromaSample::C444)
        return milliBits < (isSmall ? 11000 : 7400) ? movCode("ap4h") : movCode("ap4x");
    if (milliBits == 0) return movCode("apcn");
    if (milliBits < (isSmall ? 1900 : 1250)) return movCode("apco");
    if (milliBits < (isSmall ? 3300 : 2240)) return movCode("apcs");
    return milliBits < (isSmall ? 4950 : 3280) ? movCode("apcn") : movCode("apch");
}

OpResult checkSound(const MediaClipParam& param) {
    const bool isALaw = param.m_encoding == MediaEncodingType::ALaw;
    const unsigned bits = param.m_bitsPerUnit;
    if (param.m_encoding != MediaEncodingType::Pcm && !isALaw)
        return refuse(FormatStr("mov: sound of %s can't be recorded", MediaNames::get(param.m_encoding)));
    if (param.m_sampleRate == 0 || param.m_ticksPerSample != 1)
        return refuse(
            FormatStr("mov: %u samples in %u seconds can't be recorded", param.m_sampleRate, param.m_ticksPerSample));
    if (param.m_channels == 0 || param.m_channels > s_mostChannels)
        return refuse(FormatStr("mov: %u channels can't be recorded, 1 to 64 can", param.m_channels));
    if (bits % 8 != 0 || bits < 8 || bits > 32 || (isALaw && bits != 8))
        return refuse(FormatStr("mov: %s of %u bits can't be recorded", MediaNames::get(param.m_encoding), bits));
    if (isALaw && param.m_sampleRate > s_mostPlainRate)
        return refuse(FormatStr("mov: %u samples a second can't be recorded", param.m_sampleRate));
    return OpResult(OpResult::Ok);
}

OpResult checkVideo(const MediaClipParam& param) {
    const MediaEncodingType encoding = param.m_encoding;
    const bool isKnown = encoding == MediaEncodingType::Dv || encoding == MediaEncodingType::Mpeg ||
                         encoding == MediaEncodingType::Prores || encoding == MediaEncodingType::Avc;
    if (!isKnown) return refuse(FormatStr("mov: pictures of %s can't be recorded", MediaNames::get(encoding)));
    if (param.m_width == 0 || param.m_height == 0 || param.m_width > 0xFFFF || param.m_height > 0xFFFF)
        return refuse(FormatStr("mov: pictures of %u by %u can't be recorded", param.m_width, param.m_height));
    if (param.m_sampleRate == 0 || param.m_ticksPerSample == 0)
        return refuse(
            FormatStr("mov: %u pictures in %u seconds can't be recorded", param.m_sampleRate, param.m_ticksPerSample));
    return OpResult(OpResult::Ok);
}

// Lines of one field or two, and which comes first. Of DV in standard definition that is the lower one.
void putFields(MovAtomWriter& out, const MediaClipParam& param) {
    if (param.m_vscan == MediaVideoScanType::Unknown) return;
    const bool isInterlaced = param.m_vscan == MediaVideoScanType::Interlaced;
    const bool isLowerFirst = param.m_encoding == MediaEncodingType::Dv && param.m_height < 720;
    out.open(MovAtom::s_fiel).be8(isInterlaced ? 2 : 1).be8(!isInterlaced ? 0 : isLowerFirst ? 6 : 1).close();
}

// The shape of a pixel, from that of the picture.
void putPixels(MovAtomWriter& out, const MediaClipParam& param) {
    const MediaAspectRatio aspect = param.m_aspect.get();
    const bool isWide = aspect == MediaAspectRatio::Ratio16x9;
    if (!isWide && aspect != MediaAspectRatio::Ratio4x3) return;
    const std::uint64_t across = std::uint64_t{param.m_height} * (isWide ? 16 : 4);
    const std::uint64_t down = std::uint64_t{param.m_width} * (isWide ? 9 : 3);
    const std::uint64_t common = std::gcd(across, down);
    out.open(MovAtom::s_pasp).be32(across / common).be32(down / common).close();
}

void putVideo(MovAtomWriter& out, const MediaClipParam& param, unsigned reference,
              const std::vector<std::uint8_t>& avcC) {
    out.open(MovSampleEntry::codeOf(param)).zeros(6).be16(reference);
    out.be16(0).be16(0).be32(0).be32(0).be32(0x200);  // version, revision, vendor, qualities
    out.be16(param.m_width).be16(param.m_height).be32(s_dpi).be32(s_dpi).be32(0).be16(1);
    out.pascal(MediaNames::get(param.m_encoding), 32).be16(24).be16(0xFFFF);
    if (!avcC.empty()) out.open(MovAtom::s_avcC).bytes(avcC.data(), avcC.size()).close();
    putFields(out, param);
    putPixels(out, param);
    out.close();
}

// What tells that words of more than 16 bits are little-endian.
void putByteOrder(MovAtomWriter& out, MovCode code) {
    out.open(MovAtom::s_wave);
    out.open(MovAtom::s_frma).be32(code).close();
    out.open(MovAtom::s_enda).be16(1).close();
    out.open(0).close();
    out.close();
}

// Which loudspeakers the channels belong to: one, two, or as many as there are without a place.
void putChannels(MovAtomWriter& out, unsigned channels) {
    constexpr std::uint32_t mono = 100, stereo = 101, discrete = 147;
    const std::uint32_t layout = channels == 1 ? mono : channels == 2 ? stereo : discrete;
    out.open(MovAtom::s_chan, 0, 0).be32(layout << 16 | channels).be32(0).be32(0).close();
}

void putSound(MovAtomWriter& out, const MediaClipParam& param, unsigned reference) {
    const MovCode code = MovSampleEntry::codeOf(param);
    const unsigned bytes = param.m_bitsPerUnit / 8;
    const bool isALaw = param.m_encoding == MediaEncodingType::ALaw;
    const bool isLong = bytes > 2 || isALaw;
    out.open(code).zeros(6).be16(reference);
    out.be16(isLong ? 1 : 0).be16(0).be32(0);  // version, revision, vendor
    out.be16(param.m_channels).be16(bytes == 1 && !isALaw ? 8 : 16).be16(0).be16(0).be32(param.m_sampleRate << 16);
    if (isLong) out.be32(1).be32(bytes).be32(bytes * param.m_channels).be32(2);
    if (bytes > 2 && param.m_endian == MediaEndian::Little) putByteOrder(out, code);
    putChannels(out, param.m_channels);
    out.close();
}

// The form for rates that the other one has no room for.
void putFastSound(MovAtomWriter& out, const MediaClipParam& param, unsigned reference) {
    constexpr unsigned bigEndian = 2, isSigned = 4, packed = 8;
    const unsigned bytes = param.m_bitsPerUnit / 8;
    const bool isBig = param.m_endian == MediaEndian::Big, hasSign = bytes > 1 || isBig;
    out.open(movCode("lpcm")).zeros(6).be16(reference);
    out.be16(2).be16(0).be32(0).be16(3).be16(16).be16(0xFFFE).be16(0).be32(1u << 16);
    out.be32(72).be64(std::bit_cast<std::uint64_t>(static_cast<double>(param.m_sampleRate)));
    out.be32(param.m_channels).be32(0x7F000000).be32(param.m_bitsPerUnit);
    out.be32(packed | (hasSign ? isSigned : 0) | (isBig && bytes > 1 ? bigEndian : 0));
    out.be32(bytes * param.m_channels).be32(1);
    putChannels(out, param.m_channels);
    out.close();
}

}  // namespace

OpResult MovSampleEntry::check(const MediaClipParam& param) {
    if (param.m_dataType == MediaDataType::Video) return checkVideo(param);
    if (param.m_dataType == MediaDataType::Audio) return checkSound(param);
    return refuse(FormatStr("mov: tracks of %s can't be recorded", MediaNames::get(param.m_dataType)));
}

MovCode MovSampleEntry::codeOf(const MediaClipParam& param) {
    if (param.m_encoding == MediaEncodingType::Dv) return codeOfDv(param);
    if (param.m_encoding == MediaEncodingType::Prores) return codeOfProres(param);
    return MovDescription::codeOf(param.m_dataType, param.m_encoding, param.m_chroma, param.m_endian,
                                  param.m_bitsPerUnit);
}

std::uint32_t MovSampleEntry::fixedSizeOf(const MediaClipParam& param) {
    if (param.m_dataType == MediaDataType::Audio) return param.m_bitsPerUnit / 8 * param.m_channels;
    return param.m_encoding == MediaEncodingType::Dv ? param.m_offsets.m_sampleSize : 0;
}

bool MovSampleEntry::hasOrder(const MediaClipParam& param) {
    return isMpeg(param.m_encoding) && param.m_coding == SequenceCodingType::LongGop;
}

void MovSampleEntry::put(MovAtomWriter& out, const MediaClipParam& param, unsigned reference,
                         const std::vector<std::uint8_t>& avcC) {
    if (param.m_dataType == MediaDataType::Video) return putVideo(out, param, reference, avcC);
    const bool isFast = param.m_sampleRate > s_mostPlainRate && param.m_encoding == MediaEncodingType::Pcm;
    isFast ? putFastSound(out, param, reference) : putSound(out, param, reference);
}
