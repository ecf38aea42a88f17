#pragma once

#include <cstdint>
#include <string>

#include "shared/include/object/media_obj.h"

class DvSystem;
class MediaClipParam;
class MediaTrackDesc;

// What the tests of recorders share: a recording whose every byte tells its place.
namespace stress {

constexpr unsigned s_channels = 2, s_bits = 24;
constexpr unsigned s_soundSize = s_channels * s_bits / 8;  // bytes a sample

// What is recorded. A movie file has two tracks of the same sound, so that the samples of one don't lie one behind the
// other; a film has a track of pictures, of which it skips some, and one of sound. By reference each track has a file
// of its own.
enum class Kind : std::uint32_t { Wav, Aiff, Dv, Mov, MovByRef, Film, FilmByRef };

MediaFileType typeOf(Kind kind);
inline bool isFilm(Kind kind) { return kind == Kind::Film || kind == Kind::FilmByRef; }
inline bool isByRef(Kind kind) { return kind == Kind::MovByRef || kind == Kind::FilmByRef; }
const char* suffixOf(Kind kind);
unsigned tracksOf(Kind kind);

const DvSystem& dvSystem();
// Bytes of samples that all have one size: of the first track, unless that has pictures of MPEG-2. Of DV it is a frame.
unsigned sizeOf(Kind kind);
// What samples of a track are made of. Frames of DV are black, with their number at the end of each block of the
// picture.
std::string essence(Kind kind, unsigned track, unsigned long long sample, unsigned count);
inline std::string essence(Kind kind, unsigned long long sample, unsigned count) {
    return essence(kind, 0, sample, count);
}

// The first pictures of a film, which its edit skips, and after how many it is told to.
constexpr unsigned s_skipped = 4, s_skippedAfter = 5;

// A recorder of one clip a track, which gives up at the first failure.
class Recording {
public:
    // `rate` is that of sound. Of a film it is a multiple of that of pictures.
    bool begin(const std::string& path, Kind kind, unsigned rate);
    // Behind the last ones: so many samples of the first track, and of the second what lasts as long.
    bool write(unsigned count, bool async);
    void flush();
    bool end();

private:
    MediaTrackDesc* makeTrack(const MediaClipParam& param);
    bool writePictures(unsigned count, bool async);
    bool writeTo(unsigned track, unsigned long long sample, unsigned count, bool async);

    MediaObj* m_movie = nullptr;
    MediaTrackDesc* m_tracks[2] = {};
    Kind m_kind = Kind::Wav;
    unsigned m_soundPerSample = 1;  // samples of the second track for one of the first
    unsigned long long m_samples = 0;
};

// A number from the environment, which makes a test longer; `otherwise` without it.
unsigned lengthFrom(const char* variable, unsigned otherwise);

}  // namespace stress
