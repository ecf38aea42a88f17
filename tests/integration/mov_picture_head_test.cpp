#include <gtest/gtest.h>

#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// Movies of ffmpeg whose descriptions don't tell the scan, the chroma and the shape: what is said of them comes from
// the first picture, and ffprobe's decoder is the witness.

namespace {

using Words = std::vector<std::string>;

const Words s_small = {"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=0.12"};
const Words s_large = {"-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=25:d=0.04"};
const Words s_fields = {"-vf", "setfield=tff", "-flags", "+ildct+ilme"};

Words operator+(Words list, const Words& more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

MediaVideoScanType scanOf(const std::string& path) {
    const kit::Outcome outcome = kit::run({"ffprobe", "-v", "error", "-select_streams", "v:0", "-read_intervals",
                                           "%+#1", "-show_entries", "frame=interlaced_frame", "-of", "csv=p=0", path});
    EXPECT_TRUE(outcome.good()) << outcome.m_err;
    return outcome.m_out[0] == '1' ? MediaVideoScanType::Interlaced : MediaVideoScanType::Progressive;
}

MediaChromaSample chromaOf(const std::string& path) {
    const std::string format = movpeers::fact(path, "v:0", "pix_fmt");
    if (format.rfind("yuv420p", 0) == 0) return MediaChromaSample::C420;
    if (format.rfind("yuv422p", 0) == 0) return MediaChromaSample::C422;
    return format.rfind("yuv444p", 0) == 0 ? MediaChromaSample::C444 : MediaChromaSample::None;
}

class MovPictureHeads : public kit::CacheScene {
protected:
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }
    // The atoms of these codes become free space, and the track's own size becomes nothing.
    void write(const std::string& name, const Words& arguments) {
        m_path = m_tree.path(name);
        movpeers::write(arguments, m_path);
        std::string bytes = kit::bytesAt(m_path, 0, static_cast<std::size_t>(std::filesystem::file_size(m_path)));
        const std::size_t headers = bytes.rfind("moov");
        ASSERT_NE(headers, std::string::npos);
        for (const char* code : {"fiel", "pasp"}) {
            const std::size_t at = bytes.find(code, headers);
            if (at != std::string::npos) bytes.replace(at, 4, "free");
        }
        const std::size_t size = bytes.find("tkhd", headers) + 4 + 76;
        bytes.replace(size, 8, std::string(8, '\0'));
        m_path = m_tree.write("bare_" + name, bytes);
        if (m_movie != nullptr) m_movie->release();
        m_movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }
    const MediaTrackDesc& track() const { return *m_movie->getTrackAt(0); }
    const MediaClipDesc& clip() const { return *track().getClip(0); }
    void expectAsSeen(MediaVideoScanType scan, MediaChromaSample chroma) {
        EXPECT_EQ(scanOf(m_path), scan) << m_path;
        EXPECT_EQ(clip().getVscan(), scan) << m_path;
        EXPECT_EQ(chromaOf(m_path), chroma) << m_path;
        EXPECT_EQ(clip().getChroma(), chroma) << m_path;
    }

    std::string m_path;
    MediaObj* m_movie = nullptr;
};

}  // namespace

TEST_F(MovPictureHeads, OfMpeg2TellScanAndChroma) {
    const Words coding = {"-c:v", "mpeg2video", "-bf", "2"};
    for (const char* name : {"a.mov", "a.mp4"}) {
        write(std::string("i422_") + name, s_small + s_fields + coding + Words{"-pix_fmt", "yuv422p"});
        expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C422);
        write(std::string("p422_") + name, s_small + coding + Words{"-pix_fmt", "yuv422p"});
        expectAsSeen(MediaVideoScanType::Progressive, MediaChromaSample::C422);
        write(std::string("i420_") + name, s_small + s_fields + coding + Words{"-pix_fmt", "yuv420p"});
        expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C420);
    }
}

TEST_F(MovPictureHeads, OfMpeg2TellTheShape) {
    struct Row {
        const char* m_shape;
        MediaAspectRatio m_aspect;
    };
    const Row rows[] = {{"16:9", MediaAspectRatio::Ratio16x9}, {"4:3", MediaAspectRatio::Ratio4x3}};
    for (const Row& row : rows) {
        write(std::string(1, row.m_shape[0]) + ".mov", s_small + Words{"-c:v", "mpeg2video", "-aspect", row.m_shape});
        EXPECT_EQ(movpeers::fact(m_path, "v:0", "display_aspect_ratio"), row.m_shape);
        EXPECT_EQ(track().getAspectRatio(), row.m_aspect);
    }
}

TEST_F(MovPictureHeads, OfProresTellTheScan) {
    write("p.mov", s_small + Words{"-c:v", "prores_ks"});
    expectAsSeen(MediaVideoScanType::Progressive, MediaChromaSample::C422);
    write("i.mov", s_small + s_fields + Words{"-c:v", "prores_ks"});
    expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C422);
    write("b.mov", s_small + Words{"-vf", "setfield=bff", "-flags", "+ildct", "-c:v", "prores_ks"});
    expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C422);
}

TEST_F(MovPictureHeads, OfDnxhdTellTheScan) {
    const Words coding = {"-c:v", "dnxhd", "-b:v", "120M", "-pix_fmt", "yuv422p"};
    write("p.mov", s_large + coding);
    expectAsSeen(MediaVideoScanType::Progressive, MediaChromaSample::C422);
    write("i.mov", s_large + coding + Words{"-flags", "+ildct"});
    expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C422);
}
