#include <gtest/gtest.h>

#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "backends/mov/mov_atoms.h"
#include "backends/mov/mov_reference_editor.h"
#include "backends/mov/mov_references.h"
#include "services/file/file_calls.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"
#include "tests/unit/backends/mov_fixture.h"
#include "tests/unit/backends/mov_seen.h"

// Movies that refer to many files, made atom by atom, and what a rename does to their own.

using namespace MovKit;
namespace fs = std::filesystem;

namespace {

const std::string s_nul(1, '\0');
constexpr unsigned s_samples = 10, s_size = 4;

// Counts the calls of each kind while it stands.
class CallCount {
public:
    CallCount() {
        for (auto& count : s_counts)
            count = 0;
        FileCalls::setFault(&note);
    }
    ~CallCount() { FileCalls::setFault(nullptr); }
    CallCount(const CallCount&) = delete;
    CallCount& operator=(const CallCount&) = delete;
    static unsigned of(FileCall call) { return s_counts[static_cast<std::size_t>(call)]; }

private:
    static int note(FileCall call, const char*, int, std::size_t&) {
        ++s_counts[static_cast<std::size_t>(call)];
        return 0;
    }
    static inline std::array<std::atomic<unsigned>, 32> s_counts{};
};

// Lets each write come in pieces, and looks at the movie in front of each: whole it is, with so many tracks.
class InPieces {
public:
    InPieces(const std::string& path, std::size_t tracks) {
        s_path = path;
        s_tracks = tracks;
        s_looks = 0;
        s_error.clear();
        FileCalls::setFault(&look);
    }
    ~InPieces() { FileCalls::setFault(nullptr); }
    InPieces(const InPieces&) = delete;
    InPieces& operator=(const InPieces&) = delete;

    static inline std::string s_path, s_error;
    static inline unsigned s_looks = 0;

private:
    static int look(FileCall call, const char*, int, std::size_t& size) {
        if (call != FileCall::Write) return 0;
        size = size > 16 ? size / 2 : 1;
        ++s_looks;
        const MovSeen seen = MovSeen::of(s_path);
        if (!s_error.empty()) return 0;
        s_error = seen.m_error;
        if (seen.m_moovs == 0) s_error = "no index";
        if (seen.m_moovs != 0 && seen.m_tracks.size() != s_tracks) s_error = "not all tracks";
        return 0;
    }
    static inline std::size_t s_tracks = 0;
};

std::string url(const std::string& path) { return full("url ", path + s_nul); }

Track trackIn(const std::string& reference, unsigned id = 1) {
    Track track;
    track.m_id = id;
    track.m_scale = 25;
    track.m_duration = s_samples;
    track.m_references = reference;
    track.m_tables = plainTables(s_samples, s_size, 1, 0);
    return track;
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class MovReferenceTest : public kit::CacheScene {
protected:
    std::string essence(const std::string& name) { return kit::patternFrom(std::hash<std::string>()(name) % 199, 40); }
    void writeMedia(const std::string& name) { m_tree.write(name, essence(name.substr(name.rfind('/') + 1))); }
    // A movie of a track for each reference.
    std::string writeMovie(const std::string& name, const std::vector<std::string>& references) {
        std::vector<std::string> tracks;
        for (const std::string& reference : references)
            tracks.push_back(trackIn(reference, static_cast<unsigned>(tracks.size()) + 1).build());
        return m_tree.write(name, head() + movie(tracks));
    }
    // One of so many files, each named in a track.
    std::string writeMovieOf(const std::string& folder, unsigned files) {
        std::vector<std::string> references;
        for (unsigned i = 0; i < files; ++i) {
            writeMedia(folder + "/m" + std::to_string(i) + ".raw");
            references.push_back(url("m" + std::to_string(i) + ".raw"));
        }
        return writeMovie(folder + "/film.mov", references);
    }
    MediaObj* open(const std::string& path, MediaObj::ReadMode mode = MediaObj::ReadMode::ReadWrite) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), mode, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        return movie;
    }
    void end(MediaObj* movie) {
        movie->release(nullAgent(), true);
        expireAll();
    }
    // What a clip shows first; empty when it lies nowhere.
    std::string sampleOf(const MediaObj& movie, unsigned track, unsigned clip) {
        MediaSampleInMovie where;
        const MediaClipDesc& desc = *movie.getTrackAt(track)->getClip(clip);
        if (desc.getMediaId() == nullptr || !desc.getMediaOffset(MediaPlayReq(0, 1), where, m_result)) {
            m_result.discard();
            return "";
        }
        MediaSampleBuf buffer(desc);
        const OpResult result = movie.vsRead(where, buffer);
        return result ? std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size()) : "";
    }
    std::string nameOf(const MediaObj& movie, unsigned track, unsigned clip) {
        MediaIdRec* const id = movie.getTrackAt(track)->getClip(clip)->getMediaId();
        return id != nullptr ? fs::path(movie.getPath(id)).filename().string() : "";
    }
    void expectAllRead(const MediaObj& movie) {
        for (unsigned i = 0; i < movie.getTrackCount(); ++i)
            EXPECT_EQ(sampleOf(movie, i, 0), essence(nameOf(movie, i, 0)).substr(0, s_size)) << i;
    }
    void rename(const std::string& from, const std::string& to) {
        MediaObj* const movie = open(from);
        m_result = movie->rename(to.c_str(), false, nullptr);
        EXPECT_TRUE(m_result) << m_result.describe().get();
        expectAllRead(*movie);
        end(movie);
    }
};

}  // namespace

TEST_F(MovReferenceTest, AMovieKeepsItsSizeHoweverManyFilesMoveAndHoweverOften) {
    for (const unsigned files : {1u, 9u}) {
        SCOPED_TRACE(files);
        const std::string folder = "from" + std::to_string(files), path = writeMovieOf(folder, files);
        const std::string first = bytesOf(path), moved = m_tree.path("to/" + folder + "/film.mov");
        rename(path, moved);
        const std::string second = bytesOf(moved);
        EXPECT_LE(second.size(), 4 * first.size()) << "two more, with room";
        EXPECT_EQ(second.substr(head().size() + 8, first.size() - head().size() - 8), first.substr(head().size() + 8))
            << "somebody may read the tables that were there";
        for (unsigned i = 0; i < 3; ++i) {
            rename(moved, path);
            rename(path, moved);
        }
        const std::string last = bytesOf(moved);
        EXPECT_EQ(last.size(), second.size());
        EXPECT_EQ(MovSeen::of(moved).m_moovs, 1u);
        unsigned tables = 0;
        for (std::size_t at = second.find("stbl"); at != std::string::npos; at = second.find("stbl", at + 4)) {
            const std::size_t size =
                8 + static_cast<std::uint8_t>(second[at - 1]) + 256u * static_cast<std::uint8_t>(second[at - 2]);
            EXPECT_EQ(last.substr(at - 4, size - 8), second.substr(at - 4, size - 8)) << at;
            ++tables;
        }
        EXPECT_GE(tables, 3 * files);
    }
}

TEST_F(MovReferenceTest, AFurtherFileCostsTwoFlushesAndReadsNothingAgain) {
    m_cache.stopNews();
    unsigned reads = 0;
    for (const unsigned files : {4u, 8u}) {
        SCOPED_TRACE(files);
        const std::string folder = "from" + std::to_string(files);
        MediaObj* const movie = open(writeMovieOf(folder, files));
        const CallCount calls;
        m_result = movie->rename(m_tree.path("to/" + folder + "/film.mov").c_str(), false, nullptr);
        ASSERT_TRUE(m_result) << m_result.describe().get();
        EXPECT_EQ(CallCount::of(FileCall::Sync), 2 * (files + 1)) << "the movie's own move too";
        EXPECT_LE(CallCount::of(FileCall::Write), 4 * (files + 1));
        EXPECT_EQ(CallCount::of(FileCall::Rename), files + 2);
        EXPECT_TRUE(reads == 0 || CallCount::of(FileCall::Read) == reads) << reads;
        reads = CallCount::of(FileCall::Read);
        end(movie);
    }
}

// To a first place with room, to a second one, and from then on between the two.
TEST_F(MovReferenceTest, AMovieIsWholeAtEveryByteWhileItsReferencesChange) {
    const std::string path = writeMovieOf("from", 2);
    std::string before = m_tree.path("from/m0.raw");
    for (const char* const name : {"from/sub/a.raw", "b.raw", "from/c.raw", "from/d d.raw", "from/m0.raw"}) {
        SCOPED_TRACE(name);
        MovReferenceEditor editor(path);
        ASSERT_TRUE(editor.read());
        ASSERT_TRUE(editor.lead(before, m_tree.path(name)));
        before = m_tree.path(name);
        const InPieces watch(path, 2);
        ASSERT_TRUE(editor.write(path));
        EXPECT_EQ(InPieces::s_error, "");
        EXPECT_GT(InPieces::s_looks, 8u);
        EXPECT_EQ(MovSeen::of(path).m_moovs, 1u);
    }
    MediaObj* const movie = open(path);
    expectAllRead(*movie);
    end(movie);
}

// What is left when a process dies between the two codes: the further one is taken for the next.
TEST_F(MovReferenceTest, AMovieOfTwoIndexesGrowsNoFurther) {
    const std::string path = writeMovieOf("from", 2);
    const auto lead = [this, &path](const std::string& from, const std::string& to) {
        MovReferenceEditor editor(path);
        EXPECT_TRUE(editor.read());
        EXPECT_TRUE(editor.lead(m_tree.path(from), m_tree.path(to)));
        EXPECT_TRUE(editor.write(path));
    };
    lead("from/m0.raw", "a.raw");
    lead("a.raw", "b.raw");
    const std::size_t size = fs::file_size(path), behind = MovSeen::of(path).m_moovAt;
    lead("b.raw", "c.raw");
    ASSERT_LT(MovSeen::of(path).m_moovAt, behind);
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(static_cast<std::streamoff>(behind + 4))
        .write("moov", 4);
    lead("c.raw", "from/m0.raw");
    EXPECT_EQ(MovSeen::of(path).m_moovAt, behind);
    EXPECT_EQ(MovSeen::of(path).m_moovs, 1u);
    EXPECT_EQ(fs::file_size(path), size);
}

TEST_F(MovReferenceTest, AMovieWhoseMediaStayIsRenamedWithoutAWrite) {
    writeMedia("a/x.raw");
    const std::string path = writeMovie("a/b/film.mov", {url("file://" + m_tree.path("a/x.raw"))});
    const std::string before = bytesOf(path), moved = m_tree.path("a/c/film.mov");
    ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
    MediaObj* const movie = open(path, MediaObj::ReadMode::ReadOnly);
    {
        const CallCount calls;
        m_result = movie->rename(moved.c_str(), false, nullptr);
        EXPECT_EQ(CallCount::of(FileCall::Write), 0u);
        EXPECT_EQ(CallCount::of(FileCall::Sync), 0u);
    }
    EXPECT_TRUE(m_result) << m_result.describe().get();
    expectAllRead(*movie);
    end(movie);
    EXPECT_EQ(bytesOf(moved), before);
    MediaObj* const again = open(moved, MediaObj::ReadMode::ReadOnly);
    expectAllRead(*again);
    end(again);
}

TEST_F(MovReferenceTest, ThreeHundredTracksTakeTheirMediaAlong) {
    std::vector<std::string> references;
    for (const char* const name : {"m0.raw", "m1.raw", "last.raw"})
        writeMedia(std::string("from/") + name);
    for (unsigned i = 0; i < 300; ++i)
        references.push_back(url(i == 299 ? "last.raw" : "m" + std::to_string(i % 2) + ".raw"));
    const std::string path = writeMovie("from/film.mov", references), moved = m_tree.path("to/film.mov");
    rename(path, moved);
    EXPECT_TRUE(fs::is_empty(m_tree.path("from")));
    MediaObj* const movie = open(moved);
    ASSERT_EQ(movie->getTrackCount(), 300u);
    EXPECT_EQ(nameOf(*movie, 299, 0), "last.raw");
    expectAllRead(*movie);
    end(movie);
}

TEST_F(MovReferenceTest, ThreeHundredDescriptionsLieWhereTheirReferencesLead) {
    constexpr unsigned count = 300;
    Track track = trackIn("");
    std::string runs, chunks;
    track.m_entries.clear();
    track.m_referenceCount = count;
    for (const char* const name : {"m0.raw", "m1.raw", "last.raw"})
        writeMedia(std::string("from/") + name);
    for (unsigned i = 0; i < count; ++i) {
        track.m_references += url(i == count - 1 ? "last.raw" : "m" + std::to_string(i % 2) + ".raw");
        track.m_entries.push_back(pictureEntry("dvcp", "", i + 1));
        runs += be32(i + 1) + be32(2) + be32(i + 1);
        chunks += be32(0);
    }
    track.m_duration = count * 2;
    track.m_tables = list("stts", 1, be32(count * 2) + be32(1)) + list("stsc", count, runs) +
                     full("stsz", be32(s_size) + be32(count * 2)) + list("stco", count, chunks);
    const std::string path = m_tree.write("from/film.mov", head() + movie({track.build()}));
    const std::string moved = m_tree.path("to/film.mov");
    rename(path, moved);
    EXPECT_TRUE(fs::is_empty(m_tree.path("from")));
    MediaObj* const movie = open(moved);
    ASSERT_EQ(movie->getTrackAt(0)->getClipCount(), count);
    for (unsigned i = 0; i < count; ++i) {
        const std::string name = i == count - 1 ? "last.raw" : "m" + std::to_string(i % 2) + ".raw";
        EXPECT_EQ(nameOf(*movie, 0, i), name);
        EXPECT_EQ(sampleOf(*movie, 0, i), essence(name).substr(0, s_size)) << i;
    }
    end(movie);
}

// Neither the movie's own file nor the first one.
TEST_F(MovReferenceTest, ADescriptionOrReferenceThatIsNotThereLiesNowhere) {
    writeMedia("m0.raw");
    Track track = trackIn(url("m0.raw"));
    track.m_entries = {pictureEntry("dvcp", "", 1), pictureEntry("dvcp", "", 2)};
    track.m_tables =
        list("stts", 1, be32(6) + be32(1)) +
        list("stsc", 3, be32(1) + be32(2) + be32(1) + be32(2) + be32(2) + be32(2) + be32(3) + be32(2) + be32(7)) +
        full("stsz", be32(s_size) + be32(6)) + list("stco", 3, be32(0) + be32(0) + be32(0));
    MediaObj* const movie = open(m_tree.write("film.mov", head() + MovKit::movie({track.build()})));
    ASSERT_EQ(movie->getTrackAt(0)->getClipCount(), 3u);
    EXPECT_EQ(sampleOf(*movie, 0, 0), essence("m0.raw").substr(0, s_size));
    EXPECT_EQ(sampleOf(*movie, 0, 1), "");
    EXPECT_EQ(sampleOf(*movie, 0, 2), "");
    EXPECT_EQ(m_log.count("*leads to no file*"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count("*there is no description 7*"), 1u) << m_log.text();
    end(movie);
}

TEST_F(MovReferenceTest, AMovieOfMoreTracksThanAreShownStaysInItsFolder) {
    writeMedia("from/m0.raw");
    const std::vector<std::string> references(MovLimit::s_tracks + 1, url("m0.raw"));
    const std::string path = writeMovie("from/film.mov", references), near = m_tree.path("from/other.mov");
    MediaObj* const movie = open(path);
    EXPECT_EQ(movie->getTrackCount(), MovLimit::s_tracks);
    EXPECT_EQ(m_log.count("*the tracks behind the first 1024 aren't shown*"), 1u) << m_log.text();
    m_result = movie->rename(m_tree.path("to/film.mov").c_str(), false, nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported)) << m_result.describe().get();
    EXPECT_TRUE(fs::exists(path) && m_tree.exists("from/m0.raw"));
    EXPECT_TRUE(movie->rename(near.c_str(), false, nullptr));
    EXPECT_TRUE(fs::exists(near));
    end(movie);
}

TEST_F(MovReferenceTest, OneFileIsOneHoweverItIsSpelled) {
    m_tree.write("sub/other", "o");
    writeMedia("a.raw");
    const std::string path = writeMovie("film.mov", {url("a.raw"), url("./a.raw"), url("sub/../a.raw"),
                                                     url("file://" + m_tree.path("sub/.././a.raw"))});
    const std::string moved = m_tree.path("to/film.mov");
    MediaObj* const movie = open(path);
    EXPECT_EQ(movie->getMediaCount(), 2u);
    end(movie);
    rename(path, moved);
    EXPECT_TRUE(m_tree.exists("to/a.raw") && !m_tree.exists("a.raw"));
    MediaObj* const again = open(moved);
    EXPECT_EQ(again->getMediaCount(), 2u);
    expectAllRead(*again);
    end(again);
}

// Behind a link `..` is the folder that the link leads to.
TEST_F(MovReferenceTest, FilesThatOnlyLookLikeOneAreTwo) {
    writeMedia("a.raw");
    m_tree.write("far/a.raw", "abcdefgh" + std::string(100, 'x'));
    m_tree.write("far/inner/other", "o");
    fs::create_directory_symlink(m_tree.path("far/inner"), m_tree.path("link"));
    const std::string spelled = m_tree.path("link/../a.raw");
    EXPECT_EQ(MovReferences::straight(spelled), spelled);
    EXPECT_EQ(MovReferences::straight(m_tree.path("far/./inner//../a.raw")), m_tree.path("far/a.raw"));
    EXPECT_EQ(MovReferences::straight(m_tree.path("far/../gone.raw")), m_tree.path("gone.raw"));
    const std::string path = writeMovie("film.mov", {url("a.raw"), url("link/../a.raw")});
    MediaObj* const movie = open(path);
    EXPECT_EQ(movie->getMediaCount(), 3u);
    EXPECT_EQ(sampleOf(*movie, 0, 0), essence("a.raw").substr(0, s_size));
    EXPECT_EQ(sampleOf(*movie, 1, 0), "abcd");
    end(movie);
    MovReferenceEditor editor(path);
    ASSERT_TRUE(editor.read());
    ASSERT_TRUE(editor.lead(m_tree.path("a.raw"), m_tree.path("b.raw")));
    ASSERT_TRUE(editor.write(path));
    const std::string bytes = bytesOf(path);
    EXPECT_NE(bytes.rfind("link/../a.raw"), std::string::npos) << "the other one is left alone";
}

TEST_F(MovReferenceTest, AFileThatSomebodyElseHasWrittenIsNotWrittenOver) {
    const std::string path = writeMovieOf("from", 2);
    MovReferenceEditor ours(path), theirs(path);
    ASSERT_TRUE(ours.read() && theirs.read());
    ASSERT_TRUE(theirs.lead(m_tree.path("from/m0.raw"), m_tree.path("from/theirs.raw")));
    ASSERT_TRUE(theirs.write(path));
    EXPECT_TRUE(theirs.isCurrent(path));
    EXPECT_FALSE(ours.isCurrent(path));
    EXPECT_TRUE(theirs.lead(m_tree.path("from/theirs.raw"), m_tree.path("from/m0.raw")));
    ASSERT_TRUE(theirs.write(path)) << "and again, in the place of another one";
    const std::string bytes = bytesOf(path);
    MovReferenceEditor late(path);
    ASSERT_TRUE(late.read());
    ASSERT_TRUE(late.lead(m_tree.path("from/m0.raw"), m_tree.path("from/late.raw")));
    m_tree.append("from/film.mov", atom("free", "theirs"));
    m_result = late.write(path);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::UnknownError)) << m_result.describe().get();
    EXPECT_EQ(bytesOf(path), bytes + atom("free", "theirs"));
}
