#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/mov/mov_atoms.h"
#include "backends/mov/mov_description.h"
#include "backends/mov/mov_references.h"
#include "backends/mov/mov_sample_tables.h"
#include "shared/include/description/media_timecode.h"

// What the atoms of a movie say, checked against the file. Nothing here grows with the number of samples, but for the
// runs of a movie in fragments.

// A sample description.
struct MovEntry {
    MovCode code = 0;
    unsigned reference = 0;  // into the track's references, from 0
    MediaEncodingType encoding = MediaEncodingType::Unknown;
    MediaChromaSample chroma = MediaChromaSample::None;
    MediaVideoScanType scan = MediaVideoScanType::Unknown;
    bool isChromaOfProfile = false;  // taken from what pictures of the profile usually have
    MediaEndian endian = MediaEndian::Big;
    std::uint32_t bitrate = 0;  // bits a second, 0: not said

    // Of a picture.
    std::uint32_t width = 0, height = 0;                       // pixels and lines
    std::uint32_t cleanWidth = 0, cleanHeight = 0;             // what is meant to be seen of them, 0: all
    std::uint32_t pixelWidth = 0, pixelHeight = 0;             // a pixel's shape, 0: not said
    MediaAspectRatio codedAspect = MediaAspectRatio::Unknown;  // as the pictures themselves say
    std::uint8_t lengthBytes = 0;                              // in front of each unit of AVC; 0: start codes
    bool hasProfile = false;                                   // of AVC
    std::uint8_t profile = 0, level = 0;

    // Of sound.
    std::uint32_t sampleRate = 0;  // Hz
    std::uint32_t channels = 0;
    std::uint32_t bits = 0;         // of a word
    std::uint32_t sampleBytes = 0;  // of all channels' words; 0 for coded sound

    // Of timecode.
    bool dropFrame = false, isCounter = false;
    std::uint32_t tcScale = 0, tcStep = 0;
    std::uint8_t tcFrames = 0;
};

// A stretch of what a track shows. **Units:** movie ticks, and media ticks for the start.
struct MovEdit {
    std::uint64_t duration = 0;
    std::int64_t start = 0;  // -1: nothing is shown
    std::uint32_t rate = 0x10000;
};

// Samples that lie one behind the other in a fragment.
struct MovFragmentRun {
    std::uint64_t firstSample = 0;  // of the track
    std::uint64_t data = 0;         // where the first sample lies
    std::uint64_t time = 0;         // when it is decoded, ticks of the media
    std::uint64_t entries = 0;      // where its entries lie
    std::uint32_t count = 0;
    std::uint32_t flags = 0;                                            // of the run: what an entry says
    std::uint32_t step = 0, size = 0, sampleFlags = 0, firstFlags = 0;  // where the entries don't say
    std::uint32_t description = 1;
};

struct MovTrack {
    std::uint32_t id = 0;
    MovCode handler = 0;
    MediaDataType type = MediaDataType::Unknown;
    std::uint32_t timeScale = 0;                        // media ticks a second
    std::uint64_t duration = 0;                         // media ticks
    std::uint32_t displayWidth = 0, displayHeight = 0;  // pixels
    std::uint32_t timecodeTrack = 0;                    // its id
    MovTablePlaces places;
    std::vector<MovEntry> entries;
    std::vector<MovReference> references;
    std::vector<MovEdit> edits;

    bool hasMoreEntries = false;  // than are looked at

    // Where the samples of a description lie; null for one that leads nowhere.
    const MovReference* referenceOf(const MovEntry& entry) const {
        return entry.reference < references.size() ? &references[entry.reference] : nullptr;
    }
    // They lie in the movie's own file, also where the track says nothing of files.
    bool isSelf(const MovEntry& entry) const {
        const MovReference* const reference = referenceOf(entry);
        return references.empty() || (reference != nullptr && reference->isSelf);
    }

    // Of a movie in fragments.
    std::uint32_t defaultDescription = 1, defaultStep = 0, defaultSize = 0, defaultFlags = 0;
    std::vector<MovFragmentRun> runs;
    std::uint64_t fragmentSamples = 0, fragmentTime = 0;
};

struct MovMovie {
    std::uint32_t timeScale = 0;
    std::uint64_t duration = 0;
    bool isFragmented = false;
    bool isPartial = false;                        // there is more in it than is known here
    std::uint64_t userData = 0, userDataSize = 0;  // the content of the movie's user data, bytes from the file's start
    std::vector<MovTrack> tracks;
    MediaTimecode timecode;
    std::vector<std::string> remarks;  // what isn't shown, and why
};
