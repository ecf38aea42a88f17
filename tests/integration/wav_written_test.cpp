#include <gtest/gtest.h>

#include "shared/include/description/media_clip_desc.h"
#include "tests/integration/peers.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/wav_builder.h"

// WAVs that independent programs have just written: every fact as ffprobe tells it, every byte as ffmpeg copies it.

using peers::Coding;

namespace {

constexpr unsigned s_rates[] = {32000, 44100, 48000, 96000};
constexpr unsigned s_samples = 4801;  // so that some essence is odd

class WrittenWav : public kit::CacheScene {
protected:
    std::string raw(const Coding& coding, unsigned channels, unsigned samples = s_samples) {
        m_raw = kit::WavBuilder::pattern(static_cast<std::size_t>(coding.m_bytes) * channels * samples);
        return m_tree.write("essence.raw", m_raw);
    }

    // All that the library says of the file is what the programs say.
    void expectAsWritten(const std::string& wav) {
        MediaObj* movie = wavread::openMovie(wav);
        ASSERT_NE(movie, nullptr);
        wavread::expectFacts(*movie, MediaFileType::Wav, peers::probeAudio(wav));
        const std::string essence = peers::essenceOf(wav);
        EXPECT_TRUE(essence == m_raw) << "the writer has changed the samples";
        EXPECT_TRUE(wavread::readAll(*movie) == essence);
        wavread::expectBlocksAnywhere(*movie, essence);
        movie->release();
    }

    std::string m_raw;
};

class WrittenWavOfCoding : public WrittenWav, public testing::WithParamInterface<Coding> {};

std::string nameOf(const testing::TestParamInfo<Coding>& info) { return std::string("As") + info.param.m_ffmpegRaw; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Codings, WrittenWavOfCoding, testing::ValuesIn(peers::s_codings), nameOf);

TEST_P(WrittenWavOfCoding, ByFfmpegOfOneToEightChannelsIsWhatItWrote) {
    for (unsigned channels = 1; channels <= 8; ++channels) {
        const unsigned rate = s_rates[(channels + GetParam().m_bytes) % 4];
        SCOPED_TRACE(testing::Message() << channels << " channels, " << rate << " Hz");
        const std::string wav = m_tree.path("ffmpeg" + std::to_string(channels) + ".wav");
        peers::writeByFfmpeg(GetParam(), channels, rate, raw(GetParam(), channels), wav);
        expectAsWritten(wav);
    }
}

TEST_P(WrittenWavOfCoding, ByFfmpegAsRf64IsWhatItWrote) {
    for (const unsigned channels : {1u, 2u, 6u}) {
        SCOPED_TRACE(testing::Message() << channels << " channels");
        const std::string wav = m_tree.path("rf64" + std::to_string(channels) + ".wav");
        // An even count: this writer takes the padding of odd essence for essence in ds64.
        peers::writeByFfmpeg(GetParam(), channels, 48000, raw(GetParam(), channels, 4800), wav, {"-rf64", "always"});
        const kit::Outcome head = kit::run({"head", "-c", "4", wav});
        EXPECT_EQ(head.m_out, "RF64");
        expectAsWritten(wav);
    }
}

TEST_P(WrittenWavOfCoding, BySoxOfOneToEightChannelsIsWhatItWrote) {
    for (unsigned channels = 1; channels <= 8; ++channels) {
        const unsigned rate = s_rates[(channels + GetParam().m_bytes + 1) % 4];
        SCOPED_TRACE(testing::Message() << channels << " channels, " << rate << " Hz");
        const std::string wav = m_tree.path("sox" + std::to_string(channels) + ".wav");
        peers::writeBySox(GetParam(), channels, rate, raw(GetParam(), channels), wav);
        expectAsWritten(wav);
    }
}

TEST_P(WrittenWavOfCoding, OfEveryRateIsWhatWasWritten) {
    for (const unsigned rate : s_rates) {
        SCOPED_TRACE(testing::Message() << rate << " Hz");
        const std::string raw2 = raw(GetParam(), 2);
        peers::writeByFfmpeg(GetParam(), 2, rate, raw2, m_tree.path("ffmpeg.wav"));
        expectAsWritten(m_tree.path("ffmpeg.wav"));
        peers::writeBySox(GetParam(), 2, rate, raw2, m_tree.path("sox.wav"));
        expectAsWritten(m_tree.path("sox.wav"));
    }
}

TEST_F(WrittenWav, IntoAPipeHasAnOpenEndAndIsWhatWasWritten) {
    const std::string source = raw(peers::s_codings[2], 2);
    const std::vector<std::string> writers[] = {
        {"ffmpeg", "-nostdin", "-v", "error", "-f", "s24le", "-ar", "48000", "-ac", "2", "-i", source, "-c:a",
         "pcm_s24le", "-f", "wav", "pipe:1"},
        {"sh", "-c", "sox -D -t raw -r 48000 -c 2 -e signed -b 24 '" + source + "' -t wav - 2>/dev/null | cat"},
    };
    for (const auto& writer : writers) {
        SCOPED_TRACE(writer[0]);
        const kit::Outcome outcome = kit::run(writer);
        ASSERT_TRUE(outcome.good()) << outcome.m_err;
        MediaObj* movie = wavread::openMovie(m_tree.write("pipe.wav", outcome.m_out));
        ASSERT_NE(movie, nullptr);
        EXPECT_EQ(wavread::clipOf(*movie).getLength(), s_samples);
        EXPECT_TRUE(wavread::readAll(*movie) == m_raw);
        movie->release();
    }
}

TEST_F(WrittenWav, WithBextByFfmpegKeepsItsUmidAndTimeReference) {
    std::string digits, bytes;
    for (int i = 0; i < 64; ++i) {
        const int value = (i * 3 + 1) % 128;  // the writer reads eight bytes at a time as signed numbers
        digits += kit::formatted("%02X", value);
        bytes.push_back(static_cast<char>(value));
    }
    const std::string wav = m_tree.path("bext.wav");
    peers::writeByFfmpeg(peers::s_codings[1], 2, 48000, raw(peers::s_codings[1], 2), wav,
                         {"-write_bext", "1", "-metadata", "time_reference=172800000", "-metadata", "umid=0x" + digits,
                          "-metadata", "description=a voice"});
    expectAsWritten(wav);
    MediaObj* movie = wavread::openMovie(wav);
    ASSERT_NE(movie, nullptr);
    MediaProperty reference;
    reference.init(MediaPropertyEnum::Name::FirstFrame, MediaPropertyEnum::Type::Unsigned64, 172800000ull);
    const MediaProperty* kept = movie->getProperties().get(MediaPropertyEnum::Name::FirstFrame);
    ASSERT_NE(kept, nullptr);
    EXPECT_TRUE(*kept == reference);
    const MediaProperty* umid = movie->getProperties().get(MediaPropertyEnum::Name::UmidValue);
    ASSERT_NE(umid, nullptr);
    EXPECT_EQ(std::string(static_cast<const char*>(umid->memValue()), umid->nMemBytes()), bytes);
    movie->release();
}

TEST_F(WrittenWav, OfAnotherCodingIsRefusedByItsName) {
    const struct {
        const char* m_codec;
        const char* m_sentence;
    } refusals[] = {
        {"pcm_f32le", "wav: floating point samples (format tag 0x0003) are not supported"},
        {"pcm_f64le", "wav: floating point samples (format tag 0x0003) are not supported"},
        {"pcm_mulaw", "wav: mu-law samples (format tag 0x0007) are not supported"},
        {"adpcm_ms", "wav: Microsoft ADPCM samples (format tag 0x0002) are not supported"},
        {"adpcm_ima_wav", "wav: IMA ADPCM samples (format tag 0x0011) are not supported"},
    };
    const std::string source = raw(peers::s_codings[1], 2);
    for (const auto& [codec, sentence] : refusals) {
        const std::string wav = m_tree.path("other.wav");
        const kit::Outcome outcome = kit::run({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "s16le", "-ar", "48000",
                                               "-ac", "2", "-i", source, "-c:a", codec, wav});
        ASSERT_TRUE(outcome.good()) << outcome.m_err;
        EXPECT_EQ(MediaObj::openReader(wav.c_str(), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
        EXPECT_STREQ(m_result.getMessage(), sentence);
    }
}
