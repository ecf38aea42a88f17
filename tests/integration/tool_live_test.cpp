// Commands that go on: watch, play and record, beside other processes that change the movie.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/integration/dv_peers.h"
#include "tests/integration/schema_check.h"
#include "tests/integration/tool_kit.h"
#include "tests/kit/wait_for.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

constexpr unsigned s_rate = 48000, s_size = 6;  // a sample of two channels, 24 bits each

std::string patternOf(std::size_t samples) {
    std::string bytes(samples * s_size, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = kit::TempTree::patternAt(i);
    return bytes;
}

std::vector<json> linesOf(const std::string& text, const std::string& schema) {
    std::vector<json> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(json::parse(line, nullptr, false));
        EXPECT_EQ(checkSchema(loadSchema(schema), lines.back()), "") << line;
    }
    return lines;
}

std::vector<std::string> eventsOf(const std::vector<json>& lines) {
    std::vector<std::string> events;
    for (const json& line : lines)
        events.push_back(line["event"]);
    return events;
}

class ToolLive : public testing::Test {
protected:
    // A process that records from standard input.
    std::unique_ptr<kit::Process> record(const std::string& name) const {
        return std::make_unique<kit::Process>(toolCommand({"record", m_tree.path(name), "--from", "-", "--jsonl"}));
    }
    std::unique_ptr<kit::Process> watch(const std::string& path) const {
        auto process = std::make_unique<kit::Process>(toolCommand({"watch", "--jsonl", path}));
        EXPECT_TRUE(process->waitForOutput("\"opened\"")) << process->err();
        return process;
    }
    std::string raw(std::size_t samples) const { return m_tree.write("raw", patternOf(samples)); }
    // The samples in the file, behind its header.
    static std::string samplesOf(const std::string& path) {
        const kit::Outcome outcome = runTool({"read", path, "-o", "-"});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        return outcome.m_out;
    }

    kit::TempTree m_tree;
};

}  // namespace

TEST_F(ToolLive, WhatIsRecordedIsWhatTheMovieHolds) {
    const std::string source = raw(100001);
    for (const std::string name : {"a.wav", "a.aif"}) {
        const std::string path = m_tree.path(name);
        const kit::Outcome outcome =
            runTool({"record", path, "--from", source, "--rate", "44100", "--channels", "3", "--bits", "16", "--json"});
        ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
        const json recorded = documentOf(outcome, "record")["record"];
        EXPECT_EQ(recorded["samples"], 100001);
        EXPECT_EQ(recorded["bytes"], 600006);
        EXPECT_EQ(recorded["interrupted"], false);
        EXPECT_TRUE(samplesOf(path) == patternOf(100001)) << name;
        const json movie = documentOf(runTool({"info", "--json", path}), "info")["movies"][0];
        EXPECT_EQ(movie["tracks"][0]["clips"][0]["sampleRate"], 44100);
        EXPECT_EQ(movie["tracks"][0]["clips"][0]["channels"], 3);
        EXPECT_EQ(movie["recording"], false);
    }
}

TEST_F(ToolLive, EachSecondIsToldOnceItIsSafe) {
    const std::unique_ptr<kit::Process> recorder = record("a.wav");
    ASSERT_TRUE(recorder->feed(patternOf(s_rate)));
    ASSERT_TRUE(recorder->waitForOutput("\"samples\":48000")) << recorder->err();
    // What another process reads at this moment holds all of it.
    EXPECT_TRUE(samplesOf(m_tree.path("a.wav")) == patternOf(s_rate));
    ASSERT_TRUE(recorder->feed(patternOf(s_rate + 100).substr(std::size_t{s_rate} * s_size)));
    recorder->endInput();
    const kit::Outcome outcome = recorder->wait();
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const std::vector<json> lines = linesOf(outcome.m_out, "record-event");
    EXPECT_EQ(eventsOf(lines), (std::vector<std::string>{"safe", "safe", "done"}));
    EXPECT_EQ(lines.back()["samples"], s_rate + 100);
    EXPECT_EQ(lines.back()["track"], "audio0");
    EXPECT_EQ(outcome.m_err, "");
}

TEST_F(ToolLive, AStreamOfDvIsRecordedFrameByFrame) {
    for (const char* rate : {"25", "30000/1001"}) {
        const bool isOf50 = std::string(rate) == "25";
        const std::string source = m_tree.path(isOf50 ? "s50.dv" : "s60.dv"),
                          path = m_tree.path("out" + source.substr(source.size() - 6));
        dvpeers::write({"", isOf50 ? "720x576" : "720x480", rate, isOf50 ? "yuv420p" : "yuv411p", 48000, 1}, source);
        const std::string stream = readFile(source);
        const kit::Outcome outcome = runTool({"record", path, "--from", source, "--jsonl"});
        ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
        const json done = linesOf(outcome.m_out, "record-event").back();
        EXPECT_EQ(done["track"], "video0");
        EXPECT_EQ(done["samples"], stream.size() / (isOf50 ? 144000 : 120000));
        EXPECT_TRUE(readFile(path) == stream) << rate;
        const kit::Outcome played = runTool({"play", path, "--track", "video0"});
        EXPECT_TRUE(played.m_out == stream) << played.m_err;
    }
}

TEST_F(ToolLive, WhatIsNoStreamOfDvIsNotRecordedAsOne) {
    const std::string path = m_tree.path("a.dv");
    for (const std::string& bytes : {std::string(), std::string("\x1f\x07"), patternOf(100000)}) {
        const kit::Outcome outcome = runTool({"record", path, "--from", m_tree.write("none", bytes)});
        EXPECT_EQ(outcome.m_exit, 4);
        EXPECT_THAT(outcome.m_err, HasSubstr("it doesn't begin with a frame of DV\n"));
        EXPECT_FALSE(m_tree.exists("a.dv"));
    }
    // Frames of twice the size: the second half of the first one shows.
    dvpeers::write({"", "720x576", "25", "yuv422p", 48000, 2}, m_tree.path("wide.dv"));
    const kit::Outcome outcome = runTool({"record", path, "--from", m_tree.path("wide.dv")});
    EXPECT_EQ(outcome.m_exit, 4);
    EXPECT_THAT(outcome.m_err, HasSubstr("no frame of DV at 25 Mbit/s begins where frame 1 should"));
}

TEST_F(ToolLive, ASignalEndsARecordingWellWithAllThatWasTakenIn) {
    for (const int number : {SIGINT, SIGTERM}) {
        const std::string name = "s" + std::to_string(number) + ".wav";
        const std::unique_ptr<kit::Process> recorder = record(name);
        ASSERT_TRUE(recorder->feed(patternOf(s_rate)));
        ASSERT_TRUE(recorder->waitForOutput("\"safe\"")) << recorder->err();
        recorder->signal(number);
        const kit::Outcome outcome = recorder->wait();
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        const json done = linesOf(outcome.m_out, "record-event").back();
        EXPECT_EQ(done["event"], "done");
        EXPECT_EQ(done["interrupted"], true);
        EXPECT_TRUE(samplesOf(m_tree.path(name)) == patternOf(s_rate));
    }
}

TEST_F(ToolLive, ARecordingInRealTimeHoldsTheSame) {
    const std::string path = m_tree.path("a.wav");
    const kit::Outcome outcome = runTool({"record", path, "--from", raw(4800), "--realtime"});
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out + outcome.m_err, "");
    EXPECT_TRUE(samplesOf(path) == patternOf(4800));
}

TEST_F(ToolLive, BytesThatAreNoWholeSampleAreLeftOutAndTold) {
    const std::string path = m_tree.path("a.wav");
    const kit::Outcome outcome =
        runTool({"record", path, "--from", m_tree.write("odd", patternOf(10) + "xx"), "--jsonl"});
    EXPECT_EQ(outcome.m_exit, 0);
    EXPECT_THAT(outcome.m_err, HasSubstr("the last 2 bytes are no whole sample and left out\n"));
    EXPECT_EQ(linesOf(outcome.m_out, "record-event").back()["samples"], 10);
}

TEST_F(ToolLive, WhatCanNotBeRecordedLeavesNothingBehind) {
    const std::string source = raw(10);
    const auto expect = [&](const std::vector<std::string>& arguments, int exit) {
        std::vector<std::string> all = {"record", "--json"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const kit::Outcome outcome = runTool(all);
        EXPECT_EQ(outcome.m_exit, exit) << arguments[0] << ": " << outcome.m_err;
        documentOf(outcome, "error");
    };
    expect({m_tree.path("a.txt"), "--from", source}, 4);
    expect({m_tree.path("a.wav"), "--from", source, "--bits", "20"}, 4);
    expect({m_tree.path("a.wav"), "--from", source, "--channels", "33"}, 4);
    expect({m_tree.path("a.wav"), "--from", source, "--endian", "big"}, 4);
    expect({m_tree.path("a.wav"), "--from", m_tree.path("none")}, 3);
    expect({m_tree.path("a.wav"), "--from", m_tree.root()}, 4);
    expect({m_tree.path("a.wav"), "--from", source, "--rate", "0"}, 2);
    expect({m_tree.path("a.wav"), "--from", source, "--endian", "middle"}, 2);
    expect({m_tree.path("a.wav")}, 2);
    EXPECT_FALSE(m_tree.exists("a.wav"));
    EXPECT_FALSE(m_tree.exists("a.txt"));
}

TEST_F(ToolLive, ADiskThatIsFullIsToldAndWhatWasSafeIsThere) {
    const std::string path = m_tree.path("a.wav");
    kit::Command command = toolCommand({"record", path, "--from", raw(3 * s_rate), "--jsonl"});
    command.m_fileSize = 500000;  // room for a second, and for a part of the next one
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 5) << outcome.m_err;
    EXPECT_THAT(outcome.m_err, HasSubstr(path + ": write error"));
    std::istringstream lines(outcome.m_out);
    std::string safe, error, none;
    std::getline(lines, safe);
    std::getline(lines, error);
    EXPECT_FALSE(std::getline(lines, none)) << none;
    EXPECT_EQ(json::parse(safe)["samples"], s_rate);
    EXPECT_EQ(checkSchema(loadSchema("error"), json::parse(error)), "");
    const std::string samples = samplesOf(path);
    EXPECT_GE(samples.size(), std::size_t{s_rate} * s_size);
    EXPECT_TRUE(patternOf(3 * s_rate).starts_with(samples));
}

TEST_F(ToolLive, ARecordingOverwritesNothing) {
    const std::string path = writeWav(m_tree, "a.wav");
    const std::string before = readFile(path);
    EXPECT_NE(runTool({"record", path, "--from", raw(10)}).m_exit, 0);
    EXPECT_TRUE(readFile(path) == before);
}

TEST_F(ToolLive, ASecondRecorderOfAFileIsRefusedAndTheFirstGoesOn) {
    const std::unique_ptr<kit::Process> recorder = record("a.wav");
    ASSERT_TRUE(recorder->feed(patternOf(s_rate)));
    ASSERT_TRUE(recorder->waitForOutput("\"safe\"")) << recorder->err();
    const std::string path = m_tree.path("a.wav");
    const kit::Outcome second = runTool({"record", path, "--from", m_tree.write("other", std::string(600, 'x'))});
    EXPECT_NE(second.m_exit, 0);
    EXPECT_THAT(second.m_err, HasSubstr(path + " is there already and is not overwritten"));
    ASSERT_TRUE(recorder->feed(patternOf(s_rate + 10).substr(std::size_t{s_rate} * s_size)));
    recorder->endInput();
    EXPECT_EQ(recorder->wait().m_exit, 0);
    EXPECT_TRUE(samplesOf(path) == patternOf(s_rate + 10));
}

TEST_F(ToolLive, AFolderThatTakesNoFilesIsTold) {
    const std::string folder = std::filesystem::path(m_tree.write("folder/other", "x")).parent_path();
    ASSERT_EQ(::chmod(folder.c_str(), 0500), 0);
    kit::Command command = toolCommand({"record", folder + "/a.wav", "--from", raw(10)});
    command.m_privileged = false;
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 3);
    EXPECT_THAT(outcome.m_err, HasSubstr(folder + "/a.wav can't be written: Permission denied"));
    EXPECT_FALSE(m_tree.exists("folder/a.wav"));
    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
}

TEST_F(ToolLive, PlayDeliversAWholeMovie) {
    const std::string path = m_tree.path("a.wav");
    ASSERT_EQ(runTool({"record", path, "--from", raw(100001)}).m_exit, 0);
    const kit::Outcome plain = runTool({"play", path});
    EXPECT_EQ(plain.m_exit, 0) << plain.m_err;
    EXPECT_TRUE(plain.m_out == patternOf(100001));
    const std::string out = m_tree.path("out");
    const json played = documentOf(runTool({"play", path, "-o", out, "--json"}), "play")["play"];
    EXPECT_EQ(played["samples"], 100001);
    EXPECT_EQ(played["bytes"], 600006);
    EXPECT_TRUE(readFile(out) == patternOf(100001));
    const std::vector<json> lines = linesOf(runTool({"play", path, "-o", out, "--jsonl"}).m_out, "play-event");
    EXPECT_EQ(eventsOf(lines), (std::vector<std::string>{"played", "done"}));
}

TEST_F(ToolLive, WhatPlayCanNotDoIsTold) {
    const std::string path = writeWav(m_tree, "a.wav");
    EXPECT_EQ(runTool({"play", m_tree.path("none.wav"), "--json", "-o", m_tree.path("o")}).m_exit, 3);
    EXPECT_EQ(runTool({"play", path, "--json"}).m_exit, 2);
    EXPECT_EQ(runTool({"play", path, "--jsonl"}).m_exit, 2);
    EXPECT_EQ(runTool({"play", path, "--track", "video3"}).m_exit, 2);
    EXPECT_EQ(runTool({"play", path, "-o", path}).m_exit, 2);
    EXPECT_EQ(runTool({"play", path, "--follow", "--idle", "soon"}).m_exit, 2);
}

TEST_F(ToolLive, AFollowerGetsEveryByteOfARecordingByAnotherProcess) {
    const std::unique_ptr<kit::Process> recorder = record("live.wav");
    const std::string path = m_tree.path("live.wav"), out = m_tree.path("out");
    // Not at a frame's bound, so that the last frame is a part while the movie grows.
    constexpr std::size_t steps[] = {50001, 100000, 149003, 200001};
    const std::string all = patternOf(steps[3]);
    ASSERT_TRUE(recorder->feed(all.substr(0, steps[0] * s_size)));
    ASSERT_TRUE(recorder->waitForOutput("\"safe\"")) << recorder->err();
    kit::Process follower(toolCommand({"play", path, "--follow", "--idle", "1000", "-o", out, "--jsonl"}));
    ASSERT_TRUE(follower.waitForOutput("\"played\"")) << follower.err();
    kit::Process second(toolCommand({"play", path, "--follow", "--idle", "1000", "-o", m_tree.path("out2")}));
    for (unsigned i = 1; i < 4; ++i) {
        ASSERT_TRUE(recorder->feed(all.substr(steps[i - 1] * s_size, (steps[i] - steps[i - 1]) * s_size)));
        // Up to the last frame that is whole, whatever it is that has been recorded.
        const std::size_t least = (steps[i] - 60000) * s_size;
        EXPECT_TRUE(kit::waitFor([&] { return std::filesystem::file_size(out) > least; })) << follower.err();
        EXPECT_TRUE(all.starts_with(readFile(out)));
    }
    recorder->endInput();
    ASSERT_EQ(recorder->wait().m_exit, 0);
    // All but the part of a frame at the end, which waits for what may follow.
    const std::size_t least = (steps[3] - 1602) * s_size;
    for (const std::string name : {"out", "out2"}) {
        EXPECT_TRUE(kit::waitFor([&] {
            return m_tree.exists(name) && std::filesystem::file_size(m_tree.path(name)) >= least;
        })) << name;
        EXPECT_TRUE(all.starts_with(readFile(m_tree.path(name)))) << name;
    }
    for (kit::Process* process : {&follower, &second}) {
        process->signal(SIGTERM);
        EXPECT_EQ(process->wait().m_exit, 130);
    }
    // One that comes when it is over and waits for little goes to the very end.
    EXPECT_TRUE(runTool({"play", path, "--follow", "--idle", "0"}).m_out == all);
}

TEST_F(ToolLive, WatchTellsGrowthOfARecordingByAnotherProcess) {
    const std::unique_ptr<kit::Process> recorder = record("live.wav");
    ASSERT_TRUE(recorder->feed(patternOf(s_rate)));
    ASSERT_TRUE(recorder->waitForOutput("\"safe\"")) << recorder->err();
    const std::unique_ptr<kit::Process> watcher = watch(m_tree.path("live.wav"));
    ASSERT_TRUE(recorder->feed(patternOf(s_rate)));
    recorder->endInput();
    ASSERT_EQ(recorder->wait().m_exit, 0);
    ASSERT_TRUE(watcher->waitForOutput("\"length\":60,\"safe\":60")) << watcher->out() << watcher->err();
    watcher->signal(SIGTERM);
    const kit::Outcome outcome = watcher->wait();
    EXPECT_EQ(outcome.m_exit, 0);
    unsigned long long safe = 0;
    for (const json& line : linesOf(outcome.m_out, "watch-event")) {
        EXPECT_GE(line["safe"], safe);
        safe = line["safe"];
    }
    EXPECT_EQ(safe, 60u);
}

TEST_F(ToolLive, WatchTellsOfAFileThatIsRenamedOver) {
    const std::string path = writeWav(m_tree, "a.wav");
    WavRecipe longer;
    longer.m_samples = 96000;
    const std::string other = writeWav(m_tree, "b.wav", longer);
    const std::unique_ptr<kit::Process> watcher = watch(path);
    std::filesystem::rename(other, path);
    EXPECT_TRUE(watcher->waitForOutput("\"event\":\"replaced\"")) << watcher->out();
    EXPECT_TRUE(watcher->waitForOutput("\"length\":60")) << watcher->out();
}

TEST_F(ToolLive, WatchKeepsTheMovieThatIsCutShort) {
    const std::string path = writeWav(m_tree, "a.wav");
    const std::unique_ptr<kit::Process> watcher = watch(path);
    std::filesystem::resize_file(path, 10000);
    // Shorter so soon isn't believed; longer again is.
    m_tree.write("a.wav", readFile(writeWav(m_tree, "long.wav", WavRecipe{.m_samples = 96000})));
    EXPECT_TRUE(watcher->waitForOutput("\"length\":60")) << watcher->out();
    for (const json& line : linesOf(watcher->out(), "watch-event"))
        EXPECT_GE(line["length"], 30);
}

TEST_F(ToolLive, WatchTellsThatTheFileGoesAndIsBack) {
    const std::string path = writeWav(m_tree, "a.wav");
    const std::unique_ptr<kit::Process> watcher = watch(path);
    std::filesystem::rename(path, m_tree.path("away"));
    EXPECT_TRUE(watcher->waitForOutput("\"event\":\"gone\"")) << watcher->out();
    std::filesystem::rename(m_tree.path("away"), path);
    EXPECT_TRUE(watcher->waitForOutput("\"event\":\"returned\"")) << watcher->out();
}

TEST_F(ToolLive, WatchEndsAfterSoManyChanges) {
    const std::string path = writeWav(m_tree, "a.wav");
    kit::Process lines(toolCommand({"watch", "--count", "1", path}));
    ASSERT_TRUE(lines.waitForOutput("opened: length 30, safe 30, version ")) << lines.err();
    std::filesystem::rename(path, m_tree.path("away"));
    const kit::Outcome gone = lines.wait();
    EXPECT_EQ(gone.m_exit, 0) << gone.m_err;
    EXPECT_THAT(gone.m_out, HasSubstr("\ngone: length 30"));
    std::filesystem::rename(m_tree.path("away"), path);

    kit::Process watcher(toolCommand({"watch", "--count", "1", "--json", path}));
    // Nothing tells that it has opened the movie, so there are changes until it has seen one.
    EXPECT_TRUE(kit::waitFor([&] {
        m_tree.append("a.wav", "x");
        return watcher.hasEnded();
    }));
    const json watched = documentOf(watcher.wait(), "watch")["watch"];
    EXPECT_EQ(watched["path"], path);
    ASSERT_EQ(watched["events"].size(), 2u);
    EXPECT_EQ(watched["events"][0]["event"], "opened");
    EXPECT_EQ(watched["events"][1]["event"], "replaced");
}

TEST_F(ToolLive, WhatWatchCanNotOpenIsTold) {
    const kit::Outcome outcome = runTool({"watch", m_tree.path("none.wav"), "--jsonl"});
    EXPECT_EQ(outcome.m_exit, 3);
    EXPECT_EQ(checkSchema(loadSchema("error"), json::parse(outcome.m_out)), "");
    EXPECT_EQ(runTool({"watch", m_tree.path("none.wav")}).m_out, "");
    EXPECT_EQ(runTool({"watch", m_tree.path("none.wav"), "--count", "all"}).m_exit, 2);
}
