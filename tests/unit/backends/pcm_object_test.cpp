#include <gtest/gtest.h>

#include <string>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"

// Movies of sound without a file, of which WAV and AIFF make a track and a clip for others.

namespace {

class PcmObjects : public kit::CacheScene {
protected:
    void TearDown() override {
        m_object = nullptr;
        CacheScene::TearDown();
    }
    static MediaClipParam sound(unsigned channels, unsigned bits, MediaEndian endian,
                                MediaEncodingType encoding = MediaEncodingType::Pcm) {
        MediaClipParam param;
        param.m_encoding = encoding;
        param.m_dataType = MediaDataType::Audio;
        param.m_sampleRate = 48000;
        param.m_ticksPerSample = 1;
        param.m_maxBitsPerSample = bits;
        param.m_bitsPerUnit = bits;
        param.m_channels = channels;
        param.m_endian = endian;
        return param;
    }
    MediaClipDesc* make(MediaFileType type, const MediaClipParam& param) {
        m_result.discard();
        m_object = MediaObj::openObj(type, m_result);
        MediaTrackDesc* const track = m_object ? m_object->createTrack(param, m_result) : nullptr;
        return track != nullptr ? track->createClip(param, m_result) : nullptr;
    }
    std::string silenceOf(MediaFileType type, const MediaClipParam& param) {
        const MediaClipDesc* const clip = make(type, param);
        if (clip == nullptr) return "no clip";
        MediaSampleBuf buf(*clip);
        EXPECT_TRUE(clip->fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
        EXPECT_TRUE(clip->fillFwdRepeat(buf));
        EXPECT_TRUE(clip->fillBakRepeat(buf));
        return kit::bytesOf(buf);
    }

    AutoReleasePtr<MediaObj> m_object;
};

}  // namespace

TEST_F(PcmObjects, AClipIsWhatItsParametersSay) {
    const MediaClipDesc* const clip = make(MediaFileType::Aiff, sound(6, 24, MediaEndian::Big));
    ASSERT_NE(clip, nullptr) << m_result.describe().get();
    EXPECT_EQ(clip->getChannels(), 6u);
    EXPECT_EQ(clip->getBitsPerUnit(), 24u);
    EXPECT_EQ(clip->getEndian(), MediaEndian::Big);
    EXPECT_EQ(clip->getSampleRate(), 48000u);
    EXPECT_EQ(clip->getMediaId(), nullptr);
    EXPECT_EQ(clip->getLength(), 0u);
    EXPECT_EQ(m_object->getTrackCount(), 1u);
    EXPECT_EQ(m_object->getMediaCount(), 0u);
}

TEST_F(PcmObjects, ItHasOneTrackOfOneClip) {
    const MediaClipParam param = sound(2, 16, MediaEndian::Little);
    ASSERT_NE(make(MediaFileType::Wav, param), nullptr);
    EXPECT_EQ(m_object->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_EQ(m_object->getTrackAt(0)->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
}

TEST_F(PcmObjects, WhatIsntPlainSoundIsRefused) {
    for (const auto& [channels, bits] : {std::pair(0u, 16u), {33u, 16u}, {2u, 0u}, {2u, 12u}, {2u, 40u}}) {
        EXPECT_EQ(make(MediaFileType::Wav, sound(channels, bits, MediaEndian::Little)), nullptr) << channels << bits;
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    }
    MediaClipParam param = sound(2, 16, MediaEndian::Little);
    param.m_dataType = MediaDataType::Video;
    EXPECT_EQ(make(MediaFileType::Wav, param), nullptr);
    EXPECT_EQ(make(MediaFileType::Wav, sound(2, 16, MediaEndian::Little, MediaEncodingType::ALaw)), nullptr);
    EXPECT_EQ(make(MediaFileType::Wav, sound(2, 8, MediaEndian::Little, MediaEncodingType::Aac)), nullptr);
}

TEST_F(PcmObjects, BlackIsSilence) {
    EXPECT_EQ(silenceOf(MediaFileType::Wav, sound(2, 16, MediaEndian::Little)), std::string(4, '\0'));
    EXPECT_EQ(silenceOf(MediaFileType::Aiff, sound(3, 24, MediaEndian::Big)), std::string(9, '\0'));
    EXPECT_EQ(silenceOf(MediaFileType::Wav, sound(2, 8, MediaEndian::Little)), std::string(2, '\x80'));
    EXPECT_EQ(silenceOf(MediaFileType::Aiff, sound(2, 8, MediaEndian::Big)), std::string(2, '\0'));
    EXPECT_EQ(silenceOf(MediaFileType::Wav, sound(1, 8, MediaEndian::Little, MediaEncodingType::ALaw)),
              std::string(1, '\xD5'));
    const MediaFileType mov = MediaFileType::QuickTime;
    EXPECT_EQ(silenceOf(mov, sound(2, 8, MediaEndian::Little)), std::string(2, '\x80')) << "bytes without a sign";
    EXPECT_EQ(silenceOf(mov, sound(2, 8, MediaEndian::Big)), std::string(2, '\0')) << "bytes with one";
    EXPECT_EQ(silenceOf(mov, sound(2, 16, MediaEndian::Big)), std::string(4, '\0'));
    EXPECT_EQ(silenceOf(mov, sound(1, 8, MediaEndian::Big, MediaEncodingType::ALaw)), std::string(1, '\xD5'));
}

TEST_F(PcmObjects, AnEmptyBufferIsntFilled) {
    const MediaClipDesc* const clip = make(MediaFileType::Wav, sound(2, 16, MediaEndian::Little));
    ASSERT_NE(clip, nullptr);
    MediaSampleBuf buf(*clip);
    ASSERT_TRUE(buf.resize(0, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    EXPECT_FALSE(clip->fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(1), false));
    EXPECT_FALSE(clip->fillFwdRepeat(buf));
    EXPECT_FALSE(clip->fillBakRepeat(buf));
}

TEST_F(PcmObjects, CodesOfALawArentJudgedAsSamples) {
    const kit::SwitchGuard guard(mediaValidate);
    mediaValidate.set(1u << MediaVal::Pcm);
    MediaIoBuf jumps;
    kit::fill(jumps, std::string("\0\x7F\0\x7F", 4));
    phantom_OBUF* const obuf = kit::obufOf(kit::bytesOf(jumps));
    const MediaClipDesc* clip = make(MediaFileType::Wav, sound(1, 8, MediaEndian::Big, MediaEncodingType::ALaw));
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->validate(jumps).get(), nullptr);
    EXPECT_EQ(clip->validate(obuf).get(), nullptr);
    clip = make(MediaFileType::Aiff, sound(1, 8, MediaEndian::Big));
    ASSERT_NE(clip, nullptr);
    EXPECT_STREQ(clip->validate(jumps).get(), "4 samples,ch0:,3 over,max=127,ac3:expected 2,got 0 samples");
    EXPECT_STREQ(clip->validate(obuf).get(), "4 samples,ch0:,3 over,max=127,ac3:expected 2,got 0 samples");
    obufFree(obuf);
}
