#include "tests/integration/peers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>

#include "tests/kit/process.h"

namespace peers {

namespace {

using Arguments = std::vector<std::string>;

void append(Arguments& arguments, const Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
}

std::string outputOf(const Arguments& arguments) {
    const kit::Outcome outcome = kit::run(arguments);
    EXPECT_TRUE(outcome.good()) << arguments[0] << ": " << outcome.m_err;
    return outcome.m_out;
}

unsigned numberOf(const nlohmann::json& text) { return static_cast<unsigned>(std::stoul(text.get<std::string>())); }

}  // namespace

const Coding s_codings[5] = {
    {"8 bits", 1, "u8", "pcm_u8", {"-e", "unsigned", "-b", "8"}},
    {"16 bits", 2, "s16le", "pcm_s16le", {"-e", "signed", "-b", "16"}},
    {"24 bits", 3, "s24le", "pcm_s24le", {"-e", "signed", "-b", "24"}},
    {"32 bits", 4, "s32le", "pcm_s32le", {"-e", "signed", "-b", "32"}},
    {"A-law", 1, "alaw", "pcm_alaw", {"-e", "a-law", "-b", "8"}},
};

const Coding s_aiffCodings[6] = {
    {"8 bits", 1, "s8", "pcm_s8", {"-e", "signed", "-b", "8"}},
    {"16 bits", 2, "s16be", "pcm_s16be", {"-B", "-e", "signed", "-b", "16"}},
    {"24 bits", 3, "s24be", "pcm_s24be", {"-B", "-e", "signed", "-b", "24"}},
    {"32 bits", 4, "s32be", "pcm_s32be", {"-B", "-e", "signed", "-b", "32"}},
    {"16 bits with the low byte first", 2, "s16le", "pcm_s16le", {}},
    {"A-law", 1, "alaw", "pcm_alaw", {}},
};

void PrintTo(const Coding& coding, std::ostream* out) { *out << coding.m_name; }

AudioFacts probeAudio(const std::string& path) {
    const kit::Outcome outcome =
        kit::run({"ffprobe", "-v", "quiet", "-show_streams", "-select_streams", "a:0", "-of", "json", path});
    const nlohmann::json document = nlohmann::json::parse(outcome.m_out, nullptr, false);
    AudioFacts facts;
    if (document.is_discarded() || !document.contains("streams") || document["streams"].empty()) return facts;
    const nlohmann::json& stream = document["streams"][0];
    facts.m_found = true;
    facts.m_codec = stream.value("codec_name", "");
    facts.m_rate = numberOf(stream["sample_rate"]);
    facts.m_channels = stream.value("channels", 0u);
    facts.m_bits = stream.value("bits_per_sample", 0u);
    // The time base of such a stream is its sample.
    EXPECT_EQ(stream.value("time_base", ""), "1/" + std::to_string(facts.m_rate)) << path;
    facts.m_samples = stream.value("duration_ts", 0ull);
    return facts;
}

std::string essenceOf(const std::string& path) {
    return outputOf(
        {"ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:a:0", "-c", "copy", "-f", "data", "-"});
}

bool isReadable(const std::string& codec) {
    return std::any_of(std::begin(s_codings), std::end(s_codings),
                       [&](const Coding& coding) { return codec == coding.m_ffmpegCodec; });
}

bool isReadableInAiff(const std::string& codec) {
    return std::any_of(std::begin(s_aiffCodings), std::end(s_aiffCodings),
                       [&](const Coding& coding) { return codec == coding.m_ffmpegCodec; });
}

void writeByFfmpeg(const Coding& coding, unsigned channels, unsigned rate, const std::string& raw,
                   const std::string& path, const std::vector<std::string>& options) {
    Arguments arguments = {"ffmpeg",
                           "-nostdin",
                           "-v",
                           "error",
                           "-y",
                           "-f",
                           coding.m_ffmpegRaw,
                           "-ar",
                           std::to_string(rate),
                           "-ac",
                           std::to_string(channels),
                           "-i",
                           raw,
                           "-c:a",
                           coding.m_ffmpegCodec};
    append(arguments, options);
    arguments.push_back(path);
    outputOf(arguments);
}

void writeBySox(const Coding& coding, unsigned channels, unsigned rate, const std::string& raw, const std::string& path,
                const std::string& type) {
    Arguments arguments = {"sox", "-D", "-t", "raw", "-r", std::to_string(rate), "-c", std::to_string(channels)};
    append(arguments, coding.m_sox);
    arguments.push_back(raw);
    append(arguments, {"-t", type});
    append(arguments, coding.m_sox);
    arguments.push_back(path);
    outputOf(arguments);
}

}  // namespace peers
