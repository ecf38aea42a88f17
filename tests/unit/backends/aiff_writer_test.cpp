#include "backends/aiff/aiff_writer.h"

#include "tests/unit/backends/aiff_fixture.h"
#include "tests/unit/backends/recording_fixture.h"

// AIFFs that are recorded: what differs from a WAV.

using namespace RecordKit;

namespace {

constexpr MediaFileType s_aiff = MediaFileType::Aiff;

struct Kind {
    const char* m_name;
    unsigned m_channels;
    unsigned m_bits;
    MediaEndian m_endian = MediaEndian::Big;
};

class AiffRecording : public RecordScene {};
class AiffRecordingOfKind : public AiffRecording, public testing::WithParamInterface<Kind> {};

constexpr Kind s_kinds[] = {
    {"Bits8", 1, 8},   {"Bits16", 2, 16},     {"Bits24Odd", 3, 24},
    {"Bits32", 8, 32}, {"ThirtyTwo", 32, 24}, {"LittleEndian", 2, 16, MediaEndian::Little},
};

MediaClipParam soundOf(const Kind& kind, unsigned rate = 48000) {
    MediaClipParam param = RecordKit::soundOf(s_aiff, rate, kind.m_channels, kind.m_bits);
    param.m_endian = kind.m_endian;
    return param;
}

std::uint64_t beAt(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AiffRecordingOfKind, testing::ValuesIn(s_kinds),
                         [](const auto& kind) { return std::string(kind.param.m_name); });

TEST_P(AiffRecordingOfKind, IsReadBackByteForByteAndDescribesItselfAlike) {
    start("a.aiff", soundOf(GetParam()));
    for (const unsigned count : {1920u, 1601u, 1u, 48000u, 3u})
        record(count, count % 2 == 0);
    MediaObj* const recorded = m_movie;
    recorded->preserve();
    endRecording();
    const std::string bytes = file(), essence = bytesFor(0, static_cast<unsigned>(m_next));
    EXPECT_EQ(beAt(bytes, 4, 4) + 8, bytes.size());
    EXPECT_EQ(bytes.size() % 2, 0u);
    const std::size_t at = bytes.size() - essence.size() - essence.size() % 2;
    EXPECT_TRUE(bytes.substr(at, essence.size()) == essence);

    MediaObj* const parsed = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, s_aiff, true);
    ASSERT_NE(parsed, nullptr) << m_result.describe().get();
    EXPECT_NE(parsed, recorded);
    EXPECT_EQ(describe(*parsed), describe(*recorded));
    EXPECT_EQ(parsed->getTrackAt(0)->getClip(0)->getLookup()->getBaseOffset(), at);
    parsed->release();
    recorded->release();
}

TEST_F(AiffRecording, TellsEveryRateExactly) {
    std::uint8_t bytes[10];
    for (const std::uint32_t rate :
         {1u, 2u, 3u, 8000u, 44100u, 48000u, 192000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        AiffWriter::putRate(rate, bytes);
        const std::string text(reinterpret_cast<const char*>(bytes), sizeof bytes);
        const auto exponent = static_cast<std::uint16_t>(beAt(text, 0, 2));
        EXPECT_EQ(AiffParser::rateOf(exponent, beAt(text, 2, 8)), rate);
    }
}

TEST_F(AiffRecording, EndsBeforeItsSizesAreFull) {
    start("a.aiff", soundOf(s_kinds[1]));
    const unsigned long long most = (0xFFFFFFFEull + 8 - 1 - 54) / 4;
    const MediaSampleInMovie last = addAt(most - 10, 10);  // the file is sparse
    ASSERT_TRUE(writeSync(last));
    SampleInfo info;
    info.reset(8);
    MediaSampleInMovie where;
    EXPECT_FALSE(m_track->addSamples(MediaRecordReq(most, 2, info), where, m_result));
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_EQ(std::string(m_result.getMessage()), "aiff: the file is full with " + std::to_string(most) + " samples");
    EXPECT_EQ(m_track->getLength(), 10u);
    endRecording();
    const std::string head = kit::bytesAt(m_path, 0, 54);
    EXPECT_EQ(beAt(head, 4, 4), 46 + most * 4);
    MediaObj* const movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result, s_aiff, true);
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->getTrackAt(0)->getLength(), most);
    movie->release();
}

TEST_F(AiffRecording, RefusesWhatTheFormatCantHold) {
    MediaObj* const movie = create(m_tree.path("a.aiff"));
    ASSERT_NE(movie, nullptr);
    const auto refusal = [&](auto change) {
        MediaClipParam param = soundOf(s_kinds[1]);
        change(param);
        m_result.discard();
        EXPECT_EQ(movie->createTrack(param, m_result), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnsupportedMediaType));
        return std::string(m_result.getMessage());
    };
    EXPECT_EQ(refusal([](auto& p) { p.m_channels = 33; }), "aiff: 33 channels can't be recorded, 1 to 32 can");
    EXPECT_EQ(refusal([](auto& p) {
                  p.m_encoding = MediaEncodingType::ALaw;
                  p.m_bitsPerUnit = 8;
              }),
              "aiff: only pcm can be recorded");
    EXPECT_EQ(refusal([](auto& p) {
                  p.m_endian = MediaEndian::Little;
                  p.m_bitsPerUnit = 24;
              }),
              "aiff: little-endian samples are of 16 bits");
    movie->release(MediaAgent(nullptr), true);
}

TEST_F(AiffRecording, IsNotMadeOverAFileThatIsThere) {
    const std::string path = m_tree.write("a.aif", "somebody's");
    refuse(path, MediaCode::FileExists, "aiff: " + path + " is there already and is not overwritten");
    EXPECT_EQ(kit::bytesAt(path, 0, 100), "somebody's");
}
