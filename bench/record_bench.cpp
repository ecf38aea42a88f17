// Recording: what entering samples costs; frames of DV and blocks of sound written at once, beside a bare pwrite and
// libsndfile's writer, and handed over for writing, beside a bare writer thread; and a reader that follows the growing
// movie, beside a pread behind the pwrite. Each recording is a fresh file.

#include "bench/record_kit.h"

#ifdef MEDIACORE_HAVE_SNDFILE
#include <sndfile.h>
#endif

namespace {

using bench::BareFile;
using bench::Block;
using bench::Essence;
using bench::Recording;

using Clock = double (*)();

// ---- entering samples

// Allocations of so many calls, each block written before the next is entered or none of them.
unsigned long long countAdding(Recording& recording, const Block& block, unsigned calls, bool isWritten) {
    MediaSampleInMovie where;
    unsigned long long taken = 0;
    for (unsigned i = 0; i < calls; ++i) {
        {
            const bench::HeapCount heap;
            recording.add(where);
            taken += heap.allocations();
        }
        if (isWritten) recording.write(where, block);
    }
    return taken;
}

void measureAdding(const bench::Folder& folder, const Essence& essence, const bench::Options& options) {
    constexpr unsigned calls = 900;
    Recording recording(folder, essence);
    const unsigned long long taken = countAdding(recording, Block(essence), calls, true);
    bench::Rounds all(options);
    for (const char* name : {"one", "same"}) {
        all.addCall(name, bench::threadSeconds,
                    [&recording, where = MediaSampleInMovie()]() mutable { recording.add(where); });
    }
    all.run("one", "same");
    std::printf(
        "addSamples, %u at a time: %.3g ns (aim below 100), A/A %.3f%s, %llu allocations in %u calls (aim 0), "
        "%llu while nothing is written\n",
        essence.m_samples, all.cost("one") * 1e9, all.control(), all.isFair() ? "" : " (unfair run)", taken, calls,
        countAdding(recording, Block(essence), calls, false));
    std::fflush(stdout);
}

// ---- the same for all that follows

// What a round of a case takes: a folder, the block that is written again and again, and how many times.
class Scene {
public:
    Scene(const bench::Folder& folder, const Essence& essence, const bench::Options& options)
        : m_folder(folder),
          m_essence(essence),
          m_blocks(options.m_quick ? essence.m_blocks / 50 : essence.m_blocks),
          m_block(essence),
          m_base(Recording(folder, essence).base()) {}

    const bench::Folder& folder() const { return m_folder; }
    const Essence& essence() const { return m_essence; }
    const Block& block() const { return m_block; }
    unsigned blocks() const { return m_blocks; }
    std::string name() const { return m_essence.m_name; }

    // A recording, or a bare file with the essence at the same places.
    Recording record() const { return Recording(m_folder, m_essence); }
    BareFile bare() const { return BareFile(m_folder, m_base, m_essence.m_bytes); }

private:
    const bench::Folder& m_folder;
    const Essence& m_essence;
    const unsigned m_blocks;
    const Block m_block;
    const unsigned long long m_base;
};

// ---- written at once

double writeOurs(const Scene& scene) {
    Recording recording = scene.record();
    MediaSampleInMovie where;
    const double begin = bench::threadSeconds();
    for (unsigned i = 0; i < scene.blocks(); ++i) {
        recording.add(where);
        recording.write(where, scene.block());
    }
    const double seconds = bench::threadSeconds() - begin;
    recording.check(scene.blocks());
    return seconds / scene.blocks();
}

double writeBare(const Scene& scene, Clock clock) {
    const BareFile file = scene.bare();
    const double begin = clock();
    for (unsigned i = 0; i < scene.blocks(); ++i)
        file.write(i, scene.block().bytes());
    return (clock() - begin) / scene.blocks();
}

#ifdef MEDIACORE_HAVE_SNDFILE
double writeSndfile(const Scene& scene) {
    const std::string path = scene.folder().path("sndfile.wav");
    SF_INFO info{};
    info.samplerate = bench::s_wavRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) bench::fail("sf_open", path);
    const auto* const samples = static_cast<const short*>(scene.block().bytes());
    const sf_count_t count = scene.essence().m_samples;
    const double begin = bench::threadSeconds();
    for (unsigned i = 0; i < scene.blocks(); ++i) {
        if (sf_writef_short(file, samples, count) != count) std::abort();
    }
    const double seconds = bench::threadSeconds() - begin;
    sf_close(file);
    ::unlink(path.c_str());
    return seconds / scene.blocks();
}
#endif

void measureWriting(const Scene& scene, const char* aim, const bench::Options& options) {
    bench::Rounds all(options);
    all.add("ours", [&scene] { return writeOurs(scene); });
    for (const char* name : {"pwrite", "pwrite again"})
        all.add(name, [&scene] { return writeBare(scene, bench::threadSeconds); });
#ifdef MEDIACORE_HAVE_SNDFILE
    const bool hasPeer = !isPicture(scene.essence());
    if (hasPeer) all.add("sndfile", [&scene] { return writeSndfile(scene); });
#endif
    all.run("pwrite", "pwrite again");
    all.tell("vsWrite of " + scene.name() + " beside pwrite", "ours", "pwrite", aim);
#ifdef MEDIACORE_HAVE_SNDFILE
    if (hasPeer) all.tell("vsWrite of " + scene.name() + " beside sf_writef", "ours", "sndfile", "none");
#endif
}

// ---- handed over

// Blocks of a recording that are ready to be handed over.
class Burst {
public:
    Burst(const Scene& scene, Recording& recording, unsigned count)
        : m_recording(recording), m_where(count), m_obufs(count) {
        for (unsigned i = 0; i < count; ++i) {
            recording.add(m_where[i]);
            m_obufs[i] = scene.block().obuf();
        }
    }
    void handOver() {
        for (std::size_t i = 0; i < m_where.size(); ++i)
            m_recording.handOver(m_where[i], m_obufs[i]);
    }

private:
    Recording& m_recording;
    std::vector<MediaSampleInMovie> m_where;
    std::vector<phantom_OBUF*> m_obufs;  // owned until they are handed over
};

// How many blocks of a case: fewer where each of them is waited for.
unsigned blocksBy(const Scene& scene, unsigned count) { return count == 1 ? scene.blocks() / 8 + 1 : scene.blocks(); }

// What the calls cost their caller: `count` of them in a row, and then none until all blocks are written.
double handOverOurs(const Scene& scene, unsigned count) {
    Recording recording = scene.record();
    const unsigned blocks = blocksBy(scene, count);
    double seconds = 0;
    unsigned done = 0;
    for (; done < blocks; done += count) {
        Burst burst(scene, recording, count);
        const double begin = bench::threadSeconds();
        burst.handOver();
        seconds += bench::threadSeconds() - begin;
        bench::pollUntil([&] { return recording.bytesUnderWay() == 0; });
    }
    return seconds / done;
}

double handOverBare(const Scene& scene, unsigned count) {
    const BareFile file = scene.bare();
    bench::BareWriter writer(file);
    const unsigned blocks = blocksBy(scene, count);
    double seconds = 0;
    unsigned done = 0;
    for (; done < blocks; done += count) {
        const double begin = bench::threadSeconds();
        for (unsigned i = 0; i < count; ++i)
            writer.handOver(done + i, scene.block().bytes());
        seconds += bench::threadSeconds() - begin;
        bench::pollUntil([&] { return writer.underWay() == 0; });
    }
    return seconds / done;
}

void measureCalls(const Scene& scene, unsigned count, const char* aim, const bench::Options& options) {
    bench::Rounds all(options);
    all.add("ours", [&scene, count] { return handOverOurs(scene, count); });
    for (const char* name : {"bare", "bare again"})
        all.add(name, [&scene, count] { return handOverBare(scene, count); });
    all.run("bare", "bare again");
    const std::string what =
        "vaWrite of " + scene.name() + ", " + std::to_string(count) + " in a row, the caller's time";
    all.tell(what + " beside handing to a thread", "ours", "bare", aim);
}

void tellHandOverHeap(const Scene& scene) {
    const unsigned burst = scene.essence().m_burst;
    Recording recording = scene.record();
    unsigned long long taken = 0;
    unsigned calls = 0;
    // The first round fills the pools.
    for (unsigned round = 0; round < 8; ++round) {
        Burst blocks(scene, recording, burst);
        {
            const bench::HeapCount heap;
            blocks.handOver();
            bench::pollUntil([&] { return recording.bytesUnderWay() == 0; });
            if (round != 0) taken += heap.allocations();
        }
        if (round != 0) calls += burst;
    }
    std::printf("vaWrite of %s, %u in a row: %llu allocations in %u calls\n", scene.name().c_str(), burst, taken,
                calls);
}

// A recorder that hands over as fast as the writing goes, from the first block until all is in the file.
double streamOurs(const Scene& scene, Clock clock) {
    const unsigned burst = scene.essence().m_burst;
    const unsigned long long most = std::uint64_t{2} * burst * scene.essence().m_bytes;
    Recording recording = scene.record();
    MediaSampleInMovie where;
    const double begin = clock();
    for (unsigned i = 0; i < scene.blocks(); ++i) {
        if (i % burst == 0) bench::pollUntil([&] { return recording.bytesUnderWay() <= most; });
        recording.add(where);
        recording.handOver(where, scene.block().obuf());
    }
    bench::pollUntil([&] { return recording.bytesUnderWay() == 0; });
    const double seconds = clock() - begin;
    recording.finish();
    recording.check(scene.blocks());
    return seconds / scene.blocks();
}

double streamBare(const Scene& scene, Clock clock) {
    const unsigned burst = scene.essence().m_burst;
    const BareFile file = scene.bare();
    const double begin = clock();
    bench::BareWriter writer(file);
    for (unsigned i = 0; i < scene.blocks(); ++i) {
        if (i % burst == 0) bench::pollUntil([&] { return writer.underWay() <= 2 * burst; });
        writer.handOver(i, scene.block().bytes());
    }
    bench::pollUntil([&] { return writer.underWay() == 0; });
    return (clock() - begin) / scene.blocks();
}

void measureStream(const Scene& scene, const bench::Options& options) {
    for (const Clock clock : {&bench::wallSeconds, &bench::processSeconds}) {
        const bool isWall = clock == &bench::wallSeconds;
        bench::Rounds all(options);
        all.add("ours", [&scene, clock] { return streamOurs(scene, clock); });
        all.add("thread", [&scene, clock] { return streamBare(scene, clock); });
        for (const char* name : {"pwrite", "pwrite again"})
            all.add(name, [&scene, clock] { return writeBare(scene, clock); });
        all.run("pwrite", "pwrite again");
        const std::string what = "vaWrite of " + scene.name() + " in a stream, " +
                                 (isWall ? "by the clock" : "processor time of all threads");
        all.tell(what + ", beside pwrite", "ours", "pwrite", isWall ? "1.15" : "none");
        all.tell(what + ", beside a bare writer thread", "ours", "thread", "none");
    }
}

// ---- a reader that follows

// The writer is this thread, and the reader stays behind it until it has had every block.
template <class Write, class Read>
double follow(unsigned blocks, Clock clock, Write write, Read read) {
    const double begin = clock();
    std::thread reader([blocks, &read] {
        for (unsigned i = 0; i < blocks; ++i)
            bench::pollUntil([&read, i] { return read(i); });
    });
    for (unsigned i = 0; i < blocks; ++i)
        write(i);
    reader.join();
    return (clock() - begin) / blocks;
}

double followOurs(const Scene& scene, Clock clock) {
    Recording recording = scene.record();
    MediaObj* const movie = bench::openMovie(recording.path());
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    MediaIoBuf buf;
    MediaSampleInMovie written, found;
    const unsigned samples = scene.essence().m_samples;
    const double seconds = follow(
        scene.blocks(), clock,
        [&](unsigned) {
            recording.add(written);
            recording.write(written, scene.block());
        },
        [&](unsigned block) {
            OpResult result;
            const MediaPlayReq request(std::uint64_t{block} * samples, samples);
            const bool there = clip.getMediaOffset(request, found, result);
            if (!result || (there && found.m_count != samples)) std::abort();
            if (there && !movie->vsRead(found, buf)) std::abort();
            return there;
        });
    if (std::memcmp(buf.getMem(), scene.block().bytes(), scene.block().size()) != 0) std::abort();
    movie->release();
    return seconds;
}

double followBare(const Scene& scene, Clock clock) {
    const BareFile file = scene.bare();
    std::vector<unsigned char> memory(scene.block().size());
    std::atomic<unsigned> written{0};
    return follow(
        scene.blocks(), clock,
        [&](unsigned block) {
            file.write(block, scene.block().bytes());
            written.store(block + 1, std::memory_order_release);
        },
        [&](unsigned block) {
            const bool there = block < written.load(std::memory_order_acquire);
            if (there) file.read(block, memory.data());
            return there;
        });
}

void measureFollowing(const Scene& scene, const char* aim, const bench::Options& options) {
    for (const Clock clock : {&bench::wallSeconds, &bench::processSeconds}) {
        bench::Rounds all(options);
        all.add("ours", [&scene, clock] { return followOurs(scene, clock); });
        for (const char* name : {"bare", "bare again"})
            all.add(name, [&scene, clock] { return followBare(scene, clock); });
        all.run("bare", "bare again");
        const char* const by = clock == &bench::wallSeconds ? "by the clock" : "processor time of all threads";
        all.tell("a reader behind vsWrite of " + scene.name() + ", " + by + ", beside pread behind pwrite", "ours",
                 "bare", aim);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    measureAdding(folder, bench::s_picture, options);
    measureAdding(folder, bench::s_sound, options);
    const Scene picture(folder, bench::s_picture, options), sound(folder, bench::s_sound, options);
    measureWriting(picture, "1.05", options);
    measureWriting(sound, "1.2", options);
    for (const Scene* scene : {&picture, &sound}) {
        measureCalls(*scene, scene->essence().m_burst, "1 us", options);
        measureCalls(*scene, 1, "none", options);
        tellHandOverHeap(*scene);
        measureStream(*scene, options);
    }
    // A tenth above what the same costs elsewhere: 1.04 and 1.26.
    measureFollowing(picture, "1.14", options);
    measureFollowing(sound, "1.39", options);
    return 0;
}
