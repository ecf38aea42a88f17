// Recordings that the machine or somebody else gets in the way of: the result is clear, what was told written is there,
// and the process serves its other movies.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <thread>

#include "tests/kit/child_job.h"
#include "tests/unit/backends/recording_fixture.h"

using namespace RecordKit;

namespace {

constexpr MediaFileType s_wav = MediaFileType::Wav;
constexpr unsigned s_rate = 48000, s_blockSamples = 480, s_blocks = 20;
constexpr int s_recorded = 0, s_refused = 3;

MediaObj* openWriter(const std::string& path, OpResult& result) {
    return MediaObj::openWriter(path.c_str(), false, result, MediaContainment::Embedded, MediaFileType::Unknown,
                                nullptr, BasicIOTypes::SizeAdvice::None);
}

// Opens a recording of that path and keeps it.
const kit::ChildJob s_claimer("claim a recording", [](const std::string& path) {
    OpResult result;
    if (openWriter(path, result) == nullptr) return s_refused;
    std::puts("claimed");
    std::fflush(stdout);
    for (;;)
        ::pause();
});

// Begins a recording when it is told to, and makes it if it may.
const kit::ChildJob s_recorder("record when told", [](const std::string& path) {
    std::puts("ready");
    std::fflush(stdout);
    char line[8];
    if (std::fgets(line, sizeof line, stdin) == nullptr) return 1;
    OpResult result;
    MediaObj* const movie = openWriter(path, result);
    if (movie == nullptr) {
        const bool isTaken = result.getCode() == MediaCode::FileExists;
        result.discard();
        return isTaken ? s_refused : 1;
    }
    MediaClipParam param;
    if (!param.initAudio(s_wav, MediaEncodingType::Pcm, MediaVideoRate::Unknown, s_rate, 2, 16)) return 1;
    MediaTrackDesc* const track = movie->createTrack(param, result);
    if (track == nullptr || track->createClip(param, result) == nullptr) return 1;
    MediaIoBuf block;
    kit::fill(block, std::string(s_blockSamples * 4, 'x'));
    for (unsigned i = 0; i < s_blocks; ++i) {
        SampleInfo info;
        info.reset(s_blockSamples * 4);
        MediaSampleInMovie where;
        if (!track->addSamples(MediaRecordReq(std::uint64_t{i} * s_blockSamples, s_blockSamples, info), where, result))
            return 1;
        result = movie->vsWrite(where, block);
        if (!result) return 1;
    }
    movie->release(MediaAgent(nullptr), true);
    return s_recorded;
});

class RecordingFault : public RecordScene {
protected:
    RecordingFault() { writeOther(); }

    // A movie that has nothing to do with it.
    void writeOther() {
        m_otherBytes = std::string(4000, 'o');
        const WavBuilder builder = WavBuilder().fmt().data(m_otherBytes);
        m_other = m_tree.write("other.wav", builder.bytes());
    }
    // The other movie opens and gives its bytes.
    bool isServing() const {
        OpResult result;
        MediaObj* const movie = MediaObj::openReader(m_other.c_str(), MediaObj::ReadMode::ReadOnly, result);
        if (movie == nullptr) {
            ADD_FAILURE() << result.describe().get();
            return false;
        }
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        const bool found = movie->getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(0, 1000), where, result);
        result = movie->vsRead(where, buffer);
        const bool good = found && result.success() && kit::bytesOf(buffer) == m_otherBytes;
        result.discard();
        movie->release();
        return good;
    }
    void startSound(const std::string& name) { start(name, soundOf(s_wav, s_rate, 2, 16)); }
    // The file that is there has those samples, as they were recorded, and says so by itself.
    void expectKept(unsigned count) {
        endRecording();
        MediaObj::flushAll(nullptr);
        OpResult result;
        MediaObj* const movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        ASSERT_NE(movie, nullptr) << result.describe().get();
        EXPECT_GE(movie->getTrackAt(0)->getLength(), count);
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        ASSERT_TRUE(movie->getTrackAt(0)->getClip(0)->getMediaOffset(MediaPlayReq(0, count), where, result));
        EXPECT_TRUE(movie->vsRead(where, buffer));
        EXPECT_EQ(kit::bytesOf(buffer), bytesFor(0, count));
        movie->release();
    }

    std::string m_other, m_otherBytes;
};

// What a device may say to a write.
struct Refusal {
    const char* m_name;
    int m_error;
};
class RefusedWrites : public RecordingFault, public testing::WithParamInterface<Refusal> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Reasons, RefusedWrites,
                         testing::Values(Refusal{"DiskFull", ENOSPC}, Refusal{"QuotaUsedUp", EDQUOT},
                                         Refusal{"DeviceError", EIO}, Refusal{"ReadOnlyByNow", EROFS}),
                         [](const auto& kind) { return kind.param.m_name; });

TEST_P(RefusedWrites, AreToldAtOnceAndWhatWasWrittenIsThere) {
    startSound("a.wav");
    record(1000);
    {
        const Fault fault(FileCall::Write, GetParam().m_error);
        EXPECT_TRUE(kit::isWarning(write(add(500), bytesFor(1000, 500)), MediaCode::WriteError));
        EXPECT_FALSE(isThere(1000, 500));
        EXPECT_TRUE(isThere(0, 1000));
        EXPECT_TRUE(isServing());
    }
    EXPECT_TRUE(writeSync(addAt(1000, 500))) << "once there is room again it goes on";
    expectKept(1500);
}

TEST_P(RefusedWrites, OfWhatWasHandedOverAreToldLaterAndWhatWasWrittenIsThere) {
    startSound("a.wav");
    record(1000, true);
    ASSERT_TRUE(arrives(0, 1000));
    {
        const Fault fault(FileCall::Write, GetParam().m_error);
        bool isTold = false;
        EXPECT_TRUE(kit::waitFor([&] {
            OpResult result = m_movie->vaWrite(add(100), kit::obufOf(std::string(400, 'l')));
            isTold = kit::isWarning(result, MediaCode::WriteError);
            result.discard();
            return isTold;
        }));
        EXPECT_TRUE(isThere(0, 1000));
        EXPECT_TRUE(isServing());
    }
    expectKept(1000);
}

TEST_F(RecordingFault, AWriteThatTheDeviceHoldsHoldsUpNoOtherMovie) {
    startSound("a.wav");
    record(1000);
    HeldWrites held;
    record(500, true);
    EXPECT_FALSE(isThere(1000, 500)) << "what isn't in the file yet is told to nobody";
    EXPECT_TRUE(isThere(0, 1000));
    EXPECT_TRUE(isServing());
    held.letGo();
    EXPECT_TRUE(arrives(1000, 500));
    expectKept(1500);
}

TEST_F(RecordingFault, OfAFileThatIsRemovedMeanwhileGoesOnForThoseWhoHaveIt) {
    startSound("a.wav");
    record(1000);
    std::filesystem::remove(m_path);
    record(500);
    EXPECT_TRUE(isThere(0, 1500));
    MediaSampleInMovie where;
    MediaIoBuf buffer;
    ASSERT_TRUE(find(0, 1500, where));
    EXPECT_TRUE(m_movie->vsRead(where, buffer));
    EXPECT_EQ(kit::bytesOf(buffer), bytesFor(0, 1500));
    EXPECT_TRUE(isServing());
    OpResult result;
    EXPECT_EQ(MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, result), nullptr);
    EXPECT_TRUE(kit::isWarning(result, MediaCode::FileNonExistent));
    endRecording();
    EXPECT_FALSE(m_tree.exists("a.wav"));
}

TEST_F(RecordingFault, OfARemovedFileWhoseMovieIsStillHeldGivesNullAndLeavesNoEmptyFile) {
    startSound("a.wav");
    record(10);
    std::filesystem::remove(m_path);
    EXPECT_EQ(create(m_path), nullptr);
    EXPECT_TRUE(m_result.success());
    EXPECT_FALSE(m_tree.exists("a.wav"));
    // An empty file that was there before stays.
    m_tree.write("a.wav", "");
    EXPECT_EQ(create(m_path), nullptr);
    EXPECT_TRUE(m_tree.exists("a.wav"));
    record(10);
    EXPECT_TRUE(isThere(0, 20));
    EXPECT_TRUE(isServing());
}

TEST_F(RecordingFault, OfAFileThatAnotherProcessRecordsIsRefusedUntilThatOneDies) {
    const std::string path = m_tree.path("a.wav");
    kit::Process other(s_claimer.command(path));
    ASSERT_TRUE(other.waitForOutput("claimed")) << other.err();
    refuse(path, MediaCode::FileExists, "wav: " + path + " is being recorded by another process");
    EXPECT_TRUE(m_tree.exists("a.wav")) << "it is the other one's";
    EXPECT_TRUE(isServing());
    other.signal(SIGKILL);
    EXPECT_EQ(other.wait().m_signal, SIGKILL);
    startSound("a.wav");
    record(10);
    expectKept(10);
}

TEST_F(RecordingFault, OfOneFileThatTwoProcessesBeginAtOnceIsOneOfThemsAlone) {
    for (unsigned round = 0; round < 4; ++round) {
        const bool isThereBefore = round % 2 != 0;
        const std::string name = "both" + std::to_string(round) + ".wav", path = m_tree.path(name);
        if (isThereBefore) m_tree.write(name, "");
        std::vector<std::unique_ptr<kit::Process>> recorders;
        for (unsigned i = 0; i < 2; ++i)
            recorders.push_back(std::make_unique<kit::Process>(s_recorder.command(path)));
        for (const auto& recorder : recorders)
            ASSERT_TRUE(recorder->waitForOutput("ready")) << recorder->err();
        for (const auto& recorder : recorders)
            EXPECT_TRUE(recorder->feed("go\n"));
        unsigned winners = 0;
        for (const auto& recorder : recorders) {
            const kit::Outcome outcome = recorder->wait();
            EXPECT_TRUE(outcome.m_exit == s_recorded || outcome.m_exit == s_refused)
                << outcome.m_exit << outcome.m_out << outcome.m_err;
            winners += outcome.m_exit == s_recorded ? 1 : 0;
        }
        EXPECT_EQ(winners, 1u);
        OpResult result;
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        ASSERT_NE(movie, nullptr) << result.describe().get();
        EXPECT_EQ(movie->getTrackAt(0)->getLength(), s_blockSamples * s_blocks);
        movie->release();
    }
}

TEST_F(RecordingFault, InAFolderThatTakesNoFilesIsRefusedAndTheOthersGoOn) {
    startSound("a.wav");
    record(10);
    {
        const Fault fault(FileCall::Open, EROFS);
        const std::string path = m_tree.path("b.wav");
        refuse(path, MediaCode::FileNotWritable, "wav: " + path + " can't be written: Read-only file system");
    }
    EXPECT_FALSE(m_tree.exists("b.wav"));
    EXPECT_TRUE(isServing());
    record(10);
    expectKept(20);
}

TEST_F(RecordingFault, WithoutADescriptorIsRefusedAndWorksOnceThereIsOne) {
    const std::string path = m_tree.path("a.wav");
    {
        const Fault fault(FileCall::Open, EMFILE);
        refuse(path, MediaCode::FileNotWritable, "wav: " + path + " can't be written: Too many open files");
    }
    EXPECT_TRUE(isServing());
    startSound("a.wav");
    record(10);
    expectKept(10);
}
