#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "services/system/control_commands.h"
#include "support/clock.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wait_for.h"

// What the cache answers on the control socket.

using kit::MovieScript;
using kit::ScriptedMovie;

namespace {

class Control : public kit::CacheScene {
protected:
    static JsonValue ask(const std::string& command) {
        JsonValue reply;
        std::string reason;
        EXPECT_TRUE(JsonValue::parse(ControlCommands::execute(R"({"id":1,"cmd":")" + command + "\"}"), reply, reason))
            << reason;
        return reply;
    }
    static std::string text(const JsonValue& object, const char* key) {
        const JsonValue* const member = object.find(key);
        return member != nullptr ? member->getText() : "";
    }
    static bool is(const JsonValue& object, const char* key) {
        const JsonValue* const member = object.find(key);
        return member != nullptr && member->getKind() == JsonValue::Kind::True;
    }
    // The object of that path, or of that id for a reservation; null without one.
    static const JsonValue* find(const JsonValue& reply, const char* key, const std::string& value) {
        const JsonValue* const list = reply.find("result");
        if (list == nullptr) return nullptr;
        for (const JsonValue& object : list->getItems()) {
            if (text(object, key) == value) return &object;
        }
        return nullptr;
    }
    // An object that never stood in the cache: its user's reference and the cache's.
    static void drop(ScriptedMovie* movie) {
        movie->getRefCount()->release();
        movie->release();
    }
    static unsigned long long verdict(const char* name) {
        std::uint64_t count = 0;
        const JsonValue reply = ask("verdicts");
        const JsonValue* const member = reply.find("result")->find(name);
        EXPECT_TRUE(member != nullptr && member->getUnsigned(count)) << name;
        return count;
    }
};

}  // namespace

TEST_F(Control, AnObjectIsShownWithItsHoldersAndWriters) {
    const std::string path = scripted("a.hdcam", MovieScript::ofTracks(1, 48000));
    ScriptedMovie* movie = open(path);
    const MediaObj::Persist holder = [movie] {
        MediaObj::Persist made;
        movie->preserve();
        made = movie;
        return made;
    }();
    const JsonValue reply = ask("objects");
    const JsonValue* const object = find(reply, "path", path);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(text(*object, "state"), "cached");
    EXPECT_EQ(text(*object, "references"), std::to_string(movie->getReferenceCount()));
    EXPECT_EQ(text(*object, "holders"), "1");
    EXPECT_EQ(text(*object, "writers"), "0");
    EXPECT_EQ(text(*object, "version"), std::to_string(movie->getVersion()));
    EXPECT_EQ(text(*object, "serial"), std::to_string(movie->getSerialNum()));
    EXPECT_FALSE(is(*object, "writable"));
    EXPECT_FALSE(is(*object, "morphing"));
    EXPECT_EQ(object->find("idleMsec")->getKind(), JsonValue::Kind::Null);
    movie->release();
}

TEST_F(Control, AWriterShows) {
    const std::string path = m_tree.path("new.hdcam");
    kit::Scripts::set(path, MovieScript());
    ScriptedMovie* movie = openWriter(path);
    ASSERT_NE(movie, nullptr);
    const JsonValue reply = ask("objects");
    const JsonValue* const object = find(reply, "path", path);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(text(*object, "writers"), "1");
    EXPECT_TRUE(is(*object, "writable"));
    movie->release(nullAgent(), true);
}

TEST_F(Control, AMorphThatDoesNotEndShowsWithTheReaderThatWaitsForIt) {
    const std::string path = m_tree.path("new.hdcam");
    kit::Scripts::set(path, MovieScript());
    ScriptedMovie* movie = openWriter(path, true);
    ASSERT_NE(movie, nullptr);
    const int alone = movie->getReferenceCount();
    MediaObj* reader = nullptr;
    std::thread opener([&] {
        OpResult result;
        reader = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        result.discard();
    });
    EXPECT_TRUE(kit::waitFor([&] { return movie->getReferenceCount() == alone + 1; }));
    const JsonValue waiting = ask("objects");
    const JsonValue* const object = find(waiting, "path", path);
    if (object != nullptr) {
        EXPECT_TRUE(is(*object, "morphing"));
        EXPECT_EQ(text(*object, "references"), std::to_string(alone + 1));
        EXPECT_EQ(text(*object, "writers"), "1");
    }
    EXPECT_NE(object, nullptr);
    movie->endMorph();
    opener.join();
    EXPECT_EQ(reader, movie);
    const JsonValue ended = ask("objects");
    ASSERT_NE(find(ended, "path", path), nullptr);
    EXPECT_FALSE(is(*find(ended, "path", path), "morphing"));
    movie->release();
    movie->release(nullAgent(), true);
}

TEST_F(Control, AnIdleObjectTellsForHowLong) {
    const std::string path = scripted("idle.hdcam", MovieScript());
    open(path)->release();
    const JsonValue reply = ask("objects");
    const JsonValue* const object = find(reply, "path", path);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->find("idleMsec")->getKind(), JsonValue::Kind::Number);
}

TEST_F(Control, AReservationAndAZombieAreShown) {
    const OsPathId id(0x123456789abcull);
    ASSERT_TRUE(m_cache->reserve(id));
    const std::string path = scripted("z.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    ScriptedMovie* newer = open(path, true);
    ASSERT_NE(newer, movie);
    const JsonValue reply = ask("objects");
    const JsonValue* const reserved = find(reply, "id", "0x123456789abc");
    ASSERT_NE(reserved, nullptr);
    EXPECT_EQ(text(*reserved, "state"), "reserved");
    EXPECT_EQ(reserved->find("path"), nullptr);
    const JsonValue* const zombie = find(reply, "serial", std::to_string(movie->getSerialNum()));
    ASSERT_NE(zombie, nullptr);
    EXPECT_EQ(text(*zombie, "state"), "zombie");
    m_cache->cancel(id);
    movie->release();
    newer->release();
}

TEST_F(Control, AStuckMapIsToldAndNotWaitedFor) {
    std::atomic<bool> held{false}, letGo{false};
    std::thread holder([&] {
        m_cache.lockMap();
        held = true;
        kit::waitFor([&letGo] { return letGo.load(); });
        m_cache.unlockMap();
    });
    ASSERT_TRUE(kit::waitFor([&held] { return held.load(); }));
    const JsonValue reply = ask("objects");
    letGo = true;
    holder.join();
    EXPECT_EQ(reply.find("ok")->getKind(), JsonValue::Kind::False);
    EXPECT_EQ(text(reply, "error"), "the cache's map can't be had within a second");
}

TEST_F(Control, VerdictsAreCountedByTheirNames) {
    const MovieScript one = MovieScript::ofTracks(1, 48000), two = MovieScript::ofTracks(2, 48000);
    const std::string path = scripted("v.hdcam", two);
    ScriptedMovie* older = parsed(path, two);
    const auto judge = [&](const MovieScript& script, bool force, const char* name) {
        const unsigned long long before = verdict(name);
        ScriptedMovie* newer = parsed(path, script);
        if (std::string(name) != "redundant") newer->setVersion(older->getVersion() + 1, false);
        if (std::string(name) == "redundant") newer->setVersion(older->getVersion(), false);
        m_cache.replaceable(older, newer, force);
        EXPECT_EQ(verdict(name), before + 1) << name;
        drop(newer);
    };
    judge(two, false, "redundant");
    judge(one, false, "invalidChange");
    judge(MovieScript::ofTracks(2, 96000), false, "update");
    judge(MovieScript::ofTracks(2, 24000), false, "tooShort");
    drop(older);
    older = parsed(path, MovieScript());
    judge(two, false, "structureChange");
    drop(older);
    MovieScript stubborn = two;
    stubborn.m_accept = false;
    older = parsed(path, stubborn);
    judge(MovieScript::ofTracks(2, 96000), false, "vetoed");
    drop(older);
}
