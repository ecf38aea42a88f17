// Looking for damage in plain samples: the analysis by the stretch beside the plain rule, beside a pass that only loads
// the bytes, and beside the `astats` filter of ffmpeg in the same run.

#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <memory>

#include "bench/bench_kit.h"
#include "mediautil/validation/pcm_analysis.h"
#include "shared/include/validation/pcm_parser.h"

namespace {

constexpr unsigned s_cached = 120000;      // bytes: a block of sound that stays in the processor's cache
constexpr unsigned s_memory = 256u << 20;  // bytes that no cache holds
constexpr unsigned s_partsOfMemory = 64;   // read one behind the other, a part a call
constexpr unsigned s_limits[] = {0, 0, 4096, 1u << 20, 0};  // by bytes of a word

// Two sines that never step over the limit and come round every five seconds; no word of them is a sync.
std::vector<unsigned char> music(unsigned bytesOfWord, unsigned size) {
    constexpr unsigned round = 240000;  // instants
    constexpr double waves[] = {764, 1184};
    const double full = std::pow(2.0, 8 * bytesOfWord - 1) * 0.4;
    const unsigned period = 2 * round * bytesOfWord;
    std::vector<unsigned char> bytes(size);
    for (unsigned i = 0; i < std::min(size, period) / bytesOfWord; ++i) {
        const auto value = static_cast<int>(full * std::sin(2 * M_PI * waves[i % 2] * (i / 2) / round));
        for (unsigned b = 0; b < bytesOfWord; ++b)
            bytes[i * bytesOfWord + b] = static_cast<unsigned char>(value >> 8 * (bytesOfWord - 1 - b));
    }
    for (unsigned at = period; at < size; ++at)
        bytes[at] = bytes[at - period];
    return bytes;
}

// A parser over memory that is somebody else's.
class Block {
public:
    Block(const unsigned char* memory, unsigned size, unsigned bytesOfWord)
        : m_piece{const_cast<unsigned char*>(memory), size}, m_bytes(bytesOfWord) {
        m_parser.init(MediaEndian::Big, bytesOfWord, 2);
        m_parser.setList(1, &m_piece);
    }
    unsigned samples() const { return m_piece.m_length / (2 * m_bytes); }
    PcmParser& parser() { return m_parser; }

private:
    simpleSgl_s m_piece;
    const unsigned m_bytes;
    PcmParser m_parser;
};

void analyse(const unsigned char* memory, unsigned size, unsigned bytesOfWord,
             PcmVectors vectors = PcmVectors::Widest) {
    Block block(memory, size, bytesOfWord);
    PcmPattern pattern(s_limits[bytesOfWord], 2);
    analysePcm(block.parser(), pattern, block.samples(), vectors);
    if (pattern.suspect()) std::abort();
    bench::keep(pattern);
}

// The same with damage everywhere: hardly a step is as small as this limit.
void analyseDamaged(const unsigned char* memory, unsigned size, unsigned bytesOfWord) {
    Block block(memory, size, bytesOfWord);
    PcmPattern pattern(1, 2);
    analysePcm(block.parser(), pattern, block.samples());
    if (!pattern.suspect()) std::abort();
    bench::keep(pattern);
}

void byThePlainRule(const unsigned char* memory, unsigned size, unsigned bytesOfWord) {
    Block block(memory, size, bytesOfWord);
    PcmPattern pattern(s_limits[bytesOfWord], 2);
    for (unsigned i = 0; i < block.samples(); ++i)
        pattern.add(block.parser().decodeNextSample());
    if (pattern.suspect()) std::abort();
    bench::keep(pattern);
}

// As fast as bytes come in: four sums side by side, of the widest words that the processor has.
#if defined(__x86_64__)
__attribute__((target("avx2")))
#endif
void loadOnly(const unsigned char* memory, unsigned size) {
    using Words = std::uint64_t __attribute__((vector_size(32)));
    Words sums[4] = {};
    for (unsigned at = 0; at + sizeof sums <= size; at += sizeof sums) {
        for (unsigned i = 0; i < 4; ++i) {
            Words words;
            std::memcpy(&words, memory + at + i * sizeof words, sizeof words);
            sums[i] |= words;
        }
    }
    bench::keep(sums);
}

void tellSpeed(const bench::Rounds& rounds, const std::string& what, const char* name, double bytes) {
    std::printf("%s: %.2f GB/s a core\n", what.c_str(), bytes / rounds.cost(name) / 1e9);
}

void measureCached(const bench::Options& options, unsigned bytesOfWord) {
    const std::vector<unsigned char> bytes = music(bytesOfWord, s_cached);
    const unsigned char* const memory = bytes.data();
    bench::Rounds all(options);
    const auto by = [memory, bytesOfWord](PcmVectors vectors) {
        return [memory, bytesOfWord, vectors] { analyse(memory, s_cached, bytesOfWord, vectors); };
    };
    all.addCall("ours", bench::threadSeconds, by(PcmVectors::Widest));
    all.addCall("narrow", bench::threadSeconds, by(PcmVectors::Common));
    all.addCall("damaged", bench::threadSeconds,
                [memory, bytesOfWord] { analyseDamaged(memory, s_cached, bytesOfWord); });
    all.addCall("plain", bench::threadSeconds,
                [memory, bytesOfWord] { byThePlainRule(memory, s_cached, bytesOfWord); });
    all.addCall("load", bench::threadSeconds, [memory] { loadOnly(memory, s_cached); });
    all.addCall("load again", bench::threadSeconds, [memory] { loadOnly(memory, s_cached); });
    all.run("load", "load again");
    const std::string what = std::to_string(8 * bytesOfWord) + " bits in cache";
    tellSpeed(all, what, "ours", s_cached);
    tellSpeed(all, what + ", damaged everywhere", "damaged", s_cached);
    tellSpeed(all, what + ", vectors of every processor", "narrow", s_cached);
    tellSpeed(all, what + ", plain rule", "plain", s_cached);
    tellSpeed(all, what + ", only loaded", "load", s_cached);
    all.tell(what + " beside the plain rule", "ours", "plain", "below 0.1");
    all.tell(what + " beside loading", "ours", "load", "none");
}

void measureFromMemory(const bench::Options& options, unsigned bytesOfWord) {
    const unsigned size = options.m_quick ? s_memory / 16 : s_memory;
    const unsigned part = size / s_partsOfMemory / 12 * 12;
    const std::vector<unsigned char> bytes = music(bytesOfWord, size);
    // Each call takes the next part, so that none is in the cache when its turn comes.
    auto next = [&bytes, part, at = 0u]() mutable {
        at = (at + 1) % s_partsOfMemory;
        return bytes.data() + std::size_t{at} * part;
    };
    bench::Rounds all(options);
    all.addCall("ours", bench::threadSeconds,
                [next, part, bytesOfWord]() mutable { analyse(next(), part, bytesOfWord); });
    all.addCall("load", bench::threadSeconds, [next, part]() mutable { loadOnly(next(), part); });
    all.addCall("load again", bench::threadSeconds, [next, part]() mutable { loadOnly(next(), part); });
    all.run("load", "load again");
    const std::string what = std::to_string(8 * bytesOfWord) + " bits from memory";
    tellSpeed(all, what, "ours", part);
    tellSpeed(all, what + ", only loaded", "load", part);
    all.tell(what + " beside loading", "ours", "load", "3");
}

// Processor time of the programs that were run so far.
double childSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Runs ffmpeg over a file of raw samples. Answers the processor time that it took, or below 0.
double ffmpegSeconds(const std::string& arguments) {
    const double before = childSeconds();
    const std::string command = "ffmpeg -nostdin -v error -threads 1 -filter_threads 1 " + arguments + " -f null -";
    const int status = std::system(command.c_str());
    const bool isDone = status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return isDone ? childSeconds() - before : -1;
}

// A file of raw samples that goes with this. Not `isThere` if it couldn't be made.
class RawFile {
public:
    RawFile(const std::string& folder, const std::vector<unsigned char>& bytes)
        : m_path(folder + "/validation_bench.raw") {
        std::FILE* const file = std::fopen(m_path.c_str(), "wbe");
        if (file == nullptr) return;
        const bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        m_isThere = std::fclose(file) == 0 && isWritten;
    }
    ~RawFile() { std::remove(m_path.c_str()); }
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;

    bool isThere() const { return m_isThere; }
    const std::string& path() const { return m_path; }

private:
    const std::string m_path;
    bool m_isThere = false;
};

// As many bytes, all in one go, or block by block out of the cache: there the filter finds what the decoder has
// written.
double secondsFromMemory(const std::vector<unsigned char>& bytes, unsigned bytesOfWord) {
    const double before = bench::threadSeconds();
    analyse(bytes.data(), static_cast<unsigned>(bytes.size()), bytesOfWord);
    return bench::threadSeconds() - before;
}
double secondsInCache(const std::vector<unsigned char>& bytes, unsigned bytesOfWord) {
    analyse(bytes.data(), s_cached, bytesOfWord);
    const double before = bench::threadSeconds();
    for (std::size_t done = 0; done < bytes.size(); done += s_cached)
        analyse(bytes.data(), s_cached, bytesOfWord);
    return bench::threadSeconds() - before;
}

// What the filter adds to reading and decoding the same file.
void measureAstats(const bench::Options& options, unsigned bytesOfWord) {
    const unsigned size = options.m_quick ? 3u << 20 : 96u << 20;
    const std::vector<unsigned char> bytes = music(bytesOfWord, size);
    const RawFile file(options.m_folder, bytes);
    if (!file.isThere()) return;
    const std::string input = "-f s" + std::to_string(8 * bytesOfWord) + "be -ar 48000 -ac 2 -i '" + file.path() + "'";
    std::vector<double> with, cached, fromMemory;
    const unsigned rounds = options.m_quick ? 1 : std::min(options.m_rounds, 5u);
    for (unsigned i = 0; i < rounds; ++i) {
        const double bare = ffmpegSeconds(input + " -af anull");
        const double stats = ffmpegSeconds(input + " -af astats");
        if (bare < 0 || stats < 0) {
            std::printf("astats: no ffmpeg with that filter\n");
            return;
        }
        with.push_back(stats - bare);
        cached.push_back((stats - bare) / secondsInCache(bytes, bytesOfWord));
        fromMemory.push_back((stats - bare) / secondsFromMemory(bytes, bytesOfWord));
    }
    std::printf("%u bits by ffmpeg's astats: %.1f MB/s, ours %.0f times as fast in cache (aim 50), %.0f from memory\n",
                8 * bytesOfWord, size / bench::median(with) / 1e6, bench::median(cached), bench::median(fromMemory));
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    for (const unsigned bytesOfWord : {2u, 3u}) {
        measureCached(options, bytesOfWord);
        measureFromMemory(options, bytesOfWord);
        measureAstats(options, bytesOfWord);
    }
    return 0;
}
