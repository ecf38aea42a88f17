#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/stress/left_file.h"
#include "tests/stress/stress_recorder.h"

// A recorder that is killed at any moment leaves a file that opens, with every sample that the file has told of.

namespace {

using stress::Kind;
using stress::Told;

constexpr unsigned s_rate = 1000;

// What a child is told to do.
struct Orders {
    std::string m_path;
    Kind m_kind = Kind::Wav;
    bool m_async = false;
    unsigned m_usec = 0;  // until it is killed
    unsigned m_seed = 0;

    std::string text() const {
        std::ostringstream out;
        out << static_cast<unsigned>(m_kind) << ' ' << m_async << ' ' << m_usec << ' ' << m_seed << ' ' << m_path;
        return out.str();
    }
    static Orders of(const std::string& text) {
        Orders orders;
        unsigned kind = 0;
        std::istringstream(text) >> kind >> orders.m_async >> orders.m_usec >> orders.m_seed >> orders.m_path;
        orders.m_kind = static_cast<Kind>(kind);
        return orders;
    }
};

// A line of a number for each track.
void tell(const Told& told) {
    std::string line;
    for (const unsigned long long samples : told)
        line += (line.empty() ? "" : " ") + std::to_string(samples);
    line += '\n';
    if (::write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
}

unsigned atOnce(Kind kind, unsigned random) {
    return kind == Kind::Dv ? 1 : stress::isFilm(kind) ? 1 + random % 2 : 2 + random % 300;
}

void killSoon(unsigned usec) {
    std::thread([usec] {
        ::usleep(usec);
        ::kill(::getpid(), SIGKILL);
    }).detach();
}

// Records as fast as it goes and tells what the file's header has come to tell, until it is killed.
int recordUntilKilled(const std::string& text) {
    const Orders orders = Orders::of(text);
    std::fflush(stdout);
    ::alarm(100);  // should the parent go first
    // Some are killed while they begin, the others once something has been told, however slow the machine is.
    const bool isEarly = orders.m_seed % 4 == 0;
    if (isEarly) killSoon(orders.m_usec);
    stress::Recording recording;
    if (!recording.begin(orders.m_path, orders.m_kind, s_rate)) return 4;
    std::mt19937 random(orders.m_seed);
    Told last;
    for (;;) {
        if (!recording.write(atOnce(orders.m_kind, random()), orders.m_async)) return 5;
        if (random() % 50 == 0) recording.flush();
        const Told now = stress::toldBy(orders.m_path, orders.m_kind);
        if (now == last) continue;
        if (last.empty() && !isEarly) killSoon(orders.m_usec);
        tell(last = now);
    }
}

const kit::ChildJob s_recorder("killed recorder", &recordUntilKilled);

struct Way {
    const char* m_name;
    Kind m_kind;
    bool m_async;
    const char* m_engine;
    unsigned m_kills = 35;  // unless the environment says more
};

constexpr unsigned s_longest = 30000;  // µs
constexpr unsigned s_forFfmpeg = 3;    // files

class KilledRecorder : public kit::CacheScene, public testing::WithParamInterface<Way> {
protected:
    // Lets one record for so long. Answers what its file told last.
    Told record(const std::string& path, unsigned usec, unsigned seed) {
        const Orders orders{path, GetParam().m_kind, GetParam().m_async, usec, seed};
        kit::Command command = s_recorder.command(orders.text());
        command.m_environment.emplace_back("MEDIACORE_ASYNC", GetParam().m_engine);
        const kit::Outcome outcome = kit::ChildJob::run(command);
        EXPECT_EQ(outcome.m_signal, SIGKILL) << outcome.m_exit << outcome.m_err;
        Told last;
        std::istringstream lines(outcome.m_out);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream numbers(line);
            const Told told{std::istream_iterator<unsigned long long>(numbers), {}};
            EXPECT_GE(told.size(), last.size()) << "the header has gone back";
            for (std::size_t i = 0; i < std::min(told.size(), last.size()); ++i)
                EXPECT_GE(told[i], last[i]) << "the header has gone back";
            last = told;
        }
        return last;
    }
    // That ffmpeg can judge, whose film has come to its edit.
    bool isEnough(const Told& told) const {
        const Kind kind = GetParam().m_kind;
        return stress::typeOf(kind) == MediaFileType::QuickTime && told.size() == stress::tracksOf(kind) &&
               told[0] > (stress::isFilm(kind) ? stress::s_skippedAfter : 0) && told[1] != 0;
    }
    // Streams are large. The files stay, so that none takes the place of another.
    static void empty(const std::string& folder) {
        std::error_code missing;  // killed before there was a file
        for (const auto& file : std::filesystem::directory_iterator(folder))
            std::filesystem::resize_file(file.path(), 0, missing);
    }
};

class FileOfAKilledRecorder : public kit::CacheScene {
protected:
    // The file of the first track.
    std::string mediaOf(const std::string& path) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        if (movie == nullptr) return "";
        const std::string media = movie->getPath(movie->getMediaId(1));
        movie->release();
        return media;
    }
};

constexpr Way s_ways[] = {
    {"WavSync", Kind::Wav, false, "pool"},
    {"WavAsyncPool", Kind::Wav, true, "pool"},
    {"WavAsyncUring", Kind::Wav, true, "uring"},
    {"AiffSync", Kind::Aiff, false, "pool"},
    {"AiffAsync", Kind::Aiff, true, "uring"},
    {"DvSync", Kind::Dv, false, "pool"},
    {"DvAsync", Kind::Dv, true, "uring"},
    {"MovSync", Kind::Mov, false, "pool"},
    {"MovAsyncPool", Kind::Mov, true, "pool"},
    {"MovAsyncUring", Kind::Mov, true, "uring"},
    {"MovByRefSync", Kind::MovByRef, false, "pool", 12},
    {"MovByRefAsync", Kind::MovByRef, true, "uring", 12},
    {"FilmSync", Kind::Film, false, "pool", 12},
    {"FilmAsync", Kind::Film, true, "uring", 12},
    {"FilmByRefSync", Kind::FilmByRef, false, "pool", 12},
    {"FilmByRefAsync", Kind::FilmByRef, true, "uring", 12},
};

// What a kill leaves is the file system's affair: a sanitizer has little to add to it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned s_mostKills = 10;
#else
constexpr unsigned s_mostKills = 35;
#endif

unsigned killsOf(const Way& way) {
    constexpr unsigned ways = std::size(s_ways);
    const unsigned kills = std::min(way.m_kills, s_mostKills);
    return (stress::lengthFrom("MEDIACORE_SOAK_KILLS", kills * ways) + ways - 1) / ways;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ways, KilledRecorder, testing::ValuesIn(s_ways),
                         [](const auto& way) { return std::string(way.param.m_name); });

TEST_P(KilledRecorder, LeavesAFileWithAllThatItHasTold) {
    const Kind kind = GetParam().m_kind;
    const unsigned kills = killsOf(GetParam());
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    unsigned headers = 0;
    unsigned long long samples = 0;
    std::vector<std::string> forFfmpeg;
    for (unsigned i = 0; i < kills && !HasFailure(); ++i) {
        const std::string folder = m_tree.path("k" + std::to_string(i));
        const std::string path = folder + "/film" + stress::suffixOf(kind);
        std::filesystem::create_directory(folder);
        const Told least = record(path, static_cast<unsigned>(random() % s_longest), random());
        EXPECT_EQ(stress::faultOf(path, kind, least, samples), "");
        const Told told = stress::toldBy(path, kind);
        headers += told.empty() ? 0 : 1;
        if (forFfmpeg.size() < s_forFfmpeg && isEnough(told)) {
            forFfmpeg.push_back(path);
        } else {
            empty(folder);
        }
    }
    EXPECT_GT(headers, kills / 4);
    EXPECT_GT(samples, 0u);
    if (!forFfmpeg.empty()) {
        EXPECT_EQ(stress::faultByFfmpeg(forFfmpeg, kind), "");
    }
    std::printf("%u kills, %u files with a header, %llu samples, %zu files for ffmpeg\n", kills, headers, samples,
                forFfmpeg.size());
}

// Each defect in a movie of its own.
TEST_F(FileOfAKilledRecorder, IsAtFaultWhereSomethingIsLost) {
    struct Row {
        const char* m_fault;  // that it begins with
        void (*m_plant)(const std::string& media);
        Told m_more = {0, 0};  // samples that it is said to have told of
        bool m_isForFfmpeg = false;
    };
    const Row rows[] = {
        {"", [](const std::string&) {}, {0, 0}, true},
        {"it tells of fewer samples", [](const std::string&) {}, {0, 1}},
        {"track 0, sample 0: not what was recorded",
         [](const std::string& media) {
             std::fstream(media, std::ios::in | std::ios::out | std::ios::binary).seekp(-1, std::ios::end).put('?');
         },
         {0, 0},
         true},
        {"track 0, sample 0: ",
         [](const std::string& media) { std::filesystem::resize_file(media, std::filesystem::file_size(media) - 1); }},
        {"track 0, sample 0: ", [](const std::string& media) { std::filesystem::rename(media, media + ".away"); }},
    };
    unsigned number = 0;
    for (const Row& row : rows) {
        const std::string path = m_tree.path("k" + std::to_string(number++) + ".mov");
        SCOPED_TRACE(path + ": " + row.m_fault);
        stress::Recording recording;
        ASSERT_TRUE(recording.begin(path, Kind::FilmByRef, s_rate));
        ASSERT_TRUE(recording.write(20, false));
        ASSERT_TRUE(recording.end());
        Told least = stress::toldBy(path, Kind::FilmByRef);
        EXPECT_EQ(least, (Told{20, 20 * s_rate / 25}));
        for (std::size_t i = 0; i < least.size(); ++i)
            least[i] += row.m_more[i];
        row.m_plant(mediaOf(path));
        expireAll();
        unsigned long long samples = 0;
        const std::string fault = stress::faultOf(path, Kind::FilmByRef, least, samples);
        EXPECT_TRUE(fault.starts_with(row.m_fault) && fault.empty() == (*row.m_fault == '\0')) << fault;
        if (row.m_isForFfmpeg) {
            EXPECT_EQ(stress::faultByFfmpeg({path}, Kind::FilmByRef).empty(), fault.empty());
        }
    }
}
