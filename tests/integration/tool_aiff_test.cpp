// Facts, samples and frames of AIFFs, beside what independent programs say and copy.

#include <gtest/gtest.h>

#include "tests/integration/peers.h"
#include "tests/integration/tool_kit.h"
#include "tests/kit/wav_builder.h"

using nlohmann::json;

namespace {

constexpr unsigned s_samples = 17003;  // neither whole frames nor a whole number of words

class ToolAiff : public testing::TestWithParam<peers::Coding> {
protected:
    // Writes it at that rate by ffmpeg.
    void write(unsigned rate, unsigned channels) {
        const std::size_t bytes = std::size_t{GetParam().m_bytes} * channels * s_samples;
        const std::string raw = m_tree.write("essence.raw", kit::WavBuilder::pattern(bytes));
        m_path = m_tree.path("movie.aiff");
        peers::writeByFfmpeg(GetParam(), channels, rate, raw, m_path);
    }

    kit::TempTree m_tree;
    std::string m_path;
};

std::string nameOf(const testing::TestParamInfo<peers::Coding>& info) {
    return std::string("As") + info.param.m_ffmpegRaw;
}

}  // namespace

TEST_P(ToolAiff, InfoSaysWhatTheProbeSays) {
    write(44100, 2);
    const peers::AudioFacts facts = peers::probeAudio(m_path);
    const json movie = documentOf(runTool({"info", "--json", m_path}), "info")["movies"][0];
    const json& clip = movie["tracks"][0]["clips"][0];
    EXPECT_EQ(movie["fileType"], "aiff");
    EXPECT_EQ(movie["timeBase"], facts.m_rate);
    EXPECT_EQ(clip["encoding"], facts.m_codec == "pcm_alaw" ? "a-law" : "pcm");
    EXPECT_EQ(clip["sampleRate"], facts.m_rate);
    EXPECT_EQ(clip["channels"], facts.m_channels);
    EXPECT_EQ(clip["bitsPerUnit"], facts.m_bits);
    EXPECT_EQ(clip["samples"], facts.m_samples);
    EXPECT_EQ(clip["bitrate"], facts.m_rate * facts.m_channels * facts.m_bits);
    EXPECT_EQ(clip["endian"], facts.m_codec == "pcm_s16le" ? "lendian" : "bendian");
    for (const char* name : {"chroma", "scan", "sequenceCoding"})
        EXPECT_FALSE(clip.contains(name)) << name;
}

TEST_P(ToolAiff, EveryByteIsReadInSamplesAndInFrames) {
    for (const unsigned rate : {48000u, 44100u, 32000u, 8000u}) {
        SCOPED_TRACE(rate);
        write(rate, 1);
        const std::string essence = peers::essenceOf(m_path);
        EXPECT_TRUE(runTool({"read", m_path}).m_out == essence);
        EXPECT_TRUE(runTool({"read", m_path, "--frames"}).m_out == essence);
        m_tree.remove("movie.aiff");
    }
}

INSTANTIATE_TEST_SUITE_P(Written, ToolAiff, testing::ValuesIn(peers::s_aiffCodings), nameOf);
