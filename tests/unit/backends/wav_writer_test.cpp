#include "backends/wav/wav_writer.h"

#include <cerrno>
#include <thread>

#include "shared/include/object/switches.h"
#include "tests/unit/backends/recording_fixture.h"
#include "tests/unit/backends/wav_fixture.h"

// WAVs that are recorded: their bytes, what they say at each moment, and what is refused.

using namespace RecordKit;
using WavKit::Verdict;

namespace {

constexpr MediaFileType s_wav = MediaFileType::Wav;

class WavRecording : public RecordScene {
protected:
    // What a fresh parse of the file says now.
    unsigned long long told() const {
        const Verdict verdict(file());
        EXPECT_TRUE(verdict.m_result.success()) << verdict.m_result.describe().get();
        return verdict.m_format.samples;
    }
    // The same, from the size in the data chunk alone.
    unsigned long long claimed() const {
        const std::string bytes = kit::bytesAt(m_path, 0, PcmWriter::s_mostHeader);
        const std::size_t data = Verdict(bytes).m_format.dataOffset;
        unsigned size = 0;
        std::memcpy(&size, bytes.data() + data - 4, 4);
        return size / m_size;
    }
};

// One kind of sound.
struct Kind {
    const char* m_name;
    unsigned m_channels;
    unsigned m_bits;
    MediaEncodingType m_encoding = MediaEncodingType::Pcm;
};

class WavRecordingOfKind : public WavRecording, public testing::WithParamInterface<Kind> {};

constexpr Kind s_kinds[] = {
    {"Bits8", 1, 8},
    {"Bits8Stereo", 2, 8},
    {"Bits16", 2, 16},
    {"Bits16Mono", 1, 16},
    {"Bits24", 2, 24},
    {"Bits24Odd", 1, 24},
    {"Bits32", 2, 32},
    {"SixChannels", 6, 16},
    {"ThirtyTwoChannels", 32, 24},
    {"ALaw", 1, 8, MediaEncodingType::ALaw},
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, WavRecordingOfKind, testing::ValuesIn(s_kinds),
                         [](const auto& kind) { return std::string(kind.param.m_name); });

TEST_P(WavRecordingOfKind, IsReadBackByteForByteAndDescribesItselfAlike) {
    const Kind& kind = GetParam();
    start("a.wav", soundOf(s_wav, 48000, kind.m_channels, kind.m_bits, kind.m_encoding));
    for (const unsigned count : {1920u, 1601u, 1u, 48000u, 3u})
        record(count);
    EXPECT_TRUE(m_movie->setRecording(false));
    MediaObj* const recorded = m_movie;
    recorded->preserve();
    endRecording();
    const Verdict verdict(file());
    WavKit::expectEssence(verdict, verdict.m_format.dataOffset, m_next);
    EXPECT_EQ(verdict.m_format.encoding, kind.m_encoding);
    EXPECT_EQ(verdict.m_format.channels, kind.m_channels);
    EXPECT_EQ(verdict.m_format.bits, kind.m_bits);
    const std::string essence = bytesFor(0, static_cast<unsigned>(m_next));
    const std::string bytes = file();
    EXPECT_EQ(bytes.size(), verdict.m_format.dataOffset + essence.size() + essence.size() % 2);
    EXPECT_TRUE(bytes.substr(verdict.m_format.dataOffset, essence.size()) == essence);

    MediaObj* const parsed = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, s_wav, true);
    ASSERT_NE(parsed, nullptr) << m_result.describe().get();
    EXPECT_NE(parsed, recorded);
    EXPECT_EQ(describe(*parsed), describe(*recorded));
    parsed->release();
    recorded->release();
}

TEST_F(WavRecording, HasItsHeaderBeforeTheFirstSample) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    const std::string bytes = file();
    EXPECT_EQ(bytes.size(), 80u);
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(bytes.substr(12, 4), "JUNK");
    EXPECT_EQ(told(), 0u);
}

TEST_F(WavRecording, TellsOfTheFirstSamplesAtOnceAndThenBeforeASecondIsMissing) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(1920);
    EXPECT_EQ(claimed(), 1920u);
    for (unsigned i = 0; i < 110; ++i) {
        record(1920);
        EXPECT_LT(m_next - claimed(), 48000u) << m_next;
    }
    EXPECT_LT(claimed(), m_next);
}

TEST_F(WavRecording, TellsOfAllSamplesAfterAFlush) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    for (const bool async : {false, true}) {
        record(1920, async);
        record(1920, async);
        m_movie->flush(nullptr, true);
        EXPECT_EQ(claimed(), m_next);
    }
}

TEST_F(WavRecording, FlushThatIsNotMeantNowChangesNothing) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(1920);
    record(1920);
    m_movie->flush(nullptr, false);
    EXPECT_EQ(claimed(), 1920u);
}

TEST_F(WavRecording, TellsOfAllSamplesOnceRecordingEnds) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(1920);
    record(7, true);
    EXPECT_TRUE(m_movie->setRecording(false));
    EXPECT_FALSE(m_movie->isRecording());
    EXPECT_EQ(claimed(), 1927u);
}

TEST_F(WavRecording, HeaderOfAsynchronousSamplesNeverComesBeforeThem) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    {
        const HeldWrites held;
        for (unsigned i = 0; i < 10; ++i)
            ASSERT_TRUE(writeAsync(add(48000)));
        EXPECT_EQ(file().size(), 80u);
        EXPECT_EQ(told(), 0u);
    }
    ASSERT_TRUE(kit::waitFor([&] { return claimed() == m_next; }));
    EXPECT_EQ(file().size(), 80u + 480000u * 4);
}

TEST_F(WavRecording, SamplesOutOfOrderAreToldWhenAllBeforeThemAreThere) {
    start("a.wav", soundOf(s_wav, 1000, 2, 16));
    const MediaSampleInMovie first = add(1000), second = add(1000), third = add(1000);
    ASSERT_TRUE(writeSync(third));
    EXPECT_EQ(claimed(), 0u);
    ASSERT_TRUE(writeSync(first));
    EXPECT_EQ(claimed(), 1000u);
    ASSERT_TRUE(writeSync(second));
    EXPECT_EQ(claimed(), 3000u);
    EXPECT_TRUE(file().substr(80) == bytesFor(0, 3000));
}

TEST_F(WavRecording, PaddingOfAnOddEndMakesRoomForWhatFollows) {
    start("a.wav", soundOf(s_wav, 48000, 1, 24));
    record(3);
    EXPECT_TRUE(m_movie->setRecording(false));
    const std::size_t dataOffset = Verdict(file()).m_format.dataOffset;
    EXPECT_EQ(file().size(), dataOffset + 10);
    EXPECT_EQ(file().back(), '\0');
    record(2);
    endRecording();
    EXPECT_TRUE(file().substr(dataOffset, 15) == bytesFor(0, 5));
    EXPECT_EQ(file().size(), dataOffset + 16);
}

TEST_F(WavRecording, HoleIsZeros) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(100);
    const MediaSampleInMovie behind = addAt(200, 50);
    EXPECT_EQ(behind.m_gap, 100);
    EXPECT_FALSE(isThere(120, 10));
    ASSERT_TRUE(writeSync(behind));
    EXPECT_TRUE(isThere(120, 10));
    m_movie->flush(nullptr, true);
    EXPECT_EQ(claimed(), 250u);
    EXPECT_TRUE(file().substr(80 + 400, 400) == std::string(400, '\0'));
}

TEST_F(WavRecording, PastFourGigabytesBecomesAnRf64InPlace) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(48000);
    EXPECT_EQ(file().substr(0, 4), "RIFF");
    const unsigned long long behind = (4ull << 30) / 4;
    const MediaSampleInMovie where = addAt(behind, 48000);  // the file is sparse
    EXPECT_EQ(where.m_chunks[0].m_offset, 80 + behind * 4);
    ASSERT_TRUE(writeSync(where));
    const std::string head = kit::bytesAt(m_path, 0, 80);
    EXPECT_EQ(head.substr(0, 4), "RF64");
    EXPECT_EQ(head.substr(12, 4), "ds64");
    EXPECT_EQ(head.substr(20, 8), WavBuilder::le(72 + m_next * 4, 8));
    EXPECT_EQ(head.substr(28, 8), WavBuilder::le(m_next * 4, 8));
    EXPECT_EQ(head.substr(36, 8), WavBuilder::le(m_next, 8));
    endRecording();
    MediaObj* const movie =
        MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, MediaFileType::Unknown, true);
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->getTrackAt(0)->getLength(), behind + 48000);
    EXPECT_TRUE(kit::bytesAt(m_path, where.m_chunks[0].m_offset, 192000) == bytesFor(behind, 48000));
    movie->release();
}

TEST(WavHeader, IsThatOfAnRf64FromTheFirstByteThatDoesntFit) {
    PcmFormat format;
    format.channels = 1;
    format.sampleRate = 8000;
    format.bits = 8;
    format.blockAlign = 1;
    std::uint8_t bytes[PcmWriter::s_mostHeader];
    const auto markAt = [&](std::uint64_t samples) {
        format.samples = samples;
        EXPECT_EQ(WavWriter::makeHeader(format, 1000, bytes), 80u);
        return std::string(reinterpret_cast<const char*>(bytes), 4);
    };
    EXPECT_EQ(markAt(927), "RIFF");  // 72 and 928 with the padding
    EXPECT_EQ(markAt(928), "RIFF");
    EXPECT_EQ(markAt(929), "RF64");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes) + 20, 8), WavBuilder::le(72 + 930, 8));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes) + 28, 8), WavBuilder::le(929, 8));
}

TEST_F(WavRecording, IsNotMadeOverAFileThatIsThere) {
    const std::string path = m_tree.write("a.wav", "somebody's");
    refuse(path, MediaCode::FileExists, "wav: " + path + " is there already and is not overwritten");
    EXPECT_EQ(kit::bytesAt(path, 0, 100), "somebody's");
}

TEST_F(WavRecording, TakesAnEmptyFile) {
    m_tree.write("a.wav", "");
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(10);
    endRecording();
    EXPECT_EQ(told(), 10u);
}

TEST_F(WavRecording, IsNotMadeTwice) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(10);
    refuse(m_path, MediaCode::FileExists, "wav: " + m_path + " is there already and is not overwritten");
    record(10);
    endRecording();
    EXPECT_EQ(told(), 20u);
}

TEST_F(WavRecording, WhoseFileIsRemovedGoesOnAndDoesNotBringItBack) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(100);
    record(100, true);
    std::filesystem::remove(m_path);
    record(48000);
    record(48000, true);
    EXPECT_TRUE(m_movie->setRecording(false));
    endRecording();
    EXPECT_FALSE(m_tree.exists("a.wav"));
}

TEST_F(WavRecording, ThatTwoBeginBeforeTheFirstClipIsOfTheFirst) {
    MediaObj* const first = create(m_tree.path("a.wav"));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(create(m_tree.path("a.wav")), nullptr);
    EXPECT_TRUE(m_result.success());
    first->release(MediaAgent(nullptr), true);
}

TEST_F(WavRecording, WhoseEmptyFileAnotherProcessHasBegunIsRefused) {
    const MediaClipParam param = soundOf(s_wav, 48000, 2, 16);
    const std::string path = m_tree.write("a.wav", "");
    MediaObj* const movie = create(path);
    ASSERT_NE(movie, nullptr);
    MediaTrackDesc* const track = movie->createTrack(param, m_result);
    ASSERT_NE(track, nullptr);
    m_tree.append("a.wav", "somebody's");
    EXPECT_EQ(track->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::FileExists));
    EXPECT_EQ(std::string(m_result.getMessage()), "wav: " + path + " is there already and is not overwritten");
    movie->release(MediaAgent(nullptr), true);
    EXPECT_EQ(kit::bytesAt(path, 0, 100), "somebody's");
}

TEST_F(WavRecording, InAFolderThatCantBeMadeIsRefused) {
    m_tree.write("file", "x");
    refuse(m_tree.path("file/a.wav"), MediaCode::FileNotWritable,
           "wav: " + m_tree.path("file/a.wav") + " can't be written: Not a directory");
}

TEST_F(WavRecording, WithoutTheRightToMakeTheFileIsRefused) {
    const Fault fault(FileCall::Open, EACCES);
    refuse(m_tree.path("a.wav"), MediaCode::FileNotWritable,
           "wav: " + m_tree.path("a.wav") + " can't be written: Permission denied");
    EXPECT_FALSE(m_tree.exists("a.wav"));
}

TEST_F(WavRecording, OfSamplesElsewhereIsRefused) {
    EXPECT_EQ(create(m_tree.path("a.wav"), MediaContainment::ByRef), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "wav: the file holds its samples itself");
    EXPECT_FALSE(m_tree.exists("a.wav"));
}

TEST_F(WavRecording, RefusesWhatTheFormatCantHold) {
    MediaObj* const movie = create(m_tree.path("a.wav"));
    ASSERT_NE(movie, nullptr);
    const MediaClipParam good = soundOf(s_wav, 48000, 2, 16);
    const auto refusal = [&](auto change) {
        MediaClipParam param(good);
        change(param);
        m_result.discard();
        EXPECT_EQ(movie->createTrack(param, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
        return std::string(m_result.getMessage());
    };
    EXPECT_EQ(refusal([](auto& p) { p.m_dataType = MediaDataType::Video; }), "wav: video of pcm can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_encoding = MediaEncodingType::Aac; }), "wav: audio of aac can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_sampleRate = 0; }), "wav: 0 samples in 1 seconds can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_ticksPerSample = 2; }), "wav: 48000 samples in 2 seconds can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_channels = 0; }), "wav: 0 channels can't be recorded, 1 to 32 can");
    EXPECT_EQ(refusal([](auto& p) { p.m_channels = 33; }), "wav: 33 channels can't be recorded, 1 to 32 can");
    EXPECT_EQ(refusal([](auto& p) { p.m_bitsPerUnit = 0; }), "wav: pcm of 0 bits can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_bitsPerUnit = 20; }), "wav: pcm of 20 bits can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_bitsPerUnit = 40; }), "wav: pcm of 40 bits can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_endian = MediaEndian::Big; }), "wav: big-endian samples can't be recorded");
    EXPECT_EQ(refusal([](auto& p) { p.m_encoding = MediaEncodingType::ALaw; }),
              "wav: a-law of 16 bits can't be recorded");
    EXPECT_NE(movie->createTrack(good, m_result), nullptr);
    movie->release(MediaAgent(nullptr), true);
}

TEST_F(WavRecording, FillsInNoParametersOfWhatItCantHold) {
    MediaClipParam param;
    const auto init = [&](MediaEncodingType encoding, unsigned rate, unsigned channels, unsigned bits) {
        return param.initAudio(s_wav, encoding, MediaVideoRate::Pal25, rate, channels, bits);
    };
    EXPECT_FALSE(init(MediaEncodingType::Pcm, 0, 2, 16));
    EXPECT_FALSE(init(MediaEncodingType::Pcm, 48000, 33, 16));
    EXPECT_FALSE(init(MediaEncodingType::Dv, 48000, 2, 16));
    EXPECT_FALSE(init(MediaEncodingType::ALaw, 8000, 1, 16));
    EXPECT_EQ(param.m_channels, 0u);
    EXPECT_TRUE(init(MediaEncodingType::ALaw, 8000, 1, 8));
    EXPECT_EQ(param.m_channels, 1u);
    EXPECT_EQ(param.m_bitrate, 64000u);
}

TEST_F(WavRecording, HasOneTrackOfOneClipOfItsKind) {
    const MediaClipParam param = soundOf(s_wav, 48000, 2, 16);
    MediaObj* const movie = create(m_tree.path("a.wav"));
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->getTrackCount(), 0u);
    EXPECT_EQ(movie->getTrackAt(0), nullptr);
    MediaTrackDesc* const track = movie->createTrack(param, m_result);
    ASSERT_NE(track, nullptr);
    EXPECT_EQ(track->getClipCount(), 0u);
    EXPECT_EQ(movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_STREQ(m_result.getMessage(), "wav: a file has one track");
    EXPECT_EQ(track->createClip(soundOf(s_wav, 48000, 1, 16), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
    EXPECT_STREQ(m_result.getMessage(), "wav: the clip is of another kind than its track");
    EXPECT_NE(track->createClip(param, m_result), nullptr);
    EXPECT_EQ(track->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_EQ(movie->getMovieDesc()->getTimeBase(), 48000u);
    movie->release(MediaAgent(nullptr), true);
}

TEST_F(WavRecording, TakesNoSamplesOfAnotherSizeAndNoHole) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    SampleInfo info;
    info.reset(3);
    MediaSampleInMovie where;
    EXPECT_FALSE(m_track->addSamples(MediaRecordReq(0, 1, info), where, m_result));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_STREQ(m_result.getMessage(), "wav: 1 samples of 3 bytes, one has 4 bytes");
    EXPECT_FALSE(m_track->addSamples(MediaRecordReq(0, 0, info), where, m_result));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_FALSE(m_track->addSamples(MediaRecordReq(~0ull, 2, info), where, m_result));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_TRUE(kit::isWarning(m_track->addEmptyEdit(100), MediaCode::OperationUnsupported));
    EXPECT_EQ(m_track->getLength(), 0u);
}

TEST_F(WavRecording, WithoutAClipLeavesAnEmptyFile) {
    MediaObj* const movie = create(m_tree.path("a.wav"));
    ASSERT_NE(movie, nullptr);
    EXPECT_TRUE(movie->setRecording(false));
    movie->flush(nullptr, true);
    movie->release(MediaAgent(nullptr), true);
    m_path = m_tree.path("a.wav");
    EXPECT_EQ(file(), "");
}

TEST_F(WavRecording, ThatHasEndedTakesNothingMore) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(100);
    MediaObj* const recorded = m_movie;
    recorded->preserve();
    endRecording();
    const std::string before = file();
    MediaSampleInMovie where;
    SampleInfo info;
    info.reset(40);
    EXPECT_FALSE(m_track->addSamples(MediaRecordReq(100, 10, info), where, m_result));
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(recorded->createTrack(soundOf(s_wav, 48000, 2, 16), m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::FileNotWritable));
    EXPECT_TRUE(kit::isWarning(recorded->setRecording(false), MediaCode::FileNotWritable));
    EXPECT_EQ(file(), before);
    EXPECT_TRUE(isThere(0, 100));
    EXPECT_FALSE(isThere(100, 1));
    recorded->release();
}

TEST_F(WavRecording, OnAFullDiskKeepsWhatIsThereAndGoesOnWhenThereIsRoomAgain) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(48000);
    {
        const Fault fault(FileCall::Write, ENOSPC);
        const MediaSampleInMovie lost = add(48000);
        EXPECT_TRUE(kit::isWarning(write(lost, bytesFor(48000, 48000)), MediaCode::WriteError));
        EXPECT_FALSE(isThere(48000, 10));
    }
    EXPECT_EQ(claimed(), 48000u);
    ASSERT_TRUE(writeSync(addAt(48000, 48000)));  // once more
    EXPECT_TRUE(isThere(48000, 10));
    endRecording();
    EXPECT_EQ(told(), 96000u);
    EXPECT_TRUE(file().substr(80) == bytesFor(0, 96000));
}

TEST_F(WavRecording, WithoutRoomForItsHeaderHasNoClip) {
    m_movie = create(m_tree.path("a.wav"));
    ASSERT_NE(m_movie, nullptr);
    const MediaClipParam param = soundOf(s_wav, 48000, 2, 16);
    m_track = m_movie->createTrack(param, m_result);
    ASSERT_NE(m_track, nullptr);
    {
        const Fault fault(FileCall::Write, ENOSPC);
        EXPECT_EQ(m_track->createClip(param, m_result), nullptr);
    }
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::WriteError));
    EXPECT_STREQ(m_result.getMessage(), "wav: the header can't be written");
    EXPECT_EQ(m_track->getClipCount(), 0u);
    EXPECT_NE(m_track->createClip(param, m_result), nullptr);
}

TEST_F(WavRecording, AsynchronousFailureIsToldAndLeavesOnlyWhatIsThere) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(48000, true);
    ASSERT_TRUE(arrives(0, 48000));
    ASSERT_TRUE(kit::waitFor([&] { return claimed() == 48000; })) << "the header comes behind its samples";
    {
        HeldWrites held;
        for (unsigned i = 0; i < 5; ++i)
            ASSERT_TRUE(writeAsync(add(48000)));
        EXPECT_FALSE(isThere(48000, 10));
        held.letGo(ENOSPC);
        const MediaSampleInMovie next = add(48000);
        EXPECT_TRUE(kit::waitFor([&] { return !writeAsync(next); }));
        EXPECT_FALSE(isThere(48000, 10));
        EXPECT_EQ(claimed(), 48000u);
    }
    // The failure has been told; nothing has been lost since.
    EXPECT_TRUE(m_movie->setRecording(false));
    EXPECT_EQ(claimed(), 48000u);
    // Once more, from where it was lost.
    for (m_next = 48000; m_next < 6 * 48000;)
        record(48000, true);
    endRecording();
    EXPECT_EQ(told(), 6u * 48000);
    EXPECT_TRUE(file().substr(80, 6 * 192000) == bytesFor(0, 6 * 48000));
}

// --- A reader of the movie while it is recorded ---------------------------------------------------------------------

TEST_F(WavRecording, SharesItsMovieWithReaders) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(100);
    MediaObj* const reader = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
    EXPECT_EQ(reader, m_movie);
    ASSERT_TRUE(isThere(0, 100));
    MediaSampleInMovie where;
    ASSERT_TRUE(find(20, 30, where));
    MediaIoBuf buffer;
    EXPECT_TRUE(reader->vsRead(where, buffer));
    EXPECT_EQ(kit::bytesOf(buffer), bytesFor(20, 30));
    reader->release();
}

TEST_F(WavRecording, TellsNoPlaceOfSamplesThatAreEnteredAndNotWritten) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    EXPECT_FALSE(isThere(0, 1));
    const MediaSampleInMovie first = add(100);
    EXPECT_FALSE(isThere(0, 1));
    EXPECT_FALSE(isThere(0, 100));
    ASSERT_TRUE(writeSync(first));
    EXPECT_TRUE(isThere(0, 100));
    const MediaSampleInMovie second = add(100);
    EXPECT_FALSE(isThere(100, 1));
    EXPECT_FALSE(isThere(50, 100));
    EXPECT_TRUE(isThere(0, 100));
    ASSERT_TRUE(writeSync(second));
    EXPECT_TRUE(isThere(50, 100));
    EXPECT_FALSE(isThere(200, 1));
    EXPECT_FALSE(isThere(~0ull, 3));
}

TEST_F(WavRecording, TellsEveryPlaceWhileMissingMediaAreIgnored) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    add(100);
    EXPECT_FALSE(isThere(0, 100));
    mediaObjDbg.set(1u << MediaDbg::IgnoreMissingMedia);
    EXPECT_TRUE(isThere(0, 100));
}

TEST_F(WavRecording, TellsNoPlaceOfSamplesThatAreStillInTheEngine) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    constexpr unsigned s_blocks = 30;  // more than the tracker remembers
    {
        const HeldWrites held;
        for (unsigned i = 0; i < s_blocks; ++i)
            ASSERT_TRUE(writeAsync(add(100)));
        for (unsigned i = 0; i < s_blocks; ++i)
            EXPECT_FALSE(isThere(i * 100, 100)) << i;
    }
    for (unsigned i = 0; i < s_blocks; ++i)
        EXPECT_TRUE(arrives(i * 100, 100)) << i;
}

TEST_F(WavRecording, TellsSamplesWrittenOutOfOrderAsTheyCome) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    const MediaSampleInMovie first = add(100), second = add(100), third = add(100), fourth = add(100);
    ASSERT_TRUE(writeSync(second));
    ASSERT_TRUE(writeSync(third));
    EXPECT_TRUE(isThere(100, 100));
    EXPECT_TRUE(isThere(150, 100));
    EXPECT_FALSE(isThere(0, 1));
    EXPECT_FALSE(isThere(99, 3));
    EXPECT_FALSE(isThere(250, 100));
    ASSERT_TRUE(writeSync(fourth));
    ASSERT_TRUE(writeSync(first));
    EXPECT_TRUE(isThere(0, 400));
}

TEST_F(WavRecording, TellsNoPlaceOfSamplesThatAreBeingRewritten) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(100);
    record(100);
    const MediaSampleInMovie again = addAt(100, 100);
    EXPECT_FALSE(isThere(100, 100));
    EXPECT_TRUE(isThere(0, 100));
    ASSERT_TRUE(writeSync(again));
    EXPECT_TRUE(isThere(100, 100));
}

TEST_F(WavRecording, GivesAReaderOnAnotherThreadOnlyBytesThatWereWritten) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    std::atomic<bool> done{false};
    std::atomic<unsigned> reads{0}, wrong{0};
    std::thread reader([&] {
        for (unsigned long long at = 0; !done || at + 480 <= m_next;) {
            MediaSampleInMovie where;
            if (!find(at, 480, where)) {
                std::this_thread::yield();
                continue;
            }
            MediaIoBuf buffer;
            OpResult result = m_movie->vsRead(where, buffer);
            const bool good = result.success() && kit::bytesOf(buffer) == bytesFor(at, where.m_count);
            result.discard();
            if (!good) ++wrong;
            ++reads;
            at += 480;
        }
    });
    for (unsigned i = 0; i < 300; ++i) {
        const MediaSampleInMovie where = add(480);
        EXPECT_TRUE(i % 3 == 0 ? writeSync(where) : writeAsync(where));
        if (i % 7 == 0) m_movie->flush(nullptr, true);
    }
    done = true;
    reader.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(reads, 300u);
}

TEST_F(WavRecording, GoesOnAfterItsHandlesWereClosed) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    record(48000, true);
    EXPECT_TRUE(m_movie->close(nullptr, MediaAgent(nullptr)));
    EXPECT_EQ(claimed(), 48000u);
    record(48000, true);
    record(48000);
    EXPECT_TRUE(arrives(0, 144000));
    endRecording();
    EXPECT_EQ(told(), 144000u);
    EXPECT_TRUE(file().substr(80) == bytesFor(0, 144000));
}

TEST_F(WavRecording, TellsAParserMoreWithEachFlush) {
    start("a.wav", soundOf(s_wav, 48000, 2, 16));
    for (unsigned i = 0; i < 8; ++i) {
        record(48000, i % 2 != 0);
        m_movie->flush(nullptr, true);
        EXPECT_EQ(told(), m_next);
        EXPECT_TRUE(file().substr(80) == bytesFor(0, static_cast<unsigned>(m_next)));
    }
}
