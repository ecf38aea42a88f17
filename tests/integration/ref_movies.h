#pragma once

#include <atomic>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "services/file/file_calls.h"
#include "shared/include/object/media_obj.h"

// Movies with their samples in files beside them.
namespace refmovies {

constexpr unsigned s_samples = 300, s_sampleSize = 4;  // of a clip

// A movie of sound tracks, with all samples and still open. Each clip is a media file; of a plain movie each track is.
// Folders are made. Null is a failure of the test.
MediaObj* startRecording(const std::string& path, const std::vector<unsigned>& clipsOfTracks);
MediaObj* startRecording(const std::string& path, unsigned files);
// The same, finished and released.
void record(const std::string& path, const std::vector<unsigned>& clipsOfTracks);
void record(const std::string& path, unsigned files);
// What is in a file.
std::string essence(unsigned file);
std::string allEssence(unsigned files);
// Reads all clips of the object. Answers what is wrong with the first that isn't as it was recorded.
std::string faultOf(const MediaObj& movie);
void expectSamples(const MediaObj& movie);

// The files below a folder with their bytes. Of a movie file it is its length and what its readers come to, wherever in
// the file its index stands: a change that is taken back may leave other bytes in the place that isn't in use.
using Tree = std::map<std::string, std::string>;
Tree treeOf(const std::string& folder);
// What isn't as it was; empty when all is.
std::string changeOf(const Tree& before, const Tree& after);
// What is wrong where a movie's media files have got those names, or kept them: one isn't there as it was recorded, one
// is left at its old name or lost, or somebody else's file isn't as it was. Old names are the movie's own too.
std::string faultOfMove(const Tree& before, const Tree& after, const std::vector<std::string>& oldNames,
                        const std::vector<std::string>& names);

// Lets calls of a kind fail while it stands: that of a number, from 1, and so many in all.
class NthFault {
public:
    NthFault(FileCall call, unsigned number, unsigned count = 1) {
        s_call = call;
        s_first = number;
        s_count = count;
        s_seen = 0;
        FileCalls::setFault(&strike);
    }
    ~NthFault() { FileCalls::setFault(nullptr); }
    NthFault(const NthFault&) = delete;
    NthFault& operator=(const NthFault&) = delete;
    static bool hasStruck() { return s_seen >= s_first; }

private:
    static int strike(FileCall call, const char*, int, std::size_t&) {
        if (call != s_call) return 0;
        const unsigned now = ++s_seen;
        return now >= s_first && now - s_first < s_count ? EIO : 0;
    }
    static inline std::atomic<FileCall> s_call{FileCall::Stat};
    static inline std::atomic<unsigned> s_first{0}, s_count{0}, s_seen{0};
};

}  // namespace refmovies
