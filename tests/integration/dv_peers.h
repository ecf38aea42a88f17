#pragma once

#include <string>
#include <vector>

// DV as other programs write and see it.
namespace dvpeers {

// What ffprobe says of a stream.
struct Facts {
    bool m_found = false;
    unsigned m_width = 0;
    unsigned m_height = 0;
    std::string m_pixels;  // such as "yuv411p"
    std::string m_rate;    // "30000/1001"
    std::string m_aspect;  // "16:9"
    unsigned long long m_frames = 0;
    std::string m_timecode;     // with ';' ahead of the frames for drop-frame
    unsigned m_pairs = 0;       // of channels for which there is room
    unsigned m_sampleRate = 0;  // of the first pair
};

Facts probe(const std::string& path);
// The frames as ffmpeg copies them out, one behind the other.
std::string framesOf(const std::string& path);

// A stream to be written by ffmpeg.
struct Kind {
    const char* m_name;
    const char* m_size;
    const char* m_rate;
    const char* m_pixels;
    unsigned m_sampleRate;  // Hz
    unsigned m_pairs;       // of channels; 0 is no sound
    const char* m_aspect = "4:3";
    const char* m_timecode = "";
};

extern const std::vector<Kind> s_kinds;

// Half a second of it. A failure fails the test.
void write(const Kind& kind, const std::string& path);
// The picture, or the sound of one pair, as ffmpeg decodes it; nothing may be wrong with it.
std::string decodePicture(const std::string& path);
std::string decodeSound(const std::string& path, unsigned pair);

}  // namespace dvpeers
