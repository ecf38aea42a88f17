#include "tests/kit/wav_builder.h"

namespace kit {

namespace {

constexpr unsigned s_extensible = 0xFFFE;
const std::string s_usualGuidTail("\0\0\0\0\x10\0\x80\0\0\xAA\0\x38\x9B\x71", 14);

}  // namespace

WavBuilder::WavBuilder(std::string_view master, std::string_view type) {
    m_bytes.append(master).append(4, '\0').append(type);
    if (master == "RF64" || master == "BW64") masterSize(s_unknownSize);
}

WavBuilder& WavBuilder::chunk(std::string_view id, std::string_view body, Pad pad) {
    claim(id, static_cast<std::uint32_t>(body.size()), body);
    if (pad == Pad::Yes && body.size() % 2 != 0) m_bytes.push_back('\0');
    return *this;
}

WavBuilder& WavBuilder::claim(std::string_view id, std::uint32_t size, std::string_view body) {
    m_bytes.append(id).append(le(size, 4)).append(body);
    return *this;
}

WavBuilder& WavBuilder::ds64(std::uint64_t dataSize, unsigned size, std::string_view table) {
    std::string body = le(0, 8) + le(dataSize, 8) + le(0, 8);
    if (size >= 28) body += le(table.size() / 12, 4);
    return chunk("ds64", body.append(table));
}

WavBuilder& WavBuilder::raw(std::string_view bytes) {
    m_bytes.append(bytes);
    return *this;
}

WavBuilder& WavBuilder::masterSize(std::uint32_t size) {
    m_ownSize = true;
    m_bytes.replace(4, 4, le(size, 4));
    return *this;
}

std::string WavBuilder::bytes() const {
    std::string all = m_bytes;
    if (!m_ownSize) all.replace(4, 4, le(all.size() - 8, 4));
    return all;
}

std::string WavBuilder::le(std::uint64_t value, unsigned bytes) {
    std::string text;
    for (unsigned i = 0; i < bytes; ++i)
        text.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    return text;
}

std::string WavBuilder::fmtBody(const WavFmt& fmt) {
    const unsigned natural = fmt.m_channels * ((fmt.m_bits + 7) / 8);
    const unsigned align = fmt.m_blockAlign < 0 ? natural : static_cast<unsigned>(fmt.m_blockAlign);
    std::string body = le(fmt.m_extensible ? s_extensible : fmt.m_tag, 2) + le(fmt.m_channels, 2) + le(fmt.m_rate, 4) +
                       le(std::uint64_t{fmt.m_rate} * align, 4) + le(align, 2) + le(fmt.m_bits, 2);
    if (fmt.m_extensible) {
        const std::string& tail = fmt.m_guidTail.empty() ? s_usualGuidTail : fmt.m_guidTail;
        body += le(22, 2) + le(fmt.m_bits, 2) + le(0, 4) + le(fmt.m_tag, 2) + tail;
    }
    if (fmt.m_size != 0) body.resize(fmt.m_size, '\0');
    return body;
}

std::string WavBuilder::bextBody(const WavBext& bext) {
    constexpr std::size_t reference = 338, umidSize = 64;
    std::string umid = bext.m_umid;
    umid.resize(umidSize, '\0');
    std::string body = std::string(reference, 't') + le(bext.m_timeReference, 8) + le(bext.m_version, 2) + umid;
    body.resize(bext.m_size, '\0');
    return body;
}

std::string WavBuilder::pattern(std::size_t count) {
    std::string text(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        text[i] = static_cast<char>(i * 7 + i / 251 + 1);
    return text;
}

}  // namespace kit
