// How the tool ends, and what it says, when something doesn't work.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/integration/tool_kit.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

class ToolFailures : public testing::Test {
protected:
    std::string wav(unsigned samples = 48000) {
        WavRecipe recipe;
        recipe.m_samples = samples;
        return writeWav(m_tree, "movie.wav", recipe);
    }
    // Larger than what a pipe takes.
    std::string largeWav() { return wav(48000 * 60); }

    kit::TempTree m_tree;
};

// Runs it for people and for programs: both must end alike and say the same.
void expectFailure(const std::vector<std::string>& arguments, int exit, const std::string& sentence, int number) {
    const kit::Outcome plain = runTool(arguments);
    EXPECT_EQ(plain.m_exit, exit);
    EXPECT_EQ(plain.m_err, "mediacore: " + sentence + "\n");
    EXPECT_EQ(plain.m_out, "");
    std::vector<std::string> withJson = {arguments[0], "--json"};
    withJson.insert(withJson.end(), arguments.begin() + 1, arguments.end());
    const kit::Outcome outcome = runTool(withJson);
    EXPECT_EQ(outcome.m_exit, exit);
    EXPECT_EQ(outcome.m_err, plain.m_err);
    const bool isInfo = arguments[0] == "info";
    const json document = documentOf(outcome, isInfo ? "info" : "error");
    const json error = isInfo ? document["movies"][0]["error"] : document["error"];
    EXPECT_EQ(error["number"], number);
    EXPECT_THAT(sentence, HasSubstr(error["code"].get<std::string>()));
    EXPECT_THAT(sentence, HasSubstr(error["message"].get<std::string>()));
}

}  // namespace

TEST_F(ToolFailures, AMissingFileIsThree) {
    const std::string path = m_tree.path("none.wav");
    for (const char* command : {"info", "frames"}) {
        expectFailure({command, path}, 3, path + ": file non-existant: No such file or directory", 6);
    }
    expectFailure({"read", path, "-o", m_tree.path("out")}, 3, path + ": file non-existant: No such file or directory",
                  6);
    EXPECT_FALSE(m_tree.exists("out"));
}

TEST_F(ToolFailures, AnEmptyNameIsThree) {
    expectFailure({"info", ""}, 3, "'': file non-existant: No such file or directory", 6);
}

TEST_F(ToolFailures, ANameThatIsTooLongIsThree) {
    const std::string path = m_tree.path(std::string(5000, 'x'));
    expectFailure({"info", path}, 3, path + ": file non-existant: File name too long", 6);
}

TEST_F(ToolFailures, AFileWithoutPermissionIsThree) {
    const std::string path = wav();
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    kit::Command command = toolCommand({"info", "--json", path});
    command.m_privileged = false;
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 3);
    EXPECT_EQ(outcome.m_err, "mediacore: " + path + ": file not readable: Permission denied\n");
    const json error = documentOf(outcome, "info")["movies"][0]["error"];
    EXPECT_EQ(error,
              (json{{"code", "file not readable"}, {"number", 4}, {"file", path}, {"message", "Permission denied"}}));
}

TEST_F(ToolFailures, AFolderWithoutPermissionIsThree) {
    const std::string path = m_tree.write("folder/movie.wav", "x");
    ASSERT_EQ(::chmod(m_tree.path("folder").c_str(), 0), 0);
    kit::Command command = toolCommand({"info", path});
    command.m_privileged = false;
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 3);
    EXPECT_EQ(outcome.m_err, "mediacore: " + path + ": file not readable: Permission denied\n");
    ASSERT_EQ(::chmod(m_tree.path("folder").c_str(), 0700), 0);
}

TEST_F(ToolFailures, AFolderADeviceAndAPipeAreFour) {
    expectFailure({"info", m_tree.root()}, 4, m_tree.root() + ": unsupported media type: it is a folder", 8);
    expectFailure({"info", "/dev/zero"}, 4, "/dev/zero: unsupported media type: it is no regular file", 8);
    const std::string pipe = m_tree.path("pipe.wav");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    expectFailure({"info", pipe}, 4, pipe + ": unsupported media type: it is no regular file", 8);
}

TEST_F(ToolFailures, ADamagedFileIsFourWithTheReadersSentence) {
    const std::string noise = m_tree.write("noise.wav", "this is no recording at all");
    const kit::Outcome outcome = runTool({"info", noise});
    EXPECT_EQ(outcome.m_exit, 4);
    EXPECT_THAT(outcome.m_err, StartsWith("mediacore: " + noise + ": unsupported media type: wav: "));
    EXPECT_EQ(runTool({"info", m_tree.write("empty.wav", "")}).m_exit, 4);
}

TEST_F(ToolFailures, AnUnsupportedCodingIsFourAndNamed) {
    const std::string path = m_tree.path("float.wav");
    ASSERT_TRUE(
        kit::run({"sox", "-n", "-r", "48000", "-e", "floating-point", "-b", "32", path, "synth", "0.1", "sine", "440"})
            .good());
    const kit::Outcome outcome = runTool({"info", path});
    EXPECT_EQ(outcome.m_exit, 4);
    EXPECT_THAT(outcome.m_err, HasSubstr("floating point"));
}

TEST_F(ToolFailures, OneOfSeveralFilesIsOneAndTheOthersAreTold) {
    const std::string good = wav();
    const kit::Outcome outcome = runTool({"info", "--json", m_tree.path("none.wav"), good, m_tree.root()});
    EXPECT_EQ(outcome.m_exit, 1);
    const json movies = documentOf(outcome, "info")["movies"];
    ASSERT_EQ(movies.size(), 3u);
    EXPECT_EQ(movies[0]["error"]["number"], 6);
    EXPECT_EQ(movies[1]["fileType"], "wav");
    EXPECT_EQ(movies[2]["error"]["number"], 8);
}

TEST_F(ToolFailures, RangesAndTracksThatAreNotThereAreTwo) {
    const std::string path = wav();
    const std::string out = m_tree.path("out");
    const std::string has = "; the track has 48000 samples";
    expectFailure({"read", path, "-o", out, "--from", "48000"}, 2, path + ": out of range: no sample 48000" + has, 11);
    expectFailure({"read", path, "-o", out, "--from", "18446744073709551615"}, 2,
                  path + ": out of range: no sample 18446744073709551615" + has, 11);
    expectFailure({"read", path, "-o", out, "--from", "1", "--count", "48000"}, 2,
                  path + ": out of range: 48000 samples from 1 on" + has, 11);
    expectFailure({"read", path, "-o", out, "--from", "1", "--count", "18446744073709551615"}, 2,
                  path + ": out of range: 18446744073709551615 samples from 1 on" + has, 11);
    expectFailure({"read", path, "-o", out, "--track", "video0"}, 2,
                  path + ": out of range: no track video0; it has: audio0", 11);
    expectFailure({"frames", path, "--from", "30"}, 2, path + ": out of range: no frame 30; the track has 30 frames",
                  11);
    EXPECT_FALSE(m_tree.exists("out"));
}

TEST_F(ToolFailures, RangesInFramesThatAreNotThereAreTwo) {
    const std::string path = wav();
    const std::string out = m_tree.path("out");
    const std::string has = "; the track has 30 frames";
    // At the end, behind it, and where a number of fewer bits would wrap.
    for (const std::string from : {"30", "31", "2147483647", "2147483648", "4294967296", "4294967297",
                                   "9223372036854775807", "9223372036854775808", "18446744073709551615"}) {
        const std::string sentence = path + ": out of range: no frame " + from + has;
        expectFailure({"read", path, "-o", out, "--frames", "--from", from}, 2, sentence, 11);
        expectFailure({"frames", path, "--from", from}, 2, sentence, 11);
    }
    for (const std::string count : {"30", "4294967296", "4294967297", "9223372036854775808", "18446744073709551615"}) {
        const std::string sentence = path + ": out of range: " + count + " frames from 29 on" + has;
        expectFailure({"read", path, "-o", out, "--frames", "--from", "29", "--count", count}, 2, sentence, 11);
        expectFailure({"frames", path, "--from", "29", "--count", count}, 2, sentence, 11);
    }
    EXPECT_FALSE(m_tree.exists("out"));
}

TEST_F(ToolFailures, ANumberThatIsNoneIsTwo) {
    const std::string path = wav();
    for (const std::string text : {"-1", "-0", "1.5", "1e3", "ten", " 1", "1 ", "+1", "0x10", "18446744073709551616"}) {
        for (const std::string option : {"--from", "--count"}) {
            for (const std::string command : {"read", "frames"}) {
                const kit::Outcome outcome = runTool({command, path, option + "=" + text});
                EXPECT_EQ(outcome.m_exit, 2);
                EXPECT_EQ(outcome.m_out, "");
                EXPECT_THAT(outcome.m_err,
                            StartsWith("mediacore: wrong usage: " + option + ": not a number: " + text + "\n"));
            }
        }
    }
}

TEST_F(ToolFailures, ACountOfNothingIsTwo) {
    const std::string path = wav();
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"read", path}, {"read", path, "--frames"}, {"frames", path}}) {
        std::vector<std::string> all = arguments;
        all.insert(all.end(), {"--count", "0"});
        const kit::Outcome outcome = runTool(all);
        EXPECT_EQ(outcome.m_exit, 2);
        EXPECT_EQ(outcome.m_out, "");
        EXPECT_THAT(outcome.m_err, StartsWith("mediacore: wrong usage: --count: 0 asks for nothing\n"));
    }
}

TEST_F(ToolFailures, AMovieThatIsEmptyIsReadAsNothingAndHasNoPart) {
    const std::string path = wav();
    m_tree.write("movie.wav", readFile(path).substr(0, dataOffset(readFile(path))));
    EXPECT_EQ(runTool({"read", path}).m_exit, 0);
    EXPECT_EQ(runTool({"read", path, "--frames"}).m_out, "");
    EXPECT_EQ(runTool({"read", path, "--frames"}).m_exit, 0);
    expectFailure({"read", path, "-o", m_tree.path("out"), "--frames", "--count", "1"}, 2,
                  path + ": out of range: 1 frames from 0 on; the track has 0 frames", 11);
    expectFailure({"frames", path, "--from", "1"}, 2, path + ": out of range: no frame 1; the track has 0 frames", 11);
}

TEST_F(ToolFailures, WrongUsageIsTwoAndSaysWhatIsWrong) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> lines = {
        {{}, "wrong usage: no command is given"},
        {{"bogus"}, "wrong usage: no command bogus"},
        {{"--bogus"}, "wrong usage: no option --bogus"},
        {{"info"}, "wrong usage: FILE is required"},
        {{"read", "x.wav", "--from", "-5"}, "wrong usage: --from: not a number: -5"},
        {{"read", "x.wav", "--from", "0x10"}, "wrong usage: --from: not a number: 0x10"},
        {{"read", "x.wav", "--count", "18446744073709551616"},
         "wrong usage: --count: not a number: 18446744073709551616"},
        {{"read", "x.wav", "--progress", "loud"}, "wrong usage: --progress: not one of bar, plain, json, none: loud"},
        {{"read", "x.wav", "--json"},
         "wrong usage: --json and --field need standard output: say -o FILE for the bytes"},
        {{"info", "-"}, "-: wrong usage: a movie can't be read from standard input"},
        {{"generate", "jam"}, "wrong usage: "},
    };
    for (const auto& [arguments, sentence] : lines) {
        const kit::Outcome outcome = runTool(arguments);
        EXPECT_EQ(outcome.m_exit, 2) << sentence;
        EXPECT_THAT(outcome.m_err, StartsWith("mediacore: " + sentence));
    }
}

TEST_F(ToolFailures, WrongUsageIsADocumentToo) {
    const kit::Outcome outcome = runTool({"read", "--json", "--bogus"});
    EXPECT_EQ(outcome.m_exit, 2);
    EXPECT_EQ(documentOf(outcome, "error")["error"]["code"], "wrong usage");
}

TEST_F(ToolFailures, AReaderThatGoesAwayIsFiveAndThePartIsTold) {
    kit::Command command = toolCommand({"read", largeWav()});
    command.m_closeAfter = 1000;
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 5);
    EXPECT_THAT(outcome.m_err, MatchesRegex("mediacore: standard output: write error: Broken pipe "
                                            "\\([0-9]+ bytes written, [0-9]+ of 2880000 samples whole\\)\n"));
}

TEST_F(ToolFailures, AFullDiskIsFive) {
    expectFailure({"read", wav(), "-o", "/dev/full"}, 5, "/dev/full: write error: No space left on device", 12);
    kit::Command command = toolCommand({"info", wav()});
    command.m_outputFile = "/dev/full";
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 5);
    EXPECT_EQ(outcome.m_err, "mediacore: standard output: write error: No space left on device\n");
}

TEST_F(ToolFailures, ADiskThatFillsUpLeavesAPartThatIsTold) {
    kit::Command command = toolCommand({"read", largeWav(), "-o", m_tree.path("out")});
    command.m_fileSize = 1000000;
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 5);
    EXPECT_THAT(outcome.m_err, StartsWith("mediacore: " + m_tree.path("out") +
                                          ": write error: File too large (1000000 bytes written, "));
    EXPECT_EQ(readFile(m_tree.path("out")).size(), 1000000u);
}

TEST_F(ToolFailures, AClosedStandardOutputIsFive) {
    const std::string path = wav();
    const std::string before = readFile(path);
    for (const char* name : {"info", "frames", "read"}) {
        kit::Command command = toolCommand({name, path});
        command.m_closedOutput = true;
        const kit::Outcome outcome = kit::run(command);
        EXPECT_EQ(outcome.m_exit, 5);
        EXPECT_EQ(outcome.m_err, "mediacore: standard output: write error: Bad file descriptor\n");
    }
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(ToolFailures, ATargetThatCanNotBeMadeIsThree) {
    const std::string target = m_tree.path("no/folder/out");
    expectFailure({"read", wav(), "-o", target}, 3, target + ": file not writable: No such file or directory", 5);
}

TEST_F(ToolFailures, AMovieIsNeverReadIntoItself) {
    const std::string path = wav();
    const std::string before = readFile(path);
    const std::string link = m_tree.path("link.wav");
    ASSERT_EQ(::link(path.c_str(), link.c_str()), 0);
    for (const std::string& target : {path, link}) {
        const kit::Outcome outcome = runTool({"read", path, "-o", target});
        EXPECT_EQ(outcome.m_exit, 2);
        EXPECT_EQ(outcome.m_err, "mediacore: wrong usage: -o " + target + ": this is a file of the movie itself\n");
    }
    kit::Command command = toolCommand({"read", path});
    command.m_outputFile = link;
    EXPECT_EQ(kit::run(command).m_exit, 2);
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(ToolFailures, SignalsEndItWith130) {
    const std::string path = largeWav();
    for (const int number : {SIGINT, SIGTERM}) {
        kit::Command command = toolCommand({"read", path});
        command.m_signalOnOutput = number;
        const kit::Outcome outcome = kit::run(command);
        EXPECT_EQ(outcome.m_exit, 130);
        EXPECT_EQ(outcome.m_signal, 0);
        EXPECT_THAT(
            outcome.m_err,
            MatchesRegex("mediacore: interrupted: \\([0-9]+ bytes written, [0-9]+ of 2880000 samples whole\\)\n"));
    }
}
