#pragma once

#include <atomic>
#include <cstdint>

#include "services/buffer/obuf.h"
#include "services/system/locks.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/io/media_io_buf.h"
#include "support/auto_ptr.h"

// A black frame of a clip's own kind, kept as bytes and, from the first read on, as a buffer to duplicate.
// **Owns:** both. **Threads:** any. **Locks:** m_mutex, while the buffer is made.
class MediaOffsetLookup::FrameNData {
public:
    // Has the format's writer make the frame in a scratch object, which is let go of again. Not `valid` when the format
    // can't; the reason is told then.
    FrameNData(const MediaClipDesc& clip, const MediaPlayReq& req);
    FrameNData(const FrameNData&) = delete;
    FrameNData& operator=(const FrameNData&) = delete;
    ~FrameNData();

    bool valid() const { return m_buf.get() != nullptr; }
    // Bytes of the frame.
    unsigned size() const { return valid() ? m_buf->size() : 0; }
    void setOffset(unsigned long long offset) { m_offset.store(offset, std::memory_order_relaxed); }
    // Gives: a buffer of the caller's own, or null when memory doesn't come.
    phantom_OBUF* getObufCopy(const MediaReadReq& req) MO_EXCLUDES(m_mutex);

private:
    phantom_OBUF* makeObuf(phantom_obAllocationId_t allocId) const;

    AutoPtr<MediaSampleBuf> m_buf;  // null when the frame couldn't be made
    // Owned; set once, under m_mutex. Release and acquire: whoever sees it sees its bytes.
    std::atomic<phantom_OBUF*> m_obuf{nullptr};
    std::atomic<unsigned long long> m_offset{0};  // where the frame was last said to lie, in bytes of the file
    ZarnexPosix::JMutex m_mutex;
};
