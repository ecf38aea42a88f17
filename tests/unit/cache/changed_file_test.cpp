#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "services/file/change_watch.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"
#include "tests/kit/wait_for.h"
#include "tests/kit/wav_builder.h"

using kit::isWarning;
using kit::TempTree;

// What becomes of a movie and of those who hold it when its file changes, by the cache's own thread and the watch of
// the file layer: nothing here is told by the test. Each test runs with the kernel's notices and by looking.

namespace {

constexpr unsigned s_samples = 4800, s_sampleSize = 4;
constexpr unsigned s_headerSize = 44;

// A WAV whose essence is one letter.
std::string wavOf(char letter, unsigned samples = s_samples) {
    return kit::WavBuilder().fmt().data(std::string(samples * s_sampleSize, letter)).bytes();
}

class ChangedFile : public kit::CacheScene, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        ChangeWatch::get().stop();
        ::setenv("MEDIACORE_WATCH", GetParam(), 1);
        m_cache.startThread();
    }
    void TearDown() override {
        m_holder = static_cast<MediaObj*>(nullptr);
        m_cache.stopThread();
        CacheScene::TearDown();
        EXPECT_EQ(ChangeWatch::get().size(), 0u);
        ChangeWatch::get().stop();
        ::unsetenv("MEDIACORE_WATCH");
    }

    MediaObj* openWav(const std::string& path) {
        MediaObj* movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        return movie;
    }
    // The movie of a.wav, under the test's holder; a plain reference besides is the caller's. What changes from here on
    // is seen by the watch alone: it has come round to the file.
    MediaObj* holdWav() {
        MediaObj* movie = openWav(m_path);
        movie->preserve();
        m_holder = movie;
        EXPECT_TRUE(kit::waitFor([] { return isWatched(); }));
        return movie;
    }
    static bool isWatched() {
        if (std::strcmp(GetParam(), "poll") == 0) return ChangeWatch::get().getPolled() == 1;
        return kernelWatches() >= 2;  // the file and its folder
    }
    static unsigned kernelWatches() {
        unsigned count = 0;
        std::error_code error;
        for (std::filesystem::directory_iterator it("/proc/self/fdinfo", error), end; !error && it != end;
             it.increment(error)) {
            std::ifstream info(it->path());
            for (std::string line; std::getline(info, line);)
                count += line.starts_with("inotify wd:") ? 1 : 0;
        }
        return count;
    }
    AutoReleasePtr<MediaObj> held() const { return AutoReleasePtr<MediaObj>(m_holder.preserve()); }
    bool leavesSoon(const MediaObj* movie) const {
        return kit::waitFor([&] { return held().get() != movie; });
    }
    // Waits until the holder stands on a movie of that letter and length.
    bool holdsSoon(char letter, unsigned samples = s_samples) const {
        return kit::waitFor([&] {
            const AutoReleasePtr<MediaObj> movie(m_holder.preserve());
            return lengthOf(*movie.get()) == samples && letterOf(*movie.get(), samples - 100) == letter;
        });
    }
    static const MediaClipDesc& clipOf(const MediaObj& movie) { return *movie.getTrackAt(0)->getClip(0); }
    static unsigned long long lengthOf(const MediaObj& movie) { return clipOf(movie).getLength(); }
    static std::string read(const MediaObj& movie, unsigned long long sample, unsigned count) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        OpResult result;
        const bool isRead =
            clipOf(movie).getMediaOffset(MediaPlayReq(sample, count), where, result) && movie.vsRead(where, buffer);
        result.discard();
        return isRead ? kit::bytesOf(buffer) : std::string();
    }
    // The letter of which a block is made; 0 for none, and for a mixture.
    static char letterIn(const std::string& bytes) {
        return !bytes.empty() && bytes.find_first_not_of(bytes[0]) == std::string::npos ? bytes[0] : '\0';
    }
    static char letterOf(const MediaObj& movie, unsigned long long sample) {
        return letterIn(read(movie, sample, 100));
    }

    // One write into the file as it is.
    void overwrite(unsigned long long offset, const std::string& bytes) const {
        const int fd = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)),
                  static_cast<ssize_t>(bytes.size()));
        ::close(fd);
    }
    // The essence first and then the header, as who records does it.
    void growTo(char letter, unsigned samples) const {
        const std::string bytes = wavOf(letter, samples);
        overwrite(s_headerSize, bytes.substr(s_headerSize));
        overwrite(0, bytes.substr(0, s_headerSize));
    }
    void replaceByRename(const std::string& bytes) const {
        const std::string other = m_tree.write("new.wav", bytes);
        EXPECT_EQ(std::rename(other.c_str(), m_path.c_str()), 0);
    }
    // A movie whose primary file has gone has no path to tell.
    void removeAndBeSeen() {
        mediaObjDbg.setBit(MediaDbg::RereadActivity);
        m_tree.remove("a.wav");
        EXPECT_TRUE(kit::waitFor([&] { return m_log.has("CMO:changeCb: sched reread of ro(0),,*"); })) << m_log.text();
    }
    unsigned long long tooShort() const { return m_cache->verdicts().get(ReplacementVerdict::TooShort); }
    // Comes back when the cache's thread has served what it knew of before the call.
    void letTheThreadCatchUp() {
        const std::string path = m_tree.write("marker.wav", wavOf('m'));
        kit::ChangedHook changed;
        MediaObj::Persist marker(&changed);
        marker = openWav(path);
        BasicIOTypes::Change change;
        change.m_path = path.c_str();
        change.m_id = TempTree::idOf(path);
        change.m_force = true;
        m_cache->changeCb(change);
        EXPECT_TRUE(kit::waitFor([&] { return changed.count() >= 1; }));
    }

    const std::string m_path = m_tree.write("a.wav", wavOf('a'));
    kit::ChangedHook m_changed;
    kit::ChangingHook m_changing;
    MediaObj::Persist m_holder{&m_changed, &m_changing};
};

INSTANTIATE_TEST_SUITE_P(Watch, ChangedFile, testing::Values("inotify", "poll"),
                         [](const auto& form) { return std::string(form.param); });

}  // namespace

TEST_P(ChangedFile, InPlaceMovesTheHolderAndLeavesAPlainReferenceOnTheOldObject) {
    MediaObj* plain = holdWav();
    overwrite(s_headerSize, std::string(s_samples * s_sampleSize, 'b'));
    ASSERT_TRUE(leavesSoon(plain));
    ASSERT_TRUE(holdsSoon('b'));
    EXPECT_EQ(m_changing.count(), m_changed.count());
    EXPECT_EQ(m_changing.last(), held().get());
    EXPECT_TRUE(m_cache.isZombie(plain));
    EXPECT_EQ(lengthOf(*plain), s_samples);
    EXPECT_EQ(letterOf(*plain, 0), 'b');
    const unsigned zombies = m_cache.zombieCount();
    plain->release();
    EXPECT_TRUE(kit::waitFor([&] { return m_cache.zombieCount() < zombies; }));
}

TEST_P(ChangedFile, GrownMovesTheHolderToTheLongerMovie) {
    holdWav()->release();
    growTo('a', 2 * s_samples);
    ASSERT_TRUE(holdsSoon('a', 2 * s_samples));
    EXPECT_EQ(held()->getFrameLength(), 6u);
    EXPECT_GE(m_changed.count(), 1);
}

TEST_P(ChangedFile, GrownAHundredTimesEndsInItsLastState) {
    holdWav()->release();
    for (unsigned i = 1; i <= 100; ++i)
        growTo('a', s_samples + i);
    EXPECT_TRUE(holdsSoon('a', s_samples + 100));
}

TEST_P(ChangedFile, CutShortIsNotBelievedAndTheHolderStays) {
    MediaObj* plain = holdWav();
    const unsigned long long refused = tooShort();
    ASSERT_EQ(::truncate(m_path.c_str(), s_headerSize + s_samples / 2 * s_sampleSize), 0);
    ASSERT_TRUE(kit::waitFor([&] { return tooShort() > refused; }));
    EXPECT_EQ(held().get(), plain);
    EXPECT_EQ(m_changed.count(), 0);
    EXPECT_EQ(letterOf(*plain, 0), 'a');
    EXPECT_EQ(read(*plain, s_samples - 100, 100), "");
    // Who opens it gets what the others have.
    EXPECT_EQ(openWav(m_path), plain);
    plain->release();
    growTo('b', s_samples);
    EXPECT_TRUE(leavesSoon(plain));
    EXPECT_TRUE(holdsSoon('b'));
    plain->release();
}

TEST_P(ChangedFile, ReplacedByARenameMovesTheHolderAndKeepsItsId) {
    MediaObj* plain = holdWav();
    const OsPathId id = plain->getPathId();
    ASSERT_EQ(letterOf(*plain, 0), 'a');
    replaceByRename(wavOf('b', 2 * s_samples));
    ASSERT_TRUE(holdsSoon('b', 2 * s_samples));
    EXPECT_EQ(held()->getPathId(), id);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_TRUE(m_cache.isZombie(plain));
    // The watch is on the new file.
    overwrite(s_headerSize, std::string(2 * s_samples * s_sampleSize, 'c'));
    EXPECT_TRUE(holdsSoon('c', 2 * s_samples));
    // Who stays behind reads on from what he has open.
    EXPECT_EQ(letterOf(*plain, 0), 'a');
    plain->release();
}

TEST_P(ChangedFile, RemovedStaysWithThoseWhoHoldItAndIsNoFault) {
    MediaObj* plain = holdWav();
    ASSERT_EQ(letterOf(*plain, 0), 'a');
    removeAndBeSeen();
    letTheThreadCatchUp();
    EXPECT_EQ(held().get(), plain);
    EXPECT_EQ(m_changed.count(), 0);
    EXPECT_EQ(letterOf(*plain, s_samples - 100), 'a');
    EXPECT_FALSE(m_log.has("CMO:Reread *a.wav*")) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "*") + m_log.count(LogLevel::Warning, "*"), 0u) << m_log.text();
    OpResult result;
    EXPECT_EQ(MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, result), nullptr);
    EXPECT_TRUE(isWarning(result, 6));
    plain->release();
}

TEST_P(ChangedFile, RemovedAndPutBackMovesTheHolder) {
    MediaObj* plain = holdWav();
    removeAndBeSeen();
    EXPECT_EQ(held().get(), plain);
    m_tree.write("a.wav", wavOf('b'));
    ASSERT_TRUE(holdsSoon('b'));
    EXPECT_NE(held().get(), plain);
    EXPECT_TRUE(m_cache.isZombie(plain));
    plain->release();
}

TEST_P(ChangedFile, ChangedWhileNobodyHoldsItIsParsedAndLeavesNothingBehind) {
    m_cache.setZombieTime(1000000000000ll);
    openWav(m_path)->release();
    ASSERT_TRUE(kit::waitFor([] { return isWatched(); }));
    const OsPathId id = TempTree::idOf(m_path);
    MediaObj* const first = *m_cache.entry(id);
    growTo('b', 2 * s_samples);
    EXPECT_TRUE(kit::waitFor([&] { return *m_cache.entry(id) != first; }));
    m_cache.setZombieTime(0);
    EXPECT_TRUE(kit::waitFor([&] { return m_cache.mapSize() + m_cache.zombieCount() == 0; }));
    EXPECT_TRUE(kit::waitFor([] { return ChangeWatch::get().size() == 0; }));
}

TEST_P(ChangedFile, ReaderThatReadsAllTheWhileGetsBlocksOfOneContent) {
    holdWav()->release();
    std::atomic<bool> stop{false};
    std::atomic<unsigned> bad{0};
    std::atomic<char> last{'\0'};
    std::thread reader([&] {
        for (unsigned i = 0; !stop; ++i) {
            const AutoReleasePtr<MediaObj> movie(m_holder.preserve());
            const char letter = letterOf(*movie.get(), i * 100 % s_samples);
            if (letter == '\0') ++bad;
            last = letter;
        }
    });
    for (const char letter : {'b', 'c'}) {
        replaceByRename(wavOf(letter));
        EXPECT_TRUE(kit::waitFor([&] { return last == letter; })) << letter;
    }
    stop = true;
    reader.join();
    EXPECT_EQ(bad, 0u);
}

TEST_P(ChangedFile, ReadsUnderWayEndWellWhateverBecomesOfTheFile) {
    constexpr unsigned reads = 64;
    kit::ReadHook hook;
    MediaObj* plain = holdWav();
    for (unsigned i = 0; i < reads; ++i) {
        MediaReadReq req;
        req.m_cb = &hook;
        OpResult result;
        ASSERT_TRUE(clipOf(*plain).getMediaOffset(MediaPlayReq(i * 50, 50), req.m_sample, result));
        ASSERT_TRUE(plain->vaRead(req));
        if (i == reads / 4) replaceByRename(wavOf('b'));
        if (i == reads / 2) m_tree.remove("a.wav");
    }
    ASSERT_TRUE(hook.waitForAnswers(reads));
    for (const kit::ReadHook::Answer& answer : hook.answers())
        EXPECT_EQ(letterIn(answer.m_bytes), 'a') << answer.m_status;
    plain->release();
}
