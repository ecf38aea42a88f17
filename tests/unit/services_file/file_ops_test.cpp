#include "services/file/file_ops.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "services/file/file_calls.h"
#include "services/file/fs_file_io.h"
#include "services/system/control_commands.h"
#include "tests/unit/services_file/file_kit.h"

// What the file layer has under way and what took long.

namespace {

using Kind = FileOps::Kind;

std::atomic<bool> s_held{false};

// Keeps reads and syncs from the disk while it stands.
class HeldCalls {
public:
    HeldCalls() {
        s_held = true;
        FileCalls::setFault(+[](FileCall call, const char*, int, std::size_t&) {
            while (s_held && (call == FileCall::Read || call == FileCall::Sync))
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return 0;
        });
    }
    ~HeldCalls() {
        s_held = false;
        FileCalls::setFault(nullptr);
    }
};

FileOps::Slow slowOne(long long start, long long duration) {
    FileOps::Slow slow;
    slow.m_start = start;
    slow.m_duration = duration;
    return slow;
}

class FileOpsTest : public testing::Test {
protected:
    static unsigned long long ended(Kind kind) { return FileOps::getCounts(kind).m_ended; }
    // The slow call of that file, if one is kept.
    static bool isKept(Kind kind, const std::string& path) {
        for (const FileOps::Slow& slow : FileOps::getSlowest()) {
            if (slow.m_kind == kind && path == slow.m_path && slow.m_duration >= FileOps::s_slow) return true;
        }
        return false;
    }

    FileKit::Tree m_tree;
};

}  // namespace

TEST_F(FileOpsTest, ReadsWritesAndFlushesAreCounted) {
    const unsigned long long reads = ended(Kind::Read), writes = ended(Kind::Write), flushes = ended(Kind::Flush);
    const AutoRefPtr<BasicFileIO> file(
        new FsFileIO("test", m_tree.write("a", "bytes").c_str(), BasicIOTypes::Mode::Update));
    char byte = 0;
    EXPECT_EQ(file->readAt(0, &byte, 1), 1);
    EXPECT_EQ(file->writeAt(0, "B", 1), 1);
    EXPECT_TRUE(file->flush());
    EXPECT_EQ(ended(Kind::Read), reads + 1);
    EXPECT_EQ(ended(Kind::Write), writes + 1);
    EXPECT_EQ(ended(Kind::Flush), flushes + 1);
    EXPECT_EQ(FileOps::getCounts(Kind::Read).inFlight(), 0u);
}

TEST_F(FileOpsTest, ACallThatHangsIsUnderWayAndThenAmongTheSlowest) {
    const std::string path = m_tree.write("slow", "bytes");
    const AutoRefPtr<BasicFileIO> file(new FsFileIO("test", path.c_str(), BasicIOTypes::Mode::Update));
    ASSERT_TRUE(file->open());
    for (const Kind kind : {Kind::Read, Kind::Flush}) {
        std::thread caller;
        {
            const HeldCalls held;
            caller = std::thread([&file, kind] {
                char byte = 0;
                if (kind == Kind::Read)
                    EXPECT_EQ(file->readAt(2, &byte, 1), 1);
                else
                    EXPECT_TRUE(file->flush());
            });
            EXPECT_TRUE(FileKit::waitFor([kind] { return FileOps::getCounts(kind).inFlight() == 1; }));
            EXPECT_TRUE(FileKit::waitFor([] { return FileOps::getCurrent().size() == 1; }));
            const FileOps::Current current = FileOps::getCurrent().at(0);
            EXPECT_EQ(current.m_kind, kind);
            EXPECT_EQ(current.m_file, FileKit::idOf(path));
            EXPECT_EQ(current.m_offset, kind == Kind::Read ? 2u : 0u);
            EXPECT_EQ(current.m_size, kind == Kind::Read ? 1u : 0u);
            std::this_thread::sleep_for(std::chrono::milliseconds(60));
        }
        caller.join();
        EXPECT_TRUE(isKept(kind, path)) << FileOps::getName(kind);
        EXPECT_EQ(FileOps::getCounts(kind).inFlight(), 0u);
    }
}

TEST_F(FileOpsTest, WhatWasRefusedDoesNotCount) {
    const FileOps::Counts before = FileOps::getCounts(Kind::Write);
    const FileOps::Begun begun = FileOps::begin(Kind::Write, 1, 2, 3);
    EXPECT_EQ(FileOps::getCurrent().size(), 1u);
    FileOps::cancel(Kind::Write, begun);
    EXPECT_TRUE(FileOps::getCurrent().empty());
    EXPECT_EQ(FileOps::getCounts(Kind::Write).m_begun, before.m_begun);
    EXPECT_EQ(FileOps::getCounts(Kind::Write).inFlight(), 0u);
}

TEST_F(FileOpsTest, TheSlowestAreKeptAndOldOnesMakeRoomFirst) {
    // Times of its own, far from the clock's, so that what other tests have left counts as old.
    constexpr long long day = 86400000000ll, now = 10000 * day;
    for (unsigned i = 1; i <= 2 * FileOps::s_mostSlow; ++i)
        FileOps::note(slowOne(now, 1000 * i), now);
    std::vector<FileOps::Slow> slowest = FileOps::getSlowestAt(now);
    ASSERT_EQ(slowest.size(), FileOps::s_mostSlow);
    EXPECT_EQ(slowest.front().m_duration, 2000 * FileOps::s_mostSlow);
    EXPECT_EQ(slowest.back().m_duration, 1000 * (FileOps::s_mostSlow + 1));
    // Too fast for the table.
    FileOps::note(slowOne(now, 10), now);
    EXPECT_EQ(FileOps::getSlowestAt(now).back().m_duration, 1000 * (FileOps::s_mostSlow + 1));
    // A day later all of these are old, and the same call is the only recent one.
    FileOps::note(slowOne(now + day, 10), now + day);
    slowest = FileOps::getSlowestAt(now + day);
    ASSERT_EQ(slowest.size(), 1u);
    EXPECT_EQ(slowest.front().m_duration, 10);
    EXPECT_TRUE(FileOps::getSlowestAt(now + 3 * day).empty());
}

TEST_F(FileOpsTest, OfALongPathTheEndIsKept) {
    const std::string path = "/" + std::string(2 * FileOps::s_pathSize, 'x') + "/end.wav";
    // As if it had begun when the machine did.
    FileOps::Begun begun = FileOps::begin(Kind::Read, 0, 3, 4);
    begun.m_start = -86400000000ll * 10000;
    const unsigned long long slow = FileOps::getSlowCount(), failed = FileOps::getFailureCount(Kind::Read);
    FileOps::end(Kind::Read, begun, path.c_str(), 3, 4, 5);
    EXPECT_EQ(FileOps::getSlowCount(), slow + 1);
    EXPECT_EQ(FileOps::getFailureCount(Kind::Read), failed + 1);
    const FileOps::Slow slowest = FileOps::getSlowest().front();
    EXPECT_EQ(std::string(slowest.m_path), path.substr(path.size() - (FileOps::s_pathSize - 1)));
    EXPECT_EQ(slowest.m_offset, 3u);
    EXPECT_EQ(slowest.m_size, 4u);
    EXPECT_EQ(slowest.m_error, 5);
}

TEST_F(FileOpsTest, ManyCallsAtOnceAreAllCountedAndListedAsFarAsThereArePlaces) {
    constexpr unsigned calls = 200;
    std::vector<FileOps::Begun> begun;
    for (unsigned i = 0; i < calls; ++i)
        begun.push_back(FileOps::begin(Kind::Write, i + 1, i, 2 * i));
    EXPECT_EQ(FileOps::getCounts(Kind::Write).inFlight(), calls);
    const std::vector<FileOps::Current> listed = FileOps::getCurrent();
    EXPECT_EQ(listed.size(), FileOps::s_places / 16);
    for (const FileOps::Current& call : listed) {
        EXPECT_EQ(call.m_file, OsPathId(call.m_offset + 1));
        EXPECT_EQ(call.m_size, 2 * call.m_offset);
    }
    for (const FileOps::Begun& one : begun)
        FileOps::end(Kind::Write, one, "", 0, 0, 0);
    EXPECT_TRUE(FileOps::getCurrent().empty());
    const FileOps::Begun next = FileOps::begin(Kind::Write, 1, 0, 0);
    EXPECT_EQ(FileOps::getCurrent().size(), 1u) << "places that were given back serve again";
    FileOps::end(Kind::Write, next, "", 0, 0, 0);
}

TEST_F(FileOpsTest, WhatIsListedWhileCallsComeAndGoIsNeverMixed) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> callers;
    for (unsigned i = 0; i < 3; ++i) {
        callers.emplace_back([&stop, i] {
            for (unsigned long long n = i; !stop; n += 3) {
                const FileOps::Begun begun = FileOps::begin(Kind::Read, n + 1, n, 2 * n);
                FileOps::end(Kind::Read, begun, "", 0, 0, 0);
            }
        });
    }
    unsigned seen = 0;
    EXPECT_TRUE(FileKit::waitFor([&seen] {
        for (const FileOps::Current& call : FileOps::getCurrent()) {
            ++seen;
            if (call.m_file != OsPathId(call.m_offset + 1) || call.m_size != 2 * call.m_offset) return false;
        }
        return seen > 2000;
    }));
    stop = true;
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_GT(seen, 2000u);
}

TEST_F(FileOpsTest, TheCommandNamesTheFileThatACallWaitsFor) {
    FileOps::offerControl();
    const std::string path = m_tree.write("stuck", "bytes");
    const AutoRefPtr<BasicFileIO> file(new FsFileIO("test", path.c_str(), BasicIOTypes::Mode::Update));
    ASSERT_TRUE(file->open());
    std::thread caller;
    JsonValue reply;
    {
        const HeldCalls held;
        caller = std::thread([&file] {
            char byte = 0;
            EXPECT_EQ(file->readAt(2, &byte, 1), 1);
        });
        EXPECT_TRUE(FileKit::waitFor([] { return FileOps::getCurrent().size() == 1; }));
        std::string reason;
        EXPECT_TRUE(JsonValue::parse(ControlCommands::execute("{\"cmd\":\"ops\"}"), reply, reason)) << reason;
    }
    caller.join();
    const JsonValue* const current = reply.find("result")->find("current");
    ASSERT_TRUE(current != nullptr && current->getItems().size() == 1);
    const JsonValue& call = current->getItems()[0];
    EXPECT_EQ(call.getKeys(), (std::vector<std::string>{"kind", "path", "offset", "size", "msec"}));
    EXPECT_EQ(call.find("kind")->getText(), "read");
    EXPECT_EQ(call.find("path")->getText(), path);
    EXPECT_EQ(call.find("offset")->getText(), "2");
}

TEST_F(FileOpsTest, TheCommandTellsAllOfIt) {
    FileOps::offerControl();
    JsonValue reply;
    std::string reason;
    ASSERT_TRUE(JsonValue::parse(ControlCommands::execute("{\"id\":1,\"cmd\":\"ops\"}"), reply, reason)) << reason;
    const JsonValue* const result = reply.find("result");
    ASSERT_NE(result, nullptr);
    for (const char* part : {"inFlight", "done"}) {
        ASSERT_NE(result->find(part), nullptr);
        EXPECT_EQ(result->find(part)->getKeys(), (std::vector<std::string>{"read", "write", "flush"}));
    }
    for (const char* list : {"current", "slowest"}) {
        ASSERT_NE(result->find(list), nullptr);
        EXPECT_EQ(result->find(list)->getKind(), JsonValue::Kind::Array);
    }
}
