#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"
#include "tests/integration/peers.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/child_job.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/temp_tree.h"
#include "tests/kit/wav_builder.h"

// A folder of media of all kinds and states, sound and broken, given by MEDIACORE_TEST_MEDIA or else made here. Each
// file is opened in a process of its own that has 5 s and 256 MiB.

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds s_time(5);
constexpr std::uint64_t s_memory = 256ull << 20;
constexpr const char* s_otherFormat = "opened as another format";

// One number for the bytes of an essence.
unsigned long long digestOf(const std::string& bytes) {
    unsigned long long digest = 14695981039346656037ull;
    for (const char byte : bytes)
        digest = (digest ^ static_cast<unsigned char>(byte)) * 1099511628211ull;
    return digest;
}

std::string factsOf(const std::string& codec, unsigned rate, unsigned channels, unsigned bits,
                    unsigned long long samples, const std::string& essence) {
    std::ostringstream text;
    text << "opened " << codec << ' ' << rate << ' ' << channels << ' ' << bits << ' ' << samples << ' ' << std::hex
         << digestOf(essence);
    return text.str();
}

// By the name that ffprobe has for it.
std::string codecOf(const MediaClipDesc& clip) {
    if (clip.getEncoding() == MediaEncodingType::ALaw) return "pcm_alaw";
    if (clip.getBitsPerUnit() == 8) return clip.getFileType() == MediaFileType::Wav ? "pcm_u8" : "pcm_s8";
    return "pcm_s" + std::to_string(clip.getBitsPerUnit()) + (clip.getEndian() == MediaEndian::Big ? "be" : "le");
}

bool isOfSamples(MediaFileType type) { return type == MediaFileType::Wav || type == MediaFileType::Aiff; }

// Opens it, reads all of it and closes it, and says what came of it in one line.
std::string answerOf(const std::string& path) {
    OpResult result;
    MediaObj* movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    std::string answer;
    if (movie == nullptr) {
        answer = std::string("refused ") + result.describe().get();
    } else if (!isOfSamples(movie->getMovieDesc()->getFileType())) {
        answer = s_otherFormat;
        movie->release(MediaAgent(nullptr), false);
    } else {
        const MediaClipDesc& clip = wavread::clipOf(*movie);
        answer = factsOf(codecOf(clip), clip.getSampleRate(), clip.getChannels(), clip.getBitsPerUnit(),
                         clip.getLength(), wavread::readAll(*movie));
        movie->release(MediaAgent(nullptr), false);
    }
    result.discard();
    MediaObj::flushAll(nullptr);
    return answer;
}

int openTwice(const std::string& path) {
    CacheProbe cache;
    cache.setZombieTime(0);
    const std::string first = answerOf(path);
    const kit::LeakCheck leaks;
    const std::string second = answerOf(path);
    std::printf("%s\n%s\nleft: %s\n", first.c_str(), second.c_str(), leaks.difference().c_str());
    return 0;
}
const kit::ChildJob s_openTwice("open twice", openTwice);

// What the list says of a file.
struct Entry {
    std::string m_format;
    std::string m_class;
};

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, '\t');)
        fields.push_back(field);
    return fields;
}

std::map<std::string, Entry> readList(const fs::path& path) {
    std::map<std::string, Entry> list;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    const std::vector<std::string> names = fieldsOf(line);
    while (std::getline(file, line)) {
        const std::vector<std::string> fields = fieldsOf(line);
        std::map<std::string, std::string> row;
        for (std::size_t i = 0; i < fields.size() && i < names.size(); ++i)
            row[names[i]] = fields[i];
        list[row["name"]] = {row["format"], row["class"]};
    }
    return list;
}

class MediaFolder : public testing::Test {
protected:
    // The answer of both tries; a failed test when they differ, or when anything is left or goes wrong.
    std::string tryFile(const std::string& path) {
        kit::Command command = s_openTwice.command(path);
        command.m_addressSpace = kit::addressSpace(s_memory);
        command.m_limit = s_time;
        const kit::Outcome outcome = kit::ChildJob::run(command);
        EXPECT_FALSE(outcome.m_timedOut);
        EXPECT_EQ(outcome.m_signal, 0);
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        std::istringstream lines(outcome.m_out);
        std::string first, second, left;
        std::getline(lines, first);
        std::getline(lines, second);
        std::getline(lines, left);
        EXPECT_NE(first, "") << outcome.m_err;
        EXPECT_EQ(second, first);
        EXPECT_EQ(left, "left: ");
        return first;
    }

    // What a sound WAV or AIFF must answer, by what the other programs say of it.
    void expectSound(const std::string& path, const std::string& answer, bool isAiff) {
        const peers::AudioFacts facts = peers::probeAudio(path);
        ASSERT_TRUE(facts.m_found);
        if (isAiff ? peers::isReadableInAiff(facts.m_codec) : peers::isReadable(facts.m_codec)) {
            EXPECT_EQ(answer, factsOf(facts.m_codec, facts.m_rate, facts.m_channels, facts.m_bits, facts.m_samples,
                                      peers::essenceOf(path)));
            ++m_opened;
        } else if (isAiff) {
            EXPECT_EQ(answer.rfind("refused unsupported media type: aiff: samples of coding \"", 0), 0u) << answer;
        } else {
            const std::string name = facts.m_codec == "pcm_mulaw" ? "mu-law" : "floating point";
            EXPECT_EQ(answer.rfind("refused unsupported media type: wav: " + name + " samples (format tag 0x", 0), 0u)
                << answer;
        }
    }

    void tryFolder(const fs::path& folder) {
        const std::map<std::string, Entry> list = readList(folder / "corpus.tsv");
        for (const auto& file : fs::directory_iterator(folder)) {
            if (!file.is_regular_file() || file.path().filename() == "corpus.tsv") continue;
            const std::string path = file.path().string();
            SCOPED_TRACE(path);
            ++m_tried;
            const std::string answer = tryFile(path);
            const auto entry = list.find(file.path().filename().string());
            if (entry == list.end()) continue;
            const bool isWav = entry->second.m_format == "wav" || entry->second.m_format == "rf64";
            const bool isAiff = entry->second.m_format == "aiff" || entry->second.m_format == "aifc";
            if ((isWav || isAiff) && entry->second.m_class == "good") expectSound(path, answer, isAiff);
            if (!isWav && !isAiff) {
                EXPECT_TRUE(answer == s_otherFormat || answer.rfind("refused ", 0) == 0) << answer;
            }
        }
    }

    unsigned m_tried = 0;
    unsigned m_opened = 0;  // and found to be what they should be
};

// Media of several kinds, made now, with the sound ones listed.
class MadeFolder {
public:
    MadeFolder() {
        m_tree.write("media/empty.wav", "");
        const std::string raw = m_tree.write("source.raw", kit::WavBuilder::pattern(96000));
        for (const peers::Coding& coding : peers::s_codings) {
            const std::string name = std::string(coding.m_ffmpegRaw) + ".wav";
            peers::writeByFfmpeg(coding, 2, 48000, raw, m_tree.path("media/" + name));
            list(name, "wav", "good");
            cut(name);
        }
        make("float.wav", "wav", "pcm_f32le");
        make("mulaw.wav", "wav", "pcm_mulaw");
        for (const peers::Coding& coding : peers::s_aiffCodings) {
            const std::string name = std::string(coding.m_ffmpegRaw) + ".aiff";
            peers::writeByFfmpeg(coding, 2, 48000, raw, m_tree.path("media/" + name));
            list(name, "aiff", "good");
            cut(name);
        }
        make("float.aiff", "aifc", "pcm_f32be");
        make("mulaw.aiff", "aifc", "pcm_mulaw");
        make("a.mov", "mov", "pcm_s16le");
        make("a.avi", "avi", "pcm_s16le");
        make("a.flac", "flac", "flac");
        make("a.aac", "aac", "aac");
        make("a.ts", "ts", "mp2");
        m_tree.write("media/corpus.tsv", m_list);
    }
    fs::path path() const { return m_tree.path("media"); }

private:
    void list(const std::string& name, const std::string& format, const std::string& kind) {
        m_list += name + "\t" + format + "\t" + kind + "\n";
    }
    void make(const std::string& name, const std::string& format, const std::string& codec) {
        const kit::Outcome outcome =
            kit::run({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "s16le", "-ar", "48000", "-ac", "2", "-i",
                      m_tree.path("source.raw"), "-c:a", codec, m_tree.path("media/" + name)});
        EXPECT_TRUE(outcome.good()) << outcome.m_err;
        list(name, format, "good");
        cut(name);
    }
    // The same without its end.
    void cut(const std::string& name) {
        const fs::path whole = m_tree.path("media/" + name), part = m_tree.path("media/cut_" + name);
        fs::copy_file(whole, part);
        fs::resize_file(part, fs::file_size(whole) / 3);
    }

    kit::TempTree m_tree;
    std::string m_list = "name\tformat\tclass\n";
};

}  // namespace

TEST_F(MediaFolder, EveryFileOpensAsItShouldOrIsRefused) {
    const MadeFolder made;
    tryFolder(made.path());
    EXPECT_EQ(m_opened, 11u);
    EXPECT_GE(m_tried, 25u);
    const char* const given = std::getenv("MEDIACORE_TEST_MEDIA");
    if (given == nullptr || *given == '\0') return;
    ASSERT_TRUE(fs::is_directory(given)) << given;
    const unsigned madeCount = m_tried;
    tryFolder(given);
    EXPECT_GT(m_tried, madeCount);
    std::printf("%u files tried, %u of them compared with what ffprobe and ffmpeg say\n", m_tried, m_opened);
}

// What the test above leans on: a process that takes too long, takes too much or leaves something is found out.
namespace {

int hang(const std::string&) {
    for (;;)
        std::fgetc(stdin);
}
const kit::ChildJob s_hang("hang", hang);

int takeTooMuch(const std::string&) {
    const std::uint64_t size = s_memory + (1u << 20);
    void* memory = std::malloc(size);
    std::printf("%s\n", memory != nullptr ? "taken" : "refused");
    std::free(memory);
    return 0;
}
const kit::ChildJob s_takeTooMuch("take too much", takeTooMuch);

int leaveSomething(const std::string& path) {
    const kit::LeakCheck leaks;
    MediaObj* movie = wavread::openMovie(path);
    std::printf("%s\n", leaks.difference().empty() ? "unseen" : "seen");
    if (movie != nullptr) movie->release();
    return 0;
}
const kit::ChildJob s_leaveSomething("leave something", leaveSomething);

}  // namespace

TEST(MediaFolderHarness, EndsAProcessThatTakesTooLong) {
    kit::Command command = s_hang.command("");
    command.m_limit = std::chrono::seconds(1);
    const kit::Outcome outcome = kit::ChildJob::run(command);
    EXPECT_TRUE(outcome.m_timedOut);
    EXPECT_NE(outcome.m_exit, 0);
}

TEST(MediaFolderHarness, HoldsAProcessToItsMemory) {
    kit::Command command = s_takeTooMuch.command("");
    command.m_addressSpace = kit::addressSpace(s_memory);
    const kit::Outcome outcome = kit::ChildJob::run(command);
    EXPECT_EQ(outcome.m_out, command.m_addressSpace ? "refused\n" : "taken\n") << outcome.m_err;
}

TEST(MediaFolderHarness, SeesAMovieThatIsLeft) {
    const kit::TempTree tree;
    const std::string path = tree.write("a.wav", kit::WavBuilder().fmt().data("12345678").bytes());
    EXPECT_EQ(s_leaveSomething.run(path).m_out, "seen\n");
}
