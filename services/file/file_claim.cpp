#include "services/file/file_claim.h"

#include <fcntl.h>

#include <cerrno>
#include <new>
#include <utility>

#include "services/file/file_calls.h"
#include "services/file/file_stat.h"
#include "services/file/fs_file_io.h"
#include "services/system/locks.h"

// A file that this process has claimed.
struct FileClaim::Entry {
    FileKey m_key;
    int m_fd = -1;  // owned; holds the system's lock, or none where there are no locks
    unsigned m_claims = 0;
    Entry* m_next = nullptr;
};

// All of them: a handful, of the recordings under way.
class FileClaim::Table {
public:
    // Takes: the descriptor, always. Gives: the entry with one claim more. Fails: an errno value.
    int claim(int fd, const FileKey& key, Entry*& claimed) MO_EXCLUDES(m_lock);
    void release(Entry* entry) MO_EXCLUDES(m_lock);
    unsigned count(const Entry& entry) MO_EXCLUDES(m_lock) {
        Scope lock(m_lock);
        return entry.m_claims;
    }

    static Table& get() {
        static Table* const table = new Table;  // never destroyed: recordings may end until the very end
        return *table;
    }

private:
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    ZarnexPosix::JMutex m_lock;
    Entry* m_first MO_GUARDED_BY(m_lock) = nullptr;
};

int FileClaim::Table::claim(int fd, const FileKey& key, Entry*& claimed) {
    Scope lock(m_lock);
    for (Entry* entry = m_first; entry != nullptr; entry = entry->m_next) {
        if (entry->m_key != key) continue;
        FileCalls::close(fd);
        ++entry->m_claims;
        claimed = entry;
        return 0;
    }
    const int error = FileCalls::lockWhole(fd) == 0 ? 0 : errno;
    // Other errors tell that this file system keeps no locks.
    const bool isTaken = error == EAGAIN || error == EACCES;
    Entry* const entry = isTaken ? nullptr : new (std::nothrow) Entry;
    if (entry == nullptr) {
        FileCalls::close(fd);
        return isTaken ? EBUSY : ENOMEM;
    }
    entry->m_key = key;
    entry->m_fd = fd;
    entry->m_claims = 1;
    entry->m_next = m_first;
    m_first = entry;
    claimed = entry;
    return 0;
}

void FileClaim::Table::release(Entry* entry) {
    Scope lock(m_lock);
    if (--entry->m_claims != 0) return;
    Entry** link = &m_first;
    while (*link != entry)
        link = &(*link)->m_next;
    *link = entry->m_next;
    // The handle's own descriptor shares the lock and may stay open.
    FileCalls::unlockWhole(entry->m_fd);
    FileCalls::close(entry->m_fd);
    delete entry;
}

int FileClaim::take(FsFileIO& file) {
    release();
    if (!file.writable() || !file.isOpen()) return EBADF;
    const int fd = file.duplicate();
    if (fd < 0) return errno;
    FileStat stat;
    const int error = statFd(fd, stat);
    if (error == 0) return Table::get().claim(fd, stat.m_key, m_entry);
    FileCalls::close(fd);
    return error;
}

void FileClaim::takeOver(FileClaim& other) {
    if (&other == this) return;
    release();
    std::swap(m_entry, other.m_entry);
}

void FileClaim::release() {
    if (m_entry != nullptr) Table::get().release(m_entry);
    m_entry = nullptr;
}

unsigned FileClaim::count() const { return m_entry != nullptr ? Table::get().count(*m_entry) : 0; }
