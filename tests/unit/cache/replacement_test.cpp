#include <gtest/gtest.h>

#include <cctype>

#include "mediautil/cache/replacement_verdict.h"
#include "shared/include/object/switches.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"

using kit::formatted;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

// ---------------------------------------------------------------------------------------------- the rule by itself

namespace {

using Verdict = ReplacementVerdict;

constexpr long long s_second = 1000000;

struct VerdictCase {
    const char* m_what;
    Verdict::Side m_older, m_newer;
    bool m_force;
    unsigned m_code;
};

// Version, length, tracks, creation in µs.
const VerdictCase s_cases[] = {
    {"same version and length", {7, 100, 2, 0}, {7, 100, 2, s_second}, false, 34},
    {"the same, forced", {7, 100, 2, 0}, {7, 100, 2, s_second}, true, 1},
    {"the same, forced, is settled ahead of the track count", {7, 100, 2, 0}, {7, 100, 3, 0}, true, 1},
    {"the same is redundant whatever the tracks", {7, 100, 2, 0}, {7, 100, 0, 0}, false, 34},
    {"same version, other length", {7, 100, 2, 0}, {7, 101, 2, 0}, false, 1},
    {"new version, same length", {7, 100, 2, 0}, {8, 100, 2, 0}, false, 1},
    {"new version, longer", {7, 100, 2, 0}, {8, 200, 2, 0}, false, 1},
    {"two tracks to three", {7, 100, 2, 0}, {8, 200, 3, 0}, false, 53},
    {"three tracks to two", {7, 100, 3, 0}, {8, 200, 2, 0}, true, 53},
    {"three tracks to none", {7, 100, 3, 0}, {8, 200, 0, 0}, false, 53},
    {"no tracks to three", {7, 0, 0, 0}, {8, 200, 3, 0}, false, 20},
    {"no tracks to three, shorter and young", {7, 300, 0, 0}, {8, 200, 3, s_second}, false, 20},
    {"shorter after five seconds", {7, 100, 2, 0}, {8, 99, 2, 5 * s_second}, false, 54},
    {"shorter after five seconds, forced", {7, 100, 2, 0}, {8, 99, 2, 5 * s_second}, true, 54},
    {"shorter just within twenty seconds", {7, 100, 2, 0}, {8, 99, 2, 20 * s_second - 1}, false, 54},
    {"shorter at twenty seconds", {7, 100, 2, 0}, {8, 99, 2, 20 * s_second}, false, 1},
    {"shorter after twenty-five seconds", {7, 100, 2, 0}, {8, 99, 2, 25 * s_second}, false, 1},
};

}  // namespace

class VerdictTable : public ::testing::TestWithParam<VerdictCase> {};

TEST_P(VerdictTable, GivesTheCode) {
    const VerdictCase& row = GetParam();
    EXPECT_EQ(static_cast<unsigned>(Verdict::judge(row.m_older, row.m_newer, row.m_force)), row.m_code) << row.m_what;
}

namespace {

std::string caseName(const ::testing::TestParamInfo<VerdictCase>& row) {
    std::string name = row.param.m_what;
    for (char& letter : name) {
        if (std::isalnum(static_cast<unsigned char>(letter)) == 0) letter = '_';
    }
    return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rules, VerdictTable, ::testing::ValuesIn(s_cases), caseName);

TEST(VerdictTexts, AreWhatTheLogShows) {
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(1)), "");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(20)), "structure change: ");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(53)), "invalid change: don't ");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(34)), "redundant: don't ");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(35)), "vetoed: don't ");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(54)), "too short: don't ");
    EXPECT_STREQ(Verdict::text(static_cast<Verdict::Code>(2)), "??: ");
}

TEST(VerdictBits, BitFiveRefusesAndBitFourIsWorthALine) {
    for (unsigned code : {1u, 20u})
        EXPECT_TRUE(Verdict::replaces(static_cast<Verdict::Code>(code))) << code;
    for (unsigned code : {53u, 34u, 35u, 54u})
        EXPECT_FALSE(Verdict::replaces(static_cast<Verdict::Code>(code))) << code;
    for (unsigned code : {20u, 53u, 54u})
        EXPECT_TRUE(Verdict::noteworthy(static_cast<Verdict::Code>(code))) << code;
    for (unsigned code : {1u, 34u, 35u})
        EXPECT_FALSE(Verdict::noteworthy(static_cast<Verdict::Code>(code))) << code;
}

// -------------------------------------------------------------------------------------------------- in the cache

namespace {

class Replacement : public kit::CacheScene {
protected:
    // A second object of the file, of another version.
    ScriptedMovie* newer(const std::string& path, const MovieScript& script, unsigned long long version = 99) {
        ScriptedMovie* movie = parsed(path, script);
        movie->setVersion(version, false);
        return movie;
    }
    OsPathId idOf(const std::string& path) { return TempTree::idOf(path); }

    const MovieScript m_two = MovieScript::ofTracks(2, 48000);
    const std::string m_path = scripted("a.hdcam", m_two);
};

}  // namespace

TEST_F(Replacement, RedundantParseIsRefusedAndForcedIsNot) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* again = newer(m_path, m_two, movie->getVersion());
    EXPECT_FALSE(m_cache.replaceable(movie, again, false));
    EXPECT_TRUE(m_cache.replaceable(movie, again, true));
    EXPECT_EQ(movie->m_vetoAsked, 0);
    again->getRefCount()->release();
    again->release();
    movie->release();
}

TEST_F(Replacement, VetoOfTheOldObjectIsAskedOnlyWhenTheRulesHavePassed) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* again = newer(m_path, m_two);
    movie->m_accept = false;
    again->m_accept = true;
    EXPECT_FALSE(m_cache.replaceable(movie, again, true));
    EXPECT_EQ(movie->m_vetoAsked, 1);
    EXPECT_EQ(again->m_vetoAsked, 0);
    movie->m_accept = true;
    EXPECT_TRUE(m_cache.replaceable(movie, again, false));
    ScriptedMovie* other = newer(m_path, MovieScript::ofTracks(3, 48000));
    EXPECT_FALSE(m_cache.replaceable(movie, other, false));
    EXPECT_EQ(movie->m_vetoAsked, 2);
    for (ScriptedMovie* loser : {again, other}) {
        loser->getRefCount()->release();
        loser->release();
    }
    movie->release();
}

TEST_F(Replacement, VerdictIsLoggedUnderCacheOrRereadActivity) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* again = newer(m_path, m_two, movie->getVersion());
    m_cache.replaceable(movie, again, false);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    unsigned wanted = 0;
    for (unsigned bit : {MediaDbg::CacheActivity, MediaDbg::RereadActivity}) {
        mediaObjDbg.set(1u << bit);
        m_cache.replaceable(movie, again, false);
        ++wanted;
        const std::string first = std::string("CMO: redundant: don't replace ") + movie->toString(true).get();
        const std::string second = std::string("...with ") + again->toString(true).get();
        EXPECT_EQ(m_log.count(LogLevel::Debug, first), wanted) << m_log.text();
        EXPECT_EQ(m_log.count(LogLevel::Debug, second), wanted) << m_log.text();
    }
    m_cache.replaceable(movie, again, true);
    EXPECT_EQ(m_log.count(std::string("CMO: replace ") + movie->toString(true).get()), 1u) << m_log.text();
    again->getRefCount()->release();
    again->release();
    movie->release();
}

TEST_F(Replacement, OnlyNoteworthyVerdictsAreLoggedUnderRereadErrors) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* same = newer(m_path, m_two, movie->getVersion());
    ScriptedMovie* other = newer(m_path, MovieScript::ofTracks(3, 48000));
    ScriptedMovie* shorter = newer(m_path, MovieScript::ofTracks(2, 24000));
    mediaObjDbg.set(1u << MediaDbg::RereadErrors);
    m_cache.replaceable(movie, same, false);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    m_cache.replaceable(movie, other, false);
    EXPECT_EQ(m_log.count("CMO: invalid change: don't replace *"), 1u) << m_log.text();
    m_cache.replaceable(movie, shorter, false);
    EXPECT_EQ(m_log.count("CMO: too short: don't replace *"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count("...with *"), 2u);
    for (ScriptedMovie* loser : {same, other, shorter}) {
        loser->getRefCount()->release();
        loser->release();
    }
    movie->release();
}

TEST_F(Replacement, TracksOfUnequalLengthAreToldUnderRereadErrors) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* again = newer(m_path, m_two);
    // A frame of 25 a second is 1920 ticks; exactly a frame of difference is still equal.
    again->setTrackLength(0, 48000 - 1920);
    again->setTrackLength(1, 48000);
    mediaObjDbg.set(1u << MediaDbg::RereadErrors);
    EXPECT_TRUE(m_cache.replaceable(movie, again, false));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    again->setTrackLength(0, 48000 - 1921);
    again->setTrackLength(1, 48000);
    EXPECT_TRUE(m_cache.replaceable(movie, again, false));
    EXPECT_EQ(
        m_log.count(LogLevel::Debug, std::string("CMO: track length discrepancy in ") + again->toString(true).get()),
        1u)
        << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Debug, "track 0 length: 23"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Debug, "track 1 length: 25"), 1u) << m_log.text();
    again->getRefCount()->release();
    again->release();
    movie->release();
}

TEST_F(Replacement, FirstObjectOfAnIdGoesIn) {
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ScriptedMovie* movie = parsed(m_path, m_two);
    EXPECT_EQ(m_cache->replace(movie, idOf(m_path), false, false), movie);
    EXPECT_EQ(m_log.count(LogLevel::Debug, std::string("CMO:insert ") + movie->toString(true).get()), 1u)
        << m_log.text();
    EXPECT_EQ(movie->getReferenceCount(), 2);
    EXPECT_EQ(movie->impl().getCacheId(), idOf(m_path));
    EXPECT_EQ(movie->getFileId(), idOf(m_path));
    movie->release();
}

TEST_F(Replacement, ReservationIsFilledByTheObject) {
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ASSERT_TRUE(m_cache->reserve(idOf(m_path)));
    ScriptedMovie* movie = parsed(m_path, m_two);
    EXPECT_EQ(m_cache->replace(movie, idOf(m_path), true, false), movie);
    EXPECT_EQ(m_log.count(LogLevel::Debug, std::string("CMO:install ") + movie->toString(true).get()), 1u)
        << m_log.text();
    EXPECT_EQ(movie->impl().getWriterCount(), 1);
    movie->release(nullAgent(), true);
}

TEST_F(Replacement, ForcedParseOfAnUnchangedFileReplacesTheObject) {
    ScriptedMovie* movie = open(m_path);
    EXPECT_EQ(open(m_path), movie);
    movie->release();
    ScriptedMovie* forced = open(m_path, true);
    EXPECT_NE(forced, movie);
    EXPECT_EQ(Scripts::opens(m_path), 2u);
    EXPECT_EQ(m_cache.entry(idOf(m_path)), forced);
    EXPECT_TRUE(m_cache.isZombie(movie));
    EXPECT_FALSE(movie->impl().isCached());
    movie->release();
    forced->release();
}

TEST_F(Replacement, ReplacementIsLoggedUnderCacheActivity) {
    ScriptedMovie* movie = open(m_path);
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ScriptedMovie* forced = open(m_path, true);
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("CMO:replace ro(0),a.hdcam,*,@%p,ref=* w/ ro(0),a.hdcam,*",
                                                     static_cast<void*>(movie))),
              1u)
        << m_log.text();
    EXPECT_FALSE(m_log.has("CMO:insert *"));
    movie->release();
    forced->release();
}

TEST_F(Replacement, GrownFileReplacesMovesTheHoldersAndInheritsTheMediasHandles) {
    const std::string media = m_tree.writePattern("media.raw", 4096);
    const std::string path = scripted("ref.hdcam", MovieScript().audioIn(media, 512));
    ScriptedMovie* movie = open(path);
    kit::ChangedHook changed;
    MediaObj::Persist holder(&changed);
    holder = movie;
    kit::Client client;
    const MediaAgent agent(&client);
    OpResult result;
    AutoRefPtr<BasicFileIO> before = movie->getFp(result, movie->getMediaId(1), agent);
    ASSERT_NE(before.get(), nullptr);
    ASSERT_TRUE(before->open());

    m_tree.write("ref.hdcam", "second and longer");
    Scripts::set(path, MovieScript().audioIn(media, 1024));
    ScriptedMovie* grown = open(path);
    ASSERT_NE(grown, movie);
    EXPECT_EQ(changed.count(), 1);
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), grown);
    AutoRefPtr<BasicFileIO> after = grown->getFp(result, grown->getMediaId(1), agent);
    EXPECT_EQ(after.get(), before.get());
    grown->close(nullptr, agent).discard();
    grown->release();
}

TEST_F(Replacement, WithAnotherNumberOfFilesNothingIsInherited) {
    const std::string media = m_tree.writePattern("media.raw", 4096), more = m_tree.writePattern("more.raw", 4096);
    const std::string path = scripted("ref.hdcam", MovieScript().audioIn(media, 512));
    ScriptedMovie* movie = open(path);
    OpResult result;
    AutoRefPtr<BasicFileIO> before = movie->getFp(result, movie->getMediaId(1), nullAgent());
    ASSERT_TRUE(before->open());
    MovieScript two = MovieScript().audioIn(media, 1024);
    two.m_files.push_back(more);
    Scripts::set(path, two);
    m_tree.write("ref.hdcam", "second and longer");
    ScriptedMovie* grown = open(path);
    ASSERT_NE(grown, movie);
    EXPECT_FALSE(grown->impl().m_fileList.allFilesOpen(nullAgent(), false));
    AutoRefPtr<BasicFileIO> after = grown->getFp(result, grown->getMediaId(1), nullAgent());
    EXPECT_NE(after.get(), before.get());
    movie->release();
    grown->release();
}

TEST_F(Replacement, ShorterMovieWithinTwentySecondsIsNotBelieved) {
    ScriptedMovie* movie = open(m_path);
    MediaObj::Persist holder;
    movie->preserve();
    holder = movie;
    Scripts::set(m_path, MovieScript::ofTracks(2, 24000));
    m_tree.write("a.hdcam", "shorter than before");
    ScriptedMovie* answer = open(m_path);
    EXPECT_EQ(answer, movie);
    EXPECT_EQ(Scripts::opens(m_path), 2u);
    EXPECT_EQ(m_cache.zombieCount(), 1u);
    EXPECT_EQ(m_cache.zombies()[0]->getReferenceCount(), 1);
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), movie);
    movie->release();
    answer->release();
}

TEST_F(Replacement, ChangedTrackCountIsRefusedAndAFirstStructureIsTaken) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* third = newer(m_path, MovieScript::ofTracks(3, 48000));
    EXPECT_EQ(m_cache->replace(third, idOf(m_path), false, false), movie);
    ScriptedMovie* none = newer(m_path, MovieScript());
    EXPECT_EQ(m_cache->replace(none, idOf(m_path), false, false), movie);
    for (int i = 0; i < 3; ++i)
        movie->release();

    const std::string bare = scripted("bare.hdcam", MovieScript());
    ScriptedMovie* empty = open(bare);
    ScriptedMovie* filled = newer(bare, MovieScript::ofTracks(3, 48000));
    EXPECT_EQ(m_cache->replace(filled, idOf(bare), false, false), filled);
    EXPECT_TRUE(m_cache.isZombie(empty));
    empty->release();
    filled->release();
}

TEST_F(Replacement, VetoedParseGoesToTheZombiesAndTheOldObjectIsAnswered) {
    ScriptedMovie* movie = open(m_path);
    movie->m_accept = false;
    ScriptedMovie* again = newer(m_path, m_two);
    MediaObj::Persist holder;
    again->preserve();
    holder = again;
    EXPECT_EQ(m_cache->replace(again, idOf(m_path), false, false), movie);
    EXPECT_TRUE(m_cache.isZombie(again));
    EXPECT_EQ(again->getReferenceCount(), 1);
    EXPECT_EQ(movie->m_vetoAsked, 1);
    // A holder that was already on the loser follows the winner.
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), movie);
    movie->release();
    movie->release();
}

TEST_F(Replacement, CreationLosesAgainstACachedReaderAndIsToldAtAllTimes) {
    ScriptedMovie* reader = open(m_path);
    OpResult result;
    EXPECT_EQ(MediaObj::openWriter(m_path.c_str(), false, result, MediaContainment::Embedded, MediaFileType::Unknown,
                                   nullptr, BasicIOTypes::SizeAdvice::None),
              nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:create rec,rw(0),a.hdcam,* loses to ro(0),a.hdcam,*"), 1u)
        << m_log.text();
    EXPECT_EQ(m_cache.zombieCount(), 1u);
    EXPECT_EQ(m_cache.entry(idOf(m_path)), reader);
    EXPECT_EQ(reader->getReferenceCount(), 2);
    EXPECT_EQ(reader->impl().getWriterCount(), 0);
    reader->release();
}

TEST_F(Replacement, WriterReplacesAReadOnlyObjectWithoutAsking) {
    ScriptedMovie* reader = open(m_path);
    reader->m_accept = false;
    MediaObj::Persist holder;
    reader->preserve();
    holder = reader;
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    Scripts::set(m_path, MovieScript::ofTracks(5, 10));
    ScriptedMovie* writer = open(m_path, false, MediaObj::ReadMode::ReadWrite);
    EXPECT_NE(writer, reader);
    EXPECT_EQ(reader->m_vetoAsked, 0);
    EXPECT_EQ(writer->impl().getWriterCount(), 1);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:replace new: set W=1: rw(1),a.hdcam,*"), 1u) << m_log.text();
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), writer);
    reader->MediaObj::release();
    writer->release(nullAgent(), true);
}

TEST_F(Replacement, WritableObjectWithoutWritersIsKeptAgainstAReadersParse) {
    ScriptedMovie* writable = new ScriptedMovie(m_two, m_path, true);
    ASSERT_EQ(m_cache->replace(writable, idOf(m_path), false, false), writable);
    ASSERT_EQ(writable->impl().getWriterCount(), 0);
    ScriptedMovie* again = newer(m_path, m_two);
    MediaObj::Persist holder;
    again->preserve();
    holder = again;
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    EXPECT_EQ(m_cache->replace(again, idOf(m_path), false, true), writable);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:dismiss new ro(0),a.hdcam,*"), 1u) << m_log.text();
    EXPECT_TRUE(m_cache.isZombie(again));
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), writable);
    EXPECT_EQ(writable->impl().getWriterCount(), 0);
    writable->release();
    writable->release();
}

TEST_F(Replacement, WritableObjectThatIsKeptAgainstAWriterGainsIt) {
    ScriptedMovie* writable = new ScriptedMovie(m_two, m_path, true);
    ASSERT_EQ(m_cache->replace(writable, idOf(m_path), false, false), writable);
    ScriptedMovie* again = newer(m_path, m_two);
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    EXPECT_EQ(m_cache->replace(again, idOf(m_path), true, false), writable);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:keep old: set W=1: rw(1),a.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(writable->impl().getWriterCount(), 1);
    EXPECT_EQ(again->impl().getWriterCount(), 0);
    writable->MediaObj::release();
    writable->release(nullAgent(), true);
}

TEST_F(Replacement, LoserStaysValidForAClientWithABarePointer) {
    ScriptedMovie* movie = open(m_path);
    ScriptedMovie* forced = open(m_path, true);
    expireAll();
    EXPECT_TRUE(movie->isValid());
    EXPECT_EQ(movie->getTrackCount(), 2u);
    EXPECT_TRUE(m_cache.isZombie(movie));
    movie->release();
    forced->release();
}
