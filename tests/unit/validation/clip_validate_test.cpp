#include <gtest/gtest.h>

#include "services/buffer/obuf.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/switches.h"
#include "shared/include/validation/pcm_pattern.h"
#include "tests/kit/samples.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/validation/sound.h"

// What a clip says of blocks of plain samples, to the letter.

using sound::Form;

namespace {

class ClipValidate : public ::testing::Test {
protected:
    ClipValidate() {
        mediaValidate.set(1u << MediaVal::Pcm);
        kit::MovieScript script;
        script.audio(0);
        m_movie = new kit::ScriptedMovie(script, {}, false, MediaObj::CacheRefValue::None);
        describe(2, 16);
    }
    ~ClipValidate() override { m_movie->release(); }

    MediaClipDesc& clip() { return *m_movie->track(0).getClip(0); }
    void describe(unsigned channels, unsigned bits, MediaEndian endian = MediaEndian::Big) {
        MediaClipParam param(clip());
        param.m_channels = channels;
        param.m_bitsPerUnit = bits;
        param.m_endian = endian;
        ASSERT_TRUE(clip().setParam(param));
    }
    // What both kinds of buffer are answered, which is the same.
    std::string validate(const std::string& bytes) {
        MediaIoBuf buf;
        kit::fill(buf, bytes);
        const AutoPtr<char> text = clip().validate(buf);
        if (!bytes.empty()) {
            phantom_OBUF* const obuf = kit::obufOf(bytes);
            EXPECT_STREQ(clip().validate(obuf).get(), text.get());
            obufFree(obuf);
        }
        return text.get() != nullptr ? text.get() : "(null)";
    }
    static void wantStats() { mediaValidate.set(1u << MediaVal::Pcm | 1u << MediaVal::PcmStats); }

    const kit::SwitchGuard m_switch{mediaValidate};
    const kit::SwitchGuard m_limit{validatePcmThresh};
    kit::ScriptedMovie* m_movie;
};

std::string stereo(const std::vector<std::int64_t>& values) { return sound::words(Form{}, values); }

}  // namespace

TEST_F(ClipValidate, TheLimitHasItsNameAndItsDefault) {
    EXPECT_STREQ(validatePcmThresh.getName(), "validatePcmPowerLimit");
    EXPECT_FALSE(validatePcmThresh.isBitField());
    EXPECT_EQ(validatePcmThresh.get(), 16u);
}

TEST_F(ClipValidate, DigitalSilenceIsNoFinding) {
    EXPECT_EQ(validate(sound::steady(Form{}, 0, 100)), "");
    wantStats();
    EXPECT_EQ(validate(sound::steady(Form{}, 0, 100)), "100 samples,ch0:silent,ch1:silent");
}

TEST_F(ClipValidate, AConstantIsNoFinding) {
    EXPECT_EQ(validate(sound::steady(Form{}, -3, 100)), "");
    wantStats();
    EXPECT_EQ(validate(sound::steady(Form{}, -3, 100)), "100 samples,ch0:constant 0xfffffffd,ch1:constant 0xfffffffd");
}

TEST_F(ClipValidate, AStepOfASixteenthOfTheFullScaleIsTheLimit) {
    EXPECT_EQ(validate(stereo({0, 0, 4096, -4096, 0, 0})), "");
    EXPECT_EQ(validate(stereo({0, 0, 4096, -4097, 0, 0})),
              "3 samples,ch0:,ok,ch1:,2 over,max=4097,ac3:expected 2,got 0 samples");
    describe(1, 24);
    const Form form{MediaEndian::Big, 3, 1};
    EXPECT_EQ(validate(sound::words(form, {0, 1048576})), "");
    EXPECT_EQ(validate(sound::words(form, {0, 1048577})),
              "2 samples,ch0:,1 over,max=1048577,ac3:expected 2,got 0 samples");
}

TEST_F(ClipValidate, TheFirstSampleMayBeAny) { EXPECT_EQ(validate(stereo({32767, -32768, 32767, -32768})), ""); }

TEST_F(ClipValidate, TheLimitIsADivisorAndNoneCountsAsOne) {
    validatePcmThresh.set(0u);
    EXPECT_EQ(validate(stereo({-32768, 0, 32767, 0})), "");
    validatePcmThresh.set(2u);
    EXPECT_EQ(validate(stereo({0, 0, 32767, 0})), "");
    EXPECT_EQ(validate(stereo({-1, 0, 32767, 0, 0, 0})), "");
    EXPECT_EQ(validate(stereo({-2, 0, 32767, 0})),
              "2 samples,ch0:,1 over,max=32769,ch1:,ok,ac3:expected 2,got 0 samples");
    validatePcmThresh.set(65537u);
    EXPECT_EQ(validate(stereo({0, 0, 0, 1})), "2 samples,ch0:,ok,ch1:,1 over,max=1,ac3:expected 2,got 0 samples");
}

TEST_F(ClipValidate, AnyStepOf32BitsIsTooLarge) {
    describe(1, 32);
    const Form form{MediaEndian::Big, 4, 1};
    EXPECT_EQ(validate(sound::words(form, {5, 5, 5})), "");
    EXPECT_EQ(validate(sound::words(form, {5, 5, 6})), "3 samples,ch0:,1 over,max=1,ac3:expected 2,got 0 samples");
}

TEST_F(ClipValidate, ABlockThatIsNoWholeNumberOfSamplesIsTold) {
    describe(2, 24);
    const std::string bytes(1000, '\0');
    EXPECT_EQ(validate(bytes), "((3 bps)*(166 smp)*(2 ch)=996) != 1000 bytes");
    wantStats();
    EXPECT_EQ(validate(bytes), "((3 bps)*(166 smp)*(2 ch)=996) != 1000 bytes,166 samples,ch0:silent,ch1:silent");
    EXPECT_EQ(validate("abc"), "((3 bps)*(0 smp)*(2 ch)=0) != 3 bytes,0 samples,ch0:silent,ch1:silent");
}

TEST_F(ClipValidate, AnEmptyBlockIsNoFindingAndNoneIsNoAnswer) {
    EXPECT_EQ(validate(""), "");
    EXPECT_EQ(clip().validate(static_cast<phantom_OBUF*>(nullptr)).get(), nullptr);
    wantStats();
    EXPECT_EQ(validate(""), "0 samples,ch0:silent,ch1:silent");
}

TEST_F(ClipValidate, LittleEndianSoundOf16BitsReadsAsSilence) {
    describe(2, 16, MediaEndian::Little);
    wantStats();
    EXPECT_EQ(validate(stereo({1, 32767, -32768, 5, 20000, 0})), "3 samples,ch0:silent,ch1:silent");
}

TEST_F(ClipValidate, BitsBeyondAWholeByteAreLostForTheWidthAndCountForTheLimit) {
    describe(1, 20);
    const Form form{MediaEndian::Big, 2, 1};
    EXPECT_EQ(validate(sound::words(form, {-32768, 32767})), "");  // 65535 is within 1048576 / 16
    wantStats();
    EXPECT_EQ(validate(sound::words(form, {7, 8, 9})), "3 samples,ch0:ok");
}

TEST_F(ClipValidate, AWholeBurstOfAc3IsNoFinding) {
    const std::string block =
        sound::steady(Form{}, 100, 50) + sound::burst(Form{}, 192, 192) + sound::steady(Form{}, 0, 20);
    EXPECT_EQ(validate(block), "");
    wantStats();
    EXPECT_EQ(validate(block), "264 samples,ch0:constant 0x0,ch1:constant 0x0,194 ac3 samples @s50");
}

TEST_F(ClipValidate, ABurstThatTheBlockCutsIsAFinding) {
    EXPECT_EQ(validate(sound::steady(Form{}, 0, 5) + sound::burst(Form{}, 192, 98)),
              "105 samples,ch0:,ok,ch1:,ok,ac3:expected 194,got 100 samples");
    // Without its length word nothing is expected.
    EXPECT_EQ(validate(sound::steady(Form{}, 0, 5) + sound::burst(Form{}, 192, 0).substr(0, 4)), "");
}

TEST_F(ClipValidate, ABurstIsntFollowedIntoTheNextBlock) {
    const std::string block = sound::burst(Form{}, 192, 192) + sound::steady(Form{}, 0, 20);
    EXPECT_NE(validate(block.substr(0, 400)), "");
    const std::string rest = validate(block.substr(400));
    EXPECT_NE(rest.find(" over,max="), std::string::npos) << rest;
    EXPECT_NE(rest.find(",ac3:expected 2,got 0 samples"), std::string::npos) << rest;
}

TEST_F(ClipValidate, TwoBurstsInABlockAreMoreThanTheLastOneDeclares) {
    const std::string one = sound::burst(Form{}, 192, 192) + sound::steady(Form{}, 0, 20);
    EXPECT_EQ(validate(one + one), "428 samples,ch0:,ok,ch1:,ok,ac3:expected 194,got 388 samples");
}

TEST_F(ClipValidate, WithoutTheBitForPcmNothingIsLookedAt) {
    const std::string click = stereo({0, 0, 30000, 0});
    for (unsigned bit = 0; bit < MediaVal::Count; ++bit) {
        mediaValidate.set(1u << bit);
        EXPECT_EQ(validate(click) == "(null)", bit != MediaVal::Pcm) << bit;
    }
    mediaValidate.set(0u);
    EXPECT_EQ(validate(click), "(null)");
}

TEST_F(ClipValidate, WhatIsntPlainSamplesIsntLookedAt) {
    const std::string bytes(1000, 'x');
    for (const auto& [channels, bits] : std::vector<std::pair<unsigned, unsigned>>{
             {0, 16}, {2, 0}, {2, 7}, {33, 16}, {2, 40}, {65536, 524288}, {0xFFFFFFFF, 0xFFFFFFFF}}) {
        describe(channels, bits);
        EXPECT_EQ(validate(bytes), "(null)") << channels << " channels of " << bits << " bits";
    }
    describe(32, 32);
    EXPECT_NE(validate(bytes), "(null)");
}
