#include <cstring>
#include <memory>
#include <vector>

#include "mediautil/validation/pcm_analysis.h"
#include "shared/include/validation/pcm_parser.h"
#include "shared/include/validation/pcm_pattern.h"
#include "tests/fuzz/fuzz_input.h"

// Sound in pieces of memory, looked at many samples at a time, beside the same
// sound in one piece, sample by sample. The input: the kind of samples,
// channels, how long the pieces are, how many samples each call gets, the
// limit, and then the sound; a byte of 0xF8 in it stands for the beginning of a
// burst, and the next one for its length.

namespace {

using fuzz::require;

struct Form {
    MediaEndian m_endian;
    unsigned m_bytes;
    unsigned m_channels;

    unsigned instant() const { return m_bytes * m_channels; }
};

// One word with these 16 bits at its top.
void putTop(std::string& sound, const Form& form, unsigned bits) {
    std::string word(form.m_bytes, '\0');
    for (unsigned i = 0; i < std::min(2u, form.m_bytes); ++i) {
        const unsigned place = form.m_endian == MediaEndian::Big ? i : form.m_bytes - 1 - i;
        word[place] = static_cast<char>(bits >> (8 - 8 * i) & 0xFF);
    }
    sound += word;
}

// A byte of the input is as many of the sound as make an instant, so that small
// inputs give much of it.
std::string soundOf(const Form& form, fuzz::Input& input) {
    constexpr std::size_t longest = 4096;
    std::string sound;
    while (!input.empty() && sound.size() < longest) {
        const unsigned value = input.byte();
        if (value == 0xF8 && form.m_channels == 2) {
            putTop(sound, form, 0xF872);
            putTop(sound, form, 0x4E1F);
            putTop(sound, form, 1);
            putTop(sound, form, input.byte() * 32);
        } else {
            for (unsigned i = 0; i < form.instant(); ++i)
                sound += static_cast<char>(i % form.m_bytes == 0 ? value : value * 37 % 256);
        }
    }
    return sound;
}

class Pieces {
public:
    Pieces(const std::string& sound, std::size_t length) {
        for (std::size_t at = 0; at < sound.size(); at += length) {
            const std::size_t count = std::min(length, sound.size() - at);
            m_memory.emplace_back(new unsigned char[count]);
            std::memcpy(m_memory.back().get(), sound.data() + at, count);
            m_list.push_back({m_memory.back().get(), static_cast<unsigned>(count)});
        }
    }
    void give(BitChunkParser& parser) { parser.setList(static_cast<unsigned>(m_list.size()), m_list.data()); }

private:
    std::vector<std::unique_ptr<unsigned char[]>> m_memory;
    std::vector<simpleSgl_s> m_list;
};

// A sample as its bytes say, without a parser.
std::int32_t valueOf(const Form& form, const std::string& sound, std::size_t at) {
    std::uint32_t word = 0;
    for (unsigned i = 0; i < form.m_bytes; ++i) {
        const auto byte = static_cast<unsigned char>(sound[at + i]);
        word |= std::uint32_t{byte} << 8 * (form.m_endian == MediaEndian::Big ? 3 - i : i);
    }
    return static_cast<std::int32_t>(word) >> (32 - 8 * form.m_bytes);
}

void analysePlain(const Form& form, const std::string& sound, Pieces& pieces, PcmParser& parser, PcmPattern& pattern) {
    pieces.give(parser);
    parser.init(form.m_endian, form.m_bytes, form.m_channels);
    for (std::size_t at = 0; at + form.instant() <= sound.size(); at += form.instant()) {
        const PcmPattern::Sample sample = parser.decodeNextSample();
        for (unsigned i = 0; i < form.m_channels; ++i)
            require(sample.m_values[i] == valueOf(form, sound, at + i * form.m_bytes));
        pattern.add(sample);
    }
}

void analyseFast(const Form& form, Pieces& pieces, unsigned samples, unsigned most, PcmVectors vectors,
                 PcmParser& parser, PcmPattern& pattern) {
    pieces.give(parser);
    parser.init(form.m_endian, form.m_bytes, form.m_channels);
    while (samples > 0) {
        const unsigned count = std::min(samples, most);
        analysePcm(parser, pattern, count, vectors);
        samples -= count;
    }
}

void checkSame(const Form& form, const PcmPattern& one, const PcmPattern& other) {
    for (unsigned i = 0; i < form.m_channels; ++i) {
        const PcmPattern::Channel& a = one.getChannel(i);
        const PcmPattern::Channel& b = other.getChannel(i);
        require(a.m_prev == b.m_prev && a.m_step == b.m_step && a.m_minStep == b.m_minStep);
        require(a.m_maxStep == b.m_maxStep && a.m_over == b.m_over && a.m_ok == b.m_ok);
    }
    require(one.suspect() == other.suspect());
    require(std::strcmp(one.toString().get(), other.toString().get()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned kind = input.byte();
    const unsigned channels = input.byte();
    const Form form{kind % 2 == 0 ? MediaEndian::Big : MediaEndian::Little, kind / 2 % 4 + 1,
                    channels < 128 ? 2 : channels % PcmPattern::s_maxChannels + 1};
    const unsigned length = input.word() % 4096 + 1;
    const unsigned most = input.byte() * 16 + 1;
    const unsigned limit = 1u << input.byte() % 32;
    const std::string sound = soundOf(form, input);
    const auto samples = static_cast<unsigned>(sound.size() / form.instant());
    Pieces whole(sound, std::max<std::size_t>(sound.size(), 1)), parts(sound, length);
    PcmParser plainParser;
    PcmPattern plain(limit, form.m_channels);
    analysePlain(form, sound, whole, plainParser, plain);
    for (const PcmVectors vectors : {PcmVectors::Common, PcmVectors::Widest}) {
        PcmParser parser;
        PcmPattern pattern(limit, form.m_channels);
        analyseFast(form, parts, samples, most, vectors, parser, pattern);
        checkSame(form, plain, pattern);
        require(parser.getUnparsedBytes() == sound.size() % form.instant());
        require(parser.isInBurst() == plainParser.isInBurst());
        require(parser.getAc3SamplesCnt() == plainParser.getAc3SamplesCnt());
    }
    return 0;
}
