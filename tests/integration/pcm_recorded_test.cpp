#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <thread>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "support/clock.h"
#include "tests/integration/peers.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/samples.h"

// WAVs and AIFFs that the library has recorded, as independent programs read them: every fact, every byte and not one
// warning. The recorder is a process of its own, so that each engine of the asynchronous writes has its turn.

namespace {

enum class Road { Sync, Async };

// What a recorder is told to do.
struct Orders {
    std::string m_path;
    MediaFileType m_type = MediaFileType::Wav;
    MediaEncodingType m_encoding = MediaEncodingType::Pcm;
    MediaEndian m_endian = MediaEndian::Little;
    unsigned m_rate = 48000;
    unsigned m_channels = 2;
    unsigned m_bits = 16;
    Road m_road = Road::Sync;
    unsigned long long m_first = 0;  // sample; what is before it is a hole
    unsigned m_samples = 100001;     // so that odd essence is odd

    std::string text() const {
        std::ostringstream out;
        out << m_path << ' ' << static_cast<unsigned>(m_type) << ' ' << static_cast<unsigned>(m_encoding) << ' '
            << static_cast<unsigned>(m_endian) << ' ' << m_rate << ' ' << m_channels << ' ' << m_bits << ' '
            << static_cast<unsigned>(m_road) << ' ' << m_first << ' ' << m_samples;
        return out.str();
    }
    static Orders of(const std::string& text) {
        Orders orders;
        unsigned type = 0, encoding = 0, endian = 0, road = 0;
        std::istringstream in(text);
        in >> orders.m_path >> type >> encoding >> endian >> orders.m_rate >> orders.m_channels >> orders.m_bits;
        in >> road >> orders.m_first >> orders.m_samples;
        orders.m_type = static_cast<MediaFileType>(type);
        orders.m_encoding = static_cast<MediaEncodingType>(encoding);
        orders.m_endian = static_cast<MediaEndian>(endian);
        orders.m_road = static_cast<Road>(road);
        return orders;
    }
    unsigned size() const { return m_channels * m_bits / 8; }
    std::string essence(unsigned long long sample, unsigned count) const {
        return kit::patternFrom(sample * size(), count * size());
    }
};

bool writeBlock(MediaObj& movie, MediaTrackDesc& track, const Orders& orders, unsigned long long sample,
                unsigned count) {
    SampleInfo info;
    info.reset(count * orders.size());
    MediaSampleInMovie where;
    OpResult result;
    if (!track.addSamples(MediaRecordReq(sample, count, info), where, result)) return false;
    const std::string bytes = orders.essence(sample, count);
    if (orders.m_road == Road::Async) return movie.vaWrite(where, kit::obufOf(bytes)).success();
    MediaIoBuf buffer;
    kit::fill(buffer, bytes);
    return movie.vsWrite(where, buffer).success();
}

int record(const std::string& text) {
    const Orders orders = Orders::of(text);
    MediaClipParam param;
    if (!param.initAudio(orders.m_type, orders.m_encoding, MediaVideoRate::Unknown, orders.m_rate, orders.m_channels,
                         orders.m_bits))
        return 2;
    param.m_endian = orders.m_endian;
    OpResult result;
    MediaObj* const movie = MediaObj::openWriter(orders.m_path.c_str(), false, result, MediaContainment::Embedded,
                                                 orders.m_type, nullptr, BasicIOTypes::SizeAdvice::None);
    MediaTrackDesc* const track = movie != nullptr ? movie->createTrack(param, result) : nullptr;
    if (track == nullptr || track->createClip(param, result) == nullptr) return 3;
    for (unsigned done = 0, count = 0; done < orders.m_samples; done += count) {
        count = std::min(orders.m_samples - done, 1601 + done % 400);
        if (!writeBlock(*movie, *track, orders, orders.m_first + done, count)) return 4;
    }
    if (!movie->setRecording(false)) return 5;
    movie->release(MediaAgent(nullptr), true);
    return 0;
}

const kit::ChildJob s_recorder("record sound", &record);

// Opens the file again and again, as a process that doesn't record it, until all samples are there, and compares.
int follow(const std::string& text) {
    const Orders orders = Orders::of(text);
    unsigned long long seen = 0;
    unsigned steps = 0;
    while (seen < orders.m_samples) {
        OpResult result;
        MediaObj* const movie = MediaObj::openReader(orders.m_path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        result.discard();
        if (movie == nullptr) {  // there is no header yet
            waitMsec(1);
            continue;
        }
        const unsigned long long length = movie->getTrackAt(0)->getLength();
        if (length < seen) return 2;
        if (length > seen) ++steps;
        // While the header tells of nothing, what is there counts, and grows.
        const std::string bytes = wavread::readAll(*movie);
        if (bytes.size() < length * orders.size()) return 3;
        if (bytes != orders.essence(0, static_cast<unsigned>(bytes.size() / orders.size()))) return 4;
        seen = length;
        movie->release();
    }
    std::printf("%u", steps);
    return 0;
}

const kit::ChildJob s_follower("follow sound", &follow);

class RecordedSound : public kit::CacheScene, public testing::WithParamInterface<const char*> {
protected:
    void recordFile(const Orders& orders) {
        kit::Command command = s_recorder.command(orders.text());
        if (GetParam() != std::string("sync")) command.m_environment.emplace_back("MEDIACORE_ASYNC", GetParam());
        const kit::Outcome outcome = kit::ChildJob::run(command);
        ASSERT_TRUE(outcome.good()) << outcome.m_exit << outcome.m_err;
    }
    Orders orders(const std::string& name, MediaFileType type = MediaFileType::Wav) const {
        Orders orders;
        orders.m_path = m_tree.path(name);
        orders.m_type = type;
        orders.m_endian = type == MediaFileType::Wav ? MediaEndian::Little : MediaEndian::Big;
        orders.m_road = GetParam() == std::string("sync") ? Road::Sync : Road::Async;
        return orders;
    }
    // The programs read it, say nothing of it but its facts, and find the bytes that were recorded.
    void expectGood(const Orders& orders) {
        recordFile(orders);
        expectSilence({"ffprobe", "-v", "warning", orders.m_path});
        // Where the format tells no loudspeakers, ffmpeg would say that it guesses them.
        expectSilence({"ffmpeg", "-nostdin", "-v", "warning", "-guess_layout_max", "0", "-i", orders.m_path, "-c",
                       "copy", "-f", "null", "-"});
        // Dithering is nothing that a file could be blamed for.
        expectSilence({"sox", "-D", orders.m_path, "-n"});
        const peers::AudioFacts facts = peers::probeAudio(orders.m_path);
        EXPECT_EQ(facts.m_rate, orders.m_rate);
        EXPECT_EQ(facts.m_channels, orders.m_channels);
        EXPECT_EQ(facts.m_bits, orders.m_bits);
        EXPECT_EQ(facts.m_samples, orders.m_samples);
        const std::string essence = orders.essence(0, orders.m_samples);
        EXPECT_TRUE(peers::essenceOf(orders.m_path) == essence);
        MediaObj* const movie = wavread::openMovie(orders.m_path);
        ASSERT_NE(movie, nullptr);
        wavread::expectFacts(*movie, orders.m_type, facts);
        EXPECT_TRUE(wavread::readAll(*movie) == essence);
        movie->release();
    }
    static void expectSilence(const std::vector<std::string>& arguments) {
        const kit::Outcome outcome = kit::run(arguments);
        EXPECT_TRUE(outcome.good()) << arguments[0];
        EXPECT_EQ(outcome.m_err, "") << arguments[0];
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Roads, RecordedSound, testing::Values("sync", "pool", "uring"),
                         [](const auto& road) { return std::string("By_") + road.param; });

TEST_P(RecordedSound, AsWavOfAllSizesIsWhatOthersRead) {
    for (const unsigned bits : {8u, 16u, 24u, 32u}) {
        for (const unsigned channels : {1u, 2u, 6u}) {
            SCOPED_TRACE(testing::Message() << bits << " bits, " << channels << " channels");
            Orders wav = orders(std::to_string(bits) + "x" + std::to_string(channels) + ".wav");
            wav.m_bits = bits;
            wav.m_channels = channels;
            expectGood(wav);
        }
    }
}

TEST_P(RecordedSound, AsWavOfALawIsWhatOthersRead) {
    Orders wav = orders("alaw.wav");
    wav.m_encoding = MediaEncodingType::ALaw;
    wav.m_rate = 8000;
    wav.m_channels = 1;
    wav.m_bits = 8;
    expectGood(wav);
}

TEST_P(RecordedSound, AsAiffOfAllSizesIsWhatOthersRead) {
    for (const unsigned bits : {8u, 16u, 24u, 32u}) {
        for (const unsigned channels : {1u, 2u, 6u}) {
            SCOPED_TRACE(testing::Message() << bits << " bits, " << channels << " channels");
            Orders aiff = orders(std::to_string(bits) + "x" + std::to_string(channels) + ".aiff", MediaFileType::Aiff);
            aiff.m_bits = bits;
            aiff.m_channels = channels;
            aiff.m_rate = 44100;
            expectGood(aiff);
        }
    }
}

TEST_P(RecordedSound, AsLittleEndianAiffCIsWhatOthersRead) {
    Orders aiff = orders("sowt.aiff", MediaFileType::Aiff);
    aiff.m_endian = MediaEndian::Little;
    expectGood(aiff);
}

TEST_P(RecordedSound, PastFourGigabytesIsAnRf64ThatOthersRead) {
    Orders wav = orders("long.wav");
    wav.m_first = 1ull << 30;  // 4 GiB of a hole, which takes no room on the disk
    recordFile(wav);
    expectSilence({"ffprobe", "-v", "warning", wav.m_path});
    const peers::AudioFacts facts = peers::probeAudio(wav.m_path);
    EXPECT_EQ(facts.m_samples, wav.m_first + wav.m_samples);
    MediaObj* const movie = wavread::openMovie(wav.m_path);
    ASSERT_NE(movie, nullptr);
    wavread::expectFacts(*movie, MediaFileType::Wav, facts);
    movie->release();
    EXPECT_TRUE(kit::bytesAt(wav.m_path, 80 + wav.m_first * 4, 4 * 1000) == wav.essence(wav.m_first, 1000));
    EXPECT_EQ(std::filesystem::file_size(wav.m_path), 80 + (wav.m_first + wav.m_samples) * 4);
}

TEST_P(RecordedSound, IsFollowedByAnotherProcessWhileItIsRecorded) {
    Orders wav = orders("growing.wav");
    wav.m_rate = 8000;
    wav.m_samples = 20 * 8000;
    kit::Outcome follower;
    std::thread other([&] { follower = s_follower.run(wav.text()); });
    recordFile(wav);
    other.join();
    EXPECT_TRUE(follower.good()) << follower.m_exit << follower.m_err;
    EXPECT_NE(follower.m_out, "0");
}
