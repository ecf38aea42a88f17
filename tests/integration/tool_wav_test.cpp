// Facts and samples of WAVs, beside what the program says that wrote them or another independent one.

#include <gtest/gtest.h>

#include "tests/integration/tool_kit.h"

using nlohmann::json;

namespace {

class ToolWav : public testing::TestWithParam<WavRecipe> {
protected:
    void SetUp() override { m_path = writeWav(m_tree, "movie.wav", GetParam()); }

    kit::TempTree m_tree;
    std::string m_path;
};

// What ffprobe says of the one stream.
json probe(const std::string& path) {
    const kit::Outcome outcome = kit::run({"ffprobe", "-v", "error", "-show_streams", "-of", "json", "file:" + path});
    return json::parse(outcome.m_out)["streams"][0];
}

std::string nameOf(const testing::TestParamInfo<WavRecipe>& info) {
    const WavRecipe& recipe = info.param;
    return recipe.m_writer + "_" + std::to_string(recipe.m_rate) + "_" + std::to_string(recipe.m_channels) + "ch_" +
           recipe.m_codec + "_" + std::to_string(recipe.m_samples) + (recipe.m_rf64 ? "_rf64" : "");
}

}  // namespace

TEST_P(ToolWav, InfoSaysWhatTheProbeSays) {
    const json stream = probe(m_path);
    const kit::Outcome outcome = runTool({"info", "--json", m_path});
    ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const json movie = documentOf(outcome, "info")["movies"][0];
    const json track = movie["tracks"][0];
    const json clip = track["clips"][0];
    EXPECT_EQ(movie["path"], m_path);
    EXPECT_EQ(movie["fileType"], "wav");
    EXPECT_EQ(movie["tracks"].size(), 1u);
    EXPECT_EQ(movie["timeBase"], GetParam().m_rate);
    EXPECT_NEAR(movie["durationSeconds"].get<double>(), std::stod(stream["duration"].get<std::string>()), 1e-6);
    EXPECT_EQ(movie["files"][0]["path"], m_path);
    EXPECT_EQ(movie["files"][0]["bytes"], readFile(m_path).size());
    EXPECT_EQ(track["name"], "audio0");
    EXPECT_EQ(track["type"], stream["codec_type"]);
    EXPECT_EQ(track["length"], stream["duration_ts"]);
    EXPECT_EQ(clip["samples"], stream["duration_ts"]);
    EXPECT_EQ(clip["encoding"], stream["codec_name"] == "pcm_alaw" ? "a-law" : "pcm");
    EXPECT_EQ(std::to_string(clip["sampleRate"].get<unsigned>()), stream["sample_rate"]);
    EXPECT_EQ(clip["channels"], stream["channels"]);
    EXPECT_EQ(clip["bitsPerUnit"], stream["bits_per_sample"]);
    EXPECT_EQ(std::to_string(clip["bitrate"].get<unsigned>()), stream["bit_rate"]);
    EXPECT_EQ(clip["endian"], "lendian");
    EXPECT_EQ(clip["file"], m_path);
}

TEST_P(ToolWav, ReadGivesTheBytesOfTheDataChunk) {
    const kit::Outcome outcome = runTool({"read", m_path, "--track", "audio0", "-o", "-"});
    ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_err, "");
    const std::string file = readFile(m_path);
    const std::size_t bytes = std::size_t{GetParam().m_samples} * GetParam().m_channels * GetParam().bits() / 8;
    EXPECT_EQ(outcome.m_out.size(), bytes);
    EXPECT_TRUE(outcome.m_out == file.substr(dataOffset(file), bytes));
    EXPECT_TRUE(outcome.m_out == samplesByFfmpeg(m_path, GetParam().m_codec));
}

TEST_P(ToolWav, PartsOfATrackAreExactToTheSample) {
    const std::size_t sample = std::size_t{GetParam().m_channels} * GetParam().bits() / 8;
    const std::string all = samplesByFfmpeg(m_path, GetParam().m_codec);
    const std::size_t last = GetParam().m_samples - 1;
    const std::vector<std::pair<std::size_t, std::size_t>> parts = {
        {0, 1}, {1, 2}, {last - 1, 2}, {last, 1}, {7, last - 9}};
    for (const auto& [from, count] : parts) {
        const kit::Outcome outcome =
            runTool({"read", m_path, "--from", std::to_string(from), "--count", std::to_string(count)});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        EXPECT_TRUE(outcome.m_out == all.substr(from * sample, count * sample)) << from << " " << count;
    }
}

TEST_P(ToolWav, FramesFollowOneAnotherThroughTheDataChunk) {
    const kit::Outcome outcome = runTool({"frames", m_path, "--track", "audio0", "--json"});
    ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const json frames = documentOf(outcome, "frames")["frames"];
    const std::size_t start = dataOffset(readFile(m_path));
    const std::size_t sample = std::size_t{GetParam().m_channels} * GetParam().bits() / 8;
    ASSERT_FALSE(frames.empty());
    std::size_t expected = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i]["frame"], i);
        EXPECT_EQ(frames[i]["sample"], expected);
        EXPECT_EQ(frames[i]["offset"], start + expected * sample);
        EXPECT_EQ(frames[i]["bytes"], frames[i]["count"].get<std::size_t>() * sample);
        expected += frames[i]["count"].get<std::size_t>();
    }
    EXPECT_EQ(expected, GetParam().m_samples);
}

TEST_P(ToolWav, ReadByFramesGivesTheSamplesOfEachFrame) {
    const std::string all = samplesByFfmpeg(m_path, GetParam().m_codec);
    EXPECT_TRUE(runTool({"read", m_path, "--frames"}).m_out == all);
    const json frames = documentOf(runTool({"frames", m_path, "--json"}), "frames")["frames"];
    const std::size_t sample = all.size() / GetParam().m_samples;
    const std::size_t last = frames.size() - 1;
    const std::pair<std::size_t, std::size_t> parts[] = {{0, 1}, {1, 1}, {last / 2, 1}, {last, 1}, {1, last}};
    for (const auto& [from, count] : parts) {
        if (from + count > frames.size()) continue;
        const std::string part =
            runTool({"read", m_path, "--frames", "--from", std::to_string(from), "--count", std::to_string(count)})
                .m_out;
        const json& end = frames[from + count - 1];
        const std::size_t first = frames[from]["sample"],
                          behind = end["sample"].get<std::size_t>() + end["count"].get<std::size_t>();
        EXPECT_TRUE(part == all.substr(first * sample, (behind - first) * sample)) << from << " " << count;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Written, ToolWav,
    testing::Values(WavRecipe{"sox", 48000, 1, "pcm_s16le", 68545}, WavRecipe{"sox", 48000, 2, "pcm_s24le", 48000},
                    WavRecipe{"sox", 44100, 2, "pcm_s16le", 44101}, WavRecipe{"sox", 32000, 6, "pcm_s32le", 32000},
                    WavRecipe{"sox", 8000, 1, "pcm_u8", 8001}, WavRecipe{"sox", 8000, 2, "pcm_alaw", 8000},
                    WavRecipe{"ffmpeg", 48000, 2, "pcm_s16le", 96003},
                    WavRecipe{"ffmpeg", 96000, 8, "pcm_s24le", 200000},
                    WavRecipe{"ffmpeg", 48000, 3, "pcm_s32le", 3000}, WavRecipe{"ffmpeg", 44100, 1, "pcm_u8", 4411},
                    WavRecipe{"ffmpeg", 48000, 2, "pcm_s24le", 48000, true},
                    WavRecipe{"ffmpeg", 8000, 1, "pcm_alaw", 8000}),
    nameOf);

TEST(ToolFrames, TheCadenceOf2997IsInTheFrames) {
    kit::TempTree tree;
    const std::string path = writeWav(tree, "movie.wav", {});
    const kit::Outcome outcome = runTool({"frames", path, "--from", "10", "--count", "5", "--json"});
    const json frames = documentOf(outcome, "frames")["frames"];
    const std::size_t start = dataOffset(readFile(path));
    const std::vector<unsigned> samples = {16016, 17616, 19218, 20820, 22422};
    const std::vector<unsigned> counts = {1600, 1602, 1602, 1602, 1602};
    ASSERT_EQ(frames.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(frames[i], (json{{"frame", 10 + i},
                                   {"sample", samples[i]},
                                   {"count", counts[i]},
                                   {"offset", start + samples[i] * 4},
                                   {"bytes", counts[i] * 4}}));
    }
}

TEST(ToolFrames, TheLastFrameHasTheSamplesThatAreLeft) {
    kit::TempTree tree;
    const std::string path = writeWav(tree, "movie.wav", {});
    const json frames = documentOf(runTool({"frames", path, "--from", "29", "--json"}), "frames")["frames"];
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0]["sample"], 46446);
    EXPECT_EQ(frames[0]["count"], 48000 - 46446);
}

TEST(ToolFrames, AFewSamplesBehindTheLastWholeFrameAreAFrame) {
    kit::TempTree tree;
    for (const unsigned more : {1u, 2u, 3u, 100u}) {
        WavRecipe recipe;
        recipe.m_samples = 8008 + more;
        const std::string path = writeWav(tree, "movie.wav", recipe);
        const json frames = documentOf(runTool({"frames", path, "--json"}), "frames")["frames"];
        ASSERT_EQ(frames.size(), 6u);
        EXPECT_EQ(frames[5]["sample"], 8008);
        EXPECT_EQ(frames[5]["count"], more);
        EXPECT_EQ(runTool({"read", path, "--frames", "--from", "5"}).m_out.size(), more * 4);
    }
}

TEST(ToolFrames, SoundAloneOfARateWithoutACadenceFallsToSeconds) {
    kit::TempTree tree;
    WavRecipe recipe;
    recipe.m_rate = 96000;
    recipe.m_samples = 100000;
    const std::string path = writeWav(tree, "movie.wav", recipe);
    const json frames = documentOf(runTool({"frames", path, "--json"}), "frames")["frames"];
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0]["count"], 96000);
    EXPECT_EQ(frames[1]["count"], 4000);
}

TEST(ToolInfo, PropertiesOfABroadcastWavAreWhole) {
    kit::TempTree tree;
    const std::string path = tree.path("movie.wav");
    ASSERT_TRUE(kit::run({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "sine=r=48000", "-t", "0.1",
                          "-write_bext", "1", "-metadata", "time_reference=8640000000", "-metadata",
                          "umid=0x060A2B340101010501010D21130000001234567890ABCDEF1234567890ABCDEF", path})
                    .good());
    const json movie = documentOf(runTool({"info", "--json", path}), "info")["movies"][0];
    EXPECT_EQ(movie["properties"]["firstFrame"], 8640000000);
    EXPECT_EQ(movie["properties"]["umidValue"],
              "0x060a2b340101010501010d21130000001234567890abcdef1234567890abcdef" + std::string(64, '0'));
    EXPECT_EQ(runTool({"info", path, "--field", "properties.firstFrame"}).m_out, "8640000000\n");
}

TEST(ToolFrames, TheTextHasALineAFrame) {
    kit::TempTree tree;
    const std::string path = writeWav(tree, "movie.wav", {});
    const kit::Outcome outcome = runTool({"frames", path, "--count", "2"});
    EXPECT_EQ(outcome.m_out,
              "     frame         sample    count           offset      bytes\n"
              "         0              0     1600               44       6400\n"
              "         1           1600     1602             6444       6408\n");
}
