#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "services/metadata/generic_umid.h"

// The identifier of material: its bytes, its texts, and the part that tells copies apart.

namespace {

constexpr std::uint8_t s_bytes[32] = {0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0D,
                                      0x20, 0x13, 0xA1, 0xB2, 0xC3, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55,
                                      0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
const std::string s_digits = "060A2B340101010501010D2013A1B2C300112233445566778899AABBCCDDEEFF";
const std::string s_text = "urn:smpte:umid:060A2B34.01010105.01010D20.13A1B2C3.00112233.44556677.8899AABB.CCDDEEFF";

std::string canonical(const std::string& text) {
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(text.c_str());
    return umid.get() != nullptr ? umid->getStringValue() : "null";
}

std::string lower(std::string text) {
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

}  // namespace

TEST(GenericUmid, TextIsItsNameInGroupsOfEightDigits) {
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromBytes(s_bytes);
    ASSERT_NE(umid.get(), nullptr);
    EXPECT_EQ(umid->getStringValue(), s_text);
    EXPECT_EQ(umid->getStringValue(), umid->getStringValue());
    EXPECT_EQ(std::memcmp(umid->getBytes().data(), s_bytes, 32), 0);
}

TEST(GenericUmid, CanonicalTextReadsBack) {
    EXPECT_EQ(canonical(s_text), s_text);
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(s_text.c_str());
    ASSERT_NE(umid.get(), nullptr);
    EXPECT_EQ(std::memcmp(umid->getBytes().data(), s_bytes, 32), 0);
}

TEST(GenericUmid, PlainDigitsAreReadInEitherCase) {
    for (const std::string& text : {s_digits, lower(s_digits), "0x" + s_digits, "0X" + lower(s_digits), lower(s_text),
                                    "URN:SMPTE:UMID:" + s_digits})
        EXPECT_EQ(canonical(text), s_text) << text;
}

TEST(GenericUmid, DotsAndHyphensBetweenBytesAreSteppedOver) {
    EXPECT_EQ(canonical("06.0A.2B.34-01010105.01010D20.13A1B2C3-00112233-4455-6677-8899-AABBCCDDEEFF"), s_text);
}

TEST(GenericUmid, TextOfAnotherLengthIsNone) {
    for (const std::string& text :
         {std::string(), std::string("0"), std::string("urn:smpte:umid:"), std::string("0x"), s_digits.substr(1),
          s_digits.substr(2), s_digits.substr(0, 63), s_digits.substr(0, 62), s_digits + "0", s_digits + "00",
          s_digits + s_digits, s_text + ".00000000"})
        EXPECT_EQ(canonical(text), "null") << text;
    EXPECT_EQ(GenericUmid::createFromString(nullptr).get(), nullptr);
}

TEST(GenericUmid, TextWithAnythingElseInItIsNone) {
    for (const char* strange : {" ", "g", "G", "/", ":", "@", "`", "\n", "\xC3\xA9", "%s", "x"}) {
        for (const std::size_t at : {std::size_t{0}, std::size_t{30}, s_digits.size()}) {
            std::string text = s_digits;
            text.insert(at, strange);
            EXPECT_EQ(canonical(text), "null") << text;
        }
        std::string replaced = s_digits;
        replaced.replace(40, 1, strange, 1);
        EXPECT_EQ(canonical(replaced), "null") << replaced;
    }
}

TEST(GenericUmid, SeparatorInsideAByteOrInFrontIsNone) {
    EXPECT_EQ(canonical("0.6" + s_digits.substr(2)), "null");
    EXPECT_EQ(canonical("." + s_digits), "null");
    EXPECT_EQ(canonical("-" + s_digits), "null");
    EXPECT_EQ(canonical("urn:smpte:umid:." + s_digits), "null");
    EXPECT_EQ(canonical("urn:smpte:umid:0x" + s_digits), "null");
    EXPECT_EQ(canonical("0x0x" + s_digits), "null");
}

TEST(GenericUmid, NameOfAnotherSpaceIsNone) {
    for (const char* prefix : {"urn:smpte:ul:", "urn:uuid:", "umid:", "urn:smpte:umid", "smpte:umid:"})
        EXPECT_EQ(canonical(prefix + s_digits), "null") << prefix;
}

TEST(GenericUmid, VeryLongTextIsNone) {
    EXPECT_EQ(canonical(std::string(1000000, '0')), "null");
    EXPECT_EQ(canonical("06" + std::string(1000000, '.')), "null");
}

TEST(GenericUmid, BytesThatBeginWithNoUniversalLabelAreNone) {
    for (unsigned i = 0; i < 4; ++i) {
        std::uint8_t bytes[32];
        std::memcpy(bytes, s_bytes, 32);
        bytes[i] ^= 1;
        EXPECT_EQ(GenericUmid::createFromBytes(bytes).get(), nullptr) << i;
    }
    const std::uint8_t zeros[32] = {};
    EXPECT_EQ(GenericUmid::createFromBytes(zeros).get(), nullptr);
}

TEST(GenericUmid, BytesOfAnotherLengthThanTheBasicAreNone) {
    for (const unsigned length : {0x00u, 0x12u, 0x14u, 0x33u, 0xFFu}) {
        std::uint8_t bytes[32];
        std::memcpy(bytes, s_bytes, 32);
        bytes[12] = static_cast<std::uint8_t>(length);
        EXPECT_EQ(GenericUmid::createFromBytes(bytes).get(), nullptr) << length;
    }
}

TEST(GenericUmid, OlderLabelsAndAllTypesOfMaterialAreRead) {
    std::string text = s_digits;
    text.replace(14, 2, "01");  // the registry's version
    text.replace(20, 2, "01");  // picture material
    EXPECT_NE(canonical(text), "null");
}

TEST(GenericUmid, ResetOfTheInstanceLeavesTheMaterial) {
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromBytes(s_bytes);
    umid->resetInstance();
    EXPECT_STREQ(umid->getStringValue(),
                 "urn:smpte:umid:060A2B34.01010105.01010D20.13000000.00112233.44556677.8899AABB.CCDDEEFF");
    for (unsigned i = 0; i < 32; ++i)
        EXPECT_EQ(umid->getBytes()[i], i >= 13 && i < 16 ? 0 : s_bytes[i]) << i;
    umid->resetInstance();
    EXPECT_EQ(canonical(umid->getStringValue()), umid->getStringValue());
}

TEST(GenericUmid, CopiesOfOneMaterialAreTheSameWithoutTheirInstance) {
    std::set<std::string> sources;
    for (const char* instance : {"000000", "000001", "FFFFFF", "7F0080"}) {
        std::string text = s_digits;
        text.replace(26, 6, instance);
        const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(text.c_str());
        ASSERT_NE(umid.get(), nullptr);
        umid->resetInstance();
        sources.insert(umid->getStringValue());
    }
    EXPECT_EQ(sources.size(), 1u);
}

TEST(GenericUmid, GeneratedOnesDifferAndAreOfInstance0) {
    std::set<std::string> texts;
    for (int i = 0; i < 100; ++i) {
        const AutoPtr<GenericUmid> umid = GenericUmid::generate();
        ASSERT_NE(umid.get(), nullptr);
        const std::string text = umid->getStringValue();
        EXPECT_EQ(text.substr(0, 51), "urn:smpte:umid:060A2B34.01010105.01010F20.13000000.");
        EXPECT_EQ(umid->getBytes()[22] >> 4, 4);  // a random UUID
        EXPECT_EQ(umid->getBytes()[24] >> 6, 2);
        EXPECT_EQ(canonical(text), text);
        umid->resetInstance();
        EXPECT_EQ(umid->getStringValue(), text);
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), 100u);
}
