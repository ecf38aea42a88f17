// Renames of a movie with a hundred media files, beside rename(2) of as many files: into another folder, where the
// media keep their names, and beside, where each gets a new one. First of a movie that stores no references, so that
// only files are moved; then of one whose file is rewritten with each of them, also beside the calls that this takes at
// least.

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
std::vector<std::string> writeFiles(const bench::Folder& folder, const std::string& name,
                                    const std::string& movie = "movie.none", const std::string& bytes = "bytes") {
    std::filesystem::create_directories(folder.path(name + "/one"));
    std::filesystem::create_directories(folder.path(name + "/two"));
    std::vector<std::string> paths = {folder.path(name + "/one/" + movie)};
    for (unsigned i = 0; i < s_media; ++i)
        paths.push_back(folder.path(name + "/one/take" + std::to_string(i) + ".wav"));
    for (const std::string& path : paths) {
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const std::string& content = path == paths.front() ? bytes : "bytes";
        const auto size = static_cast<ssize_t>(content.size());
        if (fd < 0 || ::write(fd, content.data(), content.size()) != size) bench::fail("write", path);
        ::close(fd);
    }
    return paths;
}

// Goes to and fro between two names, a call a way.
class Ours {
public:
    Ours(const bench::Folder& folder, const std::string& name, const char* other, bool renameMedia)
        : Ours(FileMovie::make(writeFiles(folder, name)), folder.path(name + "/one/movie.none"),
               folder.path(name + other), renameMedia) {}
    // Takes: the reference.
    Ours(MediaObj* movie, const std::string& one, const std::string& other, bool renameMedia)
        : m_movie(movie), m_names{one, other}, m_renameMedia(renameMedia) {}
    ~Ours() { m_movie->release(); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;

    void operator()() {
        m_at = 1 - m_at;
        const OpResult result = m_movie->rename(m_names[m_at].c_str(), m_renameMedia, nullptr);
        if (!result) bench::fail("rename", result.describe().get());
    }

private:
    MediaObj* const m_movie;
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
        (*this)([](unsigned) {});
    }
    // With something to do behind each file.
    template <class Then>
    void operator()(Then then) {
        for (unsigned i = 0; i <= s_media; ++i) {
            if (::rename(m_paths[m_at][i].c_str(), m_paths[1 - m_at][i].c_str()) != 0)
                bench::fail("rename", m_paths[m_at][i]);
            then(i);
        }
        m_at = 1 - m_at;
    }

private:
    std::vector<std::string> m_paths[2];
    unsigned m_at = 0;
};

std::string number(std::uint64_t value, unsigned bytes) {
    std::string text;
    for (unsigned i = bytes; i-- > 0;)
        text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
}
std::string atom(const char* type, const std::string& body) { return number(body.size() + 8, 4) + type + body; }
std::string list(const char* type, const std::string& entries, unsigned count = 1) {
    return atom(type, number(0, 4) + number(count, 4) + entries);
}

// A movie file with a track for each media file.
std::string movieBytes() {
    const std::string entry = atom(
        "sowt", number(1, 8) + number(0, 8) + number(2, 2) + number(16, 2) + number(0, 4) + number(48000u << 16, 4));
    const std::string tables = list("stsd", entry) + list("stts", number(1, 4) + number(1, 4)) +
                               list("stsc", number(1, 4) + number(1, 4) + number(1, 4)) +
                               atom("stsz", number(0, 4) + number(4, 4) + number(1, 4)) + list("stco", number(0, 4));
    std::string tracks;
    for (unsigned i = 0; i < s_media; ++i) {
        const std::string head = atom("tkhd", std::string(12, 0) + number(i + 1, 4) + std::string(68, 0));
        const std::string media = atom("mdhd", std::string(12, 0) + number(48000, 4) + number(1, 4) + number(0, 4)) +
                                  atom("hdlr", number(0, 8) + "soun" + std::string(13, 0));
        const std::string name = "take" + std::to_string(i) + ".wav" + std::string(1, 0);
        const std::string files = atom("dinf", list("dref", atom("url ", number(0, 4) + name)));
        tracks += atom("trak", head + atom("mdia", media + atom("minf", files + atom("stbl", tables))));
    }
    return atom("ftyp", "qt  " + number(0, 4)) +
           atom("moov", atom("mvhd", std::string(12, 0) + number(1000, 4) + std::string(84, 0)) + tracks);
}

MediaObj* openMovie(const bench::Folder& folder, const std::string& name) {
    OpResult result;
    const std::string path = writeFiles(folder, name, "movie.mov", movieBytes()).front();
    MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, result);
    if (movie == nullptr) bench::fail("open", result.describe().get());
    return movie;
}

// The least that an index takes which is on the disk before anything leads to it: with each file, a piece of it, a
// flush, four bytes that lead there, and another flush, before the next piece goes where the last index stood.
class BareRewriting {
public:
    BareRewriting(const bench::Folder& folder, const std::string& name) : m_bare(folder, name) {
        const std::string path = folder.path(name + "/index");
        m_fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        const std::string index(s_index, 'i');
        if (m_fd < 0 || ::pwrite(m_fd, index.data(), index.size(), 0) != s_index) bench::fail("write", path);
    }
    ~BareRewriting() { ::close(m_fd); }
    BareRewriting(const BareRewriting&) = delete;
    BareRewriting& operator=(const BareRewriting&) = delete;

    void operator()() {
        m_bare([this](unsigned file) {
            const off_t at = static_cast<off_t>(file % 2 * s_index / 2 + file * s_piece);
            put(at, s_piece);
            put(0, 4);
        });
    }

private:
    static constexpr unsigned s_piece = 200, s_index = 2 * 101 * s_piece;  // bytes

    void put(off_t at, unsigned size) const {
        char bytes[s_piece] = {};
        const bool isDone = ::pwrite(m_fd, bytes, size, at) == static_cast<ssize_t>(size) && ::fdatasync(m_fd) == 0;
        if (!isDone) bench::fail("write", "the index");
    }

    Bare m_bare;
    int m_fd = -1;
};

void tellCalls(const char* how, Ours& ours) {
    const bench::SystemCalls calls = bench::countSystemCalls([&ours] { ours(); }, [&ours] { ours(); });
    if (!calls.m_counted) return;
    std::printf("rename of a movie with %u media files %s: %ld system calls\n", s_media, how, calls.m_calls);
}

// There and back, once: most of it is waiting for the disk.
template <class Work>
std::function<double()> thereAndBack(double (*clock)(), Work& work) {
    return [clock, &work] {
        const double begin = clock();
        work();
        work();
        return (clock() - begin) / 2;
    };
}

void measureRewriting(const bench::Options& options, const bench::Folder& folder) {
    const auto make = [&folder](const std::string& name) {
        return std::make_unique<Ours>(openMovie(folder, name), folder.path(name + "/one/movie.mov"),
                                      folder.path(name + "/two/movie.mov"), false);
    };
    const std::unique_ptr<Ours> ours = make("rewritten");
    Bare bare(folder, "bare beside");
    BareRewriting least(folder, "least"), same(folder, "least again");
    for (const bool isWall : {true, false}) {
        double (*const clock)() = isWall ? bench::wallSeconds : bench::threadSeconds;
        bench::Rounds all(options);
        all.add("ours", thereAndBack(clock, *ours));
        all.add("bare", thereAndBack(clock, bare));
        all.add("least", thereAndBack(clock, least));
        all.add("least again", thereAndBack(clock, same));
        all.run("least", "least again");
        const std::string what =
            isWall ? "a movie file of 100 media files, time on the clock" : "the same, processor time";
        all.tell(what + ", beside rename(2) of 101", "ours", "bare", "none");
        all.tell(what + ", beside rename(2) and the least of writes and flushes", "ours", "least", "3");
    }
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
    MediaObj* const file = openMovie(folder, "counted file");
    Ours countedFile(file, folder.path("counted file/one/movie.mov"), folder.path("counted file/two/movie.mov"), false);
    tellCalls("that its file names", countedFile);

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
    measureRewriting(options, folder);
    return 0;
}
