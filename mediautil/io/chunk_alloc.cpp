#include "mediautil/io/chunk_alloc.h"

#include "mediautil/io/chunk_handler.h"

using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;
using ValidateThread = ThreadMethod<ChunkAlloc>;

namespace {

// Sixteen reads in flight need one block.
constexpr unsigned s_blockSize = 16 * MemPoolAlloc::quantizeUp(sizeof(ChunkHandler));
constexpr unsigned s_threadPriority = 93;
constexpr unsigned s_threadStack = 16384;
constexpr unsigned s_signalPriority = 50;

}  // namespace

ChunkAlloc::ChunkAlloc()
    : MemPoolAlloc(s_blockSize, s_blockSize),
      m_signals("ChunkAlloc", *this, nullptr, nullptr, &ChunkAlloc::checkFinishedCb, &ChunkAlloc::stopThreadsCb,
                nullptr, s_signalPriority) {
    Subsystem::Registry::registerSignalHandlers(m_signals);
}

ChunkAlloc::~ChunkAlloc() { stopThreadsCb(); }

ChunkAlloc* ChunkAlloc::getRef() {
    static ChunkAlloc* slot = nullptr;
    return newSingleton(slot);
}

void* ChunkAlloc::alloc() {
    Scope lock(m_mutex);
    return MemPoolAlloc::alloc(sizeof(ChunkHandler));
}

void ChunkAlloc::free(void* memory) {
    Scope lock(m_mutex);
    MemPoolAlloc::free(static_cast<unsigned char*>(memory), sizeof(ChunkHandler));
}

bool ChunkAlloc::asyncValidate(ChunkHandler& handler) {
    Scope lock(m_mutex);
    if (!ensureThread()) return false;
    m_queue.append(handler.getNode());
    m_wake.post();
    return true;
}

// The new thread asks for itself under the lock, so it is entered before it is started.
bool ChunkAlloc::ensureThread() {
    if (m_thread != nullptr) return true;
    m_thread = new ValidateThread(*this, &ChunkAlloc::validateLoop, "validate loop", s_threadPriority, s_threadStack);
    if (m_thread->start()) return true;
    delete m_thread;
    m_thread = nullptr;
    return false;
}

ValidateThread* ChunkAlloc::thread() {
    Scope lock(m_mutex);
    return m_thread;
}

ChunkHandler* ChunkAlloc::popHead() {
    Scope lock(m_mutex);
    return m_queue.popClient();
}

void ChunkAlloc::validateLoop() {
    const ValidateThread* const self = thread();
    while (!self->stopRequested()) {
        m_wake.wait();
        // A wake-up without a handler, as by the count that the semaphore starts with or by a stop, costs a turn.
        if (ChunkHandler* const handler = popHead()) handler->validateAndCallCb();
    }
}

bool ChunkAlloc::stopThreadsCb() {
    // Stays entered until it has ended, so that no second one is made beside it.
    ValidateThread* const ending = thread();
    if (ending == nullptr) return true;
    ending->stop(false);
    m_wake.post();
    ending->wait();
    {
        Scope lock(m_mutex);
        m_thread = nullptr;
    }
    delete ending;
    return true;
}

bool ChunkAlloc::checkFinishedCb(bool report) {
    Scope lock(m_mutex);
    if (m_queue.size() == 0) return true;
    if (report) {
        Subsystem::Registry::errMsg("ChunkAlloc::checkFinishedCb: expected empty list, not size=%i\n",
                                    static_cast<int>(m_queue.size()));
    }
    return false;
}
