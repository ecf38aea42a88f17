#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kit {

// What a fmt chunk is to say. What is left out follows from the rest.
struct WavFmt {
    unsigned m_tag = 1;
    unsigned m_channels = 2;
    unsigned m_rate = 48000;
    unsigned m_bits = 16;
    int m_blockAlign = -1;        // bytes; below 0: channels times whole bytes
    bool m_extensible = false;    // m_tag then stands in the subformat
    unsigned m_size = 0;          // bytes of the chunk's body; 0: 16, or 40 when extensible
    std::string m_guidTail = {};  // of the subformat, 14 bytes; empty: the usual one
};

// What a bext chunk is to say.
struct WavBext {
    unsigned m_version = 1;
    std::uint64_t m_timeReference = 0;
    std::string m_umid = {};  // up to 64 bytes
    unsigned m_size = 602;    // bytes of the chunk's body
};

// Makes a WAV byte by byte, sound or broken as it is told.
class WavBuilder {
public:
    enum class Pad { Yes, No };
    static constexpr std::uint32_t s_unknownSize = 0xFFFFFFFF;

    explicit WavBuilder(std::string_view master = "RIFF", std::string_view type = "WAVE");

    // A chunk with its true size; an odd one is padded unless told otherwise.
    WavBuilder& chunk(std::string_view id, std::string_view body, Pad pad = Pad::Yes);
    // A chunk whose header claims another size than its body has; never padded.
    WavBuilder& claim(std::string_view id, std::uint32_t size, std::string_view body = {});
    WavBuilder& fmt(const WavFmt& fmt = {}) { return chunk("fmt ", fmtBody(fmt)); }
    WavBuilder& data(std::string_view essence) { return chunk("data", essence); }
    WavBuilder& bext(const WavBext& bext) { return chunk("bext", bextBody(bext)); }
    // `size` of 24 or 28 bytes, or with entries of 12 bytes behind.
    WavBuilder& ds64(std::uint64_t dataSize, unsigned size = 28, std::string_view table = {});
    WavBuilder& raw(std::string_view bytes);

    // The size in the master header is that of all that follows, unless one was asked for.
    WavBuilder& masterSize(std::uint32_t size);
    std::string bytes() const;
    std::uint64_t size() const { return m_bytes.size(); }

    static std::string le(std::uint64_t value, unsigned bytes);
    static std::string fmtBody(const WavFmt& fmt);
    static std::string bextBody(const WavBext& bext);
    // `count` bytes that differ from one to the next.
    static std::string pattern(std::size_t count);

private:
    std::string m_bytes;
    bool m_ownSize = false;
};

}  // namespace kit
