#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "backends/mov/mov_recording.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// Movies are recorded from the samples of others, and ffmpeg reads picture and sound out of them without a word, as out
// of those that they come from.

namespace {

using movpeers::Packet;

class RecordedMov : public kit::CacheScene {
protected:
    void create(const std::string& name, MediaContainment containment = MediaContainment::Embedded) {
        m_path = m_tree.path(name);
        m_movie = MediaObj::openWriter(m_path.c_str(), false, m_result, containment, MediaFileType::QuickTime, nullptr,
                                       BasicIOTypes::SizeAdvice::None);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }
    MediaTrackDesc* track(const MediaClipParam& param) {
        MediaTrackDesc* const made = m_movie->createTrack(param, m_result);
        const bool isMade = made != nullptr && made->createClip(param, m_result) != nullptr;
        EXPECT_TRUE(isMade) << m_result.describe().get();
        return isMade ? made : nullptr;
    }
    MediaTrackDesc* sound(unsigned rate, unsigned channels, unsigned bits,
                          MediaEncodingType encoding = MediaEncodingType::Pcm,
                          MediaEndian endian = MediaEndian::Little) {
        MediaClipParam param;
        EXPECT_TRUE(param.initAudio(MediaFileType::QuickTime, encoding, MediaVideoRate::Unknown, rate, channels, bits));
        param.m_endian = endian;
        return track(param);
    }
    MediaTrackDesc* pictures(MediaEncodingType encoding, MediaVideoRate rate, unsigned width = 0, unsigned height = 0) {
        MediaClipParam param;
        EXPECT_TRUE(param.initVideo(MediaFileType::QuickTime, encoding, rate));
        if (width != 0) {
            param.m_width = width;
            param.m_height = height;
            param.m_vscan = MediaVideoScanType::Unknown;
        }
        return track(param);
    }
    // Behind the last ones of the track's clip.
    void add(MediaTrackDesc& track, unsigned count, const std::string& bytes, bool async = false, char kind = 'I') {
        SampleInfo info;
        info.reset(static_cast<unsigned>(bytes.size()));
        info.setEncoding(kind == 'B' ? SampleCodingType::B : kind == 'P' ? SampleCodingType::P : SampleCodingType::I);
        MediaSampleInMovie where;
        const auto at = track.getClip(track.getClipCount() - 1)->getLookup()->getSummary().m_numSamples;
        ASSERT_TRUE(track.addSamples(MediaRecordReq(at, count, info), where, m_result)) << m_result.describe().get();
        if (async) {
            ASSERT_TRUE(m_movie->vaWrite(where, kit::obufOf(bytes)));
        } else {
            MediaIoBuf buffer;
            kit::fill(buffer, bytes);
            ASSERT_TRUE(m_movie->vsWrite(where, buffer));
        }
    }
    // The first clip shows some of what it holds: of the frames it skips the first 3 and the last 5.
    void addCut(MediaTrackDesc& video, const std::vector<Packet>& frames, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (i + 5 == count) {
                ASSERT_TRUE(video.setPrecharge(3));
                ASSERT_TRUE(video.setTargetRollout(1000));
            }
            add(video, 1, frames[i].m_bytes, i % 2 == 0, frames[i].m_kind);
        }
    }
    void end() {
        EXPECT_TRUE(m_movie->setRecording(false));
        m_movie->release(kit::CacheScene::nullAgent(), true);
        m_movie = nullptr;
    }

    MediaObj* m_movie = nullptr;
    std::string m_path;
};

// Those frames' hashes.
std::string linesOf(const std::string& text, std::size_t from, std::size_t to) {
    std::istringstream lines(text);
    std::string some, line;
    for (std::size_t i = 0; i < to && std::getline(lines, line); ++i)
        some += i >= from ? line + "\n" : "";
    return some;
}

void expectSameSamples(const std::vector<Packet>& one, const std::vector<Packet>& other) {
    ASSERT_EQ(one.size(), other.size());
    for (std::size_t i = 0; i < one.size(); ++i) {
        EXPECT_EQ(one[i].m_size, other[i].m_size) << i;
        EXPECT_NEAR(one[i].m_time, other[i].m_time, 0.0005) << i;
        EXPECT_TRUE(one[i].m_bytes == other[i].m_bytes) << i;
    }
}

}  // namespace

TEST_F(RecordedMov, HoldsDvAndSoundAsTheyWereRecorded) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=3", "-f", "lavfi", "-i", "sine=d=3:r=48000", "-ac",
                     "2", "-pix_fmt", "yuv420p", "-c:v", "dvvideo", "-c:a", "pcm_s16le"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0"), blocks = movpeers::packetsOf(source, "a:0");
    std::string samples;
    for (const Packet& block : blocks)
        samples += block.m_bytes;
    create("copy.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Dv, MediaVideoRate::Pal25);
    MediaTrackDesc* const audio = sound(48000, 2, 16);
    ASSERT_EQ(samples.size(), 3 * 48000 * 4u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        add(*video, 1, frames[i].m_bytes, i % 3 == 0);
        add(*audio, 1920, samples.substr(i * 1920 * 4, 1920 * 4), i % 2 == 0);
    }
    EXPECT_EQ(m_movie->getFrameLength(), frames.size());
    end();
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
    EXPECT_EQ(movpeers::decode(m_path, "a:0"), movpeers::decode(source, "a:0"));
    expectSameSamples(movpeers::packetsOf(m_path, "v:0"), frames);
    EXPECT_EQ(movpeers::fact(m_path, "v:0", "codec_tag_string"), "dvcp");
    EXPECT_EQ(movpeers::fact(m_path, "a:0", "codec_name"), "pcm_s16le");
}

TEST_F(RecordedMov, TellsItsTimecodeAndItsPacketsAreThoseOfOneWithout) {
    struct Row {
        MediaVideoRate m_rate;
        int m_counter;
        bool m_isDrop, m_isByRef, m_isLate;
        const char* m_text;
    };
    const auto pal = MediaVideoRate::Pal25, ntsc = MediaVideoRate::Ntsc2997;
    const Row rows[] = {
        {pal, ((10 * 60 + 11) * 60 + 12) * 25 + 13, false, false, false, "10:11:12:13"},
        {pal, 0, false, true, false, "00:00:00:00"},
        {pal, 24 * 3600 * 25 - 1, false, false, true, "23:59:59:24"},
        {ntsc, 107892, true, false, false, "01:00:00;00"},
        {ntsc, 1800, true, false, true, "00:01:00;02"},
        {ntsc, 107892, false, false, false, "00:59:56:12"},
    };
    struct Source {
        std::vector<Packet> m_frames, m_recorded;  // those of a movie without a timecode
        std::string m_decoded;
    };
    std::map<MediaVideoRate, Source> sources;
    unsigned number = 0;
    const auto record = [&](const Row& row, const MediaTimecode& timecode) {
        create("tc" + std::to_string(number++) + ".mov",
               row.m_isByRef ? MediaContainment::ByRef : MediaContainment::Embedded);
        EXPECT_FALSE(m_movie->getTimecode().isValid());
        MediaTrackDesc* const video = pictures(MediaEncodingType::Dv, row.m_rate);
        const bool isEarly = timecode.isValid() && !row.m_isLate;
        EXPECT_TRUE(!isEarly || m_movie->setTimecode(timecode).success());
        for (const Packet& frame : sources[row.m_rate].m_frames)
            add(*video, 1, frame.m_bytes);
        if (timecode.isValid() && row.m_isLate) {
            MediaTimecode other;
            other.setCounter(4711, FixedPoint<16>(25), false);
            EXPECT_TRUE(m_movie->setTimecode(other));
            m_movie->flush(nullptr, true);
            EXPECT_TRUE(m_movie->setTimecode(timecode));
        }
        EXPECT_EQ(m_movie->getTimecode().isValid(), timecode.isValid());
        end();
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.m_text);
        Source& source = sources[row.m_rate];
        const bool isFirst = source.m_frames.empty();
        if (isFirst) {
            const bool isPal = row.m_rate == pal;
            const std::string size = isPal ? "720x576:r=25" : "720x480:r=30000/1001", path = m_tree.path("source.mov");
            movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=" + size + ":d=0.4", "-pix_fmt",
                             isPal ? "yuv420p" : "yuv411p", "-c:v", "dvvideo"},
                            path);
            source.m_frames = movpeers::packetsOf(path, "v:0");
            record(row, MediaTimecode());
            source.m_recorded = movpeers::packetsOf(m_path, "v:0");
            source.m_decoded = movpeers::decode(m_path, "v:0");
        }
        MediaTimecode timecode;
        timecode.setCounter(row.m_counter, MediaObj::getRealVideoRate(row.m_rate), row.m_isDrop);
        record(row, timecode);
        // ffprobe warns of every track of timecode that it can't decode it.
        const kit::Outcome outcome =
            kit::run({"ffprobe", "-v", "error", "-show_entries", "stream=codec_tag_string:stream_tags=timecode", "-of",
                      "csv=p=0", m_path});
        const std::string text = row.m_text;
        EXPECT_EQ(outcome.m_err, "");
        EXPECT_EQ(outcome.m_out, (row.m_rate == pal ? "dvcp," : "dvc ,") + text + "\ntmcd," + text + "\n");
        EXPECT_EQ(movpeers::decode(m_path, "v:0"), source.m_decoded);
        if (isFirst) expectSameSamples(movpeers::packetsOf(m_path, "v:0"), source.m_recorded);
        expireAll();
        MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(again, nullptr) << m_result.describe().get();
        EXPECT_EQ(again->getTrackCount(), 1u);
        EXPECT_EQ(again->getTimecode().getCounter(), row.m_counter);
        EXPECT_EQ(again->getTimecode().m_dropFrame, row.m_isDrop);
        EXPECT_EQ(again->getTimecode().m_rate, timecode.m_rate);
        again->release();
    }
}

TEST_F(RecordedMov, HoldsSoundOfEachLayout) {
    struct Layout {
        unsigned m_rate, m_channels, m_bits;
        MediaEncodingType m_encoding;
        MediaEndian m_endian;
        const char* m_codec;
    };
    constexpr auto pcm = MediaEncodingType::Pcm;
    constexpr auto little = MediaEndian::Little, big = MediaEndian::Big;
    const Layout layouts[] = {
        {48000, 1, 8, pcm, little, "pcm_u8"},
        {48000, 2, 8, pcm, big, "pcm_s8"},
        {96000, 1, 8, pcm, little, "pcm_u8"},
        {96000, 1, 8, pcm, big, "pcm_s8"},
        {48000, 2, 16, pcm, little, "pcm_s16le"},
        {44100, 2, 16, pcm, big, "pcm_s16be"},
        {48000, 8, 24, pcm, little, "pcm_s24le"},
        {96000, 2, 24, pcm, big, "pcm_s24be"},
        {48000, 1, 24, pcm, big, "pcm_s24be"},
        {48000, 2, 32, pcm, little, "pcm_s32le"},
        {48000, 2, 32, pcm, big, "pcm_s32be"},
        {96000, 6, 16, pcm, little, "pcm_s16le"},
        {8000, 1, 8, MediaEncodingType::ALaw, big, "pcm_alaw"},
    };
    unsigned number = 0;
    for (const Layout& layout : layouts) {
        SCOPED_TRACE(testing::Message() << layout.m_codec << " " << layout.m_rate << " " << layout.m_channels);
        create("sound" + std::to_string(number++) + ".mov");
        MediaTrackDesc* const audio =
            sound(layout.m_rate, layout.m_channels, layout.m_bits, layout.m_encoding, layout.m_endian);
        ASSERT_NE(audio, nullptr);
        const unsigned size = layout.m_channels * layout.m_bits / 8;
        std::string raw;
        for (unsigned i = 0; i < 10; ++i) {
            const std::string block = kit::patternFrom(i * 17, 700 * size);
            add(*audio, 700, block, i % 2 == 0);
            raw += block;
        }
        end();
        EXPECT_EQ(movpeers::fact(m_path, "a:0", "codec_name"), layout.m_codec);
        EXPECT_EQ(movpeers::fact(m_path, "a:0", "sample_rate"), std::to_string(layout.m_rate));
        EXPECT_EQ(movpeers::fact(m_path, "a:0", "channels"), std::to_string(layout.m_channels));
        std::string read;
        for (const Packet& packet : movpeers::packetsOf(m_path, "a:0"))
            read += packet.m_bytes;
        EXPECT_TRUE(read == raw);
    }
}

TEST_F(RecordedMov, HoldsPicturesThatDependOnOthers) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=2", "-pix_fmt", "yuv420p", "-c:v", "mpeg2video",
                     "-bf", "2", "-g", "12", "-b:v", "8M"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0", true);
    create("copy.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Mpeg, MediaVideoRate::Pal25, 720, 576);
    for (const Packet& frame : frames)
        add(*video, 1, frame.m_bytes, false, frame.m_kind);
    end();
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
    expectSameSamples(movpeers::packetsOf(m_path, "v:0"), frames);
    EXPECT_EQ(movpeers::fact(m_path, "v:0", "codec_name"), "mpeg2video");
}

TEST_F(RecordedMov, HoldsAvcWithWhatItsDecoderNeeds) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=640x360:r=25:d=2", "-pix_fmt", "yuv420p", "-c:v", "libx264",
                     "-x264-params", "repeat-headers=1:bframes=2:b-pyramid=none:keyint=20"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0", true);
    create("copy.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Avc, MediaVideoRate::Pal25, 640, 360);
    for (std::size_t i = 0; i < frames.size(); ++i)
        add(*video, 1, frames[i].m_bytes, i % 2 == 1, frames[i].m_kind);
    end();
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
    expectSameSamples(movpeers::packetsOf(m_path, "v:0"), frames);
    EXPECT_EQ(movpeers::fact(m_path, "v:0", "codec_name"), "h264");
}

// B pictures that others depend on, two at once that wait, and a picture of I that no one can start at.
TEST_F(RecordedMov, ShowsAvcWhenItsPicturesSay) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f",
                     "lavfi",
                     "-i",
                     "testsrc2=s=320x180:r=25:d=1.2",
                     "-f",
                     "lavfi",
                     "-i",
                     "rgbtestsrc=s=320x180:r=25:d=1.8",
                     "-filter_complex",
                     "[0][1]concat",
                     "-pix_fmt",
                     "yuv420p",
                     "-c:v",
                     "libx264",
                     "-bf",
                     "3",
                     "-force_key_frames",
                     "2",
                     "-x264-params",
                     "repeat-headers=1:b-pyramid=normal:b-adapt=0:keyint=200:min-keyint=100:scenecut=40"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0", true);
    std::size_t syncs = 0, starts = 0;
    for (const Packet& frame : frames) {
        syncs += frame.m_isSync ? 1 : 0;
        starts += frame.m_kind == 'I' ? 1 : 0;
    }
    EXPECT_LT(syncs, starts) << "the source has no I picture that isn't a sync sample";
    create("copy.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Avc, MediaVideoRate::Pal25, 320, 180);
    for (std::size_t i = 0; i < frames.size(); ++i)
        add(*video, 1, frames[i].m_bytes, i % 3 == 1, frames[i].m_kind);
    end();
    const std::vector<Packet> written = movpeers::packetsOf(m_path, "v:0");
    expectSameSamples(written, frames);
    for (std::size_t i = 0; i < std::min(written.size(), frames.size()); ++i)
        EXPECT_EQ(written[i].m_isSync, frames[i].m_isSync) << i;
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
}

TEST_F(RecordedMov, HoldsProRes) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write(
        {"-f", "lavfi", "-i", "testsrc2=s=640x360:r=30000/1001:d=1", "-c:v", "prores_ks", "-profile:v", "2"}, source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0");
    create("copy.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Prores, MediaVideoRate::Ntsc2997, 640, 360);
    for (const Packet& frame : frames)
        add(*video, 1, frame.m_bytes, true);
    end();
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
    expectSameSamples(movpeers::packetsOf(m_path, "v:0"), frames);
}

TEST_F(RecordedMov, NamesTheProResThatItsBitrateTells) {
    struct Kind {
        MediaChromaSample m_chroma;
        unsigned m_width, m_height, m_megabits;
        const char* m_code;
    };
    constexpr auto c422 = MediaChromaSample::C422, c444 = MediaChromaSample::C444;
    // The published target rates at 29.97 pictures a second.
    const Kind kinds[] = {
        {c422, 1920, 1080, 0, "apcn"},   {c422, 1920, 1080, 45, "apco"},  {c422, 1920, 1080, 102, "apcs"},
        {c422, 1920, 1080, 147, "apcn"}, {c422, 1920, 1080, 220, "apch"}, {c422, 1280, 1080, 38, "apco"},
        {c422, 1280, 1080, 87, "apcs"},  {c422, 1280, 1080, 126, "apcn"}, {c422, 1280, 1080, 189, "apch"},
        {c422, 960, 720, 44, "apcs"},    {c422, 960, 720, 63, "apcn"},    {c422, 720, 486, 12, "apco"},
        {c422, 720, 486, 29, "apcs"},    {c422, 720, 486, 42, "apcn"},    {c422, 720, 486, 63, "apch"},
        {c444, 1920, 1080, 0, "ap4h"},   {c444, 1920, 1080, 330, "ap4h"}, {c444, 1920, 1080, 495, "ap4x"},
        {c444, 1280, 1080, 283, "ap4h"}, {c444, 720, 486, 94, "ap4h"},    {c444, 720, 486, 141, "ap4x"}};
    unsigned number = 0;
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(testing::Message() << kind.m_code << " of " << kind.m_megabits);
        create("kind" + std::to_string(number++) + ".mov");
        MediaClipParam param;
        ASSERT_TRUE(param.initVideo(MediaFileType::QuickTime, MediaEncodingType::Prores, MediaVideoRate::Ntsc2997));
        param.m_chroma = kind.m_chroma;
        param.m_width = kind.m_width;
        param.m_height = kind.m_height;
        param.m_bitrate = kind.m_megabits * 1000000;
        MediaTrackDesc* const video = track(param);
        ASSERT_NE(video, nullptr);
        add(*video, 1, kit::patternFrom(0, 500));
        end();
        EXPECT_NE(kit::bytesAt(m_path, 0, 8000).find(kind.m_code), std::string::npos);
    }
}

TEST_F(RecordedMov, RefersToSamplesBesideIt) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=720x480:r=30000/1001:d=2", "-f", "lavfi", "-i",
                     "sine=d=2.002:r=48000", "-ac", "2", "-pix_fmt", "yuv411p", "-c:v", "dvvideo", "-c:a", "pcm_s16le"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0"), blocks = movpeers::packetsOf(source, "a:0");
    create("film.mov", MediaContainment::ByRef);
    MediaTrackDesc* const video = pictures(MediaEncodingType::Dv, MediaVideoRate::Ntsc2997);
    MediaTrackDesc* const audio = sound(48000, 2, 16);
    for (std::size_t i = 0; i < std::max(frames.size(), blocks.size()); ++i) {
        if (i < frames.size()) add(*video, 1, frames[i].m_bytes, i % 3 == 0);
        if (i < blocks.size()) add(*audio, blocks[i].m_size / 4, blocks[i].m_bytes, i % 2 == 0);
    }
    end();
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), movpeers::decode(source, "v:0"));
    EXPECT_EQ(movpeers::decode(m_path, "a:0"), movpeers::decode(source, "a:0"));
}

// Essence of more than 4 GiB lies in front of the last samples: a hole, in which nothing is written.
TEST_F(RecordedMov, HoldsSamplesPastFourGigabytes) {
    constexpr unsigned long long limit = 1ull << 32;
    create("long.mov");
    MediaTrackDesc* const audio = sound(48000, 2, 16);
    std::string raw = kit::patternFrom(0, 700 * 4);
    add(*audio, 700, raw);
    MovIndexKeeper& keeper = dynamic_cast<MovRecordedMovie&>(*m_movie).recorder().getKeeper();
    const std::shared_ptr<RecordedEssence> essence = keeper.start(m_result);
    for (unsigned i = 0; i < 5; ++i) {
        MediaSampleDesc hole;
        hole.set(0, 0, keeper.reserve(1u << 30), 1u << 30, 0, false);
        essence->noteWritten(hole);
    }
    for (unsigned i = 0; i < 10; ++i) {
        const std::string block = kit::patternFrom(i * 17, 700 * 4);
        add(*audio, 700, block, i % 2 == 0);
        raw += block;
    }
    end();
    std::string read;
    unsigned far = 0;
    for (const Packet& packet : movpeers::packetsOf(m_path, "a:0")) {
        read += packet.m_bytes;
        far += packet.m_at > limit ? 1 : 0;
    }
    EXPECT_TRUE(read == raw);
    EXPECT_GE(far, 7u);
    EXPECT_EQ(movpeers::raw(m_path, 1), raw);
}

TEST_F(RecordedMov, ShowsOfEachClipWhatItsEditSays) {
    const std::string source = m_tree.path("source.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=1", "-pix_fmt", "yuv420p", "-c:v", "dvvideo"},
                    source);
    const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0");
    ASSERT_EQ(frames.size(), 25u);
    create("cut.mov");
    MediaTrackDesc* const video = pictures(MediaEncodingType::Dv, MediaVideoRate::Pal25);
    addCut(*video, frames, 14);
    ASSERT_NE(video->createClip(video->getParam(), m_result), nullptr) << m_result.describe().get();
    for (std::size_t i = 14; i < frames.size(); ++i)
        add(*video, 1, frames[i].m_bytes);
    end();
    const std::string hashes = movpeers::decode(source, "v:0");
    EXPECT_EQ(movpeers::decode(m_path, "v:0"), linesOf(hashes, 3, 9) + linesOf(hashes, 14, 25));
}

TEST_F(RecordedMov, ShowsOfReferredSamplesWhatItsEditSays) {
    const std::string dv = m_tree.path("dv.mov"), avc = m_tree.path("avc.mov");
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=1", "-pix_fmt", "yuv420p", "-c:v", "dvvideo"}, dv);
    movpeers::write({"-f", "lavfi", "-i", "testsrc2=s=640x360:r=25:d=1", "-pix_fmt", "yuv420p", "-c:v", "libx264",
                     "-x264-params", "repeat-headers=1:bframes=2:b-pyramid=none:keyint=10"},
                    avc);
    for (const std::string& source : {dv, avc}) {
        SCOPED_TRACE(source);
        const bool isDv = source == dv;
        const std::vector<Packet> frames = movpeers::packetsOf(source, "v:0", true);
        ASSERT_EQ(frames.size(), 25u);
        create(isDv ? "one.mov" : "two.mov", MediaContainment::ByRef);
        MediaTrackDesc* const video = isDv ? pictures(MediaEncodingType::Dv, MediaVideoRate::Pal25)
                                           : pictures(MediaEncodingType::Avc, MediaVideoRate::Pal25, 640, 360);
        addCut(*video, frames, 25);
        end();
        EXPECT_EQ(movpeers::decode(m_path, "v:0"), linesOf(movpeers::decode(source, "v:0"), 3, 20));
    }
}
