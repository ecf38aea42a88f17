// What `mediacore validate` finds in files, and how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/schema_check.h"
#include "tests/integration/tool_kit.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr unsigned s_instants = 1000;
constexpr const char* s_finding = "1000 samples,ch0:,2 over,max=20000,ch1:,ok,ac3:expected 2,got 0 samples";

class ToolValidate : public testing::Test {
protected:
    // An AIFF of stereo words of 16 bits, silent but for a click.
    std::string aiff(const std::string& name, bool hasClick) const {
        std::string raw(s_instants * 4, '\0');
        if (hasClick) raw.replace(2000, 2, "\x4E\x20");
        const std::string source = m_tree.write("raw", raw);
        const kit::Outcome outcome = runTool(
            {"record", m_tree.path(name), "--from", source, "--bits", "16", "--channels", "2", "--endian", "big"});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        return m_tree.path(name);
    }
    std::string lineOf(const std::string& path) const {
        return path + ": audio0, sample 0, 4000 bytes at 54: " + s_finding + "\n";
    }

    kit::TempTree m_tree;
};

}  // namespace

TEST_F(ToolValidate, SoundEssenceIsPassedOverInSilence) {
    const std::string path = aiff("a.aiff", false);
    const kit::Outcome outcome = runTool({"validate", path});
    EXPECT_EQ(outcome.m_exit, 0);
    EXPECT_EQ(outcome.m_out, "");
    EXPECT_EQ(outcome.m_err, "");
    const json document = documentOf(runTool({"validate", "--json", path}), "validate");
    EXPECT_EQ(
        document["files"],
        json::array({{{"path", path}, {"bytes", 4000}, {"unchecked", json::array()}, {"findings", json::array()}}}));
}

TEST_F(ToolValidate, AFindingIsALineAndSeven) {
    const std::string path = aiff("a.aiff", true);
    const kit::Outcome outcome = runTool({"validate", path});
    EXPECT_EQ(outcome.m_exit, 7);
    EXPECT_EQ(outcome.m_out, lineOf(path));
    EXPECT_EQ(outcome.m_err, "");
}

TEST_F(ToolValidate, AFindingIsData) {
    const std::string path = aiff("a.aiff", true);
    const kit::Outcome outcome = runTool({"validate", "--json", path});
    EXPECT_EQ(outcome.m_exit, 7);
    const json document = documentOf(outcome, "validate");
    ASSERT_EQ(document["files"].size(), 1u);
    EXPECT_EQ(
        document["files"][0]["findings"],
        json::array(
            {{{"track", "audio0"}, {"clip", 0}, {"sample", 0}, {"bytes", 4000}, {"offset", 54}, {"text", s_finding}}}));
    const kit::Outcome field = runTool({"validate", "--field", "files.0.findings.0.text", path});
    EXPECT_EQ(field.m_exit, 7);
    EXPECT_EQ(field.m_out, std::string(s_finding) + "\n");
}

TEST_F(ToolValidate, SeveralFilesAreToldOneByOne) {
    const std::string clean = aiff("a.aiff", false), one = aiff("b.aiff", true), two = aiff("c.aiff", true);
    const kit::Outcome outcome = runTool({"validate", one, clean, two});
    EXPECT_EQ(outcome.m_exit, 7);
    EXPECT_EQ(outcome.m_out, lineOf(one) + lineOf(two));
}

TEST_F(ToolValidate, AFileThatFailsCountsMoreThanAFinding) {
    const std::string none = m_tree.path("none.wav"), path = aiff("a.aiff", true);
    const kit::Outcome alone = runTool({"validate", none});
    EXPECT_EQ(alone.m_exit, 3);
    EXPECT_EQ(alone.m_err, "mediacore: " + none + ": file non-existant: No such file or directory\n");
    const kit::Outcome both = runTool({"validate", "--json", none, path});
    EXPECT_EQ(both.m_exit, 1);
    EXPECT_EQ(both.m_err, alone.m_err);
    const json document = documentOf(both, "validate");
    EXPECT_EQ(document["files"][0]["error"]["number"], 6);
    EXPECT_EQ(document["files"][1]["findings"][0]["text"], s_finding);
}

// A bit that stands already stays, and what it asks for is told like a finding.
TEST_F(ToolValidate, StatsAreHadByTheirBit) {
    kit::Command command = toolCommand({"validate", aiff("a.aiff", false)});
    command.m_environment.emplace_back("MEDIACORE_SWITCHES", "mediaValidate=pcm stats");
    EXPECT_THAT(kit::run(command).m_out, HasSubstr(": 1000 samples,ch0:silent,ch1:silent\n"));
}

TEST_F(ToolValidate, TheLimitComesFromItsSwitch) {
    const std::string path = aiff("a.aiff", true);
    kit::Command command = toolCommand({"validate", path});
    command.m_environment.emplace_back("MEDIACORE_SWITCHES", "validatePcmPowerLimit=3");
    EXPECT_EQ(kit::run(command).m_exit, 0);
    command.m_environment.back().second = "validatePcmPowerLimit=4";
    EXPECT_EQ(kit::run(command).m_exit, 7);
}

TEST_F(ToolValidate, FindingsAreNoPartOfTheLog) {
    const std::string path = aiff("a.aiff", true);
    const kit::Outcome some = runTool({"-v", "validate", path});
    EXPECT_EQ(some.m_exit, 7);
    EXPECT_EQ(some.m_out, lineOf(path));
    EXPECT_THAT(some.m_err, testing::Not(HasSubstr("Media validator created")));
    const kit::Outcome all = runTool({"-vv", "validate", path});
    EXPECT_EQ(all.m_out, lineOf(path));
    EXPECT_THAT(all.m_err, HasSubstr("Media validator created: audio,pcm,2chan,48khz,bendian"));
    EXPECT_THAT(all.m_err, testing::Not(HasSubstr("Val:")));
}

TEST_F(ToolValidate, ProgressIsForStandardError) {
    const std::string path = aiff("a.aiff", true);
    const kit::Outcome outcome = runTool({"validate", "--progress=json", path});
    EXPECT_EQ(outcome.m_out, lineOf(path));
    EXPECT_EQ(checkSchema(loadSchema("progress"), json::parse(outcome.m_err, nullptr, false)), "") << outcome.m_err;
    EXPECT_THAT(outcome.m_err, HasSubstr("\"bytes\":4000,\"total\":4000"));
    EXPECT_EQ(runTool({"validate", "--progress=fast", path}).m_exit, 2);
}

TEST_F(ToolValidate, AllTracksOfAMovieAreRead) {
    const std::string path = m_tree.path("a.dv");
    const kit::Outcome made =
        kit::run({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=720x576:rate=25:duration=0.4",
                  "-f", "lavfi", "-i", "sine=sample_rate=48000:duration=0.4", "-target", "pal-dv", path});
    ASSERT_TRUE(made.good()) << made.m_err;
    const kit::Outcome outcome = runTool({"validate", "--json", path});
    EXPECT_EQ(outcome.m_exit, 0);
    // The sound lies in the frames.
    const json file = documentOf(outcome, "validate")["files"][0];
    EXPECT_EQ(file["bytes"], 10 * 144000);
    EXPECT_EQ(file["unchecked"].size(), 2u) << file;
}

TEST_F(ToolValidate, TracksThatNobodyChecksAreNamed) {
    struct Case {
        const char *m_video, *m_audio;
        json m_unchecked;
    };
    const std::vector<Case> cases = {{"dvvideo", "pcm_s16be", {"video0"}},
                                     {"libx264", "pcm_s16le", {"video0", "audio0"}},
                                     {"libx264", "pcm_s24le", {"video0", "audio0"}},
                                     {"libx264", "pcm_alaw", {"video0", "audio0"}}};
    for (const Case& one : cases) {
        SCOPED_TRACE(std::string(one.m_video) + " " + one.m_audio);
        const std::string path = m_tree.path(std::string(one.m_video) + one.m_audio + ".mov");
        const kit::Outcome made = kit::run({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                                            "testsrc=size=720x576:rate=25:duration=0.2", "-f", "lavfi", "-i",
                                            "sine=sample_rate=48000:duration=0.2", "-c:v", one.m_video, "-pix_fmt",
                                            "yuv420p", "-c:a", one.m_audio, path});
        ASSERT_TRUE(made.good()) << made.m_err;
        const kit::Outcome data = runTool({"validate", "--json", path});
        EXPECT_EQ(data.m_exit, 0) << data.m_out;
        EXPECT_EQ(data.m_err, "");
        const json file = documentOf(data, "validate")["files"][0];
        EXPECT_EQ(file["unchecked"], one.m_unchecked);
        EXPECT_EQ(file["findings"], json::array());
        const kit::Outcome text = runTool({"-v", "validate", path});
        EXPECT_EQ(text.m_exit, 0);
        EXPECT_EQ(text.m_out, "");
        for (const json& track : one.m_unchecked)
            EXPECT_THAT(text.m_err, HasSubstr(path + ": nobody checks " + track.get<std::string>()));
    }
}

TEST_F(ToolValidate, AClickInAMovieFileIsFound) {
    const std::string path = m_tree.path("a.mov");
    const kit::Outcome made =
        kit::run({"ffmpeg", "-nostdin", "-v", "error", "-i", aiff("a.aiff", true), "-c:a", "copy", path});
    ASSERT_TRUE(made.good()) << made.m_err;
    const kit::Outcome outcome = runTool({"validate", path});
    EXPECT_EQ(outcome.m_exit, 7);
    EXPECT_THAT(outcome.m_out, StartsWith(path + ": audio0, sample 0, 4000 bytes at "));
    EXPECT_THAT(outcome.m_out, HasSubstr(s_finding));
}

TEST_F(ToolValidate, AMovieFileThatIsNoneIsNotUnderstood) {
    EXPECT_EQ(runTool({"validate", m_tree.write("a.mov", std::string(1000, 'x'))}).m_exit, 4);
}

TEST_F(ToolValidate, AFileIsWanted) { EXPECT_EQ(runTool({"validate"}).m_exit, 2); }
