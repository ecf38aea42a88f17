#include <gtest/gtest.h>

#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"

using kit::isError;
using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
namespace Scripts = kit::Scripts;

namespace {

class OpenWriter : public kit::CacheScene {
protected:
    MediaObj* create(const std::string& path, MediaFileType type = MediaFileType::Unknown, const char* style = nullptr,
                     bool morph = false) {
        return MediaObj::openWriter(path.c_str(), morph, m_result, MediaContainment::Embedded, type, style,
                                    BasicIOTypes::SizeAdvice::LargeStripe);
    }
    std::string planned(const std::string& name, const MovieScript& script = MovieScript::ofTracks(1, 48000)) {
        std::string path = m_tree.path(name);
        Scripts::set(path, script);
        return path;
    }
};

// A format whose writer makes no files.
constexpr MediaFileType s_fileless = MediaFileType::Vbi;
[[maybe_unused]] const unsigned s_registered = [] {
    MediaWriterDesc desc;
    desc.m_fileType = s_fileless;
    return MediaObj::registerCreator(desc, 100);
}();

class OpenObj : public kit::CacheScene {};

// A table of errors that isn't the core's.
OpSubsystem otherSubsystem() {
    static OpSubsystemDecl other(
        "Other", +[](int) -> const char* { return "other trouble"; });
    return other.getId();
}

}  // namespace

TEST_F(OpenWriter, NullPathIsAnInternalError) {
    EXPECT_EQ(MediaObj::openWriter(nullptr, false, m_result, MediaContainment::Embedded, kit::s_scripted, nullptr,
                                   BasicIOTypes::SizeAdvice::None),
              nullptr);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(OpenWriter, NameWithoutAWriterIsUnsupportedAndNothingIsMade) {
    for (const std::string& path : {planned("sub/a.nosuchsuffix"), planned("sub/plain"), planned("sub/a.ac3")}) {
        EXPECT_EQ(create(path), nullptr);
        EXPECT_TRUE(isWarning(m_result, 8)) << path;
        m_result.discard();
    }
    EXPECT_FALSE(m_tree.exists("sub"));
}

TEST_F(OpenWriter, OfAFormatThatMakesNoFilesIsUnsupportedAndNothingIsMade) {
    EXPECT_EQ(create(planned("sub/a.any"), s_fileless), nullptr);
    EXPECT_TRUE(isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_FALSE(m_tree.exists("sub"));
}

TEST_F(OpenWriter, MakesTheFoldersAndHandsTheFormatWhatItWasAsked) {
    const std::string path = planned("new/deep/a.hdcam");
    MediaObj* movie = create(path + "/");
    ASSERT_NE(movie, nullptr) << m_result.describe().get();
    EXPECT_TRUE(m_tree.exists("new/deep/a.hdcam"));
    const Scripts::Creation made = Scripts::creation(path);
    EXPECT_EQ(made.m_type, kit::s_scripted);
    EXPECT_EQ(made.m_containment, MediaContainment::Embedded);
    EXPECT_EQ(made.m_advice, BasicIOTypes::SizeAdvice::LargeStripe);
    EXPECT_FALSE(made.m_morph);
    EXPECT_EQ(made.m_style, "");
    EXPECT_FALSE(made.m_existedBefore);
    movie->release(nullAgent(), true);
}

TEST_F(OpenWriter, GivesAMovieThatRecordsWithOneWriterAndOneReference) {
    const std::string path = planned("a.hdcam");
    MediaObj* movie = create(path);
    ASSERT_NE(movie, nullptr);
    EXPECT_TRUE(movie->isRecording());
    EXPECT_FALSE(movie->isMorphing());
    EXPECT_EQ(movie->impl().getWriterCount(), 1);
    EXPECT_EQ(movie->getReferenceCount(), 2);
    EXPECT_EQ(m_cache.entry(kit::TempTree::idOf(path)), movie);
    EXPECT_EQ(movie->release(nullAgent(), true), 1);
}

TEST_F(OpenWriter, StyleChoosesTheWriterOfAnUnknownType) {
    const std::string path = planned("plain");
    MediaObj* movie = create(path, MediaFileType::Unknown, "kit style");
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(Scripts::creation(path).m_style, "kit style");
    movie->release(nullAgent(), true);
}

TEST_F(OpenWriter, MovieThatIsToHoldItsMediaIsAdvisedLargeStripesWhereNoAdviceWasGiven) {
    struct Case {
        const char* m_name;
        MediaContainment m_containment;
        bool m_entersPath;  // no advice is given then; a handle's file has small stripes
        BasicIOTypes::SizeAdvice m_advice;
    };
    const Case cases[] = {
        {"held.hdcam", MediaContainment::Embedded, true, BasicIOTypes::SizeAdvice::LargeStripe},
        {"advised.hdcam", MediaContainment::Embedded, false, BasicIOTypes::SizeAdvice::SmallStripe},
        {"referring.hdcam", MediaContainment::ByRef, true, BasicIOTypes::SizeAdvice::None},
    };
    for (const Case& row : cases) {
        MovieScript script;
        script.m_entersPath = row.m_entersPath;
        MediaObj* movie = MediaObj::openWriter(planned(row.m_name, script).c_str(), false, m_result, row.m_containment,
                                               MediaFileType::Unknown, nullptr, BasicIOTypes::SizeAdvice::LargeStripe);
        ASSERT_NE(movie, nullptr) << row.m_name;
        EXPECT_EQ(movie->impl().m_fileList.getSizeAdvice(0), row.m_advice) << row.m_name;
        movie->release(nullAgent(), true);
    }
}

TEST_F(OpenWriter, MorphIsBegunForTheCaller) {
    const std::string path = planned("a.hdcam");
    MediaObj* movie = create(path, MediaFileType::Unknown, nullptr, true);
    ASSERT_NE(movie, nullptr);
    EXPECT_TRUE(Scripts::creation(path).m_morph);
    EXPECT_TRUE(movie->isMorphing());
    movie->endMorph();
    movie->release(nullAgent(), true);
}

TEST_F(OpenWriter, FailedCreationRemovesAFileThatWasNotThereBeforeAndKeepsTheFolders) {
    const std::string path = planned("new/a.hdcam", MovieScript().refuse(OpResult::Type::Error, 12, "disk full"));
    EXPECT_EQ(create(path), nullptr);
    EXPECT_TRUE(isError(m_result, 12));
    EXPECT_STREQ(m_result.getMessage(), "disk full");
    EXPECT_EQ(Scripts::creates(path), 1u);
    EXPECT_FALSE(m_tree.exists("new/a.hdcam"));
    EXPECT_TRUE(m_tree.exists("new"));
}

TEST_F(OpenWriter, FailedCreationLeavesAFileThatWasThereAlone) {
    const std::string path = planned("a.hdcam", MovieScript().refuse(OpResult::Type::Warning, 12));
    m_tree.write("a.hdcam", "somebody's");
    EXPECT_EQ(create(path), nullptr);
    EXPECT_TRUE(isWarning(m_result, 12));
    EXPECT_TRUE(Scripts::creation(path).m_existedBefore);
    EXPECT_TRUE(m_tree.exists("a.hdcam"));
}

TEST_F(OpenWriter, PathThatAnotherWriterHoldsGivesNullAndIsTold) {
    const std::string path = planned("a.hdcam");
    MediaObj* first = create(path);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(create(path), nullptr);
    EXPECT_TRUE(m_result);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:create rec,rw(0),a.hdcam,* loses to rec,rw(1),a.hdcam,*"), 1u)
        << m_log.text();
    EXPECT_EQ(first->getReferenceCount(), 2);
    EXPECT_EQ(first->impl().getWriterCount(), 1);
    first->release(nullAgent(), true);
}

TEST_F(OpenObj, GivesAnObjectWithOneReferenceThatIsNeverCached) {
    MediaObj* object = MediaObj::openObj(kit::s_scripted, m_result);
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(m_result);
    EXPECT_EQ(object->getReferenceCount(), 1);
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(object->release(), 0);
}

TEST_F(OpenObj, WithoutAWriterIsUnsupported) {
    EXPECT_EQ(MediaObj::openObj(kit::s_nobodysType, m_result), nullptr);
    EXPECT_TRUE(isWarning(m_result, 8));
}

TEST_F(OpenObj, MissingHandleIsNoFailureWhenTheCoreSaysSo) {
    Scripts::setUnbound(MovieScript().refuse(OpResult::Type::Warning, 16), false);
    MediaObj* object = MediaObj::openObj(kit::s_scripted, m_result);
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(m_result.getCode(), 0);
    object->release();
}

TEST_F(OpenObj, SameCodeOfAnotherSubsystemStaysAFailure) {
    MovieScript script = MovieScript().refuse(OpResult::Type::Warning, 16);
    script.m_failureSubsystem = otherSubsystem();
    Scripts::setUnbound(script, false);
    MediaObj* object = MediaObj::openObj(kit::s_scripted, m_result);
    ASSERT_NE(object, nullptr);
    EXPECT_FALSE(m_result.success());
    EXPECT_EQ(m_result.getCode(), 16);
    EXPECT_EQ(m_result.getSubsystem(), otherSubsystem());
    object->release();
}

TEST_F(OpenObj, FailureOfTheFormatGivesNull) {
    Scripts::setUnbound(MovieScript().refuse(OpResult::Type::Error, 1, "no"), true);
    EXPECT_EQ(MediaObj::openObj(kit::s_scripted, m_result), nullptr);
    EXPECT_TRUE(isError(m_result, 1));
}
