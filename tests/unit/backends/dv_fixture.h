#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "backends/dv/dv_black.h"
#include "backends/dv/dv_parser.h"
#include "tests/kit/cache_scene.h"
#include "tests/unit/backends/parser_verdict.h"

// What the tests of DV share: streams that are made of black frames, each with its number in it.
namespace DvKit {

// The places of the systems in their table.
enum Which : unsigned { Ntsc25, Pal420, Pal411, Ntsc50, Pal50, Hd60i, Hd50i, Hd60p, Hd50p };

inline const DvSystem& system(unsigned index) { return s_dvSystems[index]; }

inline DvAudio sound(unsigned channels, unsigned rate = 48000, unsigned bits = 16) {
    DvAudio audio;
    audio.rate = rate;
    audio.bits = bits;
    audio.channels = channels;
    audio.perHalf = bits == 12 ? 2 : 1;
    return audio;
}

constexpr unsigned s_block = DvLayout::s_block;
constexpr unsigned s_sequence = DvLayout::s_sequence;

// A frame under construction.
class Frame {
public:
    explicit Frame(const DvSystem& system, const DvAudio& audio = sound(2), bool isPro = false,
                   MediaAspectRatio aspect = MediaAspectRatio::Ratio4x3)
        : m_system(system), m_bytes(system.frameSize(), '\0') {
        DvBlack::write(system, isPro, aspect, audio, memory());
    }

    // The number stands in the last bytes of each video block, which no transform block needs.
    Frame& number(unsigned number) {
        for (unsigned i = 0; i < m_bytes.size() / s_block; ++i) {
            if (memory()[i * s_block] >> 5 == 4) memory()[(i + 1) * s_block - 1] = static_cast<std::uint8_t>(number);
        }
        return *this;
    }
    // Sets the timecode pack of every sync block, in BCD as it lies there.
    Frame& timecode(unsigned frames, unsigned seconds, unsigned minutes, unsigned hours) {
        for (unsigned i = 0; i < m_system.frameSequences(); ++i)
            timecodeIn(i, frames, seconds, minutes, hours);
        return *this;
    }
    Frame& timecodeIn(unsigned sequence, unsigned frames, unsigned seconds, unsigned minutes, unsigned hours) {
        for (unsigned i = 0; i < 12; ++i) {
            std::uint8_t* pack = block(sequence, 1 + i / 6) + 3 + i % 6 * 8 + 3;
            pack[0] = 0x13;
            pack[1] = static_cast<std::uint8_t>(frames);
            pack[2] = static_cast<std::uint8_t>(seconds);
            pack[3] = static_cast<std::uint8_t>(minutes);
            pack[4] = static_cast<std::uint8_t>(hours);
        }
        return *this;
    }
    // Sets a byte, counted from the pack's id, of the pack that lies at the place of the video source pack or behind
    // it.
    Frame& videoPack(unsigned pack, unsigned byte, unsigned value) {
        for (unsigned i = 0; i < m_system.frameSequences(); ++i) {
            const unsigned number = i % m_system.sequences();
            block(i, 0)[DvLayout::videoSourcePack(number) + pack * 5 + byte] = static_cast<std::uint8_t>(value);
        }
        return *this;
    }
    // The same of the audio source pack, in the sequences from `first` on and before `end`.
    Frame& audioPack(unsigned byte, unsigned value, unsigned first = 0, unsigned end = 48) {
        for (unsigned i = first; i < m_system.frameSequences() && i < end; ++i) {
            const unsigned number = i % m_system.sequences();
            block(i, DvLayout::audioSourceBlock(number))[3 + byte] = static_cast<std::uint8_t>(value);
        }
        return *this;
    }
    // Sets the track application id in all headers.
    Frame& application(unsigned apt) {
        for (unsigned i = 0; i < m_system.frameSequences(); ++i)
            block(i, 0)[4] = static_cast<std::uint8_t>(0xF8 | apt);
        return *this;
    }
    // Makes it the second frame of a pair.
    Frame& laterOfPair() {
        for (unsigned i = 0; i < m_bytes.size() / s_block; ++i)
            memory()[i * s_block + 1] &= 0xFB;
        return *this;
    }
    // Overwrites whole sequences.
    Frame& destroy(unsigned first, unsigned count, char with = '\0') {
        std::fill_n(m_bytes.begin() + first * s_sequence, count * s_sequence, with);
        return *this;
    }

    std::uint8_t* block(unsigned sequence, unsigned index) {
        return memory() + sequence * s_sequence + index * s_block;
    }
    std::uint8_t* memory() { return reinterpret_cast<std::uint8_t*>(m_bytes.data()); }
    const std::string& bytes() const { return m_bytes; }

private:
    const DvSystem& m_system;
    std::string m_bytes;
};

// Frames with the numbers from `from` on.
inline std::string stream(const DvSystem& system, unsigned frames, unsigned from = 0) {
    std::string bytes;
    for (unsigned i = 0; i < frames; ++i)
        bytes += Frame(system).number(from + i).bytes();
    return bytes;
}

// What the parser made of some bytes.
using Verdict = ParserVerdict<DvParser, DvFormat>;

inline void expectRefused(const std::string& bytes, int code, const std::string& sentence) {
    expectRefusal(Verdict(bytes), code, sentence);
}

// So many frames of that system from `offset` on; an end is known if `ends`.
inline void expectFrames(const Verdict& verdict, const DvSystem& system, std::uint64_t offset, std::uint64_t frames,
                         bool ends = false) {
    ASSERT_TRUE(verdict.m_result.success()) << verdict.m_result.describe().get();
    EXPECT_STREQ(verdict.m_format.system->name, system.name);
    EXPECT_EQ(verdict.m_format.baseOffset, offset);
    EXPECT_EQ(verdict.m_format.frames, frames);
    EXPECT_EQ(verdict.m_format.maxFrames, ends ? frames : DvFormat::s_noEnd);
}

// Movies of streams that are written into a folder of the test's own.
class DvScene : public kit::CacheScene {
protected:
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }
    void openBytes(const std::string& bytes, const std::string& name = "a.dv") {
        m_result.discard();
        m_movie = MediaObj::openReader(m_tree.write(name, bytes).c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }

    MediaObj* m_movie = nullptr;
};

}  // namespace DvKit
