#include "neighbours/tl_media_obj.h"

#include <gmock/gmock.h>

#include <functional>

#include "shared/include/description/media_clip_param.h"
#include "shared/include/index/media_red_zone.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/naming/default_media_namer.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/switch_guard.h"

// A stand-in passes on what it is asked, and lives by itself.

using kit::MovieScript;
using kit::ScriptedMovie;
using testing::ElementsAre;
using testing::IsEmpty;
using Timeline::TlMediaObj;

namespace {

ScriptedMovie* lonely(const MovieScript& script = MovieScript()) {
    return new ScriptedMovie(script, {}, false, MediaObj::CacheRefValue::None);
}

// A movie whose answers differ from every base behaviour, and that notes what it is asked to do.
class AnsweringMovie final : public ScriptedMovie {
public:
    AnsweringMovie() : ScriptedMovie(MovieScript::ofTracks(1, 48000), {}, false, CacheRefValue::None) {}

    using ScriptedMovie::close;
    using ScriptedMovie::createTrack;
    using ScriptedMovie::flush;

    OsPathId getFileId() const override { return OsPathId(11); }
    OsPathId getPathId() const override { return OsPathId(12); }
    OsPathId getPathId(MediaIdRec*) const override { return OsPathId(13); }
    unsigned long long getVersion() const override { return 14; }
    void setVersion(unsigned long long version, bool written) override { note("setVersion", version, written); }
    SwVersion getMediaLayerVersion() const override { return SwVersion(5, 3, 2, 1); }
    bool isZarnexMovie() const override { return true; }
    MediaTrackDesc* createTranslationTrack(unsigned index, MediaFileType type, OpResult&) override {
        note("createTranslationTrack", index, static_cast<unsigned>(type));
        return getTrackAt(0);
    }
    bool acceptSideBandFiles(const std::string&, std::list<std::string>& files) override {
        files.push_back("accepted");
        return true;
    }
    void getSideBandFiles(std::string& folder, std::list<std::string>&) override { folder = "side band"; }
    bool canHaveSideBandFiles() const override { return true; }
    MediaTrackDesc* createTrack(const MediaClipParam&, OpResult&) override { return noteTrack("createTrack"); }
    MediaTrackDesc* createTrack(const MediaTrackDesc&, OpResult&) override { return noteTrack("createTrackLike"); }
    void flush(const MediaTrackDesc*, bool now) override { note("flush", now); }
    void purge() const override { note("purge"); }
    bool tracksMustBeAligned() const override { return true; }
    bool supportsEmptyEdits() const override { return true; }
    bool isStream() const override { return false; }
    bool canHaveRefMedia() const override { return true; }
    AutoRefPtr<BasicFileIO> open(MediaIdRec*, MediaAgent, ReadMode mode, OpResult& result) const override {
        note("open", static_cast<unsigned>(mode));
        result = OpResult(OpResult::Ok);
        return AutoRefPtr<BasicFileIO>();
    }
    OpResult close(MediaIdRec*, MediaAgent) const override { return noteResult("close"); }
    OpResult reread() const override { return noteResult("reread"); }
    OpResult vaRead(const MediaReadReq&) const override { return noteResult("vaRead"); }
    OpResult vsRead(const MediaSampleInMovie&, MediaIoBuf&) const override { return noteResult("vsRead"); }
    OpResult vaWrite(const MediaSampleInMovie&, phantom_OBUF*) override { return noteResult("vaWrite"); }
    OpResult vsWrite(const MediaSampleInMovie&, const MediaIoBuf&) override { return noteResult("vsWrite"); }
    MediaTrackDesc* copyClips(const MediaTrackDesc&, OpResult&) override { return noteTrack("copyClips"); }
    MediaTrackDesc* createClip(const MediaTrackDesc&, MediaContainment, OpResult&) override {
        return noteTrack("createClip");
    }
    bool canReceive(const MediaObj&, MediaEncodingType& encoding) const override {
        encoding = MediaEncodingType::Dv;
        return true;
    }
    unsigned getPlayoutIopExtra() const override { return 15; }
    MediaIdRec* commonId() const override { return someId(16); }
    OpResult remove() override { return noteResult("remove"); }
    OpResult setRecording(bool recording) override {
        note("setRecording", recording);
        return OpResult(OpResult::Ok);
    }
    bool isRecording() const override { return true; }
    bool canPrecharge() const override { return true; }
    bool canPrecharge(unsigned& gopLength) const override {
        gopLength = 26;
        return true;
    }
    void adviseCapacity(unsigned long long capacity) override { note("adviseCapacity", capacity); }
    MediaRedZone getRedZone(bool flag) const override {
        note("getRedZone", flag);
        return ScriptedMovie::getRedZone(flag);
    }
    void inheritVideoRate(MediaVideoRate rate) override { note("inheritVideoRate", static_cast<unsigned>(rate)); }
    void setDefaultVideoRate(MediaVideoRate rate) override { note("setDefaultVideoRate", static_cast<unsigned>(rate)); }
    OpResult setTimecode(const MediaTimecode&) override { return noteResult("setTimecode"); }
    OpResult setTimecode(MediaAgent, unsigned long long frame, const MediaTimecode&) override {
        note("setTimecodeAt", frame);
        return OpResult(OpResult::Ok);
    }
    MediaTimecode getTimecode() const override {
        note("getTimecode");
        return ScriptedMovie::getTimecode();
    }
    const char* getPath(MediaIdRec*) const override { return "/answering/movie"; }
    unsigned long long getMediaSize(MediaIdRec*) const override { return 17; }
    MediaIdRec* getMediaId(unsigned index) const override { return someId(18 + index); }
    unsigned getMediaIndex(MediaIdRec*) const override { return 20; }
    unsigned getMediaCount() const override { return 21; }
    AutoRefPtr<BasicFileIO> getFp(OpResult&, MediaIdRec*, MediaAgent) const override {
        note("getFp");
        return AutoRefPtr<BasicFileIO>();
    }
    AutoRefPtr<BasicFileIO> getFp(OpResult&, MediaIdRec*, bool writable, MediaAgent) const override {
        note("getFpFor", writable);
        return AutoRefPtr<BasicFileIO>();
    }
    FixedPoint<16> getMaxLength() const override { return FixedPoint<16>(22); }
    unsigned long long getFrameLength() const override { return 23; }
    unsigned long long getReadSafeFrameLength() const override { return 24; }
    bool getFinalFrameLength(unsigned long long& frames) const override {
        frames = 25;
        return true;
    }
    const MediaPropertyList& getProperties() const override { return m_bag; }
    OpResult requestStyle(const char* style, bool flag) override {
        note(style, flag);
        return OpResult(OpResult::Ok);
    }
    const char* getStyle() const override { return "answering style"; }
    const char* const* getStyles(unsigned& count) const override {
        static const char* const styles[] = {"one", "two"};
        count = 2;
        return styles;
    }
    void beginMorph() override { note("beginMorph"); }
    void endMorph() override { note("endMorph"); }
    void* getParseRoot() override { return &m_bag; }
    AutoPtr<char> toString(bool) const override {
        note("toString");
        return AutoPtr<char>();
    }
    void setReadOnly() override { note("setReadOnly"); }
    void computeSyncAdjustments() override { note("computeSyncAdjustments"); }
    bool notifyLength(MediaTrackDesc&) override {
        note("notifyLength");
        return true;
    }
    bool acceptReplacement(const MediaObj*) override {
        note("acceptReplacement");
        return false;
    }
    void setClipProperties(bool flag) override { note("setClipProperties", flag); }
    const char* getClipProperties() const override { return "answering properties"; }
    bool addClipProperty(const char* name) override {
        note(name);
        return false;
    }
    OpResult isClipSupported(const char* supported) const override { return noteResult(supported); }
    void resetClipProperties() override { note("resetClipProperties"); }
    OpResult requestClipProperties(const char* names) override { return noteResult(names); }
    const UserDataSet* getUserDataMovie() const override { return someData(27); }
    UserDataSet* getUserDataMovie(bool make) override {
        note("getUserDataMovie", make);
        return someData(28);
    }
    const char* getUmid() const override { return "answering umid"; }
    OpResult generateUmid() override { return noteResult("generateUmid"); }
    OpResult setProxyUmid(const MediaObj& other) override {
        m_asked = &other;
        return noteResult("setProxyUmid");
    }
    const char* getSourceUmid(OpResult& result) override {
        result = MO_WARNING(MediaCode::ReadError, nullptr);
        return "answering source";
    }
    OpResult rename(const char* newPath, bool renameMedia, Namer* namer) override {
        m_asked = namer;
        note(newPath, renameMedia);
        return OpResult(OpResult::Ok);
    }
    OpResult renameMediaId(MediaIdRec* id, const char* path) override {
        m_asked = id;
        return noteResult(path);
    }
    OpResult reviewMediaName(DefaultMediaNamer& namer, NameReq& req, std::string& name) override {
        m_asked = &namer;
        name = req.m_path;
        return noteResult("reviewMediaName");
    }
    void addWriter() override { note("addWriter"); }
    void dropWriter() override { note("dropWriter"); }

    static MediaIdRec* someId(std::uintptr_t id) { return reinterpret_cast<MediaIdRec*>(id); }
    // Never looked into.
    static UserDataSet* someData(std::uintptr_t place) { return reinterpret_cast<UserDataSet*>(place); }
    std::vector<std::string> takeNotes() const { return std::exchange(m_notes, {}); }

    MediaParams m_bag;
    const void* m_asked = nullptr;  // the object or id that the last question was about

private:
    template <typename... Args>
    void note(const char* what, Args... args) const {
        std::string text = what;
        ((text += " " + std::to_string(args)), ...);
        m_notes.push_back(text);
    }
    OpResult noteResult(const char* what) const {
        note(what);
        return OpResult(OpResult::Ok);
    }
    MediaTrackDesc* noteTrack(const char* what) {
        note(what);
        return getTrackAt(0);
    }

    mutable std::vector<std::string> m_notes;
};

class StandIn : public testing::Test {
protected:
    // What the movie behind notes while this runs.
    std::vector<std::string> notes(const std::function<void()>& ask) {
        m_behind->takeNotes();
        ask();
        return m_behind->takeNotes();
    }

    AutoReleasePtr<AnsweringMovie> m_behind{new AnsweringMovie};
    AutoRefPtr<MediaObj> m_standIn = TlMediaObj::wrap(AutoRefPtr<MediaObj>(m_behind.get()));
    MediaObj& m_movie = *m_standIn;
    const MediaObj& m_const = m_movie;
    OpResult m_result;
};

}  // namespace

TEST(StandInLife, ForNothingIsNothing) { EXPECT_EQ(TlMediaObj::wrap(AutoRefPtr<MediaObj>()).get(), nullptr); }

TEST(StandInLife, HasOneReferenceAndHoldsOneOnTheMovieBehind) {
    const int active = MediaObjImpl::active.getCount();
    ScriptedMovie* behind = lonely();
    {
        const AutoRefPtr<MediaObj> standIn = TlMediaObj::wrap(AutoRefPtr<MediaObj>(behind, PreReferenced()));
        EXPECT_EQ(standIn->getReferenceCount(), 1);
        EXPECT_EQ(behind->getReferenceCount(), 1);
        standIn->preserve();
        EXPECT_EQ(behind->getReferenceCount(), 1);
        EXPECT_EQ(standIn->release(), 1);
        EXPECT_EQ(MediaObjImpl::active.getCount(), active + 2);
    }
    EXPECT_EQ(MediaObjImpl::active.getCount(), active);
}

TEST(StandInLife, OfAMovieThatOthersHoldGoesAlone) {
    const AutoReleasePtr<ScriptedMovie> behind(lonely());
    { const AutoRefPtr<MediaObj> standIn = TlMediaObj::wrap(AutoRefPtr<MediaObj>(behind.get())); }
    EXPECT_EQ(behind->getReferenceCount(), 1);
    EXPECT_TRUE(behind->isValid());
}

TEST(StandInLife, MayItselfHaveAStandIn) {
    const AutoReleasePtr<ScriptedMovie> behind(lonely(MovieScript::ofTracks(2, 48000)));
    const AutoRefPtr<MediaObj> second = TlMediaObj::wrap(TlMediaObj::wrap(AutoRefPtr<MediaObj>(behind.get())));
    EXPECT_EQ(second->getTrackAt(1), behind->getTrackAt(1));
    EXPECT_EQ(behind->getReferenceCount(), 2);
}

TEST_F(StandIn, AnswersWhatTheMovieBehindAnswers) {
    MediaObj& behind = *m_behind.get();
    EXPECT_EQ(m_movie.getFileId(), 11u);
    EXPECT_EQ(m_movie.getPathId(), 12u);
    EXPECT_EQ(m_movie.getPathId(nullptr), 13u);
    EXPECT_EQ(m_movie.getVersion(), 14u);
    m_behind->m_state = MediaObjStateKeep;
    EXPECT_TRUE(m_movie.hasState(MediaObjStateKeep));
    EXPECT_FALSE(m_movie.hasState(MediaObjStateLiveVersion));
    EXPECT_FALSE(m_movie.getMediaLayerVersion() < SwVersion(5, 3, 2, 1));
    EXPECT_TRUE(m_movie.getMediaLayerVersion() < SwVersion(5, 3, 2, 2));
    EXPECT_TRUE(m_movie.isZarnexMovie());
    EXPECT_TRUE(m_movie.canHaveSideBandFiles());
    EXPECT_EQ(m_movie.getMovieDesc(), behind.getMovieDesc());
    EXPECT_EQ(m_const.getMovieDesc(), behind.getMovieDesc());
    EXPECT_EQ(m_movie.getTrackCount(), 1u);
    EXPECT_EQ(m_movie.getTrackAt(0), behind.getTrackAt(0));
    EXPECT_EQ(m_const.getTrackAt(0), behind.getTrackAt(0));
    EXPECT_TRUE(m_movie.tracksMustBeAligned());
    EXPECT_TRUE(m_movie.supportsEmptyEdits());
    EXPECT_FALSE(m_movie.isStream());
    EXPECT_TRUE(m_movie.canHaveRefMedia());
    EXPECT_EQ(m_movie.getPlayoutIopExtra(), 15u);
    EXPECT_EQ(m_movie.commonId(), AnsweringMovie::someId(16));
    EXPECT_TRUE(m_movie.isRecording());
    EXPECT_TRUE(m_movie.canPrecharge());
    unsigned gopLength = 0;
    EXPECT_TRUE(m_movie.canPrecharge(gopLength));
    EXPECT_EQ(gopLength, 26u);
    EXPECT_STREQ(m_movie.getPath(nullptr), "/answering/movie");
    EXPECT_EQ(m_movie.getMediaSize(nullptr), 17u);
    EXPECT_EQ(m_movie.getMediaId(1), AnsweringMovie::someId(19));
    EXPECT_EQ(m_movie.getMediaIndex(nullptr), 20u);
    EXPECT_EQ(m_movie.getMediaCount(), 21u);
    EXPECT_EQ(m_movie.getMaxLength(), FixedPoint<16>(22));
    EXPECT_EQ(m_movie.getFrameLength(), 23u);
    EXPECT_EQ(m_movie.getReadSafeFrameLength(), 24u);
    unsigned long long frames = 0;
    EXPECT_TRUE(m_movie.getFinalFrameLength(frames));
    EXPECT_EQ(frames, 25u);
    EXPECT_EQ(&m_movie.getProperties(), &m_behind->m_bag);
    EXPECT_STREQ(m_movie.getStyle(), "answering style");
    unsigned styles = 0;
    EXPECT_STREQ(m_movie.getStyles(styles)[1], "two");
    EXPECT_EQ(styles, 2u);
    EXPECT_EQ(m_movie.getParseRoot(), &m_behind->m_bag);
    const AutoReleasePtr<ScriptedMovie> other(lonely());
    m_behind->m_references = {other.get()};
    EXPECT_THAT(m_movie.getExternalRefMediaObj(), ElementsAre(other.get()));
    MediaEncodingType encoding = MediaEncodingType::Unknown;
    EXPECT_TRUE(m_movie.canReceive(*other.get(), encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Dv);
    std::string folder;
    std::list<std::string> files;
    m_movie.getSideBandFiles(folder, files);
    EXPECT_EQ(folder, "side band");
    EXPECT_TRUE(m_movie.acceptSideBandFiles(folder, files));
    EXPECT_THAT(files, ElementsAre("accepted"));
}

TEST_F(StandIn, PassesOnWhatItIsToldToDo) {
    MediaTrackDesc& track = *m_behind->getTrackAt(0);
    EXPECT_THAT(notes([&] { m_movie.setVersion(7, true); }), ElementsAre("setVersion 7 1"));
    EXPECT_THAT(notes([&] { m_movie.flush(&track, true); }), ElementsAre("flush 1"));
    EXPECT_THAT(notes([&] { m_movie.purge(); }), ElementsAre("purge"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.close(nullptr, MediaAgent()).success()); }), ElementsAre("close"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.reread().success()); }), ElementsAre("reread"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.remove().success()); }), ElementsAre("remove"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.setRecording(true).success()); }), ElementsAre("setRecording 1"));
    EXPECT_THAT(notes([&] { m_movie.adviseCapacity(8); }), ElementsAre("adviseCapacity 8"));
    EXPECT_THAT(notes([&] { static_cast<void>(m_movie.getRedZone(true)); }), ElementsAre("getRedZone 1"));
    EXPECT_THAT(notes([&] { m_movie.inheritVideoRate(MediaVideoRate::Pal25); }), ElementsAre("inheritVideoRate 1"));
    EXPECT_THAT(notes([&] { m_movie.setDefaultVideoRate(MediaVideoRate::Pal25); }),
                ElementsAre("setDefaultVideoRate 1"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.setTimecode(MediaTimecode()).success()); }),
                ElementsAre("setTimecode"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.setTimecode(MediaAgent(), 5, MediaTimecode()).success()); }),
                ElementsAre("setTimecodeAt 5"));
    EXPECT_THAT(notes([&] { static_cast<void>(m_movie.getTimecode()); }), ElementsAre("getTimecode"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.requestStyle("style", true).success()); }), ElementsAre("style 1"));
    EXPECT_THAT(notes([&] { m_movie.beginMorph(); }), ElementsAre("beginMorph"));
    EXPECT_THAT(notes([&] { m_movie.endMorph(); }), ElementsAre("endMorph"));
    EXPECT_THAT(notes([&] { static_cast<void>(m_movie.toString(true)); }), ElementsAre("toString"));
    EXPECT_THAT(notes([&] { m_movie.setReadOnly(); }), ElementsAre("setReadOnly"));
    EXPECT_THAT(notes([&] { m_movie.computeSyncAdjustments(); }), ElementsAre("computeSyncAdjustments"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.notifyLength(track)); }), ElementsAre("notifyLength"));
    EXPECT_THAT(notes([&] { EXPECT_FALSE(m_movie.acceptReplacement(nullptr)); }), ElementsAre("acceptReplacement"));
    EXPECT_THAT(notes([&] { m_movie.setClipProperties(true); }), ElementsAre("setClipProperties 1"));
    EXPECT_THAT(notes([&] { m_movie.addWriter(); }), ElementsAre("addWriter"));
    EXPECT_THAT(notes([&] { m_movie.dropWriter(); }), ElementsAre("dropWriter"));
}

TEST_F(StandIn, HasTheClipPropertiesAndTheUmidOfTheMovieBehind) {
    EXPECT_STREQ(m_movie.getClipProperties(), "answering properties");
    EXPECT_THAT(notes([&] { EXPECT_FALSE(m_movie.addClipProperty("one more")); }), ElementsAre("one more"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.isClipSupported("these").success()); }), ElementsAre("these"));
    EXPECT_THAT(notes([&] { m_movie.resetClipProperties(); }), ElementsAre("resetClipProperties"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.requestClipProperties("those").success()); }), ElementsAre("those"));
    EXPECT_EQ(m_const.getUserDataMovie(), AnsweringMovie::someData(27));
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.getUserDataMovie(true), AnsweringMovie::someData(28)); }),
                ElementsAre("getUserDataMovie 1"));
    EXPECT_STREQ(m_movie.getUmid(), "answering umid");
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.generateUmid().success()); }), ElementsAre("generateUmid"));
    const AutoReleasePtr<ScriptedMovie> other(lonely());
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.setProxyUmid(*other.get()).success()); }), ElementsAre("setProxyUmid"));
    EXPECT_EQ(m_behind->m_asked, other.get());
    EXPECT_STREQ(m_movie.getSourceUmid(m_result), "answering source");
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::ReadError));
    m_result.discard();
}

TEST_F(StandIn, IsRenamedAsTheMovieBehind) {
    DefaultMediaNamer namer(nullptr, nullptr, 1);
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.rename("new path", true, namer.getCbInfo()).success()); }),
                ElementsAre("new path 1"));
    EXPECT_EQ(m_behind->m_asked, namer.getCbInfo());
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.rename("newer", false, nullptr).success()); }), ElementsAre("newer 0"));
    EXPECT_EQ(m_behind->m_asked, nullptr);
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.renameMediaId(AnsweringMovie::someId(29), "media path").success()); }),
                ElementsAre("media path"));
    EXPECT_EQ(m_behind->m_asked, AnsweringMovie::someId(29));
    MediaObj::NameReq req("asked for", 0, MediaFileType::Wav);
    std::string name;
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.reviewMediaName(namer, req, name).success()); }),
                ElementsAre("reviewMediaName"));
    EXPECT_EQ(m_behind->m_asked, &namer);
    EXPECT_EQ(name, "asked for");
}

// Whether a clip is checked, and what its frame behind the last is, the clip of the movie behind decides: it is that
// one.
TEST_F(StandIn, ShowsTheClipsOfTheMovieBehind) {
    EXPECT_EQ(m_movie.getTrackAt(0)->getClip(0), m_behind->getTrackAt(0)->getClip(0));
    EXPECT_EQ(&m_movie.getTrackAt(0)->getClip(0)->getObj(), m_behind.get());
}

TEST_F(StandIn, BuildsInTheMovieBehind) {
    MediaTrackDesc& track = *m_behind->getTrackAt(0);
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.createTrack(MediaClipParam(), m_result), &track); }),
                ElementsAre("createTrack"));
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.createTrack(track, m_result), &track); }),
                ElementsAre("createTrackLike"));
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.copyClips(track, m_result), &track); }), ElementsAre("copyClips"));
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.createClip(track, MediaContainment::ByRef, m_result), &track); }),
                ElementsAre("createClip"));
    EXPECT_THAT(notes([&] { EXPECT_EQ(m_movie.createTranslationTrack(6, MediaFileType::Mxf, m_result), &track); }),
                ElementsAre("createTranslationTrack 6 3"));
}

TEST_F(StandIn, ReadsFromTheMovieBehind) {
    MediaReadReq request;
    MediaIoBuf buffer;
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.vaRead(request).success()); }), ElementsAre("vaRead"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.vsRead(request.m_sample, buffer).success()); }), ElementsAre("vsRead"));
    EXPECT_THAT(notes([&] { m_movie.open(nullptr, MediaAgent(), MediaObj::ReadMode::ReadWrite, m_result); }),
                ElementsAre("open 1"));
    EXPECT_THAT(notes([&] { m_movie.getFp(m_result, nullptr, MediaAgent()); }), ElementsAre("getFp"));
    EXPECT_THAT(notes([&] { m_movie.getFp(m_result, nullptr, true, MediaAgent()); }), ElementsAre("getFpFor 1"));
}

TEST_F(StandIn, WritesToTheMovieBehind) {
    const MediaSampleInMovie sample;
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.vaWrite(sample, nullptr).success()); }), ElementsAre("vaWrite"));
    EXPECT_THAT(notes([&] { EXPECT_TRUE(m_movie.vsWrite(sample, MediaIoBuf()).success()); }), ElementsAre("vsWrite"));
}

TEST_F(StandIn, IsNotPreservedOrReleasedInsteadOfTheMovieBehind) {
    EXPECT_EQ(m_behind->getReferenceCount(), 2);
    EXPECT_THAT(notes([&] {
                    m_movie.preserve();
                    m_movie.release();
                }),
                IsEmpty());
    EXPECT_EQ(m_behind->getReferenceCount(), 2);
}
