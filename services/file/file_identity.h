#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "services/file/basic_io_types.h"
#include "services/file/file_stat.h"
#include "services/file/os_path_id.h"
#include "services/system/short_lock.h"

class FileTable;
struct KnownPath;
struct StoredHandle;

// An open descriptor of a file, in the list of its identity.
struct OpenLink {
    int m_fd = -1;
    OpenLink* m_next = nullptr;
    OpenLink* m_prev = nullptr;
};

// A file that somebody in this process knows. Its id stays through renames, and through replacements at its path.
// **Threads:** any. The key may be read without a lock: a torn one matches nothing, and whoever finds no match asks the
// table.
// **Owns:** the texts of the paths under which the file was seen.
class FileIdentity {
public:
    explicit FileIdentity(OsPathId id) : m_id(id) {}
    FileIdentity(const FileIdentity&) = delete;
    FileIdentity& operator=(const FileIdentity&) = delete;
    ~FileIdentity();

    OsPathId getId() const { return m_id; }
    FileKey getKey() const;
    bool matches(const FileKey& key) const { return key == getKey(); }

    void addOpen(OpenLink& link, int fd);
    void removeOpen(OpenLink& link);

    // The stripe hint that is kept with the file, and the one that was only said here.
    std::atomic<std::uint32_t> m_keptAdvice{s_unknownAdvice};
    std::atomic<BasicIOTypes::SizeAdvice> m_saidAdvice{BasicIOTypes::SizeAdvice::None};
    static constexpr std::uint32_t s_unknownAdvice = 0xFF;

private:
    friend class FileTable;

    void setKey(const FileKey& key);
    bool isGone() const { return m_inode.load(std::memory_order_relaxed) == 0; }

    const OsPathId m_id;
    std::atomic<std::uint64_t> m_device{0};
    std::atomic<std::uint64_t> m_inode{0};  // 0 when the file has gone to another identity
    std::atomic<std::int64_t> m_birth{0};
    std::atomic<int> m_refs{1};
    // Changed under the table's index lock and the lock of the key's shard, read under either.
    KnownPath* m_paths = nullptr;  // the likeliest first
    FileIdentity* m_nextByKey = nullptr;
    FileIdentity* m_nextById = nullptr;
    ShortLock m_openLock;
    OpenLink* m_opens MO_GUARDED_BY(m_openLock) = nullptr;
    StoredHandle* m_handle MO_GUARDED_BY(m_openLock) = nullptr;  // owned
};

// All files that somebody in this process knows, by id, by key and by path. All operations are static.
// A file found under a path is known by its key. A path that shows another key than before has been given to another
// file if the old one still lives under another name; otherwise the file was replaced, and the identity goes with the
// path.
// **Locks:** the moves lock (decisions about paths that changed hands, with system calls), then the index lock (paths
// and ids), then one shard (keys). No system call runs under the last two.
class FileTable {
public:
    // The identity of the file that this path has just shown. Gives: a count, or null when memory doesn't come.
    static FileIdentity* acquire(const char* path, const FileStat& stat);
    // The identity of that id. Gives: a count, or null.
    static FileIdentity* acquireById(OsPathId id);
    static void preserve(FileIdentity& identity);
    static void release(FileIdentity& identity);

    // Finds the file: under the paths that it is known by, through an open descriptor, by the handle kept with
    // `keepHandle`. Fails: false when it is nowhere.
    static bool locate(FileIdentity& identity, std::string& path, FileStat& stat);
    // This process has renamed the file.
    static void renamed(FileIdentity& identity, const char* from, const char* to);
    // The likeliest path, without a look; the empty text for none.
    static std::string pathOf(const FileIdentity& identity);
    // Remembers how to find the file again by the system's own handle, where the system allows it.
    static void keepHandle(FileIdentity& identity);

    // Files known now; for tests and status lines.
    static unsigned size();

    // The path made absolute and freed of repeated slashes and "." elements; ".." stays, since it may lead through a
    // link.
    static std::string absolute(const char* path);

private:
    struct State;
    static State& state();
    // Those without the analysis want the index lock, which this header can't name.
    static FileIdentity* acquireSlowly(const char* path, const FileStat& stat);
    static FileIdentity* tryIndex(const std::string& path, const char* given, const FileStat& stat,
                                  FileIdentity*& owner);
    static FileIdentity* enter(const std::string& path, const char* given,
                               const FileStat& stat) MO_NO_THREAD_SAFETY_ANALYSIS;
    static bool settle(FileIdentity& owner, const std::string& path, FileStat& stat);
    static void takeOver(FileIdentity& owner, FileIdentity* other, const std::string& path,
                         const FileKey& key) MO_NO_THREAD_SAFETY_ANALYSIS;
    static bool findElsewhere(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat);
    static bool findByPaths(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat);
    static bool findByOpens(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat);
    static bool findByHandle(FileIdentity& identity, const std::string& except, std::string& found, FileStat& stat);
    static bool reclaim(FileIdentity& identity);
    static void learnPath(FileIdentity& identity, const std::string& path) MO_NO_THREAD_SAFETY_ANALYSIS;
    static void forgetPath(FileIdentity& identity, const std::string& path) MO_NO_THREAD_SAFETY_ANALYSIS;
    static void rekey(FileIdentity& identity, const FileKey& key);
};
