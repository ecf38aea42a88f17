#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/dv_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// DV streams of ffmpeg, recorded frame by frame under the description that they had: the copy is the stream itself, and
// ffmpeg reads picture and sound out of it without a word.

namespace {

class RecordedDv : public kit::CacheScene, public testing::WithParamInterface<dvpeers::Kind> {
protected:
    MediaTrackDesc* trackLike(const MediaTrackDesc& source) {
        const MediaClipParam param = source.getParam();
        MediaTrackDesc* const track = m_copy->createTrack(param, m_result);
        if (track == nullptr || track->createClip(param, m_result) == nullptr) return nullptr;
        return track;
    }
    bool copyFrame(const MediaObj& source, unsigned frame, bool async) {
        MediaTrackDesc& track = *m_copy->getTrackAt(0);
        MediaSampleInMovie from, to;
        MediaIoBuf buffer;
        SampleInfo info;
        info.reset(track.getClip(0)->getLookup()->getFixedSize());
        if (!source.getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(frame, 1), from, m_result)) return false;
        if (!source.vsRead(from, buffer)) return false;
        if (!track.addSamples(MediaRecordReq(frame, 1, info), to, m_result)) return false;
        return async ? m_copy->vaWrite(to, kit::obufOf(kit::bytesOf(buffer))).success()
                     : m_copy->vsWrite(to, buffer).success();
    }

    MediaObj* m_copy = nullptr;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, RecordedDv, testing::ValuesIn(dvpeers::s_kinds), [](const auto& kind) {
    std::string name;
    for (const char* c = kind.param.m_name; *c != '\0'; ++c)
        name += std::isalnum(static_cast<unsigned char>(*c)) != 0 ? *c : '_';
    return name;
});

TEST_P(RecordedDv, IsTheStreamThatWasRecorded) {
    const std::string original = m_tree.path("original.dv"), copied = m_tree.path("copied.dv");
    dvpeers::write(GetParam(), original);
    MediaObj* const source = MediaObj::openReader(original.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(source, nullptr) << m_result.describe().get();
    m_copy = MediaObj::openWriter(copied.c_str(), false, m_result, MediaContainment::Embedded, MediaFileType::Unknown,
                                  nullptr, BasicIOTypes::SizeAdvice::None);
    ASSERT_NE(m_copy, nullptr) << m_result.describe().get();
    for (unsigned i = 0; i < source->getTrackCount(); ++i)
        ASSERT_NE(trackLike(*source->getTrackAt(i)), nullptr) << m_result.describe().get();
    const auto frames = static_cast<unsigned>(source->getFrameLength());
    for (unsigned frame = 0; frame < frames; ++frame)
        ASSERT_TRUE(copyFrame(*source, frame, frame % 2 == 0)) << m_result.describe().get();
    EXPECT_TRUE(m_copy->setRecording(false));
    EXPECT_EQ(m_copy->getFrameLength(), frames);
    m_copy->release(MediaAgent(nullptr), true);
    source->release();
    const std::size_t size = std::filesystem::file_size(original);
    EXPECT_EQ(std::filesystem::file_size(copied), size);
    EXPECT_TRUE(kit::bytesAt(copied, 0, size) == kit::bytesAt(original, 0, size));
    EXPECT_EQ(dvpeers::probe(copied).m_frames, frames);
    EXPECT_EQ(dvpeers::decodePicture(copied), dvpeers::decodePicture(original));
}
