// Renames of a movie with a hundred media files, beside rename(2) of as many files: into another folder, where the
// media keep their names, and beside, where each gets a new one.

#include <cstdio>

#include "bench/clip_movie.h"
#include "bench/movie_kit.h"
#include "bench/system_calls.h"

namespace {

constexpr unsigned s_media = 100;

class FileClip final : public MediaClipDesc {
public:
    FileClip(MediaTrackDesc& track, unsigned index, MediaIdRec* id)
        : MediaClipDesc(MediaContainment::ByRef), m_track(track), m_index(index) {
        m_mediaId = id;
        m_encoding = MediaEncodingType::Pcm;
    }

    unsigned getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return nullptr; }
    unsigned getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override { return m_track; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    MediaOffsetLookup* getLookup() override { return nullptr; }
    const MediaOffsetLookup* getLookup() const override { return nullptr; }

private:
    MediaTrackDesc& m_track;  // borrowed: the owner
    const unsigned m_index;
};

class FileTrack final : public MediaTrackDesc {
public:
    FileTrack(MediaObj& movie, unsigned index, MediaIdRec* id)
        : MediaTrackDesc(MediaDataType::Audio), m_movie(movie), m_index(index), m_clip(*this, 0, id) {}

    using MediaTrackDesc::createClip;
    MediaClipDesc* createClip(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    MediaObj& getObj() override { return m_movie; }
    const MediaObj& getObj() const override { return m_movie; }
    unsigned getClipCount() const override { return 1; }
    MediaClipDesc* getClip(unsigned) override { return &m_clip; }
    const MediaClipDesc* getClip(unsigned) const override { return &m_clip; }
    unsigned getTrackIndex() const override { return m_index; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

private:
    MediaObj& m_movie;  // borrowed: the owner
    const unsigned m_index;
    FileClip m_clip;
};

// A movie of that many tracks, each in a file of its own. It stores no references, so that only files are moved.
class FileMovie final : public MediaObj {
public:
    // Gives: one reference.
    static FileMovie* make(const std::vector<std::string>& paths) { return new FileMovie(paths); }

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    MediaTrackDesc* getTrackAt(unsigned index) override { return m_tracks[index].get(); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return m_tracks[index].get(); }
    MediaTrackDesc* createTrack(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }

private:
    explicit FileMovie(const std::vector<std::string>& paths) : MediaObj(0, CacheRefValue::None) {
        getDesc()->init(MediaFileType::Data, 48000, true, MediaEncodingType::Pcm, MediaVideoRate::Pal25);
        for (const std::string& path : paths) {
            MediaIdRec* const id = allocMediaId(path.c_str());
            if (&path == &paths.front()) continue;
            m_tracks.push_back(std::make_unique<FileTrack>(*this, getTrackCount(), id));
        }
    }

    std::vector<std::unique_ptr<FileTrack>> m_tracks;
};

// The movie, and its media beside it.
std::vector<std::string> writeFiles(const bench::Folder& folder, const std::string& name) {
    std::filesystem::create_directories(folder.path(name + "/one"));
    std::filesystem::create_directories(folder.path(name + "/two"));
    std::vector<std::string> paths = {folder.path(name + "/one/movie.none")};
    for (unsigned i = 0; i < s_media; ++i)
        paths.push_back(folder.path(name + "/one/take" + std::to_string(i) + ".wav"));
    for (const std::string& path : paths) {
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0 || ::write(fd, "bytes", 5) != 5) bench::fail("write", path);
        ::close(fd);
    }
    return paths;
}

// Goes to and fro between two names, a call a way.
class Ours {
public:
    Ours(const bench::Folder& folder, const std::string& name, const char* other, bool renameMedia)
        : m_movie(FileMovie::make(writeFiles(folder, name))),
          m_names{folder.path(name + "/one/movie.none"), folder.path(name + other)},
          m_renameMedia(renameMedia) {}
    ~Ours() { m_movie->release(); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;

    void operator()() {
        m_at = 1 - m_at;
        const OpResult result = m_movie->rename(m_names[m_at].c_str(), m_renameMedia, nullptr);
        if (!result) bench::fail("rename", result.describe().get());
    }

private:
    FileMovie* const m_movie;
    const std::string m_names[2];
    const bool m_renameMedia;
    unsigned m_at = 0;
};

class Bare {
public:
    Bare(const bench::Folder& folder, const std::string& name) {
        m_paths[0] = writeFiles(folder, name);
        for (std::string path : m_paths[0])
            m_paths[1].push_back(path.replace(path.find("/one/"), 5, "/two/"));
    }

    void operator()() {
        for (unsigned i = 0; i <= s_media; ++i) {
            if (::rename(m_paths[m_at][i].c_str(), m_paths[1 - m_at][i].c_str()) != 0)
                bench::fail("rename", m_paths[m_at][i]);
        }
        m_at = 1 - m_at;
    }

private:
    std::vector<std::string> m_paths[2];
    unsigned m_at = 0;
};

void tellCalls(const char* how, Ours& ours) {
    const bench::SystemCalls calls = bench::countSystemCalls([&ours] { ours(); }, [&ours] { ours(); });
    if (!calls.m_counted) return;
    std::printf("rename of a movie with %u media files %s: %ld system calls\n", s_media, how, calls.m_calls);
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    // First, while there is no other thread, and with files of their own: a process of its own moves them.
    Ours counted(folder, "counted", "/two/movie.none", false);
    tellCalls("into another folder", counted);
    Ours countedNames(folder, "counted names", "/one/other.none", true);
    tellCalls("with a new name for each", countedNames);

    Ours moved(folder, "moved", "/two/movie.none", false);
    Ours named(folder, "named", "/one/other.none", true);
    Bare bare(folder, "bare"), same(folder, "same");
    bench::Rounds all(options);
    all.addCall("moved", bench::threadSeconds, [&moved] { moved(); });
    all.addCall("named", bench::threadSeconds, [&named] { named(); });
    all.addCall("bare", bench::threadSeconds, [&bare] { bare(); });
    all.addCall("bare again", bench::threadSeconds, [&same] { same(); });
    all.run("bare", "bare again");
    all.tell("rename of a movie with 100 media files beside rename(2) of 101", "moved", "bare", "3");
    all.tell("the same with a new name for each", "named", "bare", "3");
    return 0;
}
