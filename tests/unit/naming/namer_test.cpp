#include "shared/include/description/media_names.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/naming/naming_fixture.h"

using kit::isWarning;
using kit::LogCapture;
using naming::Held;
using naming::RenamedMovie;

// Names for media files, and the numbers in them.

namespace {

class Naming : public ::testing::Test {
protected:
    // A request for a media file of m/new.mov.
    struct Req : MediaObj::NameReq {
        Req(const std::string& path, int index, const std::string& proposal = "",
            MediaFileType type = MediaFileType::Wav)
            : NameReq(path.c_str(), index, type) {
            proposal.copy(m_name, proposal.size());
            m_name[proposal.size()] = '\0';
        }
    };

    std::string named(DefaultMediaNamer& namer, Req&& req) {
        EXPECT_TRUE(namer.createName(req));
        return req.m_name;
    }
    std::string movie(const char* name = "m/new.mov") const { return m_tree.path(name); }

    kit::TempTree m_tree;
    LogCapture m_log;
    DefaultMediaNamer m_namer{nullptr, nullptr, 50};
};

class Suffixes : public MediaSuffixMap {
public:
    MediaFileType getFileType(const char*) const override { return MediaFileType::Unknown; }
    const char* getSuffix(MediaFileType type) const override {
        return type == MediaFileType::Wav ? "sound" : type == MediaFileType::Dv ? "tape" : nullptr;
    }
};

// Names everything alike.
class OwnNamer : public DefaultMediaNamer {
public:
    OwnNamer() : DefaultMediaNamer(nullptr, nullptr, 1) {}
    bool createName(const MediaObj::NameReq& req) override {
        m_seen = std::string(req.m_name, sizeof req.m_name);
        std::strcpy(req.m_name, "mine");
        return true;
    }
    std::string m_seen;
};

kit::ClipScript clipIn(unsigned file, MediaEncodingType encoding = MediaEncodingType::Pcm) {
    kit::ClipScript clip;
    clip.m_file = file;
    clip.m_encoding = encoding;
    clip.m_container = MediaContainment::ByRef;
    return clip;
}

kit::TrackScript track(MediaDataType type, std::vector<kit::ClipScript> clips) {
    kit::TrackScript script;
    script.m_type = type;
    script.m_clips = std::move(clips);
    return script;
}

// A movie on no disk, for what setMedia asks of it.
class MediaNumbers : public ::testing::Test {
protected:
    RenamedMovie* make(const std::vector<std::string>& files, const std::vector<kit::TrackScript>& tracks) {
        kit::MovieScript script;
        script.m_files = files;
        script.m_tracks = tracks;
        return new RenamedMovie(script, "/none/movie.hdcam", true, MediaObj::CacheRefValue::None);
    }
    // The numbers that the movie's clips get, track by track.
    static std::vector<int> numbersOf(const MediaObj& movie) {
        std::vector<int> numbers;
        for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
            for (unsigned j = 0; j < movie.getTrackAt(i)->getClipCount(); ++j) {
                MediaObj::NameReq req("/none/new.hdcam", -2, MediaFileType::Unknown);
                EXPECT_TRUE(req.setMedia(movie, *movie.getTrackAt(i)->getClip(j), nullptr));
                numbers.push_back(req.m_index);
            }
        }
        return numbers;
    }

    LogCapture m_log;
};

using Numbers = std::vector<int>;
constexpr MediaDataType s_audio = MediaDataType::Audio, s_video = MediaDataType::Video;

}  // namespace

TEST_F(Naming, ARequestCopiesItsPathAndBeginsWithoutAName) {
    std::string path = "/a/b.mov";
    const MediaObj::NameReq req(path.c_str(), 3, MediaFileType::Dv);
    path[1] = 'x';
    EXPECT_STREQ(req.m_path, "/a/b.mov");
    EXPECT_EQ(req.m_index, 3);
    EXPECT_EQ(req.m_fileType, MediaFileType::Dv);
    EXPECT_STREQ(req.m_name, "");
}

TEST_F(Naming, NoIndexGivesNoNumberAndTheFirstIndexGivesOne) {
    EXPECT_EQ(named(m_namer, Req(movie(), -1)), movie("m/new.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), 0)), movie("m/new_1.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), 11)), movie("m/new_12.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), -2)), movie("m/new.wav"));
}

TEST_F(Naming, ANumberKeepsItsLastSixDigits) {
    EXPECT_EQ(named(m_namer, Req(movie(), 999998)), movie("m/new_999999.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), 999999)), movie("m/new_000000.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), 1234566)), movie("m/new_234567.wav"));
    EXPECT_EQ(named(m_namer, Req(movie(), 2147483647)), movie("m/new_483648.wav"));
}

TEST_F(Naming, AProposalKeepsItsFolderAndSuffixAndGetsTheMoviesName) {
    EXPECT_EQ(named(m_namer, Req(movie(), 1, m_tree.path("other/take.part.aif"))), m_tree.path("other/new_2.aif"));
    EXPECT_EQ(named(m_namer, Req(movie(), -1, m_tree.path("other/take"))), m_tree.path("other/new.wav"))
        << "a proposal without a suffix gets the type's";
    EXPECT_EQ(named(m_namer, Req("new.mov", -1, "take.aif")), "new.aif");
}

TEST_F(Naming, WithoutAProposalTheFileGoesBesideTheMovieOrIntoTheSubfolder) {
    DefaultMediaNamer below("media/sound", nullptr, 50);
    EXPECT_STREQ(below.getSubdir(), "media/sound");
    EXPECT_STREQ(m_namer.getSubdir(), "");
    EXPECT_EQ(named(below, Req(movie(), -1)), movie("m/media/sound/new.wav"));
    EXPECT_EQ(named(below, Req(movie(), -1, m_tree.path("other/take.wav"))), m_tree.path("other/new.wav"))
        << "a proposal has a folder of its own";
    EXPECT_EQ(named(m_namer, Req("new.mov", 0)), "new_1.wav");
    EXPECT_EQ(named(m_namer, Req("/new.mov", 0)), "/new_1.wav");
}

TEST_F(Naming, TheNameIsTheMoviesUpToItsLastDot) {
    EXPECT_EQ(named(m_namer, Req(movie("m/new.cut.mov"), -1)), movie("m/new.cut.wav"));
    EXPECT_EQ(named(m_namer, Req(movie("m/new"), -1)), movie("m/new.wav"));
    EXPECT_EQ(named(m_namer, Req(movie("m/.new"), 0)), movie("m/_1.wav"));
    EXPECT_EQ(named(m_namer, Req(movie("m.x/new"), -1)), movie("m.x/new.wav"));
}

TEST_F(Naming, TheSuffixIsTheTypesNameOrTheMapsOwn) {
    for (const MediaFileType type : {MediaFileType::Dv, MediaFileType::Aiff, MediaFileType::Mpeg2Video}) {
        EXPECT_EQ(named(m_namer, Req(movie(), -1, "", type)), movie("m/new.") + MediaNames::get(type));
    }
    Suffixes map;
    DefaultMediaNamer namer(nullptr, &map, 50);
    EXPECT_EQ(named(namer, Req(movie(), -1)), movie("m/new.sound"));
    EXPECT_EQ(named(namer, Req(movie(), -1, "", MediaFileType::Dv)), movie("m/new.tape"));
    EXPECT_EQ(named(namer, Req(movie(), -1, m_tree.path("take.wav"))), m_tree.path("new.wav"));
    EXPECT_EQ(named(namer, Req(movie(), -1, "", MediaFileType::Aiff)), movie("m/new.")) << "the map has none";
}

TEST_F(Naming, ATakenNameGetsATagOfFourLettersOrDigits) {
    m_tree.write("m/new_1.wav", "taken");
    const std::string name = named(m_namer, Req(movie(), 0));
    const std::string start = movie("m/new_1-");
    ASSERT_EQ(name.size(), start.size() + 8) << name;
    EXPECT_EQ(name.substr(0, start.size()), start);
    EXPECT_EQ(name.substr(start.size() + 4), ".wav");
    EXPECT_EQ(name.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz", start.size()), start.size() + 4);
    EXPECT_FALSE(m_tree.exists(name.substr(m_tree.root().size() + 1)));
}

TEST_F(Naming, TagsDifferFromOnePassToTheNext) {
    m_tree.write("m/new.wav", "taken");
    std::vector<std::string> names;
    for (int i = 0; i < 8; ++i) {
        names.push_back(named(m_namer, Req(movie(), -1)));
        m_tree.write(names.back().substr(m_tree.root().size() + 1), "taken too");
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
}

TEST_F(Naming, AFolderTakesANameToo) {
    m_tree.write("m/new.wav/inside", "x");
    EXPECT_NE(named(m_namer, Req(movie(), -1)), movie("m/new.wav"));
}

TEST_F(Naming, ANameOf255BytesIsTakenAndOneOf256EndsTheSearch) {
    const std::string folder = m_tree.path("");
    const std::string fits(255 - folder.size() - 4, 'n');
    Req req(folder + fits + ".mov", -1);
    std::memset(req.m_name + 1, 'x', sizeof req.m_name - 1);
    EXPECT_TRUE(m_namer.createName(req));
    EXPECT_EQ(std::string(req.m_name, 256), folder + fits + ".wav" + '\0');
    Req longer(folder + fits + "n.mov", -1);
    EXPECT_FALSE(m_namer.createName(longer));
    EXPECT_STREQ(longer.m_name, "");
    // The tag makes it too long.
    m_tree.write(fits + ".wav", "taken");
    Req tagged(folder + fits + ".mov", -1);
    EXPECT_FALSE(m_namer.createName(tagged));
    EXPECT_EQ(m_log.lines().size(), 0u) << m_log.text();
}

TEST_F(Naming, WhenAllNamesAreTakenTheAnswerIsTrueAndTheProposalStands) {
    m_tree.write("m/new_1.wav", "taken");
    const std::string proposal = m_tree.path("m/take.wav");
    DefaultMediaNamer once(nullptr, nullptr, 1);
    EXPECT_EQ(named(once, Req(movie(), 0, proposal)), proposal);
    EXPECT_EQ(m_log.count(LogLevel::Error,
                          "no available name after 1 passes for dir=" + m_tree.path("m") + " pre=new_1 suf=wav"),
              1u)
        << m_log.text();
}

TEST_F(Naming, WithoutPassesTheLineComesAtOnceAndTheAnswerIsTrue) {
    DefaultMediaNamer none(nullptr, nullptr, 0);
    EXPECT_EQ(named(none, Req(movie(), -1)), "");
    EXPECT_TRUE(
        m_log.has(LogLevel::Error, "no available name after 0 passes for dir=" + m_tree.path("m") + " pre=new suf=wav"))
        << m_log.text();
}

TEST_F(Naming, EachNameTriedIsToldUnderRenameActivity) {
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::RenameActivity);
    m_tree.write("m/new.wav", "taken");
    named(m_namer, Req(movie(), -1));
    EXPECT_TRUE(m_log.has(LogLevel::Debug, "createName: " + movie("m/new.wav") + " preexists")) << m_log.text();
    EXPECT_TRUE(m_log.has(LogLevel::Debug, "createName: " + movie("m/new-") + "* ok")) << m_log.text();
    EXPECT_EQ(m_log.lines().size(), 2u);
}

TEST_F(Naming, NamesDependOnNoSwitch) {
    const std::string plain = named(m_namer, Req(movie(), 4));
    const kit::SwitchGuard all(mediaObjDbg);
    mediaObjDbg.set(1u << MediaDbg::VeldraNaming | 1u << MediaDbg::Validation | 1u << MediaDbg::RenameActivity);
    EXPECT_EQ(named(m_namer, Req(movie(), 4)), plain);
}

TEST_F(Naming, RecreateNameDropsTheProposal) {
    Req req(movie(), 0, m_tree.path("other/take.aif"));
    EXPECT_TRUE(m_namer.recreateName(req));
    EXPECT_EQ(req.m_name, movie("m/new_1.wav"));
    OwnNamer own;
    Req seen(movie(), 0, m_tree.path("other/take.aif"));
    EXPECT_TRUE(own.recreateName(seen));
    EXPECT_EQ(own.m_seen, std::string(256, '\0')) << "all of it";
    EXPECT_STREQ(seen.m_name, "mine");
}

TEST_F(Naming, TheHookCallsTheOverride) {
    OwnNamer own;
    Req req(movie(), -1);
    EXPECT_TRUE(own.getCbInfo()->callCb(req));
    EXPECT_STREQ(req.m_name, "mine");
}

TEST_F(MediaNumbers, AFileThatIsAloneOfItsKindHasNone) {
    const Held movie(make({"/m/a.wav", "/m/b.dv"},
                          {track(s_video, {clipIn(2, MediaEncodingType::Dv)}), track(s_audio, {clipIn(1)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{-1, -1}));
}

TEST_F(MediaNumbers, TwoFilesOfOneSuffixAreCountedFromZero) {
    const Held movie(make({"/m/a.mov", "/m/b.mov"}, {track(s_video, {clipIn(1, MediaEncodingType::Dv)}),
                                                     track(s_video, {clipIn(2, MediaEncodingType::Mpeg)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{0, 1}));
}

TEST_F(MediaNumbers, TracksAreCountedInOrder) {
    const Held movie(make({"/m/a.wav", "/m/b.wav", "/m/c.aif", "/m/d.wav"},
                          {track(s_audio, {clipIn(1)}), track(s_audio, {clipIn(2)}), track(s_audio, {clipIn(3)}),
                           track(s_audio, {clipIn(4)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{0, 1, -1, 2}));
}

TEST_F(MediaNumbers, ARunOfLikeClipsCountsOnce) {
    const Held movie(make({"/m/a.wav", "/m/b.wav", "/m/c.wav"},
                          {track(s_audio, {clipIn(1), clipIn(2)}), track(s_audio, {clipIn(3)})}));
    // The second clip of the run has the number that the next track's file has.
    EXPECT_EQ(numbersOf(*movie), (Numbers{0, 1, 1}));
}

TEST_F(MediaNumbers, TheClipBeforeIsComparedWithTheGivenClip) {
    // In front of the second clip stands one that is like the first and unlike the second.
    const Held movie(make({"/m/a.mov", "/m/b.mov"},
                          {track(s_video, {clipIn(1, MediaEncodingType::Dv), clipIn(2, MediaEncodingType::Mpeg)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{-1, 1}));
}

TEST_F(MediaNumbers, SoundInsideThePicturesOfDvCountsForNothing) {
    const Held movie(make({"/m/a.dv", "/m/b.dv"}, {track(s_video, {clipIn(1, MediaEncodingType::Dv)}),
                                                   track(s_audio, {clipIn(1, MediaEncodingType::Dv)}),
                                                   track(s_video, {clipIn(2, MediaEncodingType::Dv)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{0, -1, 1})) << "and has no number itself";
}

TEST_F(MediaNumbers, SuffixesAreComparedExactly) {
    const Held movie(
        make({"/m/a.wav", "/m/b.WAV", "/m.wav/c", "/m/d"}, {track(s_audio, {clipIn(1)}), track(s_audio, {clipIn(2)}),
                                                            track(s_audio, {clipIn(3)}), track(s_audio, {clipIn(4)})}));
    EXPECT_EQ(numbersOf(*movie), (Numbers{-1, -1, 0, 1}));
}

TEST_F(MediaNumbers, AllIsReadThroughTheClipsOwnMovie) {
    const Held movie(make({"/m/a.wav", "/m/b.wav"}, {track(s_audio, {clipIn(1)}), track(s_audio, {clipIn(2)})}));
    const Held other(make({}, {}));
    MediaObj::NameReq req("/m/new.mov", -2, MediaFileType::Unknown);
    EXPECT_TRUE(req.setMedia(*other, *movie->getTrackAt(1)->getClip(0), nullptr));
    EXPECT_EQ(req.m_index, 1);
}

TEST_F(MediaNumbers, AProposalOf255BytesIsTakenAndOneOf256IsAWarning) {
    const Held movie(make({"/m/a.wav"}, {track(s_audio, {clipIn(1)})}));
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    MediaObj::NameReq req("/m/new.mov", 7, MediaFileType::Dv);
    const std::string fits(255, 'n');
    OpResult result = req.setMedia(*movie, clip, (fits + "n").c_str());
    EXPECT_TRUE(isWarning(result, 1));
    EXPECT_EQ(naming::textOf(result), "new name too long");
    EXPECT_STREQ(req.m_name, "");
    EXPECT_EQ(req.m_index, 7);
    EXPECT_TRUE(req.setMedia(*movie, clip, fits.c_str()));
    EXPECT_EQ(req.m_name, fits);
    EXPECT_EQ(req.m_index, -1);
    EXPECT_EQ(req.m_fileType, MediaFileType::Wav);
    EXPECT_TRUE(req.setMedia(*movie, clip, nullptr));
    EXPECT_STREQ(req.m_name, "") << "no proposal";
}
