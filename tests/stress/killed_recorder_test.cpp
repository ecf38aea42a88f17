#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>

#include "backends/dv/dv_system.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/samples.h"
#include "tests/stress/stress_recorder.h"

// A recorder that is killed at any moment leaves a file that opens, with every sample that the file has told of.

namespace {

using stress::dvSystem;
using stress::sizeOf;
using stress::suffixOf;

constexpr unsigned s_rate = 1000;

// What a child is told to do.
struct Orders {
    std::string m_path;
    MediaFileType m_type = MediaFileType::Unknown;
    bool m_async = false;
    unsigned m_usec = 0;  // until it is killed
    unsigned m_seed = 0;

    std::string text() const {
        std::ostringstream out;
        out << static_cast<unsigned>(m_type) << ' ' << m_async << ' ' << m_usec << ' ' << m_seed << ' ' << m_path;
        return out.str();
    }
    static Orders of(const std::string& text) {
        Orders orders;
        unsigned type = 0;
        std::istringstream(text) >> type >> orders.m_async >> orders.m_usec >> orders.m_seed >> orders.m_path;
        orders.m_type = static_cast<MediaFileType>(type);
        return orders;
    }
};

// Whole frames of a stream, which has no other header than its length.
long long framesOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return -1;
    const long long frames = status.st_size / dvSystem().frameSize();
    return frames != 0 ? frames : -1;
}

std::uint64_t numberAt(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count && at + i < bytes.size(); ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// The sizes of the first track of the first `moov` that the file leads to.
long long samplesOfMovie(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return -1;
    const auto length = static_cast<std::uint64_t>(status.st_size);
    for (std::uint64_t at = 0, size = 0; at + 16 <= length; at += size) {
        const std::string head = kit::bytesAt(path, at, 16);
        size = numberAt(head, 0, 4);
        if (size == 1) size = numberAt(head, 8, 8);
        if (size < 8) return -1;  // to the end of the file, or no atom
        if (head.compare(4, 4, "moov") != 0) continue;
        const std::string movie = kit::bytesAt(path, at, size);
        const std::size_t sizes = movie.find("stsz");
        return sizes != std::string::npos ? static_cast<long long>(numberAt(movie, sizes + 12, 4)) : -1;
    }
    return -1;
}

// Samples that a file tells of, as the system has it; -1 while it tells nothing.
long long told(const std::string& path, MediaFileType type) {
    if (type == MediaFileType::Dv) return framesOf(path);
    if (type == MediaFileType::QuickTime) return samplesOfMovie(path);
    const bool isWav = type == MediaFileType::Wav;
    const unsigned size = isWav ? 104 : 54;  // of the header
    const std::string head = kit::bytesAt(path, 0, size);
    if (head.size() < size) return -1;
    const auto byteAt = [&head](unsigned at) { return static_cast<unsigned>(static_cast<unsigned char>(head[at])); };
    std::uint32_t value = 0;
    for (unsigned i = 0; i < 4; ++i)
        value |= isWav ? byteAt(100 + i) << (8 * i) : byteAt(22 + i) << (24 - 8 * i);
    return isWav ? value / stress::s_soundSize : value;
}

void tell(long long samples) {
    char line[32];
    const int length = std::snprintf(line, sizeof line, "%lld\n", samples);
    if (::write(STDOUT_FILENO, line, static_cast<unsigned>(length)) != length) ::_exit(3);
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
    if (!recording.begin(orders.m_path, orders.m_type, s_rate)) return 4;
    std::mt19937 random(orders.m_seed);
    long long last = -1;
    for (;;) {
        const unsigned count = orders.m_type == MediaFileType::Dv ? 1 : 2 + random() % 300;
        if (!recording.write(count, orders.m_async)) return 5;
        if (random() % 50 == 0) recording.flush();
        const long long now = told(orders.m_path, orders.m_type);
        if (now != last) {
            if (last < 0 && !isEarly) killSoon(orders.m_usec);
            tell(last = now);
        }
    }
}

const kit::ChildJob s_recorder("killed recorder", &recordUntilKilled);

struct Way {
    const char* m_name;
    MediaFileType m_type;
    bool m_async;
    const char* m_engine;
};

class KilledRecorder : public kit::CacheScene, public testing::WithParamInterface<Way> {
protected:
    // Lets one record for so long. Answers the samples that its file told last, -1 for none.
    long long record(const std::string& path, unsigned usec, unsigned seed) {
        const Orders orders{path, GetParam().m_type, GetParam().m_async, usec, seed};
        kit::Command command = s_recorder.command(orders.text());
        command.m_environment.emplace_back("MEDIACORE_ASYNC", GetParam().m_engine);
        const kit::Outcome outcome = kit::ChildJob::run(command);
        EXPECT_EQ(outcome.m_signal, SIGKILL) << outcome.m_exit << outcome.m_err;
        long long last = -1, line = 0;
        for (std::istringstream lines(outcome.m_out); lines >> line;) {
            EXPECT_GE(line, last) << "the header has gone back";
            last = line;
        }
        return last;
    }

    void expectWhole(const std::string& path, long long least) {
        const long long samples = told(path, GetParam().m_type);
        EXPECT_GE(samples, least);
        if (samples < 0) return;  // killed before the header: nothing was told
        ++m_headers;
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(movie, nullptr) << m_result.describe().get();
        const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
        // While the header tells of nothing, what is there counts.
        EXPECT_TRUE(samples == 0 || clip.getLength() == static_cast<unsigned long long>(samples));
        EXPECT_TRUE(bytesOf(*movie, clip, path) ==
                    stress::essence(GetParam().m_type, 0, static_cast<unsigned>(clip.getLength())));
        m_samples += clip.getLength();
        movie->release();
    }

    // In one piece as they lie in the file, where nothing else can lie between them.
    static std::string bytesOf(const MediaObj& movie, const MediaClipDesc& clip, const std::string& path) {
        const std::size_t size = clip.getLength() * sizeOf(GetParam().m_type);
        if (GetParam().m_type != MediaFileType::QuickTime)
            return kit::bytesAt(path, clip.getLookup()->getBaseOffset(), size);
        std::string bytes;
        OpResult result;
        for (unsigned long long sample = 0; sample < clip.getLength();) {
            const auto wanted = static_cast<unsigned>(std::min<unsigned long long>(clip.getLength() - sample, 1000));
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            if (!clip.getMediaOffset(MediaPlayReq(sample, wanted), where, result) || where.m_count == 0) break;
            result = movie.vsRead(where, buffer);
            if (!result) break;
            bytes += kit::bytesOf(buffer);
            sample += where.m_count;
        }
        EXPECT_TRUE(result.success()) << result.describe().get();
        return bytes;
    }

    unsigned m_headers = 0;
    unsigned long long m_samples = 0;
};

constexpr Way s_ways[] = {
    {"WavSync", MediaFileType::Wav, false, "pool"},
    {"WavAsyncPool", MediaFileType::Wav, true, "pool"},
    {"WavAsyncUring", MediaFileType::Wav, true, "uring"},
    {"AiffSync", MediaFileType::Aiff, false, "pool"},
    {"AiffAsync", MediaFileType::Aiff, true, "uring"},
    {"DvSync", MediaFileType::Dv, false, "pool"},
    {"DvAsync", MediaFileType::Dv, true, "uring"},
    {"MovSync", MediaFileType::QuickTime, false, "pool"},
    {"MovAsyncPool", MediaFileType::QuickTime, true, "pool"},
    {"MovAsyncUring", MediaFileType::QuickTime, true, "uring"},
};

// Of each way.
unsigned killsOfAWay() {
    constexpr unsigned ways = std::size(s_ways);
    return (stress::lengthFrom("MEDIACORE_SOAK_KILLS", 35 * ways) + ways - 1) / ways;
}
constexpr unsigned s_longest = 30000;  // µs

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ways, KilledRecorder, testing::ValuesIn(s_ways),
                         [](const auto& way) { return std::string(way.param.m_name); });

TEST_P(KilledRecorder, LeavesAFileWithAllThatItHasTold) {
    const unsigned kills = killsOfAWay();
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (unsigned i = 0; i < kills && !HasFailure(); ++i) {
        const std::string path = m_tree.path("k" + std::to_string(i) + suffixOf(GetParam().m_type));
        expectWhole(path, record(path, static_cast<unsigned>(random() % s_longest), random()));
        std::error_code missing;                         // killed before there was a file
        std::filesystem::resize_file(path, 0, missing);  // streams are large
    }
    EXPECT_GT(m_headers, kills / 4);
    EXPECT_GT(m_samples, 0u);
    std::printf("%u kills, %u files with a header, %llu samples\n", kills, m_headers, m_samples);
}
