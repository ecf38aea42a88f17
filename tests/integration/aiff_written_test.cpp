#include <gtest/gtest.h>

#include <iterator>

#include "shared/include/description/media_clip_desc.h"
#include "tests/integration/peers.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/process.h"
#include "tests/kit/wav_builder.h"

// AIFFs that independent programs have just written: every fact as ffprobe tells it, every byte as ffmpeg copies it.

using peers::Coding;

namespace {

constexpr unsigned s_rates[] = {32000, 44100, 48000, 96000};
constexpr unsigned s_samples = 4801;  // so that some essence is odd

class WrittenAiff : public kit::CacheScene {
protected:
    std::string raw(const Coding& coding, unsigned channels) {
        m_raw = kit::WavBuilder::pattern(static_cast<std::size_t>(coding.m_bytes) * channels * s_samples);
        return m_tree.write("essence.raw", m_raw);
    }

    // All that the library says of the file is what the programs say.
    void expectAsWritten(const std::string& aiff, const Coding& coding) {
        MediaObj* movie = wavread::openMovie(aiff);
        ASSERT_NE(movie, nullptr);
        const peers::AudioFacts facts = peers::probeAudio(aiff);
        EXPECT_EQ(facts.m_codec, coding.m_ffmpegCodec);
        EXPECT_EQ(facts.m_samples, s_samples);
        wavread::expectFacts(*movie, MediaFileType::Aiff, facts);
        const bool isLittle = facts.m_codec == "pcm_s16le";
        EXPECT_EQ(wavread::clipOf(*movie).getEndian(), isLittle ? MediaEndian::Little : MediaEndian::Big);
        const std::string essence = peers::essenceOf(aiff);
        EXPECT_TRUE(essence == m_raw) << "the writer has changed the samples";
        EXPECT_TRUE(wavread::readAll(*movie) == essence);
        wavread::expectBlocksAnywhere(*movie, essence);
        movie->release();
    }

    std::string m_raw;
};

class WrittenAiffOfCoding : public WrittenAiff, public testing::WithParamInterface<Coding> {};
class WrittenAiffBySox : public WrittenAiffOfCoding {};

std::string nameOf(const testing::TestParamInfo<Coding>& info) { return std::string("As") + info.param.m_ffmpegRaw; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Codings, WrittenAiffOfCoding, testing::ValuesIn(peers::s_aiffCodings), nameOf);
// The last two are none that sox writes.
INSTANTIATE_TEST_SUITE_P(Codings, WrittenAiffBySox,
                         testing::ValuesIn(std::begin(peers::s_aiffCodings), std::end(peers::s_aiffCodings) - 2),
                         nameOf);

TEST_P(WrittenAiffOfCoding, ByFfmpegOfOneToEightChannelsIsWhatItWrote) {
    for (unsigned channels = 1; channels <= 8; ++channels) {
        const unsigned rate = s_rates[(channels + GetParam().m_bytes) % 4];
        SCOPED_TRACE(testing::Message() << channels << " channels, " << rate << " Hz");
        const std::string aiff = m_tree.path("ffmpeg" + std::to_string(channels) + ".aiff");
        peers::writeByFfmpeg(GetParam(), channels, rate, raw(GetParam(), channels), aiff);
        expectAsWritten(aiff, GetParam());
    }
}

TEST_P(WrittenAiffBySox, AsBothFormsOfOneToEightChannelsIsWhatItWrote) {
    for (unsigned channels = 1; channels <= 8; ++channels) {
        const unsigned rate = s_rates[(channels + GetParam().m_bytes + 1) % 4];
        for (const char* const type : {"aiff", "aifc"}) {
            SCOPED_TRACE(testing::Message() << type << ", " << channels << " channels, " << rate << " Hz");
            const std::string aiff = m_tree.path("sox" + std::to_string(channels) + "." + type);
            peers::writeBySox(GetParam(), channels, rate, raw(GetParam(), channels), aiff, type);
            expectAsWritten(aiff, GetParam());
        }
    }
}

TEST_P(WrittenAiffOfCoding, OfEveryRateIsWhatWasWritten) {
    for (const unsigned rate : s_rates) {
        SCOPED_TRACE(testing::Message() << rate << " Hz");
        const std::string source = raw(GetParam(), 2);
        peers::writeByFfmpeg(GetParam(), 2, rate, source, m_tree.path("ffmpeg.aiff"));
        expectAsWritten(m_tree.path("ffmpeg.aiff"), GetParam());
    }
}

TEST_P(WrittenAiffBySox, OfEveryRateIsWhatWasWritten) {
    for (const unsigned rate : s_rates) {
        SCOPED_TRACE(testing::Message() << rate << " Hz");
        peers::writeBySox(GetParam(), 2, rate, raw(GetParam(), 2), m_tree.path("sox.aiff"), "aiff");
        expectAsWritten(m_tree.path("sox.aiff"), GetParam());
    }
}

TEST_F(WrittenAiff, WithTextsAroundItsEssenceIsWhatWasWritten) {
    const Coding& coding = peers::s_aiffCodings[2];
    const std::string aiff = m_tree.path("texts.aiff");
    peers::writeByFfmpeg(coding, 1, 48000, raw(coding, 1), aiff,
                         {"-metadata", "title=odd", "-metadata", "artist=a voice", "-write_id3v2", "1"});
    expectAsWritten(aiff, coding);
}

TEST_F(WrittenAiff, IntoAPipeClaimsMoreThanThereIsAndIsWhatWasWritten) {
    const std::string source = raw(peers::s_aiffCodings[2], 2);
    const kit::Outcome outcome = kit::run(
        {"sh", "-c", "sox -D -t raw -r 48000 -c 2 -B -e signed -b 24 '" + source + "' -t aiff - 2>/dev/null | cat"});
    ASSERT_TRUE(outcome.good()) << outcome.m_err;
    MediaObj* movie = wavread::openMovie(m_tree.write("pipe.aiff", outcome.m_out));
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(wavread::clipOf(*movie).getLength(), s_samples);
    EXPECT_TRUE(wavread::readAll(*movie) == m_raw);
    movie->release();
}

TEST_F(WrittenAiff, OfAnotherCodingIsRefusedByItsName) {
    const struct {
        const char* m_codec;
        const char* m_sentence;
    } refusals[] = {
        {"pcm_f32be", "aiff: samples of coding \"fl32\" are not supported"},
        {"pcm_f64be", "aiff: samples of coding \"fl64\" are not supported"},
        {"pcm_mulaw", "aiff: samples of coding \"ulaw\" are not supported"},
        {"adpcm_ima_qt", "aiff: samples of coding \"ima4\" are not supported"},
    };
    const std::string source = raw(peers::s_aiffCodings[1], 2);
    for (const auto& [codec, sentence] : refusals) {
        const std::string aiff = m_tree.path("other.aiff");
        const kit::Outcome outcome = kit::run({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "s16be", "-ar", "48000",
                                               "-ac", "2", "-i", source, "-c:a", codec, aiff});
        ASSERT_TRUE(outcome.good()) << outcome.m_err;
        EXPECT_EQ(MediaObj::openReader(aiff.c_str(), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
        EXPECT_STREQ(m_result.getMessage(), sentence);
    }
}
