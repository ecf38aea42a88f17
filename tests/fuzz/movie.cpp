#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "backends/mov/mov_media_obj.h"
#include "backends/mov/mov_reference_editor.h"
#include "backends/mov/mov_user_data_editor.h"
#include "services/system/log.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/kit/fake_file.h"

// A movie file as a client has it: opened, asked for all that it tells, read, and its references led elsewhere and its
// clip properties changed. Whatever the bytes are: a sentence, or a movie whose answers fit one another.

namespace {

using fuzz::require;

// A line of the log is a line, whatever it quotes.
class LineChecker : public LogSink {
public:
    void write(const LogMessage& message) override {
        for (std::size_t i = 0; i < message.m_length; ++i)
            require(static_cast<unsigned char>(message.m_text[i]) >= 0x20 || message.m_text[i] == '\t');
    }
};

std::unique_ptr<MovMediaObj> open(AutoRefPtr<BasicFileIO> file) {
    OpResult result;
    std::unique_ptr<MovMediaObj> movie(static_cast<MovMediaObj*>(MovMediaObj::openFile(file, result)));
    require((movie != nullptr) == result.success());
    require(movie != nullptr ||
            (result.getMessage() != nullptr && std::string(result.getMessage()).rfind("mov: ", 0) == 0));
    result.discard();
    return movie;
}

// Samples that are small enough are read as well.
void read(const MovMediaObj& movie, const MediaClipDesc& clip, const MediaSampleInMovie& where) {
    constexpr unsigned most = 4096;
    if (where.m_info.getSize() > most || clip.getMediaId() != movie.getMediaId(0)) return;
    MediaSampleBuf buffer(clip);
    movie.vsRead(where, buffer).discard();
}

void lookUp(const MovMediaObj& movie, const MovClip& clip, unsigned long long sample, unsigned count) {
    OpResult result;
    MediaSampleInMovie where, told;
    MovSampleTime time;
    const bool found = clip.getMediaOffset(MediaPlayReq(sample, count), where, result);
    require(!found || (result.success() && where.m_numChunks >= 1 && where.m_numChunks <= 2));
    require(!found || where.m_frameN || (where.m_count >= 1 && where.m_count <= std::max(count, 1u)));
    result.discard();
    if (found && !where.m_frameN) read(movie, clip, where);
    const bool isTold = clip.getFrameInfo(MediaPlayReq(sample, count), told, result);
    require(isTold == found && (!found || told.m_anchor <= sample));
    result.discard();
    (void)clip.getMovLookup().getSampleTime(sample, time);
    (void)clip.getSampleAndCount(std::min(sample, 1ull << 40));
}

void ask(const MovMediaObj& movie, const MovClip& clip) {
    const unsigned long long length = clip.getLength();
    (void)clip.getParamId();
    (void)clip.getEdit(0)->getLength();
    require(clip.getMediaId() == nullptr || movie.getMediaIndex(clip.getMediaId()) < movie.getMediaCount());
    const unsigned long long last = length != 0 ? length - 1 : 0;
    for (const unsigned long long sample : {0ull, 1ull, length / 2, last, length, ~0ull}) {
        lookUp(movie, clip, sample, 1);
        lookUp(movie, clip, sample, 100);
        lookUp(movie, clip, sample, 0xFFFFFFFF);
    }
}

void ask(const MovMediaObj& movie) {
    constexpr unsigned mostClips = 8;
    (void)movie.getTimecode().toString();
    (void)movie.getMaxLength();
    (void)movie.getFrameLength();
    (void)movie.getVideoSequenceCoding();
    (void)movie.getMoviePrecharge();
    (void)movie.getUserDataMovie();
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        const MediaTrackDesc& track = *movie.getTrackAt(i);
        (void)track.getMaxTime();
        require(track.getClipCount() >= 1);
        for (unsigned c = 0; c < std::min(track.getClipCount(), mostClips); ++c)
            ask(movie, static_cast<const MovClip&>(*track.getClip(c)));
    }
}

// Where a sample of the track's first clip lies, or all ones.
unsigned long long placeOf(const MovMediaObj& movie, unsigned track, unsigned long long sample) {
    const MediaClipDesc& clip = *movie.getTrackAt(track)->getClip(0);
    MediaSampleInMovie where;
    OpResult result;
    const bool found = sample < clip.getLength() && clip.getMediaOffset(MediaPlayReq(sample, 1), where, result);
    result.discard();
    return found && !where.m_frameN ? where.m_chunks[0].m_offset : ~0ull;
}

// The file has only grown: what was there is there.
void requireSame(const MovMediaObj& before, const MovMediaObj& after) {
    require(after.getTrackCount() == before.getTrackCount());
    for (unsigned i = 0; i < before.getTrackCount(); ++i) {
        for (const unsigned long long sample : {0ull, before.getTrackAt(i)->getClip(0)->getLength() / 2}) {
            const unsigned long long place = placeOf(before, i, sample);
            require(place == ~0ull || placeOf(after, i, sample) == place);
        }
    }
}

// The file of a process, in memory where there is such a folder.
const std::string& scratchPath() {
    static const std::string path = [] {
        const char* const memory = "/dev/shm";
        const std::string folder =
            std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path().string();
        return folder + "/fuzz_movie." + std::to_string(::getpid()) + ".mov";
    }();
    return path;
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// The bytes in memory under that path.
AutoRefPtr<BasicFileIO> scratchFile(const std::string& bytes) {
    auto* file = new kit::FakeFile();
    file->m_content = bytes;
    file->m_path = scratchPath();
    return AutoRefPtr<BasicFileIO>(file);
}

bool hasMedia(const MovMediaObj& movie, const std::string& path) {
    for (unsigned i = 1; i < movie.getMediaCount(); ++i) {
        if (movie.getPath(movie.getMediaId(i)) == path) return true;
    }
    return false;
}

// A movie whose references change keeps its samples, and another one finds the new path in it.
void lead(const std::string& bytes, const std::string& to) {
    std::ofstream(scratchPath(), std::ios::binary) << bytes;
    const std::unique_ptr<MovMediaObj> before = open(scratchFile(bytes));
    MovReferenceEditor editor(scratchPath());
    OpResult result = editor.read();
    if (result && editor.lead(before->getPath(before->getMediaId(1)), to)) {
        const bool hadOther = !hasMedia(*before, to);
        result = editor.write(scratchPath());
        const std::string changed = bytesOf(scratchPath());
        const std::unique_ptr<MovMediaObj> after = open(scratchFile(changed));
        require(after != nullptr);
        requireSame(*before, *after);
        if (result) require(hadOther && hasMedia(*after, to));
    }
    result.discard();
    std::remove(scratchPath().c_str());
}

// A movie that gets other clip properties keeps its samples, and another one reads them.
void nameProperties(const std::string& bytes) {
    std::ofstream(scratchPath(), std::ios::binary) << bytes;
    MovUserDataEditor editor(scratchPath());
    OpResult result = editor.put(movCode("CPRP"), {0, 0, 0, 11, 'C', 'P', 'R', 'P', 't', 'w', 'o'});
    const std::unique_ptr<MovMediaObj> before = open(scratchFile(bytes));
    const std::unique_ptr<MovMediaObj> after = open(scratchFile(bytesOf(scratchPath())));
    require(after != nullptr);
    requireSame(*before, *after);
    const char* const names = after->getClipProperties();
    require(!result || (names != nullptr && std::string(names) == "two"));
    result.discard();
    std::remove(scratchPath().c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static LineChecker log;
    setLogSink(&log);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::unique_ptr<MovMediaObj> movie = open(scratchFile(bytes));
    if (movie == nullptr) return 0;
    ask(*movie);
    if (movie->getMediaCount() > 1) lead(bytes, "/nowhere/else/take 2.raw");
    if (movie->getUserDataMovie() != nullptr) nameProperties(bytes);
    return 0;
}
