#include "mediautil/io/chunk_handler.h"

#include <algorithm>

#include "mediautil/io/chunk_alloc.h"
#include "mediautil/io/sample_check.h"
#include "services/system/log.h"
#include "support/numeric.h"

namespace {

// Made in static initialisation, that is, before any read, so that no read pays for the guard of a singleton.
ChunkAlloc* const chunkAlloc = ChunkAlloc::getRef();

// A process that ends without a shutdown ends the validation thread while all that this thread uses is alive.
const struct ThreadEnd {
    ~ThreadEnd() { chunkAlloc->stopThreadsCb(); }
} s_threadEnd;

const void* tagOf(unsigned number) { return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(number)); }

}  // namespace

void* ChunkHandler::operator new(std::size_t) noexcept { return chunkAlloc->alloc(); }

void ChunkHandler::operator delete(void* memory) noexcept { chunkAlloc->free(memory); }

ChunkHandler::ChunkHandler(const MediaReadReq& req)
    : BridgeAnchor(*this, &ChunkHandler::readCb), m_req(req), m_pending(static_cast<int>(req.m_sample.m_numChunks)) {}

ChunkHandler::~ChunkHandler() {
    for (unsigned i = 0; i < chunkCount(); ++i) {
        if (m_bufs[i] != nullptr) obufFree(m_bufs[i]);
    }
}

unsigned ChunkHandler::chunkCount() const { return std::min<unsigned>(m_req.m_sample.m_numChunks, s_maxChunks); }

bool ChunkHandler::read(BasicFileIO* fp) {
    const MediaReadReq req = m_req;  // the last accepted read may destroy this handler at any moment
    unsigned accepted = 0, refused = 0;
    bool last = false;
    for (unsigned i = 0; i < req.m_sample.m_numChunks; ++i) {
        const MediaSampleDesc::Chunk& chunk = req.m_sample.m_chunks[i];
        // Tags count accepted reads: a chunk behind a refused one takes its place.
        const BasicIOTypes::ReadReq one(*this, chunk.m_offset, chunk.m_size, req.m_allocId, tagOf(accepted), req.m_frag,
                                        req.m_cacheL2);
        if (fp->readAsync(one)) {
            ++accepted;
            continue;
        }
        errorMsg("ChunkHandler::read: can't read %d@%lld\n", static_cast<int>(chunk.m_size),
                 static_cast<long long>(chunk.m_offset));
        ++refused;
        m_ok = false;
        last = --m_pending == 0;
    }
    if (last) {
        // No notification is outstanding or will come.
        delete this;
        return logIfFalse(false, "read", "mediautil", __LINE__);
    }
    return refused == 0;
}

// A chunk that fails by a null obuf doesn't fail the whole read by itself, which is meant: the status is only kept.
void ChunkHandler::store(const BasicIOTypes::ReadNotify& notify) {
    const auto tag = reinterpret_cast<std::uintptr_t>(notify.m_tag);
    if (notify.m_obuf == nullptr) {
        m_status = notify.m_status;
    } else if (tag < chunkCount()) {
        m_bufs[tag] = notify.m_obuf;
    } else {
        errorMsg("ChunkHandler::readCb: tag=%d vs %d\n", static_cast<int>(tag), static_cast<int>(chunkCount()));
        obufFree(notify.m_obuf);
        m_ok = false;
    }
}

bool ChunkHandler::readCb(const BasicIOTypes::ReadNotify& notify) {
    store(notify);
    if (--m_pending != 0) return true;
    bool answer = true;
    if (!m_ok || !join()) {
        (void)m_req.m_cb->callCb(BasicIOTypes::ReadNotify(m_req.m_tag, m_status));
    } else {
        if (SampleCheck::wanted()) {
            answer = chunkAlloc->asyncValidate(*this);
            if (answer) return true;
            // Without a thread the requester still gets his data: they are only not looked at.
        }
        giveWhole();
    }
    delete this;
    return answer;
}

// Appends what stands behind the first place to it.
bool ChunkHandler::join() {
    for (unsigned i = 1; i < chunkCount(); ++i) {
        if (m_bufs[i] == nullptr) continue;
        if (obufInsert(m_bufs[0], m_bufs[i], obufAppend) == 0) {
            errorMsg("ChunkHandler::readCb: obufInsert failed\n");
            return false;
        }
        m_bufs[i] = nullptr;
    }
    return true;
}

void ChunkHandler::validateAndCallCb() {
    SampleCheck::run(m_req.m_sample, false, m_bufs[0]);
    giveWhole();
    delete this;
}

void ChunkHandler::giveWhole() {
    phantom_OBUF* const whole = m_bufs[0];
    m_bufs[0] = nullptr;
    (void)m_req.m_cb->callCb(BasicIOTypes::ReadNotify(whole, m_req.m_tag));
}
