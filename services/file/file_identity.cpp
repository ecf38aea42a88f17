#include "services/file/file_identity.h"

#include <unistd.h>

#include <climits>
#include <functional>
#include <new>

#include "services/file/file_table.h"

using ZarnexPosix::JMutex;
using Scope = ZarnexPosix::ScopeLock<JMutex>;

namespace {

constexpr int maxIndexedPaths = 6;  // names that are remembered of one file
constexpr int maxSpellings = 4;     // other spellings of them

std::uint64_t hashOfText(std::string_view text) { return std::hash<std::string_view>()(text); }

KnownPath* findText(KnownPath* list, std::string_view text) {
    for (KnownPath* path = list; path != nullptr; path = path->m_next) {
        if (path->text() == text) return path;
    }
    return nullptr;
}

void unlink(KnownPath*& list, KnownPath* path) {
    for (KnownPath** link = &list; *link != nullptr; link = &(*link)->m_next) {
        if (*link != path) continue;
        *link = path->m_next;
        return;
    }
}

// The last of its kind, if there are more of them than that.
KnownPath* surplus(KnownPath* list, bool indexed, int limit) {
    KnownPath* last = nullptr;
    int count = 0;
    for (KnownPath* path = list; path != nullptr; path = path->m_next) {
        if (path->m_indexed != indexed) continue;
        last = path;
        ++count;
    }
    return count > limit ? last : nullptr;
}

}  // namespace

KnownPath* KnownPath::make(std::string_view text, bool indexed) {
    void* const memory = std::malloc(sizeof(KnownPath) + text.size());
    if (memory == nullptr) return nullptr;
    KnownPath* const path = new (memory) KnownPath;
    path->m_hash = hashOfText(text);
    path->m_length = static_cast<std::uint32_t>(text.size());
    path->m_indexed = indexed;
    std::memcpy(path->m_text, text.data(), text.size());
    path->m_text[text.size()] = '\0';
    return path;
}

FileIdentity::~FileIdentity() {
    while (m_paths != nullptr) {
        KnownPath* const path = m_paths;
        m_paths = path->m_next;
        std::free(path);
    }
    delete m_handle;
}

FileKey FileIdentity::getKey() const {
    return FileKey{m_device.load(std::memory_order_relaxed), m_inode.load(std::memory_order_relaxed),
                   m_birth.load(std::memory_order_relaxed)};
}

void FileIdentity::setKey(const FileKey& key) {
    m_device.store(key.m_device, std::memory_order_relaxed);
    m_inode.store(key.m_inode, std::memory_order_relaxed);
    m_birth.store(key.m_birth, std::memory_order_relaxed);
}

void FileIdentity::addOpen(OpenLink& link, int fd) {
    ShortScope lock(m_openLock);
    link.m_fd = fd;
    link.m_prev = nullptr;
    link.m_next = m_opens;
    if (m_opens != nullptr) m_opens->m_prev = &link;
    m_opens = &link;
}

void FileIdentity::removeOpen(OpenLink& link) {
    ShortScope lock(m_openLock);
    if (link.m_fd < 0) return;
    if (link.m_next != nullptr) link.m_next->m_prev = link.m_prev;
    (link.m_prev != nullptr ? link.m_prev->m_next : m_opens) = link.m_next;
    link.m_fd = -1;
}

KnownPath* FileTable::State::findPath(std::string_view path) const {
    return m_byPath.find(hashOfText(path), [path](const KnownPath& known) { return known.text() == path; });
}

// Never destroyed: handles in static storage may outlive any static object.
FileTable::State& FileTable::state() {
    static State* const state = new State;
    return *state;
}

std::string FileTable::absolute(const char* path) {
    std::string text;
    if (*path != '/') {
        char folder[PATH_MAX];
        if (::getcwd(folder, sizeof folder) != nullptr) text = folder;
        if (text == "/") text.clear();
    }
    while (*path != '\0') {
        const char* const end = std::strchr(path, '/');
        const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - path) : std::strlen(path);
        if (length > 0 && !(length == 1 && *path == '.')) text.append("/").append(path, length);
        path += end != nullptr ? length + 1 : length;
    }
    return text.empty() ? "/" : text;
}

FileIdentity* FileTable::acquire(const char* path, const FileStat& stat) {
    const std::uint64_t hash = hashOf(stat.m_key);
    State::Shard& shard = state().shard(hash);
    {
        ShortScope lock(shard.m_lock);
        FileIdentity* const identity = shard.find(stat.m_key, hash);
        if (identity != nullptr && findText(identity->m_paths, path) != nullptr) {
            preserve(*identity);
            return identity;
        }
    }
    return acquireSlowly(path, stat);
}

FileIdentity* FileTable::acquireSlowly(const char* path, const FileStat& stat) {
    constexpr int attempts = 8;  // a path that changes hands again and again ends as a plain miss
    const std::string full = absolute(path);
    FileStat now = stat;
    for (int i = 0; i < attempts; ++i) {
        FileIdentity* owner = nullptr;
        FileIdentity* const identity = tryIndex(full, path, now, owner);
        if (owner == nullptr) return identity;
        const bool there = settle(*owner, full, now);
        release(*owner);
        if (!there) return nullptr;
    }
    return nullptr;
}

// Answers the identity, or gives the one that stands in the way: it is known under this path but by another key.
FileIdentity* FileTable::tryIndex(const std::string& path, const char* given, const FileStat& stat,
                                  FileIdentity*& owner) {
    State& table = state();
    Scope lock(table.m_indexLock);
    KnownPath* const known = table.findPath(path);
    FileIdentity* identity = nullptr;
    {
        const std::uint64_t hash = hashOf(stat.m_key);
        State::Shard& shard = table.shard(hash);
        ShortScope shardLock(shard.m_lock);
        identity = shard.find(stat.m_key, hash);
    }
    // What is in the table stays there, and counted, for as long as the index lock is held.
    if (known != nullptr && known->m_owner != identity) {
        owner = known->m_owner;
        preserve(*owner);
        return nullptr;
    }
    if (identity == nullptr) return enter(path, given, stat);
    preserve(*identity);
    if (known == nullptr) learnPath(*identity, path);
    if (path != given) learnPath(*identity, given);
    return identity;
}

// A file that nobody knew. Requires: the index lock.
FileIdentity* FileTable::enter(const std::string& path, const char* given, const FileStat& stat) {
    State& table = state();
    std::uint64_t id = hashOf(stat.m_key);
    while (id == 0 || table.findId(OsPathId(id)) != nullptr)
        id = mixHash(id, 1);
    FileIdentity* const identity = new (std::nothrow) FileIdentity{OsPathId(id)};
    if (identity == nullptr) return nullptr;
    table.m_byId.insert(*identity);
    learnPath(*identity, path);
    if (path != given) learnPath(*identity, given);
    rekey(*identity, stat.m_key);
    return identity;
}

// Requires: the index lock. The path is put first. An absolute one is indexed, and taken from whoever had it.
void FileTable::learnPath(FileIdentity& identity, const std::string& path) {
    State& table = state();
    const bool indexed = path[0] == '/' && path == absolute(path.c_str());
    KnownPath* known = indexed ? table.findPath(path) : nullptr;
    if (known != nullptr && known->m_owner != &identity) {
        forgetPath(*known->m_owner, path);
        known = nullptr;
    }
    State::Shard& shard = table.shard(hashOf(identity.getKey()));
    KnownPath* fresh = known == nullptr ? KnownPath::make(path, indexed) : nullptr;
    KnownPath* dropped = nullptr;
    {
        ShortScope lock(shard.m_lock);
        if (known != nullptr) unlink(identity.m_paths, known);
        KnownPath* const first = known != nullptr ? known : fresh;
        if (first == nullptr) return;
        first->m_owner = &identity;
        // Spellings go behind the paths, so that the first text is always one that can be looked at.
        KnownPath** link = &identity.m_paths;
        while (!indexed && *link != nullptr)
            link = &(*link)->m_next;
        first->m_next = *link;
        *link = first;
        dropped = surplus(identity.m_paths, indexed, indexed ? maxIndexedPaths : maxSpellings);
        if (dropped == first) dropped = nullptr;
        if (dropped != nullptr) unlink(identity.m_paths, dropped);
    }
    if (fresh != nullptr && indexed) table.m_byPath.insert(*fresh);
    if (dropped != nullptr && dropped->m_indexed) table.m_byPath.remove(*dropped);
    std::free(dropped);
}

// Requires: the index lock. Other spellings may have led through this path, so they go as well.
void FileTable::forgetPath(FileIdentity& identity, const std::string& path) {
    State& table = state();
    State::Shard& shard = table.shard(hashOf(identity.getKey()));
    KnownPath* gone = nullptr;
    {
        ShortScope lock(shard.m_lock);
        KnownPath** link = &identity.m_paths;
        while (KnownPath* const known = *link) {
            if (known->m_indexed && known->text() != path) {
                link = &known->m_next;
                continue;
            }
            *link = known->m_next;
            known->m_next = gone;
            gone = known;
        }
    }
    while (gone != nullptr) {
        KnownPath* const next = gone->m_next;
        if (gone->m_indexed) table.m_byPath.remove(*gone);
        std::free(gone);
        gone = next;
    }
}

// Requires: the index lock. A key of inode 0 takes the identity out of the keys.
void FileTable::rekey(FileIdentity& identity, const FileKey& key) {
    State& table = state();
    if (!identity.isGone()) {
        State::Shard& shard = table.shard(hashOf(identity.getKey()));
        ShortScope lock(shard.m_lock);
        shard.m_byKey.remove(identity);
    }
    State::Shard& shard = table.shard(hashOf(key));
    ShortScope lock(shard.m_lock);
    identity.setKey(key);
    if (key.m_inode != 0) shard.m_byKey.insert(identity);
}

FileIdentity* FileTable::acquireById(OsPathId id) {
    State& table = state();
    Scope lock(table.m_indexLock);
    FileIdentity* const identity = table.findId(id);
    if (identity != nullptr) preserve(*identity);
    return identity;
}

void FileTable::preserve(FileIdentity& identity) { identity.m_refs.fetch_add(1, std::memory_order_relaxed); }

// The last count goes under both locks, since a look-up raises it under one of them.
void FileTable::release(FileIdentity& identity) {
    int refs = identity.m_refs.load(std::memory_order_relaxed);
    while (refs > 1) {
        if (identity.m_refs.compare_exchange_weak(refs, refs - 1, std::memory_order_acq_rel)) return;
    }
    State& table = state();
    {
        Scope lock(table.m_indexLock);
        State::Shard& shard = table.shard(hashOf(identity.getKey()));
        ShortScope shardLock(shard.m_lock);
        if (identity.m_refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        if (!identity.isGone()) shard.m_byKey.remove(identity);
        table.m_byId.remove(identity);
        for (KnownPath* path = identity.m_paths; path != nullptr; path = path->m_next) {
            if (path->m_indexed) table.m_byPath.remove(*path);
        }
    }
    delete &identity;
}

std::string FileTable::pathOf(const FileIdentity& identity) {
    Scope lock(state().m_indexLock);
    const KnownPath* const path = identity.m_paths;
    return path != nullptr && path->m_indexed ? std::string(path->text()) : std::string();
}

unsigned FileTable::size() {
    State& table = state();
    Scope lock(table.m_indexLock);
    return table.m_byId.count();
}
