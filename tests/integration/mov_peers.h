#pragma once

#include <string>
#include <vector>

// Movies as ffmpeg writes and sees them.
namespace movpeers {

// A sample as it lies in a file, in the order of decoding.
struct Packet {
    unsigned long long m_at = 0;
    unsigned m_size = 0;
    double m_time = 0;  // when it is shown, in seconds
    char m_kind = '?';  // 'I', 'P', 'B'; of sound 'I'
    bool m_isSync = false;
    std::string m_bytes;
};

// Writes a movie with ffmpeg, from its own test sources. A failure fails the test.
void write(const std::vector<std::string>& arguments, const std::string& path);
// The samples of a stream, such as "v:0". Kinds are looked for on demand, which decodes the stream.
std::vector<Packet> packetsOf(const std::string& path, const std::string& stream, bool withKinds = false);
// A hash for each picture, or one for all the sound, as ffmpeg decodes it. It must not say a word, or the test fails.
std::string decode(const std::string& path, const std::string& stream);
// The sound of so many tracks as it lies in the file, one track behind the other.
std::string raw(const std::string& path, unsigned tracks);
// The same of many movies, each with so many tracks, by one run of ffmpeg: a line of hashes for each movie.
std::vector<std::string> rawHashes(const std::vector<std::string>& paths, unsigned tracks);
// What ffprobe says of a field of a stream, such as "codec_tag_string".
std::string fact(const std::string& path, const std::string& stream, const std::string& name);

}  // namespace movpeers
