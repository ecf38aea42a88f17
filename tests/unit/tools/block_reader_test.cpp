// Reads of a part of a track, whatever it is counted in.

#include "tools/block_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wav_builder.h"
#include "tools/byte_output.h"

namespace {

constexpr unsigned s_size = 100;  // samples of a unit that isn't empty

// Every third unit has samples, the others are empty.
class Thirds final : public TrackUnits {
public:
    Thirds(const MediaTrackDesc& track, unsigned long long count) : m_clip(*track.getClip(0)), m_count(count) {}

    const char* name() const override { return "third"; }
    unsigned long long count() const override { return m_count; }
    unsigned long long bytesOf(unsigned long long, unsigned long long) const override { return 0; }
    bool locate(unsigned long long at, unsigned long long, unsigned, Stretch& stretch,
                std::optional<Failure>& failure) const override {
        stretch.m_units = 1;
        if (at % 3 != 0) return true;
        OpResult result;
        if (m_clip.getMediaOffset(MediaPlayReq(at / 3 * s_size, s_size), stretch.m_where, result)) return true;
        result.discard();
        failure = Failure::usage("there is no third " + std::to_string(at));
        return false;
    }

private:
    const MediaClipDesc& m_clip;
    const unsigned long long m_count;
};

class BlockReads : public kit::CacheScene {
protected:
    std::string write(std::size_t samples) {
        m_samples = kit::WavBuilder::pattern(samples * 4);
        return m_tree.write("a.wav", kit::WavBuilder().fmt().data(m_samples).bytes());
    }
    const MediaTrackDesc& trackOf(const Movie& movie) const { return *(*movie).getTrackAt(0); }
    // What comes of the part; its units are counted.
    std::string readAll(const Movie& movie, const TrackUnits& units, Part part) {
        BlockReader reader(movie, units, part);
        ByteOutput output;
        EXPECT_FALSE(output.open(m_tree.path("out"), *movie));
        BlockReader::Block block;
        for (m_units = 0; reader.next(block, m_failure); m_units += block.m_units) {
            EXPECT_EQ(block.m_data == nullptr, block.m_bytes == 0);
            if (block.m_bytes > 0) {
                EXPECT_EQ(output.write(block.m_data, block.m_bytes), 0);
            }
            obufFree(block.m_data);
        }
        EXPECT_EQ(output.close(), 0);
        std::ifstream file(m_tree.path("out"), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    std::string m_samples;
    unsigned long long m_units = 0;
    std::optional<Failure> m_failure;
};

}  // namespace

TEST_F(BlockReads, UnitsWithoutSamplesAreCountedAndReadAsNothing) {
    const Movie movie(write(1000));
    ASSERT_FALSE(movie.failure());
    const Thirds thirds(trackOf(movie), 30);
    EXPECT_TRUE(readAll(movie, thirds, Part{0, 30}) == m_samples);
    EXPECT_EQ(m_units, 30u);
    EXPECT_TRUE(readAll(movie, thirds, Part{1, 3}) == m_samples.substr(400, 400));
    EXPECT_EQ(m_units, 3u);
    EXPECT_TRUE(readAll(movie, thirds, Part{28, 2}).empty());
    EXPECT_EQ(m_units, 2u);
    EXPECT_FALSE(m_failure);
}

TEST_F(BlockReads, WhatCanNotBeFoundIsTheFailureBehindAllThatCameBeforeIt) {
    const Movie movie(write(1000));
    ASSERT_FALSE(movie.failure());
    EXPECT_TRUE(readAll(movie, Thirds(trackOf(movie), 60), Part{0, 60}) == m_samples);
    EXPECT_EQ(m_units, 30u);
    ASSERT_TRUE(m_failure);
    EXPECT_EQ(m_failure->m_message, "there is no third 30");
}

TEST_F(BlockReads, AFileThatWasCutFailsInTheUnitThatIsMissing) {
    const Movie movie(write(1000));
    ASSERT_FALSE(movie.failure());
    std::filesystem::resize_file(m_tree.path("a.wav"), 44 + 500 * 4);
    EXPECT_TRUE(readAll(movie, Thirds(trackOf(movie), 30), Part{0, 30}) == m_samples.substr(0, 2000));
    EXPECT_EQ(m_units, 15u);
    ASSERT_TRUE(m_failure);
    EXPECT_EQ(m_failure->m_message, "the file ends in the thirds from 15 on");
}
