#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <vector>

#include "shared/include/description/media_names.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/child_job.h"
#include "tests/unit/backends/wav_fixture.h"

// What is no movie is refused through the whole open path with a code and a sentence, leaves nothing behind, and is
// refused in the same words the second time.

using namespace WavKit;

namespace {

const std::string s_essence = WavBuilder::pattern(400);

std::string soundWav() { return WavBuilder().fmt().data(s_essence).bytes(); }

class BadInput : public WavScene {
protected:
    // Opens it twice; the second answer must be the first one.
    void expectRefused(const char* path, int code, const std::string& message) {
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(testing::Message() << (path != nullptr ? path : "null") << ", round " << round);
            m_result.discard();
            ASSERT_EQ(MediaObj::openReader(path, MediaObj::ReadMode::ReadOnly, m_result), nullptr);
            EXPECT_TRUE(kit::isWarning(m_result, code));
            const char* const text = m_result.getMessage();
            EXPECT_EQ(text != nullptr ? text : "(none)", message);
            expectNothingLeft();
        }
    }
    void expectRefused(const std::string& path, int code, const std::string& message) {
        expectRefused(path.c_str(), code, message);
    }
    // Any sentence will do, but the same one twice.
    void expectRefusedSomehow(const std::string& path) {
        std::string first;
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(testing::Message() << path << ", round " << round);
            m_result.discard();
            ASSERT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
            EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
            const std::string told = m_result.describe().get();
            EXPECT_NE(told, "");
            if (round == 0) first = told;
            EXPECT_EQ(told, first);
            expectNothingLeft();
        }
    }
    void expectNothingLeft() {
        EXPECT_EQ(m_cache.mapSize(), 0u);
        EXPECT_EQ(m_cache.zombieCount(), 0u);
        EXPECT_EQ(MediaObjImpl::active.getCount(), m_activeAtStart);
    }

    const int m_activeAtStart = MediaObjImpl::active.getCount();
};

// Bytes without any order, the same in each run.
std::string noise(std::size_t count, unsigned seed) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

std::string answerOf(const char* path) {
    OpResult result;
    MediaObj* movie = MediaObj::openReader(path, MediaObj::ReadMode::ReadOnly, result);
    std::string told = movie != nullptr ? "opened" : result.describe().get();
    result.discard();
    if (movie != nullptr) movie->release();
    return told;
}

// Opens a file twice as a user who owns nothing.
int openAsNobody(const std::string& path) {
    if (::geteuid() == 0 && (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) return 2;
    for (int round = 0; round < 2; ++round)
        std::printf("%s\n", answerOf(path.c_str()).c_str());
    std::printf("%d objects\n", MediaObjImpl::active.getCount());
    return 0;
}
const kit::ChildJob s_openAsNobody("open as nobody", openAsNobody);

// Opens movie after movie until the process has no descriptor left, then closes them and opens one again.
int openTooMany(const std::string& folder) {
    constexpr int limit = 64, files = 100;
    const rlimit both{limit, limit};
    if (::setrlimit(RLIMIT_NOFILE, &both) != 0) return 2;
    std::vector<MediaObj*> movies;
    // The first refusal comes ahead: a sanitizer that meets a class for the first time wants a descriptor to look at
    // it.
    std::string refusal = answerOf((folder + "/none.wav").c_str()) == "opened" ? "a file that isn't there" : "";
    for (int i = 0; i < files && refusal.empty(); ++i) {
        OpResult result;
        MediaObj* movie = MediaObj::openReader((folder + "/" + std::to_string(i) + ".wav").c_str(),
                                               MediaObj::ReadMode::ReadOnly, result);
        if (movie != nullptr) movies.push_back(movie);
        if (movie == nullptr) refusal = result.describe().get();
        result.discard();
    }
    std::printf("%s\n", refusal.c_str());
    // What is open already still reads.
    MediaIoBuf buffer;
    MediaSampleInMovie where;
    OpResult result;
    const MediaClipDesc& clip = *movies.front()->getTrackAt(0)->getClip(0);
    const bool found = clip.getMediaOffset(MediaPlayReq(0, 100), where, result);
    std::printf("%s\n", found && movies.front()->vsRead(where, buffer).success() ? "still reads" : "no longer reads");
    for (MediaObj* movie : movies)
        movie->release(MediaAgent(nullptr), false);
    CacheProbe cache;
    cache.setZombieTime(0);
    MediaObj::flushAll(nullptr);
    int opened = 0;
    for (int i = 0; i < limit / 2; ++i)
        opened += answerOf((folder + "/" + std::to_string(i) + ".wav").c_str()) == "opened";
    std::printf("%d opened afterwards\n", opened);
    std::printf("%s\n", answerOf((folder + "/99.wav").c_str()).c_str());
    return movies.empty() ? 3 : 0;
}
const kit::ChildJob s_openTooMany("open too many", openTooMany);

}  // namespace

TEST_F(BadInput, ANullPathIsAnInternalError) { expectRefused(nullptr, MediaCode::InternalError, "(none)"); }

TEST_F(BadInput, AnEmptyPathIsAFileThatIsNotThere) { expectRefused("", MediaCode::FileNonExistent, ""); }

TEST_F(BadInput, APathThatIsOnlyASlashIsAFileThatIsNotThere) { expectRefused("/", MediaCode::FileNonExistent, ""); }

TEST_F(BadInput, AFileThatIsNotThereIsNamed) {
    for (const char* name : {"none.wav", "none", "no/such/folder.wav"}) {
        expectRefused(m_tree.path(name), MediaCode::FileNonExistent, m_tree.path(name));
    }
}

TEST_F(BadInput, AnOverlongPathIsAFileThatIsNotThere) {
    const std::string path = m_tree.path(std::string(5000, 'x') + ".wav");
    expectRefused(path, MediaCode::FileNonExistent, path);
}

TEST_F(BadInput, AFolderIsNoFile) {
    const std::string folder = m_tree.path("folder.wav");
    std::filesystem::create_directory(folder);
    expectRefused(folder, MediaCode::FileNonExistent, folder);
    expectRefused(folder + "/", MediaCode::FileNonExistent, folder);
    expectRefused(m_tree.root(), MediaCode::FileNonExistent, m_tree.root());
}

TEST_F(BadInput, APipeIsRefusedWithoutWaitingForItsOtherEnd) {
    const std::string pipe = m_tree.path("pipe.wav");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
    expectRefused(pipe, MediaCode::FileNonExistent, pipe);
}

TEST_F(BadInput, ADeviceIsRefused) {
    for (const char* device : {"/dev/zero", "/dev/null", "/dev/tty"}) {
        const std::string link = m_tree.path("device.wav");
        std::filesystem::remove(link);
        std::filesystem::create_symlink(device, link);
        expectRefused(link, MediaCode::FileNonExistent, link);
        expectRefused(device, MediaCode::FileNonExistent, device);
    }
}

TEST_F(BadInput, ALinkThatLeadsNowhereOrToItselfIsAFileThatIsNotThere) {
    std::filesystem::create_symlink(m_tree.path("nowhere"), m_tree.path("lost.wav"));
    std::filesystem::create_symlink(m_tree.path("loop.wav"), m_tree.path("loop.wav"));
    expectRefused(m_tree.path("lost.wav"), MediaCode::FileNonExistent, m_tree.path("lost.wav"));
    expectRefused(m_tree.path("loop.wav"), MediaCode::FileNonExistent, m_tree.path("loop.wav"));
}

TEST_F(BadInput, AFileWithoutPermissionIsRefusedWithTheReason) {
    const std::string path = m_tree.write("secret.wav", soundWav());
    ASSERT_EQ(::chmod(m_tree.root().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const kit::Outcome outcome = s_openAsNobody.run(path);
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const std::string sentence = "unsupported media type: wav: cannot open: Permission denied\n";
    EXPECT_EQ(outcome.m_out, sentence + sentence + "0 objects\n");
}

TEST_F(BadInput, AFileInAFolderWithoutPermissionIsOneThatIsNotThere) {
    const std::string path = m_tree.write("closed/a.wav", soundWav());
    ASSERT_EQ(::chmod(m_tree.root().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(m_tree.path("closed").c_str(), 0), 0);
    const kit::Outcome outcome = s_openAsNobody.run(path);
    EXPECT_EQ(::chmod(m_tree.path("closed").c_str(), 0700), 0);
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const std::string sentence = "file non-existant: " + path + "\n";
    EXPECT_EQ(outcome.m_out, sentence + sentence + "0 objects\n");
}

TEST_F(BadInput, AnEmptyFileIsTooShortForAHeader) {
    expectRefused(m_tree.write("empty.wav", ""), MediaCode::UnsupportedMediaType,
                  "wav: the file is too short for a RIFF header");
}

TEST_F(BadInput, NoiseUnderEverySuffixIsRefused) {
    std::vector<std::string> suffixes = {"", ".", ".unknown", ".WAV"};
    const EnumMap<MediaFileType>& map = getMediaFileTypeMap();
    for (int i = 0; i < map.count(); ++i)
        suffixes.push_back(std::string(".") + map.pair(static_cast<unsigned>(i)).name);
    for (const std::string& suffix : suffixes) {
        for (const std::size_t size : {1u, 2u, 11u, 12u, 13u, 44u, 100u}) {
            expectRefusedSomehow(m_tree.write("noise" + suffix, noise(size, static_cast<unsigned>(size))));
        }
    }
}

TEST_F(BadInput, NoiseOfOneToAHundredBytesIsNoWav) {
    for (std::size_t size = 1; size <= 100; ++size) {
        const std::string path = m_tree.write("noise.wav", noise(size, 5));
        expectRefused(path, MediaCode::UnsupportedMediaType,
                      size < 12 ? "wav: the file is too short for a RIFF header"
                                : "wav: no RIFF, RF64 or BW64 header at the start");
    }
}

TEST_F(BadInput, NoiseBehindAGoodHeaderIsNoWav) {
    for (std::size_t size = 0; size <= 100; ++size) {
        expectRefusedSomehow(m_tree.write("noise.wav", WavBuilder().raw(noise(size, 9)).bytes()));
    }
}

TEST_F(BadInput, AWavThatIsCutAnywhereInItsHeaderIsRefused) {
    const std::string whole = WavBuilder("RF64").ds64(400).bext({}).fmt({.m_extensible = true}).data(s_essence).bytes();
    for (std::size_t left = 0; left < whole.size() - s_essence.size(); ++left) {
        expectRefusedSomehow(m_tree.write("cut.wav", whole.substr(0, left)));
    }
}

TEST_F(BadInput, AWavThatIsCutAnywhereInItsEssenceOpensAsFarAsItGoes) {
    const std::string whole = soundWav();
    for (std::size_t left = 44; left <= whole.size(); ++left) {
        MediaObj* movie = openWav(m_tree.write("cut.wav", whole.substr(0, left)));
        ASSERT_NE(movie, nullptr);
        EXPECT_EQ(movie->getTrackAt(0)->getLength(), (left - 44) / 4);
        movie->release();
    }
    expireAll();
    expectNothingLeft();
}

TEST_F(BadInput, EveryByteOfAHeaderMayBeWrong) {
    const std::string whole = WavBuilder("RF64").ds64(400).fmt({.m_extensible = true}).data(s_essence).bytes();
    for (std::size_t at = 0; at < whole.size() - s_essence.size(); ++at) {
        for (const char wrong : {'\0', '\x7F', '\xFF'}) {
            std::string bytes = whole;
            bytes[at] = wrong;
            const std::string path = m_tree.write("wrong.wav", bytes);
            const std::string first = answerOf(path.c_str());
            EXPECT_EQ(answerOf(path.c_str()), first) << at;
        }
    }
    expireAll();
    expectNothingLeft();
}

TEST_F(BadInput, WhatTheReaderSaysReachesTheCaller) {
    expectRefused(m_tree.write("float.wav", WavBuilder().fmt({.m_tag = 3, .m_bits = 32}).data("12345678").bytes()),
                  MediaCode::UnsupportedMediaType, "wav: floating point samples (format tag 0x0003) are not supported");
    expectRefused(m_tree.write("none.wav", WavBuilder().fmt({.m_channels = 0, .m_blockAlign = 4}).data("1234").bytes()),
                  MediaCode::UnsupportedMediaType, "wav: 0 channels, 1 to 32 are supported");
}

TEST_F(BadInput, AFileOfATerabyteOfNothingIsRefused) {
    const std::string path = m_tree.write("huge.wav", WavBuilder().bytes());
    std::error_code error;
    std::filesystem::resize_file(path, 1ull << 40, error);
    if (error) std::filesystem::resize_file(path, 1ull << 33);
    expectRefused(path, MediaCode::UnsupportedMediaType, "wav: no fmt and data chunks among the first 4096");
}

TEST_F(BadInput, AFileThatIsMendedOpens) {
    const std::string path = m_tree.write("mended.wav", "RIFF");
    expectRefused(path, MediaCode::UnsupportedMediaType, "wav: the file is too short for a RIFF header");
    m_tree.write("mended.wav", soundWav());
    MediaObj* movie = openWav(path);
    ASSERT_NE(movie, nullptr);
    movie->release();
}

TEST_F(BadInput, MoreOpenFilesThanTheProcessMayHaveAreRefusedAndLaterOpenedAgain) {
    for (int i = 0; i < 100; ++i)
        m_tree.write(std::to_string(i) + ".wav", soundWav());
    const kit::Outcome outcome = s_openTooMany.run(m_tree.root());
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(
        outcome.m_out,
        "unsupported media type: wav: cannot open: Too many open files\nstill reads\n32 opened afterwards\nopened\n");
}
