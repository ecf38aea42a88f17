#include "tests/integration/wav_reading.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"

namespace wavread {

MediaObj* openMovie(const std::string& path) {
    OpResult result;
    MediaObj* movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    EXPECT_NE(movie, nullptr) << path << ": " << result.describe().get();
    result.discard();
    return movie;
}

const MediaClipDesc& clipOf(const MediaObj& movie) { return *movie.getTrackAt(0)->getClip(0); }

bool locate(const MediaClipDesc& clip, unsigned long long sample, unsigned count, MediaSampleInMovie& where) {
    const unsigned long long length = clip.getLength();
    if (sample >= length) return false;
    unsigned wanted = static_cast<unsigned>(std::min<unsigned long long>(count, length - sample));
    if (wanted < 3) wanted = 1;
    OpResult result;
    const bool found = clip.getMediaOffset(MediaPlayReq(sample, wanted), where, result);
    EXPECT_TRUE(found && result.success()) << "sample " << sample << ": " << result.describe().get();
    result.discard();
    return found;
}

std::string readOne(const MediaObj& movie, const MediaSampleInMovie& where) {
    MediaIoBuf buffer;
    OpResult result = movie.vsRead(where, buffer);
    EXPECT_TRUE(result.success()) << result.describe().get();
    const bool read = result.success();
    result.discard();
    return read ? std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size()) : std::string();
}

std::string readAll(const MediaObj& movie) {
    std::string all;
    MediaSampleInMovie where;
    unsigned block = 1;
    for (unsigned long long at = 0; locate(clipOf(movie), at, block, where); at += where.m_count) {
        const std::string bytes = readOne(movie, where);
        if (bytes.empty()) break;
        all += bytes;
        block = block % 9973 * 3 + 1;
    }
    return all;
}

void expectFacts(const MediaObj& movie, MediaFileType type, const peers::AudioFacts& facts) {
    const MediaClipDesc& clip = clipOf(movie);
    ASSERT_TRUE(facts.m_found);
    EXPECT_EQ(movie.getMovieDesc()->getFileType(), type);
    EXPECT_EQ(movie.getMovieDesc()->getTimeBase(), facts.m_rate);
    EXPECT_EQ(clip.getEncoding(), facts.m_codec == "pcm_alaw" ? MediaEncodingType::ALaw : MediaEncodingType::Pcm);
    EXPECT_EQ(clip.getSampleRate(), facts.m_rate);
    EXPECT_EQ(clip.getTicksPerSample(), 1u);
    EXPECT_EQ(clip.getChannels(), facts.m_channels);
    EXPECT_EQ(clip.getBitsPerUnit(), facts.m_bits);
    EXPECT_EQ(clip.getBitrate(), facts.m_rate * facts.m_channels * facts.m_bits);
    EXPECT_EQ(clip.getLength(), facts.m_samples);
    EXPECT_EQ(movie.getTrackAt(0)->getLength(), facts.m_samples);
}

void expectBlocksAnywhere(const MediaObj& movie, const std::string& essence) {
    const MediaClipDesc& clip = clipOf(movie);
    ASSERT_NE(clip.getLength(), 0u);
    const std::size_t size = essence.size() / clip.getLength();
    std::minstd_rand random(clip.getChannels());
    for (int i = 0; i < 50; ++i) {
        const unsigned long long sample = random() % clip.getLength();
        MediaSampleInMovie where;
        ASSERT_TRUE(locate(clip, sample, 1 + random() % 2000, where));
        EXPECT_EQ(readOne(movie, where), essence.substr(sample * size, where.m_count * size)) << sample;
    }
}

}  // namespace wavread
