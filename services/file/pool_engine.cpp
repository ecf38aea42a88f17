#include "services/file/pool_engine.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "services/buffer/obuf_pool.h"
#include "services/file/async_engine.h"
#include "services/file/basic_file_io.h"
#include "services/file/file_calls.h"
#include "services/file/file_ops.h"

namespace {

constexpr unsigned s_priority = 60;
constexpr unsigned s_stackSize = 256 * 1024;  // hooks run on it
constexpr unsigned s_mostPieces = 256;        // of one write call, below the system's limit of 1024

thread_local AsyncWorker* t_worker = nullptr;

// Reads on from where the request stands. Without `flags` it waits for the device; an interrupted call is taken up
// again.
ssize_t readOn(const AsyncRequest& request, int flags) {
    unsigned char* const memory = obufFirstByte(request.m_obuf) + request.m_done;
    const auto offset = static_cast<off_t>(request.m_offset + request.m_done);
    std::size_t size = request.m_size - request.m_done;
    for (;;) {
        if (FileCalls::fails(FileCall::Read, nullptr, request.m_fd, size)) {
            if (errno != EINTR) return -1;
            continue;
        }
        const iovec rest{memory, size};
        const ssize_t count =
            flags == 0 ? ::pread(request.m_fd, memory, size, offset) : ::preadv2(request.m_fd, &rest, 1, offset, flags);
        if (count >= 0 || errno != EINTR) return count;
    }
}

ssize_t writeOnce(int fd, const iovec* pieces, unsigned count, off_t offset) {
    std::size_t total = 0;
    for (unsigned i = 0; i < count; ++i)
        total += pieces[i].iov_len;
    std::size_t size = total;
    if (FileCalls::fails(FileCall::Write, nullptr, fd, size)) return -1;
    // A test that wants a short count gets one.
    if (size < total) return ::pwrite(fd, pieces->iov_base, std::min(size, pieces->iov_len), offset);
    return ::pwritev(fd, pieces, static_cast<int>(count), offset);
}

void noteEnd(AsyncRequest& request, ssize_t result) { request.m_error = result < 0 ? errno : ENODATA; }

}  // namespace

AsyncWorker::AsyncWorker(RequestQueue& queue, const char* name)
    : m_queue(queue), m_thread(*this, &AsyncWorker::run, name, s_priority, s_stackSize) {}

AsyncWorker::~AsyncWorker() = default;

AsyncWorker* AsyncWorker::current() { return t_worker; }

void AsyncWorker::run() {
    t_worker = this;
    m_queue.enter();
    serve();
    m_queue.leave();
    t_worker = nullptr;
}

bool PoolWorker::prepare(AsyncRequest& request) {
    request.m_obuf = obufAllocate(request.m_allocId, request.m_size);
    if (request.m_obuf == nullptr) request.m_error = ENOMEM;
    return request.m_obuf != nullptr;
}

void PoolWorker::readAll(AsyncRequest& request) {
    while (request.m_done < request.m_size) {
        const ssize_t count = readOn(request, 0);
        if (count <= 0) return noteEnd(request, count);
        request.m_done += static_cast<unsigned>(count);
    }
}

void PoolWorker::answer(AsyncRequest& request) {
    if (request.m_error != 0) {
        obufFree(request.m_obuf);
        request.m_obuf = nullptr;
    }
    BasicFileIO* const handle = request.m_handle;
    FileOps::end(FileOps::Kind::Read, request.m_begun, handle->getPath(), request.m_offset, request.m_size,
                 request.m_error);
    if (request.m_sink != nullptr) request.m_sink->readDone(request.m_error);
    request.m_hook->callCb(request.m_error == 0 ? BasicIOTypes::ReadNotify(request.m_obuf, request.m_tag)
                                                : BasicIOTypes::ReadNotify(request.m_tag, request.m_error));
    handle->release();
}

void PoolWorker::serve() {
    for (;;) {
        const RequestQueue::Batch batch = m_queue.take(m_seat, m_answered, true);
        if (batch.m_ended) return;
        m_batch = batch.m_requests;
        serveBatch();
    }
}

void PoolWorker::serveMeanwhile() {
    serveBatch();
    m_batch = m_queue.take(m_seat, m_answered, false).m_requests;
    serveBatch();
}

void PoolWorker::serveBatch() {
    while (AsyncRequest* const request = m_batch.pop()) {
        const bool ready = request->m_obuf != nullptr || prepare(*request);
        const bool waits = ready && (m_slow == nullptr || !readQuickly(*request));
        if (waits && m_slow != nullptr && passOn(*request)) {
            m_answered.append(request);
            continue;
        }
        if (waits) readAll(*request);
        finish(*request);
    }
}

void PoolWorker::finish(AsyncRequest& request) {
    answer(request);
    m_answered.append(&request);
}

bool PoolWorker::readQuickly(AsyncRequest& request) {
    while (request.m_done < request.m_size) {
        const ssize_t count = readOn(request, RWF_NOWAIT);
        // Some file systems and older kernels don't know such reads, and all say "not now" by EAGAIN.
        if (count < 0 && (errno == EAGAIN || errno == EOPNOTSUPP || errno == ENOSYS)) return false;
        if (count <= 0) {
            noteEnd(request, count);
            return true;
        }
        request.m_done += static_cast<unsigned>(count);
    }
    return true;
}

// Hands a request with its memory and its handle over to those who may wait. Answers false if it can't be.
bool PoolWorker::passOn(AsyncRequest& request) { return m_slow->submit(request) == RequestQueue::Outcome::Accepted; }

void WriteWorker::serve() {
    for (;;) {
        const RequestQueue::Batch batch = m_queue.take(m_seat, m_answered, true);
        if (batch.m_ended) return;
        m_batch = batch.m_requests;
        while (!m_batch.empty()) {
            AsyncRequestList run = takeRun(m_batch);
            writeRun(run);
        }
    }
}

// Takes the first block and those of its handle that continue it out of the list. A block of the handle that doesn't
// continue ends the run, so that none overtakes it.
AsyncRequestList WriteWorker::takeRun(AsyncRequestList& list) {
    AsyncRequestList run, others;
    const BasicFileIO* const handle = list.m_first->m_handle;
    unsigned long long end = list.m_first->m_offset;
    unsigned pieces = 0;
    bool ended = false;
    for (AsyncRequest *request = list.m_first, *next; request != nullptr; request = next) {
        next = request->m_next;
        if (request->m_handle == handle && !ended) {
            pieces += obufSegmentCount(request->m_obuf);
            const bool fits = run.empty() || (request->m_offset == end && pieces <= s_mostPieces &&
                                              request->m_fd == run.m_first->m_fd);
            if (fits) {
                end = request->m_offset + request->m_size;
                run.append(request);
                continue;
            }
            ended = true;
        }
        others.append(request);
    }
    list = others;
    return run;
}

void WriteWorker::writeRun(AsyncRequestList& run) {
    iovec pieces[s_mostPieces];
    unsigned long long done = 0;
    const AsyncRequest& first = *run.m_first;
    const unsigned long long start = first.m_offset;
    int error = 0;
    for (const AsyncRequest* request = &first; request != nullptr && error == 0; request = request->m_next)
        error = request->m_sink->prepareWrite(request->m_fd, request->m_offset + request->m_size);
    if (error == 0) {
        // A block of more pieces than one call takes is a run by itself.
        error = obufSegmentCount(first.m_obuf) > s_mostPieces
                    ? writeSingle(first, done)
                    : writePieces(first.m_fd, start, pieces, gather(run, pieces), done);
    }
    while (AsyncRequest* const request = run.pop()) {
        request->m_error = request->m_offset - start + request->m_size <= done ? 0 : error;
        answer(*request);
        m_answered.append(request);
    }
}

unsigned WriteWorker::gather(const AsyncRequestList& run, iovec* pieces) {
    unsigned count = 0;
    for (const AsyncRequest* request = run.m_first; request != nullptr; request = request->m_next) {
        count += static_cast<unsigned>(
            obufNTranslateHost(request->m_obuf, pieces + count, static_cast<int>(s_mostPieces - count)));
    }
    return count;
}

int WriteWorker::writeSingle(const AsyncRequest& request, unsigned long long& done) {
    const unsigned count = obufSegmentCount(request.m_obuf);
    auto* pieces = new (std::nothrow) iovec[count];
    if (pieces == nullptr) return ENOMEM;
    obufNTranslateHost(request.m_obuf, pieces, static_cast<int>(count));
    const int error = writePieces(request.m_fd, request.m_offset, pieces, count, done);
    delete[] pieces;
    return error;
}

// Writes all pieces, going on after short counts. Answers 0 or an errno value; `done` is what was written before it.
int WriteWorker::writePieces(int fd, unsigned long long offset, iovec* pieces, unsigned count,
                             unsigned long long& done) {
    done = 0;
    while (count > 0) {
        if (pieces->iov_len == 0) {
            ++pieces;
            --count;
            continue;
        }
        const ssize_t written = writeOnce(fd, pieces, std::min(count, s_mostPieces), static_cast<off_t>(offset + done));
        m_calls.fetch_add(1, std::memory_order_relaxed);
        if (written < 0 && errno == EINTR) continue;
        // A device that takes nothing and says nothing is full.
        if (written <= 0) return written < 0 ? errno : ENOSPC;
        done += static_cast<unsigned long long>(written);
        for (auto left = static_cast<std::size_t>(written); left > 0;) {
            const std::size_t part = std::min(left, pieces->iov_len);
            pieces->iov_base = static_cast<unsigned char*>(pieces->iov_base) + part;
            pieces->iov_len -= part;
            left -= part;
            if (pieces->iov_len == 0) {
                ++pieces;
                --count;
            }
        }
    }
    return 0;
}

void WriteWorker::answer(AsyncRequest& request) {
    obufFree(request.m_obuf);
    request.m_obuf = nullptr;
    FileOps::end(FileOps::Kind::Write, request.m_begun, request.m_handle->getPath(), request.m_offset, request.m_size,
                 request.m_error);
    request.m_sink->writeDone(request.m_offset, request.m_size, request.m_error);
    request.m_handle->release();
}
