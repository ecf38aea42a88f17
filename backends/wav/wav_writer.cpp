#include "backends/wav/wav_writer.h"

#include "backends/common/byte_writer.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_masterSize = 12, s_chunkHeader = 8;
constexpr unsigned s_ds64Size = 28;  // three sizes and an empty table
constexpr unsigned s_factSize = 4;
constexpr std::uint32_t s_elsewhere = 0xFFFFFFFF;  // the size stands in ds64

constexpr std::uint16_t s_tagPcm = 1, s_tagALaw = 6, s_tagExtensible = 0xFFFE;
constexpr std::uint8_t s_pcmGuid[16] = {1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};

bool isALaw(const PcmFormat& format) { return format.encoding == MediaEncodingType::ALaw; }

// More than two channels or 16 bits take the long form.
bool isExtensible(const PcmFormat& format) { return !isALaw(format) && (format.channels > 2 || format.bits > 16); }

unsigned fmtSize(const PcmFormat& format) {
    if (isExtensible(format)) return 40;
    return isALaw(format) ? 18 : 16;
}

unsigned headerSize(const PcmFormat& format) {
    const unsigned fact = isALaw(format) ? s_chunkHeader + s_factSize : 0;
    return s_masterSize + s_chunkHeader + s_ds64Size + s_chunkHeader + fmtSize(format) + fact + s_chunkHeader;
}

// The usual places of so many loudspeakers; none beyond eight.
std::uint32_t channelMask(unsigned channels) {
    constexpr std::uint32_t masks[] = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x13F, 0x63F};
    return channels < sizeof masks / sizeof masks[0] ? masks[channels] : 0;
}

void putFmt(ByteWriter& out, const PcmFormat& format) {
    const std::uint16_t plainTag = isALaw(format) ? s_tagALaw : s_tagPcm;
    out.mark("fmt ").le32(fmtSize(format)).le16(isExtensible(format) ? s_tagExtensible : plainTag);
    out.le16(format.channels).le32(format.sampleRate);
    out.le32(std::uint64_t{format.sampleRate} * format.blockAlign).le16(format.blockAlign).le16(format.bits);
    if (isALaw(format)) out.le16(0);
    if (!isExtensible(format)) return;
    out.le16(22).le16(format.bits).le32(channelMask(format.channels)).bytes(s_pcmGuid, sizeof s_pcmGuid);
}

OpResult choose(const MediaClipParam& param, PcmFormat& format) {
    OpResult result = WavWriter::s_writer.chooseCommon(param, format);
    if (!result) return result;
    if (format.bits > 8 && format.endian != MediaEndian::Little)
        return MO_WARNING(MediaCode::UnsupportedMediaType, "wav: big-endian samples can't be recorded");
    format.endian = MediaEndian::Little;
    format.dataOffset = headerSize(format);
    return result;
}

unsigned makeUsualHeader(const PcmFormat& format, std::uint8_t* bytes) {
    return WavWriter::makeHeader(format, WavWriter::s_largestRiff, bytes);
}

}  // namespace

unsigned WavWriter::makeHeader(const PcmFormat& format, std::uint64_t largestRiff, std::uint8_t* bytes) {
    const std::uint64_t data = format.samples * format.blockAlign;
    const std::uint64_t riff = headerSize(format) - s_chunkHeader + data + data % 2;
    const bool is64 = riff > largestRiff;
    ByteWriter out(bytes);
    if (is64) {
        out.mark("RF64").le32(s_elsewhere).mark("WAVE");
        out.mark("ds64").le32(s_ds64Size).le64(riff).le64(data).le64(format.samples).le32(0);
    } else {
        out.mark("RIFF").le32(riff).mark("WAVE").mark("JUNK").le32(s_ds64Size).zeros(s_ds64Size);
    }
    putFmt(out, format);
    if (isALaw(format)) out.mark("fact").le32(s_factSize).le32(is64 ? s_elsewhere : format.samples);
    out.mark("data").le32(is64 ? s_elsewhere : data);
    return out.size();
}

const PcmWriter WavWriter::s_writer = {
    "wav", MediaFileType::Wav, std::uint64_t{1} << 62, &choose, &makeUsualHeader,
};
