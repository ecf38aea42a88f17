#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/kit/process.h"
#include "tests/kit/temp_tree.h"

// Running the tool as a process, and files by independent programs for it.

// A command that starts the tool with these arguments.
kit::Command toolCommand(const std::vector<std::string>& arguments);
kit::Outcome runTool(const std::vector<std::string>& arguments);
// The tool's document, held against its schema; a failed test and null when it isn't one.
nlohmann::json documentOf(const kit::Outcome& outcome, const std::string& schema);

// What is to be written, and by which program.
struct WavRecipe {
    std::string m_writer = "sox";  // or "ffmpeg"
    unsigned m_rate = 48000;
    unsigned m_channels = 2;
    std::string m_codec = "pcm_s16le";  // as ffmpeg calls it
    unsigned m_samples = 48000;
    bool m_rf64 = false;  // ffmpeg only

    unsigned bits() const;
};

// Writes a sine as a WAV and answers its path; a failed test when the program fails.
std::string writeWav(const kit::TempTree& tree, const std::string& name, const WavRecipe& recipe = {});
std::string readFile(const std::string& path);
// Where the bytes of the data chunk begin, by a walk over the chunks.
std::size_t dataOffset(const std::string& file);
// The samples as ffmpeg reads them, unchanged.
std::string samplesByFfmpeg(const std::string& path, const std::string& codec);
