#include "mediautil/validation/media_validator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "mediautil/io/chunk_alloc.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/validation/pcm_pattern.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wav_builder.h"
#include "tests/unit/validation/sound.h"

// Who checks a sample, which checker he asks, and what the log says of it.

using kit::formatted;
using sound::Form;

// Looks at the parts of a validator.
class ValidatorProbe {
public:
    static void lock(MediaValidator& validator) MO_NO_THREAD_SAFETY_ANALYSIS { validator.m_mutex.lock(); }
    static bool trylock(MediaValidator& validator) MO_NO_THREAD_SAFETY_ANALYSIS { return validator.m_mutex.trylock(); }
    static void unlock(MediaValidator& validator) MO_NO_THREAD_SAFETY_ANALYSIS { validator.m_mutex.unlock(); }
};

namespace {

// A block of big-endian stereo with one word that no sound has.
std::string click(unsigned instants = 50) {
    std::string bytes = sound::steady(Form{}, 7, instants);
    bytes.replace(100, 2, sound::word(Form{}, 20000));
    return bytes;
}

std::string findingOf(unsigned instants) {
    return formatted("%u samples,ch0:,2 over,max=19993,ch1:,ok,ac3:expected 2,got 0 samples", instants);
}

// A validator of the test's own in place of the process's.
class Validation : public kit::CacheScene {
protected:
    Validation() : m_before(SampleCheck::enter(nullptr)), m_validator(std::make_unique<MediaValidator>()) {
        mediaValidate.set(1u << MediaVal::Pcm);
    }
    void TearDown() override {
        for (MediaObj* movie : m_recorded)
            movie->release(nullAgent(), true);
        for (MediaObj* movie : m_opened)
            movie->release();
        ChunkAlloc::getRef()->stopThreadsCb();
        m_validator.reset();
        SampleCheck::enter(m_before);
        CacheScene::TearDown();
    }

    // Begins to record an AIFF, up to its clip.
    MediaObj* record(const std::string& name, unsigned channels = 2) {
        MediaClipParam param;
        EXPECT_TRUE(
            param.initAudio(MediaFileType::Aiff, MediaEncodingType::Pcm, MediaVideoRate::Unknown, 48000, channels, 16));
        MediaObj* const movie =
            MediaObj::openWriter(m_tree.path(name).c_str(), false, m_result, MediaContainment::Embedded,
                                 MediaFileType::Aiff, nullptr, BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        MediaTrackDesc* const track = movie->createTrack(param, m_result);
        EXPECT_NE(track, nullptr) << m_result.describe().get();
        EXPECT_NE(track->createClip(param, m_result), nullptr) << m_result.describe().get();
        m_recorded.push_back(movie);
        return movie;
    }
    static MediaSampleInMovie add(MediaObj& movie, unsigned long long sample, unsigned count, unsigned size) {
        SampleInfo info;
        info.reset(size);
        MediaSampleInMovie where;
        OpResult result;
        EXPECT_TRUE(movie.getTrackAt(0)->addSamples(MediaRecordReq(sample, count, info), where, result));
        return where;
    }
    // A file with one block, written past the library, and its movie.
    MediaObj* aiff(const std::string& name, const std::string& essence) {
        const kit::SwitchGuard off(mediaValidate);
        mediaValidate.set(0u);
        MediaObj* const movie = record(name);
        MediaIoBuf buf;
        kit::fill(buf, essence);
        const unsigned size = static_cast<unsigned>(essence.size());
        EXPECT_TRUE(movie->vsWrite(add(*movie, 0, size / 4, size), buf));
        EXPECT_TRUE(movie->setRecording(false));
        m_recorded.pop_back();
        movie->release(nullAgent(), true);
        return opened(m_tree.path(name));
    }
    MediaObj* opened(const std::string& path) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        m_opened.push_back(movie);
        return movie;
    }
    static MediaSampleInMovie place(const MediaObj& movie, unsigned long long sample, unsigned count) {
        MediaSampleInMovie where;
        OpResult result;
        EXPECT_TRUE(movie.getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(sample, count), where, result));
        return where;
    }
    static bool readSync(const MediaObj& movie, const MediaSampleInMovie& where, std::string* bytes = nullptr) {
        MediaIoBuf buf;
        const bool isRead = movie.vsRead(where, buf).success();
        if (bytes != nullptr) *bytes = kit::bytesOf(buf);
        return isRead;
    }
    std::string readAsync(const MediaObj& movie, const MediaSampleInMovie& where) {
        kit::ReadHook hook;
        MediaReadReq req;
        req.m_sample = where;
        req.m_cb = &hook;
        EXPECT_TRUE(movie.vaRead(req));
        EXPECT_TRUE(hook.waitForAnswers(1));
        return hook.answers()[0].m_bytes;
    }
    std::string lineOf(const char* way, const MediaObj& movie, const MediaSampleInMovie& where,
                       const std::string& finding) const {
        return formatted("Val:%s(o=%llx,trk0,clp0,smpl%lld,%db@%lld):%s", way, movie.getPathId().getId(),
                         static_cast<long long>(where.m_sample), static_cast<int>(where.m_chunks[0].m_size),
                         static_cast<long long>(where.m_chunks[0].m_offset), finding.c_str());
    }

    const kit::SwitchGuard m_switch{mediaValidate};
    SampleCheck* const m_before;
    std::unique_ptr<MediaValidator> m_validator;
    std::vector<MediaObj*> m_recorded, m_opened;
};

}  // namespace

TEST(GlobalValidator, HasEnteredItselfBeforeMain) {
    SampleCheck* const check = SampleCheck::enter(nullptr);
    EXPECT_EQ(check, &mediaValidator);
    SampleCheck::enter(check);
}

TEST_F(Validation, AWriteFromABufferIsLookedAt) {
    MediaObj* const movie = record("a.aiff");
    MediaIoBuf buf;
    kit::fill(buf, click());
    const MediaSampleInMovie where = add(*movie, 0, 50, 200);
    EXPECT_TRUE(movie->vsWrite(where, buf));
    EXPECT_EQ(m_log.count(LogLevel::Debug, lineOf("wr", *movie, where, findingOf(50))), 1u) << m_log.text();
    EXPECT_EQ(kit::bytesOf(buf), click());
    EXPECT_EQ(kit::bytesAt(m_tree.path("a.aiff"), where.m_chunks[0].m_offset, 200), click());
}

TEST_F(Validation, AWriteFromAnObufIsLookedAt) {
    MediaObj* const movie = record("a.aiff");
    const MediaSampleInMovie where = add(*movie, 0, 50, 200);
    EXPECT_TRUE(movie->vaWrite(where, kit::obufOf(click())));
    EXPECT_EQ(m_log.count(LogLevel::Debug, lineOf("wr", *movie, where, findingOf(50))), 1u) << m_log.text();
}

TEST_F(Validation, AReadIntoABufferIsLookedAt) {
    const MediaObj* const movie = aiff("a.aiff", sound::steady(Form{}, 0, 10) + click());
    const MediaSampleInMovie where = place(*movie, 10, 50);
    std::string bytes;
    EXPECT_TRUE(readSync(*movie, where, &bytes));
    EXPECT_EQ(bytes, click());
    EXPECT_EQ(m_log.count(LogLevel::Debug, lineOf("rd", *movie, where, findingOf(50))), 1u) << m_log.text();
}

TEST_F(Validation, AnAsynchronousReadIsLookedAtBeforeItIsAnswered) {
    const MediaObj* const movie = aiff("a.aiff", sound::steady(Form{}, 0, 10) + click());
    const MediaSampleInMovie where = place(*movie, 10, 50);
    EXPECT_EQ(readAsync(*movie, where), click());
    EXPECT_EQ(m_log.count(LogLevel::Debug, lineOf("rd", *movie, where, findingOf(50))), 1u) << m_log.text();
}

TEST_F(Validation, CleanSoundIsPassedOverInSilence) {
    const MediaObj* const movie = aiff("a.aiff", sound::steady(Form{}, 100, 500));
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 500)));
    EXPECT_FALSE(m_log.has("Val:*")) << m_log.text();
    EXPECT_EQ(m_validator->size(), 1u);
}

TEST_F(Validation, WithAllBitsOffNobodyIsAsked) {
    const MediaObj* const movie = aiff("a.aiff", click());
    mediaValidate.set(0u);
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 50)));
    EXPECT_EQ(m_validator->size(), 0u);
    EXPECT_FALSE(m_log.has("Val:*"));
}

TEST_F(Validation, StatsAloneAskTheCheckerWhoLooksAtNothing) {
    const MediaObj* const movie = aiff("a.aiff", click());
    mediaValidate.set(1u << MediaVal::PcmStats);
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 50)));
    EXPECT_EQ(m_validator->size(), 1u);
    EXPECT_FALSE(m_log.has("Val:*"));
}

TEST_F(Validation, StatsTellOfCleanSoundToo) {
    const MediaObj* const movie = aiff("a.aiff", sound::steady(Form{}, 0, 30));
    mediaValidate.set(1u << MediaVal::Pcm | 1u << MediaVal::PcmStats);
    const MediaSampleInMovie where = place(*movie, 0, 30);
    EXPECT_TRUE(readSync(*movie, where));
    EXPECT_TRUE(m_log.has(lineOf("rd", *movie, where, "30 samples,ch0:silent,ch1:silent"))) << m_log.text();
}

TEST_F(Validation, TheCheckerIsAClipOfAPrivateObject) {
    const int before = MediaObjImpl::active.getCount();
    const MediaObj* const movie = aiff("a.aiff", click());
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 50)));
    const MediaClipDesc* const clip = movie->getTrackAt(0)->getClip(0);
    const MediaClipDesc* const checker = m_validator->getHeadClient()->getClip();
    ASSERT_NE(checker, nullptr);
    EXPECT_NE(checker, clip);
    EXPECT_EQ(checker->getParamId(), clip->getParamId());
    EXPECT_EQ(m_validator->getHeadClient()->getParamId(), clip->getParamId());
    EXPECT_EQ(checker->getContainer(), MediaContainment::Embedded);
    EXPECT_EQ(checker->getObj().getPathId().getId(), 0u);
    EXPECT_EQ(MediaObjImpl::active.getCount(), before + 2);
    EXPECT_EQ(m_log.count(LogLevel::Debug, std::string("Media validator created: ") + checker->toString().get()), 1u)
        << m_log.text();
    m_validator.reset();
    EXPECT_EQ(MediaObjImpl::active.getCount(), before + 1);
}

TEST_F(Validation, TwoMoviesOfOneKindShareAChecker) {
    const MediaObj* const one = aiff("a.aiff", click());
    const MediaObj* const two = aiff("b.aiff", click());
    for (unsigned round = 0; round < 2; ++round) {
        EXPECT_TRUE(readSync(*one, place(*one, 0, 50)));
        EXPECT_TRUE(readSync(*two, place(*two, 0, 50)));
    }
    EXPECT_EQ(m_validator->size(), 1u);
    EXPECT_EQ(m_log.count("Media validator created: *"), 1u);
    EXPECT_EQ(m_log.count(lineOf("rd", *one, place(*one, 0, 50), findingOf(50))), 2u) << m_log.text();
    EXPECT_EQ(m_log.count(lineOf("rd", *two, place(*two, 0, 50), findingOf(50))), 2u) << m_log.text();
}

TEST_F(Validation, EachKindHasACheckerOfItsOwn) {
    const MediaObj* const pair = aiff("a.aiff", click());
    MediaObj* const mono = record("b.aiff", 1);
    EXPECT_TRUE(readSync(*pair, place(*pair, 0, 50)));
    MediaIoBuf buf;
    kit::fill(buf, click());
    EXPECT_TRUE(mono->vsWrite(add(*mono, 0, 100, 200), buf));
    EXPECT_EQ(m_validator->size(), 2u);
    EXPECT_TRUE(m_log.has("Val:wr(*):100 samples,ch0:,2 over,max=19993,ac3:expected 2,got 0 samples")) << m_log.text();
}

TEST_F(Validation, AWavIsCheckedByItsOwnOrderOfBytes) {
    // 24 bits: the rule sees the upper 16, without a sign.
    const Form form{MediaEndian::Little, 3, 2};
    std::string essence = sound::steady(form, 0x100000, 60);
    essence.replace(120, 3, sound::word(form, 0x7F0000));
    kit::WavFmt fmt;
    fmt.m_bits = 24;
    const std::string path = m_tree.write("a.wav", kit::WavBuilder().fmt(fmt).data(essence).bytes());
    const MediaObj* const movie = opened(path);
    const kit::SwitchGuard limit(validatePcmThresh);
    validatePcmThresh.set(1024u);
    const MediaSampleInMovie where = place(*movie, 0, 60);
    EXPECT_EQ(readAsync(*movie, where), essence);
    EXPECT_TRUE(
        m_log.has(lineOf("rd", *movie, where, "60 samples,ch0:,2 over,max=28416,ch1:,ok,ac3:expected 2,got 0 samples")))
        << m_log.text();
}

TEST_F(Validation, AMovieThatIsntLiveIsComplainedOfAndTheReadGoesOn) {
    const MediaObj* const movie = aiff("a.aiff", click());
    MediaSampleInMovie where = place(*movie, 0, 50);
    where.m_pathId = OsPathId(0x1234567);
    const std::string complaint = std::string("MediaValidator: no object for ") + where.toString(Brevity::Long).get();
    EXPECT_EQ(m_validator->getClip(where), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, complaint), 1u) << m_log.text();
    std::string bytes;
    EXPECT_TRUE(readSync(*movie, where, &bytes));
    EXPECT_EQ(bytes, click());
    EXPECT_EQ(readAsync(*movie, where), click());
    EXPECT_EQ(m_validator->size(), 0u);
}

TEST_F(Validation, APlaceThatTheMovieHasntIsComplainedOf) {
    const MediaObj* const movie = aiff("a.aiff", click());
    MediaSampleInMovie where = place(*movie, 0, 50);
    EXPECT_EQ(m_validator->getClip(where), movie->getTrackAt(0)->getClip(0));
    where.m_clipIndex = 1;
    EXPECT_EQ(m_validator->getClip(where), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error,
                          formatted("MediaValidator: no clip 1 in track 0 in %s", m_tree.path("a.aiff").c_str())),
              1u)
        << m_log.text();
    where.m_trackIndex = 2;
    EXPECT_EQ(m_validator->getClip(where), nullptr);
    EXPECT_EQ(
        m_log.count(LogLevel::Error, formatted("MediaValidator: no track 2 in %s", m_tree.path("a.aiff").c_str())), 1u)
        << m_log.text();
    EXPECT_TRUE(readSync(*movie, where));
}

TEST_F(Validation, AKindWithoutAWriterIsTriedOnceAndNeverChecked) {
    kit::MovieScript script;
    script.audio(100);
    script.m_tracks[0].m_clips[0].m_encoding = MediaEncodingType::Aac;
    kit::ScriptedMovie* const movie = open(scripted("a.hdcam", script, std::string(400, 'x')));
    for (unsigned round = 0; round < 3; ++round)
        EXPECT_TRUE(readSync(*movie, place(*movie, 0, 100)));
    ASSERT_EQ(m_validator->size(), 1u);
    EXPECT_EQ(m_validator->getHeadClient()->getClip(), nullptr);
    EXPECT_EQ(m_log.count("Media validator created: *"), 0u);
    EXPECT_FALSE(m_log.has("Val:*"));
    movie->release();
}

TEST_F(Validation, ABuildThatFailsIsKept) {
    kit::MovieScript script;
    script.audio(100);
    script.m_tracks[0].m_clips[0].m_encoding = MediaEncodingType::Hdcam;  // of which the kit makes objects
    kit::ScriptedMovie* const movie = open(scripted("a.hdcam", script, std::string(400, 'x')));
    kit::Scripts::setUnbound(kit::MovieScript(), true);
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 100)));
    // It would work now, but isn't tried again.
    kit::Scripts::setUnbound(kit::MovieScript(), false);
    EXPECT_TRUE(readSync(*movie, place(*movie, 0, 100)));
    ASSERT_EQ(m_validator->size(), 1u);
    EXPECT_EQ(m_validator->getHeadClient()->getClip(), nullptr);
    movie->release();
}

TEST_F(Validation, TheListIsWalkedFromTheHeadAndGrowsThere) {
    const MediaObj* const pair = aiff("a.aiff", click());
    MediaObj* const mono = record("b.aiff", 1);
    EXPECT_TRUE(readSync(*pair, place(*pair, 0, 50)));
    const MediaValidator::Validator* const first = m_validator->getHeadClient();
    MediaIoBuf buf;
    kit::fill(buf, click());
    EXPECT_TRUE(mono->vsWrite(add(*mono, 0, 100, 200), buf));
    EXPECT_EQ(m_validator->getHeadClient()->getNext(), first);
    EXPECT_EQ(m_validator->getHeadClient()->getParamId(), mono->getTrackAt(0)->getClip(0)->getParamId());
}

TEST_F(Validation, AReplacedMovieIsCheckedByTheOneThatIsLive) {
    const MediaObj* const before = aiff("a.aiff", click());
    const MediaSampleInMovie where = place(*before, 0, 50);
    MediaObj* const now =
        MediaObj::openReader(m_tree.path("a.aiff").c_str(), MediaObj::ReadMode::ReadOnly, m_result, {}, true);
    m_opened.push_back(now);
    ASSERT_NE(now, before);
    EXPECT_EQ(m_validator->getClip(where), now->getTrackAt(0)->getClip(0));
    EXPECT_TRUE(readSync(*before, where));
    EXPECT_EQ(m_log.count("Val:rd(*"), 1u) << m_log.text();
}

// A checker holds the validator's lock and no other: whoever holds a lock of the cache or of an object may not wait for
// it, and he who waits for it holds none.
TEST_F(Validation, OneSampleIsLookedAtAtATime) {
    const MediaObj* const movie = aiff("a.aiff", click());
    const MediaSampleInMovie where = place(*movie, 0, 50);
    ValidatorProbe::lock(*m_validator);
    std::atomic<bool> isRead{false};
    std::thread reader([&] {
        EXPECT_TRUE(readSync(*movie, where));
        isRead = true;
    });
    // The cache goes on meanwhile, also with the very movie.
    for (unsigned round = 0; round < 20; ++round) {
        OpResult result;
        MediaObj* const again =
            MediaObj::openReader(m_tree.path("a.aiff").c_str(), MediaObj::ReadMode::ReadOnly, result);
        ASSERT_EQ(again, movie);
        again->release();
        m_cache->expireZombies(farFuture(), nullptr);
    }
    EXPECT_FALSE(isRead);
    EXPECT_EQ(m_validator->size(), 0u);
    ValidatorProbe::unlock(*m_validator);
    reader.join();
    EXPECT_TRUE(isRead);
    EXPECT_EQ(m_validator->size(), 1u);
    EXPECT_TRUE(ValidatorProbe::trylock(*m_validator));
    ValidatorProbe::unlock(*m_validator);
}

// Objects are made under the validator's lock while others open, read, write and expire.
TEST_F(Validation, ManyThreadsAndRoadsAtOnce) {
    const MediaObj* const pair = aiff("a.aiff", click());
    MediaObj* const mono = record("b.aiff", 1);
    const MediaSampleInMovie where = place(*pair, 0, 50);
    const MediaSampleInMovie behind = add(*mono, 0, 100, 200);
    constexpr unsigned rounds = 40;
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (unsigned i = 0; i < rounds; ++i)
            EXPECT_TRUE(readSync(*pair, where));
    });
    threads.emplace_back([&] {
        for (unsigned i = 0; i < rounds; ++i)
            EXPECT_EQ(readAsync(*pair, where), click());
    });
    threads.emplace_back([&] {
        MediaIoBuf buf;
        kit::fill(buf, click());
        for (unsigned i = 0; i < rounds; ++i)
            EXPECT_TRUE(mono->vsWrite(behind, buf));
    });
    threads.emplace_back([&] {
        for (unsigned i = 0; i < rounds; ++i) {
            OpResult result;
            MediaObj* const movie =
                MediaObj::openReader(m_tree.path("a.aiff").c_str(), MediaObj::ReadMode::ReadOnly, result);
            EXPECT_EQ(movie, pair);
            if (movie != nullptr) movie->release();
            result.discard();
            m_cache->expireZombies(farFuture(), nullptr);
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_validator->size(), 2u);
    EXPECT_EQ(m_log.count("Val:rd(*"), 2 * rounds);
    EXPECT_EQ(m_log.count("Val:wr(*"), rounds);
}
