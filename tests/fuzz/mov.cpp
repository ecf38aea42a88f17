#include <algorithm>
#include <string>
#include <vector>

#include "backends/mov/mov_clip_plan.h"
#include "backends/mov/mov_parser.h"
#include "backends/mov/mov_picture_head.h"
#include "backends/mov/mov_picture_types.h"
#include "backends/mov/mov_timecode.h"
#include "backends/mov/mov_user_data.h"
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

// What is held in memory is what the tables say: when it is looked up there, and when it is found again.
void lookAgain(const MovTrackSamples& samples, std::uint64_t sample) {
    MovSpot spot, alone;
    std::uint64_t found = 0, bytes = 0;
    const bool isThere = samples.find(sample, spot);
    for (unsigned turn = 0; turn < 2; ++turn) {
        require(samples.findTogether(sample, 1, alone, found, bytes) == isThere);
        if (!isThere) continue;
        require(found == 1 && bytes == spot.size && alone.offset == spot.offset && alone.size == spot.size);
        require(alone.description == spot.description);
    }
}

void lookAt(BasicFileIO& file, const MovTrackSamples& samples, const MovTrack& track, std::uint64_t sample) {
    MovSpot spot;
    std::uint64_t found = 0, bytes = 0, ticks = 0;
    std::int32_t shift = 0;
    if (samples.findTogether(sample, 100, spot, found, bytes)) {
        require(found >= 1 && found <= 100 && sample < samples.count());
        MovSpot last;
        if (samples.find(sample + found - 1, last)) require(last.offset + last.size == spot.offset + bytes);
        for (const MovEntry& entry : track.entries) {
            (void)MovPictureTypes::look(file, entry.encoding, entry.lengthBytes, spot.offset, spot.size);
            lookAtHead(file, entry, spot);
        }
    }
    lookAgain(samples, sample);
    (void)samples.isSync(sample);
    (void)samples.timeOf(sample, ticks);
    (void)samples.shiftOf(sample, shift);
    (void)samples.sampleAt(sample * 1000, ticks);
    std::uint32_t description = 0;
    if (samples.changeOfDescription(sample, description, found)) require(found > sample && found <= samples.count());
}

// A relative path stays in the movie's folder, and every path is one that the system takes.
void lookAt(const MovReference& reference) {
    require(reference.isSelf || reference.isRefused == reference.candidates.empty());
    for (const std::string& path : reference.candidates) {
        require(!path.empty() && path.back() != '/' && path.find('\0') == std::string::npos);
        require(path.front() == '/' || !MovReferences::climbs(path));
        std::string back;
        require(MovReferences::decodeUrl(MovReferences::encodeUrl(path), back) && back == path);
    }
}

// What is understood of the user data is written as it is understood again.
void lookAtUserData(BasicFileIO& file, const MovMovie& movie) {
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(movie.userDataSize, MovUserData::s_most));
    const int got = file.readAt(movie.userData, bytes.data(), static_cast<unsigned>(bytes.size()));
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    MovUserData once, again;
    once.read(bytes.data(), bytes.size());
    const std::vector<std::uint8_t> written = once.write();
    again.read(written.data(), written.size());
    require(again.write() == written);
}

// No sample of the last run is one that a cut file doesn't have any more.
void lookAtLast(const MovTrackSamples& samples, std::uint64_t length) {
    MovSpot spot;
    const std::uint64_t count = samples.count();
    if (count == samples.tables().samples() || !samples.find(count - 1, spot)) return;
    require(spot.offset <= length && spot.size <= length - spot.offset);
}

void check(BasicFileIO& file, std::uint64_t length, MovMovie& movie, const AutoRefPtr<BasicFileIO>& held) {
    require(movie.timeScale != 0 && movie.tracks.size() <= MovLimit::s_tracks);
    const MovTableCache cache(held);
    (void)MovTimecode::read(movie, cache);
    lookAtUserData(*held, movie);
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
        for (const MovReference& reference : track.references)
            lookAt(reference);
        lookAtLast(samples, length);
        (void)samples.evenStep();
        (void)samples.isAllSync();
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
