#include "services/file/file_ref.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

FileRef::FileRef(const char* path, char* room, std::size_t roomSize) : m_room(room), m_roomSize(roomSize) {
    if (path != nullptr && *path != '\0') m_path.store(keep(path), std::memory_order_release);
}

FileRef::~FileRef() {
    unbind();
    while (m_texts != nullptr) {
        Text* const text = m_texts;
        m_texts = text->m_next;
        std::free(text);
    }
}

// A text is never moved or freed before the object goes: others may be reading it.
const char* FileRef::keep(const char* path) {
    const std::size_t size = std::strlen(path) + 1;
    ShortScope lock(m_lock);
    if (m_room != nullptr && size <= m_roomSize) {
        char* const room = m_room;
        m_room = nullptr;
        std::memcpy(room, path, size);
        return room;
    }
    Text* const text = static_cast<Text*>(std::malloc(sizeof(Text) + size));
    if (text == nullptr) return "";
    text->m_next = m_texts;
    m_texts = text;
    std::memcpy(text->m_text, path, size);
    return text->m_text;
}

void FileRef::unbind() {
    FileIdentity* const identity = m_identity.exchange(nullptr, std::memory_order_acq_rel);
    if (identity != nullptr) FileTable::release(*identity);
}

void FileRef::setPath(const char* path) {
    unbind();
    m_path.store(path != nullptr && *path != '\0' ? keep(path) : "", std::memory_order_release);
}

void FileRef::moved(const char* path) {
    if (std::strcmp(path, this->path()) != 0) m_path.store(keep(path), std::memory_order_release);
}

void FileRef::bindLike(const FileRef& other) {
    FileIdentity* const known = other.identity();
    if (known == nullptr || identity() != nullptr) return;
    FileTable::preserve(*known);
    FileIdentity* expected = nullptr;
    if (!m_identity.compare_exchange_strong(expected, known, std::memory_order_acq_rel)) FileTable::release(*known);
}

bool FileRef::bindToId(OsPathId id) {
    FileIdentity* const identity = FileTable::acquireById(id);
    if (identity == nullptr) return false;
    unbind();
    m_identity.store(identity, std::memory_order_release);
    moved(FileTable::pathOf(*identity).c_str());
    return true;
}

int FileRef::look(FileStat& stat, bool sync) {
    const char* const text = path();
    int error = *text != '\0' ? statPath(text, stat, sync) : ENOENT;
    if (error == 0 && !stat.isRegular()) error = stat.isFolder() ? EISDIR : ENOTSUP;
    FileIdentity* const identity = this->identity();
    if (identity == nullptr || (error == 0 && identity->matches(stat.m_key))) return error;
    return follow(*identity, error, stat);
}

// The path doesn't show the file that it used to: it was replaced there, or it is somewhere else, or it has gone.
int FileRef::follow(FileIdentity& identity, int error, FileStat& stat) {
    if (error == 0) {
        FileIdentity* const found = FileTable::acquire(path(), stat);
        if (found != nullptr) FileTable::release(*found);
        if (found == &identity) return 0;
        error = ENOENT;
    }
    // Only a name that shows nothing sends the search on; without the right to look, nothing is known.
    if (error != ENOENT && error != ENOTDIR && error != EISDIR && error != ENOTSUP && error != ELOOP) return error;
    std::string where;
    if (!FileTable::locate(identity, where, stat)) return error;
    moved(where.c_str());
    return 0;
}

bool FileRef::bind(const FileStat& stat) {
    if (identity() != nullptr) return true;
    FileIdentity* const found = FileTable::acquire(path(), stat);
    if (found == nullptr) return false;
    FileIdentity* expected = nullptr;
    // Another thread may have found out meanwhile; the first one's answer stands.
    if (!m_identity.compare_exchange_strong(expected, found, std::memory_order_acq_rel)) FileTable::release(*found);
    return true;
}

int FileRef::lookAndBind(FileStat& stat, bool sync) {
    const int error = look(stat, sync);
    if (error != 0) return error;
    return bind(stat) ? 0 : ENOMEM;
}

OsPathId FileRef::id() {
    FileStat stat;
    return lookAndBind(stat) == 0 ? identity()->getId() : OsPathId();
}

unsigned long long FileRef::version() {
    FileStat stat;
    return look(stat) == 0 ? stat.version() : 0;
}
