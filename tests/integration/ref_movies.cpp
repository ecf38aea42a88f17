#include "tests/integration/ref_movies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/samples.h"

namespace refmovies {

namespace {

// Fills the clip that the track has got last.
void fill(MediaObj& movie, MediaTrackDesc& track, const std::string& bytes) {
    SampleInfo info;
    info.reset(static_cast<unsigned>(bytes.size()));
    MediaSampleInMovie where;
    OpResult result;
    EXPECT_TRUE(track.addSamples(MediaRecordReq(0, s_samples, info), where, result)) << result.describe().get();
    MediaIoBuf buffer;
    kit::fill(buffer, bytes);
    EXPECT_TRUE(movie.vsWrite(where, buffer));
}

void finish(MediaObj* movie) {
    if (movie == nullptr) return;
    EXPECT_TRUE(movie->setRecording(false));
    movie->release(MediaAgent(nullptr), true);
}

std::uint64_t numberAt(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count && at + i < bytes.size(); ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// All atoms of a movie file but those that are skipped.
std::string shownOf(const std::string& bytes) {
    std::string shown = std::to_string(bytes.size()) + " bytes:";
    for (std::uint64_t at = 0, size = 0; at + 8 <= bytes.size(); at += size) {
        size = numberAt(bytes, at, 4);
        if (size == 1) size = numberAt(bytes, at + 8, 8);
        if (size < 8 || size > bytes.size() - at) size = bytes.size() - at;
        if (bytes.compare(at + 4, 4, "free") != 0) shown += bytes.substr(at, size);
    }
    return shown;
}

}  // namespace

MediaObj* startRecording(const std::string& path, const std::vector<unsigned>& clipsOfTracks) {
    OpResult result;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    MediaObj* const movie = MediaObj::openWriter(path.c_str(), false, result, MediaContainment::ByRef,
                                                 MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
    EXPECT_NE(movie, nullptr) << result.describe().get();
    MediaClipParam param;
    EXPECT_TRUE(
        param.initAudio(MediaFileType::QuickTime, MediaEncodingType::Pcm, MediaVideoRate::Unknown, 48000, 2, 16));
    unsigned file = 0;
    for (std::size_t i = 0; movie != nullptr && i < clipsOfTracks.size(); ++i) {
        MediaTrackDesc* const track = movie->createTrack(param, result);
        EXPECT_NE(track, nullptr) << result.describe().get();
        for (unsigned clip = 0; track != nullptr && clip < clipsOfTracks[i]; ++clip) {
            EXPECT_NE(track->createClip(param, result), nullptr) << result.describe().get();
            fill(*movie, *track, essence(file++));
        }
    }
    return movie;
}

MediaObj* startRecording(const std::string& path, unsigned files) {
    return startRecording(path, std::vector<unsigned>(files, 1));
}

void record(const std::string& path, const std::vector<unsigned>& clipsOfTracks) {
    finish(startRecording(path, clipsOfTracks));
}

void record(const std::string& path, unsigned files) { finish(startRecording(path, files)); }

std::string essence(unsigned file) { return kit::patternFrom(file * 13 + 5, s_samples * s_sampleSize); }

std::string allEssence(unsigned files) {
    std::string all;
    for (unsigned i = 0; i < files; ++i)
        all += essence(i);
    return all;
}

std::string faultOf(const MediaObj& movie) {
    OpResult result;
    unsigned file = 0;
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        for (unsigned j = 0; j < movie.getTrackAt(i)->getClipCount(); ++j, ++file) {
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            const bool isFound =
                movie.getTrackAt(i)->getClip(j)->getMediaOffset(MediaPlayReq(0, s_samples), where, result);
            if (isFound) result = movie.vsRead(where, buffer);
            if (result && kit::bytesOf(buffer) == essence(file)) continue;
            const std::string reason = result ? "other samples" : result.describe().get();
            result.discard();
            return "clip " + std::to_string(j) + " of track " + std::to_string(i) + ": " + reason;
        }
    }
    return "";
}

void expectSamples(const MediaObj& movie) { EXPECT_EQ(faultOf(movie), ""); }

Tree treeOf(const std::string& folder) {
    Tree tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_directory()) continue;
        const std::string name = entry.path().string().substr(folder.size() + 1);
        const bool isMovie = name.ends_with(".mov") || name.ends_with(".rename");
        const std::string bytes = kit::bytesAt(entry.path(), 0, entry.file_size());
        tree[name] = isMovie ? shownOf(bytes) : bytes;
    }
    return tree;
}

std::string changeOf(const Tree& before, const Tree& after) {
    std::string change;
    for (const auto& [name, bytes] : before) {
        const auto now = after.find(name);
        if (now == after.end()) {
            change += name + " is missing. ";
        } else if (now->second != bytes) {
            change += name + " is another. ";
        }
    }
    for (const auto& [name, bytes] : after)
        change += before.contains(name) ? "" : name + " is new. ";
    return change;
}

std::string faultOfMove(const Tree& before, const Tree& after, const std::vector<std::string>& oldNames,
                        const std::vector<std::string>& names) {
    std::string fault;
    const auto isIn = [](const std::vector<std::string>& list, const std::string& name) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    for (unsigned i = 1; i < names.size(); ++i) {
        const auto file = after.find(names[i]);
        if (file == after.end() || file->second != essence(i - 1)) fault += names[i] + " isn't what was recorded. ";
    }
    for (const auto& [name, bytes] : before) {
        const auto now = after.find(name);
        const bool isThere = now != after.end();
        const bool isMovies = isIn(oldNames, name);
        if (isMovies && isThere && !isIn(names, name)) fault += name + " is left. ";
        if (!isMovies && (!isThere || now->second != bytes)) fault += name + " isn't as it was. ";
    }
    if (after.size() != before.size()) fault += std::to_string(after.size()) + " files. ";
    return fault;
}

}  // namespace refmovies
