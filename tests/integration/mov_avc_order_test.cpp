#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <sstream>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/avc_stream.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// Streams of AVC that tell in every way there is when their pictures are shown, recorded to a movie: they are shown in
// the order in which ffmpeg's decoder hands out those of the bare stream, and are I, P and B as it says.

namespace {

using avcstream::Picture;
using avcstream::Stream;

class AvcOrder : public kit::CacheScene {
protected:
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }
    void record(const Stream& stream) {
        m_path = m_tree.path("film" + std::to_string(stream.m_orderKind) + ".mov");
        m_movie = MediaObj::openWriter(m_path.c_str(), false, m_result, MediaContainment::Embedded,
                                       MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
        MediaClipParam param;
        ASSERT_TRUE(param.initVideo(MediaFileType::QuickTime, MediaEncodingType::Avc, MediaVideoRate::Pal25));
        param.m_width = 16;
        param.m_height = stream.m_hasFields ? 32 : 16;
        MediaTrackDesc* const track = m_movie->createTrack(param, m_result);
        ASSERT_NE(track, nullptr) << m_result.describe().get();
        ASSERT_NE(track->createClip(param, m_result), nullptr) << m_result.describe().get();
        for (const auto& units : stream.units())
            add(*track, avcstream::withLengths(units), stream.m_pictures[m_count].m_kind);
        EXPECT_TRUE(m_movie->setRecording(false));
        m_movie->release(nullAgent(), true);
        m_movie = nullptr;
    }
    void add(MediaTrackDesc& track, const std::string& bytes, char kind) {
        SampleInfo info;
        info.reset(static_cast<unsigned>(bytes.size()));
        info.setEncoding(kind == 'B' ? SampleCodingType::B : kind == 'P' ? SampleCodingType::P : SampleCodingType::I);
        MediaSampleInMovie where;
        ASSERT_TRUE(track.addSamples(MediaRecordReq(m_count++, 1, info), where, m_result)) << m_result.describe().get();
        MediaIoBuf buffer;
        kit::fill(buffer, bytes);
        ASSERT_TRUE(m_movie->vsWrite(where, buffer));
    }
    // What ffmpeg's decoder hands out: for each picture its place in the order of decoding, and its kind.
    std::string seenOf(const Stream& stream) {
        std::string bytes;
        std::vector<std::size_t> places;
        for (const auto& units : stream.units()) {
            places.push_back(bytes.size());
            bytes += avcstream::withStartCodes(units);
        }
        const std::string path = m_tree.write("bare.264", bytes);
        const kit::Outcome outcome = kit::run({"ffprobe", "-v", "warning", "-f", "h264", "-show_entries",
                                               "frame=pkt_pos,pict_type", "-of", "csv=p=0", path});
        EXPECT_TRUE(outcome.good());
        EXPECT_EQ(outcome.m_err, "");
        std::string seen;
        std::istringstream lines(outcome.m_out);
        for (std::string line; std::getline(lines, line);) {
            const auto place = std::find(places.begin(), places.end(), std::strtoull(line.c_str(), nullptr, 10));
            seen += std::to_string(place - places.begin()) + line[line.find(',') + 1] + " ";
        }
        return seen;
    }
    // The same as the movie's times have it, and as the core says of its pictures.
    std::string shown() {
        m_movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        if (m_movie == nullptr) return m_result.describe().get();
        const MediaClipDesc& clip = *m_movie->getTrackAt(0)->getClip(0);
        const std::vector<movpeers::Packet> packets = movpeers::packetsOf(m_path, "v:0");
        EXPECT_EQ(packets.size(), clip.getLength());
        std::vector<std::size_t> order(packets.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&packets](auto one, auto other) { return packets[one].m_time < packets[other].m_time; });
        std::string text;
        for (const std::size_t sample : order) {
            MediaSampleInMovie where;
            EXPECT_TRUE(clip.getFrameInfo(MediaPlayReq(sample, 1), where, m_result));
            EXPECT_EQ(where.m_chunks[0].m_offset, packets[sample].m_at);
            text += std::to_string(sample) + "?IPB"[static_cast<int>(where.m_info.getEncoding())] + " ";
        }
        return text;
    }
    void expectAsSeen(const Stream& stream) {
        const std::string seen = seenOf(stream);
        record(stream);
        EXPECT_EQ(shown(), seen);
        EXPECT_EQ(std::count(seen.begin(), seen.end(), ' '), static_cast<long>(stream.m_pictures.size()));
    }

    MediaObj* m_movie = nullptr;
    std::string m_path;
    unsigned m_count = 0;
};

constexpr bool s_alone = false;  // no other picture refers to it

}  // namespace

TEST_F(AvcOrder, IsThatOfCountsThatBeginAgainAtTheirEnd) {
    Stream stream;
    stream.m_pictures = {{'I', 0},           {'P', 3},          {'B', 1, s_alone}, {'B', 2, s_alone},
                         {'P', 6},           {'B', 4, s_alone}, {'B', 5, s_alone}, {'P', 9},
                         {'B', 7, s_alone},  {'B', 8, s_alone}, {'I', 12},         {'B', 10, s_alone},
                         {'B', 11, s_alone}, {'I', 0},          {'P', 2},          {'B', 1, s_alone}};
    expectAsSeen(stream);
}

// The order's kind 1, past the end of the frames' numbers.
TEST_F(AvcOrder, IsThatOfFramesNumbersAndWhatDiffersFromThem) {
    Stream stream;
    stream.m_orderKind = 1;
    stream.m_pictures = {{'I', 0},          {'P', 3},          {'B', 1, s_alone}, {'B', 2, s_alone}, {'P', 6},
                         {'B', 4, s_alone}, {'B', 5, s_alone}, {'P', 7},          {'P', 9},          {'B', 8, s_alone}};
    for (unsigned count = 11; count < 60; count += 2) {
        stream.m_pictures.push_back({'P', count});
        stream.m_pictures.push_back({'B', count - 1, s_alone});
    }
    stream.m_pictures.insert(stream.m_pictures.end(), {{'I', 0}, {'P', 2}, {'B', 1, s_alone}});
    expectAsSeen(stream);
}

TEST_F(AvcOrder, IsThatOfDecodingWherePicturesTellNone) {
    Stream stream;
    stream.m_orderKind = 2;
    stream.m_pictures = {{'I', 0}, {'P', 1}, {'P', 2}, {'I', 3}, {'P', 4}};
    expectAsSeen(stream);
}

TEST_F(AvcOrder, BeginsAnewWhereAllReferencesAreForgotten) {
    for (const unsigned kind : {0u, 1u}) {
        Stream stream;
        stream.m_orderKind = kind;
        stream.m_pictures = {
            {'I', 0},         {'P', 3},          {'B', 1, s_alone}, {'B', 2, s_alone},    {'P', 5, true, true},
            {'P', 3},         {'B', 1, s_alone}, {'B', 2, s_alone}, {'I', 6, true, true}, {'P', 2},
            {'B', 1, s_alone}};
        expectAsSeen(stream);
        m_movie->release();
        m_movie = nullptr;
        expireAll();
        m_count = 0;
    }
}

TEST_F(AvcOrder, OfPairsOfFieldsIsThatOfTheirFrames) {
    Stream stream;
    stream.m_hasFields = true;
    stream.m_pictures = {{'I', 0, true, false, 'P'},
                         {'P', 3, true, false, 'P'},
                         {'B', 1, s_alone, false, 'B'},
                         {'B', 2, s_alone, false, 'B'},
                         {'P', 4},
                         {'I', 6, true, false, 'P'},
                         {'B', 5, s_alone, false, 'B'},
                         {'I', 7, true, false, 'I'},
                         {'P', 8, true, true, 'P'},
                         {'P', 2, true, false, 'P'},
                         {'B', 1, s_alone}};
    expectAsSeen(stream);
    EXPECT_EQ(m_movie->getTrackAt(0)->getClip(0)->getVscan(), MediaVideoScanType::Interlaced);
}
