#pragma once

#include <vector>

#include "services/file/basic_file_io.h"
#include "services/file/file_ref.h"
#include "services/file/fs_file_io.h"
#include "services/system/locks.h"
#include "support/auto_ptr.h"

// One file of a movie: a read handle for each client and one write handle for all.
// A handle that may write, installed for the null client, is that client's read handle and the write handle at once.
// All read handles read the file that the first of them opened, also when its name shows another one by now.
// **Threads:** any, though its owner holds a lock of his own across most calls. **Locks:** m_lock, a leaf but for those
// of the handles; no handle is waited for under it.
// **Owns:** one reference to each handle. **Units:** bytes.
class MO_PUBLIC FilePerClient {
public:
    // An empty entry with no path.
    FilePerClient() = default;
    FilePerClient(const FilePerClient&) = delete;
    FilePerClient& operator=(const FilePerClient&) = delete;
    ~FilePerClient();

    // Gives the entry its file. Opens nothing. Handles stay as they are: it is called on a new entry.
    void setPath(const char* path);
    // Never null; borrowed for as long as the entry lives, though it is no longer the path after a rename.
    const char* getPath() const { return m_ref.path(); }
    // 0 when the file isn't there.
    OsPathId getPathId() const;
    // True when the file is there now. A file that was moved is found again where the system allows, and the path
    // follows.
    bool exists() const;
    unsigned long long getFileSize() const;
    unsigned long long getVersion() const;

    // Installs an open handle for a client; an entry without a path takes over the handle's. Takes: a reference of its
    // own.
    void setFp(AutoRefPtr<BasicFileIO> fp, FileIoClientRec* client);
    // The client's read handle, made if it has none. A client's is opened at once, the null client's when it is first
    // used. Fails: null when there is no path or the file can't be opened.
    AutoRefPtr<BasicFileIO> getReadFp(FileIoClientRec* client);
    // The file's write handle, made and opened if there is none; a missing file is created.
    // Fails: null when it can't be opened for writing, and after `setReadOnly`.
    AutoRefPtr<BasicFileIO> getWriteFp();
    // Lets go of a client's handles, of the write handle too for the null client. Waits: for the writes under way if
    // this lets go of the write handle, with `mutex`, which the caller holds, given back meanwhile; null is allowed.
    // Fails: false when one of those writes failed.
    bool close(FileIoClientRec* client, ZarnexPosix::JMutex* mutex);

    // True while the client's read handle has the file open, or for `writable` the write handle, which is everybody's.
    bool isOpen(FileIoClientRec* client, bool writable) const;
    // Any client other than the null one has a handle.
    bool hasClient() const;
    // Files that the client has open here: its read handle and, for the null client, the write handle if that is
    // another one.
    unsigned getNumOpenFiles(FileIoClientRec* client) const;
    // What one client has open; null is the null client.
    struct OpenHandles {
        const FileIoClientRec* m_client;
        unsigned m_count;
    };
    // Adds what each client has open here, the write handle as the null client's. Fails: false, at once, when somebody
    // holds the entry's lock.
    bool tryAddOpen(std::vector<OpenHandles>& clients) const MO_NO_THREAD_SAFETY_ANALYSIS;
    // Takes all handles of another entry over, except those of clients that have one here. Fails: false when the two
    // entries don't stand for the same file; nothing moves then.
    bool inheritFileHandles(const FilePerClient& other);

    // Fails: false when the file couldn't be removed, with a line.
    bool remove();
    // Moves the file; never replaces another one. Fails: false with a line that says why; nothing has changed then.
    bool rename(const char* path);
    // Says whether the file is protected against deletion: its attributes forbid it, nobody may write it, or this
    // process may not write its folder. Fails: false when that couldn't be read; the flag is left alone.
    bool getProtection(bool& isProtected) const;
    // From now on nobody writes: the write handle goes, or becomes a read handle if it was the null client's.
    // Waits: for the writes under way.
    void setReadOnly();
    void disableLowLevelMessages();
    // Lets the system's cache drop the file's data.
    void purge();
    // Waits: until the device has what was written. Fails: false when a write or the flush failed.
    bool flush();
    void advise(BasicIOTypes::SizeAdvice advice);
    void advise(BasicIOTypes::CacheAdvice advice);
    // `None` until somebody says otherwise.
    BasicIOTypes::SizeAdvice getSizeAdvice() const;

    // Bytes written through this entry that the device hasn't got yet, as far as the system tells. All three stop at
    // 2^32 - 1.
    unsigned getDirtyOccupancy() const;
    // Bytes of the file in the system's cache, for a client that has it open; for `writable`, when the write handle
    // has.
    unsigned getTotalOccupancy(FileIoClientRec* client, bool writable) const;
    // The most that the cache can take of this file: its whole pages. 0 as above.
    unsigned getMaxCacheSize(FileIoClientRec* client, bool writable) const;

private:
    using Handle = AutoRefPtr<BasicFileIO>;
    struct Client {
        FileIoClientRec* m_client;
        Handle m_fp;
    };
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    Handle findRead(FileIoClientRec* client) const MO_REQUIRES(m_lock);
    Handle findOpenFor(FileIoClientRec* client, bool writable) const;
    FsFileIO* pattern() const MO_REQUIRES(m_lock);
    Handle make(const char* tag, BasicIOTypes::Mode mode) MO_REQUIRES(m_lock);
    bool openReader(FsFileIO& fp, FileIoClientRec* client) MO_REQUIRES(m_lock);
    void installRead(const Handle& fp, FileIoClientRec* client) MO_REQUIRES(m_lock);
    Handle takeRead(FileIoClientRec* client) MO_REQUIRES(m_lock);
    std::vector<Handle> allHandles() const;
    Handle anyOpen() const;
    bool sameFile(const FilePerClient& other) const;
    static bool openNow(const Handle& fp);

    mutable FileRef m_ref;
    mutable ZarnexPosix::JMutex m_lock;
    mutable Handle m_nullRead MO_GUARDED_BY(m_lock);  // the null client's read handle
    mutable Handle m_write MO_GUARDED_BY(m_lock);     // the write handle; may be the same
    mutable std::vector<Client> m_clients MO_GUARDED_BY(m_lock);
    std::atomic<BasicIOTypes::SizeAdvice> m_advice{BasicIOTypes::SizeAdvice::None};
    std::atomic<BasicIOTypes::CacheAdvice> m_cacheAdvice{BasicIOTypes::CacheAdvice::Reread};
    std::atomic<bool> m_readOnly{false};
    std::atomic<bool> m_quiet{false};
};
