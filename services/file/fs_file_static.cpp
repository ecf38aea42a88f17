// The operations of FsFileIO that need no handle.

#include <cerrno>
#include <cstring>

#include "services/file/change_watch.h"
#include "services/file/file_calls.h"
#include "services/file/file_messages.h"
#include "services/file/file_stat.h"
#include "services/file/fs_file_io.h"

bool FsFileIO::exists(const char* path) {
    FileStat stat;
    return path != nullptr && statPath(path, stat) == 0;
}

bool FsFileIO::remove(const char* path) {
    if (path == nullptr) return false;
    if (FileCalls::unlink(path) == 0) return true;
    if (errno != ENOENT) tellFailure("FsFileIO", path, "remove", errno);
    return false;
}

const char* FsFileIO::filePart(const char* path) {
    if (path == nullptr) return "";
    const char* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

void FsFileIO::addCb(const BasicIOTypes::ChangeHook* hook, BasicIOTypes::PathWatch watch, unsigned long long version) {
    if (hook != nullptr) ChangeWatch::get().add(*hook, watch, version);
}

void FsFileIO::removeCb(const BasicIOTypes::ChangeHook* hook, OsPathId id) {
    if (hook != nullptr) ChangeWatch::get().remove(*hook, id);
}

void FsFileIO::finishCb(const BasicIOTypes::ChangeHook* hook) {
    if (hook != nullptr) ChangeWatch::get().finish(*hook);
}
