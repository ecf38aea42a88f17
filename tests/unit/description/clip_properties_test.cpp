#include <gtest/gtest.h>

#include <string>

#include "services/metadata/user_data.h"
#include "shared/include/object/switches.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/description/description_fixture.h"

// The names of what a movie holds that not everyone understands.

namespace {

// A bag that keeps texts of its own, as one that holds clip properties has to.
class OwningBag : public MediaParams {
public:
    using MediaParams::get;
    OpResult set(const MediaProperty& property) override {
        ++m_sets;
        if (property.getType() != Type::String || property.stringValue() == nullptr) return MediaParams::set(property);
        MediaProperty own;
        own.init(property.getName());
        own.set(property.stringValue(), true);
        return MediaParams::set(own);
    }

    int m_sets = 0;
};

// User data that note what is said to them.
class NotingUserData : public UserDataStore {
public:
    void update(const KnownKey& key, bool inPlay) override {
        m_kinds.emplace_back(key.getKeyKind(), key.getValueKind());
        UserDataStore::update(key, inPlay);
    }

    std::vector<std::pair<UserDataEnum::KeyKind, UserDataEnum::ValueKind>> m_kinds;
};

class NamedMovie : public TestMovie {
public:
    const MediaPropertyList& getProperties() const override { return m_hasBag ? m_bag : MediaObj::getProperties(); }
    UserDataSet* getUserDataMovie(bool make) override {
        m_made = make;
        ++m_userDataAsked;
        return m_hasUserData ? &m_userData : nullptr;
    }
    const UserDataSet* getUserDataMovie() const override { return m_hasUserData ? &m_userData : nullptr; }
    void setWritable(bool writable) {
        getDesc()->init(MediaFileType::Mxf, 100, writable, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
    }

    OwningBag m_bag;
    NotingUserData m_userData;
    bool m_hasBag = true;
    bool m_hasUserData = true;
    bool m_made = false;
    int m_userDataAsked = 0;
};

class ClipProperties : public testing::Test {
protected:
    ~ClipProperties() override { m_result.discard(); }

    std::string list() const { return m_movie.getClipProperties(); }
    void setList(const char* list) {
        m_movie.m_bag.removeAll();
        m_movie.setProperty(ClipPropsProperty(list)).discard();
    }
    bool supports(const char* names) {
        m_result.discard();
        m_result = m_movie.isClipSupported(names);
        return m_result.success();
    }
    void expectUnknown(const std::string& name) {
        EXPECT_EQ(m_result.getType(), OpResult::Type::Warning);
        EXPECT_EQ(m_result.getCode(), 14);
        EXPECT_EQ(m_result.getSubsystem(), mediaCoreOpSubsystem.getId());
        ASSERT_NE(m_result.getMessage(), nullptr);
        EXPECT_EQ(m_result.getMessage(), "unknown property: " + name);
    }

    kit::SwitchGuard m_switches{mediaObjDbg};
    CapturedLog m_log;
    NamedMovie m_movie;
    OpResult m_result;
};

}  // namespace

TEST_F(ClipProperties, AreAnEmptyListAtFirst) {
    EXPECT_EQ(list(), "");
    setList(nullptr);
    EXPECT_EQ(list(), "");
    m_movie.m_hasBag = false;
    EXPECT_EQ(list(), "");
}

TEST_F(ClipProperties, AreJoinedByOneCommaInTheOrderOfTheirAdding) {
    EXPECT_TRUE(m_movie.addClipProperty("zeta"));
    EXPECT_EQ(list(), "zeta");
    EXPECT_TRUE(m_movie.addClipProperty("alpha"));
    EXPECT_EQ(list(), "zeta,alpha");
    EXPECT_TRUE(m_movie.addClipProperty("a b"));
    EXPECT_EQ(list(), "zeta,alpha,a b");
    EXPECT_EQ(m_movie.m_bag.getPropertyCount(), 1u);
}

TEST_F(ClipProperties, NameIsInTheListOnce) {
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_TRUE(m_movie.addClipProperty("two"));
    m_movie.m_bag.m_sets = 0;
    m_movie.m_userData.m_kinds.clear();
    EXPECT_FALSE(m_movie.addClipProperty("one"));
    EXPECT_FALSE(m_movie.addClipProperty("two"));
    EXPECT_EQ(list(), "one,two");
    EXPECT_EQ(m_movie.m_bag.m_sets, 0);
    EXPECT_TRUE(m_movie.m_userData.m_kinds.empty());
}

TEST_F(ClipProperties, PartOfANameAndAnotherCaseAreOtherNames) {
    for (const char* name : {"long", "lon", "ong", "longer", "Long"})
        EXPECT_TRUE(m_movie.addClipProperty(name)) << name;
    EXPECT_EQ(list(), "long,lon,ong,longer,Long");
}

TEST_F(ClipProperties, EmptyListHasTheEmptyNameAlready) {
    EXPECT_FALSE(m_movie.addClipProperty(""));
    EXPECT_EQ(list(), "");
    EXPECT_EQ(m_movie.m_bag.m_sets, 0);
}

TEST_F(ClipProperties, WalkOfAListStopsWhenNothingIsLeft) {
    setList("a");
    EXPECT_TRUE(m_movie.addClipProperty(""));
    EXPECT_EQ(list(), "a,");
    EXPECT_TRUE(m_movie.addClipProperty(""));
    EXPECT_EQ(list(), "a,,");
    EXPECT_FALSE(m_movie.addClipProperty(""));
}

TEST_F(ClipProperties, NoNameIsNotAdded) {
    EXPECT_FALSE(m_movie.addClipProperty(nullptr));
    EXPECT_EQ(list(), "");
}

TEST_F(ClipProperties, UserDataOfAReadOnlyMovieLearnThatTheyAreInPlay) {
    m_movie.setWritable(false);
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_TRUE(m_movie.m_made);
    ASSERT_EQ(m_movie.m_userData.m_kinds.size(), 1u);
    EXPECT_EQ(static_cast<unsigned>(m_movie.m_userData.m_kinds[0].first), 10u);
    EXPECT_EQ(static_cast<unsigned>(m_movie.m_userData.m_kinds[0].second), 0u);
    EXPECT_TRUE(m_movie.m_userData.isInPlay(UserDataEnum::KeyKind::ClipProps));
    EXPECT_EQ(list(), "one");
}

TEST_F(ClipProperties, UserDataOfAWritableMovieAreNotAskedFor) {
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_EQ(m_movie.m_userDataAsked, 0);
}

TEST_F(ClipProperties, ReadOnlyMovieNeedsNoUserData) {
    m_movie.setWritable(false);
    m_movie.m_hasUserData = false;
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_EQ(m_movie.m_userDataAsked, 1);
    EXPECT_EQ(list(), "one");
}

TEST_F(ClipProperties, MovieWithoutABagAnswersTrueAndChangesNothing) {
    m_movie.m_hasBag = false;
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    EXPECT_EQ(list(), "");
    m_movie.resetClipProperties();
    EXPECT_TRUE(m_log.m_lines.empty());
}

TEST_F(ClipProperties, AreSupportedWhenAllAreNamed) {
    setList("b");
    EXPECT_TRUE(supports("a,b"));
    EXPECT_TRUE(supports("b"));
    setList("b,a");
    EXPECT_TRUE(supports("a,b"));
    EXPECT_TRUE(supports("c,a,d,b"));
}

TEST_F(ClipProperties, FirstThatIsNotNamedIsTold) {
    setList("b,c,d");
    EXPECT_FALSE(supports("a,b"));
    expectUnknown("c");
    EXPECT_FALSE(supports("d,c"));
    expectUnknown("b");
}

TEST_F(ClipProperties, NameIsComparedWhole) {
    setList("name");
    for (const char* other : {"nam", "names", "Name", "NAME", " name", "name ", "first,nam", ""}) {
        EXPECT_FALSE(supports(other)) << other;
        expectUnknown("name");
    }
    EXPECT_FALSE(supports(nullptr));
    expectUnknown("name");
}

TEST_F(ClipProperties, MovieWithoutAnyIsSupportedByEverybody) {
    for (const char* names : {"", "a", ",", "a,,b"})
        EXPECT_TRUE(supports(names)) << names;
    EXPECT_TRUE(supports(nullptr));
    setList("");
    EXPECT_TRUE(supports(""));
}

TEST_F(ClipProperties, DoubledCommaIsAnEmptyName) {
    setList("a,,b");
    EXPECT_FALSE(supports("a,b"));
    expectUnknown("");
    EXPECT_TRUE(supports("a,,b"));
    EXPECT_TRUE(supports("b,,a"));
    EXPECT_TRUE(supports(",a,b"));
}

TEST_F(ClipProperties, CommaAtTheEndIsNoFurtherName) {
    setList("a,");
    EXPECT_TRUE(supports("a"));
    EXPECT_TRUE(supports("a,"));
    setList(",");
    EXPECT_FALSE(supports("a"));
    expectUnknown("");
    EXPECT_TRUE(supports(","));
    EXPECT_TRUE(supports(""));
}

TEST_F(ClipProperties, LongNameIsToldWhole) {
    const std::string name(5000, 'x');
    setList(("a," + name).c_str());
    EXPECT_FALSE(supports("a"));
    expectUnknown(name);
    setList("100%s%n");
    EXPECT_FALSE(supports("a"));
    expectUnknown("100%s%n");
}

TEST_F(ClipProperties, AreNotLookedAtWhileTheSwitchIsOn) {
    EXPECT_EQ(MediaDbg::IgnoreClipProps, 14u);
    setList("c");
    mediaObjDbg.setBit(MediaDbg::IgnoreClipProps);
    EXPECT_TRUE(supports("a,b"));
    mediaObjDbg.set(0u);
    EXPECT_FALSE(supports("a,b"));
}

TEST_F(ClipProperties, ResetLeavesAnEmptyText) {
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    m_movie.resetClipProperties();
    EXPECT_EQ(list(), "");
    const MediaProperty* const left = m_movie.m_bag.get(MediaPropertyEnum::Name::ClipProps);
    ASSERT_NE(left, nullptr);
    EXPECT_STREQ(left->stringValue(), "");
    EXPECT_TRUE(supports("x"));
    EXPECT_TRUE(m_movie.addClipProperty("two"));
    EXPECT_EQ(list(), "two");
}

TEST_F(ClipProperties, BaseClassHasNothingToSetOrRequest) {
    EXPECT_TRUE(m_movie.addClipProperty("one"));
    m_movie.setClipProperties(true);
    m_movie.setClipProperties(false);
    EXPECT_EQ(list(), "one");
    m_result = m_movie.requestClipProperties("one");
    EXPECT_EQ(m_result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(m_result.getCode(), 17);
    EXPECT_EQ(m_result.getMessage(), nullptr);
}

TEST_F(ClipProperties, BaseClassHasNoUserData) {
    TestMovie plain;
    EXPECT_EQ(static_cast<const MediaObj&>(plain).getUserDataMovie(), nullptr);
    EXPECT_EQ(plain.getUserDataMovie(true), nullptr);
    EXPECT_EQ(plain.getUserDataMovie(false), nullptr);
}
