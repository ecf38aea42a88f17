#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_agent.h"
#include "shared/include/object/switches.h"
#include "tests/kit/log_capture.h"

namespace {

// What a constructor in static storage finds that runs ahead of all others but the core's own.
struct Early {
    Early() : m_result(MO_WARNING(MediaCode::NotImplemented, "early")) {
        m_result.discard();
        m_subsystem = m_result.getSubsystem();
        m_bits = mediaObjDbg.getBitCount();
        m_cacheDuration = mediaCacheDuration.get();
        m_zombieTime = mediaZombieTime.get();
        m_hasProperty = MediaAgent()->get(MediaAgentPropId::FrameN) != nullptr;
    }
    OpResult m_result;
    OpSubsystem m_subsystem = 0;
    unsigned m_bits = 0;
    unsigned m_cacheDuration = 0;
    unsigned m_zombieTime = 0;
    bool m_hasProperty = true;
};
__attribute__((init_priority(104))) const Early s_early;

// What the log says of a failure that nobody looked at.
std::string reportOf(const OpResult& raised) {
    const kit::LogCapture log;
    {
        OpResult result = raised;
        result.deliverNote(true);
    }
    return log.lines().empty() ? std::string() : log.lines().front().m_text;
}

OpResult raiseInCore(unsigned& line) {
    line = __LINE__ + 1;
    return MO_ERROR(MediaCode::FileNonExistent, "/a/b.wav");
}

OpResult raiseInInterface(unsigned& line) {
    line = __LINE__ + 1;
    return MO_INTERFACE_WARNING(MediaCode::OperationUnsupported, nullptr);
}

}  // namespace

TEST(CoreErrorTable, EveryCodeHasItsTextToTheLetter) {
    const struct {
        int m_code;
        const char* m_text;
    } rows[] = {{1, "internal error"},      {2, "unknown error"},          {3, "functionality not implemented"},
                {4, "file not readable"},   {5, "file not writable"},      {6, "file non-existant"},
                {7, "file exists"},         {8, "unsupported media type"}, {9, "invalid style"},
                {11, "out of range"},       {12, "write error"},           {13, "read error"},
                {15, "media parser error"}, {17, "operation unsupported"}};
    for (const auto& row : rows) {
        EXPECT_STREQ(MediaCoreOpSubsystem::getErrorName(row.m_code), row.m_text) << row.m_code;
        EXPECT_STREQ(OpSubsystemDecl::getErrorName(mediaCoreOpSubsystem.getId(), row.m_code), row.m_text);
    }
}

TEST(CoreErrorTable, CodesWithoutATextTakeTheUnknownName) {
    for (const int code : {10, 14, 16, 0, 18, -1, 0x7fffffff}) {
        EXPECT_STREQ(MediaCoreOpSubsystem::getErrorName(code), OpSubsystemDecl::getUnknownErrorName(code)) << code;
    }
}

TEST(CoreErrorTable, IsDeclaredAsMediaCoreAlsoForASecondInstance) {
    EXPECT_STREQ(OpSubsystemDecl::getName(mediaCoreOpSubsystem.getId()), "MediaCore");
    const MediaCoreOpSubsystem second("second");
    EXPECT_NE(second.getId(), mediaCoreOpSubsystem.getId());
    EXPECT_STREQ(OpSubsystemDecl::getName(second.getId()), "MediaCore/second");
    EXPECT_STREQ(OpSubsystemDecl::getErrorName(second.getId(), 6), "file non-existant");
}

TEST(CoreFailure, IsRaisedWithTheBareFunctionTheLabelAndTheTrueLine) {
    unsigned line = 0;
    OpResult core = raiseInCore(line);
    EXPECT_EQ(core.getType(), OpResult::Type::Error);
    EXPECT_EQ(core.getCode(), 6);
    EXPECT_EQ(core.getSubsystem(), mediaCoreOpSubsystem.getId());
    EXPECT_EQ(reportOf(core), "MediaCore: file non-existant: /a/b.wav, code 6, at raiseInCore (mediautil:" +
                                  std::to_string(line) + ")");
    OpResult open = raiseInInterface(line);
    EXPECT_EQ(open.getType(), OpResult::Type::Warning);
    EXPECT_EQ(reportOf(open),
              "MediaCore: operation unsupported, code 17, at raiseInInterface (../../shared/include/mediaobj:" +
                  std::to_string(line) + ")");
}

TEST(CoreSwitches, BitsHaveTheirNamesAtTheirPlaces) {
    const char* const names[] = {"list object (reactive)",
                                 "status (reactive)",
                                 "flush all objects (reactive)",
                                 "announce param id",
                                 "open trace",
                                 "ctor",
                                 "reference",
                                 "morph",
                                 "cache activity",
                                 "reread activity",
                                 "reread errors",
                                 "rename activity",
                                 "permission change",
                                 "file op",
                                 "ignore clip props",
                                 "write",
                                 "media cache",
                                 "synth frame n",
                                 "record1",
                                 "record2",
                                 "wrap in tlmo",
                                 "veldra naming",
                                 "validation",
                                 "writer count",
                                 "ignore missing media",
                                 "essence stats"};
    EXPECT_STREQ(mediaObjDbg.getName(), "mediaObjDbg");
    ASSERT_EQ(mediaObjDbg.getBitCount(), std::size(names));
    for (unsigned bit = 0; bit < std::size(names); ++bit) {
        EXPECT_STREQ(mediaObjDbg.getBitName(bit), names[bit]) << bit;
    }
    EXPECT_EQ(mediaObjDbg.getBitName(26), nullptr);
}

TEST(CoreSwitches, BitConstantsStandForTheirNames) {
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::FlushAll), "flush all objects (reactive)");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::AnnounceParamId), "announce param id");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::Reference), "reference");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::CacheActivity), "cache activity");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::PermissionChange), "permission change");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::IgnoreClipProps), "ignore clip props");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::SynthFrameN), "synth frame n");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::Record2), "record2");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::WrapInTlmo), "wrap in tlmo");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::Validation), "validation");
    EXPECT_STREQ(mediaObjDbg.getBitName(MediaDbg::EssenceStats), "essence stats");
}

TEST(CoreSwitches, NumbersHaveTheirNames) {
    EXPECT_STREQ(mediaZombieTime.getName(), "mediaZombieTime");
    EXPECT_FALSE(mediaZombieTime.isBitField());
    EXPECT_STREQ(mediaCacheDuration.getName(), "mediaCacheDuration");
    EXPECT_FALSE(mediaCacheDuration.isBitField());
}

TEST(StaticStorage, CoreIsReadyForTheFirstConstructors) {
    EXPECT_NE(s_early.m_subsystem, 0u);
    EXPECT_EQ(s_early.m_subsystem, mediaCoreOpSubsystem.getId());
    EXPECT_EQ(s_early.m_bits, 26u);
    EXPECT_EQ(s_early.m_cacheDuration, 0x10000u);
    EXPECT_EQ(s_early.m_zombieTime, 1u);
    EXPECT_FALSE(s_early.m_hasProperty);
}
