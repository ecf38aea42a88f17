// The document of `info` as XML: held against its schema by an independent reader, whatever the names are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/integration/tool_kit.h"

using testing::HasSubstr;
using testing::Not;

namespace {

std::string schemaPath() {
    const std::filesystem::path root = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
    return root / "docs" / "schema" / "info.xsd";
}

class ToolXml : public testing::Test {
protected:
    std::string wav(const std::string& name = "movie.wav") {
        WavRecipe recipe;
        recipe.m_samples = 4800;
        return writeWav(m_tree, name, recipe);
    }
    std::string broadcastWav() {
        const std::string path = m_tree.path("bext.wav");
        EXPECT_TRUE(kit::run({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "sine=r=48000", "-t", "0.1",
                              "-write_bext", "1", "-metadata",
                              "umid=0x060A2B340101010501010D21130000001234567890ABCDEF1234567890ABCDEF", path})
                        .good());
        return path;
    }
    // Well-formed and as the schema says.
    void expectValid(const std::string& xml) {
        const std::string path = m_tree.write("checked.xml", xml);
        const kit::Outcome outcome = kit::run({"xmllint", "--noout", "--schema", schemaPath(), path});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err << xml;
    }
    // What an XPath expression finds.
    std::string find(const std::string& xml, const std::string& expression) {
        const std::string path = m_tree.write("checked.xml", xml);
        const kit::Outcome outcome = kit::run({"xmllint", "--xpath", "string(" + expression + ")", path});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        return outcome.m_out.empty() ? "" : outcome.m_out.substr(0, outcome.m_out.size() - 1);
    }

    kit::TempTree m_tree;
};

}  // namespace

TEST_F(ToolXml, TellsWhatTheOtherDocumentTells) {
    const std::string path = broadcastWav();
    const kit::Outcome outcome = runTool({"info", "--xml", path});
    ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
    expectValid(outcome.m_out);
    const nlohmann::json movie = documentOf(runTool({"info", "--json", path}), "info")["movies"][0];
    EXPECT_EQ(find(outcome.m_out, "/mediacore/@schemaVersion"), "1");
    for (const char* name : {"path", "fileType", "videoRate", "umid"})
        EXPECT_EQ(find(outcome.m_out, std::string("/mediacore/movie/@") + name), movie[name]);
    for (const char* name : {"timeBase", "frames", "durationSeconds", "writable", "recording"})
        EXPECT_EQ(find(outcome.m_out, std::string("/mediacore/movie/@") + name), movie[name].dump());
    for (const auto& [name, value] : movie["tracks"][0]["clips"][0].items())
        EXPECT_EQ(find(outcome.m_out, "//track/clip/@" + name),
                  value.is_string() ? value : nlohmann::json(value.dump()));
    EXPECT_EQ(find(outcome.m_out, "//track/@name"), "audio0");
    EXPECT_EQ(find(outcome.m_out, "//property[@name='umidValue']/@value"), movie["properties"]["umidValue"]);
    EXPECT_EQ(find(outcome.m_out, "//file/@bytes"), movie["files"][0]["bytes"].dump());
    EXPECT_EQ(movie["umid"], "urn:smpte:umid:060A2B34.01010105.01010D21.13000000.12345678.90ABCDEF.12345678.90ABCDEF");
    EXPECT_THAT(runTool({"info", path}).m_out, HasSubstr("  umid      urn:smpte:umid:060A2B34.01010105."));
}

TEST_F(ToolXml, TellsOfPicturesTimecodeAndEveryClip) {
    const std::vector<std::string> sources = {"ffmpeg", "-nostdin", "-v", "error",
                                              "-f",     "lavfi",    "-i", "testsrc=size=720x576:rate=25:duration=0.4",
                                              "-f",     "lavfi",    "-i", "sine=sample_rate=48000:duration=0.4"};
    const auto make = [&](const char* name, const std::vector<std::string>& more) {
        std::vector<std::string> arguments = sources;
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.push_back(m_tree.path(name));
        const kit::Outcome made = kit::run(arguments);
        EXPECT_TRUE(made.good()) << made.m_err;
        return m_tree.path(name);
    };
    for (const std::string& path :
         {make("a.dv", {"-target", "pal-dv"}),
          make("long.mov", {"-c:v", "libx264", "-bf", "2", "-c:a", "pcm_s24be", "-timecode", "10:00:00:00"}),
          make("plain.mp4", {"-c:v", "mpeg4", "-c:a", "aac"})}) {
        SCOPED_TRACE(path);
        const std::string xml = runTool({"info", "--xml", path}).m_out;
        expectValid(xml);
        const nlohmann::json movie = documentOf(runTool({"info", "--json", path}), "info")["movies"][0];
        const bool hasTimecode = movie.contains("timecode");
        EXPECT_EQ(find(xml, "count(//timecode)"), hasTimecode ? "1" : "0");
        EXPECT_EQ(find(xml, "//timecode/@text"), hasTimecode ? movie["timecode"]["text"] : nlohmann::json(""));
        EXPECT_EQ(find(xml, "count(//track)"), std::to_string(movie["tracks"].size()));
        for (std::size_t track = 0; track < movie["tracks"].size(); ++track) {
            const std::string place = "//track[" + std::to_string(track + 1) + "]";
            const nlohmann::json& clips = movie["tracks"][track]["clips"];
            EXPECT_EQ(find(xml, "count(" + place + "/clip)"), std::to_string(clips.size()));
            for (const auto& [name, value] : clips[0].items()) {
                if (value.is_structured()) continue;
                EXPECT_EQ(find(xml, place + "/clip[1]/@" + name),
                          value.is_string() ? value : nlohmann::json(value.dump()));
            }
        }
    }
}

TEST_F(ToolXml, TellsAllMoviesAndWhatCannotBeOpened) {
    const std::string path = wav();
    const std::string damaged = m_tree.write("damaged.wav", "RIFF");
    const kit::Outcome outcome = runTool({"info", "--xml", path, m_tree.path("gone.wav"), damaged});
    EXPECT_EQ(outcome.m_exit, 1);
    expectValid(outcome.m_out);
    EXPECT_EQ(find(outcome.m_out, "count(//movie)"), "3");
    EXPECT_EQ(find(outcome.m_out, "//movie[2]/error/@number"), "6");
    EXPECT_EQ(find(outcome.m_out, "//movie[2]/@path"), m_tree.path("gone.wav"));
    EXPECT_EQ(find(outcome.m_out, "count(//movie[3]/error)"), "1");
    EXPECT_EQ(runTool({"info", "--xml", m_tree.path("gone.wav")}).m_exit, 3);
}

TEST_F(ToolXml, StaysWellFormedWhateverTheNamesAre) {
    for (const std::string name :
         {"b\xFF\xC0\xAF\xED\xA0\x80.wav", "\x01\x1B[31m\n\t\x7F.wav", "<&>\"'.wav", "]]>.wav",
          "\xEF\xBF\xBE\xEF\xBF\xBF.wav", "&#0;&amp;.wav", "caf\xC3\xA9 \xF0\x9F\x8E\xAC.wav"}) {
        const std::string path = wav(name);
        const kit::Outcome outcome = runTool({"info", "--xml", path});
        ASSERT_EQ(outcome.m_exit, 0) << outcome.m_err;
        expectValid(outcome.m_out);
        EXPECT_EQ(find(outcome.m_out, "//movie/@path"), find(outcome.m_out, "//file/@path"));
    }
    EXPECT_EQ(find(runTool({"info", "--xml", m_tree.path("<&>\"'.wav")}).m_out, "//movie/@path"),
              m_tree.path("<&>\"'.wav"));
    EXPECT_EQ(find(runTool({"info", "--xml", m_tree.path("b\xFF\xC0\xAF\xED\xA0\x80.wav")}).m_out, "//movie/@path"),
              m_tree.path("b\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD.wav"));
}

TEST_F(ToolXml, GoesToANewFile) {
    const std::string path = wav();
    const std::string target = m_tree.path("out.xml");
    const kit::Outcome outcome = runTool({"info", "--xml", path, "-o", target});
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out, "");
    EXPECT_EQ(readFile(target), runTool({"info", "--xml", path}).m_out);
    EXPECT_EQ(runTool({"info", "--xml", path, "-o", "-"}).m_out, readFile(target));
}

TEST_F(ToolXml, FileThatIsThereIsRefusedAndNotTouched) {
    const std::string path = wav();
    const std::string target = m_tree.write("out.xml", "old");
    const kit::Outcome outcome = runTool({"info", "--xml", path, "-o", target});
    EXPECT_EQ(outcome.m_exit, 4);
    EXPECT_EQ(outcome.m_err,
              "mediacore: " + target + ": file exists: " + path + ": output file " + target + " exists\n");
    EXPECT_EQ(readFile(target), "old");
}

TEST_F(ToolXml, FileThatCannotBeWrittenIsTold) {
    const std::string path = wav();
    const kit::Outcome missing = runTool({"info", "--xml", path, "-o", m_tree.path("gone/out.xml")});
    EXPECT_EQ(missing.m_exit, 3);
    EXPECT_THAT(missing.m_err, HasSubstr(path + ": failed to open " + m_tree.path("gone/out.xml")));
    kit::Command full = toolCommand({"info", "--xml", path, "-o", m_tree.path("full.xml")});
    full.m_fileSize = 100;
    const kit::Outcome outcome = kit::run(full);
    EXPECT_EQ(outcome.m_exit, 5);
    EXPECT_THAT(outcome.m_err, HasSubstr(path + " XML write error: tried to write "));
    EXPECT_THAT(outcome.m_err, HasSubstr("b, actually wrote 100b"));
}

TEST_F(ToolXml, NoFileIsMadeWhenNoMovieCouldBeOpened) {
    EXPECT_EQ(runTool({"info", "--xml", m_tree.path("gone.wav"), "-o", m_tree.path("out.xml")}).m_exit, 3);
    EXPECT_FALSE(m_tree.exists("out.xml"));
    const kit::Outcome some = runTool({"info", "--xml", m_tree.path("gone.wav"), wav(), "-o", m_tree.path("out.xml")});
    EXPECT_EQ(some.m_exit, 1);
    expectValid(readFile(m_tree.path("out.xml")));
}

TEST_F(ToolXml, AnotherDocumentOrAFileWithoutItIsWrongUsage) {
    const std::string path = wav();
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--xml", "--json"}, {"--xml", "--field", "path"}, {"-o", m_tree.path("out.xml")}}) {
        std::vector<std::string> arguments = {"info", path};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(runTool(arguments).m_exit, 2);
    }
    EXPECT_FALSE(m_tree.exists("out.xml"));
}
