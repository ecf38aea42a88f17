// Names, fields, the environment, help, completion and manual.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/schema_check.h"
#include "tests/integration/tool_kit.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class ToolOutput : public testing::Test {
protected:
    std::string wav(const std::string& name = "movie.wav") {
        WavRecipe recipe;
        recipe.m_samples = 4800;
        return writeWav(m_tree, name, recipe);
    }
    kit::Outcome runHere(const std::vector<std::string>& arguments,
                         std::vector<std::pair<std::string, std::optional<std::string>>> environment = {}) {
        kit::Command command = toolCommand(arguments);
        command.m_folder = m_tree.root();
        command.m_environment = std::move(environment);
        return kit::run(command);
    }

    kit::TempTree m_tree;
};

// Runs the tool on a terminal; both its outputs come as one.
kit::Outcome runOnTerminal(const std::string& arguments, std::optional<std::string> noColor) {
    kit::Command command;
    command.m_arguments = {"script", "-qec", std::string(MEDIACORE_TOOL) + " " + arguments, "/dev/null"};
    command.m_environment = {{"NO_COLOR", std::move(noColor)}};
    return kit::run(command);
}

}  // namespace

TEST_F(ToolOutput, ANameIsBytesAndIsShownWithReplacementCharacters) {
    const std::string name = "b\xFF\xC0\xAF\xED\xA0\x80\x1B[31m\n.wav";
    const std::string path = wav(name);
    const kit::Outcome outcome = runTool({"info", "--json", path});
    ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const std::string shown = documentOf(outcome, "info")["movies"][0]["path"];
    EXPECT_THAT(shown, HasSubstr("/b\xEF\xBF\xBD"));
    EXPECT_THAT(shown, HasSubstr("[31m\n.wav"));
    EXPECT_EQ(runTool({"info", "--field", "path", path}).m_out, path + "\n");
    const kit::Outcome text = runTool({"info", path});
    EXPECT_THAT(text.m_out, Not(HasSubstr("\x1B")));
    EXPECT_THAT(text.m_out, Not(HasSubstr("\xFF")));
    const kit::Outcome failed = runTool({"info", "--json", path + "x\xFE"});
    EXPECT_EQ(failed.m_exit, 3);
    documentOf(failed, "info");
    EXPECT_THAT(failed.m_err, Not(HasSubstr("\x1B")));
    EXPECT_THAT(failed.m_err, HasSubstr("x\xEF\xBF\xBD: file non-existant"));
}

TEST_F(ToolOutput, NamesThatLookLikeSomethingElseAreNames) {
    const std::string bytes = readFile(wav());
    for (const std::string name :
         {"[a,b].wav", "{}", "++", "read", "--json", "-x.wav", "%%", "a=b.wav", "*.wav", "--", "\x01.wav"}) {
        m_tree.write(name, bytes);
        const kit::Outcome outcome = runHere({"info", "--field", "path", "--", name});
        EXPECT_EQ(outcome.m_exit, 0) << name << outcome.m_err;
        EXPECT_EQ(outcome.m_out, name + "\n");
    }
    for (const std::string name : {"[a,b].wav", "{}", "++", "read", "a=b.wav"}) {
        EXPECT_EQ(runHere({"info", name, "--field", "path"}).m_out, name + "\n");
        EXPECT_EQ(runHere({"read", name, "-o", "[c,d]", "--field", "read.output"}).m_out, "[c,d]\n");
        EXPECT_TRUE(m_tree.exists("[c,d]"));
    }
}

TEST_F(ToolOutput, AFieldIsOneBareValue) {
    const std::string path = wav();
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"schemaVersion", "1\n"},
        {"movies.0.fileType", "wav\n"},
        {"movies.0.tracks.0.clips.0.samples", "4800\n"},
        {"movies.0.durationSeconds", "0.1\n"},
        {"movies.0.writable", "false\n"},
        {"tracks.0.name", "audio0\n"},
    };
    for (const auto& [field, value] : fields) {
        const kit::Outcome outcome = runTool({"info", path, "--field", field});
        EXPECT_EQ(outcome.m_exit, 0) << field;
        EXPECT_EQ(outcome.m_out, value) << field;
    }
    EXPECT_EQ(runTool({"frames", path, "--field", "frames.1.sample"}).m_out, "1600\n");
    EXPECT_EQ(runTool({"formats", "--field", "formats.2.name"}).m_out, "aiff\n");
}

TEST_F(ToolOutput, AFieldOfSeveralMoviesIsALineEach) {
    const kit::Outcome outcome =
        runTool({"info", wav("a.wav"), m_tree.path("none.wav"), wav("b.wav"), "--field", "tracks.0.length"});
    EXPECT_EQ(outcome.m_exit, 1);
    EXPECT_EQ(outcome.m_out, "4800\n4800\n");
}

TEST_F(ToolOutput, AFieldThatIsNotThereIsTwo) {
    const std::string path = wav();
    for (const std::string field :
         {"nonsense", "movies.1", "movies.0.tracks.x", "movies..path", "movies.0.path.more", "."}) {
        const kit::Outcome outcome = runTool({"info", path, "--field", field});
        EXPECT_EQ(outcome.m_exit, 2) << field;
        EXPECT_EQ(outcome.m_out, "");
        EXPECT_EQ(outcome.m_err, "mediacore: wrong usage: --field " + field + ": the document has no such field\n");
    }
}

TEST_F(ToolOutput, ReadTellsWhatItReadAsADocument) {
    const std::string path = wav();
    const std::string out = m_tree.path("out");
    const kit::Outcome outcome = runTool({"read", path, "--from", "100", "--count", "50", "-o", out, "--json"});
    EXPECT_EQ(outcome.m_exit, 0);
    EXPECT_EQ(documentOf(outcome, "read")["read"], (json{{"path", path},
                                                         {"track", "audio0"},
                                                         {"unit", "sample"},
                                                         {"from", 100},
                                                         {"count", 50},
                                                         {"samples", 50},
                                                         {"bytes", 200},
                                                         {"output", out}}));
    EXPECT_EQ(readFile(out).size(), 200u);
}

TEST_F(ToolOutput, ATargetThatIsThereIsReplacedByWhatIsRead) {
    const std::string out = m_tree.write("out", std::string(100000, 'x'));
    EXPECT_EQ(runTool({"read", wav(), "--count", "5", "-o", out}).m_exit, 0);
    EXPECT_EQ(readFile(out).size(), 20u);
}

TEST_F(ToolOutput, ProgressForProgramsEndsWithTheWhole) {
    const kit::Outcome outcome = runTool({"read", wav(), "-o", m_tree.path("out"), "--progress=json"});
    const json line = json::parse(outcome.m_err);
    EXPECT_EQ(checkSchema(loadSchema("progress"), line), "");
    EXPECT_EQ(line["bytes"], 19200);
    EXPECT_EQ(line["total"], 19200);
    const kit::Outcome byFrames = runTool({"read", wav(), "-o", m_tree.path("out"), "--frames", "--progress=json"});
    EXPECT_EQ(json::parse(byFrames.m_err)["total"], 19200);
    EXPECT_EQ(runTool({"read", wav(), "-o", m_tree.path("out"), "--progress=json", "-q"}).m_err, "");
}

TEST_F(ToolOutput, ProgressIsABarOnATerminal) {
    const std::string raw = m_tree.write("raw", std::string(std::size_t{24000} * 4, '\0'));  // half a second
    const auto record = [&](const char* name, const char* more) {
        const kit::Command plain = toolCommand({"record", m_tree.path(name), "--from", raw, "--realtime", more});
        kit::Command command = plain;
        std::string line;
        for (const std::string& word : plain.m_arguments)
            line += "'" + word + "' ";
        command.m_arguments = {"script", "--quiet", "--return", "--command", line, "/dev/null"};
        return kit::run(command);
    };
    const kit::Outcome bar = record("a.wav", "--bits=16");
    EXPECT_EQ(bar.m_exit, 0);
    EXPECT_THAT(bar.m_out, testing::ContainsRegex("\r\\[##+\\.*\\] 0 MB of 0 MB, 0 MB/s"));
    EXPECT_EQ(record("b.wav", "--quiet").m_out, "");
    EXPECT_EQ(record("c.wav", "--progress=none").m_out, "");
}

TEST_F(ToolOutput, OptionsComeFromTheEnvironmentAndTheCommandLineComesFirst) {
    const std::string path = wav();
    EXPECT_EQ(runHere({"info", path}, {{"MEDIACORE_FIELD", "timeBase"}}).m_out, "48000\n");
    documentOf(runHere({"info", path}, {{"MEDIACORE_JSON", "1"}}), "info");
    EXPECT_EQ(runHere({"read", path}, {{"MEDIACORE_FROM", "10"}, {"MEDIACORE_COUNT", "3"}}).m_out.size(), 12u);
    EXPECT_EQ(runHere({"read", path, "--count", "2"}, {{"MEDIACORE_COUNT", "3"}}).m_out.size(), 8u);
    EXPECT_EQ(runHere({"read", path, "--track", "audio0"}, {{"MEDIACORE_TRACK", "video0"}}).m_exit, 0);
    EXPECT_EQ(runHere({"read", path}, {{"MEDIACORE_TRACK", "video0"}}).m_exit, 2);
    EXPECT_EQ(runHere({"read", path}, {{"MEDIACORE_OUTPUT", "out"}}).m_out, "");
    EXPECT_TRUE(m_tree.exists("out"));
    EXPECT_EQ(runHere({"read", path}, {{"MEDIACORE_FROM", "ten"}}).m_exit, 2);
    EXPECT_EQ(runHere({"read", path, "--count", "1"}, {{"MEDIACORE_FRAMES", "1"}}).m_out.size(), 1600 * 4u);
    EXPECT_EQ(runHere({"formats"}, {{"MEDIACORE_FROM", "ten"}}).m_exit, 0);
}

TEST_F(ToolOutput, FormsThatOnlyTheEnvironmentAsksForGiveWay) {
    const std::string path = wav();
    const std::string text = runHere({"info", path}, {}).m_out;
    EXPECT_EQ(runHere({"info", path}, {{"MEDIACORE_OUTPUT", "out"}}).m_out, text);
    EXPECT_FALSE(m_tree.exists("out"));
    documentOf(runHere({"info", "--json", path}, {{"MEDIACORE_XML", "1"}}), "info");
    documentOf(runHere({"info", path}, {{"MEDIACORE_XML", "1"}, {"MEDIACORE_JSON", "1"}}), "info");
    EXPECT_EQ(runHere({"info", "--field=timeBase", path}, {{"MEDIACORE_XML", "1"}}).m_out, "48000\n");
    for (const char* variable : {"MEDIACORE_JSON", "MEDIACORE_FIELD"})
        EXPECT_THAT(runHere({"info", "--xml", path}, {{variable, "1"}}).m_out, StartsWith("<?xml"));
    EXPECT_EQ(runHere({"info", "--xml", path}, {{"MEDIACORE_OUTPUT", "out"}}).m_out, "");
    EXPECT_TRUE(m_tree.exists("out"));
    const kit::Outcome both = runHere({"info", "--xml", "--json", path}, {{"MEDIACORE_XML", "1"}});
    EXPECT_EQ(both.m_exit, 2);
    EXPECT_THAT(both.m_err, HasSubstr("--xml excludes --json"));
    for (const char* option : {"-o", "--output"}) {
        const kit::Outcome alone = runHere({"info", path, option, "new"}, {{"MEDIACORE_OUTPUT", "out"}});
        EXPECT_EQ(alone.m_exit, 2) << option;
        EXPECT_THAT(alone.m_err, HasSubstr("--output requires --xml"));
    }
}

TEST_F(ToolOutput, TheLogIsSilentUnlessItIsAskedFor) {
    const std::string path = wav();
    const std::pair<std::string, std::optional<std::string>> ctor = {"MEDIACORE_SWITCHES", "mediaObjDbg=ctor"};
    EXPECT_EQ(runHere({"info", path}, {ctor}).m_err, "");
    EXPECT_THAT(runHere({"info", path, "-vv"}, {ctor}).m_err, HasSubstr("ctor"));
    EXPECT_THAT(runHere({"-v", "info", path, "-v"}, {ctor}).m_err, HasSubstr("ctor"));
    EXPECT_THAT(runHere({"info", path}, {ctor, {"MEDIACORE_VERBOSE", "2"}}).m_err, HasSubstr("ctor"));
    EXPECT_THAT(runHere({"info", path}, {ctor, {"MEDIACORE_LOG", "debug"}}).m_err, HasSubstr("ctor"));
    EXPECT_EQ(runHere({"info", path, "-q"}, {ctor, {"MEDIACORE_LOG", "debug"}}).m_err, "");
}

TEST_F(ToolOutput, ColourIsForTerminalsAndNoColorWins) {
    EXPECT_THAT(runOnTerminal("info /nope", std::nullopt).m_out, HasSubstr("\033["));
    EXPECT_THAT(runOnTerminal("info /nope", "1").m_out, StartsWith("mediacore: /nope: "));
    EXPECT_THAT(runTool({"info", "/nope"}).m_err, StartsWith("mediacore: /nope: "));
}

TEST_F(ToolOutput, BytesGoToATerminalOnlyWhenItIsInsisted) {
    const kit::Outcome refused = runOnTerminal("read " + wav(), "1");
    EXPECT_EQ(refused.m_exit, 2);
    EXPECT_THAT(refused.m_out, HasSubstr("nothing for a terminal"));
    EXPECT_EQ(runOnTerminal("read " + wav() + " -o - --count 1", "1").m_exit, 0);
}

TEST_F(ToolOutput, FormatsAreListedWithPriorityAndSuffixes) {
    const json formats = documentOf(runTool({"formats", "--json"}), "formats")["formats"];
    json wavReader;
    for (const json& format : formats) {
        if (format["name"] == "wav" && format["role"] == "reader") wavReader = format;
    }
    EXPECT_EQ(wavReader, (json{{"name", "wav"}, {"role", "reader"}, {"priority", 100}, {"suffixes", {"wav", "wave"}}}));
    EXPECT_THAT(runTool({"formats"}).m_out, HasSubstr("wav        reader        100  wav wave\n"));
}

TEST_F(ToolOutput, InfoForPeopleHasTheFacts) {
    const std::string path = wav();
    EXPECT_EQ(runTool({"info", path}).m_out,
              path +
                  "\n"
                  "  type      wav\n"
                  "  length    00:00:00.100, 3 frames at rate ntsc, time base 48000\n"
                  "  audio0    00:00:00.100, 4800 ticks\n"
                  "            pcm, 48000 Hz, 2 channels, 16 bits lendian, 1536000 bits/s, 4800 samples\n"
                  "  file      " +
                  path + ", 19244 bytes\n");
}

TEST_F(ToolOutput, HelpHasExamplesAndExitCodes) {
    const kit::Outcome program = runTool({"--help"});
    EXPECT_EQ(program.m_exit, 0);
    for (const char* text :
         {"info", "read", "frames", "formats", "watch", "play", "record", "rename", "validate", "status", "switch",
          "generate", "  130  interrupted\n", "  5    I/O error or no space\n"}) {
        EXPECT_THAT(program.m_out, HasSubstr(text));
    }
    for (const char* command : {"info", "read", "frames", "formats", "watch", "play", "record", "rename", "validate",
                                "status", "switch", "generate"}) {
        const kit::Outcome outcome = runTool({command, "--help"});
        EXPECT_EQ(outcome.m_exit, 0);
        EXPECT_THAT(outcome.m_out, HasSubstr(std::string("Examples:\nmediacore ") + command));
        EXPECT_EQ(outcome.m_err, "");
    }
    EXPECT_THAT(runTool({"--version"}).m_out, StartsWith("mediacore "));
}

TEST_F(ToolOutput, CompletionKnowsCommandsOptionsAndFiles) {
    const std::string script = m_tree.write("completion", runTool({"generate", "bash-completion"}).m_out);
    m_tree.write("movie one.wav", "");
    const auto complete = [&](const std::string& words, int at) {
        kit::Command command;
        command.m_arguments = {"bash", "-c",
                               "cd '" + m_tree.root() + "'; source '" + script + "'; compopt() { :; }; COMP_WORDS=(" +
                                   words + "); COMP_CWORD=" + std::to_string(at) +
                                   "; _mediacore; printf '%s\\n' \"${COMPREPLY[@]}\""};
        const kit::Outcome outcome = kit::run(command);
        EXPECT_EQ(outcome.m_err, "");
        return outcome.m_out;
    };
    EXPECT_EQ(complete("mediacore f", 1), "frames\nformats\n");
    EXPECT_EQ(complete("mediacore read --fr", 2), "--from\n--frames\n");
    EXPECT_EQ(complete("mediacore read --progress j", 3), "json\n");
    EXPECT_EQ(complete("mediacore generate m", 2), "man\n");
    EXPECT_EQ(complete("mediacore re", 1), "read\nrecord\nrename\n");
    EXPECT_EQ(complete("mediacore rename --d", 2), "--dry-run\n");
    EXPECT_EQ(complete("mediacore validate --prog", 2), "--progress\n");
    EXPECT_EQ(complete("mediacore info --x", 2), "--xml\n");
    EXPECT_EQ(complete("mediacore info mov", 2), "movie one.wav\n");
    EXPECT_EQ(complete("mediacore info --verb", 2), "--verbose\n");
    EXPECT_EQ(complete("mediacore info -- --js", 3), "\n");
}

TEST_F(ToolOutput, TheManualSaysWhatTheHelpSays) {
    const std::string manual = runTool({"generate", "man"}).m_out;
    for (const char* text :
         {".TH MEDIACORE 1", ".SH NAME", ".SH EXIT STATUS", ".SH ENVIRONMENT", ".SH EXAMPLES",
          "\\fB\\-\\-track\\fR \\fITRACK\\fR", "MEDIACORE_COUNT", "MEDIACORE_FRAMES", "MEDIACORE_XML", ".SS rename\n",
          "\\fB\\-\\-dry\\-run\\fR", ".SS validate\n", "\\fIFILE\\fR...", "\\fB130\\fR\ninterrupted."}) {
        EXPECT_THAT(manual, HasSubstr(text));
    }
    const json document = documentOf(runTool({"generate", "man", "--json"}), "generate");
    EXPECT_EQ(document["generated"]["text"], manual);
    if (!kit::hasProgram("groff")) return;
    kit::Command groff;
    groff.m_arguments = {"groff", "-man", "-ww", "-Tutf8"};
    groff.m_input = manual;
    const kit::Outcome formatted = kit::run(groff);
    EXPECT_EQ(formatted.m_exit, 0);
    EXPECT_EQ(formatted.m_err, "");
}

TEST(SchemaCheck, WhatDoesNotFitIsFound) {
    const json schema = loadSchema("info");
    json document = {
        {"schemaVersion", 1},
        {"movies", {{{"path", "x"}, {"error", {{"code", "c"}, {"number", 1}, {"file", "x"}, {"message", ""}}}}}}};
    EXPECT_EQ(checkSchema(schema, document), "");
    json wrong = document;
    wrong["schemaVersion"] = 2;
    EXPECT_EQ(checkSchema(schema, wrong), "$.schemaVersion: not 1");
    wrong = document;
    wrong["more"] = 1;
    EXPECT_EQ(checkSchema(schema, wrong), "$: unknown member more");
    wrong = document;
    wrong["movies"] = json::array();
    EXPECT_EQ(checkSchema(schema, wrong), "$.movies: too few elements");
    wrong = document;
    wrong["movies"][0]["error"].erase("message");
    EXPECT_THAT(checkSchema(schema, wrong), HasSubstr("$.movies[0].error: no member \"message\""));
    wrong = document;
    wrong["movies"][0]["error"]["number"] = -1;
    EXPECT_THAT(checkSchema(schema, wrong), HasSubstr("$.movies[0].error.number: too small"));
    wrong["movies"][0]["error"]["number"] = "1";
    EXPECT_THAT(checkSchema(schema, wrong), HasSubstr("not of type integer"));
    EXPECT_THAT(checkSchema(json{{"maximum", 1}}, 5), HasSubstr("isn't checked here"));
}
