#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/visibility.h"

// The system calls of the file layer that a failing disk, a full table or a missing right can make fail.
enum class FileCall : std::uint32_t {
    Stat,
    Open,
    Close,
    Read,
    Write,
    Sync,
    Rename,
    Link,
    Unlink,
    MakeFolder,
    GetAttribute,
    SetAttribute,
    Reserve,
    Watch,
    Lock
};

// The way to the system. Each function answers as the call that it is named after and leaves `errno`.
// A test may stand in the way: the hook answers an errno value to fail with, or 0, and may make `size` smaller.
namespace FileCalls {

using FaultHook = int (*)(FileCall call, const char* path, int fd, std::size_t& size);
// Null takes the hook away. Thread: while no other thread is in the file layer, or with a hook that any thread may run.
MO_PUBLIC void setFault(FaultHook hook);

extern std::atomic<FaultHook> s_fault;
bool failsSlowly(FileCall call, const char* path, int fd, std::size_t& size);

// True when a test wants this call to fail; `errno` says how.
inline bool fails(FileCall call, const char* path, int fd, std::size_t& size) {
    return s_fault.load(std::memory_order_acquire) != nullptr && failsSlowly(call, path, fd, size);
}
inline bool fails(FileCall call, const char* path, int fd = -1) {
    std::size_t size = 0;
    return fails(call, path, fd, size);
}

int open(const char* path, int flags, unsigned mode);
void close(int fd);
// These two go on after an interruption, but answer what one call gave.
ssize_t readAt(int fd, void* memory, std::size_t size, std::uint64_t offset);
ssize_t writeAt(int fd, const void* memory, std::size_t size, std::uint64_t offset);
// These go on to the end of the file, or until the device takes no more. Answer the bytes moved, or -1 if none were.
ssize_t readFully(int fd, void* memory, std::size_t size, std::uint64_t offset);
ssize_t writeFully(int fd, const void* memory, std::size_t size, std::uint64_t offset);
int sync(int fd);
// The opening's lock on the whole file, which all descriptors of the same opening share and which the system takes back
// with the last of them. Never waits: EAGAIN or EACCES when another opening has it.
int lockWhole(int fd);
void unlockWhole(int fd);
// Never replaces: EEXIST when the name is taken.
int rename(const char* from, const char* to);
int unlink(const char* path);
int makeFolder(const char* path);

}  // namespace FileCalls
