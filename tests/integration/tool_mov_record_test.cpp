#include <gtest/gtest.h>

#include "tests/integration/mov_peers.h"
#include "tests/integration/tool_kit.h"
#include "tests/kit/temp_tree.h"

// Streams are recorded as movies by the tool, and ffmpeg sees the pictures of the stream in them.

namespace {

class ToolRecordsMov : public testing::Test {
protected:
    void expectPictures(const std::string& stream, const std::string& frames, const std::string& coding) {
        const std::string movie = m_tree.path("out.mov");
        const kit::Outcome outcome = runTool({"record", movie, "--from", stream});
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        EXPECT_EQ(movpeers::decode(movie, "v:0"), movpeers::decode(stream, "v:0"));
        EXPECT_EQ(movpeers::fact(movie, "v:0", "nb_frames"), frames);
        EXPECT_EQ(movpeers::fact(movie, "v:0", "codec_name"), coding);
    }

    kit::TempTree m_tree;
};

}  // namespace

TEST_F(ToolRecordsMov, OfAStreamOfMpegWithPicturesThatDependOnOthers) {
    const std::string stream = m_tree.path("in.m2v");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=352x288:r=25:d=2", "-pix_fmt", "yuv420p", "-c:v", "mpeg2video",
                     "-bf", "2", "-g", "12"},
                    stream);
    expectPictures(stream, "50", "mpeg2video");
}

TEST_F(ToolRecordsMov, OfAStreamOfDv) {
    const std::string stream = m_tree.path("in.dv");
    movpeers::write(
        {"-f", "lavfi", "-i", "testsrc2=s=720x480:r=30000/1001:d=1", "-pix_fmt", "yuv411p", "-c:v", "dvvideo"}, stream);
    expectPictures(stream, "30", "dvvideo");
}

TEST_F(ToolRecordsMov, OfRawSamples) {
    std::string samples;
    for (unsigned i = 0; i < 48000 * 4; ++i)
        samples += static_cast<char>(i * 7 / 3);
    const std::string stream = m_tree.write("in.raw", samples), movie = m_tree.path("out.mov");
    const kit::Outcome outcome = runTool({"record", movie, "--from", stream, "--bits", "16"});
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_TRUE(movpeers::raw(movie, 1) == samples);
}

TEST_F(ToolRecordsMov, NotOfAMpegStreamWithoutAPicture) {
    const std::string stream = m_tree.write("in.m2v", std::string("\0\0\1\xB3\x16\x01\x20\x13", 8));
    const kit::Outcome outcome = runTool({"record", m_tree.path("out.mov"), "--from", stream});
    EXPECT_NE(outcome.m_exit, 0);
    EXPECT_NE(outcome.m_err.find("it has no picture of MPEG-2"), std::string::npos) << outcome.m_err;
    EXPECT_FALSE(m_tree.exists("out.mov"));
}
