#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "shared/include/description/media_property.h"

using Name = MediaPropertyEnum::Name;
using Type = MediaPropertyEnum::Type;

namespace {

MediaProperty nullText(Name name) {
    MediaProperty property;
    property.init(name, Type::String, 0);
    return property;
}

MediaProperty number(Name name, Type type, unsigned long long value) {
    MediaProperty property;
    property.init(name, type, value);
    return property;
}

MediaProperty ownedText(Name name, const char* text) {
    MediaProperty property;
    property.init(name);
    property.set(text, true);
    return property;
}

}  // namespace

TEST(PropertyNames, HaveTheirRows) {
    static const char* names[] = {"unknown",    "vbiMask",    "firstFrame",      "nBlack",   "nPrecharge",
                                  "PPictCount", "BPictCount", "bigEndian",       "codePage", "clipProps",
                                  "afdValue",   "umidValue",  "levelAndProfile", "dvcPro"};
    for (unsigned int value = 0; value < 14; ++value) {
        EXPECT_STREQ(MediaPropertyEnum::lookup(static_cast<Name>(value)), names[value]);
        EXPECT_EQ(static_cast<unsigned int>(MediaPropertyEnum::lookup(names[value])), value);
    }
    EXPECT_STREQ(MediaPropertyEnum::lookup(Name::AvcKind), "?");
    EXPECT_EQ(static_cast<unsigned int>(Name::AvcKind), 14u);
    EXPECT_EQ(MediaPropertyEnum::lookup("nothing"), Name::Unknown);
    EXPECT_EQ(MediaPropertyEnum::lookup(static_cast<const char*>(nullptr)), Name::Unknown);
}

TEST(Property, ByDefaultIsEmpty) {
    const MediaProperty property;
    EXPECT_EQ(property.getName(), Name::Unknown);
    EXPECT_EQ(property.getType(), Type::None);
    EXPECT_EQ(property.uintValue(), 0u);
    EXPECT_EQ(property.stringValue(), nullptr);
    EXPECT_EQ(property.nMemBytes(), 0u);
}

TEST(Property, HoldsANumberOfTypeSix) {
    const MediaProperty property(Name::VbiMask, 0x12345678u);
    EXPECT_EQ(static_cast<unsigned int>(property.getType()), 6u);
    EXPECT_EQ(property.uintValue(), 0x12345678u);
    EXPECT_EQ(property.uint16Value(), 0x5678);
    EXPECT_EQ(static_cast<unsigned int>(property), 0x12345678u);
}

TEST(Property, BorrowsTheTextItIsMadeOfAndSoDoItsCopies) {
    char text[] = "one";
    const MediaProperty property(Name::ClipProps, text);
    EXPECT_EQ(property.stringValue(), text);
    EXPECT_EQ(property.nMemBytes(), 4u);
    const MediaProperty copy(property);
    EXPECT_EQ(copy.stringValue(), text);
    MediaProperty assigned;
    assigned = copy;
    EXPECT_EQ(assigned.stringValue(), text);
    EXPECT_EQ(static_cast<const char*>(assigned), text);
}

TEST(Property, OwnsWhatItCopiedAndSoDoItsCopies) {
    char text[] = "one";
    MediaProperty property = ownedText(Name::ClipProps, text);
    EXPECT_NE(property.stringValue(), text);
    const MediaProperty copy(property);
    EXPECT_NE(copy.stringValue(), property.stringValue());
    text[0] = 'X';
    property.set("another", true);
    EXPECT_STREQ(copy.stringValue(), "one");
    EXPECT_STREQ(property.stringValue(), "another");
}

TEST(Property, HoldsABlockCopiedOrBorrowed) {
    const unsigned char block[] = {1, 0, 2};
    MediaProperty owned;
    owned.init(Name::UmidValue);
    owned.set(block, sizeof(block), true);
    EXPECT_EQ(owned.getType(), Type::Binary);
    EXPECT_EQ(owned.nMemBytes(), 3u);
    EXPECT_NE(owned.memValue(), block);
    const MediaProperty copy(owned);
    EXPECT_NE(copy.memValue(), owned.memValue());
    EXPECT_EQ(std::memcmp(copy.memValue(), block, 3), 0);
    MediaProperty borrowed;
    borrowed.init(Name::UmidValue);
    borrowed.set(block, sizeof(block), false);
    EXPECT_EQ(borrowed.memValue(), block);
    EXPECT_TRUE(borrowed == owned);
}

TEST(Property, AssignedToItselfKeepsItsText) {
    MediaProperty property = ownedText(Name::ClipProps, "kept");
    const MediaProperty& same = property;
    property = same;
    EXPECT_STREQ(property.stringValue(), "kept");
}

TEST(Property, AssignmentReplacesAnOwnedTextByANumber) {
    MediaProperty property = ownedText(Name::ClipProps, "gone");
    property = MediaProperty(Name::NBlack, 4u);
    EXPECT_EQ(property.getName(), Name::NBlack);
    EXPECT_EQ(property.uintValue(), 4u);
    EXPECT_EQ(property.nMemBytes(), 0u);
}

TEST(Property, ComparesNamesTypesAndValues) {
    EXPECT_TRUE(MediaProperty(Name::NBlack, 4u) == MediaProperty(Name::NBlack, 4u));
    EXPECT_FALSE(MediaProperty(Name::NBlack, 4u) == MediaProperty(Name::NBlack, 5u));
    EXPECT_FALSE(MediaProperty(Name::NBlack, 4u) == MediaProperty(Name::NPrecharge, 4u));
    EXPECT_FALSE(MediaProperty(Name::NBlack, 4u) == number(Name::NBlack, Type::Word1, 4));
    EXPECT_TRUE(MediaProperty(Name::ClipProps, "a") == ownedText(Name::ClipProps, "a"));
    EXPECT_FALSE(MediaProperty(Name::ClipProps, "a") == MediaProperty(Name::ClipProps, "b"));
}

TEST(Property, ANullTextEqualsOnlyANullText) {
    EXPECT_FALSE(nullText(Name::ClipProps) == MediaProperty(Name::ClipProps, "a"));
    EXPECT_FALSE(MediaProperty(Name::ClipProps, "a") == nullText(Name::ClipProps));
    EXPECT_TRUE(nullText(Name::ClipProps) == nullText(Name::ClipProps));
}

TEST(Property, ANullBlockEqualsOnlyANullBlock) {
    const unsigned char block[] = {1};
    MediaProperty full;
    full.init(Name::UmidValue);
    full.set(block, 1, false);
    MediaProperty longer;
    const unsigned char two[] = {1, 2};
    longer.init(Name::UmidValue);
    longer.set(two, 2, false);
    const MediaProperty empty = number(Name::UmidValue, Type::Binary, 0);
    EXPECT_FALSE(empty == full);
    EXPECT_FALSE(full == empty);
    EXPECT_TRUE(empty == number(Name::UmidValue, Type::Binary, 0));
    EXPECT_FALSE(full == longer);
}

TEST(Property, PrintsEveryType) {
    EXPECT_STREQ(number(Name::NBlack, Type::None, 3).toString().get(), "nBlack=?");
    EXPECT_STREQ(MediaProperty(Name::ClipProps, "a,b").toString().get(), "clipProps=\"a,b\"");
    EXPECT_STREQ(number(Name::UmidValue, Type::Binary, 0).toString().get(), "umidValue=<binary>");
    for (Type type : {Type::Word1, Type::Word2, Type::Word3, Type::Word4}) {
        EXPECT_STREQ(number(Name::VbiMask, type, 0xffffffff).toString().get(), "vbiMask=4294967295");
    }
    EXPECT_STREQ(number(Name::VbiMask, static_cast<Type>(9), 3).toString().get(), "vbiMask=");
}

TEST(Property, PrintsTheLowHalfOfA64BitValue) {
    EXPECT_STREQ(number(Name::AfdValue, Type::Signed64, 0x100000005ull).toString().get(), "afdValue=5");
    EXPECT_STREQ(number(Name::AfdValue, Type::Unsigned64, 0x1ffffffffull).toString().get(), "afdValue=4294967295");
}

TEST(Property, OfName14PrintsAQuestionMark) {
    EXPECT_STREQ(MediaProperty(Name::AvcKind, 77u).toString().get(), "?=77");
}

TEST(Property, SetTypeFreesAndKeepsTheOwnedBit) {
    MediaProperty property = ownedText(Name::ClipProps, "text");
    property.setType(Type::None);
    EXPECT_EQ(property.stringValue(), nullptr);
    EXPECT_EQ(property.getType(), Type::None);
    // The bit that stayed makes the next copied text the property's own all the same.
    property.set("next", true);
    EXPECT_STREQ(property.stringValue(), "next");
}

TEST(ParamsBag, SettingANameTwiceLeavesOneEntryWithTheLaterValue) {
    MediaParams bag;
    EXPECT_TRUE(bag.set(MediaProperty(Name::NBlack, 1u)).success());
    EXPECT_TRUE(bag.set(MediaProperty(Name::VbiMask, 2u)).success());
    EXPECT_TRUE(bag.set(MediaProperty(Name::NBlack, 3u)).success());
    EXPECT_EQ(bag.getPropertyCount(), 2u);
    EXPECT_EQ(bag.get(Name::NBlack)->uintValue(), 3u);
    EXPECT_EQ(bag.get(0u)->getName(), Name::NBlack);
    EXPECT_EQ(bag.get(1u)->getName(), Name::VbiMask);
}

TEST(ParamsBag, AnswersNullAtAndPastTheEndAndForAMissingName) {
    MediaParams bag;
    EXPECT_EQ(bag.get(0u), nullptr);
    EXPECT_EQ(bag.get(Name::NBlack), nullptr);
    bag.set(MediaProperty(Name::NBlack, 1u)).discard();
    EXPECT_EQ(bag.get(1u), nullptr);
    bag.removeAll();
    EXPECT_EQ(bag.getPropertyCount(), 0u);
}

TEST(ParamsBag, CopiesOwnTheirTexts) {
    MediaParams bag;
    bag.set(ownedText(Name::ClipProps, "one")).discard();
    const MediaParams copy(bag);
    bag.set(ownedText(Name::ClipProps, "two")).discard();
    EXPECT_STREQ(copy.get(Name::ClipProps)->stringValue(), "one");
}

TEST(ParamsBag, ABorrowedTextStaysBorrowed) {
    char text[] = "one";
    MediaParams bag;
    bag.set(ClipPropsProperty(text)).discard();
    EXPECT_EQ(bag.get(Name::ClipProps)->stringValue(), text);
}

TEST(TypedRead, FindsTheMaskAndTheClipProperties) {
    MediaParams bag;
    bag.set(VbiMaskProperty(5)).discard();
    bag.set(ownedText(Name::ClipProps, "a,b")).discard();
    const MediaPropertyList& list = bag;
    EXPECT_EQ(list.get(MediaPropertyEnum::VbiMask()).value(), 5u);
    // The view borrows from the bag, so the text outlives it.
    const char* text = list.get(MediaPropertyEnum::ClipProps()).value();
    EXPECT_EQ(text, bag.get(Name::ClipProps)->stringValue());
    EXPECT_STREQ(text, "a,b");
}

TEST(TypedRead, OfAnEmptyBagGivesAnEmptyProperty) {
    const EmptyMediaProperties bag;
    const auto mask = bag.get(MediaPropertyEnum::VbiMask());
    EXPECT_EQ(mask.getType(), Type::None);
    EXPECT_EQ(mask.getName(), Name::Unknown);
    EXPECT_EQ(mask.value(), 0u);
    EXPECT_EQ(bag.get(MediaPropertyEnum::ClipProps()).value(), nullptr);
}

TEST(EmptyBag, TakesNothing) {
    EmptyMediaProperties bag;
    OpResult result = bag.set(MediaProperty(Name::NBlack, 1u));
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(result.getMessage(), nullptr);
    result.discard();
    bag.removeAll();
    EXPECT_EQ(bag.getPropertyCount(), 0u);
    EXPECT_EQ(bag.get(0u), nullptr);
    EXPECT_EQ(bag.get(Name::NBlack), nullptr);
}
