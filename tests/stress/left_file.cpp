#include "tests/stress/left_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>

#include "backends/dv/dv_system.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"
#include "tests/kit/temp_tree.h"
#include "tests/stress/film_picture.h"

namespace stress {

namespace {

constexpr unsigned s_atOnce = 1000;  // samples

std::uint64_t sizeOfFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t numberAt(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count && at + i < bytes.size(); ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// The sizes of each track of the first `moov` that the file leads to.
Told toldByMovie(const std::string& path) {
    const std::uint64_t length = sizeOfFile(path);
    Told told;
    for (std::uint64_t at = 0, size = 0; at + 16 <= length; at += size) {
        const std::string head = kit::bytesAt(path, at, 16);
        size = numberAt(head, 0, 4);
        if (size == 1) size = numberAt(head, 8, 8);
        if (size < 8) return told;  // to the end of the file, or no atom
        if (head.compare(4, 4, "moov") != 0) continue;
        const std::string movie = kit::bytesAt(path, at, size);
        for (std::size_t sizes = 0; (sizes = movie.find("stsz", sizes)) != std::string::npos; sizes += 4)
            told.push_back(numberAt(movie, sizes + 12, 4));
        return told;
    }
    return told;
}

// By the last number of the header of such a length.
Told toldByHeader(const std::string& path, bool isWav) {
    const unsigned size = isWav ? 104 : 26;
    const std::string head = kit::bytesAt(path, 0, isWav ? size : 54);
    if (head.size() < size || (!isWav && head.size() < 54)) return {};
    std::string number = head.substr(size - 4, 4);
    if (isWav) std::reverse(number.begin(), number.end());
    return {numberAt(number, 0, 4) / (isWav ? s_soundSize : 1)};
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Compares all that is to be had of a track.
class Comparison {
public:
    Comparison(const MediaObj& movie, const std::string& path, Kind kind, unsigned track)
        : m_movie(movie), m_path(path), m_kind(kind), m_track(track), m_clip(*movie.getTrackAt(track)->getClip(0)) {}

    // With what the edit skips, and what lies behind its end.
    unsigned long long samples() const { return skipped() + m_clip.getLength() + m_clip.getRollout(); }
    unsigned long long skipped() const { return m_clip.getEditCount() != 0 ? m_clip.getEdit(0)->getIn() : 0; }

    std::string fault() const {
        if (typeOf(m_kind) != MediaFileType::QuickTime) return faultInOnePiece();
        for (unsigned long long sample = 0; sample < samples();) {
            const auto count = static_cast<unsigned>(std::min<unsigned long long>(samples() - sample, s_atOnce));
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            OpResult result;
            const bool isFound = m_clip.getMediaOffset(MediaPlayReq(sample, count), where, result);
            if (isFound) result = m_movie.vsRead(where, buffer);
            if (!isFound || !result) return faultAt(sample, result.describe().get());
            if (where.m_count == 0 || where.m_count > count) return faultAt(sample, "another count");
            if (kit::bytesOf(buffer) != essence(m_kind, m_track, sample, where.m_count))
                return faultAt(sample, "not what was recorded");
            if (hasPictures() && !isOfItsKind(sample)) return faultAt(sample, "of another kind");
            sample += where.m_count;
        }
        return "";
    }

private:
    bool hasPictures() const { return isFilm(m_kind) && m_track == 0; }
    // As they lie in the file, where nothing else can lie between them.
    std::string faultInOnePiece() const {
        const std::size_t size = samples() * sizeOf(m_kind);
        const std::string bytes = kit::bytesAt(m_path, m_clip.getLookup()->getBaseOffset(), size);
        const bool isRight = bytes == essence(m_kind, m_track, 0, static_cast<unsigned>(samples()));
        return isRight ? "" : faultAt(0, "or one behind it: not what was recorded");
    }
    bool isOfItsKind(unsigned long long sample) const {
        MediaSampleInMovie where;
        OpResult result;
        const bool isFound = m_clip.getFrameInfo(MediaPlayReq(sample, 1), where, result);
        result.discard();
        return isFound && where.m_info.getEncoding() == filmpicture::codingOf(sample);
    }
    std::string faultAt(unsigned long long sample, const std::string& what) const {
        return "track " + std::to_string(m_track) + ", sample " + std::to_string(sample) + ": " + what;
    }

    const MediaObj& m_movie;
    const std::string& m_path;
    const Kind m_kind;
    const unsigned m_track;
    const MediaClipDesc& m_clip;
};

std::string faultOf(const MediaObj& movie, const std::string& path, Kind kind, const Told& told,
                    unsigned long long& samples) {
    for (unsigned i = 0; i < told.size(); ++i) {
        const bool isThere = i < movie.getTrackCount() && movie.getTrackAt(i)->getClipCount() == 1;
        if (!isThere && told[i] == 0) continue;
        if (!isThere) return "a track is missing";
        const Comparison comparison(movie, path, kind, i);
        const bool isCut = isFilm(kind) && i == 0;
        // A film whose edit skips all that is told of shows nothing.
        if (isCut && told[i] <= s_skipped && comparison.samples() == 0) continue;
        // While a header tells of nothing, what is there counts.
        if (told[i] != 0 && comparison.samples() != told[i])
            return std::to_string(comparison.samples()) + " samples of " + std::to_string(told[i]);
        if (isCut && told[i] > s_skippedAfter && comparison.skipped() != s_skipped) return "the edit is missing";
        const std::string fault = comparison.fault();
        if (!fault.empty()) return fault;
        samples += comparison.samples();
    }
    return "";
}

}  // namespace

Told toldBy(const std::string& path, Kind kind) {
    if (typeOf(kind) == MediaFileType::QuickTime) return toldByMovie(path);
    if (kind != Kind::Dv) return toldByHeader(path, kind == Kind::Wav);
    // A stream has no other header than its length.
    const unsigned long long frames = sizeOfFile(path) / sizeOf(kind);
    return frames != 0 ? Told{frames} : Told{};
}

std::string faultOf(const std::string& path, Kind kind, const Told& least, unsigned long long& samples) {
    const Told told = toldBy(path, kind);
    bool isLess = told.size() < least.size();
    for (std::size_t i = 0; !isLess && i < least.size(); ++i)
        isLess = told[i] < least[i];
    if (isLess) return "it tells of fewer samples than it did";
    if (told.empty()) return "";  // killed before it told of any
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    const std::string reason = result.describe().get();
    result.discard();
    if (movie == nullptr) return reason;
    const std::string fault = faultOf(*movie, path, kind, told, samples);
    movie->release();
    return fault;
}

std::string faultByFfmpeg(const std::vector<std::string>& paths, Kind kind) {
    const kit::TempTree tree;
    std::vector<std::string> command = {"ffmpeg", "-v", "warning"}, outputs;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        command.insert(command.end(), {"-enable_drefs", "1", "-i", paths[i]});
        const std::string file = std::to_string(i);
        for (unsigned track = 0; track < tracksOf(kind); ++track) {
            const std::string name = file + ":" + std::to_string(track);
            outputs.insert(outputs.end(), {"-map", name, "-c", "copy", "-f", "data", "file:" + tree.path(name)});
        }
        if (!isFilm(kind)) continue;
        outputs.insert(outputs.end(), {"-map", file + ":0", "-fps_mode", "passthrough", "-f", "framecrc", "-fflags",
                                       "+bitexact", "file:" + tree.path(file)});
    }
    command.insert(command.end(), outputs.begin(), outputs.end());
    const kit::Outcome outcome = kit::run(command);
    if (!outcome.good() || !outcome.m_err.empty()) return "ffmpeg says: " + outcome.m_err;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const Told told = toldBy(paths[i], kind);
        for (unsigned track = 0; track < told.size(); ++track) {
            const std::string name = std::to_string(i) + ":" + std::to_string(track);
            if (contentOf(tree.path(name)) != essence(kind, track, 0, static_cast<unsigned>(told[track])))
                return paths[i] + ", track " + std::to_string(track) + ": ffmpeg finds other samples";
        }
        if (!isFilm(kind)) continue;
        std::ifstream pictures(tree.path(std::to_string(i)));
        unsigned long long shown = 0;
        for (std::string line; std::getline(pictures, line);)
            shown += line[0] != '#' ? 1 : 0;
        if (shown != told[0] - s_skipped)
            return paths[i] + ": ffmpeg shows " + std::to_string(shown) + " pictures of " + std::to_string(told[0]);
    }
    return "";
}

}  // namespace stress
