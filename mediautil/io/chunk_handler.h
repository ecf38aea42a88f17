#pragma once

#include <atomic>
#include <cstddef>

#include "services/file/basic_file_io.h"
#include "shared/include/io/media_read_req.h"
#include "support/atomic_ops.h"
#include "support/bridge.h"
#include "support/dlist.h"

// Fans one read out to one file read per chunk, joins what arrives in any order and calls the requester once; with
// `mediaValidate` on, from the validation thread, where the whole is looked at first. Whoever brings the pending count
// to 0 owns the handler from then on, and hands it over or destroys it.
// **Threads:** `readCb` runs on threads of the file layer, several at once, at different places of m_bufs.
// **Owns:** the buffers that have arrived. Its memory comes from the process's pool of handlers.
class ChunkHandler : public BridgeAnchor<ChunkHandler, const BasicIOTypes::ReadNotify&, bool> {
public:
    explicit ChunkHandler(const MediaReadReq& req);
    ~ChunkHandler();

    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* memory) noexcept;

    // Starts the reads. Fails: false when not all could be started; a read that is under way then still ends in one
    // failure notification to the requester. The handler isn't the caller's any more either way.
    bool read(BasicFileIO* fp);
    // One chunk has ended.
    bool readCb(const BasicIOTypes::ReadNotify& notify);
    // Has the whole looked at, if that is still wanted, answers the requester and ends the handler.
    // Thread: the validation thread.
    void validateAndCallCb();

    // Its place in the validation queue.
    DLinkNode<ChunkHandler>& getNode() { return m_node; }

private:
    static constexpr unsigned s_maxChunks = MediaSampleDesc::s_maxChunks;

    unsigned chunkCount() const;
    void store(const BasicIOTypes::ReadNotify& notify);
    bool join();
    void giveWhole();

    phantom_OBUF* m_bufs[s_maxChunks] = {};  // by the tag of the chunk's read
    const MediaReadReq m_req;                // the caller's record may go as soon as its call returns
    AtomicCounter m_pending;                 // chunks that haven't ended
    std::atomic<bool> m_ok{true};
    std::atomic<int> m_status{0};  // the last status that came with a null obuf
    DLinkNode<ChunkHandler> m_node{*this};
};
