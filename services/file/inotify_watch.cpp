#include "services/file/inotify_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "services/file/file_calls.h"

namespace {

constexpr unsigned fileMask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVE_SELF | IN_DELETE_SELF;
constexpr unsigned folderMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;

int addWatch(int fd, const char* path, unsigned mask, int& error) {
    const int wd = FileCalls::fails(FileCall::Watch, path) ? -1 : ::inotify_add_watch(fd, path, mask);
    error = wd < 0 ? errno : 0;
    return wd;
}

}  // namespace

struct InotifyWatch::Folder {
    int m_wd = -1;
    unsigned m_users = 0;
    bool m_stale = false;  // moved or gone: it is no longer what its path shows
    std::vector<std::string> m_paths;
    std::unordered_multimap<std::string, Target*> m_names;
};

InotifyWatch::~InotifyWatch() { close(); }

int InotifyWatch::open() {
    if (m_fd >= 0) return 0;
    m_fd = FileCalls::fails(FileCall::Watch, "") ? -1 : ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return m_fd >= 0 ? 0 : errno;
}

void InotifyWatch::close() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    m_files.clear();
    for (const auto& [wd, folder] : m_folders)
        delete folder;
    m_folders.clear();
    m_byPath.clear();
}

int InotifyWatch::watch(Target& target, const std::string& path) {
    int error = 0;
    const int wd = addWatch(m_fd, path.c_str(), fileMask, error);
    if (wd != target.m_wd) {
        dropFile(target);
        target.m_wd = wd;
        if (wd >= 0) m_files.emplace(wd, &target);
    }
    const int folderError = watchFolder(target, path);
    return error != 0 ? error : folderError;
}

int InotifyWatch::watchFolder(Target& target, const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ENOENT;
    return joinFolder(target, slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1));
}

void InotifyWatch::unwatch(Target& target) {
    dropFile(target);
    leaveFolder(target);
}

bool InotifyWatch::isComplete(const Target& target) {
    return target.m_wd >= 0 && target.m_folder != nullptr && !target.m_folder->m_stale;
}

void InotifyWatch::dropFile(Target& target) {
    if (target.m_wd < 0) return;
    const auto range = m_files.equal_range(target.m_wd);
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second != &target) continue;
        m_files.erase(it);
        break;
    }
    if (m_files.count(target.m_wd) == 0) ::inotify_rm_watch(m_fd, target.m_wd);
    target.m_wd = -1;
}

void InotifyWatch::leaveFolder(Target& target) {
    Folder* const folder = target.m_folder;
    if (folder == nullptr) return;
    const auto range = folder->m_names.equal_range(target.m_name);
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second != &target) continue;
        folder->m_names.erase(it);
        break;
    }
    target.m_folder = nullptr;
    if (--folder->m_users > 0) return;
    if (!folder->m_stale) {
        ::inotify_rm_watch(m_fd, folder->m_wd);
        forgetFolder(*folder);
    }
    delete folder;
}

int InotifyWatch::joinFolder(Target& target, const std::string& path, const std::string& name) {
    int error = 0;
    Folder* const folder = findFolder(path, error);
    if (folder == nullptr) {
        leaveFolder(target);
        return error;
    }
    if (folder == target.m_folder && name == target.m_name) return 0;
    ++folder->m_users;
    leaveFolder(target);
    target.m_folder = folder;
    target.m_name = name;
    folder->m_names.emplace(name, &target);
    return 0;
}

InotifyWatch::Folder* InotifyWatch::findFolder(const std::string& path, int& error) {
    const auto known = m_byPath.find(path);
    if (known != m_byPath.end()) return known->second;
    const int wd = addWatch(m_fd, path.c_str(), folderMask, error);
    if (wd < 0) return nullptr;
    Folder*& folder = m_folders[wd];
    if (folder == nullptr) {
        folder = new Folder;
        folder->m_wd = wd;
    }
    folder->m_paths.push_back(path);
    m_byPath[path] = folder;
    return folder;
}

void InotifyWatch::forgetFolder(Folder& folder) {
    for (const std::string& path : folder.m_paths)
        m_byPath.erase(path);
    m_folders.erase(folder.m_wd);
    folder.m_stale = true;
}

void InotifyWatch::readEvents(Sink& sink) {
    alignas(inotify_event) char buffer[16384];
    for (;;) {
        const ssize_t length = ::read(m_fd, buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return;
        for (ssize_t at = 0; at < length;) {
            inotify_event event;
            std::memcpy(&event, buffer + at, sizeof event);
            const char* const name = event.len > 0 ? buffer + at + sizeof event : "";
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_Q_OVERFLOW) != 0) {
                sink.lost();
                continue;
            }
            const auto folder = m_folders.find(event.wd);
            if (folder != m_folders.end()) {
                folderEvent(*folder->second, event.mask, name, sink);
            } else {
                fileEvent(event.wd, event.mask, sink);
            }
        }
    }
}

void InotifyWatch::fileEvent(int wd, unsigned mask, Sink& sink) {
    const auto range = m_files.equal_range(wd);
    for (auto it = range.first; it != range.second; ++it) {
        if ((mask & IN_IGNORED) != 0) it->second->m_wd = -1;
        sink.noticed(*it->second);
    }
    if ((mask & IN_IGNORED) != 0) m_files.erase(wd);
}

void InotifyWatch::folderEvent(Folder& folder, unsigned mask, const char* name, Sink& sink) {
    if ((mask & (IN_MOVE_SELF | IN_DELETE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
        for (const auto& [text, target] : folder.m_names)
            sink.noticed(*target);
        if ((mask & IN_IGNORED) == 0) ::inotify_rm_watch(m_fd, folder.m_wd);
        forgetFolder(folder);
        return;
    }
    const auto range = folder.m_names.equal_range(name);
    for (auto it = range.first; it != range.second; ++it)
        sink.noticed(*it->second);
}
