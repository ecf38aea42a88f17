#pragma once

#include <cstdint>

#include "services/buffer/obuf.h"
#include "services/file/os_path_id.h"
#include "support/bridge.h"

// The file layer's key for one client: an address that is compared and never read. Null is the null client.
struct FileIoClientRec;

// The records that pass between the file layer and its callers.
struct BasicIOTypes {
    // How a handle may be used. No mode ever truncates.
    enum class Mode : std::uint32_t {
        Create = 0,  // read and write, created if missing
        Update = 1,  // read and write an existing file
        ReadOnly = 2
    };

    // What a file is for, and so how it is laid out on the disks.
    enum class SizeAdvice : std::uint32_t { LargeStripe = 0, SmallStripe = 1, None = 2 };

    // How a file's data are to be kept in the cache.
    enum class CacheAdvice : std::uint32_t { Stream = 0, Reread = 1 };

    // What an asynchronous read delivers. A null `m_obuf` is a failure, and `m_status` an errno value or 0.
    // Owns nothing by itself: the receiver owns the obuf.
    struct ReadNotify {
        ReadNotify(phantom_OBUF* obuf, const void* tag) : m_obuf(obuf), m_tag(tag), m_status(0) {}
        ReadNotify(const void* tag, int status) : m_obuf(nullptr), m_tag(tag), m_status(status) {}

        phantom_OBUF* m_obuf;
        const void* m_tag;
        int m_status;
    };
    using ReadHook = BridgeHook<const ReadNotify&, bool>;

    // An asynchronous read. The hook must outlive the notification; offsets and sizes in bytes.
    struct ReadReq {
        ReadReq(const ReadHook& hook, unsigned long long offset, unsigned size, phantom_obAllocationId_t allocId,
                const void* tag, bool frag, bool cacheL2)
            : m_hook(&hook),
              m_offset(offset),
              m_size(size),
              m_allocId(allocId),
              m_tag(tag),
              m_frag(frag),
              m_cacheL2(cacheL2) {}

        const ReadHook* m_hook;
        unsigned long long m_offset;
        unsigned m_size;
        phantom_obAllocationId_t m_allocId;
        const void* m_tag;
        bool m_frag;     // part of a larger read
        bool m_cacheL2;  // the reader expects the data in the cache
    };

    // Which file to watch: the key that the watcher knows it by, and the file itself.
    struct PathWatch {
        PathWatch(OsPathId cacheId, OsPathId fileId) : m_cacheId(cacheId), m_fileId(fileId) {}

        OsPathId m_cacheId;
        OsPathId m_fileId;
    };

    // A file has changed. The path is borrowed for the length of the call.
    struct Change {
        const char* m_path = nullptr;
        OsPathId m_id;               // the watch's cache id
        std::uint32_t m_reason = 0;  // what the watch saw, for messages
        bool m_force = false;        // parse even if the version is unchanged
    };
    using ChangeHook = BridgeHook<const Change&, bool>;
};
