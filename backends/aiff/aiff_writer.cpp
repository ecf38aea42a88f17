#include "backends/aiff/aiff_writer.h"

#include <bit>

#include "backends/common/byte_writer.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_formSize = 12, s_chunkHeader = 8;
constexpr unsigned s_versionSize = 4;            // of an AIFF-C
constexpr std::uint32_t s_version = 0xA2805140;  // of the AIFF-C draft
constexpr unsigned s_commSize = 18;              // and with a coding:
constexpr unsigned s_codingSize = 6;             // its mark and an empty name, which takes two bytes
constexpr unsigned s_ssndStart = 8;              // offset and block size, ahead of the essence
constexpr std::uint64_t s_largestForm = 0xFFFFFFFE;

bool isAifc(const PcmFormat& format) { return format.endian == MediaEndian::Little; }

unsigned headerSize(const PcmFormat& format) {
    const unsigned coding = isAifc(format) ? s_chunkHeader + s_versionSize + s_codingSize : 0;
    return s_formSize + coding + s_chunkHeader + s_commSize + s_chunkHeader + s_ssndStart;
}

OpResult refuse(const char* text) { return MO_WARNING(MediaCode::UnsupportedMediaType, text); }

OpResult choose(const MediaClipParam& param, PcmFormat& format) {
    OpResult result = AiffWriter::s_writer.chooseCommon(param, format);
    if (!result) return result;
    if (format.encoding != MediaEncodingType::Pcm) return refuse("aiff: only pcm can be recorded");
    if (format.bits == 8) format.endian = MediaEndian::Big;  // bytes have no order
    if (isAifc(format) && format.bits != 16) return refuse("aiff: little-endian samples are of 16 bits");
    format.dataOffset = headerSize(format);
    return result;
}

unsigned makeHeader(const PcmFormat& format, std::uint8_t* bytes) {
    const std::uint64_t data = format.samples * format.blockAlign;
    std::uint8_t rate[10];
    AiffWriter::putRate(format.sampleRate, rate);
    ByteWriter out(bytes);
    out.mark("FORM").be32(headerSize(format) - s_chunkHeader + data + data % 2).mark(isAifc(format) ? "AIFC" : "AIFF");
    if (isAifc(format)) out.mark("FVER").be32(s_versionSize).be32(s_version);
    out.mark("COMM").be32(s_commSize + (isAifc(format) ? s_codingSize : 0));
    out.be16(format.channels).be32(format.samples).be16(format.bits).bytes(rate, sizeof rate);
    if (isAifc(format)) out.mark("sowt").zeros(2);
    out.mark("SSND").be32(s_ssndStart + data).zeros(s_ssndStart);
    return out.size();
}

}  // namespace

void AiffWriter::putRate(std::uint32_t rate, std::uint8_t* tenBytes) {
    constexpr unsigned bias = 16383;
    const unsigned exponent = static_cast<unsigned>(std::bit_width(rate)) - 1;
    ByteWriter(tenBytes).be16(bias + exponent).be64(std::uint64_t{rate} << (63 - exponent));
}

// The last byte is kept for the padding.
const PcmWriter AiffWriter::s_writer = {
    "aiff", MediaFileType::Aiff, s_largestForm + s_chunkHeader - 1, &choose, &makeHeader,
};
