#include <gtest/gtest.h>

#include <algorithm>

#include "mediautil/validation/pcm_analysis.h"
#include "services/buffer/obuf.h"
#include "shared/include/validation/pcm_parser.h"
#include "tests/kit/samples.h"
#include "tests/unit/validation/sound.h"

// The analysis by the stretch finds what the plain rule finds, sample by sample, whatever the block.

using sound::Form;

namespace {

// Memory in pieces of its own, so that whatever reads past one is seen by a sanitizer. Each begins so many bytes behind
// an aligned address.
class Pieces {
public:
    Pieces(const std::string& bytes, const std::vector<std::size_t>& cuts, std::size_t shift = 0) : m_shift(shift) {
        std::size_t at = 0;
        for (const std::size_t cut : cuts) {
            add(bytes.substr(at, cut - at));
            at = cut;
        }
        add(bytes.substr(at));
        for (std::vector<unsigned char>& piece : m_pieces)
            m_list.push_back({piece.data() + m_shift, static_cast<unsigned>(piece.size() - m_shift)});
    }
    void attach(PcmParser& parser) { parser.setList(static_cast<unsigned>(m_list.size()), m_list.data()); }

private:
    void add(const std::string& bytes) {
        m_pieces.emplace_back(m_shift);
        m_pieces.back().insert(m_pieces.back().end(), bytes.begin(), bytes.end());
        m_pieces.back().shrink_to_fit();
    }

    const std::size_t m_shift;
    std::vector<std::vector<unsigned char>> m_pieces;
    std::vector<simpleSgl_s> m_list;
};

struct Outcome {
    std::string m_text;
    std::vector<PcmPattern::Channel> m_channels;
    bool m_suspect;
    unsigned m_burst;
    unsigned m_left;
};

Outcome outcomeOf(const PcmParser& parser, PcmPattern& pattern) {
    Outcome outcome;
    pattern.setAc3SampleCount(parser.getAc3SamplesCnt());
    outcome.m_text = pattern.toString().get();
    for (unsigned i = 0; i < PcmPattern::s_maxChannels; ++i)
        outcome.m_channels.push_back(pattern.getChannel(i));
    outcome.m_suspect = pattern.suspect();
    outcome.m_burst = parser.getAc3SamplesCnt();
    outcome.m_left = parser.getUnparsedBytes();
    return outcome;
}

// Random numbers that fit the counts and sizes of the tests.
class Random {
public:
    explicit Random(unsigned seed) : m_engine(seed) {}
    unsigned operator()() { return static_cast<unsigned>(m_engine()); }

private:
    std::minstd_rand m_engine;
};

bool isSame(const PcmPattern::Channel& a, const PcmPattern::Channel& b) {
    return a.m_prev == b.m_prev && a.m_step == b.m_step && a.m_minStep == b.m_minStep && a.m_maxStep == b.m_maxStep &&
           a.m_over == b.m_over && a.m_ok == b.m_ok;
}

// Both roads over the same block; `first` instants are analysed in a call of their own.
void expectSame(const Form& form, const std::string& bytes, unsigned limit, const std::vector<std::size_t>& cuts = {},
                unsigned first = 0, std::size_t shift = 0) {
    const unsigned instants = static_cast<unsigned>(bytes.size()) / form.instant();
    Pieces pieces(bytes, cuts, shift);
    PcmParser plainParser;
    PcmPattern plain(limit, form.m_channels);
    plainParser.init(form.m_endian, form.m_bytes, form.m_channels);
    pieces.attach(plainParser);
    for (unsigned i = 0; i < instants; ++i)
        plain.add(plainParser.decodeNextSample());
    const Outcome wanted = outcomeOf(plainParser, plain);
    for (const PcmVectors vectors : {PcmVectors::Common, PcmVectors::Widest}) {
        PcmParser parser;
        PcmPattern pattern(limit, form.m_channels);
        parser.init(form.m_endian, form.m_bytes, form.m_channels);
        pieces.attach(parser);
        analysePcm(parser, pattern, first, vectors);
        analysePcm(parser, pattern, instants - first, vectors);
        const Outcome got = outcomeOf(parser, pattern);
        ASSERT_EQ(got.m_text, wanted.m_text);
        ASSERT_TRUE(std::equal(got.m_channels.begin(), got.m_channels.end(), wanted.m_channels.begin(), isSame));
        ASSERT_EQ(got.m_suspect, wanted.m_suspect);
        ASSERT_EQ(got.m_burst, wanted.m_burst);
        ASSERT_EQ(got.m_left, wanted.m_left);
    }
}

const std::vector<Form>& allForms() {
    static const std::vector<Form> forms = [] {
        std::vector<Form> made;
        for (const MediaEndian endian : {MediaEndian::Big, MediaEndian::Little}) {
            for (unsigned bytes = 1; bytes <= 4; ++bytes)
                for (unsigned channels = 1; channels <= 32; ++channels)
                    made.push_back(Form{endian, bytes, channels});
        }
        return made;
    }();
    return forms;
}

std::string nameOf(const Form& form) {
    return std::string(form.m_endian == MediaEndian::Big ? "big " : "little ") + std::to_string(form.m_bytes) +
           " bytes, " + std::to_string(form.m_channels) + " channels";
}

unsigned limitOf(const Form& form, unsigned divisor) { return (1u << form.m_bytes * 8 % 32) / divisor; }

std::string noise(Random& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random() >> 8);
    return bytes;
}

// Words that go up and down by little, with a click now and then.
std::string music(Random& random, const Form& form, unsigned instants) {
    std::string bytes;
    std::vector<std::int64_t> at(form.m_channels);
    const std::int64_t full = std::int64_t{1} << (8 * form.m_bytes - 1);
    for (unsigned i = 0; i < instants; ++i) {
        for (std::int64_t& value : at) {
            const std::int64_t step = static_cast<std::int64_t>(random() % 101) - 50;
            value = random() % 400 == 0 ? static_cast<std::int64_t>(random()) % full : value + step * full / 1000;
            value = std::clamp(value, -full, full - 1);
            bytes += sound::word(form, value);
        }
    }
    return bytes;
}

std::vector<std::size_t> randomCuts(Random& random, std::size_t size) {
    std::vector<std::size_t> cuts;
    for (unsigned i = random() % 5; i > 0; --i)
        cuts.push_back(random() % (size + 1));
    std::sort(cuts.begin(), cuts.end());
    return cuts;
}

}  // namespace

TEST(PcmAnalysis, RandomBlocksOfEveryFormAreJudgedAsByThePlainRule) {
    Random random(1);
    for (const Form& form : allForms()) {
        SCOPED_TRACE(nameOf(form));
        for (unsigned round = 0; round < 3; ++round) {
            const unsigned instants = random() % 150;
            std::string bytes = round == 0 ? noise(random, instants * form.instant()) : music(random, form, instants);
            bytes += noise(random, random() % form.instant());
            const unsigned divisors[] = {16, 1, 1 + random() % 5000};
            ASSERT_NO_FATAL_FAILURE(
                expectSame(form, bytes, limitOf(form, divisors[round]),
                           round == 2 ? randomCuts(random, bytes.size()) : std::vector<std::size_t>()));
        }
    }
}

TEST(PcmAnalysis, ManyBlocksOfTheUsualForms) {
    Random random(2);
    for (unsigned round = 0; round < 400; ++round) {
        const Form form{random() % 4 == 0 ? MediaEndian::Little : MediaEndian::Big, 2 + random() % 2,
                        random() % 3 == 0 ? 1u : 2u};
        SCOPED_TRACE(nameOf(form) + ", round " + std::to_string(round));
        const unsigned instants = random() % 400;
        const std::string bytes =
            round % 3 == 0 ? noise(random, instants * form.instant()) : music(random, form, instants);
        const std::vector<std::size_t> cuts = randomCuts(random, bytes.size());
        ASSERT_NO_FATAL_FAILURE(
            expectSame(form, bytes, limitOf(form, 1 + random() % 64), cuts, instants == 0 ? 0 : random() % instants));
    }
}

TEST(PcmAnalysis, BlocksOfEverySizeAtEveryAddress) {
    Random random(7);
    for (const Form& form : allForms()) {
        if (form.m_channels > 3 && form.m_channels != 6) continue;
        SCOPED_TRACE(nameOf(form));
        // The last sample of many is cut.
        const std::string block = music(random, form, 70);
        for (std::size_t size = block.size() % 7; size <= block.size(); size += 1 + random() % 11) {
            const std::size_t shift = random() % 33;
            SCOPED_TRACE(std::to_string(size) + " bytes, shifted by " + std::to_string(shift));
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block.substr(0, size), limitOf(form, 16), {}, 0, shift));
        }
    }
}

TEST(PcmAnalysis, ABurstIsFoundAtEveryPlace) {
    Random random(3);
    for (const unsigned bytes : {1u, 2u, 3u, 4u}) {
        for (const MediaEndian endian : {MediaEndian::Big, MediaEndian::Little}) {
            const Form form{endian, bytes, 2};
            // The sync words of a form that has none are only noise.
            const Form wide{endian, std::max(bytes, 2u), 2};
            for (unsigned place = 0; place <= 70; ++place) {
                SCOPED_TRACE(nameOf(form) + " at " + std::to_string(place));
                const std::string block =
                    music(random, form, place) + sound::burst(wide, 40, 40, place) + music(random, form, 45);
                ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limitOf(form, 16)));
            }
        }
    }
}

TEST(PcmAnalysis, ABlockIsCutAnywhere) {
    Random random(4);
    for (const unsigned bytes : {2u, 3u}) {
        const Form form{MediaEndian::Big, bytes, 2};
        const std::string block = music(random, form, 20) + sound::burst(form, 24, 24) + music(random, form, 40);
        for (std::size_t cut = 0; cut <= block.size(); ++cut) {
            SCOPED_TRACE(nameOf(form) + " cut at " + std::to_string(cut));
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limitOf(form, 16), {cut}));
            // And the end of the block.
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block.substr(0, cut), limitOf(form, 16)));
            // And its head.
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block.substr(cut), limitOf(form, 16)));
        }
    }
}

TEST(PcmAnalysis, ACallThatBeginsInsideABurstFindsTheNextOne) {
    const Form form{MediaEndian::Big, 2, 2};
    const std::string bytes = sound::steady(form, 5, 50) + sound::burst(form, 20, 20) + sound::steady(form, 5, 100) +
                              sound::burst(form, 20, 20, 2) + sound::steady(form, 5, 100);
    for (unsigned first = 45; first < 80; ++first) {
        SCOPED_TRACE(first);
        ASSERT_NO_FATAL_FAILURE(expectSame(form, bytes, 256, {}, first));
    }
}

TEST(PcmAnalysis, ManyBurstsInARow) {
    Random random(5);
    for (const unsigned bytes : {2u, 3u, 4u}) {
        const Form form{MediaEndian::Big, bytes, 2};
        std::string block;
        for (unsigned i = 0; i < 60; ++i) {
            const unsigned declared = random() % 50;
            block += sound::burst(form, declared, random() % 4 == 0 ? random() % 60 : declared, i);
            block += music(random, form, random() % 40);
        }
        for (unsigned part = 0; part < 10; ++part) {
            SCOPED_TRACE(nameOf(form));
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limitOf(form, 16), randomCuts(random, block.size())));
        }
    }
}

TEST(PcmAnalysis, EveryStepOf16BitsIsCountedOnItsSideOfTheLimit) {
    const Form form{MediaEndian::Big, 2, 2};
    std::vector<std::int64_t> values;
    for (int step = -65535; step <= 65535; step += 97) {
        const std::int64_t from = step < 0 ? 32767 : -32768;
        for (const std::int64_t value : {from, from, from + step, from})
            values.push_back(value);
    }
    const std::string block = sound::words(form, values);
    for (const unsigned limit : {0u, 1u, 97u, 4096u, 32767u, 32768u, 65534u, 65535u, 65536u, 0xFFFFFFFFu})
        ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limit)) << limit;
}

TEST(PcmAnalysis, TheWidestStepsOf24And32BitsAreTheRules) {
    for (const unsigned bytes : {3u, 4u}) {
        const Form form{MediaEndian::Big, bytes, 1};
        const std::int64_t full = std::int64_t{1} << (8 * bytes - 1);
        std::vector<std::int64_t> values;
        for (unsigned i = 0; i < 40; ++i)
            for (const std::int64_t value : {full - 1, -full, std::int64_t{0}, -full, full - 1, std::int64_t{-1}})
                values.push_back(value);
        for (const unsigned limit : {0u, 1u, 0x7FFFFFu, 0x1000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
            ASSERT_NO_FATAL_FAILURE(expectSame(form, sound::words(form, values), limit)) << bytes << " " << limit;
    }
}

// More than one pass of vectors.
TEST(PcmAnalysis, LongBlocksAreCountedToTheEnd) {
    const Form form{MediaEndian::Big, 2, 2};
    std::string block;
    for (unsigned i = 0; i < 70000; ++i)
        block += sound::words(form, {i % 2 == 0 ? 30000 : -30000, i == 69999 ? 9000 : 0});
    ASSERT_NO_FATAL_FAILURE(expectSame(form, block, 4096));
}

// Every channel has a lane of 16 bits of its own.
TEST(PcmAnalysis, MoreStepsAreCountedThanANarrowLaneHolds) {
    const Form form{MediaEndian::Big, 1, 16};
    std::string block;
    for (unsigned i = 0; i < 65600; ++i)
        block.append(form.instant(), static_cast<char>(i % 2 * 100));
    ASSERT_NO_FATAL_FAILURE(expectSame(form, block, 1));
}

// Passes are of 8192 instants of 16 bits and 4096 of 24, behind the first.
TEST(PcmAnalysis, OneClickIsCountedWhereverItIs) {
    for (const unsigned bytes : {2u, 3u}) {
        const Form form{MediaEndian::Big, bytes, 2};
        const std::string quiet = sound::steady(form, -700, 9000);
        for (const unsigned place : {0u, 1u, 4095u, 4096u, 4097u, 8191u, 8192u, 8193u, 8998u, 8999u}) {
            std::string block = quiet;
            block.replace(place * form.instant() + form.m_bytes, form.m_bytes, sound::word(form, 300));
            // One step below the limit, on it, and one above.
            for (const unsigned limit : {1001u, 1000u, 999u}) {
                SCOPED_TRACE(nameOf(form) + " at " + std::to_string(place) + ", limit " + std::to_string(limit));
                ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limit));
            }
        }
    }
}

TEST(PcmAnalysis, DamageComesAndGoes) {
    Random random(8);
    for (const unsigned channels : {1u, 2u, 6u}) {
        const Form form{MediaEndian::Big, 3, channels};
        std::string block;
        for (unsigned part = 0; part < 6; ++part)
            block += part % 2 == 0 ? sound::steady(form, 5, 9000) : noise(random, 3000 * form.instant());
        ASSERT_NO_FATAL_FAILURE(expectSame(form, block, limitOf(form, 16))) << channels;
    }
}

// A word at one end of a pass or of a vector, in the last channel; all else is silent.
TEST(PcmAnalysis, SilenceIsSilenceOnlyIfNoSampleIsHeard) {
    for (const Form& form : {Form{MediaEndian::Big, 2, 2}, Form{MediaEndian::Big, 3, 2}, Form{MediaEndian::Big, 3, 1},
                             Form{MediaEndian::Big, 4, 6}, Form{MediaEndian::Little, 3, 2}}) {
        const std::string silence = sound::steady(form, 0, 8300);
        for (const unsigned place : {0u, 1u, 2u, 8u, 9u, 4096u, 4097u, 8192u, 8193u, 8298u, 8299u}) {
            SCOPED_TRACE(nameOf(form) + " at " + std::to_string(place));
            std::string block = silence;
            block.replace((place + 1) * form.instant() - form.m_bytes, form.m_bytes, sound::word(form, 0x400));
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block, 1u << 30));
        }
    }
}

// Behind a call that ended in sound there's silence to the end.
TEST(PcmAnalysis, SilenceBehindSoundIsNoSilentBlock) {
    for (const unsigned bytes : {2u, 3u, 4u}) {
        const Form form{MediaEndian::Big, bytes, 2};
        const std::string block = sound::steady(form, -1, 40) + sound::steady(form, 0, 500);
        for (unsigned first = 35; first < 45; ++first)
            ASSERT_NO_FATAL_FAILURE(expectSame(form, block, 100, {}, first)) << bytes << " bytes, " << first;
    }
}

TEST(PcmAnalysis, SilenceAndConstantsAreSeenThrough) {
    for (const Form& form : allForms()) {
        SCOPED_TRACE(nameOf(form));
        ASSERT_NO_FATAL_FAILURE(expectSame(form, sound::steady(form, 0, 100), 10));
        ASSERT_NO_FATAL_FAILURE(expectSame(form, sound::steady(form, -3, 100), 10));
        // One word that isn't, in the last channel.
        std::string block = sound::steady(form, 0, 100);
        block[block.size() / 2 / form.instant() * form.instant() - form.m_bytes] = 1;
        ASSERT_NO_FATAL_FAILURE(expectSame(form, block, 10));
    }
}

TEST(PcmAnalysis, TakesTheSegmentsOfAnObuf) {
    const Form form{MediaEndian::Big, 3, 2};
    Random random(6);
    const std::string bytes = music(random, form, 3000);
    phantom_OBUF* const whole = kit::obufOf(bytes.substr(0, 10001));
    ASSERT_NE(whole, nullptr);
    phantom_OBUF* const rest = kit::obufOf(bytes.substr(10001));
    ASSERT_NE(obufInsert(whole, rest, obufAppend), 0);
    PcmParser plainParser, parser;
    PcmPattern plain(1u << 20, 2), pattern(1u << 20, 2);
    for (PcmParser* one : {&plainParser, &parser}) {
        one->init(form.m_endian, form.m_bytes, form.m_channels);
        ASSERT_TRUE(one->setObuf(whole));
    }
    for (unsigned i = 0; i < 3000; ++i)
        plain.add(plainParser.decodeNextSample());
    analysePcm(parser, pattern, 3000);
    EXPECT_STREQ(pattern.toString().get(), plain.toString().get());
    obufFree(whole);
}
