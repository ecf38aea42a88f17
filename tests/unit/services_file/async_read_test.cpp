#include <sys/resource.h>

#include <cerrno>

#include "services/file/file_calls.h"
#include "support/auto_ptr.h"
#include "tests/unit/services_file/async_kit.h"

namespace {

using namespace AsyncKit;
using Reading = AsyncKit::Engine;

// Faults below the engine, by turns.
std::atomic<unsigned> s_calls{0};
int failEveryThird(FileCall call, const char*, int, std::size_t&) {
    return call == FileCall::Read && s_calls++ % 3 == 0 ? EIO : 0;
}
int interruptAndShorten(FileCall call, const char*, int, std::size_t& size) {
    if (call != FileCall::Read) return 0;
    if (size > 1000) size = 1000;
    return s_calls++ % 2 == 0 ? EINTR : 0;
}

// Takes the fault away again whatever becomes of the test.
struct Fault {
    explicit Fault(FileCalls::FaultHook hook) { FileCalls::setFault(hook); }
    ~Fault() { FileCalls::setFault(nullptr); }
};

INSTANTIATE_TEST_SUITE_P(Async, Reading, testing::Values(AsyncEngine::Kind::Uring, AsyncEngine::Kind::Pool), kindName);

TEST_P(Reading, DeliversTheBytesOfTheRangeWithTheTagOnAnEngineThread) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(3 << 20)));
    for (const unsigned size : {1u, 4096u, 4097u, 65536u, 2u << 20}) {
        Answers answers(2);
        bool right = false;
        answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
            right = notify.m_status == 0 && notify.m_tag == Answers::tag(1) && holdsBytesOf(notify.m_obuf, 12345, size);
        };
        ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 12345, size, 1)));
        ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
        EXPECT_TRUE(right);
        EXPECT_FALSE(answers.offEngine());
    }
    EXPECT_FALSE(AsyncEngine::onEngineThread());
}

TEST_P(Reading, SizeZeroIsAnsweredWithAnEmptyBuffer) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(100)));
    Answers answers;
    unsigned size = 1;
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) { size = obufSize(notify.m_obuf); };
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 5000, 0)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(0u, answers.failures());
    EXPECT_EQ(0u, size);
}

TEST_P(Reading, RangeThatMeetsTheEndOfTheFileFailsWhole) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(10000)));
    Answers answers(3);
    Sink sink;
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 9000, 1001, 0), &sink));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(1u, answers.failures());
    EXPECT_EQ(ENODATA, answers.lastStatus());
    EXPECT_EQ(ENODATA, sink.m_readError);
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 1ull << 40, 1, 1), &sink));
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 9000, 1000, 2), &sink));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 3; }));
    EXPECT_EQ(2u, answers.failures());
    EXPECT_TRUE(answers.eachOnce());
    EXPECT_EQ(3u, sink.m_reads);
}

TEST_P(Reading, ErrorOfTheDescriptorIsTheStatus) {
    AutoRefPtr<Handle> folder(new Handle(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    Answers answers(2);
    ASSERT_TRUE(m_engine->read(*folder.get(), folder.get()->fd(), request(answers, 0, 100, 0)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(EISDIR, answers.lastStatus());
    // A number that no descriptor of this process has.
    ASSERT_TRUE(m_engine->read(*folder.get(), 1000000, request(answers, 0, 100, 1)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 2; }));
    EXPECT_EQ(EBADF, answers.lastStatus());
}

TEST_P(Reading, NoMemoryForTheBufferIsToldAsSuchAndPasses) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    obufTrim();
    obufSetMemoryLimit(8192);
    Answers answers(2);
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 1 << 20, 0)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(ENOMEM, answers.lastStatus());
    obufSetMemoryLimit(0);
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 1 << 20, 1)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 2; }));
    EXPECT_EQ(1u, answers.failures());
}

TEST_P(Reading, RefusedRequestHoldsNothingAndGivesNoAnswer) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(100)));
    Answers answers;
    Sink sink;
    EXPECT_FALSE(m_engine->read(*handle.get(), -1, request(answers, 0, 10), &sink));
    EXPECT_TRUE(m_engine->idle());
    EXPECT_EQ(0u, m_engine->getStats().m_accepted);
    EXPECT_EQ(2, handle.get()->preserve());
    handle.get()->release();
    EXPECT_EQ(0u, answers.total());
    EXPECT_EQ(0u, sink.m_reads);
}

TEST_P(Reading, DescriptorStaysOpenAfterTheCallerHasLetGoOfTheHandle) {
    Answers answers(200);
    std::atomic<unsigned> wrong{0};
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
        const auto number = reinterpret_cast<unsigned long>(notify.m_tag);
        if (notify.m_obuf == nullptr || !holdsBytesOf(notify.m_obuf, number * 1000, 30000)) ++wrong;
    };
    for (unsigned i = 0; i < 200; ++i) {
        AutoRefPtr<Handle> handle(new Handle(makeFile(230000)));
        ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 1000, 30000, i)));
    }
    ASSERT_TRUE(waitFor([&] { return answers.total() == 200; }));
    EXPECT_EQ(0u, wrong);
    EXPECT_TRUE(answers.eachOnce());
}

TEST_P(Reading, HookMaySubmitAgainFromInside) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    constexpr unsigned s_links = 5000;
    Answers answers(s_links);
    std::atomic<unsigned> next{8};
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify&) {
        const unsigned number = next++;
        if (number < s_links) {
            EXPECT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, number * 16, 4096, number)));
        }
    };
    for (unsigned i = 0; i < 8; ++i)
        ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 4096, i)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == s_links; }));
    EXPECT_TRUE(answers.eachOnce());
    EXPECT_EQ(0u, answers.failures());
}

TEST_P(Reading, HookMayDropTheLastReferenceOfTheCaller) {
    auto* handle = new Handle(makeFile(4096));
    handle->preserve();
    const int liveBefore = Handle::s_live;
    Answers answers;
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify&) { handle->release(); };
    ASSERT_TRUE(m_engine->read(*handle, handle->fd(), request(answers, 0, 4096)));
    ASSERT_TRUE(waitFor([&] { return Handle::s_live == liveBefore - 1; }));
    EXPECT_EQ(1u, answers.total());
}

TEST_P(Reading, HookMayWaitForOtherRequestsByServingThem) {
    constexpr unsigned s_size = 1 << 20, s_count = 200;
    AutoRefPtr<Handle> handle(new Handle(makeFile(s_size)));
    ASSERT_EQ(0, fdatasync(handle.get()->fd()));
    for (const bool cached : {true, false}) {
        if (!cached) posix_fadvise(handle.get()->fd(), 0, 0, POSIX_FADV_DONTNEED);
        Answers answers(s_count);
        answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
            // Two hooks, on two workers or one inside the other, wait until all the others have been called.
            if (reinterpret_cast<unsigned long>(notify.m_tag) % 100 != 3) return;
            EXPECT_TRUE(waitFor([&] {
                AsyncEngine::serveMeanwhile();
                return answers.total() >= s_count - 2;
            }));
        };
        for (unsigned i = 0; i < s_count; ++i) {
            ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 4096, 4096, i)));
        }
        ASSERT_TRUE(waitFor([&] { return answers.total() == s_count; }));
        EXPECT_EQ(0u, answers.failures());
        EXPECT_TRUE(answers.eachOnce());
    }
    AsyncEngine::serveMeanwhile();
}

TEST_P(Reading, SinkIsToldBeforeTheHook) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(4096)));
    Answers answers;
    Sink sink;
    unsigned seen = 0;
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify&) { seen = sink.m_reads; };
    ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 4096), &sink));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(1u, seen);
    EXPECT_EQ(0, sink.m_readError);
}

TEST_P(Reading, HundredThousandRequestsFromEightThreadsAreAnsweredOnceEach) {
    constexpr unsigned s_threads = 8, s_each = 12500;
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    Answers answers(s_threads * s_each);
    std::atomic<unsigned> wrong{0}, refused{0};
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
        const auto number = reinterpret_cast<unsigned long>(notify.m_tag);
        const unsigned size = 64 + number % 500;
        const unsigned long long offset = number * 97 % ((1 << 20) - 1000);
        if (notify.m_obuf == nullptr || !holdsBytesOf(notify.m_obuf, offset, size)) ++wrong;
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < s_threads; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < s_each; ++i) {
                const unsigned number = t * s_each + i;
                // A few hundred at once, as clients do; it also keeps the buffers of a test small.
                while (number % 64 == 0 && m_engine->getStats().m_accepted > answers.total() + 2000)
                    std::this_thread::yield();
                if (!m_engine->read(*handle.get(), handle.get()->fd(),
                                    request(answers, number * 97ull % ((1 << 20) - 1000), 64 + number % 500, number))) {
                    ++refused;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(waitFor([&] { return answers.total() == s_threads * s_each; }));
    EXPECT_EQ(0u, wrong);
    EXPECT_EQ(0u, refused);
    EXPECT_TRUE(answers.eachOnce());
    ASSERT_TRUE(waitFor([&] { return m_engine->idle(); }));
    EXPECT_EQ(m_engine->getStats().m_accepted, m_engine->getStats().m_completed);
}

TEST_P(Reading, BytesThatAreNotInTheCacheComeToo) {
    constexpr unsigned s_size = 8 << 20, s_block = 32768, s_count = s_size / s_block;
    AutoRefPtr<Handle> handle(new Handle(makeFile(s_size)));
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, fdatasync(handle.get()->fd()));
        ASSERT_EQ(0, posix_fadvise(handle.get()->fd(), 0, 0, POSIX_FADV_DONTNEED));
        posix_fadvise(handle.get()->fd(), 0, 0, POSIX_FADV_RANDOM);
        Answers answers(s_count);
        std::atomic<unsigned> wrong{0};
        answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
            const auto number = reinterpret_cast<unsigned long>(notify.m_tag);
            if (notify.m_obuf == nullptr || !holdsBytesOf(notify.m_obuf, number * s_block, s_block)) ++wrong;
        };
        for (unsigned i = 0; i < s_count; ++i) {
            const unsigned number = i * 37 % s_count;
            ASSERT_TRUE(
                m_engine->read(*handle.get(), handle.get()->fd(), request(answers, number * s_block, s_block, number)));
        }
        ASSERT_TRUE(waitFor([&] { return answers.total() == s_count; }));
        EXPECT_EQ(0u, wrong);
        EXPECT_TRUE(answers.eachOnce());
    }
}

TEST_P(Reading, WithoutDescriptorsForItsOwnUseTheEngineReadsAllTheSame) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const int lowest = ::dup(handle.get()->fd());
    ::close(lowest);
    const rlimit none{static_cast<rlim_t>(lowest), before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    Answers answers(300);
    for (unsigned i = 0; i < 300; ++i)
        EXPECT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 1000, 20000, i)));
    EXPECT_TRUE(waitFor([&] { return answers.total() == 300; }));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ(0u, answers.failures());
    EXPECT_TRUE(answers.eachOnce());
}

TEST_P(Reading, DeviceErrorIsToldAndTheNextReadIsNotTouchedByIt) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    Answers answers(90);
    const Fault fault(failEveryThird);
    for (unsigned i = 0; i < 90; ++i)
        ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 4096, 4096, i)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 90; }));
    EXPECT_EQ(30u, answers.failures());
    EXPECT_EQ(EIO, answers.lastStatus());
    EXPECT_TRUE(answers.eachOnce());
    m_engine->stop();
}

TEST_P(Reading, InterruptionsAndShortCountsAreMadeUpFor) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    Answers answers(50);
    std::atomic<unsigned> wrong{0};
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify& notify) {
        const auto number = reinterpret_cast<unsigned long>(notify.m_tag);
        if (notify.m_obuf == nullptr || !holdsBytesOf(notify.m_obuf, number * 777, 10001)) ++wrong;
    };
    const Fault fault(interruptAndShorten);
    for (unsigned i = 0; i < 50; ++i)
        ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 777, 10001, i)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 50; }));
    EXPECT_EQ(0u, wrong);
    EXPECT_TRUE(answers.eachOnce());
    m_engine->stop();
}

TEST_P(Reading, SteadyLoadTakesNoMemoryForRequestsOrBuffers) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    const auto burst = [&] {
        Answers answers(64);
        for (unsigned i = 0; i < 64; ++i)
            ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 4096, 4096, i)));
        ASSERT_TRUE(waitFor([&] { return answers.total() == 64; }));
        ASSERT_TRUE(waitFor([&] { return m_engine->idle(); }));
    };
    burst();
    const unsigned long long blocks = m_engine->getStats().m_nodeBlocks;
    for (int i = 0; i < 50; ++i)
        burst();
    EXPECT_EQ(blocks, m_engine->getStats().m_nodeBlocks);
    EXPECT_EQ(1u, blocks);
}

TEST_P(Reading, StopAnswersWhatWasAcceptedAndALaterRequestStartsAgain) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    m_engine->stop();
    for (int round = 0; round < 20; ++round) {
        Answers answers(100);
        for (unsigned i = 0; i < 100; ++i)
            ASSERT_TRUE(m_engine->read(*handle.get(), handle.get()->fd(), request(answers, i * 4096, 4096, i)));
        m_engine->stop();
        EXPECT_EQ(100u, answers.total());
        EXPECT_TRUE(answers.eachOnce());
        EXPECT_TRUE(m_engine->idle());
    }
}

TEST_P(Reading, ChainThatSubmitsForEverEndsWithStop) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    Answers answers;
    std::atomic<unsigned> accepted{0};
    std::atomic<bool> refused{false};
    const auto submit = [&] {
        if (m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 4096))) {
            ++accepted;
        } else {
            refused = true;
        }
    };
    answers.m_onAnswer = [&](const BasicIOTypes::ReadNotify&) { submit(); };
    submit();
    ASSERT_TRUE(waitFor([&] { return answers.total() > 100; }));
    m_engine->stop();
    EXPECT_TRUE(refused);
    EXPECT_EQ(accepted, answers.total());
}

TEST_P(Reading, RequestsAndStopsFromManyThreadsLoseNothing) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(1 << 20)));
    constexpr unsigned s_threads = 4, s_each = 500;
    Answers answers(s_threads * s_each);
    std::atomic<unsigned> accepted{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < s_threads; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < s_each; ++i) {
                while (!m_engine->read(*handle.get(), handle.get()->fd(), request(answers, 0, 512, t * s_each + i)))
                    std::this_thread::yield();
                ++accepted;
            }
        });
    }
    std::thread stopper([&] {
        while (!done)
            m_engine->stop();
    });
    for (std::thread& thread : threads)
        thread.join();
    done = true;
    stopper.join();
    ASSERT_TRUE(waitFor([&] { return answers.total() == accepted; }));
    EXPECT_EQ(s_threads * s_each, accepted);
    EXPECT_TRUE(answers.eachOnce());
}

TEST(AsyncEngine, TheEngineOfTheProcessIsOneAndReads) {
    AutoRefPtr<Handle> handle(new Handle(makeFile(4096)));
    EXPECT_EQ(&AsyncEngine::get(), &AsyncEngine::get());
    Answers answers;
    ASSERT_TRUE(AsyncEngine::get().read(*handle.get(), handle.get()->fd(), request(answers, 0, 4096)));
    ASSERT_TRUE(waitFor([&] { return answers.total() == 1; }));
    EXPECT_EQ(0u, answers.failures());
    ASSERT_TRUE(waitFor([&] { return AsyncEngine::get().idle(); }));
}

}  // namespace
