#pragma once

#include <atomic>
#include <cstddef>

#include "services/file/file_identity.h"
#include "services/file/file_stat.h"
#include "services/file/os_path_id.h"
#include "services/system/short_lock.h"

// A path and, once somebody has asked, the file that it stands for. From then on it follows that file: through a
// rename, and through a replacement at its path.
// **Threads:** any; a path's text stays readable for as long as the object lives. **Owns:** a count on the identity.
class FileRef {
public:
    FileRef() = default;
    // Short paths are put into `room`, which lives as long as this.
    FileRef(const char* path, char* room, std::size_t roomSize);
    FileRef(const FileRef&) = delete;
    FileRef& operator=(const FileRef&) = delete;
    ~FileRef();

    const char* path() const { return m_path.load(std::memory_order_acquire); }
    bool hasPath() const { return *path() != '\0'; }
    // Another path, and whatever file is there. Thread: no other one uses this object.
    void setPath(const char* path);
    // The same file under another path.
    void moved(const char* path);
    // Shares what another one of the same path knows, if this one isn't bound.
    void bindLike(const FileRef& other);
    // Binds to the file of that id. Fails: false when it isn't known; `locate` then still says whether it is there.
    bool bindToId(OsPathId id);

    // The identity, if it is known. Borrowed for as long as this lives.
    FileIdentity* identity() const { return m_identity.load(std::memory_order_acquire); }
    // Looks at the file now. Fails: an errno value; EISDIR or ENOTSUP for what isn't a regular file.
    int look(FileStat& stat, bool sync = false);
    // The same, and finds out which file it is.
    int lookAndBind(FileStat& stat, bool sync = false);
    // Binds to the file that the path has just shown, if it isn't bound. Fails: false when memory doesn't come.
    bool bind(const FileStat& stat);
    // 0 when the file isn't there.
    OsPathId id();
    unsigned long long version();

private:
    struct Text {
        Text* m_next;
        char m_text[1];
    };

    const char* keep(const char* path);
    int follow(FileIdentity& identity, int error, FileStat& stat);
    void unbind();

    std::atomic<const char*> m_path{""};
    std::atomic<FileIdentity*> m_identity{nullptr};  // counted
    ShortLock m_lock;
    Text* m_texts MO_GUARDED_BY(m_lock) = nullptr;  // texts that didn't fit the room, newest first
    char* m_room = nullptr;                         // borrowed; null once it is taken
    std::size_t m_roomSize = 0;
};
