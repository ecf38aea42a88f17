#include "tests/integration/dv_peers.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/kit/process.h"

namespace dvpeers {

namespace {

using Arguments = std::vector<std::string>;
using nlohmann::json;

std::string outputOf(const Arguments& arguments) {
    const kit::Outcome outcome = kit::run(arguments);
    EXPECT_TRUE(outcome.good()) << outcome.m_err;
    return outcome.m_out;
}

void takeStream(const json& stream, Facts& facts) {
    if (stream.value("codec_type", "") == "audio") {
        if (facts.m_pairs++ == 0)
            facts.m_sampleRate = static_cast<unsigned>(std::stoul(stream.value("sample_rate", "0")));
    }
    if (stream.value("codec_type", "") != "video") return;
    facts.m_found = true;
    facts.m_width = stream.value("width", 0u);
    facts.m_height = stream.value("height", 0u);
    facts.m_pixels = stream.value("pix_fmt", "");
    facts.m_rate = stream.value("r_frame_rate", "");
    facts.m_aspect = stream.value("display_aspect_ratio", "");
    facts.m_frames = stream.value("duration_ts", 0ull);
}

Arguments decoder(const std::string& path, const std::string& map) {
    return {"ffmpeg", "-nostdin", "-v", "error", "-xerror", "-f", "dv", "-i", path, "-map", map};
}

std::string decode(Arguments arguments, const Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    const kit::Outcome outcome = kit::run(arguments);
    EXPECT_TRUE(outcome.good());
    std::istringstream lines(outcome.m_err);
    for (std::string line; std::getline(lines, line);) {
        // Frames may have no timecode, and the second half of a pair's channels only comes with a second half.
        const bool known = line.find("Detected timecode is invalid") != std::string::npos ||
                           line.find("channels not set") != std::string::npos;
        EXPECT_TRUE(known) << line;
    }
    return outcome.m_out;
}

}  // namespace

const std::vector<Kind> s_kinds = {
    {"PAL", "720x576", "25", "yuv420p", 48000, 1, "16:9", "10:20:30:24"},
    {"PAL with 44.1 kHz", "720x576", "25", "yuv420p", 44100, 1},
    {"PAL of 4:1:1 with 32 kHz", "720x576", "25", "yuv411p", 32000, 1},
    {"PAL without sound", "720x576", "25", "yuv420p", 0, 0},
    {"NTSC", "720x480", "30000/1001", "yuv411p", 48000, 1, "4:3", "01:02:03;04"},
    {"NTSC wide", "720x480", "30000/1001", "yuv411p", 48000, 1, "16:9", "00:01:59:29"},
    {"PAL of 50 Mbit/s", "720x576", "25", "yuv422p", 48000, 1, "16:9"},
    {"PAL of 50 Mbit/s with four channels", "720x576", "25", "yuv422p", 48000, 2},
    {"NTSC of 50 Mbit/s", "720x480", "30000/1001", "yuv422p", 48000, 2, "4:3", "23:59:59;29"},
    {"1080/60i", "1280x1080", "30000/1001", "yuv422p", 48000, 1, "16:9", "00:10:00;00"},
    {"1080/50i", "1440x1080", "25", "yuv422p", 48000, 1, "16:9", "09:08:07:06"},
    {"720/60p", "960x720", "60000/1001", "yuv422p", 0, 0, "16:9"},
    {"720/50p", "960x720", "50", "yuv422p", 0, 0, "16:9"},
};

Facts probe(const std::string& path) {
    const json document = json::parse(
        outputOf({"ffprobe", "-v", "quiet", "-f", "dv", "-show_streams", "-show_format", "-of", "json", path}), nullptr,
        false);
    Facts facts;
    if (document.is_discarded() || !document.contains("streams")) return facts;
    for (const json& stream : document["streams"])
        takeStream(stream, facts);
    if (document["format"].contains("tags")) facts.m_timecode = document["format"]["tags"].value("timecode", "");
    return facts;
}

std::string framesOf(const std::string& path) {
    return outputOf({"ffmpeg", "-nostdin", "-v", "error", "-f", "dv", "-i", path, "-map", "0:v:0", "-c", "copy", "-f",
                     "rawvideo", "-"});
}

void write(const Kind& kind, const std::string& path) {
    Arguments arguments = {"ffmpeg", "-nostdin", "-v",
                           "error",  "-y",       "-f",
                           "lavfi",  "-i",       std::string("testsrc2=s=") + kind.m_size + ":r=" + kind.m_rate};
    if (kind.m_pairs != 0) arguments.insert(arguments.end(), {"-f", "lavfi", "-i", "sine=440:r=48000"});
    arguments.insert(arguments.end(), {"-map", "0:v"});
    for (unsigned pair = 0; pair < kind.m_pairs; ++pair)
        arguments.insert(arguments.end(), {"-map", "1:a"});
    if (kind.m_pairs != 0) arguments.insert(arguments.end(), {"-ar", std::to_string(kind.m_sampleRate), "-ac", "2"});
    if (*kind.m_timecode != '\0') arguments.insert(arguments.end(), {"-timecode", kind.m_timecode});
    arguments.insert(arguments.end(), {"-t", "0.5", "-c:v", "dvvideo", "-pix_fmt", kind.m_pixels, "-aspect",
                                       kind.m_aspect, "-f", "dv", path});
    outputOf(arguments);
}

std::string decodePicture(const std::string& path) { return decode(decoder(path, "0:v:0"), {"-f", "rawvideo", "-"}); }

std::string decodeSound(const std::string& path, unsigned pair) {
    return decode(decoder(path, "0:a:" + std::to_string(pair)), {"-f", "s16le", "-"});
}

}  // namespace dvpeers
