#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace peers {

// What ffprobe says of a file's first audio stream.
struct AudioFacts {
    bool m_found = false;
    std::string m_codec;  // such as "pcm_s16le"
    unsigned m_rate = 0;  // Hz
    unsigned m_channels = 0;
    unsigned m_bits = 0;  // of a word as it lies in the file
    unsigned long long m_samples = 0;
};

AudioFacts probeAudio(const std::string& path);
// The bytes of the first audio stream as they lie in the file, as ffmpeg copies them.
std::string essenceOf(const std::string& path);
// True for the codings that a WAV is read in, by ffprobe's name.
bool isReadable(const std::string& codec);
// The same of an AIFF.
bool isReadableInAiff(const std::string& codec);

// A kind of raw samples, by the names that each program has for it.
struct Coding {
    const char* m_name;       // for messages
    unsigned m_bytes;         // of a word
    const char* m_ffmpegRaw;  // ffmpeg's raw format
    const char* m_ffmpegCodec;
    std::vector<std::string> m_sox;  // sox's options; empty: it has none
};

extern const Coding s_codings[5];      // of WAV
extern const Coding s_aiffCodings[6];  // of AIFF and AIFF-C
// For messages of the test framework.
void PrintTo(const Coding& coding, std::ostream* out);

// Write a file of the raw samples in another: ffmpeg of the format that the path's suffix says, sox of the format that
// `type` does. A failure fails the test.
void writeByFfmpeg(const Coding& coding, unsigned channels, unsigned rate, const std::string& raw,
                   const std::string& path, const std::vector<std::string>& options = {});
void writeBySox(const Coding& coding, unsigned channels, unsigned rate, const std::string& raw, const std::string& path,
                const std::string& type = "wav");

}  // namespace peers
