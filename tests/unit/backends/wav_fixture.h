#pragma once

#include <gtest/gtest.h>

#include <string>

#include "backends/wav/wav_parser.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wav_builder.h"
#include "tests/unit/backends/parser_verdict.h"

// What the tests of the WAV parser share.
namespace WavKit {

using kit::WavBext;
using kit::WavBuilder;
using kit::WavFmt;

// What the parser made of some bytes.
using Verdict = ParserVerdict<WavParser, WavFormat>;

inline void expectRefused(const std::string& bytes, int code, const std::string& sentence) {
    expectRefusal(Verdict(bytes), code, sentence);
}
inline void expectRefused(const WavBuilder& wav, int code, const std::string& sentence) {
    expectRefused(wav.bytes(), code, sentence);
}

// The essence lies at `offset` and has so many samples; more may come if `mayGrow`.
inline void expectEssence(const Verdict& verdict, std::uint64_t offset, std::uint64_t samples, bool mayGrow = false) {
    ASSERT_TRUE(verdict.m_result.success()) << verdict.m_result.describe().get();
    EXPECT_EQ(verdict.m_format.dataOffset, offset);
    EXPECT_EQ(verdict.m_format.samples, samples);
    EXPECT_EQ(verdict.m_format.maxSamples > samples, mayGrow) << verdict.m_format.maxSamples;
}

// A movie of one WAV that is written into a folder of the test's own.
class WavScene : public kit::CacheScene {
protected:
    MediaObj* openWav(const std::string& path, bool force = false) {
        m_result.discard();
        MediaObj* movie =
            MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, MediaFileType::Unknown, force);
        EXPECT_NE(movie, nullptr) << path << ": " << m_result.describe().get();
        return movie;
    }
};

}  // namespace WavKit
