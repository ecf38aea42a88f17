#pragma once

#include <string>

#include "shared/include/object/media_obj.h"

class DvSystem;
class MediaClipParam;
class MediaTrackDesc;

// What the tests of recorders share: a recording whose every byte tells its place.
namespace stress {

constexpr unsigned s_channels = 2, s_bits = 24;
constexpr unsigned s_soundSize = s_channels * s_bits / 8;  // bytes a sample

const DvSystem& dvSystem();
// Bytes a sample; of DV that is a frame.
unsigned sizeOf(MediaFileType type);
const char* suffixOf(MediaFileType type);
// What samples are made of. Frames are black, with their number at the end of each block of the picture.
std::string essence(MediaFileType type, unsigned long long sample, unsigned count);

// A recorder of one clip, which gives up at the first failure. A movie of several tracks gets the same samples in a
// second one, so that those of the first don't lie one behind the other.
class Recording {
public:
    // `rate` is that of sound.
    bool begin(const std::string& path, MediaFileType type, unsigned rate);
    // Behind the last ones.
    bool write(unsigned count, bool async);
    void flush();
    bool end();

    unsigned long long getSamples() const { return m_samples; }

private:
    MediaTrackDesc* makeTrack(const MediaClipParam& param);
    bool writeTo(MediaTrackDesc& track, unsigned count, const std::string& bytes, bool async);

    MediaObj* m_movie = nullptr;
    MediaTrackDesc* m_track = nullptr;
    MediaTrackDesc* m_second = nullptr;
    MediaFileType m_type = MediaFileType::Unknown;
    unsigned long long m_samples = 0;
};

// A number from the environment, which makes a test longer; `otherwise` without it.
unsigned lengthFrom(const char* variable, unsigned otherwise);

}  // namespace stress
