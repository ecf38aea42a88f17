#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "services/metadata/user_data.h"

// What a movie carries about itself.

namespace {

using KeyKind = UserDataEnum::KeyKind;
using ValueKind = UserDataEnum::ValueKind;

constexpr UserDataKey s_umid(KeyKind::Umid, ValueKind::Umid);
constexpr UserDataKey s_props(KeyKind::ClipProps, ValueKind::Any);

}  // namespace

TEST(UserData, KeyTellsBothKinds) {
    const KnownKey key(KeyKind::ClipProps, ValueKind::Umid);
    EXPECT_EQ(key.getKeyKind(), KeyKind::ClipProps);
    EXPECT_EQ(key.getValueKind(), ValueKind::Umid);
}

TEST(UserData, EmptySetHasNothing) {
    const UserDataStore store;
    EXPECT_TRUE(store.empty());
    EXPECT_EQ(store.getValue(KeyKind::Umid), nullptr);
    EXPECT_FALSE(store.isInPlay(KeyKind::Umid));
}

TEST(UserData, ValueIsACopyWithItsOwnKey) {
    UserDataStore store;
    {
        const auto key = std::make_unique<UserDataKey>(s_umid);
        const std::string text = "a text of its own";
        store.setText(*key, text.c_str());
    }
    const UserDataValue* const value = store.getValue(KeyKind::Umid);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->getKind(), ValueKind::Umid);
    EXPECT_EQ(value->getKey().getKeyKind(), KeyKind::Umid);
    EXPECT_STREQ(value->read(), "a text of its own");
    EXPECT_EQ(store.getValue(KeyKind::ClipProps), nullptr);
}

TEST(UserData, KeyHasOneValue) {
    UserDataStore store;
    store.setText(s_umid, "first");
    store.setText(s_props, "other");
    store.setText(UserDataKey(KeyKind::Umid, ValueKind::Any), "second");
    EXPECT_STREQ(store.getValue(KeyKind::Umid)->read(), "second");
    EXPECT_EQ(store.getValue(KeyKind::Umid)->getKind(), ValueKind::Any);
    EXPECT_STREQ(store.getValue(KeyKind::ClipProps)->read(), "other");
}

TEST(UserData, ValueMayBeSetToAPartOfItself) {
    UserDataStore store;
    store.setText(s_umid, "a text that is too long to lie in the string itself");
    const UserDataValue* const value = store.getValue(KeyKind::Umid);
    store.setText(value->getKey(), value->read() + 2);
    EXPECT_STREQ(store.getValue(KeyKind::Umid)->read(), "text that is too long to lie in the string itself");
    EXPECT_EQ(store.getValue(KeyKind::Umid)->getKind(), ValueKind::Umid);
}

TEST(UserData, NullTakesTheValueOut) {
    UserDataStore store;
    store.setText(s_umid, nullptr);
    EXPECT_TRUE(store.empty());
    store.setText(s_umid, "text");
    EXPECT_FALSE(store.empty());
    store.setText(s_umid, nullptr);
    EXPECT_TRUE(store.empty());
    EXPECT_EQ(store.getValue(KeyKind::Umid), nullptr);
}

TEST(UserData, EmptyTextIsAValue) {
    UserDataStore store;
    store.setText(s_umid, "");
    ASSERT_NE(store.getValue(KeyKind::Umid), nullptr);
    EXPECT_STREQ(store.getValue(KeyKind::Umid)->read(), "");
}

TEST(UserData, KeyIsInPlayUntilItIsSaidNotToBe) {
    UserDataStore store;
    const KnownKey key(KeyKind::ClipProps, ValueKind::Any);
    store.update(key, false);
    EXPECT_FALSE(store.isInPlay(KeyKind::ClipProps));
    store.update(key, true);
    store.update(key, true);
    EXPECT_TRUE(store.isInPlay(KeyKind::ClipProps));
    EXPECT_FALSE(store.isInPlay(KeyKind::Umid));
    EXPECT_TRUE(store.empty());
    store.update(key, false);
    EXPECT_FALSE(store.isInPlay(KeyKind::ClipProps));
}

TEST(UserData, NonConstIsTheVerySet) {
    UserDataStore store;
    const UserDataSet& set = store;
    EXPECT_EQ(&set.nonConst(), &store);
    set.nonConst().update(KnownKey(KeyKind::Umid, ValueKind::Any), true);
    EXPECT_TRUE(store.isInPlay(KeyKind::Umid));
}
