#include "tests/integration/tool_kit.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/integration/schema_check.h"

namespace {

void mustRun(const std::vector<std::string>& arguments) {
    const kit::Outcome outcome = kit::run(arguments);
    ASSERT_TRUE(outcome.good()) << arguments[0] << ": " << outcome.m_err;
}

// A format without a header for the samples of a codec: pcm_s16le is s16le.
std::string rawFormat(const std::string& codec) { return codec.substr(codec.find('_') + 1); }

void writeBySox(const std::string& path, const WavRecipe& recipe) {
    std::vector<std::string> arguments = {
        "sox", "-D", "-r", std::to_string(recipe.m_rate), "-c", std::to_string(recipe.m_channels), "-n"};
    if (recipe.m_codec == "pcm_alaw")
        arguments.insert(arguments.end(), {"-e", "a-law"});
    else
        arguments.insert(arguments.end(), {"-b", std::to_string(recipe.bits())});
    arguments.insert(arguments.end(),
                     {"-t", "wav", path, "synth", std::to_string(recipe.m_samples) + "s", "sine", "440", "vol", "0.5"});
    mustRun(arguments);
}

void writeByFfmpeg(const std::string& path, const WavRecipe& recipe) {
    const std::string source = "sine=frequency=440:sample_rate=" + std::to_string(recipe.m_rate);
    mustRun({"ffmpeg", "-nostdin",
             "-v",     "error",
             "-f",     "lavfi",
             "-i",     source,
             "-af",    "atrim=end_sample=" + std::to_string(recipe.m_samples),
             "-ac",    std::to_string(recipe.m_channels),
             "-c:a",   recipe.m_codec,
             "-rf64",  recipe.m_rf64 ? "always" : "never",
             "-f",     "wav",
             "-y",     "file:" + path});
}

}  // namespace

kit::Command toolCommand(const std::vector<std::string>& arguments) {
    kit::Command command;
    command.m_arguments = {MEDIACORE_TOOL};
    command.m_arguments.insert(command.m_arguments.end(), arguments.begin(), arguments.end());
    return command;
}

kit::Outcome runTool(const std::vector<std::string>& arguments) { return kit::run(toolCommand(arguments)); }

nlohmann::json documentOf(const kit::Outcome& outcome, const std::string& schema) {
    nlohmann::json document = nlohmann::json::parse(outcome.m_out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << outcome.m_out << outcome.m_err;
    if (document.is_discarded()) return nullptr;
    EXPECT_EQ(checkSchema(loadSchema(schema), document), "") << document.dump(2);
    return document;
}

unsigned WavRecipe::bits() const {
    if (m_codec == "pcm_u8" || m_codec == "pcm_alaw") return 8;
    return static_cast<unsigned>(std::stoul(m_codec.substr(5, 2)));
}

std::string writeWav(const kit::TempTree& tree, const std::string& name, const WavRecipe& recipe) {
    const std::string path = tree.path(name);
    if (recipe.m_writer == "sox")
        writeBySox(path, recipe);
    else
        writeByFfmpeg(path, recipe);
    return path;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::size_t dataOffset(const std::string& file) {
    const auto byteAt = [&file](std::size_t at) {
        return static_cast<std::size_t>(static_cast<unsigned char>(file[at]));
    };
    for (std::size_t at = 12; at + 8 <= file.size();) {
        if (file.compare(at, 4, "data") == 0) return at + 8;
        const std::size_t size = byteAt(at + 4) | byteAt(at + 5) << 8 | byteAt(at + 6) << 16 | byteAt(at + 7) << 24;
        at += 8 + size + size % 2;
    }
    return file.size();
}

std::string samplesByFfmpeg(const std::string& path, const std::string& codec) {
    const kit::Outcome outcome = kit::run(
        {"ffmpeg", "-nostdin", "-v", "error", "-i", "file:" + path, "-c:a", "copy", "-f", rawFormat(codec), "-"});
    EXPECT_TRUE(outcome.good()) << outcome.m_err;
    return outcome.m_out;
}
