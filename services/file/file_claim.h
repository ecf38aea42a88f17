#pragma once

#include "support/visibility.h"

class FsFileIO;

// A process's right to record a file, so that no two processes begin the same empty one. All claims of one process on a
// file are one to the others; the system takes them back when the process dies, however it does.
// Only those who ask for a claim heed it: reads and writes go on as ever.
// **Threads:** any, each object one at a time. **Locks:** one for all claims, across the locking system call, which
// doesn't wait; a leaf. **Owns:** a descriptor for each file claimed, beside those of the handles.
class MO_PUBLIC FileClaim {
public:
    FileClaim() = default;
    ~FileClaim() { release(); }
    FileClaim(const FileClaim&) = delete;
    FileClaim& operator=(const FileClaim&) = delete;

    // Claims the file that the handle has open, in place of what this has claimed before. Where the file system knows
    // no locks the claim counts in this process alone. Fails: an errno value; EBUSY when another process has the file,
    // EBADF without an open handle that may write.
    int take(FsFileIO& file);
    // Has what the other one had, in place of its own.
    void takeOver(FileClaim& other);
    void release();
    bool isHeld() const { return m_entry != nullptr; }
    // Claims of this process on the same file, this one included.
    unsigned count() const;

private:
    struct Entry;
    class Table;

    Entry* m_entry = nullptr;  // counted
};
