#include <gtest/gtest.h>

#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
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
    const bool isFull = format.rfind("yuv444p", 0) == 0 || format.rfind("gbrp", 0) == 0;
    return isFull ? MediaChromaSample::C444 : MediaChromaSample::None;
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
        open(m_tree.write("bare_" + name, bytes));
    }
    // The movie as one of headers alone, which refer to the file as it was.
    void referToIt(const std::string& name) {
        const std::string file = m_tree.path(name).substr(m_tree.path("").size());
        std::string bytes = kit::bytesAt(m_path, 0, static_cast<std::size_t>(std::filesystem::file_size(m_path)));
        bytes.erase(0, bytes.rfind("moov") - 4);
        const std::size_t at = bytes.find("url ", bytes.find("dref"));
        ASSERT_EQ(bytes.substr(at - 4, 12), std::string("\0\0\0\x0Curl \0\0\0\1", 12));
        bytes.replace(at + 7, 1, std::string(1, '\0') + file + std::string(1, '\0'));
        std::size_t size = 0;
        for (const char* code : {"moov", "trak", "mdia", "minf", "dinf", "dref", "url "}) {
            size = bytes.find(code, size + 1) - 1;
            const unsigned sum = static_cast<unsigned char>(bytes[size]) + static_cast<unsigned>(file.size()) + 1;
            bytes[size] = static_cast<char>(sum);
            bytes[size - 1] = static_cast<char>(bytes[size - 1] + static_cast<char>(sum >> 8));
        }
        open(m_tree.write("refers.mov", bytes));
    }
    void open(const std::string& path) {
        m_path = path;
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

TEST_F(MovPictureHeads, OfDnxhrTellTheChroma) {
    struct Row {
        const char *m_profile, *m_format;
        MediaChromaSample m_chroma;
    };
    const Row rows[] = {{"dnxhr_hqx", "yuv422p10le", MediaChromaSample::C422},
                        {"dnxhr_444", "yuv444p10le", MediaChromaSample::C444},
                        {"dnxhr_444", "gbrp10le", MediaChromaSample::C444}};
    for (const Row& row : rows) {
        write(std::string(row.m_format) + row.m_profile + ".mov",
              s_small + Words{"-c:v", "dnxhd", "-profile:v", row.m_profile, "-pix_fmt", row.m_format});
        expectAsSeen(MediaVideoScanType::Progressive, row.m_chroma);
    }
}

TEST_F(MovPictureHeads, OfJpeg2000TellTheChroma) {
    for (const char* format : {"yuv420p", "yuv422p", "yuv444p"}) {
        write(std::string(format) + ".mov", s_small + Words{"-c:v", "libopenjpeg", "-pix_fmt", format});
        EXPECT_NE(clip().getChroma(), MediaChromaSample::None);
        EXPECT_EQ(clip().getChroma(), chromaOf(m_path)) << format;
    }
}

TEST_F(MovPictureHeads, OfMpeg4TellScanAndShape) {
    write("p.mp4", s_small + Words{"-c:v", "mpeg4", "-aspect", "16:9"});
    expectAsSeen(MediaVideoScanType::Progressive, MediaChromaSample::C420);
    EXPECT_EQ(track().getAspectRatio(), MediaAspectRatio::Ratio16x9);
    write("i.mp4", s_small + s_fields + Words{"-c:v", "mpeg4", "-aspect", "4:3"});
    expectAsSeen(MediaVideoScanType::Interlaced, MediaChromaSample::C420);
    EXPECT_EQ(track().getAspectRatio(), MediaAspectRatio::Ratio4x3);
}

TEST_F(MovPictureHeads, OfAvcTellTheShape) {
    const Words coding = {"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};
    write("wide.mp4", s_small + Words{"-vf", "setsar=64/45"} + coding);
    EXPECT_EQ(track().getAspectRatio(), MediaAspectRatio::Ratio16x9);
    write("narrow.mp4", s_small + Words{"-vf", "setsar=16/15"} + coding);
    EXPECT_EQ(track().getAspectRatio(), MediaAspectRatio::Ratio4x3);
}

TEST_F(MovPictureHeads, InAnotherFileTellTheSame) {
    write("i.mov",
          s_small + s_fields + Words{"-c:v", "mpeg2video", "-bf", "2", "-pix_fmt", "yuv422p", "-aspect", "4:3"});
    const std::string name = m_path.substr(m_path.rfind('/') + 1);
    std::string here, there;
    const auto kinds = [this] {
        std::string text;
        for (unsigned i = 0; i < clip().getLength(); ++i) {
            MediaSampleInMovie where;
            EXPECT_TRUE(clip().getFrameInfo(MediaPlayReq(i, 1), where, m_result));
            text += "?IPB"[static_cast<int>(where.m_info.getEncoding())];
        }
        return text;
    };
    here = kinds();
    EXPECT_EQ(here, "IPB");
    referToIt(name);
    EXPECT_EQ(clip().getContainer(), MediaContainment::ByRef);
    EXPECT_EQ(kinds(), here);
    EXPECT_EQ(clip().getVscan(), MediaVideoScanType::Interlaced);
    EXPECT_EQ(clip().getChroma(), MediaChromaSample::C422);
    EXPECT_EQ(track().getAspectRatio(), MediaAspectRatio::Ratio4x3);
}
