// Where a known file is now, and what to make of a path that shows another file than before.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <new>

#include "services/file/file_identity.h"
#include "services/file/file_table.h"

using ZarnexPosix::JMutex;
using Scope = ZarnexPosix::ScopeLock<JMutex>;

namespace {

constexpr int maxOpensTried = 8;  // descriptors that are asked for the file's name

// Asked once a process: the right to open by a stored handle is nothing that comes later.
std::atomic<bool> s_handlesAllowed{true};

bool shows(const std::string& path, const FileIdentity& identity, FileStat& stat) {
    return statPath(path.c_str(), stat) == 0 && stat.isRegular() && identity.matches(stat.m_key);
}

std::string nameOfDescriptor(int fd) {
    char link[32];
    char text[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = ::readlink(link, text, sizeof text);
    return length > 0 && text[0] == '/' ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

// A descriptor of some folder on the same device, searched upward from the path.
int openFolderNear(std::string path, std::uint64_t device) {
    while (path.size() > 1) {
        path.resize(path.rfind('/'));
        if (path.empty()) path = "/";
        FileStat stat;
        if (statPath(path.c_str(), stat) != 0) continue;
        return stat.m_key.m_device == device ? ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    }
    return -1;
}

}  // namespace

bool FileTable::locate(FileIdentity& identity, std::string& path, FileStat& stat) {
    if (findByPaths(identity, std::string(), path, stat)) return true;
    if (reclaim(identity) && findByPaths(identity, std::string(), path, stat)) return true;
    if (!findElsewhere(identity, std::string(), path, stat)) return false;
    Scope lock(state().m_indexLock);
    learnPath(identity, path);
    return true;
}

// A file stands at one of the paths again, though not the same one: whoever is known by the path may take it over.
bool FileTable::reclaim(FileIdentity& identity) {
    const std::string path = pathOf(identity);
    FileStat stat;
    if (path.empty() || statPath(path.c_str(), stat) != 0 || !stat.isRegular()) return false;
    FileIdentity* const found = acquire(path.c_str(), stat);
    if (found == nullptr) return false;
    release(*found);
    return found == &identity;
}

bool FileTable::findElsewhere(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat) {
    if (identity.isGone()) return false;
    return findByPaths(identity, except, found, stat) || findByOpens(identity, except, found, stat) ||
           findByHandle(identity, except, found, stat);
}

bool FileTable::findByPaths(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat) {
    constexpr unsigned most = 8;
    std::string paths[most];
    unsigned count = 0;
    {
        Scope lock(state().m_indexLock);
        for (const KnownPath* path = identity.m_paths; path != nullptr && count < most; path = path->m_next) {
            if (path->m_indexed && path->text() != except) paths[count++] = path->text();
        }
    }
    for (unsigned i = 0; i < count; ++i) {
        if (!shows(paths[i], identity, stat)) continue;
        found = paths[i];
        return true;
    }
    return false;
}

// A descriptor that is closed meanwhile, and its number given away, does no harm: every answer is checked by a look.
bool FileTable::findByOpens(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat) {
    int opens[maxOpensTried];
    int count = 0;
    {
        ShortScope lock(identity.m_openLock);
        for (const OpenLink* link = identity.m_opens; link != nullptr && count < maxOpensTried; link = link->m_next) {
            opens[count++] = link->m_fd;
        }
    }
    for (int i = 0; i < count; ++i) {
        const std::string path = nameOfDescriptor(opens[i]);
        if (path.empty() || path == except || !shows(path, identity, stat)) continue;
        found = path;
        return true;
    }
    return false;
}

namespace {

union HandleRoom {
    struct file_handle m_handle;
    unsigned char m_bytes[sizeof(struct file_handle) + StoredHandle::s_maxBytes];
};

int openStored(const StoredHandle& stored, int folder) {
    HandleRoom room;
    room.m_handle.handle_bytes = stored.m_bytes;
    room.m_handle.handle_type = stored.m_type;
    std::memcpy(room.m_bytes + sizeof(struct file_handle), stored.m_data, stored.m_bytes);
    const int fd = ::open_by_handle_at(folder, &room.m_handle, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0 && (errno == EPERM || errno == ENOSYS)) s_handlesAllowed.store(false, std::memory_order_relaxed);
    return fd;
}

}  // namespace

bool FileTable::findByHandle(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat) {
    StoredHandle stored;
    {
        ShortScope lock(identity.m_openLock);
        if (identity.m_handle == nullptr) return false;
        stored = *identity.m_handle;
    }
    if (!s_handlesAllowed.load(std::memory_order_relaxed)) return false;
    const int folder = openFolderNear(pathOf(identity), identity.getKey().m_device);
    if (folder < 0) return false;
    const int fd = openStored(stored, folder);
    ::close(folder);
    if (fd < 0) return false;
    const std::string path = nameOfDescriptor(fd);
    ::close(fd);
    if (path.empty() || path == except || !shows(path, identity, stat)) return false;
    found = path;
    return true;
}

void FileTable::keepHandle(FileIdentity& identity) {
    if (!s_handlesAllowed.load(std::memory_order_relaxed)) return;
    const std::string path = pathOf(identity);
    HandleRoom room;
    room.m_handle.handle_bytes = StoredHandle::s_maxBytes;
    int mountId = 0;
    if (path.empty() || ::name_to_handle_at(AT_FDCWD, path.c_str(), &room.m_handle, &mountId, AT_SYMLINK_FOLLOW) != 0)
        return;
    StoredHandle* stored = new (std::nothrow) StoredHandle;
    if (stored == nullptr) return;
    stored->m_bytes = room.m_handle.handle_bytes;
    stored->m_type = room.m_handle.handle_type;
    std::memcpy(stored->m_data, room.m_bytes + sizeof(struct file_handle), stored->m_bytes);
    {
        ShortScope lock(identity.m_openLock);
        std::swap(stored, identity.m_handle);
    }
    delete stored;
}

// The path shows another file than the one that it is known for. Decides whether that one was moved away or replaced,
// and looks once more for that, since what the caller saw may be older than what the owner has become meanwhile.
bool FileTable::settle(FileIdentity& owner, const std::string& path, FileStat& stat) {
    State& table = state();
    Scope moves(table.m_movesLock);
    if (statPath(path.c_str(), stat) != 0 || !stat.isRegular()) return false;
    if (owner.matches(stat.m_key)) return true;
    std::string elsewhere;
    FileStat seen;
    if (findElsewhere(owner, path, elsewhere, seen)) {
        Scope lock(table.m_indexLock);
        forgetPath(owner, path);
        learnPath(owner, elsewhere);
        return true;
    }
    // The newcomer may be known itself, and by a name that still shows it: then this is one more name of it.
    FileIdentity* other = nullptr;
    {
        Scope lock(table.m_indexLock);
        const std::uint64_t hash = hashOf(stat.m_key);
        State::Shard& shard = table.shard(hash);
        ShortScope shardLock(shard.m_lock);
        other = shard.find(stat.m_key, hash);
        if (other == &owner) return true;
        if (other != nullptr) preserve(*other);
    }
    const bool known = other != nullptr && findByPaths(*other, path, elsewhere, seen);
    {
        Scope lock(table.m_indexLock);
        if (known) {
            forgetPath(owner, path);
        } else {
            takeOver(owner, other, path, stat.m_key);
        }
    }
    if (other != nullptr) release(*other);
    return true;
}

// Requires: the moves lock and the index lock. The file at this path was replaced: the identity goes with the path.
// Names that it had besides aren't looked at again; whoever asks by one of them finds out.
void FileTable::takeOver(FileIdentity& owner, FileIdentity* other, const std::string& path, const FileKey& key) {
    State& table = state();
    const KnownPath* const known = table.findPath(path);
    if (known == nullptr || known->m_owner != &owner) return;
    FileIdentity* holder = nullptr;
    {
        const std::uint64_t hash = hashOf(key);
        State::Shard& shard = table.shard(hash);
        ShortScope lock(shard.m_lock);
        holder = shard.find(key, hash);
    }
    // Somebody entered the newcomer since it was looked for: the next attempt sees him.
    if (holder != other) return;
    if (other != nullptr) rekey(*other, FileKey());
    rekey(owner, key);
    learnPath(owner, path);
    owner.m_keptAdvice.store(FileIdentity::s_unknownAdvice, std::memory_order_relaxed);
    owner.m_saidAdvice.store(BasicIOTypes::SizeAdvice::None, std::memory_order_relaxed);
    ShortScope lock(owner.m_openLock);
    delete owner.m_handle;
    owner.m_handle = nullptr;
}

void FileTable::renamed(FileIdentity& identity, const char* from, const char* to) {
    State& table = state();
    const std::string oldPath = absolute(from);
    const std::string newPath = absolute(to);
    Scope moves(table.m_movesLock);
    Scope lock(table.m_indexLock);
    if (oldPath != newPath) forgetPath(identity, oldPath);
    learnPath(identity, newPath);
}
