
#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "backends/mov/mov_moov_growth.h"
#include "backends/mov/mov_user_data_editor.h"
#include "services/metadata/user_data.h"
#include "tests/kit/child_job.h"
#include "tests/unit/backends/mov_fixture.h"
#include "tests/unit/backends/mov_seen.h"
#include "tests/unit/backends/recording_fixture.h"

// The identifier and the clip properties of movies that are finished, ours and others', change in their files: at every
// byte of every write the file has the old ones or the new ones, and all samples in their places.

using namespace MovKit;

namespace {

constexpr unsigned s_samples = 40, s_size = 10;

std::string pictures(std::uint32_t at) {
    Track track;
    track.m_scale = 2500;
    track.m_duration = s_samples * 100;
    track.m_tables = plainTables(s_samples, s_size, 100, at);
    return track.build();
}

std::string freeOf(std::size_t size) { return size != 0 ? atom("free", std::string(size - 8, 'f')) : ""; }

std::string media() { return atom("mdat", std::string(s_samples * s_size, 'm')); }

// Headers in front of the media, with a `free` between them.
std::string front(const std::string& more = "", std::size_t freeSize = 0) {
    const auto at = [&more](std::size_t place) {
        return movie({pictures(static_cast<std::uint32_t>(place))}, 1000, more);
    };
    const std::size_t place = head().size() + at(0).size() + freeSize + 8;
    return head() + at(place) + freeOf(freeSize) + media();
}

std::string behind(const std::string& more = "") { return head() + media() + movie({pictures(24)}, 1000, more); }

// What the file says in an atom of its user data.
std::string valueOf(const MovSeen& seen, const char* code) {
    const std::size_t at = seen.m_userData.find(code);
    if (at == std::string::npos || at < 4) return "";
    std::size_t size = 0;
    for (std::size_t i = at - 4; i < at; ++i)
        size = size << 8 | static_cast<unsigned char>(seen.m_userData[i]);
    return seen.m_userData.substr(at + 4, size - 8);
}

// Writes go in pieces, at last one byte at a time, and in front of each the file is looked at.
class Watched {
public:
    Watched(const std::string& path, const std::string& before, const std::string& after) {
        const MovSeen seen = MovSeen::of(path);
        s_path = path;
        s_before = before;
        s_after = after;
        s_error.clear();
        s_places = seen.m_tracks.empty() ? std::vector<std::uint64_t>() : seen.m_tracks[0].m_at;
        s_looks = 0;
        s_isNew = false;
        FileCalls::setFault(&look);
    }
    ~Watched() { FileCalls::setFault(nullptr); }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    static void check() {
        const MovSeen seen = MovSeen::of(s_path);
        const std::string value = valueOf(seen, "CPRP");
        if (!s_error.empty()) return;
        if (!seen.m_error.empty()) s_error = seen.m_error;
        if (seen.m_moovs == 0) s_error = "no movie";
        if (seen.m_tracks.empty() || seen.m_tracks[0].m_at != s_places) s_error = "samples have moved";
        if (value != s_before && value != s_after) s_error = "neither old nor new: " + value;
        if (s_isNew && value == s_before && s_before != s_after) s_error = "old again";
        s_isNew = s_isNew || value == s_after;
    }

    static inline std::string s_path, s_before, s_after, s_error;
    static inline std::vector<std::uint64_t> s_places;
    static inline unsigned s_looks = 0;
    static inline bool s_isNew = false;

private:
    static int look(FileCall call, const char*, int, std::size_t& size) {
        if (call != FileCall::Write) return 0;
        size = size > 16 ? size / 2 : 1;
        ++s_looks;
        check();
        return 0;
    }
};

// Lets one call of a kind fail: that of this number, from 1.
class NthFault {
public:
    NthFault(FileCall call, int number) {
        s_call = call;
        s_left = number;
        FileCalls::setFault(&strike);
    }
    ~NthFault() { FileCalls::setFault(nullptr); }
    NthFault(const NthFault&) = delete;
    NthFault& operator=(const NthFault&) = delete;
    static bool hasStruck() { return s_left <= 0; }

private:
    static int strike(FileCall call, const char*, int, std::size_t&) {
        return call == s_call && --s_left == 0 ? EIO : 0;
    }
    static inline std::atomic<FileCall> s_call{FileCall::Stat};
    static inline std::atomic<int> s_left{0};
};

class MovUserDataTest : public kit::CacheScene {
protected:
    ~MovUserDataTest() override { FileCalls::setFault(nullptr); }

    MediaObj* open(const std::string& path, MediaObj::ReadMode mode = MediaObj::ReadMode::ReadWrite) {
        m_result.discard();
        MediaObj* const movie = MediaObj::openReader(path.c_str(), mode, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        return movie;
    }
    void close(MediaObj* movie) {
        movie->release(nullAgent(), true);
        expireAll();
    }
    static OpResult setNames(MediaObj& movie, const std::string& names) {
        return movie.setProperty(ClipPropsProperty(names.c_str()));
    }
    // A fresh look at the file.
    std::string namesIn(const std::string& path) {
        MediaObj* const movie = open(path, MediaObj::ReadMode::ReadOnly);
        if (movie == nullptr) return "no movie";
        const std::string names = movie->getClipProperties();
        movie->release();
        expireAll();
        return names;
    }
    static void expectSamples(const MediaObj& movie) {
        MediaSampleInMovie where;
        MediaIoBuf buffer;
        OpResult result;
        const MediaClipDesc& clip = *movie.getTrackAt(0)->getClip(0);
        ASSERT_TRUE(clip.getMediaOffset(MediaPlayReq(s_samples - 1, 1), where, result)) << result.describe().get();
        result = movie.vsRead(where, buffer);
        EXPECT_TRUE(result.success()) << result.describe().get();
        EXPECT_EQ(kit::bytesOf(buffer), std::string(s_size, 'm'));
    }
    // A recorded movie of as many samples, of sound, in each of its tracks.
    std::string recorded(const std::string& name, unsigned tracks = 1) {
        const std::string path = m_tree.path(name);
        MediaObj* const movie = MediaObj::openWriter(path.c_str(), false, m_result, MediaContainment::Embedded,
                                                     MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        const MediaClipParam param = RecordKit::soundOf(MediaFileType::QuickTime, 1000, 5, 16);
        for (unsigned i = 0; i < tracks; ++i) {
            MediaTrackDesc* const track = movie->createTrack(param, m_result);
            EXPECT_NE(track->createClip(param, m_result), nullptr);
            SampleInfo info;
            info.reset(s_samples * s_size);
            MediaSampleInMovie where;
            EXPECT_TRUE(track->addSamples(MediaRecordReq(0, s_samples, info), where, m_result));
            MediaIoBuf buffer;
            kit::fill(buffer, std::string(s_samples * s_size, 'm'));
            EXPECT_TRUE(movie->vsWrite(where, buffer));
        }
        EXPECT_TRUE(movie->setRecording(false));
        close(movie);
        return path;
    }
    // One movie of each kind: the places where its user data can go.
    std::vector<std::string> allKinds() {
        const std::string title = atom("udta", atom("titl", "theirs"));
        return {recorded("recorded.mov"),
                m_tree.write("behind.mov", behind(title)),
                m_tree.write("front.mov", front(title)),
                m_tree.write("inside.mov", front(freeOf(100) + title + freeOf(900) + freeOf(64))),
                m_tree.write("room.mov", front(title, 3000)),
                m_tree.write("first.mov", front().substr(head().size()).insert(0, freeOf(head().size())))};
    }
};

// A child that changes the movie of that path. What it prints is the code of the failure, or 0.
int changeMovie(const std::string& path) {
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, result);
    if (movie == nullptr) return 99;
    result = movie->generateUmid();
    const int code = result.getCode();
    const bool isDone = result.success();
    result.discard();
    movie->release(MediaAgent(nullptr), true);
    return isDone ? 0 : code;
}

const kit::ChildJob s_changeMovie("change movie", &changeMovie);

// The bytes of a `moov` with a `free` and some media behind it.
class Growing {
public:
    Growing(std::uint32_t moovSize, std::uint32_t freeSize)
        : m_bytes(atom("moov", atom("trak", std::string(moovSize - 16, 't'))) + freeOf(freeSize) + atom("mdat", "m")),
          m_moovSize(moovSize),
          m_mdatAt(moovSize + freeSize) {}

    void put(std::uint64_t at, std::uint8_t byte) { m_bytes[at] = static_cast<char>(byte); }
    // Empty when all is well: `moov` with whole atoms, `free`s, and the media where they were.
    std::string fault() const {
        std::uint64_t at = size(0);
        if (at != m_moovSize && at > m_mdatAt) return "moov leads too far";
        for (std::uint64_t inside = 8; inside != at;) {
            if (inside + 8 > at || size(inside) < 8 || inside + size(inside) > at) return "the moov is cut";
            inside += size(inside);
        }
        while (at != m_mdatAt) {
            if (at + 8 > m_mdatAt || size(at) < 8 || m_bytes.substr(at + 4, 4) != "free") return "a gap behind";
            at += size(at);
        }
        return "";
    }
    std::uint64_t size(std::uint64_t at) const {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < 4; ++i)
            value = value << 8 | static_cast<unsigned char>(m_bytes[at + i]);
        return value;
    }

private:
    std::string m_bytes;
    const std::uint64_t m_moovSize, m_mdatAt;
};

}  // namespace

TEST(MovMoovGrowth, IsWholeAtEveryByteOfEveryWay) {
    unsigned ways = 0, none = 0;
    const std::uint32_t moovs[] = {500, 600, 767, 768, 1000, 4000, 65500, 65536, 70000};
    const std::uint32_t frees[] = {8,   9,   15,  16,  40,   63,   100,  255,  256,   257,   263,
                                   264, 300, 512, 516, 1024, 1234, 4096, 5000, 65536, 65544, 70000};
    for (const std::uint32_t moov : moovs) {
        for (const std::uint32_t free : frees) {
            for (const std::uint32_t wanted : {1u, 8u, 40u, 41u, 100u, 248u, 256u, 1000u, 40000u}) {
                SCOPED_TRACE(testing::Message() << moov << " " << free << " " << wanted);
                const MovMoovGrowth::Plan plan = MovMoovGrowth::make(moov, free, wanted);
                if (plan.m_taken == 0) {
                    EXPECT_TRUE(plan.m_steps.empty());
                    ++none;
                    continue;
                }
                ++ways;
                EXPECT_GE(plan.m_taken, wanted);
                EXPECT_LE(plan.m_taken, free);
                Growing file(moov, free);
                for (const MovMoovGrowth::Step& step : plan.m_steps) {
                    for (std::size_t i = 0; i < step.m_bytes.size(); ++i) {
                        file.put(step.m_at + i, step.m_bytes[i]);
                        ASSERT_EQ(file.fault(), "");
                    }
                }
                EXPECT_EQ(file.size(0), moov + plan.m_taken);
                EXPECT_EQ(file.size(moov), plan.m_taken) << "one atom, all of it free";
            }
        }
    }
    EXPECT_GT(ways, 500u);
    EXPECT_GT(none, 100u);
}

TEST(MovMoovGrowth, HasNoWayWhereNoneIs) {
    EXPECT_EQ(MovMoovGrowth::make(1000, 0, 8).m_taken, 0u);
    EXPECT_EQ(MovMoovGrowth::make(1000, 40, 41).m_taken, 0u);
    EXPECT_EQ(MovMoovGrowth::make(0xFFFF, 256, 200).m_taken, 0u) << "no single byte of the size can grow by so little";
    EXPECT_EQ(MovMoovGrowth::make(1000, 40, 40).m_taken, 0u) << "1000 and 1040 differ in two bytes";
    EXPECT_EQ(MovMoovGrowth::make(800, 40, 40).m_taken, 40u) << "all of it";
}

TEST_F(MovUserDataTest, IsOldOrNewAtEveryByteWhileItChanges) {
    for (const std::string& path : allKinds()) {
        SCOPED_TRACE(path);
        MediaObj* const movie = open(path);
        ASSERT_NE(movie, nullptr);
        std::string before;
        const std::string lists[] = {"one", "one,two", std::string(300, 'x'), std::string(299, 'y'), "z", ""};
        for (const std::string& names : lists) {
            SCOPED_TRACE(names);
            {
                const Watched watch(path, before, names);
                m_result = setNames(*movie, names);
                ASSERT_TRUE(m_result.success()) << m_result.describe().get();
                Watched::check();
                EXPECT_EQ(Watched::s_error, "");
                EXPECT_GT(Watched::s_looks, 3u);
            }
            EXPECT_EQ(std::string(movie->getClipProperties()), names);
            expectSamples(*movie);
            EXPECT_EQ(valueOf(MovSeen::of(path), "CPRP"), names);
            EXPECT_EQ(MovSeen::of(path).m_moovs, 1u);
            before = names;
        }
        if (path.find("recorded") == std::string::npos && path.find("first") == std::string::npos) {
            EXPECT_EQ(valueOf(MovSeen::of(path), "titl"), "theirs");
        }
        close(movie);
        MediaObj* const again = open(path, MediaObj::ReadMode::ReadOnly);
        expectSamples(*again);
        again->release();
    }
}

TEST_F(MovUserDataTest, GoWhereThereIsRoomAndElseBehindTheEnd) {
    for (const std::string& path : allKinds()) {
        SCOPED_TRACE(path);
        const bool hasRoom = path.find("recorded") != std::string::npos || path.find("inside") != std::string::npos ||
                             path.find("room") != std::string::npos;
        const auto size = std::filesystem::file_size(path);
        MediaObj* const movie = open(path);
        EXPECT_TRUE(movie->generateUmid());
        const auto once = std::filesystem::file_size(path);
        EXPECT_EQ(once == size, hasRoom);
        EXPECT_EQ(MovSeen::of(path).m_top.back() == "moov", !hasRoom);
        // Places take turns: the file doesn't grow any more.
        for (unsigned i = 0; i < 5; ++i) {
            EXPECT_TRUE(movie->generateUmid());
            EXPECT_TRUE(setNames(*movie, "name" + std::to_string(i % 3)));
        }
        EXPECT_EQ(std::filesystem::file_size(path), once);
        const std::string umid = movie->getUmid();
        expectSamples(*movie);
        close(movie);
        MediaObj* const again = open(path, MediaObj::ReadMode::ReadOnly);
        ASSERT_NE(again->getUmid(), nullptr);
        EXPECT_EQ(std::string(again->getUmid()), umid);
        EXPECT_EQ(std::string(again->getClipProperties()), "name1");
        again->release();
        expireAll();
    }
}

TEST_F(MovUserDataTest, OfARecordedMovieHaveRoomHoweverManyTracksThereAre) {
    for (const unsigned tracks : {2u, 3u, 5u, 8u, 12u, 17u, 40u}) {
        SCOPED_TRACE(tracks);
        const std::string path = recorded("tracks" + std::to_string(tracks) + ".mov", tracks);
        const auto size = std::filesystem::file_size(path);
        MediaObj* const movie = open(path);
        EXPECT_TRUE(movie->generateUmid());
        EXPECT_TRUE(setNames(*movie, std::string(900, 'n')));
        EXPECT_EQ(std::filesystem::file_size(path), size);
        EXPECT_TRUE(setNames(*movie, std::string(20000, 'n')));
        EXPECT_GT(std::filesystem::file_size(path), size);
        expectSamples(*movie);
        close(movie);
        EXPECT_EQ(MovSeen::of(path).m_error, "");
        EXPECT_EQ(namesIn(path), std::string(20000, 'n'));
    }
}

TEST_F(MovUserDataTest, ClipPropertiesOfAnOpenMovieAreAddedAndReset) {
    const std::string path = m_tree.write("a.mov", behind());
    MediaObj* movie = open(path);
    EXPECT_TRUE(movie->addClipProperty("subtitles"));
    EXPECT_TRUE(movie->addClipProperty("stereo"));
    EXPECT_FALSE(movie->addClipProperty("stereo"));
    close(movie);
    EXPECT_EQ(namesIn(path), "subtitles,stereo");
    movie = open(path);
    EXPECT_TRUE(kit::isWarning(movie->isClipSupported("stereo"), 14));
    movie->resetClipProperties();
    EXPECT_EQ(std::string(movie->getClipProperties()), "");
    close(movie);
    EXPECT_EQ(namesIn(path), "");
    EXPECT_EQ(valueOf(MovSeen::of(path), "CPRP"), "");
}

TEST_F(MovUserDataTest, AProxyTakesTheIdentifierOfItsMovie) {
    const std::string path = m_tree.write("a.mov", behind()), other = m_tree.write("b.mov", front());
    MediaObj* const movie = open(path);
    MediaObj* const proxy = open(other);
    EXPECT_TRUE(kit::isWarning(proxy->setProxyUmid(*movie), 2));
    EXPECT_TRUE(movie->generateUmid());
    EXPECT_TRUE(proxy->setProxyUmid(*movie));
    const std::string umid = movie->getUmid();
    close(movie);
    close(proxy);
    MediaObj* const again = open(other, MediaObj::ReadMode::ReadOnly);
    EXPECT_EQ(std::string(again->getUmid()), umid);
    again->release();
}

// Who has opened a movie for reading doesn't write to it.
TEST_F(MovUserDataTest, OfAMovieThatIsOnlyReadChangeInMemoryAlone) {
    const std::string bytes = behind();
    const std::string path = m_tree.write("a.mov", bytes);
    MediaObj* const movie = open(path, MediaObj::ReadMode::ReadOnly);
    EXPECT_TRUE(kit::isWarning(movie->generateUmid(), MediaCode::FileNotWritable));
    EXPECT_TRUE(kit::isWarning(movie->setProxyUmid(*movie), MediaCode::FileNotWritable));
    EXPECT_EQ(movie->getUmid(), nullptr);
    EXPECT_TRUE(movie->addClipProperty("one"));
    EXPECT_EQ(std::string(movie->getClipProperties()), "one");
    const auto* const store = dynamic_cast<const UserDataStore*>(movie->getUserDataMovie());
    ASSERT_NE(store, nullptr);
    EXPECT_TRUE(store->isInPlay(UserDataEnum::KeyKind::ClipProps));
    EXPECT_EQ(kit::bytesAt(path, 0, 10000), bytes);
    movie->release();
}

TEST_F(MovUserDataTest, AreAsTheyWereWhicheverWriteFails) {
    unsigned failures = 0;
    for (const std::string& path : allKinds()) {
        SCOPED_TRACE(path);
        MediaObj* const movie = open(path);
        ASSERT_TRUE(setNames(*movie, "before"));
        ASSERT_TRUE(movie->generateUmid());
        const std::string umid = movie->getUmid();
        for (const FileCall call : {FileCall::Write, FileCall::Sync, FileCall::Open, FileCall::Read}) {
            bool hasStruck = true;
            for (int number = 1; hasStruck && number < 40; ++number) {
                SCOPED_TRACE(testing::Message() << static_cast<unsigned>(call) << " " << number);
                bool isDone = false;
                {
                    const NthFault fault(call, number);
                    m_result = setNames(*movie, "a list of names that is longer than the one before it");
                    isDone = m_result.success();
                    hasStruck = NthFault::hasStruck();
                }
                m_result.discard();
                EXPECT_TRUE(isDone || hasStruck);
                failures += isDone ? 0 : 1;
                const MovSeen seen = MovSeen::of(path);
                EXPECT_EQ(seen.m_error, "");
                EXPECT_EQ(valueOf(seen, "CPRP"), std::string(movie->getClipProperties()));
                EXPECT_EQ(std::string(movie->getClipProperties()) == "before", !isDone);
                EXPECT_EQ(std::string(movie->getUmid()), umid);
                if (isDone) {
                    ASSERT_TRUE(setNames(*movie, "before"));
                }
            }
        }
        {
            const NthFault fault(FileCall::Write, 1);
            EXPECT_TRUE(kit::isWarning(movie->generateUmid(), MediaCode::WriteError));
        }
        EXPECT_EQ(std::string(movie->getUmid()), umid);
        expectSamples(*movie);
        close(movie);
    }
    EXPECT_GT(failures, 40u);
}

TEST_F(MovUserDataTest, ThatHaveNoSafePlaceAreRefused) {
    const auto refused = [this](const std::string& bytes, int code, const char* sentence) {
        SCOPED_TRACE(sentence);
        const std::string path = m_tree.write("refused.mov", bytes);
        MediaObj* const movie = open(path);
        ASSERT_NE(movie, nullptr);
        m_result = movie->generateUmid();
        EXPECT_EQ(m_result.getCode(), code);
        EXPECT_NE(std::string(m_result.describe().get()).find(sentence), std::string::npos)
            << m_result.describe().get();
        m_result.discard();
        EXPECT_EQ(movie->getUmid(), nullptr);
        EXPECT_EQ(kit::bytesAt(path, 0, 100000), bytes);
        close(movie);
        std::filesystem::remove(path);
    };
    std::string open = front();
    open.replace(open.size() - media().size(), 4, be32(0));
    refused(open, MediaCode::OperationUnsupported, "mov: the last part of the file has no end");
    refused(front().substr(0, front().size() - 5), MediaCode::OperationUnsupported,
            "mov: the last part of the file is cut");
    refused(behind() + "tail", MediaCode::OperationUnsupported, "mov: the last part of the file is cut");
    refused(front() + atom("moof", full("mfhd", be32(1))), MediaCode::OperationUnsupported,
            "mov: the index stands in front of the movie's fragments and has no room there");
    refused(behind(atom("udta", be32(100) + "titl")), MediaCode::UnknownError, "the user data can't be read");

    const std::string path = m_tree.write("long.mov", behind());
    MediaObj* const movie = this->open(path);
    EXPECT_TRUE(kit::isWarning(setNames(*movie, std::string(40000, 'n')), MediaCode::OutOfRange));
    EXPECT_EQ(std::string(movie->getClipProperties()), "");
    EXPECT_TRUE(setNames(*movie, std::string(30000, 'n')));
    close(movie);
    EXPECT_EQ(namesIn(path), std::string(30000, 'n'));
}

TEST_F(MovUserDataTest, OfFragmentsChangeWhereTheIndexHasRoom) {
    for (const std::string& bytes : {front(freeOf(200)), front("", 600)}) {
        const std::string path = m_tree.write("a.mov", bytes + atom("moof", full("mfhd", be32(1))));
        MediaObj* const movie = open(path);
        EXPECT_TRUE(movie->generateUmid());
        expectSamples(*movie);
        EXPECT_EQ(MovSeen::of(path).m_top.back(), "moof");
        close(movie);
        std::filesystem::remove(path);
    }
}

// Whoever has opened the movie with it still reads its tables.
TEST_F(MovUserDataTest, KeepOutOfAnOlderIndex) {
    const std::string index = MovKit::movie({pictures(24)}).substr(8);
    const std::string path = m_tree.write("a.mov", behind() + atom("free", index));
    MediaObj* const movie = open(path);
    EXPECT_TRUE(movie->generateUmid());
    EXPECT_EQ(kit::bytesAt(path, behind().size() + 8, static_cast<unsigned>(index.size())), index);
    close(movie);
}

TEST_F(MovUserDataTest, ClosingWordsOfOthersEndTheirLists) {
    const std::string title = atom("titl", "theirs");
    for (const std::string& more : {atom("udta", title + be32(0)), atom("udta", title) + be32(0)}) {
        for (const std::string& bytes : {front(more), front(more, 600), behind(more)}) {
            const std::string path = m_tree.write("a.mov", bytes);
            MediaObj* const movie = open(path);
            EXPECT_TRUE(setNames(*movie, "one"));
            expectSamples(*movie);
            close(movie);
            EXPECT_EQ(namesIn(path), "one");
            EXPECT_EQ(valueOf(MovSeen::of(path), "titl"), "theirs");
            std::filesystem::remove(path);
        }
    }
}

TEST_F(MovUserDataTest, OfAHostileIndexTouchNoEssence) {
    const std::string title = atom("udta", atom("titl", "theirs") + atom("CPRP", "one"));
    const std::string bytes = front(freeOf(24) + title, 600);
    const std::size_t essence = bytes.size() - s_samples * s_size;
    unsigned done = 0, refused = 0;
    const auto put = [&](std::size_t at, char value) {
        std::string hostile = bytes;
        hostile[at] = value;
        const std::string path = m_tree.write("hostile.mov", hostile);
        MovUserDataEditor editor(path);
        m_result = editor.put(movCode("CPRP"), {0, 0, 0, 11, 'C', 'P', 'R', 'P', 't', 'w', 'o'});
        (m_result ? done : refused) += 1;
        m_result.discard();
        EXPECT_EQ(kit::bytesAt(path, essence, s_samples * s_size), bytes.substr(essence)) << at;
        std::filesystem::remove(path);
    };
    for (const char* code : {"moov", "mvhd", "trak", "free", "udta", "titl", "CPRP"}) {
        for (std::size_t at = bytes.find(code); at != std::string::npos; at = bytes.find(code, at + 4)) {
            for (std::size_t i = at - 4; i < at + 1; ++i) {
                put(i, '\xFF');
                if (bytes[i] != 0) put(i, 0);
            }
        }
    }
    EXPECT_GT(done, 10u);
    EXPECT_GT(refused, 10u);
}

// A process that was killed leaves two indices or two lists. What counts then counts further on.
TEST_F(MovUserDataTest, WhatAKilledProcessLeavesIsTidiedAway) {
    const auto named = [](const char* names) { return atom("udta", atom("titl", "theirs") + atom("CPRP", names)); };
    const std::string two = behind(named("first") + named("second"));
    const std::string spare = behind(named("first")) + movie({pictures(24)}, 1000, named("second"));
    for (const bool isSpare : {true, false}) {
        const std::string path = m_tree.write("a.mov", isSpare ? spare : two);
        MediaObj* const movie = open(path);
        EXPECT_EQ(std::string(movie->getClipProperties()), isSpare ? "first" : "second");
        ASSERT_TRUE(movie->generateUmid());
        const MovSeen seen = MovSeen::of(path);
        EXPECT_EQ(seen.m_error, "");
        EXPECT_EQ(seen.m_moovs, 1u);
        EXPECT_EQ(valueOf(seen, "CPRP"), isSpare ? "first" : "second");
        EXPECT_EQ(seen.m_userData.find("titl"), seen.m_userData.rfind("titl"));
        close(movie);
        std::filesystem::remove(path);
    }
}

TEST_F(MovUserDataTest, AreTakenFromTheFileAsItIsByThen) {
    const std::string path = m_tree.write("a.mov", behind());
    MediaObj* const movie = open(path);
    EXPECT_EQ(s_changeMovie.run(path).m_exit, 0);
    EXPECT_EQ(movie->getUmid(), nullptr) << "the object is as it was opened";
    EXPECT_TRUE(setNames(*movie, "one"));
    const MovSeen seen = MovSeen::of(path);
    EXPECT_EQ(valueOf(seen, "UMID").size(), 32u);
    EXPECT_EQ(valueOf(seen, "CPRP"), "one");
    close(movie);
}

TEST_F(MovUserDataTest, AFileThatAnotherProcessWritesIsLeftAlone) {
    const std::string path = m_tree.write("a.mov", behind());
    {
        const AutoRefPtr<FsFileIO> file(new FsFileIO("claim", path.c_str(), BasicIOTypes::Mode::Update));
        ASSERT_TRUE(file->open());
        ASSERT_TRUE(file->claim());
        EXPECT_EQ(s_changeMovie.run(path).m_exit, MediaCode::FileExists);
        EXPECT_EQ(kit::bytesAt(path, 0, 10000), behind());
    }
    EXPECT_EQ(s_changeMovie.run(path).m_exit, 0);
}

TEST_F(MovUserDataTest, AHolderIsLedToWhatAnotherProcessHasWritten) {
    const std::string path = m_tree.write("a.mov", behind());
    m_cache.startThread();
    {
        MediaObj::Persist holder(nullptr, nullptr);
        MediaObj* const movie = open(path, MediaObj::ReadMode::ReadOnly);
        holder = movie;
        EXPECT_EQ(s_changeMovie.run(path).m_exit, 0);
        EXPECT_TRUE(kit::waitFor([&holder] {
            const AutoReleasePtr<MediaObj> now(holder.preserve());
            return now->getUmid() != nullptr;
        }));
        holder = static_cast<MediaObj*>(nullptr);
    }
    m_cache.stopThread();
}

TEST_F(MovUserDataTest, WhatAnotherProcessHasWrittenIsReadByTheNextOpen) {
    const std::string path = m_tree.write("a.mov", behind());
    MediaObj* const before = open(path, MediaObj::ReadMode::ReadOnly);
    EXPECT_EQ(s_changeMovie.run(path).m_exit, 0);
    MediaObj* const after = open(path, MediaObj::ReadMode::ReadOnly);
    EXPECT_NE(before, after);
    EXPECT_NE(after->getUmid(), nullptr);
    expectSamples(*before);
    expectSamples(*after);
    before->release();
    after->release();
}
