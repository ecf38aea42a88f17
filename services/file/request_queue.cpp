#include "services/file/request_queue.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace {
// The queue whose worker this thread is: such a thread looks at the queue by itself when it is through.
thread_local const RequestQueue* t_served = nullptr;
}  // namespace

RequestQueue::~RequestQueue() {
    while (m_blocks != nullptr) {
        Block* const next = m_blocks->m_next;
        delete m_blocks;
        m_blocks = next;
    }
}

RequestQueue::Outcome RequestQueue::submit(const AsyncRequest& request) {
    Seat* sleeper = nullptr;
    for (;;) {
        ShortScope scope(m_lock);
        if (!m_open) return Outcome::Closed;
        if (m_free != nullptr) {
            AsyncRequest* const own = m_free;
            m_free = own->m_next;
            *own = request;
            m_waiting.append(own);
            m_weight += weightOf(*own);
            ++m_counters.m_accepted;
            const bool worthAnother = t_served != this && m_weight >= m_limits.m_wakeBytes;
            if (m_awake == 0 || worthAnother) sleeper = pickIdle();
            break;
        }
        m_lock.unlock();
        const bool grown = grow();
        m_lock.lock();
        if (!grown) return Outcome::NoMemory;
    }
    call(sleeper);
    return Outcome::Accepted;
}

void RequestQueue::open() {
    const ShortScope scope(m_lock);
    m_open = true;
}

void RequestQueue::close() {
    for (bool more = true; more;) {
        Seat* sleeper = nullptr;
        {
            const ShortScope scope(m_lock);
            m_open = false;
            sleeper = pickIdle();
            more = m_idle != nullptr;
        }
        call(sleeper);
    }
}

void RequestQueue::enter() {
    t_served = this;
    const ShortScope scope(m_lock);
    ++m_awake;
}

void RequestQueue::leave() {
    t_served = nullptr;
    const ShortScope scope(m_lock);
    --m_awake;
}

RequestQueue::Batch RequestQueue::take(Seat& seat, AsyncRequestList& answered, bool mayWait) {
    for (;;) {
        Seat* another = nullptr;
        Batch batch;
        {
            const ShortScope scope(m_lock);
            recycle(answered);
            batch.m_requests = cut();
            if (batch.m_requests.empty()) {
                batch.m_ended = !m_open;
                if (batch.m_ended || !mayWait) return batch;
                park(seat, Seat::State::Asleep);
            } else if (!m_waiting.empty() && m_weight >= m_limits.m_wakeBytes) {
                another = pickIdle();
            }
        }
        call(another);
        if (!batch.m_requests.empty()) return batch;
        while (seat.m_word.load(std::memory_order_acquire) == 0)
            WordWait::sleepWhile(seat.m_word, 0);
    }
}

bool RequestQueue::enterRing(Seat& seat) {
    const ShortScope scope(m_lock);
    if (!m_waiting.empty()) return false;
    park(seat, Seat::State::InRing);
    return true;
}

void RequestQueue::leaveRing(Seat& seat) {
    const ShortScope scope(m_lock);
    if (seat.m_state != Seat::State::Awake) unpark(seat);
}

RequestQueue::Counters RequestQueue::getCounters() const {
    const ShortScope scope(m_lock);
    return m_counters;
}

// Memory is asked for outside the lock; two threads that do so at once give the queue two blocks.
bool RequestQueue::grow() {
    auto* block = new (std::nothrow) Block;
    if (block == nullptr) return false;
    const ShortScope scope(m_lock);
    block->m_next = m_blocks;
    m_blocks = block;
    ++m_counters.m_blocks;
    for (AsyncRequest& request : block->m_requests) {
        request.m_next = m_free;
        m_free = &request;
    }
    return true;
}

void RequestQueue::recycle(AsyncRequestList& answered) {
    while (AsyncRequest* const request = answered.pop()) {
        request->m_next = m_free;
        m_free = request;
        ++m_counters.m_completed;
    }
}

AsyncRequestList RequestQueue::cut() {
    AsyncRequest* const first = m_waiting.m_first;
    if (first == nullptr) return {};
    AsyncRequest* last = first;
    unsigned long long weight = weightOf(*first);
    // With others awake each takes its share, so that none of them ends up with all the rest.
    const unsigned long long most = std::min(m_limits.m_batchBytes, m_weight / std::max(m_awake, 1u));
    for (unsigned count = 1; count < m_limits.m_batchCount && last->m_next != nullptr; ++count) {
        if (weight + weightOf(*last->m_next) > most) break;
        last = last->m_next;
        weight += weightOf(*last);
    }
    m_waiting.m_first = last->m_next;
    last->m_next = nullptr;
    m_weight -= weight;
    ++m_counters.m_batches;
    return {first, last};
}

void RequestQueue::park(Seat& seat, Seat::State state) {
    seat.m_word.store(0, std::memory_order_relaxed);
    seat.m_state = state;
    // Workers that wait in a ring go behind the sleepers: calling them costs more.
    Seat** place = &m_idle;
    while (state == Seat::State::InRing && *place != nullptr)
        place = &(*place)->m_nextIdle;
    seat.m_nextIdle = *place;
    *place = &seat;
    --m_awake;
}

void RequestQueue::unpark(Seat& seat) {
    Seat** place = &m_idle;
    while (*place != nullptr && *place != &seat)
        place = &(*place)->m_nextIdle;
    if (*place != nullptr) *place = seat.m_nextIdle;
    seat.m_state = Seat::State::Awake;
    ++m_awake;
}

// Counts a sleeper as awake and answers it for `call`. One that waits in its ring is called here, under the lock:
// behind it the worker could end and its descriptor be somebody else's.
RequestQueue::Seat* RequestQueue::pickIdle() {
    Seat* const seat = m_idle;
    if (seat == nullptr) return nullptr;
    const bool inRing = seat->m_state == Seat::State::InRing;
    unpark(*seat);
    ++m_counters.m_wakes;
    if (!inRing) return seat;
    const std::uint64_t one = 1;
    while (::write(seat->m_eventFd, &one, sizeof one) < 0 && errno == EINTR)
        continue;
    return nullptr;
}

void RequestQueue::call(Seat* seat) {
    if (seat == nullptr) return;
    seat->m_word.store(1, std::memory_order_release);
    WordWait::wake(seat->m_word, 1);
}
