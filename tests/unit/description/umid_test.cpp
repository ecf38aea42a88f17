#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "services/metadata/user_data.h"
#include "tests/unit/description/description_fixture.h"

// A movie's identifier, and that of the material of which it is a copy.

namespace {

constexpr char s_umid[] = "urn:smpte:umid:060A2B34.01010105.01010D20.13A1B2C3.00112233.44556677.8899AABB.CCDDEEFF";
constexpr char s_source[] = "urn:smpte:umid:060A2B34.01010105.01010D20.13000000.00112233.44556677.8899AABB.CCDDEEFF";

class IdentifiedMovie : public TestMovie {
public:
    const UserDataSet* getUserDataMovie() const override { return m_hasUserData ? &m_userData : nullptr; }
    UserDataSet* getUserDataMovie(bool) override { return m_hasUserData ? &m_userData : nullptr; }

    void setUmid(const char* text, unsigned kind = 65) {
        m_userData.setText(UserDataKey(UserDataEnum::KeyKind::Umid, static_cast<UserDataEnum::ValueKind>(kind)), text);
    }

    UserDataStore m_userData;
    bool m_hasUserData = true;
};

// A back-end that knows its identifier without user data.
class KnowingMovie : public TestMovie {
public:
    const char* getUmid() const override { return s_umid; }
};

class Umid : public testing::Test {
protected:
    ~Umid() override { m_result.discard(); }

    void expectNoSource(int code, const char* message) {
        m_result = OpResult(OpResult::Ok);
        EXPECT_EQ(m_movie.getSourceUmid(m_result), nullptr);
        EXPECT_EQ(m_result.getType(), OpResult::Type::Warning);
        EXPECT_EQ(m_result.getCode(), code);
        EXPECT_EQ(m_result.getSubsystem(), mediaCoreOpSubsystem.getId());
        EXPECT_STREQ(m_result.getMessage(), message);
        m_result.discard();
    }
    void expectNoUmid() {
        EXPECT_EQ(m_movie.getUmid(), nullptr);
        expectNoSource(2, "object has no umid");
    }

    IdentifiedMovie m_movie;
    OpResult m_result;
};

}  // namespace

TEST_F(Umid, IsTheTextInTheUserData) {
    m_movie.setUmid(s_umid);
    EXPECT_STREQ(m_movie.getUmid(), s_umid);
    m_movie.setUmid("whatever stands there");
    EXPECT_STREQ(m_movie.getUmid(), "whatever stands there");
}

TEST_F(Umid, IsMissingWithoutUserData) {
    m_movie.setUmid(s_umid);
    m_movie.m_hasUserData = false;
    expectNoUmid();
}

TEST_F(Umid, IsMissingWithoutAValue) {
    expectNoUmid();
    m_movie.m_userData.setText(UserDataKey(UserDataEnum::KeyKind::ClipProps, UserDataEnum::ValueKind::Umid), s_umid);
    expectNoUmid();
}

TEST_F(Umid, OfAnotherKindIsNone) {
    for (const unsigned kind : {0u, 1u, 12u, 64u, 66u}) {
        m_movie.setUmid(s_umid, kind);
        expectNoUmid();
    }
}

TEST_F(Umid, KeysHaveTheNumbersThatBackEndsStore) {
    EXPECT_EQ(static_cast<unsigned>(UserDataEnum::KeyKind::Umid), 12u);
    EXPECT_EQ(static_cast<unsigned>(UserDataEnum::KeyKind::ClipProps), 10u);
    EXPECT_EQ(static_cast<unsigned>(UserDataEnum::ValueKind::Any), 0u);
    EXPECT_EQ(static_cast<unsigned>(UserDataEnum::ValueKind::Umid), 65u);
}

TEST_F(Umid, BaseClassCanNeitherMakeNorTakeOne) {
    m_result = m_movie.generateUmid();
    EXPECT_EQ(m_result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(m_result.getCode(), 17);
    m_result.discard();
    const KnowingMovie other;
    m_result = m_movie.setProxyUmid(other);
    EXPECT_EQ(m_result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(m_result.getCode(), 17);
}

TEST_F(Umid, OfTheSourceHasNoInstance) {
    m_movie.setUmid(s_umid);
    EXPECT_STREQ(m_movie.getSourceUmid(m_result), s_source);
    EXPECT_TRUE(m_result.success());
    EXPECT_STREQ(m_movie.getUmid(), s_umid);
}

TEST_F(Umid, OfTheSourceIsTheCanonicalText) {
    for (const char* text : {"0x060a2b340101010501010d2013a1b2c300112233445566778899aabbccddeeff",
                             "060A2B340101010501010D2013FFFFFF00112233445566778899AABBCCDDEEFF"}) {
        m_movie.setUmid(text);
        EXPECT_STREQ(m_movie.getSourceUmid(m_result), s_source);
        EXPECT_TRUE(m_result.success());
    }
}

TEST_F(Umid, OfTheSourceLeavesTheResultAlone) {
    m_movie.setUmid(s_umid);
    m_result = MO_WARNING(MediaCode::ReadError, "left over");
    EXPECT_STREQ(m_movie.getSourceUmid(m_result), s_source);
    EXPECT_STREQ(m_result.getMessage(), "left over");
}

TEST_F(Umid, ThatIsNoIdentifierHasNoSource) {
    for (const char* text : {"", "urn:smpte:umid:", "no umid", "urn:smpte:umid:060A2B34"}) {
        m_movie.setUmid(text);
        expectNoSource(1, nullptr);
    }
    m_movie.setUmid((std::string(s_umid) + "00").c_str());
    expectNoSource(1, nullptr);
}

TEST_F(Umid, OfTheSourceStaysAtOneAddress) {
    m_movie.setUmid(s_umid);
    const char* const first = m_movie.getSourceUmid(m_result);
    EXPECT_EQ(m_movie.getSourceUmid(m_result), first);
    std::string other = s_umid;
    other.back() = '0';
    m_movie.setUmid(other.c_str());
    EXPECT_EQ(m_movie.getSourceUmid(m_result), first);
    EXPECT_EQ(std::string(first), std::string(s_source).replace(std::strlen(s_source) - 1, 1, "0"));
    m_movie.setUmid("none");
    expectNoSource(1, nullptr);
    EXPECT_EQ(std::strlen(first), std::strlen(s_source));
}

TEST_F(Umid, IsAskedByItsVirtual) {
    KnowingMovie movie;
    EXPECT_STREQ(movie.getSourceUmid(m_result), s_source);
    EXPECT_TRUE(m_result.success());
}

TEST_F(Umid, OfTheSourceIsTheSameForTwoCallersAtOnce) {
    m_movie.setUmid(s_umid);
    std::atomic<int> ready{0};
    std::atomic<int> good{0};
    std::atomic<const char*> seen{nullptr};
    const auto caller = [&] {
        OpResult result;
        ++ready;
        while (ready < 2)
            std::this_thread::yield();
        for (int i = 0; i < 200; ++i) {
            const char* const text = m_movie.getSourceUmid(result);
            const char* before = nullptr;
            const bool same = seen.compare_exchange_strong(before, text) || before == text;
            if (same && result && std::strcmp(text, s_source) == 0) ++good;
        }
    };
    std::thread first(caller);
    std::thread second(caller);
    first.join();
    second.join();
    EXPECT_EQ(good, 400);
}
