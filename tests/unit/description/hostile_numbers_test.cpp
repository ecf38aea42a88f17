#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/description/description_fixture.h"

// Numbers, names and texts that no honest caller hands over: what is asked next is answered as if nothing had been.

using Name = MediaPropertyEnum::Name;

namespace {

using U64 = unsigned long long;

constexpr U64 s_most = ~0ULL;
constexpr U64 s_hostile[] = {0,          1,          (1ULL << 31) - 1, 1ULL << 31, (1ULL << 32) - 1, 1ULL << 32,
                             1ULL << 47, 1ULL << 48, (1ULL << 63) - 1, 1ULL << 63, s_most - 1,       s_most};
constexpr unsigned s_hostileWords[] = {0,       1,          2,          0x7fff,     0xffff,
                                       0x10000, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff};

FixedPoint<16> rawValue(U64 raw) { return FixedPoint<16>(static_cast<long long>(raw), FixedPoint<16>::AlreadyFixed()); }

class HostileNumbers : public testing::Test {
protected:
    TestMovie movie;  // time base 100
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    TestTrack& audio = movie.addTrack(MediaDataType::Audio);
    TestTrack& data = movie.addTrack(MediaDataType::Data);

    // Two clips of 100 samples, a sample a tick of the movie.
    void addTwoClips(TestTrack& track) {
        for (int i = 0; i < 2; ++i)
            track.addClip(MediaEncodingType::Avc, 100, 1, 100);
    }
    static const MediaClipDesc* at(const TestTrack& track, FixedPoint<16> time, FixedPoint<16>& start) {
        return static_cast<const MediaTrackDesc&>(track).clipAt(time, start);
    }
};

}  // namespace

TEST_F(HostileNumbers, TracksThatAreNotThereAreNotFound) {
    for (const unsigned word : s_hostileWords) {
        const auto track = static_cast<MediaTrackEnum>(word);
        const bool isVideo = word == 0x10000;
        EXPECT_EQ(movie.getTrackIndex(track), isVideo ? 0 : 0xffffffffu) << word;
        EXPECT_EQ(movie.getTrack(track), isVideo ? &video : nullptr) << word;
        for (const MediaDataType type : {MediaDataType::Video, MediaDataType::Audio}) {
            const unsigned ordinal = word & 0xffff;
            const unsigned there = type == MediaDataType::Video ? 0 : 1;
            EXPECT_EQ(movie.getTrackIndex(encodeMte(type, ordinal)), ordinal == 0 ? there : 0xffffffffu) << word;
        }
        // Type 3 counts every track.
        const unsigned ordinal = word & 0xffff;
        EXPECT_EQ(movie.getTrackIndex(encodeMte(MediaDataType::Data, ordinal)), ordinal < 3 ? ordinal : 0xffffffffu);
    }
    EXPECT_EQ(movie.getTrackEnum(2), encodeMte(MediaDataType::Data, 0));
    for (const unsigned short index : {3, 0x7fff, 0xffff})
        EXPECT_EQ(movie.getTrackEnum(index), MediaTrackEnum::None) << index;
    EXPECT_EQ(movie.findClipUsing(mediaId(0)), nullptr);
    EXPECT_EQ(movie.findClipUsing(mediaId(0xffffffff)), nullptr);
}

TEST_F(HostileNumbers, AWalkGoesOnBehindEveryNumber) {
    for (const unsigned word : s_hostileWords) {
        unsigned index = 7;
        const MediaTrackEnum next = movie.getNext(static_cast<MediaTrackEnum>(word), index);
        // In a signed comparison the upper half lies in front of the first track, and 0x10000 is that track.
        const bool inFront = word >= 0x80000000 || word < 0x10000;
        const bool isFirst = word == 0x10000;
        EXPECT_EQ(next, inFront   ? encodeMte(MediaDataType::Video, 0)
                        : isFirst ? encodeMte(MediaDataType::Audio, 0)
                                  : MediaTrackEnum::End)
            << word;
        EXPECT_EQ(index, inFront ? 0u : isFirst ? 1u : 0xffffffffu) << word;
    }
}

TEST_F(HostileNumbers, AFrameOfATrackThatIsNotThereIsNotAdjusted) {
    video.setSyncAdjustment(1);
    for (const U64 frame : s_hostile) {
        for (const unsigned index : {3u, 4u, 0xffffu, 0x80000000u, 0xffffffffu})
            EXPECT_EQ(movie.getSyncAdjustedFrame(frame, index), frame);
        EXPECT_EQ(movie.getSyncAdjustedFrame(frame, 0), frame + 1);
    }
}

TEST_F(HostileNumbers, AdjustedFramesWrap) {
    for (const int adjustment : {INT_MIN, -1, 0, 1, INT_MAX}) {
        audio.setSyncAdjustment(adjustment);
        for (const U64 frame : s_hostile)
            EXPECT_EQ(movie.getSyncAdjustedFrame(frame, 1),
                      frame + static_cast<U64>(static_cast<long long>(adjustment)));
    }
}

TEST_F(HostileNumbers, TheCallerSeesThePositionThatItAskedFor) {
    TestClip& clip = audio.addClip();
    for (const int adjustment : {INT_MIN, -1, 0, 1, INT_MAX}) {
        audio.setSyncAdjustment(adjustment);
        for (const U64 frame : s_hostile) {
            for (const unsigned count : s_hostileWords) {
                MediaSampleInMovie sample;
                OpResult result;
                ASSERT_TRUE(clip.getMediaOffset(MediaPlayReq(frame, count), sample, result));
                EXPECT_TRUE(result.success());
                EXPECT_EQ(clip.lookup().m_lastSample, frame + static_cast<U64>(static_cast<long long>(adjustment)));
                EXPECT_EQ(sample.m_sample, frame);
                EXPECT_EQ(sample.m_anchor, frame - 3);
                EXPECT_EQ(sample.m_count, count);
                ASSERT_TRUE(clip.getFrameInfo(MediaPlayReq(frame, count), sample, result));
                EXPECT_EQ(sample.m_sample, frame);
                EXPECT_EQ(sample.m_anchor, frame - 3);
            }
        }
    }
}

TEST_F(HostileNumbers, AnyTimeHasTheFirstTheLastOrNoClip) {
    addTwoClips(video);
    for (const U64 raw : s_hostile) {
        FixedPoint<16> start(-7);
        const FixedPoint<16> time = rawValue(raw);
        const bool below = time < FixedPoint<16>(-0.5);
        const bool isSecond = time >= FixedPoint<16>(99.5);
        EXPECT_EQ(at(video, time, start), below ? nullptr : &video.clip(isSecond ? 1 : 0)) << raw;
        EXPECT_EQ(start, FixedPoint<16>(isSecond ? 100 : 0)) << raw;
        EXPECT_EQ(at(data, time, start), nullptr);
        EXPECT_EQ(start, FixedPoint<16>(0));
    }
}

TEST_F(HostileNumbers, ClipsOfAnyLengthLeaveTheTrackAnswering) {
    TestClip& clip = audio.addClip(MediaEncodingType::Pcm, 48000, 1, 0);
    audio.addClip(MediaEncodingType::Pcm, 48000, 1, 48000);
    for (const U64 length : s_hostile) {
        for (const unsigned ticks : {1u, 1001u, 0xffffffffu}) {
            for (const unsigned rate : {1u, 48000u, 0xffffffffu}) {
                clip.m_length = length;
                clip.setRate(rate, ticks);
                audio.m_length = length;
                clip.m_edits = {MediaEditDesc(length, length + 1)};
                FixedPoint<16> start;
                const MediaClipDesc* found = at(audio, FixedPoint<16>(50), start);
                EXPECT_TRUE(found == &audio.clip(0) || found == &audio.clip(1)) << length;
                EXPECT_EQ(audio.getDuration(), FixedPoint<16>(length) / 100u);
                EXPECT_EQ(clip.convertTo(rate), FixedPoint<16>(length * ticks));
                static_cast<void>(clip.convertTo(25));
                static_cast<void>(audio.getFrameLength());
                static_cast<void>(audio.getMaxLength());
                EXPECT_NE(std::string(clip.toString().get()).find("len=" + std::to_string(length)), std::string::npos);
            }
        }
    }
    clip.m_edits.clear();
    clip.setRate(48000, 1);
    clip.m_length = 48000;
    FixedPoint<16> start;
    EXPECT_EQ(at(audio, FixedPoint<16>(50), start), &clip);
    EXPECT_EQ(at(audio, FixedPoint<16>(150), start), &audio.clip(1));
    EXPECT_EQ(start, FixedPoint<16>(100));
}

TEST_F(HostileNumbers, LengthsBeyondTheFixedPointLoseTheirUpperBits) {
    addTwoClips(video);
    // 25 Hz on a time base of 100: four ticks a frame.
    video.m_videoRate = MediaVideoRate::Pal25;
    for (const U64 length : s_hostile) {
        video.m_length = length;
        const auto kept = static_cast<long long>(length << 16);
        const FixedPoint<16> frames = rawValue(static_cast<U64>(kept)) / FixedPoint<16>(4);
        EXPECT_EQ(video.getFrameLength(), frames.round().uint64Value()) << length;
        ASSERT_TRUE(movie.notifyLength(video));
        EXPECT_EQ(movie.getMovieDesc()->getLastTrackLength(), length);
        EXPECT_EQ(movie.getFrameLength(), video.getFrameLength());
    }
    EXPECT_EQ(movie.getMovieDesc()->getMaxTrackLength(), s_most);
    video.m_length = 400;
    EXPECT_EQ(video.getFrameLength(), 100u);
}

TEST_F(HostileNumbers, TimesOfAnySizeAreConverted) {
    TestClip& clip = audio.addClip(MediaEncodingType::Pcm, 48000, 1, 100);
    for (const U64 raw : s_hostile) {
        for (const unsigned rate : {1u, 25u, 48000u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
            const FixedPoint<16> there = clip.convertTo(rawValue(raw), rate);
            const FixedPoint<16> back = clip.convertFrom(rawValue(raw), rate);
            if (rate == 48000) {
                EXPECT_EQ(there, rawValue(raw));
                EXPECT_EQ(back, rawValue(raw));
            }
            static_cast<void>(clip.convertFrom(rawValue(raw), FixedPoint<16>(rate)));
        }
        EXPECT_NE(timeToString(rawValue(raw)).get(), nullptr);
        EXPECT_EQ(MediaObj::getVideoRate(rawValue(raw)), MediaVideoRate::Unknown);
    }
    EXPECT_EQ(clip.convertTo(FixedPoint<16>(48000), 25), FixedPoint<16>(25));
    EXPECT_EQ(clip.convertFrom(FixedPoint<16>(25), 25), FixedPoint<16>(48000));
}

TEST_F(HostileNumbers, FramesOfAClipWithoutALookupHaveNoSamples) {
    TestClip& clip = audio.addClip();
    clip.dropLookup();
    for (const U64 frame : s_hostile) {
        const SampleAndCount got = clip.getSampleAndCount(frame);
        EXPECT_EQ(got.m_sample, 0u);
        EXPECT_EQ(got.m_count, 0u);
        EXPECT_EQ(got.m_period, 1u);
        MediaSampleInMovie sample;
        OpResult result;
        EXPECT_FALSE(clip.getMediaOffset(MediaPlayReq(frame, 1), sample, result));
        EXPECT_TRUE(result.success());
        EXPECT_FALSE(clip.getFrameInfo(MediaPlayReq(frame, 0), sample, result));
        EXPECT_TRUE(result.success());
    }
}

TEST_F(HostileNumbers, ARefusedPositionLeavesTheNextOneAlone) {
    TestClip& clip = video.addClip();
    for (const U64 frame : s_hostile) {
        MediaSampleInMovie sample;
        OpResult result;
        clip.lookup().m_refuse = true;
        EXPECT_FALSE(clip.getMediaOffset(MediaPlayReq(frame, 1), sample, result));
        EXPECT_EQ(result.getCode(), 11);
        result.discard();
        clip.lookup().m_refuse = false;
        EXPECT_TRUE(clip.getMediaOffset(MediaPlayReq(frame, 1), sample, result));
        EXPECT_TRUE(result.success());
        EXPECT_EQ(sample.m_sample, frame);
    }
}

TEST_F(HostileNumbers, AGroupOfPicturesOfAnySizeWraps) {
    for (const unsigned p : s_hostileWords) {
        for (const unsigned b : s_hostileWords) {
            ASSERT_TRUE(video.setProperty(MediaProperty(Name::PPictCount, p)));
            ASSERT_TRUE(video.setProperty(MediaProperty(Name::BPictCount, b)));
            EXPECT_EQ(movie.getMovieGopLength(), (p + 1) * (b + 1));
        }
    }
}

TEST_F(HostileNumbers, AnEmptyMovieAndEmptyTracksAnswerEverything) {
    OpResult result;
    EXPECT_EQ(movie.calcEncoding(), MediaEncodingType::Unknown);
    EXPECT_EQ(movie.getVideoSequenceCoding(), SequenceCodingType::Intra);
    EXPECT_EQ(movie.getMovieGopLength(), 0u);
    EXPECT_EQ(movie.getFrameLength(), 0u);
    EXPECT_EQ(movie.getContainment(), MediaContainment::Unknown);
    EXPECT_EQ(movie.commonId(), nullptr);
    EXPECT_EQ(movie.createClip(audio, MediaContainment::Embedded, result), nullptr);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
    const MediaTrackDesc* copied = movie.copyClips(audio, result);
    ASSERT_NE(copied, nullptr);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(copied->getClipCount(), 0u);
    movie.computeSyncAdjustments();
    for (const TestTrack* track : {&video, &audio, &data}) {
        EXPECT_EQ(track->getDuration(), FixedPoint<16>(0));
        EXPECT_EQ(track->getFrameLength(), 0u);
        EXPECT_EQ(track->getMaxLength(), FixedPoint<16>(0));
        EXPECT_EQ(track->getParam().m_dataType, MediaDataType::Unknown);
        EXPECT_EQ(track->getParam().m_ticksPerSample, 1u);
        track->close();
    }
    MediaEncodingType encoding = MediaEncodingType::Dv;
    const TestMovie other;
    EXPECT_TRUE(movie.canReceive(other, encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Unknown);
    EXPECT_FALSE(other.canReceive(movie, encoding));
}

TEST(HostileRecord, ARateWithoutARowFailsAndTheNextGoodOneIsTaken) {
    for (const unsigned rate : {9u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        MediaClipParam param;
        param.m_sampleRate = 77;
        param.m_ticksPerSample = 33;
        param.m_videoRate = static_cast<MediaVideoRate>(rate);
        OpResult failed = param.initSampleRate(MediaVideoRate::Pal25);
        EXPECT_EQ(failed.getType(), OpResult::Type::Error);
        EXPECT_EQ(failed.getCode(), 1);
        failed.discard();
        EXPECT_EQ(param.m_sampleRate, 1u);
        EXPECT_EQ(param.m_ticksPerSample, 33u);
        param.m_videoRate = MediaVideoRate::Ntsc2997;
        EXPECT_TRUE(param.initSampleRate(MediaVideoRate::Unknown));
        EXPECT_EQ(param.m_sampleRate, 30000u);
        EXPECT_EQ(param.m_ticksPerSample, 1001u);
    }
}

TEST(HostileRecord, RatesOfAnySizeAreCompared) {
    for (const unsigned rate : s_hostileWords) {
        for (const unsigned ticks : s_hostileWords) {
            MediaClipParam a, b;
            a.m_sampleRate = b.m_sampleRate = rate;
            a.m_ticksPerSample = b.m_ticksPerSample = ticks;
            EXPECT_TRUE(a.paramIdMatch(b));
            for (const unsigned otherRate : s_hostileWords) {
                b.m_sampleRate = otherRate;
                b.m_ticksPerSample = 1;
                // Whole numbers of samples a second that differ are different media.
                if (ticks == 1 && rate != otherRate) {
                    EXPECT_FALSE(a.paramIdMatch(b)) << rate << " and " << otherRate;
                }
                EXPECT_EQ(a.paramIdMatch(b), b.paramIdMatch(a)) << rate << "/" << ticks << " and " << otherRate;
            }
        }
    }
}

TEST(HostileRecord, TheBitrateOfAnySizeWraps) {
    for (const unsigned rate : s_hostileWords) {
        for (const unsigned other : s_hostileWords) {
            const MediaClipParam param(MediaEncodingType::Pcm, MediaDataType::Audio, MediaFileType::Wav,
                                       SequenceCodingType::Intra, MediaVideoRate::Unknown, other, other,
                                       MediaChromaSample::None, MediaVideoScanType::Unknown, rate, other, other, other,
                                       other, MediaEndian::Little, MediaOffsetSummary(), AspectRatio());
            const unsigned replacedRate = rate != 0 ? rate : 1;
            const unsigned replacedTicks = other != 0 ? other : 1;
            EXPECT_EQ(param.m_bitrate, replacedRate / replacedTicks * other * other);
            EXPECT_NE(param.toString().get(), nullptr);
        }
    }
}

TEST(HostileRecord, ASummaryOfAnyNumbersIsTaken) {
    for (const unsigned word : s_hostileWords) {
        ZxMediaSummary1 summary;
        summary.type = static_cast<ZxMediaType>(word);
        summary.chroma = static_cast<ZxVideoSampleRatio>(word);
        summary.aspect = summary.bitrate = summary.bitsPerSample = summary.rateTimes100 = word;
        summary.channels = summary.gopLength = word;
        summary.width = summary.height = static_cast<std::uint16_t>(word);
        const MediaClipParam param(summary, static_cast<ZxFrameStruct>(word));
        EXPECT_EQ(param.m_bitrate, word);
        if (word < 23) continue;
        EXPECT_EQ(param.m_dataType, MediaDataType::Unknown);
        EXPECT_EQ(param.m_encoding, MediaEncodingType::Unknown);
        EXPECT_EQ(param.m_aspect.get(), MediaAspectRatio::Unknown);
        EXPECT_EQ(param.m_sampleRate, word / 100);
        EXPECT_EQ(param.m_width, 0u);
    }
}

TEST(HostileTimecode, CountersAndRatesOfAnySizeGiveDigits) {
    for (const U64 raw : s_hostile) {
        for (const int counter : {INT_MIN, -1, 0, 1, 1799, 1800, INT_MAX}) {
            for (const bool drop : {false, true}) {
                MediaTimecode timecode;
                timecode.setCounter(counter, rawValue(raw), drop);
                EXPECT_EQ(timecode.isValid(), rawValue(raw).intValue() > 0) << raw;
                if (!timecode.isValid()) {
                    EXPECT_EQ(timecode.getCounter(), 0);
                    EXPECT_EQ(timecode.m_rate, FixedPoint<16>(-1));
                }
                static_cast<void>(timecode.getCounter());
                EXPECT_NE(timecode.toString().get(), nullptr);
            }
        }
    }
    MediaTimecode timecode;
    for (const FixedPoint<16> rate : {FixedPoint<16>(29.97), FixedPoint<16>(59.94)}) {
        for (const int counter : {INT_MIN, -1, INT_MAX}) {
            timecode.setCounter(counter, rate, true);
            EXPECT_TRUE(timecode.isValid());
        }
    }
    timecode.setCounter(17982, FixedPoint<16>(29.97), true);
    EXPECT_STREQ(timecode.toString().get(), "00:10:00.00");
}

TEST(HostileProperties, ANullTextIsATextOfNoBytes) {
    const char* const none = nullptr;
    for (const bool copy : {false, true}) {
        MediaProperty property;
        property.init(Name::ClipProps);
        property.set(none, copy);
        EXPECT_EQ(property.getType(), MediaPropertyEnum::Type::String);
        EXPECT_EQ(property.stringValue(), nullptr);
        EXPECT_EQ(property.nMemBytes(), 0u);
        EXPECT_STREQ(property.toString().get(), "clipProps=\"(null)\"");
        MediaProperty copied(property), assigned;
        assigned = property;
        EXPECT_TRUE(copied == property);
        EXPECT_TRUE(assigned == property);
        EXPECT_EQ(copied.stringValue(), nullptr);
        const MediaProperty text(Name::ClipProps, "text"), empty(Name::ClipProps, "");
        EXPECT_FALSE(property == text);
        EXPECT_FALSE(text == property);
        EXPECT_FALSE(property == empty);
        EXPECT_FALSE(empty == property);
        // A text that is copied afterwards is kept as ever.
        copied.set("later", true);
        EXPECT_STREQ(copied.stringValue(), "later");
    }
    const MediaProperty made(Name::CodePage, none);
    EXPECT_EQ(made.stringValue(), nullptr);
    const ClipPropsProperty typed(none);
    EXPECT_EQ(typed.value(), nullptr);
}

TEST(HostileProperties, ANullBlockIsABlockOfNoBytes) {
    for (const bool copy : {false, true}) {
        for (const unsigned size : {0u, 1u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
            MediaProperty property;
            property.init(Name::UmidValue);
            property.set(static_cast<const void*>(nullptr), size, copy);
            EXPECT_EQ(property.getType(), MediaPropertyEnum::Type::Binary);
            EXPECT_EQ(property.memValue(), nullptr);
            EXPECT_EQ(property.nMemBytes(), 0u);
            const MediaProperty copied(property);
            EXPECT_TRUE(copied == property);
            EXPECT_STREQ(copied.toString().get(), "umidValue=<binary>");
        }
    }
}

TEST(HostileProperties, ANullTextReplacesAnOwnedOneAndIsReplaced) {
    MediaProperty property;
    property.init(Name::ClipProps);
    property.set("owned", true);
    property.set(static_cast<const char*>(nullptr), true);
    EXPECT_EQ(property.stringValue(), nullptr);
    const MediaProperty copied(property);
    EXPECT_EQ(copied.stringValue(), nullptr);
    property.set("owned again", true);
    EXPECT_STREQ(property.stringValue(), "owned again");
}

TEST(HostileProperties, ABlockWithoutBytesIsKept) {
    const char byte = 'x';
    MediaProperty a, b;
    a.init(Name::UmidValue);
    a.set(&byte, 0u, true);
    b.init(Name::UmidValue);
    b.set(&byte, 0u, false);
    EXPECT_NE(a.memValue(), nullptr);
    EXPECT_EQ(a.nMemBytes(), 0u);
    EXPECT_TRUE(a == b);
    const MediaProperty copied(a);
    EXPECT_TRUE(copied == b);
}

TEST(HostileProperties, ABlockOfTwoGibibytesHasASizeOf31Bits) {
    // Borrowed and never read: the place alone is kept.
    const char byte = 'x';
    MediaProperty property;
    property.init(Name::UmidValue);
    property.set(&byte, 0x7fffffffu, false);
    EXPECT_EQ(property.nMemBytes(), 0x7fffffffu);
    property.set(&byte, 0x80000001u, false);
    EXPECT_EQ(property.nMemBytes(), 1u);
    const MediaProperty copied(property);
    EXPECT_TRUE(copied == property);
}

TEST(HostileProperties, EveryIndexAndNameOfABagIsAnswered) {
    MediaParams bag;
    for (const unsigned index : s_hostileWords)
        EXPECT_EQ(static_cast<const MediaParams&>(bag).get(index), nullptr);
    ASSERT_TRUE(bag.set(MediaProperty(Name::NBlack, 5u)));
    ASSERT_TRUE(bag.set(MediaProperty(Name::ClipProps, static_cast<const char*>(nullptr))));
    for (const unsigned index : s_hostileWords) {
        EXPECT_EQ(bag.get(index) != nullptr, index < 2) << index;
        EXPECT_EQ(bag.get(static_cast<Name>(index)), nullptr) << index;
        EXPECT_STREQ(MediaPropertyEnum::lookup(static_cast<Name>(index)), index == 0   ? "unknown"
                                                                          : index == 1 ? "vbiMask"
                                                                          : index == 2 ? "firstFrame"
                                                                                       : "?");
        ASSERT_TRUE(bag.get(Name::NBlack) != nullptr);
    }
    EXPECT_EQ(MediaPropertyEnum::lookup(static_cast<const char*>(nullptr)), Name::Unknown);
    EXPECT_EQ(MediaPropertyEnum::lookup(""), Name::Unknown);
    EXPECT_EQ(MediaPropertyEnum::lookup("VBIMASK"), Name::Unknown);
    EXPECT_EQ(bag.get(MediaPropertyEnum::ClipProps()).value(), nullptr);
    EXPECT_EQ(bag.get(MediaPropertyEnum::VbiMask()).value(), 0u);
    ASSERT_TRUE(bag.set(*bag.get(0u)));  // one of its own
    EXPECT_EQ(bag.getPropertyCount(), 2u);
    const MediaParams copied(bag);
    EXPECT_EQ(copied.get(1u)->stringValue(), nullptr);
    EXPECT_EQ(copied.get(0u)->uintValue(), 5u);
}

TEST(HostileProperties, ANullTextTravelsThroughARecordATrackAndAMovie) {
    TestMovie movie;
    TestTrack& track = movie.addTrack(MediaDataType::Audio);
    MediaClipParam param;
    param.m_dataType = MediaDataType::Audio;
    ASSERT_TRUE(param.setParam(MediaProperty(Name::CodePage, static_cast<const char*>(nullptr))));
    ASSERT_TRUE(param.setParam(MediaProperty(Name::NPrecharge, static_cast<const char*>(nullptr))));
    ASSERT_TRUE(track.setParam(param));
    ASSERT_NE(track.getProperty(Name::CodePage), nullptr);
    EXPECT_EQ(track.getProperty(Name::CodePage)->stringValue(), nullptr);
    EXPECT_EQ(track.getProperty(Name::NPrecharge), nullptr);
    track.addClip();
    const MediaClipParam back = track.getParam();
    EXPECT_EQ(back.getParams().getPropertyCount(), 1u);
    EXPECT_EQ(back.getParam(Name::CodePage).getType(), MediaPropertyEnum::Type::String);
    EXPECT_EQ(back.getParam(Name::CodePage).stringValue(), nullptr);
    TestTrack& other = movie.addTrack(MediaDataType::Audio);
    ASSERT_TRUE(other.setParam(track));
    EXPECT_EQ(other.getProperty(Name::CodePage)->stringValue(), nullptr);
    EXPECT_EQ(movie.get(MediaPropertyEnum::ClipProps()).value(), nullptr);
    OpResult refused = movie.setProperty(MediaProperty(Name::ClipProps, static_cast<const char*>(nullptr)));
    EXPECT_EQ(refused.getCode(), 1);
    refused.discard();
}
