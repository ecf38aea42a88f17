// Facts, pictures and sound of DV, beside what the program says that wrote it. Sound lies in the frames of the picture.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/dv_peers.h"
#include "tests/integration/tool_kit.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

class ToolDv : public testing::TestWithParam<dvpeers::Kind> {
protected:
    void SetUp() override {
        m_path = m_tree.path("tape.dv");
        dvpeers::write(GetParam(), m_path);
    }

    // What the tool reads, a failed test when it fails.
    std::string read(const std::vector<std::string>& arguments) const {
        std::vector<std::string> all = {"read", m_path};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const kit::Outcome outcome = runTool(all);
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        EXPECT_EQ(outcome.m_err, "");
        return outcome.m_out;
    }
    json frames(const std::string& track) const {
        return documentOf(runTool({"frames", m_path, "--track", track, "--json"}), "frames")["frames"];
    }
    // Every part of a track by frames is these frames of the stream.
    void expectParts(const std::string& track, const std::string& stream, std::size_t size) const {
        const std::size_t last = stream.size() / size - 1;
        const std::pair<std::size_t, std::size_t> parts[] = {{0, 1}, {1, 2}, {last, 1}, {3, last - 3}};
        for (const auto& [from, count] : parts) {
            const std::string part =
                read({"--track", track, "--frames", "--from", std::to_string(from), "--count", std::to_string(count)});
            EXPECT_TRUE(part == stream.substr(from * size, count * size)) << track << " " << from << " " << count;
        }
    }
    bool hasSound() const { return GetParam().m_pairs != 0; }

    kit::TempTree m_tree;
    std::string m_path;
};

json probe(const std::string& path) {
    const kit::Outcome outcome =
        kit::run({"ffprobe", "-v", "error", "-show_streams", "-show_format", "-of", "json", "file:" + path});
    return json::parse(outcome.m_out);
}

unsigned long long numberOf(const json& text) { return std::stoull(text.get<std::string>()); }

// The probe's notation: a semicolon ahead of the frames where some are dropped.
std::string timecodeOf(const json& timecode) {
    std::string text = timecode["text"];
    text[text.find('.')] = timecode["dropFrame"].get<bool>() ? ';' : ':';
    return text;
}

std::string chromaOf(const std::string& pixels) {
    return pixels == "yuv420p" ? "4:2:0" : pixels == "yuv411p" ? "4:1:1" : "4:2:2";
}

std::string nameOf(const testing::TestParamInfo<dvpeers::Kind>& info) {
    std::string name;
    for (const char* c = info.param.m_name; *c != '\0'; ++c)
        name += std::isalnum(static_cast<unsigned char>(*c)) != 0 ? *c : '_';
    return name;
}

// The probe also lists pairs for which there is room only; what was written comes first.
void expectSound(const json& track, const json& streams, unsigned pairs) {
    unsigned channels = 0;
    unsigned long long bitrate = 0;
    for (const json& stream : streams) {
        if (stream["codec_type"] != "audio" || channels == pairs * 2) continue;
        channels += stream["channels"].get<unsigned>();
        bitrate += numberOf(stream["bit_rate"]);
        EXPECT_EQ(track["clips"][0]["sampleRate"], numberOf(stream["sample_rate"]));
        EXPECT_EQ(track["clips"][0]["bitsPerUnit"], stream["bits_per_sample"]);
    }
    EXPECT_EQ(track["name"], "audio0");
    EXPECT_EQ(track["clips"][0]["channels"], channels);
    EXPECT_EQ(track["clips"][0]["bitrate"], bitrate);
    EXPECT_FALSE(track.contains("width"));
}

}  // namespace

TEST_P(ToolDv, InfoSaysWhatTheProbeSays) {
    const json said = probe(m_path);
    const json& picture = said["streams"][0];
    const json movie = documentOf(runTool({"info", "--json", m_path}), "info")["movies"][0];
    const json& track = movie["tracks"][0];
    const json& clip = track["clips"][0];
    EXPECT_EQ(movie["fileType"], "dv");
    EXPECT_EQ(movie["frames"], picture["duration_ts"]);
    EXPECT_NEAR(movie["durationSeconds"].get<double>(), std::stod(picture["duration"].get<std::string>()), 1e-6);
    EXPECT_EQ(timecodeOf(movie["timecode"]), said["format"]["tags"]["timecode"]);
    EXPECT_EQ(track["name"], "video0");
    EXPECT_EQ(track["width"], picture["width"]);
    EXPECT_EQ(track["height"], picture["height"]);
    EXPECT_EQ(track["aspect"], picture["display_aspect_ratio"]);
    EXPECT_EQ(clip["chroma"], chromaOf(picture["pix_fmt"]));
    EXPECT_EQ(clip["scan"], picture["height"] == 720 ? "progressive" : "interlaced");
    EXPECT_EQ(clip["sequenceCoding"], "intra");
    EXPECT_EQ(std::to_string(clip["sampleRate"].get<unsigned>()) + "/" +
                  std::to_string(clip["ticksPerSample"].get<unsigned>()),
              picture["r_frame_rate"]);
    EXPECT_EQ(clip["samples"], picture["duration_ts"]);
    // The probe's comes from a duration in whole microseconds.
    const auto bitrate = static_cast<double>(numberOf(said["format"]["bit_rate"]));
    EXPECT_NEAR(clip["bitrate"].get<double>(), bitrate, bitrate * 2e-6);
    ASSERT_EQ(movie["tracks"].size(), hasSound() ? 2u : 1u);
    if (hasSound()) expectSound(movie["tracks"][1], said["streams"], GetParam().m_pairs);
    EXPECT_FALSE(movie.contains("gopLength"));
    EXPECT_FALSE(track.contains("syncAdjustment"));
}

TEST_P(ToolDv, PicturesAreReadAsTheyAreCopied) {
    const std::string stream = dvpeers::framesOf(m_path);
    const json listed = frames("video0");
    ASSERT_GT(listed.size(), 5u);
    const std::size_t size = stream.size() / listed.size();
    for (std::size_t i = 0; i < listed.size(); ++i)
        EXPECT_EQ(
            listed[i],
            (json{{"frame", i}, {"sample", i}, {"count", 1}, {"offset", i * size}, {"bytes", size}, {"coding", "I"}}));
    EXPECT_TRUE(read({"--track", "video0"}) == stream);
    EXPECT_TRUE(read({"--track", "video0", "--frames"}) == stream);
    EXPECT_TRUE(read({"--track", "video0", "--from", "2", "--count", "3"}) == stream.substr(2 * size, 3 * size));
    expectParts("video0", stream, size);
}

TEST_P(ToolDv, SoundIsReadInTheFramesThatItRidesIn) {
    if (!hasSound()) {
        EXPECT_THAT(runTool({"read", m_path, "--track", "audio0"}).m_err,
                    HasSubstr("no track audio0; it has: video0\n"));
        return;
    }
    const std::string stream = dvpeers::framesOf(m_path);
    const json listed = frames("audio0");
    const std::size_t size = stream.size() / listed.size();
    unsigned long long samples = 0;
    for (std::size_t i = 0; i < listed.size(); ++i) {
        EXPECT_EQ(listed[i]["sample"], samples);
        EXPECT_EQ(listed[i]["offset"], i * size);
        EXPECT_EQ(listed[i]["bytes"], size);
        EXPECT_FALSE(listed[i].contains("coding"));
        samples += listed[i]["count"].get<unsigned long long>();
    }
    EXPECT_EQ(std::to_string(samples) + "\n", runTool({"info", m_path, "--field", "tracks.1.clips.0.samples"}).m_out);
    EXPECT_TRUE(read({"--track", "audio0", "--frames"}) == stream);
    EXPECT_TRUE(read({"--track", "audio0"}) == stream);
    expectParts("audio0", stream, size);
}

INSTANTIATE_TEST_SUITE_P(Written, ToolDv, testing::ValuesIn(dvpeers::s_kinds), nameOf);

namespace {

// A movie of sound and picture that needs no fact of its kind.
class ToolTape : public testing::Test {
protected:
    std::string write(const dvpeers::Kind& kind) {
        dvpeers::write(kind, m_tree.path("tape.dv"));
        return m_tree.path("tape.dv");
    }

    kit::TempTree m_tree;
};

const dvpeers::Kind s_ntsc = {"NTSC", "720x480", "30000/1001", "yuv411p", 48000, 1, "4:3", "01:02:03;04"};

}  // namespace

TEST_F(ToolTape, TheCadenceOfItsSoundIsInTheFrames) {
    struct Cadence {
        dvpeers::Kind m_kind;
        std::vector<unsigned> m_counts;
    };
    const dvpeers::Kind pal32k = {"PAL", "720x576", "25", "yuv420p", 32000, 1};
    const dvpeers::Kind pal44k = {"PAL", "720x576", "25", "yuv420p", 44100, 1};
    const std::vector<Cadence> cadences = {
        {s_ntsc, {1600, 1602, 1602, 1602, 1602, 1600, 1602, 1602, 1602, 1602, 1600}},
        {pal32k, {1280, 1280, 1280, 1280, 1280, 1280, 1280, 1280, 1280, 1280, 1280}},
        {pal44k, {1764, 1764, 1764, 1764, 1764, 1764, 1764, 1764, 1764, 1764, 1764}},
    };
    for (const Cadence& cadence : cadences) {
        const std::string path = write(cadence.m_kind);
        const kit::Outcome outcome = runTool({"frames", path, "--track", "audio0", "--count", "11", "--json"});
        const json frames = documentOf(outcome, "frames")["frames"];
        ASSERT_EQ(frames.size(), cadence.m_counts.size());
        for (std::size_t i = 0; i < frames.size(); ++i)
            EXPECT_EQ(frames[i]["count"], cadence.m_counts[i]) << cadence.m_kind.m_sampleRate << " Hz, " << i;
    }
}

TEST_F(ToolTape, TheTextOfPicturesTellsTheirCoding) {
    const kit::Outcome outcome = runTool({"frames", write(s_ntsc), "--track", "video0", "--from", "1", "--count", "1"});
    EXPECT_EQ(outcome.m_out,
              "     frame         sample    count           offset      bytes  coding\n"
              "         1              1        1           120000     120000  I\n");
}

TEST_F(ToolTape, InfoForPeopleHasTheFacts) {
    const std::string path = write(s_ntsc);
    const std::string text = runTool({"info", path}).m_out;
    EXPECT_THAT(text, HasSubstr("  timecode  01:02:03.04, drop-frame\n  video0    "));
    EXPECT_THAT(text, HasSubstr(" ticks, 720x480, 4:3\n            dv, 30000/1001 Hz, 4:1:1, interlaced, intra, "
                                "28771229 bits/s, "));
    EXPECT_THAT(text, HasSubstr("            dv, 48000 Hz, 2 channels, 16 bits bendian, 1536000 bits/s, "));
    EXPECT_EQ(runTool({"info", path, "--field", "timecode.text"}).m_out, "01:02:03.04\n");
    EXPECT_EQ(runTool({"info", path, "--field", "tracks.0.properties.dvcPro"}).m_out, "1\n");
}

TEST_F(ToolTape, APartOfItsSoundIsAskedForInFrames) {
    const std::string path = write(s_ntsc);
    for (const std::vector<std::string>& part : {std::vector<std::string>{"--from", "0"}, {"--count", "1602"}}) {
        std::vector<std::string> arguments = {"read", path, "--track", "audio0", "-o", m_tree.path("out"), "--json"};
        arguments.insert(arguments.end(), part.begin(), part.end());
        const kit::Outcome outcome = runTool(arguments);
        EXPECT_EQ(outcome.m_exit, 2);
        EXPECT_EQ(
            outcome.m_err,
            "mediacore: " + path +
                ": wrong usage: the samples of this track lie inside video frames: say --frames to count those\n");
        EXPECT_EQ(documentOf(outcome, "error")["error"]["code"], "wrong usage");
        EXPECT_FALSE(m_tree.exists("out"));
    }
}

TEST_F(ToolTape, ReadTellsTheUnitThatItCounted) {
    const std::string path = write(s_ntsc);
    const std::string out = m_tree.path("out");
    const kit::Outcome outcome =
        runTool({"read", path, "--track", "audio0", "--frames", "--from", "4", "--count", "2", "-o", out, "--json"});
    EXPECT_EQ(documentOf(outcome, "read")["read"], (json{{"path", path},
                                                         {"track", "audio0"},
                                                         {"unit", "frame"},
                                                         {"from", 4},
                                                         {"count", 2},
                                                         {"samples", 3202},
                                                         {"bytes", 240000},
                                                         {"output", out}}));
}

TEST_F(ToolTape, OfSeveralTracksOneMustBeNamed) {
    const std::string path = write(s_ntsc);
    for (const char* command : {"read", "frames"}) {
        const kit::Outcome outcome = runTool({command, path});
        EXPECT_EQ(outcome.m_exit, 2);
        EXPECT_EQ(outcome.m_err, "mediacore: " + path + ": out of range: say which track; it has: video0, audio0\n");
    }
}

TEST_F(ToolTape, AStreamThatWasCutEndsWithItsLastWholeFrame) {
    const std::string path = write(s_ntsc);
    const std::string stream = readFile(path);
    m_tree.write("tape.dv", stream.substr(0, 6 * 120000 + 5000));
    for (const char* track : {"video0", "audio0"}) {
        const kit::Outcome outcome = runTool({"read", path, "--track", track, "--frames"});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        EXPECT_TRUE(outcome.m_out == stream.substr(0, 6 * 120000));
    }
}
