#include "services/file/uring_engine.h"

#ifdef MEDIACORE_HAVE_URING

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "services/buffer/obuf_pool.h"

bool UringWorker::isOffered() {
    io_uring ring{};
    if (!initRing(ring, s_entries)) return false;
    io_uring_probe* probe = io_uring_get_probe_ring(&ring);
    const bool reads = probe != nullptr && io_uring_opcode_supported(probe, IORING_OP_READ) != 0;
    io_uring_free_probe(probe);
    io_uring_queue_exit(&ring);
    return reads;
}

// The best form that the kernel knows: completions are worked off when this thread asks, not when they interrupt it.
bool UringWorker::initRing(io_uring& ring, unsigned completions) {
    constexpr unsigned s_forms[] = {IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN | IORING_SETUP_SUBMIT_ALL,
                                    IORING_SETUP_COOP_TASKRUN | IORING_SETUP_SUBMIT_ALL, 0};
    for (const unsigned form : s_forms) {
        io_uring_params params{};
        params.flags = form | IORING_SETUP_CQSIZE;
        params.cq_entries = completions;
        if (io_uring_queue_init_params(s_entries, &ring, &params) == 0) return true;
    }
    return false;
}

void UringWorker::serve() {
    m_hasRing = openRing();
    if (m_hasRing) {
        serveRing();
        closeRing();
    } else {
        PoolWorker::serve();
    }
}

bool UringWorker::openRing() {
    m_pushedCount = 0;
    m_inFlight = 0;
    m_watching = false;
    m_broken = false;
    m_seat.m_eventFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_seat.m_eventFd < 0) return false;
    if (initRing(m_ring, 2 * s_mostInFlight)) {
        // Saves the look-up of the ring's descriptor in each call; without it all works as well.
        static_cast<void>(io_uring_register_ring_fd(&m_ring));
        return true;
    }
    ::close(m_seat.m_eventFd);
    m_seat.m_eventFd = -1;
    return false;
}

void UringWorker::closeRing() {
    io_uring_queue_exit(&m_ring);
    ::close(m_seat.m_eventFd);
    m_seat.m_eventFd = -1;
}

void UringWorker::serveRing() {
    for (;;) {
        RequestQueue::Batch batch;
        if (m_inFlight < s_mostInFlight) batch = m_queue.take(m_seat, m_answered, m_inFlight == 0);
        if (batch.m_ended && m_inFlight == 0) return;
        m_batch = batch.m_requests;
        if (m_batch.empty() && m_inFlight > 0) {
            waitInRing();
        } else {
            startBatch();
        }
        reap();
    }
}

void UringWorker::serveMeanwhile() {
    if (!m_hasRing) return PoolWorker::serveMeanwhile();
    startBatch();
    if (m_inFlight < s_mostInFlight) m_batch = m_queue.take(m_seat, m_answered, false).m_requests;
    startBatch();
    static_cast<void>(io_uring_get_events(&m_ring));
    reap();
}

void UringWorker::startBatch() {
    while (AsyncRequest* const request = m_batch.pop()) {
        if (!prepare(*request) || readQuickly(*request)) {
            finish(*request);
        } else if (!push(request)) {
            readAll(*request);
            finish(*request);
        }
    }
    submit();
}

// Puts what is left of a request into the ring.
bool UringWorker::push(AsyncRequest* request) {
    io_uring_sqe* const entry = nextEntry(request);
    if (entry == nullptr) return false;
    io_uring_prep_read(entry, request->m_fd, obufFirstByte(request->m_obuf) + request->m_done,
                       request->m_size - request->m_done, request->m_offset + request->m_done);
    io_uring_sqe_set_data(entry, request);
    ++m_inFlight;
    return true;
}

io_uring_sqe* UringWorker::nextEntry(AsyncRequest* request) {
    if (m_pushedCount == s_entries) submit();
    if (m_broken || m_pushedCount == s_entries) return nullptr;
    io_uring_sqe* const entry = io_uring_get_sqe(&m_ring);
    if (entry != nullptr) m_pushed[m_pushedCount++] = request;
    return entry;
}

// Gives the kernel what was pushed, and lets it work off what has come meanwhile.
void UringWorker::submit() {
    if (m_pushedCount == 0 || m_broken) return;
    const bool others = m_inFlight > m_pushedCount;
    noteSubmitted(others ? io_uring_submit_and_get_events(&m_ring) : io_uring_submit(&m_ring));
}

void UringWorker::noteSubmitted(int result) {
    if (result >= 0) {
        const unsigned taken = std::min(static_cast<unsigned>(result), m_pushedCount);
        std::copy(m_pushed + taken, m_pushed + m_pushedCount, m_pushed);
        m_pushedCount -= taken;
    } else if (result != -EINTR && result != -EAGAIN && result != -EBUSY && result != -ENOMEM) {
        readRestPlainly();
    }
}

// The ring refuses for good: what it never gave to the kernel is read here, and so is everything from now on.
void UringWorker::readRestPlainly() {
    m_broken = true;
    for (unsigned i = 0; i < m_pushedCount; ++i) {
        if (m_pushed[i] == nullptr) continue;
        readAll(*m_pushed[i]);
        m_plain.append(m_pushed[i]);
    }
    m_pushedCount = 0;
}

// Sleeps until a completion or a call comes. With the most in flight it doesn't offer itself for calls.
void UringWorker::waitInRing() {
    const bool callable = m_inFlight < s_mostInFlight && !m_broken;
    if (callable && !m_watching) {
        if (io_uring_sqe* const entry = nextEntry(nullptr); entry != nullptr) {
            io_uring_prep_poll_add(entry, m_seat.m_eventFd, POLLIN);
            io_uring_sqe_set_data(entry, nullptr);
            m_watching = true;
        }
    }
    if (m_broken) {
        // What was read plainly still lies in the ring and must not go to the kernel.
        io_uring_cqe* completion = nullptr;
        static_cast<void>(io_uring_wait_cqe(&m_ring, &completion));
    } else if (!callable) {
        noteSubmitted(io_uring_submit_and_wait(&m_ring, 1));
    } else if (m_queue.enterRing(m_seat)) {
        noteSubmitted(io_uring_submit_and_wait(&m_ring, 1));
        m_queue.leaveRing(m_seat);
    }
}

// Notes what the ring has completed. No hook is called here.
void UringWorker::collect() {
    for (;;) {
        io_uring_cqe* completions[s_entries];
        const unsigned count = io_uring_peek_batch_cqe(&m_ring, completions, s_entries);
        bool called = false;
        for (unsigned i = 0; i < count; ++i) {
            auto* const request = static_cast<AsyncRequest*>(io_uring_cqe_get_data(completions[i]));
            called = called || request == nullptr;
            if (request == nullptr) continue;
            request->m_result = completions[i]->res;
            m_ready.append(request);
        }
        io_uring_cq_advance(&m_ring, count);
        if (called) clearCall();
        if (count < s_entries) return;
    }
}

void UringWorker::reap() {
    collect();
    while (AsyncRequest* const request = m_ready.pop())
        settle(*request);
    while (AsyncRequest* const request = m_plain.pop()) {
        --m_inFlight;
        finish(*request);
    }
}

void UringWorker::settle(AsyncRequest& request) {
    --m_inFlight;
    const int result = request.m_result;
    if (result > 0) request.m_done += static_cast<unsigned>(result);
    const bool more = result == -EINTR || (result > 0 && request.m_done < request.m_size);
    if (more && push(&request)) return;
    // A file that can't say when it is ready is read with a call that waits.
    if (more || result == -EAGAIN) {
        readAll(request);
    } else if (result <= 0) {
        request.m_error = result < 0 ? -result : ENODATA;
    }
    finish(request);
}

void UringWorker::clearCall() {
    m_watching = false;
    std::uint64_t calls;
    while (::read(m_seat.m_eventFd, &calls, sizeof calls) < 0 && errno == EINTR)
        continue;
}

#endif
