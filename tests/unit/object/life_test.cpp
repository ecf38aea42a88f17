#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/temp_tree.h"
#include "tests/kit/wait_for.h"

using kit::formatted;
using kit::LogCapture;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::SwitchGuard;
using kit::TempTree;

namespace {

// A movie that never will be cached, with one reference.
ScriptedMovie* lonely(const MovieScript& script = MovieScript(), const std::string& path = {}, bool writable = false) {
    return new ScriptedMovie(script, path, writable, MediaObj::CacheRefValue::None);
}

std::string textOf(const MediaObj& obj, bool full) { return obj.toString(full).get(); }

}  // namespace

TEST(MovieLife, CountStartsAtTheCachesReferencesPlusTheCreatorsOwn) {
    AutoReleasePtr<ScriptedMovie> alone(lonely());
    EXPECT_EQ(alone->getReferenceCount(), 1);
    ScriptedMovie* cached = new ScriptedMovie(MovieScript());
    EXPECT_EQ(cached->getReferenceCount(), 2);
    cached->getRefCount()->release();
    cached->release();
}

TEST(MovieLife, ActiveCountsLiveObjectsAndSerialNumbersRise) {
    const int before = MediaObjImpl::active.getCount();
    ScriptedMovie* first = lonely();
    ScriptedMovie* second = lonely();
    EXPECT_EQ(MediaObjImpl::active.getCount(), before + 2);
    EXPECT_GT(second->getSerialNum(), first->getSerialNum());
    first->release();
    second->release();
    EXPECT_EQ(MediaObjImpl::active.getCount(), before);
}

TEST(MovieLife, ReleaseToZeroDeletesAnObjectThatNeverWasCached) {
    std::atomic<int> deleted{0};
    LogCapture log;
    ScriptedMovie* movie = lonely();
    movie->m_deleted = &deleted;
    EXPECT_EQ(movie->release(), 0);
    EXPECT_EQ(deleted, 1);
    EXPECT_TRUE(log.lines().empty()) << log.text();
}

TEST(MovieLife, ReleaseToZeroOfACachedObjectDeletesNothingAndLogsAStack) {
    std::atomic<int> deleted{0};
    LogCapture log;
    ScriptedMovie* movie = lonely();
    movie->m_deleted = &deleted;
    movie->setCacheId(OsPathId(77));
    EXPECT_EQ(movie->release(), 0);
    EXPECT_EQ(deleted, 0);
    EXPECT_EQ(log.count(LogLevel::Debug, formatted("MO@%p::release-->0,*", static_cast<void*>(movie))), 1u)
        << log.text();
    movie->setCacheId(OsPathId(0));
    delete static_cast<MediaObj*>(movie);
    EXPECT_EQ(deleted, 1);
}

TEST(MovieLife, IdleClockStartsWhenOnlyTheCachesReferenceIsLeft) {
    ScriptedMovie* movie = new ScriptedMovie(MovieScript());
    movie->setCacheId(OsPathId(77));
    EXPECT_EQ(movie->impl().getLastRefTime(), 0);
    EXPECT_EQ(movie->release(), 1);
    EXPECT_NE(movie->impl().getLastRefTime(), 0);
    movie->setCacheId(OsPathId(0));
    movie->release();
}

TEST(MovieLife, ReleaseOfAnObjectThatWasNeverCachedStartsNoIdleClock) {
    ScriptedMovie* movie = new ScriptedMovie(MovieScript());
    EXPECT_EQ(movie->release(), 1);
    EXPECT_EQ(movie->impl().getLastRefTime(), 0);
    movie->release();
}

TEST(MovieLife, PreserveOfADeadObjectLogsAStack) {
    LogCapture log;
    ScriptedMovie* movie = lonely();
    movie->getRefCount()->release();
    EXPECT_EQ(movie->preserve(), 1);
    EXPECT_EQ(log.count(LogLevel::Debug, formatted("MO@%p::preserve-->1,*", static_cast<void*>(movie))), 1u)
        << log.text();
    EXPECT_EQ(movie->preserve(), 2);
    EXPECT_EQ(log.lines().size(), 1u);
    movie->release();
    movie->release();
}

TEST(MovieLife, ReferenceSwitchLogsEveryPreserveAndRelease) {
    LogCapture log;
    const SwitchGuard on(mediaObjDbg, MediaDbg::Reference);
    ScriptedMovie* movie = lonely();
    void* const address = movie;
    movie->preserve();
    movie->release();
    EXPECT_EQ(log.count(formatted("MO@%p::preserve-->2,*", address)), 1u) << log.text();
    EXPECT_EQ(log.count(formatted("MO@%p::release-->1,*", address)), 1u) << log.text();
    movie->release();
    EXPECT_EQ(log.count(formatted("MO@%p::release-->0,*", address)), 1u) << log.text();
}

TEST(MovieLife, ReleaseDuringADeepMorphWarns) {
    TempTree tree;
    LogCapture log;
    const std::string path = tree.write("deep.hdcam", "x");
    ScriptedMovie* movie = lonely(MovieScript(), path);
    for (int i = 0; i < 3; ++i)
        movie->beginMorph();
    for (int i = 0; i < 3; ++i)
        movie->preserve();
    EXPECT_EQ(movie->release(), 3);
    EXPECT_EQ(log.count(LogLevel::Warning, "MO::release: " + path + " ref cnt now 3 and morph ongoing"), 1u)
        << log.text();
    EXPECT_EQ(movie->release(), 2);
    movie->endMorph();
    movie->preserve();
    movie->preserve();
    EXPECT_EQ(movie->release(), 3);
    EXPECT_EQ(movie->release(), 2);
    EXPECT_EQ(log.count(LogLevel::Warning, "*"), 1u) << log.text();
    movie->endMorph();
    movie->endMorph();
    movie->release();
    movie->release();
}

TEST(MovieLife, ConstructionAndDestructionAreLoggedUnderTheCtorSwitch) {
    LogCapture log;
    const SwitchGuard on(mediaObjDbg, MediaDbg::Ctor);
    const int before = MediaObjImpl::active.getCount();
    ScriptedMovie* movie = lonely();
    void* const address = static_cast<MediaObj*>(movie);
    EXPECT_EQ(log.count(LogLevel::Debug, formatted("MO@%p::ctor,%d tot", address, before + 1)), 1u) << log.text();
    movie->release();
    EXPECT_EQ(
        log.count(LogLevel::Debug, formatted("MO@%p::dtor,%dactive,0clients,0writers,ref=0", address, before + 1)), 1u)
        << log.text();
}

TEST(MovieLife, DestructionOfACachedOrHeldObjectIsToldWithoutASwitch) {
    LogCapture log;
    ScriptedMovie* movie = lonely();
    void* const address = static_cast<MediaObj*>(movie);
    movie->impl().setCached(true);
    const int active = MediaObjImpl::active.getCount();
    delete static_cast<MediaObj*>(movie);
    EXPECT_EQ(log.count(formatted("MO@%p::dtor,%dactive,0clients,0writers,cached,ref=1", address, active)), 1u)
        << log.text();
}

TEST(MovieLife, DestructionWithWritersIsToldUnderPermissionChange) {
    LogCapture log;
    lonely()->release();
    ScriptedMovie* quiet = lonely();
    quiet->addWriter();
    quiet->release();
    EXPECT_TRUE(log.lines().empty()) << log.text();
    const SwitchGuard on(mediaObjDbg, MediaDbg::PermissionChange);
    ScriptedMovie* told = lonely();
    told->addWriter();
    told->addWriter();
    told->release();
    EXPECT_EQ(log.count("MO@*::dtor,*active,0clients,2writers,ref=0"), 1u) << log.text();
}

TEST(MovieLife, ObjectDestroyedInAMorphGivesOneErrorLineAndGoesNormally) {
    TempTree tree;
    LogCapture log;
    const std::string path = tree.write("morph.hdcam", "x");
    std::atomic<int> deleted{0};
    for (int i = 0; i < 2; ++i) {
        ScriptedMovie* movie = lonely(MovieScript(), path);
        movie->m_deleted = &deleted;
        movie->beginMorph();
        movie->release();
    }
    EXPECT_EQ(deleted, 2);
    EXPECT_EQ(log.count(LogLevel::Error, "MO::dtor: non-zero morph count for " + path + " (1)"), 1u) << log.text();
}

TEST(MovieLife, NegativeCountParksTheDestroyingThreadUntilTheFaultIsGone) {
    LogCapture log;
    ScriptedMovie* movie = lonely();
    RefCount* const count = movie->getRefCount();
    count->release();
    count->release();
    std::thread destroyer([movie] { delete static_cast<MediaObj*>(movie); });
    ASSERT_TRUE(kit::waitFor([&] { return log.has("MO@*::dtor,*active,0clients,0writers,ref=-1,process blocked"); }))
        << log.text();
    count->preserve();
    destroyer.join();
}

TEST(MovieLife, DestroyedObjectWhoseMemoryIsIntactIsNotValid) {
    alignas(ScriptedMovie) static unsigned char memory[sizeof(ScriptedMovie)];
    ScriptedMovie* movie = new (memory) ScriptedMovie(MovieScript(), {}, false, MediaObj::CacheRefValue::None);
    EXPECT_TRUE(movie->isValid());
    movie->getRefCount()->release();
    movie->~ScriptedMovie();
    EXPECT_FALSE(movie->isValid());
}

TEST(MovieVersion, OfAWritableObjectIsTheFilesAndOfAReadOnlyOneTheStored) {
    TempTree tree;
    const std::string path = tree.write("v.hdcam", "one");
    AutoReleasePtr<ScriptedMovie> reader(lonely(MovieScript(), path, false));
    AutoReleasePtr<ScriptedMovie> writer(lonely(MovieScript(), path, true));
    AutoReleasePtr<ScriptedMovie> live(lonely(MovieScript(), path, false));
    live->m_state = MediaObjStateLiveVersion;
    const unsigned long long first = reader->getVersion();
    EXPECT_EQ(writer->getVersion(), first);
    EXPECT_EQ(live->getVersion(), first);
    tree.write("v.hdcam", "changed and longer");
    EXPECT_EQ(reader->getVersion(), first);
    const unsigned long long second = writer->getVersion();
    EXPECT_NE(second, first);
    EXPECT_EQ(live->getVersion(), second);
    EXPECT_EQ(live->impl().getVersion(), second);
    reader->setVersion(5, false);
    EXPECT_EQ(reader->getVersion(), 5u);
}

TEST(MovieState, OnlyAskedBitsCount) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    EXPECT_FALSE(movie->hasState(MediaObjStateKeep));
    EXPECT_FALSE(movie->hasState(MediaObjStateLiveVersion));
    movie->m_state = 2 | 8;
    EXPECT_FALSE(movie->hasState(MediaObjStateKeep));
    EXPECT_TRUE(movie->hasState(MediaObjStateLiveVersion));
    EXPECT_EQ(static_cast<unsigned>(MediaObjStateKeep), 1u);
    EXPECT_EQ(static_cast<unsigned>(MediaObjStateLiveVersion), 2u);
}

TEST(MovieText, OfAnObjectWithoutTracksTellsZeroTracks) {
    TempTree tree;
    const std::string path = tree.write("empty.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript(), path));
    movie->setVersion(42, false);
    const unsigned long long id = TempTree::idOf(path).getId();
    EXPECT_EQ(textOf(*movie.get(), true),
              formatted("ro(0),empty.hdcam,%s,@%p,v42,ref=1,0 trk,0 f,fileId=%llx,cacheId=0",
                        MediaNames::get(MediaVideoRate::Pal25), static_cast<void*>(movie.get()), id));
    movie->setCacheId(OsPathId(id));
    EXPECT_EQ(textOf(*movie.get(), true),
              formatted("ro(0),empty.hdcam,%s,@%p,v42,ref=1,0 trk,0 f,fileId=%llx",
                        MediaNames::get(MediaVideoRate::Pal25), static_cast<void*>(movie.get()), id));
    movie->setCacheId(OsPathId(0));
}

TEST(MovieText, ShortFormTellsFlagsWritersNameRateAddressAndCount) {
    TempTree tree;
    const std::string path = tree.write("w.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript(), path, true));
    movie->addWriter();
    EXPECT_TRUE(movie->setRecording(true));
    EXPECT_EQ(textOf(*movie.get(), false),
              formatted("rec,rw(1),w.hdcam,%s,@%p,ref=1", MediaNames::get(MediaVideoRate::Pal25),
                        static_cast<void*>(movie.get())));
}

TEST(MovieText, ValidationSwitchKeepsAddressesAndVersionsOut) {
    TempTree tree;
    const std::string path = tree.write("n.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript::ofTracks(2, 48000), path));
    const SwitchGuard on(mediaObjDbg, MediaDbg::Validation);
    const std::string head = formatted("ro(0),n.hdcam,%s,@<suppressed for validation>,ref=1,2 trk,25 f,fileId",
                                       MediaNames::get(MediaVideoRate::Pal25));
    EXPECT_EQ(textOf(*movie.get(), true), head + "!=cacheId");
    EXPECT_EQ(textOf(*movie.get(), false), head + "!=cacheId");
    movie->setCacheId(TempTree::idOf(path));
    EXPECT_EQ(textOf(*movie.get(), true), head + "==cacheId");
    movie->setCacheId(OsPathId(0));
}

TEST(MovieWriters, EachReferencedMovieGainsOneWriterHoweverOftenItIsNamed) {
    AutoReleasePtr<ScriptedMovie> first(lonely()), second(lonely()), movie(lonely());
    movie->m_references = {first.get(), second.get(), first.get()};
    movie->addWriter();
    EXPECT_EQ(movie->impl().getWriterCount(), 1);
    EXPECT_EQ(first->impl().getWriterCount(), 1);
    EXPECT_EQ(second->impl().getWriterCount(), 1);
    movie->dropWriter();
    EXPECT_EQ(movie->impl().getWriterCount(), 0);
    EXPECT_EQ(first->impl().getWriterCount(), 0);
    EXPECT_EQ(second->impl().getWriterCount(), 0);
}

TEST(MovieWriters, CountHasNoFloor) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    movie->dropWriter();
    EXPECT_EQ(movie->impl().getWriterCount(), -1);
    EXPECT_FALSE(movie->impl().isWritable());
    movie->addWriter();
    movie->addWriter();
    EXPECT_TRUE(movie->impl().isWritable());
}

TEST(MovieWriters, CountsAreLoggedUnderTheirSwitch) {
    TempTree tree;
    LogCapture log;
    const std::string path = tree.write("w.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript(), path));
    movie->addWriter();
    EXPECT_TRUE(log.lines().empty());
    const SwitchGuard on(mediaObjDbg, MediaDbg::WriterCount);
    movie->addWriter();
    movie->dropWriter();
    EXPECT_EQ(log.count(LogLevel::Debug, path + ":inc W 1->2"), 1u) << log.text();
    EXPECT_EQ(log.count(LogLevel::Debug, path + ":dec W 2->1"), 1u) << log.text();
}

TEST(MovieReadOnly, TurnsTheMovieAndWhatItRefersTo) {
    AutoReleasePtr<ScriptedMovie> referenced(lonely({}, {}, true)), movie(lonely({}, {}, true));
    movie->m_references = {referenced.get(), referenced.get()};
    movie->setReadOnly();
    EXPECT_FALSE(movie->getMovieDesc()->isWritable());
    EXPECT_FALSE(referenced->getMovieDesc()->isWritable());
}

TEST(MovieRecording, IsRefusedOnAReadOnlyMovie) {
    AutoReleasePtr<ScriptedMovie> reader(lonely()), writer(lonely({}, {}, true));
    EXPECT_TRUE(kit::isWarning(reader->setRecording(true), 5));
    EXPECT_FALSE(reader->isRecording());
    EXPECT_TRUE(writer->setRecording(true));
    EXPECT_TRUE(writer->isRecording());
    EXPECT_TRUE(writer->setRecording(false));
    EXPECT_FALSE(writer->isRecording());
}

TEST(MovieBase, AnswersOfTheBaseClass) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    EXPECT_FALSE(movie->isZarnexMovie());
    EXPECT_FALSE(movie->tracksMustBeAligned());
    EXPECT_FALSE(movie->supportsEmptyEdits());
    EXPECT_TRUE(movie->isStream());
    EXPECT_FALSE(movie->canHaveRefMedia());
    EXPECT_EQ(movie->getPlayoutIopExtra(), 0u);
    EXPECT_EQ(movie->getParseRoot(), nullptr);
    EXPECT_FALSE(movie->canHaveSideBandFiles());
    std::list<std::string> files{"left alone"};
    EXPECT_FALSE(movie->acceptSideBandFiles("folder", files));
    OpResult result;
    EXPECT_EQ(movie->createTranslationTrack(0, MediaFileType::Wav, result), nullptr);
    EXPECT_TRUE(movie->MediaObj::acceptReplacement(nullptr));
    EXPECT_EQ(movie->MediaObj::getState(), 0u);
    EXPECT_TRUE(movie->MediaObj::getExternalRefMediaObj().empty());
}

TEST(MovieBase, FinalFrameLengthIsUnknown) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    unsigned long long frames = 7;
    EXPECT_FALSE(movie->getFinalFrameLength(frames));
    EXPECT_EQ(frames, ~0ull);
}

TEST(MovieBase, IdsOfCacheAndPrimaryFileAreKeptApart) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    movie->setCacheId(OsPathId(3));
    movie->setCachedFileId(OsPathId(4));
    EXPECT_EQ(static_cast<MediaObj*>(movie.get())->getPathId(), OsPathId(3));
    EXPECT_EQ(movie->getFileId(), OsPathId(4));
    movie->setCacheId(OsPathId(0));
}
