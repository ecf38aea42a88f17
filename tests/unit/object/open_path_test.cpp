#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "services/file/fs_file_io.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wait_for.h"

using kit::FakeFile;
using kit::Gate;
using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::SwitchGuard;
namespace Scripts = kit::Scripts;

namespace {

class OpenReader : public kit::CacheScene {
protected:
    MediaObj* openPath(const char* path, MediaFileType type = MediaFileType::Unknown, bool force = false) {
        return MediaObj::openReader(path, MediaObj::ReadMode::ReadOnly, m_result, type, force);
    }
    // Opens on a thread of its own.
    std::thread openBeside(const std::string& path, MediaObj*& object) {
        return std::thread([path, &object] {
            OpResult result;
            object = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
            result.discard();
        });
    }
    unsigned errorLines() const { return m_log.count(LogLevel::Error, "*"); }

    const MovieScript m_one = MovieScript::ofTracks(1, 48000);
};

}  // namespace

TEST_F(OpenReader, NullPathIsAnInternalErrorAndTouchesNothing) {
    EXPECT_EQ(openPath(nullptr), nullptr);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(OpenReader, FileThatIsNotThereIsToldWithItsPath) {
    const std::string path = m_tree.path("missing.hdcam");
    EXPECT_EQ(openPath(path.c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
    EXPECT_STREQ(m_result.getMessage(), path.c_str());
    EXPECT_STREQ(m_result.describe().get(), ("file non-existant: " + path).c_str());
}

TEST_F(OpenReader, EmptyPathIsAFileThatIsNotThere) {
    EXPECT_EQ(openPath(""), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
}

TEST_F(OpenReader, FolderIsAFileThatIsNotThere) {
    EXPECT_EQ(openPath(m_tree.root().c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
}

TEST_F(OpenReader, HandleWithoutAnIdIsAnInternalError) {
    FakeFile* fake = new FakeFile;
    EXPECT_EQ(MediaObj::openReader(AutoRefPtr<BasicFileIO>(fake), m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(OpenReader, HandleOnAMissingFileIsToldWithItsPath) {
    AutoRefPtr<BasicFileIO> file(new FakeFile);
    static_cast<FakeFile*>(file.get())->m_existsAnswer = false;
    EXPECT_EQ(MediaObj::openReader(file, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
    EXPECT_STREQ(m_result.getMessage(), "/nowhere/fake");
}

TEST_F(OpenReader, FileCountsAsAHeaderFileWhileItIsIdentified) {
    FakeFile* fake = new FakeFile;
    AutoRefPtr<BasicFileIO> file(fake);
    EXPECT_EQ(MediaObj::openReader(file, m_result), nullptr);
    EXPECT_EQ(fake->m_advice, BasicIOTypes::SizeAdvice::SmallStripe);
    fake->m_advice = BasicIOTypes::SizeAdvice::LargeStripe;
    m_result.discard();
    EXPECT_EQ(MediaObj::openReader(file, m_result), nullptr);
    EXPECT_EQ(fake->m_advice, BasicIOTypes::SizeAdvice::LargeStripe);
}

TEST_F(OpenReader, GivesTheCallerOneReferenceAndTheCacheOne) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* movie = open(path);
    ASSERT_NE(movie, nullptr);
    EXPECT_TRUE(m_result);
    EXPECT_EQ(movie->getReferenceCount(), 2);
    EXPECT_EQ(m_cache.entry(kit::TempTree::idOf(path)), movie);
    EXPECT_TRUE(movie->impl().isCached());
    EXPECT_EQ(movie->getMovieDesc()->getFileType(), kit::s_scripted);
    movie->release();
}

TEST_F(OpenReader, SecondOpenOfAnUnchangedFileParsesNothing) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* first = open(path);
    ScriptedMovie* second = open(path);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->getReferenceCount(), 3);
    EXPECT_EQ(Scripts::opens(path), 1u);
    first->release();
    second->release();
}

TEST_F(OpenReader, IdleObjectIsSharedAgain) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* first = open(path);
    first->release();
    EXPECT_EQ(open(path), first);
    EXPECT_EQ(Scripts::opens(path), 1u);
    first->release();
}

TEST_F(OpenReader, TwoThreadsAtOneNewFileParseItOnceAndShareTheObject) {
    MovieScript slow = m_one;
    slow.m_parseGate = std::make_shared<Gate>();
    slow.m_parseGate->close();
    const std::string path = scripted("a.hdcam", slow);
    MediaObj* objects[2] = {};
    std::thread first = openBeside(path, objects[0]);
    ASSERT_TRUE(kit::waitFor([&] { return Scripts::parsing(path) == 1; }));
    std::thread second = openBeside(path, objects[1]);
    const OsPathId id = kit::TempTree::idOf(path);
    EXPECT_EQ(m_cache.entry(id), nullptr);
    slow.m_parseGate->open();
    first.join();
    second.join();
    ASSERT_NE(objects[0], nullptr);
    EXPECT_EQ(objects[0], objects[1]);
    EXPECT_EQ(Scripts::opens(path), 1u);
    EXPECT_EQ(objects[0]->getReferenceCount(), 3);
    objects[0]->release();
    objects[1]->release();
}

TEST_F(OpenReader, SecondOpenTriesItselfWhenTheFirstGaveUp) {
    MovieScript slow;
    slow.refuse(OpResult::Type::Warning, 4);
    slow.m_parseGate = std::make_shared<Gate>();
    slow.m_parseGate->close();
    const std::string path = scripted("a.hdcam", slow);
    MediaObj *first = nullptr, *second = nullptr;
    std::thread loser = openBeside(path, first);
    ASSERT_TRUE(kit::waitFor([&] { return Scripts::parsing(path) == 1; }));
    std::thread winner = openBeside(path, second);
    Scripts::set(path, m_one);
    slow.m_parseGate->open();
    loser.join();
    winner.join();
    EXPECT_EQ(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(Scripts::opens(path), 2u);
    second->release();
}

TEST_F(OpenReader, OpensOfDifferentFilesParseSideBySide) {
    MovieScript slow = m_one;
    slow.m_parseGate = std::make_shared<Gate>();
    slow.m_parseGate->close();
    const std::string a = scripted("a.hdcam", slow), b = scripted("b.hdcam", slow);
    MediaObj* objects[2] = {};
    std::thread first = openBeside(a, objects[0]);
    std::thread second = openBeside(b, objects[1]);
    EXPECT_TRUE(kit::waitFor([&] { return slow.m_parseGate->waiting() == 2; }));
    slow.m_parseGate->open();
    first.join();
    second.join();
    for (MediaObj* object : objects)
        object->release();
}

TEST_F(OpenReader, OneSlashAtTheEndIsTakenOffAndNotTwo) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* movie = open(path + "/");
    ASSERT_NE(movie, nullptr);
    EXPECT_STREQ(movie->getPath(nullptr), path.c_str());
    movie->release();
    EXPECT_EQ(openPath((path + "//").c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
    EXPECT_STREQ(m_result.getMessage(), (path + "/").c_str());
}

TEST_F(OpenReader, NameThatTellsNothingIsTriedWithEveryReaderInTheOrderOfPriority) {
    const std::vector<MediaFileType> all{kit::s_readOnlyType, kit::s_scripted, kit::s_scriptedToo};
    for (const std::string& name : {std::string("plain"), "a." + std::string(31, 'x'), std::string("a.nosuchsuffix")}) {
        const std::string path = scripted(name, MovieScript().refuse(OpResult::Type::Warning, 15, "not mine"));
        EXPECT_EQ(openPath(path.c_str()), nullptr);
        EXPECT_TRUE(isWarning(m_result, 8)) << name;
        const std::vector<MediaFileType> tried = Scripts::openedAs(path);
        EXPECT_EQ(tried, all) << name;
        m_result.discard();
    }
}

TEST_F(OpenReader, ProbingStopsAtTheFirstReaderThatTakesTheFile) {
    const std::string path = scripted("plain", m_one);
    ScriptedMovie* movie = open(path);
    EXPECT_EQ(Scripts::openedAs(path), std::vector<MediaFileType>{kit::s_readOnlyType});
    EXPECT_TRUE(m_result);
    movie->release();
}

TEST_F(OpenReader, FailedProbeLeavesNoErrorToBeReported) {
    const std::string path =
        scripted("plain", MovieScript().refuse(OpResult::Type::Error, 15, "a reader's own trouble"));
    EXPECT_EQ(openPath(path.c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 8));
    EXPECT_EQ(errorLines(), 0u) << m_log.text();
    EXPECT_FALSE(m_log.has("*a reader's own trouble*")) << m_log.text();
}

TEST_F(OpenReader, FailureOfTheSuffixesReaderIsOverwrittenByUnsupported) {
    const std::string path = scripted("a.hdcam", MovieScript().refuse(OpResult::Type::Error, 15, "broken chunk"));
    EXPECT_EQ(openPath(path.c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 8));
    EXPECT_EQ(errorLines(), 0u) << m_log.text();
    EXPECT_EQ(Scripts::openedAs(path), std::vector<MediaFileType>{kit::s_scripted});
    // The reservation has gone with the failure, so the second try gives the same answer.
    EXPECT_EQ(m_cache.mapSize(), 0u);
    m_result.discard();
    EXPECT_EQ(openPath(path.c_str()), nullptr);
    EXPECT_TRUE(isWarning(m_result, 8));
    EXPECT_EQ(Scripts::opens(path), 2u);
}

namespace {

// Two readers share a suffix: the first fails with an error, the second takes the file without a word on the result.
MediaObj* failOver(AutoRefPtr<BasicFileIO>, OpResult& result) {
    result = MO_ERROR(MediaCode::ParserError, "the first reader's own trouble");
    return nullptr;
}
MediaObj* takeSilently(AutoRefPtr<BasicFileIO> file, OpResult&) {
    return new ScriptedMovie(MovieScript::ofTracks(1, 48000), file, MediaFileType::Mpeg1Video);
}
int openSharedSuffix(const std::string& path) {
    const kit::LogCapture log;
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Mpeg2Video, failOver), 1);
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Mpeg1Video, takeSilently), 2);
    OpResult result;
    const AutoReleasePtr<MediaObj> movie(
        MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result, MediaFileType::Unknown));
    std::printf("%s, %s, %u error lines\n", movie.get() != nullptr ? "taken" : "refused", result.describe().get(),
                log.count(LogLevel::Error, "*"));
    return 0;
}
const kit::ChildJob s_sharedSuffix("open a shared suffix", openSharedSuffix);

}  // namespace

TEST_F(OpenReader, FailureOfTheFirstOfTwoReadersOfASuffixIsForgottenWhenTheSecondTakesTheFile) {
    const kit::Outcome outcome = s_sharedSuffix.run(m_tree.write("a.mpg", "x"));
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out, "taken, ok, 0 error lines\n") << outcome.m_err;
}

TEST_F(OpenReader, TypeWithoutAReaderIsUnsupportedAndNothingIsProbed) {
    const std::string path = scripted("a.hdcam", m_one);
    for (MediaFileType type : {kit::s_nobodysType, kit::s_writeOnlyType}) {
        EXPECT_EQ(openPath(path.c_str(), type), nullptr);
        EXPECT_TRUE(isWarning(m_result, 8));
        m_result.discard();
    }
    EXPECT_EQ(Scripts::opens(path), 0u);
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(OpenReader, TypeThatIsGivenWinsOverTheSuffix) {
    const std::string path = scripted("a.hdcam", m_one);
    MediaObj* movie = openPath(path.c_str(), kit::s_scriptedToo);
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(Scripts::openedAs(path), std::vector<MediaFileType>{kit::s_scriptedToo});
    movie->release();
}

TEST_F(OpenReader, FileUnderRecordingIsHandedOutAtOnceWithoutAParse) {
    const std::string path = m_tree.path("rec.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path);
    m_tree.write("rec.hdcam", "changed underneath");
    ScriptedMovie* reader = open(path, true);
    EXPECT_EQ(reader, writer);
    EXPECT_EQ(Scripts::opens(path), 0u);
    EXPECT_EQ(writer->getReferenceCount(), 3);
    EXPECT_EQ(writer->impl().getWriterCount(), 1);
    reader->MediaObj::release();
    writer->release(nullAgent(), true);
}

TEST_F(OpenReader, WriteOpenOfAMovieThatIsBeingWrittenAddsAWriter) {
    const std::string path = m_tree.path("rec.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path);
    ScriptedMovie* second = open(path, false, MediaObj::ReadMode::ReadWrite);
    EXPECT_EQ(second, writer);
    EXPECT_EQ(writer->impl().getWriterCount(), 2);
    EXPECT_EQ(Scripts::opens(path), 0u);
    second->release(nullAgent(), true);
    writer->release(nullAgent(), true);
}

TEST_F(OpenReader, WriteOpenOfAMovieWithoutWritersParsesAgain) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* reader = open(path);
    ScriptedMovie* writer = open(path, false, MediaObj::ReadMode::ReadWrite);
    EXPECT_NE(writer, reader);
    EXPECT_EQ(Scripts::opens(path), 2u);
    EXPECT_EQ(writer->impl().getWriterCount(), 1);
    EXPECT_TRUE(writer->getMovieDesc()->isWritable());
    EXPECT_TRUE(m_cache.isZombie(reader));
    reader->MediaObj::release();
    writer->release(nullAgent(), true);
    EXPECT_FALSE(m_cache.entry(kit::TempTree::idOf(path)).value_or(nullptr)->getMovieDesc()->isWritable());
}

TEST_F(OpenReader, ForceParsesAnUnchangedFileAgain) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* first = open(path);
    ScriptedMovie* second = open(path, true);
    EXPECT_NE(first, second);
    EXPECT_EQ(Scripts::opens(path), 2u);
    EXPECT_TRUE(m_cache.isZombie(first));
    first->release();
    second->release();
}

TEST_F(OpenReader, ForceIsOfNoUseWithTheKeepBitWhateverTheVersions) {
    MovieScript kept = m_one;
    kept.m_state = MediaObjStateKeep;
    const std::string path = scripted("a.hdcam", kept);
    ScriptedMovie* first = open(path);
    m_tree.write("a.hdcam", "changed");
    ScriptedMovie* second = open(path, true);
    ScriptedMovie* third = open(path);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, third);
    EXPECT_EQ(Scripts::opens(path), 1u);
    for (ScriptedMovie* movie : {first, second, third})
        movie->release();
}

TEST_F(OpenReader, ChangedFileIsParsedAgain) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* first = open(path);
    Scripts::set(path, MovieScript::ofTracks(1, 96000));
    m_tree.write("a.hdcam", "changed and longer");
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ScriptedMovie* second = open(path);
    EXPECT_NE(first, second);
    EXPECT_EQ(Scripts::opens(path), 2u);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO::openRdr: ignore ro(0),a.hdcam,*,@*"), 1u) << m_log.text();
    first->release();
    second->release();
}

TEST_F(OpenReader, ChangeDuringTheParseIsSeenByTheNextOpen) {
    MovieScript slow = m_one;
    slow.m_parseGate = std::make_shared<Gate>();
    slow.m_parseGate->close();
    const std::string path = scripted("a.hdcam", slow);
    MediaObj* first = nullptr;
    std::thread opener = openBeside(path, first);
    ASSERT_TRUE(kit::waitFor([&] { return Scripts::parsing(path) == 1; }));
    m_tree.write("a.hdcam", "changed during the parse");
    slow.m_parseGate->open();
    opener.join();
    Scripts::set(path, MovieScript::ofTracks(1, 96000));
    ScriptedMovie* second = open(path);
    EXPECT_NE(second, first);
    EXPECT_EQ(Scripts::opens(path), 2u);
    first->release();
    second->release();
}

TEST_F(OpenReader, ByIdFindsTheFileAndSharesTheObject) {
    const std::string path = scripted("a.hdcam", m_one);
    ScriptedMovie* byPath = open(path);
    MediaObj* byId = MediaObj::openReader(kit::TempTree::idOf(path), MediaObj::ReadMode::ReadOnly, m_result);
    EXPECT_EQ(byId, byPath);
    byPath->release();
    byId->release();
}

TEST_F(OpenReader, ByAnIdOfNoFileIsAFileThatIsNotThere) {
    EXPECT_EQ(MediaObj::openReader(OsPathId(0x123456789abcull), MediaObj::ReadMode::ReadOnly, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, 6));
}

TEST_F(OpenReader, ByHandleLeavesTheHandleToTheNullAgent) {
    const std::string path = scripted("a.hdcam", m_one);
    AutoRefPtr<BasicFileIO> file(new FsFileIO("test", path.c_str(), BasicIOTypes::Mode::ReadOnly));
    MediaObj* movie = MediaObj::openReader(file, m_result);
    ASSERT_NE(movie, nullptr);
    OpResult result;
    EXPECT_EQ(movie->getFp(result, movie->getMediaId(0), nullAgent()).get(), file.get());
    movie->release();
}

TEST_F(OpenReader, MissingMediaOfANewMovieIsToldAndTheOpenSucceeds) {
    const std::string gone = m_tree.path("gone.wav");
    const std::string path = scripted("a.hdcam", MovieScript().audioIn(gone, 48000));
    ScriptedMovie* movie = open(path);
    EXPECT_EQ(m_log.count(LogLevel::Warning, gone + " missing, clip may be unusable"), 1u) << m_log.text();
    open(path);
    EXPECT_EQ(m_log.count(LogLevel::Warning, gone + " missing, clip may be unusable"), 1u);
    movie->release();
    movie->release();
}

TEST_F(OpenReader, MissingMediaIsNotLookedForUnderItsSwitch) {
    const std::string gone = m_tree.path("gone.wav");
    const std::string path = scripted("a.hdcam", MovieScript().audioIn(gone, 48000));
    mediaObjDbg.setBit(MediaDbg::IgnoreMissingMedia);
    ScriptedMovie* movie = open(path);
    EXPECT_FALSE(m_log.has("*missing, clip may be unusable")) << m_log.text();
    movie->release();
}

TEST_F(OpenReader, FileThatHoldsItsMediaIsAdvisedLargeStripesWhereNoAdviceWasGiven) {
    MovieScript script = MovieScript::ofTracks(1, 48000);
    script.m_entersPath = true;
    ScriptedMovie* movie = open(scripted("a.hdcam", script));
    EXPECT_EQ(movie->getContainment(), MediaContainment::Embedded);
    EXPECT_EQ(movie->impl().m_fileList.getSizeAdvice(0), BasicIOTypes::SizeAdvice::LargeStripe);
    movie->release();
    // Advice that was given stays: a handle counts as a header file's while it is identified.
    movie = open(scripted("b.hdcam", m_one));
    EXPECT_EQ(movie->impl().m_fileList.getSizeAdvice(0), BasicIOTypes::SizeAdvice::SmallStripe);
    movie->release();
}

TEST_F(OpenReader, FileWhoseMediaLieElsewhereIsNotAdvisedNorIsAnyUnderTheSwitch) {
    MovieScript script = MovieScript::ofTracks(1, 48000);
    script.m_entersPath = true;
    script.m_tracks[0].m_clips[0].m_container = MediaContainment::ByRef;
    ScriptedMovie* movie = open(scripted("a.hdcam", script));
    EXPECT_EQ(movie->getContainment(), MediaContainment::ByRef);
    EXPECT_EQ(movie->impl().m_fileList.getSizeAdvice(0), BasicIOTypes::SizeAdvice::None);
    movie->release();
    script.m_tracks[0].m_clips[0].m_container = MediaContainment::Embedded;
    mediaObjDbg.setBit(MediaDbg::IgnoreMissingMedia);
    movie = open(scripted("b.hdcam", script));
    EXPECT_EQ(movie->impl().m_fileList.getSizeAdvice(0), BasicIOTypes::SizeAdvice::None);
    movie->release();
}

TEST_F(OpenReader, WaitsForTheEndOfAMorphAndTellsSoUnderItsSwitch) {
    const std::string path = m_tree.path("m.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path, true);
    EXPECT_TRUE(writer->isMorphing());
    mediaObjDbg.setBit(MediaDbg::Morph);
    MediaObj* reader = nullptr;
    std::thread opener = openBeside(path, reader);
    ASSERT_TRUE(kit::waitFor([&] { return m_log.has("MO::openReader(" + path + "): wait for morph, now=1"); }));
    EXPECT_FALSE(m_log.has("*morph wait done*"));
    writer->endMorph();
    opener.join();
    EXPECT_EQ(reader, writer);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "MO::openReader(" + path + "): wait for morph, now=1"), 1u);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "MO::openReader(" + path + "): morph wait done after *us"), 1u)
        << m_log.text();
    reader->release();
    writer->release(nullAgent(), true);
}

TEST_F(OpenReader, LiveObjectOfAFileIsFoundWithoutAParse) {
    const std::string path = scripted("a.hdcam", m_one);
    const OsPathId id = kit::TempTree::idOf(path);
    EXPECT_EQ(MediaObj::getOpenObj(id), nullptr);
    ScriptedMovie* movie = open(path);
    AutoReleasePtr<MediaObj> found(MediaObj::getOpenObj(id));
    EXPECT_EQ(found.get(), movie);
    EXPECT_EQ(movie->getReferenceCount(), 3);
    EXPECT_EQ(Scripts::opens(path), 1u);
    movie->release();
}

TEST_F(OpenReader, LiveObjectInAMorphIsHandedOutAtItsEnd) {
    const std::string path = m_tree.path("m.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path, true);
    std::atomic<bool> done{false};
    std::thread asker([&] {
        AutoReleasePtr<MediaObj> found(MediaObj::getOpenObj(kit::TempTree::idOf(path)));
        EXPECT_FALSE(writer->isMorphing());
        done = true;
    });
    ASSERT_TRUE(kit::waitFor([&] { return writer->getReferenceCount() == 3; }));
    EXPECT_FALSE(done);
    writer->endMorph();
    asker.join();
    writer->release(nullAgent(), true);
}

TEST_F(OpenReader, MorphHasEndedWhenItsLastStepsAreDone) {
    const std::string path = m_tree.path("m.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path, true);
    writer->m_propsGate = std::make_shared<Gate>();
    writer->m_propsGate->close();
    mediaObjDbg.setBit(MediaDbg::Morph);
    std::thread builder([&] { writer->endMorph(); });
    ASSERT_TRUE(kit::waitFor([&] { return writer->m_propsGate->waiting() == 1; }));
    EXPECT_FALSE(writer->isMorphing());
    MediaObj* reader = nullptr;
    std::thread opener = openBeside(path, reader);
    std::thread asker([&] {
        AutoReleasePtr<MediaObj> found(MediaObj::getOpenObj(kit::TempTree::idOf(path)));
        EXPECT_EQ(writer->m_syncComputed, 1);
    });
    EXPECT_TRUE(kit::waitFor([&] { return m_log.has("MO::openReader(" + path + "): wait for morph, now=0"); }));
    EXPECT_TRUE(kit::waitFor([&] { return writer->getReferenceCount() == 4; }));
    EXPECT_FALSE(m_log.has("*morph wait done*"));
    writer->m_propsGate->open();
    builder.join();
    opener.join();
    asker.join();
    EXPECT_EQ(reader, writer);
    reader->release();
    writer->release(nullAgent(), true);
}

namespace {

class RawHeader : public ::testing::Test {
protected:
    ~RawHeader() override { m_result.discard(); }
    AutoArrayPtr<unsigned char> read(unsigned size) { return MediaObj::readRawHeader(m_file, size, m_result); }

    FakeFile* const m_fake = new FakeFile;
    AutoRefPtr<BasicFileIO> m_file{m_fake};
    OpResult m_result;
};

}  // namespace

TEST_F(RawHeader, WithoutAFileOrASizeIsAnInternalError) {
    EXPECT_EQ(read(0).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 1));
    m_result.discard();
    EXPECT_EQ(MediaObj::readRawHeader(AutoRefPtr<BasicFileIO>(), 4, m_result).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(RawHeader, OfAFileThatCannotBeOpenedIsCode2) {
    m_fake->m_openAnswer = false;
    EXPECT_EQ(read(4).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 2));
}

TEST_F(RawHeader, OfAnEmptyFileOrAFailedReadIsAReadError) {
    EXPECT_EQ(read(4).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 13));
    m_result.discard();
    m_fake->m_readAnswer = -1;
    EXPECT_EQ(read(4).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 13));
}

TEST_F(RawHeader, ShortReadIsASuccess) {
    m_fake->m_content = "RIF";
    const AutoArrayPtr<unsigned char> header = read(4);
    ASSERT_NE(header.get(), nullptr);
    EXPECT_TRUE(m_result);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(header.get()), 3), "RIF");
}
