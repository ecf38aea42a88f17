#pragma once

#include <gtest/gtest.h>

#include <string>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/media_obj.h"

// Samples of a movie, found and read as a client does it.

// Whether the samples are there now; a failure is never expected.
inline bool findSamples(const MediaClipDesc& clip, unsigned long long sample, unsigned count,
                        MediaSampleInMovie& where) {
    OpResult result;
    const bool found = clip.getMediaOffset(MediaPlayReq(sample, count), where, result);
    EXPECT_TRUE(result.success()) << result.describe().get();
    return found;
}

inline std::string readSamples(MediaObj& movie, const MediaSampleInMovie& where) {
    MediaIoBuf buffer;
    const OpResult result = movie.vsRead(where, buffer);
    EXPECT_TRUE(result.success()) << result.describe().get();
    return std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size());
}
