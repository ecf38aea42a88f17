#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "services/system/control_commands.h"
#include "shared/include/object/media_counters.h"
#include "support/clock.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/gate.h"
#include "tests/kit/open_metrics_check.h"
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
    // The answer while somebody else holds the map.
    JsonValue askWithTheMapHeld(const std::string& command) {
        kit::Gate held, letGo;
        held.close();
        letGo.close();
        std::thread holder([&] {
            m_cache.lockMap();
            held.open();
            letGo.pass();
            m_cache.unlockMap();
        });
        held.pass();
        JsonValue reply = ask(command);
        letGo.open();
        holder.join();
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
    static std::string addressOf(const kit::Client& agent) {
        char name[24];
        std::snprintf(name, sizeof name, "%p", static_cast<const void*>(&agent));
        return name;
    }
    // Each client of that object with its open files.
    static std::vector<std::string> clientsOf(const std::string& path) {
        const JsonValue reply = ask("objects");
        const JsonValue* const object = find(reply, "path", path);
        const JsonValue* const agents = object != nullptr ? object->find("agents") : nullptr;
        std::vector<std::string> clients;
        if (agents == nullptr) return {"no object"};
        for (const JsonValue& agent : agents->getItems()) {
            const bool isNull = agent.find("agent")->getKind() == JsonValue::Kind::Null;
            clients.push_back((isNull ? "null" : text(agent, "agent")) + " " + text(agent, "files"));
        }
        return clients;
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

TEST_F(Control, ClientsShowWithTheFilesThatTheyHaveOpen) {
    const std::string path = scripted("a.hdcam", MovieScript::ofTracks(1, 48000));
    ScriptedMovie* movie = open(path);
    const kit::Client one, two;
    for (const MediaAgent agent : {MediaAgent(&one), MediaAgent(&two), MediaAgent(nullptr)}) {
        const AutoRefPtr<BasicFileIO> file = movie->getFp(m_result, movie->getMediaId(0), false, agent);
        ASSERT_TRUE(file);
        EXPECT_TRUE(file->open());
    }
    const std::vector<std::string> clients = clientsOf(path);
    EXPECT_EQ(clients, (std::vector<std::string>{"null 1", addressOf(one) + " 1", addressOf(two) + " 1"}));
    EXPECT_TRUE(movie->close(nullptr, MediaAgent(&one)));
    EXPECT_EQ(clientsOf(path), (std::vector<std::string>{"null 1", addressOf(two) + " 1"}));
    EXPECT_TRUE(movie->close(nullptr, MediaAgent(&two)));
    EXPECT_TRUE(movie->close(nullptr, MediaAgent(nullptr)));
    EXPECT_TRUE(clientsOf(path).empty());
    movie->release();
}

TEST_F(Control, HelpNamesAllThatAnOperatorMayAsk) {
    const JsonValue reply = ask("help");
    const JsonValue* const result = reply.find("result");
    ASSERT_NE(result, nullptr);
    for (const char* command : {"help", "version", "switch.list", "switch.get", "switch.set", "switch.setbit",
                                "switch.clear", "trace", "objects", "verdicts", "ops", "metrics", "log.ring"})
        EXPECT_NE(text(*result, command), "") << command;
}

TEST_F(Control, CountersAreOneTextByTheRulesOfOpenMetrics) {
    open(scripted("a.hdcam", MovieScript::ofTracks(1, 48000)))->release();
    const std::string metrics = text(ask("metrics"), "result");
    EXPECT_EQ(kit::checkOpenMetrics(metrics), "");
    for (const char* line :
         {"\nmediacore_cache_entries 1\n", "\nmediacore_objects 1\n",
          "\nmediacore_verdicts_total{verdict=\"vetoed\"} 0\n", "\nmediacore_file_calls_under_way{kind=\"flush\"} 0\n"})
        EXPECT_NE(metrics.find(line), std::string::npos) << line << metrics;
    EXPECT_NE(metrics.find("mediacore_build_info{version=\""), std::string::npos);
}

TEST_F(Control, CountersFollowWhatHappens) {
    const MediaCounters before = MediaCounters::take();
    EXPECT_TRUE(before.m_isCacheKnown);
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript::ofTracks(1, 48000)));
    errorMsg("one\n");
    const MediaCounters after = MediaCounters::take();
    EXPECT_EQ(after.m_entries, before.m_entries + 1);
    EXPECT_EQ(after.m_objects, before.m_objects + 1);
    EXPECT_GE(after.m_files, before.m_files + 1);
    EXPECT_EQ(after.m_messages.m_errors, before.m_messages.m_errors + 1);
    movie->release();
}

TEST_F(Control, CountersOfAStuckMapAreLeftOutAndTheOthersTold) {
    const std::string metrics = text(askWithTheMapHeld("metrics"), "result");
    EXPECT_EQ(kit::checkOpenMetrics(metrics), "");
    EXPECT_EQ(metrics.find("mediacore_cache_entries"), std::string::npos);
    EXPECT_NE(metrics.find("mediacore_objects "), std::string::npos);
}

TEST(OpenMetricsRules, AreBrokenByWhatTheyForbid) {
    const std::string good = "# TYPE a counter\n# HELP a text\na_total{k=\"v\"} 1\n# EOF\n";
    EXPECT_EQ(kit::checkOpenMetrics(good), "");
    for (const char* bad :
         {"", "# TYPE a counter\na_total 1\n", "# TYPE a counter\n# HELP a t\na 1\n# EOF\n",
          "# TYPE a gauge\n# HELP a t\na_total 1\n# EOF\n",
          "# TYPE a_total counter\n# HELP a_total t\na_total 1\n# EOF\n", "# TYPE a gauge\n# HELP a t\na 1\n\n# EOF\n",
          "# TYPE a gauge\n# HELP a t\na 1\n# EOF\nmore\n", "# TYPE a gauge\n# HELP a t\na 1\na 2\n# EOF\n",
          "# TYPE a gauge\na 1\n# EOF\n", "# TYPE a gauge\n# HELP a t\na{k=\"v} 1\n# EOF\n",
          "# TYPE a gauge\n# HELP a t\na x\n# EOF\n",
          "# TYPE a gauge\n# HELP a t\na 1\n# TYPE a gauge\n# HELP a t\na{k=\"v\"} 1\n# EOF\n",
          "# TYPE a gauge\n# HELP a t\n# EOF\n", "# TYPE 9a gauge\n# HELP 9a t\n9a 1\n# EOF\n"})
        EXPECT_NE(kit::checkOpenMetrics(bad), "") << bad;
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
    EXPECT_TRUE(kit::waitFor([&] { return movie->impl().m_morphWaits.getCount() == 1; }));
    const JsonValue waiting = ask("objects");
    const JsonValue* const object = find(waiting, "path", path);
    if (object != nullptr) {
        EXPECT_TRUE(is(*object, "morphing"));
        EXPECT_EQ(text(*object, "references"), std::to_string(alone + 1));
        EXPECT_EQ(text(*object, "writers"), "1");
        EXPECT_EQ(text(*object, "waiting"), "1");
    }
    EXPECT_NE(object, nullptr);
    // The process serves its other movies meanwhile.
    const std::string other = scripted("other.hdcam", MovieScript::ofTracks(1, 48000));
    ScriptedMovie* const served = open(other);
    EXPECT_NE(served, nullptr);
    served->release();
    movie->endMorph();
    opener.join();
    EXPECT_EQ(reader, movie);
    const JsonValue ended = ask("objects");
    ASSERT_NE(find(ended, "path", path), nullptr);
    EXPECT_FALSE(is(*find(ended, "path", path), "morphing"));
    EXPECT_EQ(text(*find(ended, "path", path), "waiting"), "0");
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
    const JsonValue reply = askWithTheMapHeld("objects");
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
