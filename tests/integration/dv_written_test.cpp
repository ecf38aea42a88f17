#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/dv_peers.h"
#include "tests/kit/cache_scene.h"

// DV that an independent program has just written: every fact as ffprobe tells it, every frame as ffmpeg copies it. And
// the black frames of the library, as ffmpeg decodes them.

namespace fs = std::filesystem;

namespace {

MediaChromaSample chromaOf(const std::string& pixels) {
    if (pixels == "yuv420p") return MediaChromaSample::C420;
    if (pixels == "yuv411p") return MediaChromaSample::C411;
    return MediaChromaSample::C422;
}

std::string rateOf(const MediaClipDesc& clip) {
    return std::to_string(clip.getSampleRate()) + "/" + std::to_string(clip.getTicksPerSample());
}

std::string aspectOf(const MediaTrackDesc& track) {
    return track.getAspectRatio() == MediaAspectRatio::Ratio16x9 ? "16:9" : "4:3";
}

std::string timecodeOf(const MediaObj& movie) {
    const MediaTimecode timecode = movie.getTimecode();
    std::string text = timecode.toString().get();
    for (char& c : text)
        c = c == '.' ? (timecode.m_dropFrame ? ';' : ':') : c;
    return text;
}

class WrittenDv : public kit::CacheScene {
protected:
    void open(const std::string& path) {
        m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << path << ": " << m_result.describe().get();
    }
    void close() {
        if (m_movie != nullptr) m_movie->release();
        m_movie = nullptr;
    }
    void TearDown() override {
        close();
        CacheScene::TearDown();
    }

    const MediaClipDesc& clip(unsigned track = 0) const { return *m_movie->getTrackAt(track)->getClip(0); }

    std::string read(const MediaClipDesc& clip, unsigned long long sample, unsigned count) {
        OpResult result;
        MediaSampleInMovie where;
        const bool found = clip.getMediaOffset(MediaPlayReq(sample, count), where, result);
        EXPECT_TRUE(found && result.success()) << result.describe().get();
        MediaIoBuf buffer;
        if (found) result = m_movie->vsRead(where, buffer);
        EXPECT_TRUE(result.success()) << result.describe().get();
        result.discard();
        return std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size());
    }

    void expectPicture(const dvpeers::Facts& facts) {
        ASSERT_TRUE(facts.m_found);
        const MediaTrackDesc& track = *m_movie->getTrackAt(0);
        EXPECT_EQ(m_movie->getMovieDesc()->getFileType(), MediaFileType::Dv);
        EXPECT_EQ(track.getWidth(), facts.m_width);
        EXPECT_EQ(track.getHeight(), facts.m_height);
        EXPECT_EQ(clip().getChroma(), chromaOf(facts.m_pixels));
        EXPECT_EQ(rateOf(clip()), facts.m_rate);
        EXPECT_EQ(clip().getLength(), facts.m_frames);
        EXPECT_EQ(m_movie->getFrameLength(), facts.m_frames);
        EXPECT_EQ(timecodeOf(*m_movie), facts.m_timecode);
        if (track.getAspectRatio() != MediaAspectRatio::Unknown) {
            EXPECT_EQ(aspectOf(track), facts.m_aspect);
        }
    }

    void expectFrames(const std::string& path) {
        const std::string frames = dvpeers::framesOf(path);
        const std::size_t size = clip().getLookup()->getFixedSize();
        ASSERT_EQ(frames.size(), size * clip().getLength());
        for (unsigned long long frame = 0; frame < clip().getLength(); ++frame)
            EXPECT_TRUE(read(clip(), frame, 1) == frames.substr(frame * size, size)) << frame;
        if (m_movie->getTrackCount() < 2) return;
        for (unsigned long long frame = 0; frame < clip().getLength(); ++frame) {
            const SampleAndCount samples = clip(1).getSampleAndCount(frame);
            EXPECT_TRUE(read(clip(1), samples.m_sample, samples.m_count) == frames.substr(frame * size, size)) << frame;
        }
    }

    MediaObj* m_movie = nullptr;
};

// Every sample of luma and of chroma has that value.
void expectFlat(const std::string& picture, unsigned long long pixels, unsigned frames) {
    ASSERT_EQ(picture.size() % frames, 0u);
    const std::size_t size = picture.size() / frames;
    ASSERT_GT(size, pixels);
    for (unsigned frame = 0; frame < frames; ++frame) {
        const auto start = picture.begin() + static_cast<std::ptrdiff_t>(frame * size);
        const auto chroma = start + static_cast<std::ptrdiff_t>(pixels),
                   end = start + static_cast<std::ptrdiff_t>(size);
        EXPECT_EQ(std::count(start, chroma, '\x10'), chroma - start);
        EXPECT_EQ(std::count(chroma, end, '\x80'), end - chroma);
    }
}

}  // namespace

TEST_F(WrittenDv, EveryKindIsWhatFfprobeSaysAndWhatFfmpegCopies) {
    for (const dvpeers::Kind& kind : dvpeers::s_kinds) {
        SCOPED_TRACE(kind.m_name);
        // The name says nothing of what is in it.
        const std::string path = m_tree.path("stream.dif");
        dvpeers::write(kind, path);
        open(path);
        const dvpeers::Facts facts = dvpeers::probe(path);
        EXPECT_EQ(facts.m_aspect, kind.m_aspect);
        expectPicture(facts);
        EXPECT_EQ(m_movie->getTrackCount(), kind.m_pairs != 0 ? 2u : 1u);
        if (m_movie->getTrackCount() == 2) {
            EXPECT_EQ(facts.m_sampleRate, kind.m_sampleRate);
            EXPECT_EQ(clip(1).getSampleRate(), facts.m_sampleRate);
            EXPECT_EQ(clip(1).getChannels(), kind.m_pairs * 2);
            EXPECT_EQ(clip(1).getBitsPerUnit(), 16u);
        }
        expectFrames(path);
        close();
        expireAll();
        m_tree.remove("stream.dif");
    }
}

TEST_F(WrittenDv, BlackOfEveryKindDecodesToBlackAndSilence) {
    for (const dvpeers::Kind& kind : dvpeers::s_kinds) {
        SCOPED_TRACE(kind.m_name);
        constexpr unsigned frames = 3;
        dvpeers::write(kind, m_tree.path("stream.dv"));
        open(m_tree.path("stream.dv"));
        const dvpeers::Facts written = dvpeers::probe(m_tree.path("stream.dv"));
        // From the clip itself, and as a clip of any other kind of file is filled.
        for (const bool direct : {true, false}) {
            MediaSampleBuf buf(clip());
            const FixedPoint<16> zero(0), one(1);
            ASSERT_TRUE(direct ? clip().fillBlack(buf, zero, one, false)
                               : clip().fill(MediaClipDesc::FillType::Black, buf, zero, one, false));
            std::string bytes;
            for (unsigned i = 0; i < frames; ++i)
                bytes.append(reinterpret_cast<const char*>(buf.getMem()), buf.size());
            const std::string path = m_tree.write("black.dv", bytes);
            const dvpeers::Facts facts = dvpeers::probe(path);
            EXPECT_EQ(facts.m_width, written.m_width);
            EXPECT_EQ(facts.m_height, written.m_height);
            EXPECT_EQ(facts.m_pixels, written.m_pixels);
            EXPECT_EQ(facts.m_rate, written.m_rate);
            EXPECT_EQ(facts.m_aspect, written.m_aspect);
            EXPECT_EQ(facts.m_frames, frames);
            expectFlat(dvpeers::decodePicture(path), std::uint64_t{facts.m_width} * facts.m_height, frames);
            if (kind.m_pairs == 0 && direct) continue;
            if (direct) {
                EXPECT_EQ(facts.m_sampleRate, written.m_sampleRate);
            }
            const std::string silence = dvpeers::decodeSound(path, 0);
            EXPECT_GE(silence.size(), frames * facts.m_sampleRate / 61 * 4);
            EXPECT_EQ(std::count(silence.begin(), silence.end(), '\0'), static_cast<std::ptrdiff_t>(silence.size()));
        }
        close();
        expireAll();
        m_tree.remove("stream.dv");
    }
}

TEST_F(WrittenDv, BlackBetweenFramesOfAStreamLeavesThemAlone) {
    const dvpeers::Kind& kind = dvpeers::s_kinds[0];
    const std::string path = m_tree.path("stream.dv");
    dvpeers::write(kind, path);
    open(path);
    MediaSampleBuf buf(clip());
    ASSERT_TRUE(clip().fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
    const std::string first = read(clip(), 0, 1), second = read(clip(), 1, 1);
    const std::string black(reinterpret_cast<const char*>(buf.getMem()), buf.size());
    const std::string mixed = dvpeers::decodePicture(m_tree.write("mixed.dv", first + black + second));
    const std::string plain = dvpeers::decodePicture(m_tree.write("plain.dv", first + second));
    const std::size_t picture = mixed.size() / 3;
    EXPECT_TRUE(mixed.substr(0, picture) == plain.substr(0, picture));
    EXPECT_TRUE(mixed.substr(picture * 2) == plain.substr(picture));
    expectFlat(mixed.substr(picture, picture), 720ull * 576, 1);
}

TEST_F(WrittenDv, GivenStreamsAreWhatFfprobeSaysOrRefused) {
    const char* const given = std::getenv("MEDIACORE_TEST_MEDIA");
    if (given == nullptr || *given == '\0') GTEST_SKIP() << "no folder of media is given";
    unsigned opened = 0;
    for (const auto& file : fs::directory_iterator(given)) {
        if (file.path().filename().string().rfind("dv__", 0) != 0) continue;
        const std::string path = file.path().string();
        SCOPED_TRACE(path);
        m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        const dvpeers::Facts facts = dvpeers::probe(path);
        if (m_movie == nullptr) {
            EXPECT_EQ(std::string(m_result.getMessage()).rfind("dv: ", 0), 0u);
            EXPECT_LT(fs::file_size(file.path()), 120000u);
            m_result.discard();
            continue;
        }
        ++opened;
        expectPicture(facts);
        if (m_movie->getTrackCount() == 2) {
            EXPECT_EQ(clip(1).getSampleRate(), facts.m_sampleRate);
            EXPECT_LE(clip(1).getChannels(), facts.m_pairs * 2);
        }
        expectFrames(path);
        close();
    }
    EXPECT_GT(opened, 0u);
}
