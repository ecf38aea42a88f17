#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/switches.h"
#include "tests/integration/tool_kit.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/switch_guard.h"

// Sound that other programs have made, looked at while it is read: clicks in recordings are found, and bursts of AC-3
// are told from sound.

namespace fs = std::filesystem;

namespace {

constexpr unsigned s_period = 1536;  // instants from one frame of AC-3 to the next

kit::Outcome ffmpeg(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"ffmpeg", "-nostdin", "-v", "error", "-y"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return kit::run(all);
}

// Big-endian words of whole samples, as a test reads them.
class Words {
public:
    Words(std::string bytes, unsigned channels, unsigned bytesOfWord)
        : m_data(std::move(bytes)), m_channels(channels), m_bytes(bytesOfWord) {}

    unsigned instants() const { return static_cast<unsigned>(m_data.size()) / (m_channels * m_bytes); }
    int at(unsigned instant, unsigned channel) const {
        std::int64_t value = 0;
        for (unsigned i = 0; i < m_bytes; ++i)
            value = value << 8 | static_cast<unsigned char>(m_data[place(instant, channel) + i]);
        return static_cast<int>(value >= std::int64_t{1} << (8 * m_bytes - 1) ? value - (std::int64_t{1} << 8 * m_bytes)
                                                                              : value);
    }
    // The text that a check has to come to, or the empty one.
    std::string expected() const {
        const int limit = (1 << 8 * m_bytes) / 16;
        std::string text = std::to_string(instants()) + " samples";
        bool isSuspect = false;
        for (unsigned channel = 0; channel < m_channels; ++channel) {
            int most = 0, over = 0;
            for (unsigned i = 1; i < instants(); ++i) {
                const int step = std::abs(at(i, channel) - at(i - 1, channel));
                most = std::max(most, step);
                over += step > limit ? 1 : 0;
            }
            isSuspect = isSuspect || over > 0;
            text += ",ch" + std::to_string(channel) + ":,";
            text += over > 0 ? std::to_string(over) + " over,max=" + std::to_string(most) : "ok";
        }
        return isSuspect ? text + ",ac3:expected 2,got 0 samples" : "";
    }
    // Puts a word there that is half the full scale away.
    void click(unsigned instant, unsigned channel) { m_data[place(instant, channel)] ^= static_cast<char>(0x80); }
    const std::string& data() const { return m_data; }

private:
    std::size_t place(unsigned instant, unsigned channel) const {
        return (std::size_t{instant} * m_channels + channel) * m_bytes;
    }

    std::string m_data;
    const unsigned m_channels, m_bytes;
};

// One block of a movie as it is read with the checks on, and what the log says of it.
class Look {
public:
    Look() { mediaValidate.set(1u << MediaVal::Pcm); }
    void wantStats() { mediaValidate.setBit(MediaVal::PcmStats); }

    std::string at(const MediaObj& movie, unsigned long long sample, unsigned count) {
        MediaSampleInMovie where;
        EXPECT_TRUE(wavread::locate(wavread::clipOf(movie), sample, count, where));
        EXPECT_EQ(where.m_count, count);
        m_log.clear();
        MediaIoBuf buf;
        EXPECT_TRUE(movie.vsRead(where, buf));
        m_bytes.assign(reinterpret_cast<const char*>(buf.getMem()), buf.size());
        for (const kit::LogCapture::Line& line : m_log.lines()) {
            if (kit::LogCapture::matches("Val:rd(*):*", line.m_text))
                return line.m_text.substr(line.m_text.find("):") + 2);
        }
        return "";
    }
    // Of the last block.
    const std::string& bytes() const { return m_bytes; }

private:
    const kit::SwitchGuard m_switch{mediaValidate};
    kit::LogCapture m_log;
    std::string m_bytes;
};

// A recording of any kind as an AIFF of that width. False when it has no sound.
bool makeAiff(const std::string& from, const std::string& codec, const std::string& to) {
    return ffmpeg({"-i", "file:" + from, "-map", "0:a:0", "-c:a", codec, "-f", "aiff", "file:" + to}).good();
}

class ValidatedSound : public testing::Test {
protected:
    // Looks at all of a recording, block by block, and holds what is said against a count of the test's own. Answers in
    // how many blocks there were findings.
    unsigned lookThrough(const std::string& path, unsigned bytesOfWord) {
        const AutoReleasePtr<MediaObj> movie(wavread::openMovie(path));
        if (!movie) return 0;
        const MediaClipDesc& clip = wavread::clipOf(*movie.get());
        const unsigned channels = clip.getChannels(), block = 40000;
        unsigned found = 0;
        for (unsigned long long at = 0; at < clip.getLength(); at += block) {
            const auto count = static_cast<unsigned>(std::min<unsigned long long>(block, clip.getLength() - at));
            if (count < 2) break;
            const std::string text = m_look.at(*movie.get(), at, count);
            EXPECT_EQ(text, Words(m_look.bytes(), channels, bytesOfWord).expected());
            found += text.empty() ? 0 : 1;
        }
        return found;
    }
    // The recording as it is, and with a click in it. A recording that passes as sound must not pass with the click.
    void tryRecording(const std::string& path, unsigned bytesOfWord) {
        SCOPED_TRACE(path);
        // New names each time: a movie at a path that was rewritten is the old one for a while.
        const std::string number = std::to_string(m_tried), aiff = m_tree.path("whole" + number + ".aiff");
        if (!makeAiff(path, bytesOfWord == 2 ? "pcm_s16be" : "pcm_s24be", aiff)) return;
        m_clean += lookThrough(aiff, bytesOfWord) == 0 ? 1 : 0;
        ++m_tried;
        const AutoReleasePtr<MediaObj> movie(wavread::openMovie(aiff));
        const MediaClipDesc& clip = wavread::clipOf(*movie.get());
        const unsigned channels = clip.getChannels(), length = static_cast<unsigned>(clip.getLength());
        MediaSampleInMovie first;
        if (length < 100 || !wavread::locate(clip, 0, 1, first)) return;
        const std::string bytes = readFile(aiff);
        const std::size_t essence = first.m_chunks[0].m_offset;
        Words words(bytes.substr(essence), channels, bytesOfWord);
        words.click(length / 2 + 7, channels - 1);
        const std::string clicked = m_tree.write("clicked" + number + ".aiff", bytes.substr(0, essence) + words.data());
        EXPECT_GE(lookThrough(clicked, bytesOfWord), 1u);
    }

    kit::TempTree m_tree;
    Look m_look;
    unsigned m_tried = 0, m_clean = 0;
};

// A stereo AIFF that carries frames of AC-3 of 192 kbit/s as bursts, at the top of each word, and what lies between
// them.
std::string writeBursts(const kit::TempTree& tree, const std::string& codec = "pcm_s16be") {
    const std::string raw = tree.path("bursts.raw"), path = tree.path("bursts.aiff");
    const kit::Outcome muxed =
        ffmpeg({"-f", "lavfi", "-i", "sine=frequency=1000:sample_rate=48000:duration=1", "-ac", "2", "-c:a", "ac3",
                "-b:a", "192k", "-spdif_flags", "be", "-f", "spdif", "file:" + raw});
    EXPECT_TRUE(muxed.good()) << muxed.m_err;
    const kit::Outcome wrapped = ffmpeg(
        {"-f", "s16be", "-ar", "48000", "-ac", "2", "-i", "file:" + raw, "-c:a", codec, "-f", "aiff", "file:" + path});
    EXPECT_TRUE(wrapped.good()) << wrapped.m_err;
    return path;
}

}  // namespace

TEST_F(ValidatedSound, ClicksInMadeSoundAreFound) {
    for (const char* source : {"sine=frequency=440:duration=2", "anoisesrc=amplitude=0.02:duration=2"}) {
        const std::string wav = m_tree.path("made.wav");
        ASSERT_TRUE(ffmpeg({"-f", "lavfi", "-i", source, "-ac", "2", "file:" + wav}).good());
        tryRecording(wav, 2);
        tryRecording(wav, 3);
    }
    EXPECT_EQ(m_clean, 4u);
}

TEST_F(ValidatedSound, ClicksInRecordingsAreFound) {
    const char* const folder = std::getenv("MEDIACORE_TEST_MEDIA");
    if (folder == nullptr) GTEST_SKIP() << "MEDIACORE_TEST_MEDIA names no folder of media";
    for (const auto& file : fs::directory_iterator(folder)) {
        const std::string suffix = file.path().extension().string();
        if (suffix != ".wav" && suffix != ".aif" && suffix != ".aiff") continue;
        tryRecording(file.path().string(), 2);
        tryRecording(file.path().string(), 3);
    }
    std::printf("%u recordings, %u of them without a finding\n", m_tried, m_clean);
    EXPECT_GT(m_clean, 0u);
}

// Words spoken into a microphone, two of which have hissing sounds.
TEST_F(ValidatedSound, ClicksInVoicesAreFoundAndCleanOnesPass) {
    unsigned passed = 0;
    for (const char* name : {"Front_Left", "Front_Right", "Rear_Left", "Rear_Right", "Front_Center", "Side_Left"}) {
        const std::string path = std::string("/usr/share/sounds/alsa/") + name + ".wav";
        ASSERT_TRUE(fs::exists(path)) << "the voices of alsa-utils are not installed";
        tryRecording(path, 2);
        tryRecording(path, 3);
        if (m_tried == 8) passed = m_clean;
    }
    EXPECT_EQ(m_tried, 12u);
    EXPECT_EQ(passed, 8u);
}

TEST_F(ValidatedSound, FramesOfAc3AreRecognisedWherePcmHasThem) {
    const AutoReleasePtr<MediaObj> movie(wavread::openMovie(writeBursts(m_tree)));
    ASSERT_TRUE(movie);
    ASSERT_GE(wavread::clipOf(*movie.get()).getLength(), 20u * s_period);
    // A frame with its padding, which is no sound either.
    for (unsigned frame = 0; frame < 20; ++frame)
        EXPECT_EQ(m_look.at(*movie.get(), frame * s_period, s_period), "") << frame;
    m_look.wantStats();
    EXPECT_EQ(m_look.at(*movie.get(), 3 * s_period, s_period),
              "1536 samples,ch0:constant 0x0,ch1:constant 0x0,194 ac3 samples @s0");
    EXPECT_EQ(m_look.at(*movie.get(), 4 * s_period - 600, s_period),
              "1536 samples,ch0:constant 0x0,ch1:constant 0x0,194 ac3 samples @s600");
}

TEST_F(ValidatedSound, FramesOfAc3InLongerWordsAreRecognised) {
    const AutoReleasePtr<MediaObj> movie(wavread::openMovie(writeBursts(m_tree, "pcm_s24be")));
    ASSERT_TRUE(movie);
    ASSERT_EQ(wavread::clipOf(*movie.get()).getBitsPerUnit(), 24u);
    EXPECT_EQ(m_look.at(*movie.get(), 3 * s_period, s_period), "");
    EXPECT_EQ(m_look.at(*movie.get(), 5 * s_period - 30, 130),
              "130 samples,ch0:,ok,ch1:,ok,ac3:expected 194,got 100 samples");
    m_look.wantStats();
    EXPECT_EQ(m_look.at(*movie.get(), 4 * s_period - 600, s_period),
              "1536 samples,ch0:constant 0x0,ch1:constant 0x0,194 ac3 samples @s600");
}

TEST_F(ValidatedSound, AFrameOfAc3ThatABlockCutsIsFound) {
    const AutoReleasePtr<MediaObj> movie(wavread::openMovie(writeBursts(m_tree)));
    ASSERT_TRUE(movie);
    for (const unsigned kept : {2u, 100u, 193u}) {
        EXPECT_EQ(m_look.at(*movie.get(), 5 * s_period - 30, 30 + kept),
                  std::to_string(30 + kept) + " samples,ch0:,ok,ch1:,ok,ac3:expected 194,got " + std::to_string(kept) +
                      " samples");
    }
    // Its end alone has no sync, and is judged as sound.
    const std::string end = m_look.at(*movie.get(), 5 * s_period + 50, s_period - 50);
    EXPECT_EQ(end, Words(m_look.bytes(), 2, 2).expected());
    EXPECT_NE(end.find(" over,max="), std::string::npos) << end;
}

TEST_F(ValidatedSound, TwoFramesInABlockAreMoreThanTheLastOneDeclares) {
    const AutoReleasePtr<MediaObj> movie(wavread::openMovie(writeBursts(m_tree)));
    ASSERT_TRUE(movie);
    EXPECT_EQ(m_look.at(*movie.get(), 0, 2 * s_period),
              "3072 samples,ch0:,ok,ch1:,ok,ac3:expected 194,got 388 samples");
}
