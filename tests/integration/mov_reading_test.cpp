#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "backends/mov/mov_media_obj.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "tests/integration/mov_peers.h"
#include "tests/integration/tool_kit.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// Movies that ffmpeg has just written: every sample's place, size, times and coding type as ffprobe lists them.

namespace fs = std::filesystem;

namespace {

struct Listed {
    unsigned long long m_at = 0;
    unsigned m_size = 0;
    long long m_decoded = 0, m_shown = 0;  // ticks of the stream
    char m_kind = '?';

    bool operator==(const Listed& other) const {
        return m_at == other.m_at && m_size == other.m_size && m_decoded == other.m_decoded &&
               m_shown == other.m_shown && m_kind == other.m_kind;
    }
};

void PrintTo(const Listed& listed, std::ostream* out) {
    *out << listed.m_size << " bytes at " << listed.m_at << ", " << listed.m_decoded << "/" << listed.m_shown << ", "
         << listed.m_kind;
}

std::string ffprobe(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"ffprobe", "-v", "error", "-ignore_editlist", "1"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.insert(command.end(), {"-of", "default=noprint_wrappers=0:nokey=0", path});
    const kit::Outcome outcome = kit::run(command);
    EXPECT_TRUE(outcome.good()) << outcome.m_err;
    return outcome.m_out;
}

// The sections of ffprobe's list, each as its fields.
std::vector<std::map<std::string, std::string>> sectionsOf(const std::string& text) {
    std::vector<std::map<std::string, std::string>> sections;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("[/", 0) == 0) continue;
        if (line.rfind("[", 0) == 0) sections.emplace_back();
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && !sections.empty()) {
            sections.back()[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return sections;
}

// Times count from the first one: the peer counts all of them from the movie's start.
std::vector<Listed> fromTheFirst(std::vector<Listed> list) {
    const long long first = list.empty() ? 0 : list.front().m_decoded;
    for (Listed& listed : list) {
        listed.m_decoded -= first;
        listed.m_shown -= first;
    }
    return list;
}

std::vector<Listed> listOf(const std::string& path, const std::string& stream, bool hasKinds) {
    std::map<long long, char> kinds;
    if (hasKinds) {
        for (auto& frame : sectionsOf(ffprobe(path, {"-select_streams", stream, "-show_frames"})))
            if (frame.count("pkt_pos") != 0) kinds[std::atoll(frame["pkt_pos"].c_str())] = frame["pict_type"][0];
    }
    std::vector<Listed> list;
    for (auto& packet : sectionsOf(ffprobe(path, {"-select_streams", stream, "-show_packets"}))) {
        Listed listed;
        listed.m_at = std::strtoull(packet["pos"].c_str(), nullptr, 10);
        listed.m_size = static_cast<unsigned>(std::strtoul(packet["size"].c_str(), nullptr, 10));
        listed.m_decoded = std::atoll(packet["dts"].c_str());
        listed.m_shown = std::atoll(packet["pts"].c_str());
        listed.m_kind = hasKinds ? kinds[static_cast<long long>(listed.m_at)] : 'I';
        list.push_back(listed);
    }
    return fromTheFirst(list);
}

class WrittenMov : public kit::CacheScene {
protected:
    void SetUp() override {
        CacheScene::SetUp();
        m_cache.stopNews();
    }
    void open(const std::string& path) {
        m_movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << path << ": " << m_result.describe().get();
    }
    void write(const std::string& name, const std::vector<std::string>& arguments) {
        m_path = m_tree.path(name);
        movpeers::write(arguments, m_path);
        open(m_path);
    }
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }

    const MediaClipDesc& lastClip(unsigned track) const {
        const MediaTrackDesc& desc = *m_movie->getTrackAt(track);
        return *desc.getClip(desc.getClipCount() - 1);
    }
    // All samples of a track's media, one by one.
    std::vector<Listed> read(unsigned track) {
        const MediaClipDesc& clip = lastClip(track);
        std::vector<Listed> list;
        const auto& lookup = static_cast<const MovClip&>(clip).getMovLookup();
        MediaSampleInMovie where;
        for (unsigned long long i = 0; clip.getFrameInfo(MediaPlayReq(i, 1), where, m_result); ++i) {
            MovSampleTime time;
            EXPECT_TRUE(lookup.getSampleTime(i, time));
            Listed listed;
            listed.m_at = where.m_chunks[0].m_offset;
            listed.m_size = where.m_info.getSize();
            listed.m_decoded = static_cast<long long>(time.decoded);
            listed.m_shown = time.shown;
            listed.m_kind = "?IPB"[static_cast<int>(where.m_info.getEncoding())];
            list.push_back(listed);
        }
        EXPECT_TRUE(m_result);
        return fromTheFirst(list);
    }
    // The samples of plain sound, put together as the requests of video frames give them.
    std::string readSound(unsigned track) {
        const MediaClipDesc& clip = lastClip(track);
        std::string bytes;
        for (unsigned long long at = 0; at < clip.getLength();) {
            MediaSampleInMovie where;
            const auto count = static_cast<unsigned>(std::min<unsigned long long>(1601, clip.getLength() - at));
            if (!clip.getMediaOffset(MediaPlayReq(at, count), where, m_result)) break;
            for (unsigned i = 0; i < where.m_numChunks; ++i)
                bytes += kit::bytesAt(m_path, where.m_chunks[i].m_offset, where.m_chunks[i].m_size);
            at += where.m_count;
        }
        return bytes;
    }
    std::string copiedSound(const std::string& format, const std::string& stream = "0:a:0") {
        const std::string path = m_tree.path("copied.raw");
        movpeers::write({"-i", m_path, "-map", stream, "-c", "copy", "-f", format}, path);
        return kit::bytesAt(path, 0, static_cast<unsigned>(fs::file_size(path)));
    }

    std::string m_path;
    MediaObj* m_movie = nullptr;
};

std::vector<std::string> operator+(std::vector<std::string> list, const std::vector<std::string>& more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

const std::vector<std::string> s_picture = {"-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=1.2"};
const std::vector<std::string> s_ntsc = {"-f", "lavfi", "-i", "testsrc2=s=320x240:r=30000/1001:d=1"};
const std::vector<std::string> s_tone = {"-f", "lavfi", "-i", "sine=r=48000:d=1.2"};
const std::vector<std::string> s_avc = {"-c:v",     "libx264", "-preset", "ultrafast",    "-g",
                                        "12",       "-bf",     "2",       "-x264-params", "b-adapt=0:scenecut=0",
                                        "-pix_fmt", "yuv420p"};

}  // namespace

TEST_F(WrittenMov, AvcWithBPicturesAndAacSoundAreListedAsThePeerListsThem) {
    write("a.mp4", s_picture + s_tone + s_avc + std::vector<std::string>{"-c:a", "aac"});
    EXPECT_EQ(read(0), listOf(m_path, "v:0", true));
    EXPECT_EQ(read(1), listOf(m_path, "a:0", false));
    EXPECT_EQ(lastClip(0).getEncoding(), MediaEncodingType::Avc);
    EXPECT_EQ(lastClip(0).getSequenceCoding(), SequenceCodingType::LongGop);
    EXPECT_EQ(lastClip(0).getEdit(0)->getIn(), 0u);  // the edit counts from where the first picture is shown
    EXPECT_EQ(lastClip(0).getLength(), 30u);
    EXPECT_EQ(lastClip(1).getEncoding(), MediaEncodingType::Aac);
    EXPECT_EQ(lastClip(1).getSampleRate(), 48000u);
    EXPECT_EQ(lastClip(1).getTicksPerSample(), 1024u);
    EXPECT_EQ(lastClip(1).getEdit(0)->getIn(), 1u);  // the coder's run-up
}

TEST_F(WrittenMov, ABPicturePointsAtTheAnchorBeforeIt) {
    write("a.mp4", s_picture + s_avc);
    unsigned long long anchor = 0;
    MediaSampleInMovie where;
    for (unsigned long long i = 0; i < 30; ++i) {
        ASSERT_TRUE(lastClip(0).getFrameInfo(MediaPlayReq(i, 1), where, m_result));
        const bool isB = where.m_info.getEncoding() == SampleCodingType::B;
        if (!isB) anchor = i;
        EXPECT_EQ(where.m_anchor, anchor);
    }
    EXPECT_GT(anchor, 20u);
}

TEST_F(WrittenMov, FragmentsAreListedAsThePeerListsThem) {
    for (const char* flags : {"frag_keyframe+empty_moov", "frag_keyframe", "frag_every_frame+default_base_moof",
                              "frag_keyframe+omit_tfhd_offset"}) {
        write("f.mp4", s_picture + s_tone + s_avc + std::vector<std::string>{"-c:a", "aac", "-movflags", flags});
        EXPECT_EQ(read(0), listOf(m_path, "v:0", true)) << flags;
        EXPECT_EQ(read(1), listOf(m_path, "a:0", false)) << flags;
        EXPECT_EQ(m_movie->getFrameLength(), 30u) << flags;
        m_movie->release();
        m_movie = nullptr;
        expireAll();
        fs::remove(m_path);
    }
}

TEST_F(WrittenMov, PicturesOfEveryCodingAreListedAsThePeerListsThem) {
    struct Row {
        std::vector<std::string> m_options;
        MediaEncodingType m_encoding;
        SequenceCodingType m_coding;
    };
    const Row rows[] = {
        {{"-c:v", "mpeg2video", "-g", "12", "-bf", "2"}, MediaEncodingType::Mpeg, SequenceCodingType::LongGop},
        {{"-c:v", "mpeg4", "-g", "12", "-bf", "2"}, MediaEncodingType::Mpeg4, SequenceCodingType::LongGop},
        {{"-c:v", "prores_ks"}, MediaEncodingType::Prores, SequenceCodingType::Intra},
        {{"-c:v", "dvvideo", "-s", "720x576", "-pix_fmt", "yuv420p"}, MediaEncodingType::Dv, SequenceCodingType::Intra},
        {{"-c:v", "jpeg2000"}, MediaEncodingType::Jpeg2000, SequenceCodingType::Intra},
        {{"-c:v", "dnxhd", "-s", "1280x720", "-b:v", "60M", "-r", "25", "-pix_fmt", "yuv422p", "-t", "0.2"},
         MediaEncodingType::Dnxhd,
         SequenceCodingType::Intra},
    };
    for (const Row& row : rows) {
        write("a.mov", s_picture + row.m_options);
        EXPECT_EQ(read(0), listOf(m_path, "v:0", true)) << row.m_options[1];
        EXPECT_EQ(lastClip(0).getEncoding(), row.m_encoding) << row.m_options[1];
        EXPECT_EQ(lastClip(0).getSequenceCoding(), row.m_coding) << row.m_options[1];
        EXPECT_EQ(lastClip(0).getSampleRate(), 25u) << row.m_options[1];
        m_movie->release();
        m_movie = nullptr;
        expireAll();
        fs::remove(m_path);
    }
}

TEST_F(WrittenMov, SoundOfEveryLayoutComesOutAsThePeerCopiesIt) {
    struct Row {
        const char *m_codec, *m_format;
        unsigned m_bits;
        MediaEndian m_endian;
        MediaEncodingType m_encoding;
    };
    const MediaEncodingType pcm = MediaEncodingType::Pcm;
    const Row rows[] = {{"pcm_s16le", "s16le", 16, MediaEndian::Little, pcm},
                        {"pcm_s16be", "s16be", 16, MediaEndian::Big, pcm},
                        {"pcm_s24le", "s24le", 24, MediaEndian::Little, pcm},
                        {"pcm_s24be", "s24be", 24, MediaEndian::Big, pcm},
                        {"pcm_s32le", "s32le", 32, MediaEndian::Little, pcm},
                        {"pcm_s32be", "s32be", 32, MediaEndian::Big, pcm},
                        {"pcm_u8", "u8", 8, MediaEndian::Little, pcm},
                        {"pcm_s8", "s8", 8, MediaEndian::Big, pcm},
                        {"pcm_alaw", "alaw", 8, MediaEndian::Big, MediaEncodingType::ALaw}};
    for (const Row& row : rows) {
        write("a.mov",
              s_picture + s_tone + std::vector<std::string>{"-c:v", "mpeg2video", "-ac", "2", "-c:a", row.m_codec});
        EXPECT_EQ(readSound(1), copiedSound(row.m_format)) << row.m_codec;
        const MediaClipDesc& clip = lastClip(1);
        EXPECT_EQ(clip.getEncoding(), row.m_encoding) << row.m_codec;
        EXPECT_EQ(clip.getBitsPerUnit(), row.m_bits) << row.m_codec;
        EXPECT_EQ(clip.getEndian(), row.m_endian) << row.m_codec;
        EXPECT_EQ(clip.getChannels(), 2u);
        EXPECT_EQ(clip.getSampleRate(), 48000u);
        EXPECT_EQ(clip.getLength(), 57600u) << row.m_codec;
        m_movie->release();
        m_movie = nullptr;
        expireAll();
        fs::remove(m_path);
    }
}

TEST_F(WrittenMov, PlainSoundInFragmentsComesOutAsThePeerCopiesIt) {
    for (const char* layout : {"s16le", "s24be", "alaw"}) {
        write(std::string(layout) + ".mov",
              s_picture + s_tone +
                  std::vector<std::string>{"-c:v", "mpeg2video", "-ac", "2", "-c:a", std::string("pcm_") + layout,
                                           "-movflags", "frag_keyframe+empty_moov"});
        EXPECT_EQ(readSound(1), copiedSound(layout)) << layout;
        EXPECT_EQ(lastClip(1).getLength(), 57600u) << layout;
        EXPECT_EQ(lastClip(1).getTicksPerSample(), 1u) << layout;
        // Each block of the peer's begins at one of the samples, at the same time.
        const std::vector<Listed> samples = read(1);
        std::size_t at = 0;
        for (const Listed& block : listOf(m_path, "a:0", false)) {
            ASSERT_LT(at, samples.size());
            EXPECT_EQ(samples[at].m_at, block.m_at);
            EXPECT_EQ(samples[at].m_shown, block.m_shown);
            at += block.m_size / samples[at].m_size;
        }
        EXPECT_EQ(at, samples.size());
        m_movie->release();
        m_movie = nullptr;
    }
}

TEST_F(WrittenMov, ARateThatTheScaleHasNoTicksForIsTheUsualOne) {
    for (const char* scale : {"600", "1000", "12800"}) {
        write(std::string(scale) + ".mp4", s_ntsc + s_avc + std::vector<std::string>{"-video_track_timescale", scale});
        EXPECT_EQ(read(0), listOf(m_path, "v:0", true)) << scale;
        EXPECT_EQ(lastClip(0).getSampleRate(), 30000u) << scale;
        EXPECT_EQ(lastClip(0).getTicksPerSample(), 1001u) << scale;
        EXPECT_EQ(m_movie->getTrackAt(0)->getVideoRate(), MediaVideoRate::Ntsc2997) << scale;
        m_movie->release();
        m_movie = nullptr;
    }
}

TEST_F(WrittenMov, CodedSoundHasTheChannelsThatItsDecoderFinds) {
    for (const char* channels : {"1", "2", "6"}) {
        for (const char* name : {"a.mp4", "a.mov"}) {
            write(std::string(channels) + name, s_tone + std::vector<std::string>{"-ac", channels, "-c:a", "aac"});
            EXPECT_EQ(std::to_string(lastClip(0).getChannels()), channels) << name;
            m_movie->release();
            m_movie = nullptr;
        }
    }
    // One unit in each fragment, of which the peer gives some no time at all.
    write("f.mp4", s_picture + s_tone + s_avc +
                       std::vector<std::string>{"-c:a", "aac", "-movflags", "frag_every_frame+empty_moov"});
    EXPECT_EQ(lastClip(1).getTicksPerSample(), 1024u);
}

TEST_F(WrittenMov, SeveralTracksOfSoundKeepApart) {
    write("a.mov", s_picture + s_tone + std::vector<std::string>{"-f", "lavfi", "-i", "sine=f=900:r=48000:d=1.2"} +
                       std::vector<std::string>{"-map", "0", "-map", "1", "-map", "2", "-c:v", "mpeg2video", "-c:a",
                                                "pcm_s24le"});
    ASSERT_EQ(m_movie->getTrackCount(), 3u);
    EXPECT_EQ(readSound(1), copiedSound("s24le", "0:a:0"));
    EXPECT_EQ(readSound(2), copiedSound("s24le", "0:a:1"));
}

TEST_F(WrittenMov, TimecodesCountAsTheyWereGiven) {
    struct Row {
        const std::vector<std::string>& m_source;
        const char *m_given, *m_read;
        bool m_drop;
    };
    const Row rows[] = {{s_picture, "10:11:12:13", "10:11:12.13", false},
                        {s_ntsc, "01:02:03;04", "01:02:03.04", true},
                        {s_ntsc, "01:02:03:04", "01:02:03.04", false}};
    for (const Row& row : rows) {
        write("a.mov", row.m_source + std::vector<std::string>{"-timecode", row.m_given, "-c:v", "mpeg2video"});
        const MediaTimecode timecode = m_movie->getTimecode();
        EXPECT_STREQ(timecode.toString().get(), row.m_read);
        EXPECT_EQ(timecode.m_dropFrame, row.m_drop);
        EXPECT_EQ(m_movie->getTrackCount(), 1u);
        m_movie->release();
        m_movie = nullptr;
        expireAll();
        fs::remove(m_path);
    }
}

TEST_F(WrittenMov, ACutInsideAGroupKeepsItsRunUpAsPrecharge) {
    const std::string whole = m_tree.path("whole.mp4");
    movpeers::write(s_picture + s_avc, whole);
    write("a.mp4", {"-ss", "0.6", "-i", whole, "-c", "copy"});
    EXPECT_EQ(read(0), listOf(m_path, "v:0", true));
    EXPECT_EQ(lastClip(0).getLength(), 15u);
    EXPECT_EQ(lastClip(0).getEdit(0)->getIn(), 3u);
    EXPECT_EQ(lastClip(0).getRollout(), 0u);
}

TEST_F(WrittenMov, ATrackThatBeginsLaterBeginsWithAGap) {
    const std::string whole = m_tree.path("whole.mp4");
    movpeers::write(s_picture + s_tone + s_avc + std::vector<std::string>{"-c:a", "aac"}, whole);
    write("a.mp4", {"-itsoffset", "0.4", "-i", whole, "-i", whole, "-map", "0:v", "-map", "1:a", "-c", "copy"});
    const MediaTrackDesc& track = *m_movie->getTrackAt(0);
    ASSERT_EQ(track.getClipCount(), 2u);
    EXPECT_EQ(track.getClip(0)->getLength(), 10u);
    EXPECT_EQ(track.getClip(1)->getLength(), 30u);
    EXPECT_EQ(read(0), listOf(m_path, "v:0", true));
    // The tool shows the gap's frames too, without samples.
    const nlohmann::json frames =
        documentOf(runTool({"frames", m_path, "--track", "video0", "--json"}), "frames")["frames"];
    ASSERT_EQ(frames.size(), 40u);
    EXPECT_EQ(frames[9]["count"], 0);
    EXPECT_EQ(frames[10]["count"], 1);
    EXPECT_EQ(frames[10]["offset"], read(0)[0].m_at);
}

TEST_F(WrittenMov, HeadersBeforeTheMediaAndBehindThemSayTheSame) {
    write("behind.mov", s_picture + s_avc);
    const std::vector<Listed> behind = read(0);
    m_movie->release();
    write("before.mov", s_picture + s_avc + std::vector<std::string>{"-movflags", "faststart"});
    const std::vector<Listed> before = read(0);
    ASSERT_EQ(before.size(), behind.size());
    const unsigned long long shift = before[0].m_at - behind[0].m_at;
    EXPECT_GT(shift, 0u);
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(before[i].m_at - shift, behind[i].m_at);
        EXPECT_EQ(before[i].m_size, behind[i].m_size);
    }
}
