#pragma once

// Files of DV for measurements: black frames of 525 lines, 120,000 bytes each, as this library makes them.

#include "bench/movie_kit.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/io/media_io_buf.h"

namespace bench {

constexpr unsigned s_dvFrameBytes = 120000;

inline std::vector<unsigned char> blackDvFrame() {
    MediaClipParam param;
    OpResult result;
    MediaObj* const movie = MediaObj::openObj(MediaFileType::Dv, result);
    if (movie == nullptr || !param.initVideo(MediaFileType::Dv, MediaEncodingType::Dv, MediaVideoRate::Ntsc2997))
        std::abort();
    MediaTrackDesc* const track = movie->createTrack(param, result);
    MediaClipDesc* const clip = track != nullptr ? track->createClip(param, result) : nullptr;
    if (clip == nullptr) std::abort();
    MediaSampleBuf frame(*clip);
    if (!clip->fillBlack(frame, FixedPoint<16>(0), FixedPoint<16>(1), false) || frame.size() != s_dvFrameBytes)
        std::abort();
    movie->release();
    return {frame.getMem(), frame.getMem() + frame.size()};
}

// A file of that many frames. Those of which `isThere` says no are a hole.
template <class IsThere>
void writeDv(const std::string& path, unsigned frames, IsThere isThere) {
    const std::vector<unsigned char> frame = blackDvFrame();
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::ftruncate(fd, off_t{frames} * s_dvFrameBytes) != 0) fail("ftruncate", path);
    for (unsigned i = 0; i < frames; ++i) {
        if (isThere(i) && ::pwrite(fd, frame.data(), frame.size(), off_t{i} * s_dvFrameBytes) < 0) fail("pwrite", path);
    }
    ::close(fd);
}

}  // namespace bench
