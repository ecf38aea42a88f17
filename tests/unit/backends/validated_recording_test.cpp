#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "mediautil/validation/media_validator.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/switches.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/backends/recording_fixture.h"

// A recording whose samples are checked while other threads look after the
// movie: a check asks the cache, which ends recordings, so none of them may
// wait for the other.

using namespace RecordKit;

namespace {

constexpr unsigned s_writes = 150,
                   s_perWrite = 61;  // an odd number of bytes of one channel of 24 bits

class ValidatedRecording : public RecordScene, public testing::WithParamInterface<const char*> {
protected:
    // With a validator of the test's own, whose objects go with it.
    ValidatedRecording() : m_before(SampleCheck::enter(nullptr)), m_validator(std::make_unique<MediaValidator>()) {
        mediaValidate.set(1u << MediaVal::Pcm | 1u << MediaVal::PcmStats);
    }
    void TearDown() override {
        endRecording();
        m_validator.reset();
        SampleCheck::enter(m_before);
        RecordScene::TearDown();
    }

    void begin() {
        const std::string name = std::string("a.") + GetParam();
        start(name, soundOf(MediaNames::getFileType(name.c_str()), 8000, 1, 24));
    }
    // Calls it again and again beside the writes, at least once.
    template <class Beside>
    void recordBeside(Beside beside) {
        std::atomic<bool> isWritten{false};
        std::thread other([&] {
            do {
                beside();
            } while (!isWritten);
        });
        for (unsigned i = 0; i < s_writes; ++i)
            record(s_perWrite, true);
        isWritten = true;
        other.join();
    }
    // Each write was looked at, and all of them are in the file.
    void expectWhole() {
        endRecording();
        EXPECT_EQ(m_log.count("Val:wr(*"), s_writes);
        EXPECT_EQ(m_log.count("Val:wr(*61 samples,ch0:*"), s_writes) << m_log.text();
        OpResult result;
        const AutoReleasePtr<MediaObj> movie(
            MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, result, {}, true));
        ASSERT_TRUE(movie) << result.describe().get();
        const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
        ASSERT_EQ(clip.getLength(), s_writes * s_perWrite);
        for (unsigned i = 0; i < s_writes; ++i) {
            MediaSampleInMovie where;
            MediaIoBuf bytes;
            ASSERT_TRUE(clip.getMediaOffset(MediaPlayReq(i * s_perWrite, s_perWrite), where, result)) << i;
            ASSERT_TRUE(movie->vsRead(where, bytes)) << i;
            EXPECT_TRUE(kit::bytesOf(bytes) == bytesFor(i * s_perWrite, s_perWrite)) << i;
        }
    }
    void look() {
        OpResult result;
        MediaObj* const again = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        result.discard();
        if (again != nullptr) {
            EXPECT_NE(again->toString(true).get(), nullptr);
            again->release();
        }
        m_cache->expireZombies(farFuture(), nullptr);
    }

    const kit::SwitchGuard m_switch{mediaValidate};
    SampleCheck* const m_before;
    std::unique_ptr<MediaValidator> m_validator;
};

std::string suffixName(const testing::TestParamInfo<const char*>& info) { return info.param; }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Formats, ValidatedRecording, testing::Values("wav", "aiff", "mov"), suffixName);

TEST_P(ValidatedRecording, GoesOnWhileItIsBroughtUpToDateAndLookedAt) {
    begin();
    recordBeside([this] {
        m_movie->flush(nullptr, true);
        look();
    });
    expectWhole();
}

TEST_P(ValidatedRecording, GoesOnWhileItsFilesAreClosed) {
    begin();
    recordBeside([this] {
        EXPECT_TRUE(m_movie->close(nullptr, nullAgent()));
        look();
    });
    expectWhole();
}

TEST_P(ValidatedRecording, GoesOnWhileItsEndIsToldAgainAndAgain) {
    begin();
    recordBeside([this] {
        EXPECT_TRUE(m_movie->setRecording(false));
        look();
    });
    expectWhole();
}
