#include "services/file/request_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr RequestQueue::Limits s_limits{4, 64 * 1024, 64 * 1024};

AsyncRequest requestOf(unsigned size, unsigned long long offset = 0) {
    AsyncRequest request;
    request.m_size = size;
    request.m_offset = offset;
    return request;
}

// Lets the batch go back as answered, and answers how many there were.
unsigned addTo(AsyncRequestList& answered, RequestQueue::Batch batch) {
    unsigned count = 0;
    while (AsyncRequest* const request = batch.m_requests.pop()) {
        answered.append(request);
        ++count;
    }
    return count;
}

TEST(RequestQueue, RefusesWhatComesBeforeItsOpeningAndAfterItsClosing) {
    RequestQueue queue(s_limits);
    EXPECT_EQ(RequestQueue::Outcome::Closed, queue.submit(requestOf(1)));
    queue.open();
    EXPECT_EQ(RequestQueue::Outcome::Accepted, queue.submit(requestOf(1)));
    queue.close();
    EXPECT_EQ(RequestQueue::Outcome::Closed, queue.submit(requestOf(1)));
}

TEST(RequestQueue, GivesWhatWasAcceptedInItsOrderAlsoAfterClosing) {
    RequestQueue queue(s_limits);
    RequestQueue::Seat seat;
    queue.open();
    for (unsigned i = 0; i < 10; ++i)
        ASSERT_EQ(RequestQueue::Outcome::Accepted, queue.submit(requestOf(1, i)));
    queue.close();
    queue.enter();
    AsyncRequestList answered;
    unsigned long long expected = 0;
    for (RequestQueue::Batch batch = queue.take(seat, answered, true); !batch.m_ended;
         batch = queue.take(seat, answered, true)) {
        while (AsyncRequest* const request = batch.m_requests.pop()) {
            EXPECT_EQ(expected++, request->m_offset);
            answered.append(request);
        }
    }
    queue.leave();
    EXPECT_EQ(10u, expected);
    EXPECT_EQ(10u, queue.getCounters().m_completed);
}

TEST(RequestQueue, BatchIsLimitedByNumberAndByWeightButNeverEmpty) {
    RequestQueue queue(s_limits);
    RequestQueue::Seat seat;
    queue.open();
    queue.enter();
    AsyncRequestList answered;
    for (unsigned i = 0; i < 6; ++i)
        queue.submit(requestOf(10));
    EXPECT_EQ(4u, addTo(answered, queue.take(seat, answered, false)));
    EXPECT_EQ(2u, addTo(answered, queue.take(seat, answered, false)));
    queue.submit(requestOf(100 << 20));
    queue.submit(requestOf(30000));
    queue.submit(requestOf(10000));
    queue.submit(requestOf(10000));
    EXPECT_EQ(1u, addTo(answered, queue.take(seat, answered, false)));
    EXPECT_EQ(2u, addTo(answered, queue.take(seat, answered, false)));
    EXPECT_EQ(1u, addTo(answered, queue.take(seat, answered, false)));

    queue.leave();
}

TEST(RequestQueue, WorkersThatAreAwakeShareWhatWaits) {
    RequestQueue queue({100, ~0ull, ~0ull});
    RequestQueue::Seat seat;
    queue.open();
    queue.enter();
    queue.enter();
    for (unsigned i = 0; i < 10; ++i)
        queue.submit(requestOf(1));
    AsyncRequestList answered;
    EXPECT_EQ(5u, addTo(answered, queue.take(seat, answered, false)));
    queue.leave();
    EXPECT_EQ(5u, addTo(answered, queue.take(seat, answered, false)));
    queue.take(seat, answered, false);
    queue.leave();
}

TEST(RequestQueue, MemoryForRequestsIsTakenOnceAndUsedAgain) {
    RequestQueue queue(s_limits);
    RequestQueue::Seat seat;
    queue.open();
    queue.enter();
    AsyncRequestList answered;
    for (unsigned i = 0; i < 10000; ++i) {
        ASSERT_EQ(RequestQueue::Outcome::Accepted, queue.submit(requestOf(1)));
        addTo(answered, queue.take(seat, answered, false));
    }
    queue.take(seat, answered, false);
    EXPECT_EQ(1u, queue.getCounters().m_blocks);
    EXPECT_EQ(10000u, queue.getCounters().m_completed);
    queue.leave();
}

TEST(RequestQueue, WakesAreCountedOnlyForSleepersAndABusyWorkerNeedsNone) {
    RequestQueue queue(s_limits);
    RequestQueue::Seat seat;
    queue.open();
    queue.enter();
    for (unsigned i = 0; i < 3; ++i)
        queue.submit(requestOf(1));
    EXPECT_EQ(0u, queue.getCounters().m_wakes);
    AsyncRequestList answered;
    addTo(answered, queue.take(seat, answered, false));
    queue.take(seat, answered, false);
    queue.leave();

    std::atomic<bool> got{false};
    std::thread sleeper([&] {
        queue.enter();
        RequestQueue::Seat own;
        AsyncRequestList mine;
        for (RequestQueue::Batch batch = queue.take(own, mine, true); !batch.m_ended;
             batch = queue.take(own, mine, true)) {
            addTo(mine, batch);
            got = true;
        }
        queue.leave();
    });
    queue.submit(requestOf(1));
    while (!got)
        std::this_thread::yield();
    queue.close();
    sleeper.join();
    EXPECT_LE(queue.getCounters().m_wakes, 2u);
    EXPECT_EQ(4u, queue.getCounters().m_completed);
}

TEST(RequestQueue, ManyCallersAndWorkersLoseNoRequest) {
    RequestQueue queue({8, 256 * 1024, 64 * 1024});
    queue.open();
    constexpr unsigned s_threads = 4, s_each = 20000;
    std::atomic<unsigned long long> sum{0};
    std::vector<std::thread> workers, callers;
    for (unsigned w = 0; w < 3; ++w) {
        workers.emplace_back([&] {
            queue.enter();
            RequestQueue::Seat seat;
            AsyncRequestList answered;
            for (RequestQueue::Batch batch = queue.take(seat, answered, true); !batch.m_ended;
                 batch = queue.take(seat, answered, true)) {
                for (const AsyncRequest* request = batch.m_requests.m_first; request != nullptr;
                     request = request->m_next)
                    sum += request->m_offset;
                addTo(answered, batch);
            }
            queue.leave();
        });
    }
    for (unsigned c = 0; c < s_threads; ++c) {
        callers.emplace_back([&] {
            for (unsigned i = 1; i <= s_each; ++i)
                ASSERT_EQ(RequestQueue::Outcome::Accepted, queue.submit(requestOf(i % 20000, i)));
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    queue.close();
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(s_threads * (s_each * (s_each + 1ull) / 2), sum);
    EXPECT_EQ(s_threads * s_each, queue.getCounters().m_completed);
}

}  // namespace
