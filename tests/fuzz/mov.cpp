#include <algorithm>
#include <string>
#include <vector>

#include "backends/mov/mov_clip_plan.h"
#include "backends/mov/mov_parser.h"
#include "backends/mov/mov_picture_head.h"
#include "backends/mov/mov_picture_types.h"
#include "backends/mov/mov_timecode.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/kit/fake_file.h"

// The movie file parser over a file in memory, and the look-ups in its tables. Whatever the bytes are: a sentence, or
// tables that lie wholly inside the file, clips of samples that are there, and answers in time.

namespace {

using fuzz::require;

AutoRefPtr<BasicFileIO> fileOf(const std::string& bytes) {
    auto* file = new kit::FakeFile();
    file->m_content = bytes;
    return AutoRefPtr<BasicFileIO>(file);
}

bool parse(BasicFileIO& file, std::uint64_t length, MovMovie& movie) {
    FileWindow window(file, length);
    OpResult result = MovParser(window).parse(movie);
    const bool success = result.success();
    require(success || (result.getMessage() != nullptr && std::string(result.getMessage()).rfind("mov: ", 0) == 0));
    result.discard();
    return success;
}

void requireInside(const MovTable& table, std::uint64_t bits, std::uint64_t length) {
    require(table.count == 0 || table.offset + (table.count * bits + 7) / 8 <= length);
}

// On the heap, for the sanitizer to see a step behind the end.
void lookAtHead(BasicFileIO& file, MovEntry entry, const MovSpot& spot) {
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(spot.size, MovPictureHead::s_size));
    const int got = file.readAt(spot.offset, bytes.data(), static_cast<unsigned>(bytes.size()));
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    bytes.shrink_to_fit();
    MovPictureHead::complete(entry, bytes.data(), bytes.size());
    require(entry.chroma <= MediaChromaSample::C444 && entry.scan <= MediaVideoScanType::Progressive);
}

void lookAt(BasicFileIO& file, const MovTrackSamples& samples, const MovTrack& track, std::uint64_t sample) {
    MovSpot spot;
    std::uint64_t found = 0, bytes = 0, ticks = 0;
    std::int32_t shift = 0;
    if (samples.findTogether(sample, 100, spot, found, bytes)) {
        require(found >= 1 && found <= 100 && sample < samples.count());
        for (const MovEntry& entry : track.entries) {
            (void)MovPictureTypes::look(file, entry.encoding, entry.lengthBytes, spot.offset, spot.size);
            lookAtHead(file, entry, spot);
        }
    }
    (void)samples.isSync(sample);
    (void)samples.timeOf(sample, ticks);
    (void)samples.shiftOf(sample, shift);
    (void)samples.sampleAt(sample * 1000, ticks);
}

void check(BasicFileIO& file, std::uint64_t length, MovMovie& movie, const AutoRefPtr<BasicFileIO>& held) {
    require(movie.timeScale != 0 && movie.tracks.size() <= MovLimit::s_tracks);
    const MovTableCache cache(held);
    (void)MovTimecode::read(movie, cache);
    for (MovTrack& track : movie.tracks) {
        const MovTablePlaces& places = track.places;
        require(track.timeScale != 0);
        if (places.fixedSize == 0) requireInside(places.sizes, places.sizeBits, length);
        requireInside(places.chunks, places.isWide ? 64 : 32, length);
        requireInside(places.runs, 96, length);
        requireInside(places.times, 64, length);
        requireInside(places.shifts, 64, length);
        requireInside(places.syncs, 32, length);
        MovTrackSamples samples(track, cache);
        samples.tables().setSamples(samples.tables().samplesWithin(length));
        const std::uint64_t count = samples.count();
        for (const MovClipPlan& plan : MovClipPlanner::plan(track, samples, movie.timeScale, movie.remarks))
            require(plan.isGap || plan.in + plan.length <= plan.samples);
        const std::uint64_t last = count != 0 ? count - 1 : 0;
        for (const std::uint64_t sample : {std::uint64_t{0}, std::uint64_t{1}, count / 2, last, count})
            lookAt(file, samples, track, sample);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const AutoRefPtr<BasicFileIO> file = fileOf(bytes), shorter = fileOf(bytes.substr(0, size / 2));
    MovMovie movie, shrunk;
    if (parse(*file, size, movie)) check(*file, size, movie, file);
    // A file that is cut while it is parsed: its length was taken before.
    if (parse(*shorter, size, shrunk)) check(*shorter, size, shrunk, shorter);
    return 0;
}
