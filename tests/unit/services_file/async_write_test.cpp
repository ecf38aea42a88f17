#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "services/file/file_calls.h"
#include "support/auto_ptr.h"
#include "tests/unit/services_file/async_kit.h"

namespace {

using namespace AsyncKit;
using Writing = AsyncKit::Engine;

INSTANTIATE_TEST_SUITE_P(Async, Writing, testing::Values(AsyncEngine::Kind::Uring, AsyncEngine::Kind::Pool), kindName);

phantom_OBUF* filled(unsigned size, unsigned char value) {
    phantom_OBUF* obuf = obufAllocate(0, size);
    std::memset(obufFirstByte(obuf), value, size);
    return obuf;
}

std::vector<unsigned char> contentOf(int fd) {
    struct stat status {};
    fstat(fd, &status);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(status.st_size));
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::pread(fd, bytes.data(), bytes.size(), 0));
    return bytes;
}

std::atomic<unsigned> s_calls{0};
int shortAndInterrupted(FileCall call, const char*, int, std::size_t& size) {
    if (call != FileCall::Write) return 0;
    if (size > 7) size = 7;
    return s_calls++ % 2 == 0 ? EINTR : 0;
}
int fullAfterThree(FileCall call, const char*, int, std::size_t& size) {
    if (call != FileCall::Write) return 0;
    if (size > 100) size = 100;
    return s_calls++ < 3 ? 0 : ENOSPC;
}

// Keeps the writer busy until it is let go, so that what is written meanwhile waits together.
class Blocker final : public AsyncSink {
public:
    void readDone(int) override {}
    void writeDone(unsigned long long, unsigned, int) override {
        m_in = true;
        while (!m_go)
            std::this_thread::yield();
        m_out = true;
    }
    std::atomic<bool> m_in{false}, m_go{false}, m_out{false};
};

TEST_P(Writing, BytesReachTheFileAtTheirOffset) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), 10, filled(5, 'a'), sink));
    ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), 0, filled(10, 'b'), sink));
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 2; }));
    const auto bytes = contentOf(handle.get()->fd());
    EXPECT_EQ(std::string(10, 'b') + std::string(5, 'a'), std::string(bytes.begin(), bytes.end()));
    EXPECT_EQ(0u, sink.m_failures);
}

TEST_P(Writing, NeighboursAreJoinedIntoOneCall) {
    AutoRefPtr<Handle> gate(new Handle(makeFile(0)));
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Blocker blocker;
    Sink sink;
    ASSERT_TRUE(m_engine->write(*gate.get(), gate.get()->fd(), 0, filled(1, 0), blocker));
    ASSERT_TRUE(waitFor([&] { return blocker.m_in.load(); }));
    for (unsigned i = 0; i < 30; ++i) {
        ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), i * 6408ull,
                                    filled(6408, static_cast<unsigned char>(i)), sink));
    }
    const unsigned long long calls = m_engine->getStats().m_writeCalls;
    blocker.m_go = true;
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 30; }));
    EXPECT_EQ(calls + 1, m_engine->getStats().m_writeCalls);
    const auto bytes = contentOf(handle.get()->fd());
    ASSERT_EQ(30u * 6408, bytes.size());
    for (unsigned i = 0; i < bytes.size(); ++i)
        ASSERT_EQ(i / 6408, bytes[i]);
}

TEST_P(Writing, BlocksOfSeveralFilesAreJoinedFileByFile) {
    AutoRefPtr<Handle> gate(new Handle(makeFile(0)));
    std::vector<AutoRefPtr<Handle>> handles;
    for (int i = 0; i < 8; ++i)
        handles.emplace_back(new Handle(makeFile(0)));
    Blocker blocker;
    Sink sink;
    ASSERT_TRUE(m_engine->write(*gate.get(), gate.get()->fd(), 0, filled(1, 0), blocker));
    ASSERT_TRUE(waitFor([&] { return blocker.m_in.load(); }));
    for (unsigned i = 0; i < 20; ++i) {
        for (unsigned f = 0; f < 8; ++f) {
            ASSERT_TRUE(m_engine->write(*handles[f].get(), handles[f].get()->fd(), i * 100ull,
                                        filled(100, static_cast<unsigned char>(f)), sink));
        }
    }
    const unsigned long long calls = m_engine->getStats().m_writeCalls;
    blocker.m_go = true;
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 160; }));
    EXPECT_EQ(calls + 8, m_engine->getStats().m_writeCalls);
    for (unsigned f = 0; f < 8; ++f) {
        EXPECT_EQ(std::vector<unsigned char>(2000, static_cast<unsigned char>(f)), contentOf(handles[f].get()->fd()));
    }
}

TEST_P(Writing, LaterBlockOfAHandleWinsOverAnEarlierOne) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    for (unsigned i = 0; i < 2000; ++i) {
        ASSERT_TRUE(
            m_engine->write(*handle.get(), handle.get()->fd(), i % 3, filled(8, static_cast<unsigned char>(i)), sink));
    }
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 2000; }));
    // The last writes began at 0, 1 and 2: 1997 % 3 is 2, 1998 % 3 is 0, 1999 % 3 is 1.
    const auto bytes = contentOf(handle.get()->fd());
    ASSERT_EQ(10u, bytes.size());
    EXPECT_EQ(static_cast<unsigned char>(1998), bytes[0]);
    for (unsigned i = 1; i < 9; ++i)
        EXPECT_EQ(static_cast<unsigned char>(1999), bytes[i]);
    EXPECT_EQ(static_cast<unsigned char>(1997), bytes[9]);
}

TEST_P(Writing, BufferOfManyPiecesIsWrittenWhole) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    phantom_OBUF* obuf = obufAllocate(0, 0);
    for (unsigned i = 0; i < 1500; ++i)
        ASSERT_EQ(1, obufInsert(obuf, filled(3, static_cast<unsigned char>(i)), obufAppend));
    Sink sink;
    ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), 0, obuf, sink));
    ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), 4500, filled(1, 7), sink));
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 2; }));
    const auto bytes = contentOf(handle.get()->fd());
    ASSERT_EQ(4501u, bytes.size());
    for (unsigned i = 0; i < 4500; ++i)
        ASSERT_EQ(static_cast<unsigned char>(i / 3), bytes[i]);
}

TEST_P(Writing, EmptyBufferIsDoneWithoutACall) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), 77, obufAllocate(0, 0), sink));
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 1; }));
    EXPECT_EQ(0u, sink.m_failures);
    EXPECT_EQ(0u, m_engine->getStats().m_writeCalls);
}

TEST_P(Writing, FullDeviceIsToldToTheHandle) {
    AutoRefPtr<Handle> handle(new Handle(::open("/dev/full", O_WRONLY | O_CLOEXEC)));
    Sink sink;
    for (unsigned i = 0; i < 10; ++i)
        ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), i * 100, filled(100, 1), sink));
    ASSERT_TRUE(waitFor([&] { return sink.m_writes == 10; }));
    EXPECT_EQ(10u, sink.m_failures);
    EXPECT_EQ(ENOSPC, sink.m_writeError);
}

TEST_P(Writing, ShortCountsAndInterruptionsAreMadeUpFor) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    FileCalls::setFault(shortAndInterrupted);
    for (unsigned i = 0; i < 50; ++i)
        ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), i * 50,
                                    filled(50, static_cast<unsigned char>(i)), sink));
    m_engine->stop();
    FileCalls::setFault(nullptr);
    EXPECT_EQ(50u, sink.m_writes);
    EXPECT_EQ(0u, sink.m_failures);
    const auto bytes = contentOf(handle.get()->fd());
    ASSERT_EQ(2500u, bytes.size());
    for (unsigned i = 0; i < 2500; ++i)
        ASSERT_EQ(i / 50, bytes[i]);
}

TEST_P(Writing, DeviceThatFillsUpFailsOnlyTheBlocksThatItDidNotTake) {
    AutoRefPtr<Handle> gate(new Handle(makeFile(0)));
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Blocker blocker;
    Sink sink;
    ASSERT_TRUE(m_engine->write(*gate.get(), gate.get()->fd(), 0, filled(1, 0), blocker));
    ASSERT_TRUE(waitFor([&] { return blocker.m_in.load(); }));
    s_calls = 0;
    FileCalls::setFault(fullAfterThree);
    for (unsigned i = 0; i < 10; ++i)
        ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), i * 100, filled(100, 1), sink));
    blocker.m_go = true;
    m_engine->stop();
    FileCalls::setFault(nullptr);
    EXPECT_EQ(10u, sink.m_writes);
    EXPECT_EQ(7u, sink.m_failures);
    EXPECT_EQ(ENOSPC, sink.m_writeError);
    EXPECT_EQ(300u, contentOf(handle.get()->fd()).size());
}

TEST_P(Writing, ReadOnlyDescriptorIsAFailureAndOthersGoOn) {
    AutoRefPtr<Handle> bad(new Handle(::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    AutoRefPtr<Handle> good(new Handle(makeFile(0)));
    Sink failing, working;
    for (unsigned i = 0; i < 20; ++i) {
        ASSERT_TRUE(m_engine->write(*bad.get(), bad.get()->fd(), i * 10, filled(10, 1), failing));
        ASSERT_TRUE(m_engine->write(*good.get(), good.get()->fd(), i * 10, filled(10, 2), working));
    }
    ASSERT_TRUE(waitFor([&] { return failing.m_writes == 20 && working.m_writes == 20; }));
    EXPECT_EQ(20u, failing.m_failures);
    EXPECT_EQ(EBADF, failing.m_writeError);
    EXPECT_EQ(0u, working.m_failures);
    EXPECT_EQ(200u, contentOf(good.get()->fd()).size());
}

TEST_P(Writing, RefusedWriteFreesTheBufferAndTellsNobody) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    EXPECT_FALSE(m_engine->write(*handle.get(), -1, 0, filled(10, 1), sink));
    EXPECT_FALSE(m_engine->write(*handle.get(), handle.get()->fd(), 0, nullptr, sink));
    EXPECT_TRUE(m_engine->idle());
    EXPECT_EQ(0u, sink.m_writes);
}

TEST_P(Writing, StopWritesWhatWasAccepted) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(0)));
    Sink sink;
    for (unsigned i = 0; i < 500; ++i)
        ASSERT_TRUE(m_engine->write(*handle.get(), handle.get()->fd(), i * 64, filled(64, 9), sink));
    m_engine->stop();
    EXPECT_EQ(500u, sink.m_writes);
    EXPECT_EQ(500u * 64, contentOf(handle.get()->fd()).size());
}

TEST_P(Writing, WritesFromManyThreadsAreToldOnceEach) {
    constexpr unsigned s_threads = 8, s_each = 2000;
    std::vector<AutoRefPtr<Handle>> handles;
    for (unsigned i = 0; i < s_threads; ++i)
        handles.emplace_back(new Handle(makeFile(0)));
    Sink sinks[s_threads];
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < s_threads; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < s_each; ++i) {
                EXPECT_TRUE(m_engine->write(*handles[t].get(), handles[t].get()->fd(), i * 40,
                                            filled(40, static_cast<unsigned char>(i)), sinks[t]));
                while (i % 100 == 0 && sinks[t].m_writes + 400 < i)
                    std::this_thread::yield();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (unsigned t = 0; t < s_threads; ++t) {
        ASSERT_TRUE(waitFor([&] { return sinks[t].m_writes == s_each; }));
        EXPECT_EQ(0u, sinks[t].m_failures);
        EXPECT_EQ(s_each * 40ull, sinks[t].m_bytes);
        const auto bytes = contentOf(handles[t].get()->fd());
        ASSERT_EQ(s_each * 40, bytes.size());
        for (unsigned i = 0; i < bytes.size(); i += 13)
            ASSERT_EQ(static_cast<unsigned char>(i / 40), bytes[i]);
    }
}

}  // namespace
