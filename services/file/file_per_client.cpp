#include "services/file/file_per_client.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "services/file/file_cache_stat.h"
#include "services/file/file_calls.h"
#include "services/file/file_messages.h"

namespace {

constexpr char readTag[] = "FilePerClient read";
constexpr char writeTag[] = "FilePerClient write";

FsFileIO* asFsFile(const AutoRefPtr<BasicFileIO>& fp) { return dynamic_cast<FsFileIO*>(fp.get()); }

unsigned clampTo32(unsigned long long value) {
    return static_cast<unsigned>(std::min<unsigned long long>(value, UINT_MAX));
}

const char* reasonFor(int error) {
    switch (error) {
        case EEXIST:
            return "the new name is taken";
        case EXDEV:
            return "the new name is on another file system";
        case EACCES:
        case EPERM:
            return "no permission";
        default:
            return nullptr;
    }
}

}  // namespace

FilePerClient::~FilePerClient() { close(nullptr, nullptr); }

void FilePerClient::setPath(const char* path) {
    m_ref.setPath(path);
    m_advice.store(BasicIOTypes::SizeAdvice::None, std::memory_order_relaxed);
    m_readOnly.store(false, std::memory_order_relaxed);
}

OsPathId FilePerClient::getPathId() const { return m_ref.id(); }

bool FilePerClient::exists() const {
    FileStat stat;
    return m_ref.lookAndBind(stat) == 0;
}

unsigned long long FilePerClient::getFileSize() const {
    FileStat stat;
    return m_ref.look(stat) == 0 ? stat.m_size : 0;
}

unsigned long long FilePerClient::getVersion() const { return m_ref.version(); }

void FilePerClient::setFp(AutoRefPtr<BasicFileIO> fp, FileIoClientRec* client) {
    if (!fp) return;
    FsFileIO* const file = asFsFile(fp);
    if (!m_ref.hasPath()) m_ref.setPath(fp->getPath());
    if (file != nullptr && std::strcmp(file->getPath(), getPath()) == 0) m_ref.bindLike(file->getRef());
    Handle replacedRead;
    Handle replacedWrite;
    Scope lock(m_lock);
    replacedRead = takeRead(client);
    installRead(fp, client);
    if (client == nullptr && fp->writable()) {
        replacedWrite = m_write;
        m_write = fp;
    }
    lock.unlock();
}

FilePerClient::Handle FilePerClient::findRead(FileIoClientRec* client) const {
    if (client == nullptr) return m_nullRead;
    for (const Client& entry : m_clients) {
        if (entry.m_client == client) return entry.m_fp;
    }
    return Handle();
}

void FilePerClient::installRead(const Handle& fp, FileIoClientRec* client) {
    if (client == nullptr) {
        m_nullRead = fp;
    } else {
        m_clients.push_back({client, fp});
    }
}

FilePerClient::Handle FilePerClient::takeRead(FileIoClientRec* client) {
    Handle taken = findRead(client);
    if (client == nullptr) {
        m_nullRead = Handle();
    } else {
        std::erase_if(m_clients, [client](const Client& entry) { return entry.m_client == client; });
    }
    return taken;
}

// The handle whose file the others read as well: the first one that has it open.
FsFileIO* FilePerClient::pattern() const {
    for (const Handle* fp : {&m_nullRead, &m_write}) {
        FsFileIO* const file = asFsFile(*fp);
        if (file != nullptr && file->isOpen()) return file;
    }
    for (const Client& entry : m_clients) {
        FsFileIO* const file = asFsFile(entry.m_fp);
        if (file != nullptr && file->isOpen()) return file;
    }
    return nullptr;
}

FilePerClient::Handle FilePerClient::make(const char* tag, BasicIOTypes::Mode mode) {
    if (!m_ref.hasPath()) return Handle();
    FsFileIO* const file = new FsFileIO(tag, getPath(), mode);
    if (file == nullptr) return Handle();
    Handle fp(file);
    file->bindLike(m_ref);
    if (m_quiet.load(std::memory_order_relaxed)) file->disableLowLevelMessages();
    file->advise(m_cacheAdvice.load(std::memory_order_relaxed));
    return fp;
}

bool FilePerClient::openReader(FsFileIO& fp, FileIoClientRec* client) {
    FsFileIO* const held = pattern();
    if (held != nullptr) return fp.openLike(*held);
    return client == nullptr || fp.open();
}

AutoRefPtr<BasicFileIO> FilePerClient::getReadFp(FileIoClientRec* client) {
    Scope lock(m_lock);
    Handle fp = findRead(client);
    if (fp) return fp;
    fp = make(readTag, BasicIOTypes::Mode::ReadOnly);
    if (!fp || !openReader(*asFsFile(fp), client)) return Handle();
    m_ref.bindLike(asFsFile(fp)->getRef());
    installRead(fp, client);
    return fp;
}

AutoRefPtr<BasicFileIO> FilePerClient::getWriteFp() {
    Scope lock(m_lock);
    if (m_write) return m_write;
    if (m_readOnly.load(std::memory_order_relaxed)) return Handle();
    Handle fp = make(writeTag, BasicIOTypes::Mode::Create);
    if (!fp) return fp;
    const BasicIOTypes::SizeAdvice advice = m_advice.load(std::memory_order_relaxed);
    if (advice != BasicIOTypes::SizeAdvice::None) fp->advise(advice);
    if (!fp->open()) return Handle();
    m_ref.bindLike(asFsFile(fp)->getRef());
    m_write = fp;
    return fp;
}

// Others may hold the handles still, so they aren't closed but let go of: the last one to do so closes the descriptor.
bool FilePerClient::close(FileIoClientRec* client, ZarnexPosix::JMutex* mutex) MO_NO_THREAD_SAFETY_ANALYSIS {
    Scope lock(m_lock);
    const Handle read = takeRead(client);
    const Handle write = client == nullptr ? m_write : Handle();
    if (client == nullptr) m_write = Handle();
    lock.unlock();
    if (!write) return true;
    FsFileIO* const file = asFsFile(write);
    if (file == nullptr) return write->flush();
    const bool waits = mutex != nullptr && file->getPendingBytes() > 0;
    if (waits) mutex->unlock();
    const bool written = file->drain();
    if (waits) mutex->lock();
    return written;
}

bool FilePerClient::openNow(const Handle& fp) {
    if (!fp) return false;
    const FsFileIO* const file = asFsFile(fp);
    // Other kinds of handles are installed open.
    return file == nullptr || file->isOpen();
}

bool FilePerClient::isOpen(FileIoClientRec* client, bool writable) const {
    Scope lock(m_lock);
    return openNow(writable ? m_write : findRead(client));
}

bool FilePerClient::hasClient() const {
    Scope lock(m_lock);
    return !m_clients.empty();
}

unsigned FilePerClient::getNumOpenFiles(FileIoClientRec* client) const {
    Scope lock(m_lock);
    const Handle read = findRead(client);
    unsigned count = openNow(read) ? 1 : 0;
    if (client == nullptr && m_write.get() != read.get() && openNow(m_write)) ++count;
    return count;
}

bool FilePerClient::tryAddOpen(std::vector<OpenHandles>& clients) const {
    if (!m_lock.trylock()) return false;
    const auto add = [&clients](const FileIoClientRec* client, const Handle& fp) {
        if (!openNow(fp)) return;
        const auto known = std::find_if(clients.begin(), clients.end(),
                                        [client](const OpenHandles& one) { return one.m_client == client; });
        if (known != clients.end())
            ++known->m_count;
        else
            clients.push_back({client, 1});
    };
    add(nullptr, m_nullRead);
    if (m_write.get() != m_nullRead.get()) add(nullptr, m_write);
    for (const Client& entry : m_clients)
        add(entry.m_client, entry.m_fp);
    m_lock.unlock();
    return true;
}

bool FilePerClient::sameFile(const FilePerClient& other) const {
    if (m_ref.identity() != nullptr && m_ref.identity() == other.m_ref.identity()) return true;
    const OsPathId id = getPathId();
    // Where nothing is at the path any more, as while somebody moves it, what is open by that path is that file.
    return id != 0 ? id == other.getPathId() : std::strcmp(getPath(), other.getPath()) == 0;
}

bool FilePerClient::inheritFileHandles(const FilePerClient& other) {
    if (&other == this || !sameFile(other)) return false;
    Handle read;
    Handle write;
    std::vector<Client> clients;
    {
        Scope lock(other.m_lock);
        read = other.m_nullRead;
        write = other.m_write;
        clients.swap(other.m_clients);
        other.m_nullRead = Handle();
        other.m_write = Handle();
    }
    // One lock after the other, so that two lists never wait for each other.
    Scope lock(m_lock);
    if (!m_nullRead) m_nullRead = read;
    if (!m_write) m_write = write;
    for (const Client& entry : clients) {
        if (!findRead(entry.m_client)) m_clients.push_back(entry);
    }
    lock.unlock();
    return true;
}

std::vector<FilePerClient::Handle> FilePerClient::allHandles() const {
    Scope lock(m_lock);
    std::vector<Handle> list;
    if (m_nullRead) list.push_back(m_nullRead);
    if (m_write && m_write.get() != m_nullRead.get()) list.push_back(m_write);
    for (const Client& entry : m_clients)
        list.push_back(entry.m_fp);
    return list;
}

bool FilePerClient::remove() {
    FileStat stat;
    int error = m_ref.lookAndBind(stat);
    if (error == 0 && FileCalls::unlink(getPath()) == 0) return true;
    if (error == 0) error = errno;
    if (!m_quiet.load(std::memory_order_relaxed)) tellFailure("FilePerClient", getPath(), "remove", error);
    return false;
}

bool FilePerClient::rename(const char* path) {
    FileStat stat;
    int error = path == nullptr || *path == '\0' ? EINVAL : m_ref.lookAndBind(stat);
    const std::string from = getPath();
    // A file that is at its new name already is where it should be.
    if (error == 0 && FileTable::absolute(from.c_str()) != FileTable::absolute(path) &&
        FileCalls::rename(from.c_str(), path) != 0) {
        error = errno;
    }
    if (error != 0) {
        const std::string what = std::string("rename to ") + (path != nullptr ? path : "nothing") + " the file";
        if (!m_quiet.load(std::memory_order_relaxed))
            tellFailure("FilePerClient", from.c_str(), what.c_str(), error, reasonFor(error));
        return false;
    }
    FileTable::renamed(*m_ref.identity(), from.c_str(), path);
    m_ref.moved(path);
    for (const Handle& fp : allHandles()) {
        FsFileIO* const file = asFsFile(fp);
        if (file != nullptr) file->renamed(path);
    }
    return true;
}

bool FilePerClient::getProtection(bool& isProtected) const {
    FileStat stat;
    if (m_ref.look(stat) != 0) return false;
    constexpr unsigned anyWrite = 0222;
    std::string folder = FileTable::absolute(getPath());
    folder.resize(std::max<std::size_t>(folder.rfind('/'), 1));
    const bool folderOpen = ::eaccess(folder.c_str(), W_OK | X_OK) == 0;
    if (!folderOpen && errno != EACCES && errno != EPERM && errno != EROFS) return false;
    isProtected = stat.m_undeletable || (stat.m_mode & anyWrite) == 0 || !folderOpen;
    return true;
}

void FilePerClient::setReadOnly() {
    m_readOnly.store(true, std::memory_order_relaxed);
    Handle write;
    {
        Scope lock(m_lock);
        write = m_write;
        m_write = Handle();
    }
    FsFileIO* const file = asFsFile(write);
    if (file != nullptr) file->drain();
    if (write) write->setMode(BasicIOTypes::Mode::ReadOnly);
}

void FilePerClient::disableLowLevelMessages() {
    m_quiet.store(true, std::memory_order_relaxed);
    for (const Handle& fp : allHandles()) {
        FsFileIO* const file = asFsFile(fp);
        if (file != nullptr) file->disableLowLevelMessages();
    }
}

// Some handle that has the file open.
FilePerClient::Handle FilePerClient::anyOpen() const {
    Scope lock(m_lock);
    return Handle(pattern());
}

void FilePerClient::purge() {
    Handle fp = anyOpen();
    // Without one, a handle is opened for this alone.
    if (!fp && exists()) {
        Scope lock(m_lock);
        fp = make(readTag, BasicIOTypes::Mode::ReadOnly);
        if (fp && !fp->open()) return;
    }
    FsFileIO* const file = asFsFile(fp);
    if (file != nullptr) file->dropCached();
}

bool FilePerClient::flush() {
    Handle write;
    {
        Scope lock(m_lock);
        write = m_write;
    }
    return !write || write->flush();
}

void FilePerClient::advise(BasicIOTypes::SizeAdvice advice) {
    m_advice.store(advice, std::memory_order_relaxed);
    for (const Handle& fp : allHandles())
        fp->advise(advice);
}

void FilePerClient::advise(BasicIOTypes::CacheAdvice advice) {
    m_cacheAdvice.store(advice, std::memory_order_relaxed);
    for (const Handle& fp : allHandles()) {
        FsFileIO* const file = asFsFile(fp);
        if (file != nullptr) file->advise(advice);
    }
}

BasicIOTypes::SizeAdvice FilePerClient::getSizeAdvice() const {
    const BasicIOTypes::SizeAdvice own = m_advice.load(std::memory_order_relaxed);
    if (own != BasicIOTypes::SizeAdvice::None) return own;
    Scope lock(m_lock);
    const Handle fp = m_nullRead ? m_nullRead : m_write;
    return fp ? fp->getSizeAdvice(false) : own;
}

// The handle that the statistics speak of, if it has the file open.
FilePerClient::Handle FilePerClient::findOpenFor(FileIoClientRec* client, bool writable) const {
    Scope lock(m_lock);
    const Handle fp = writable ? m_write : findRead(client);
    return openNow(fp) ? fp : Handle();
}

unsigned FilePerClient::getDirtyOccupancy() const {
    const Handle fp = findOpenFor(nullptr, true);
    FsFileIO* const file = asFsFile(fp);
    return file != nullptr ? clampTo32(file->getPendingBytes() + file->getDirtyBytes()) : 0;
}

unsigned FilePerClient::getTotalOccupancy(FileIoClientRec* client, bool writable) const {
    const Handle fp = findOpenFor(client, writable);
    FsFileIO* const file = asFsFile(fp);
    return file != nullptr ? clampTo32(file->getCachedBytes()) : 0;
}

unsigned FilePerClient::getMaxCacheSize(FileIoClientRec* client, bool writable) const {
    const Handle fp = findOpenFor(client, writable);
    FsFileIO* const file = asFsFile(fp);
    FileStat stat;
    if (file == nullptr || !file->statOpen(stat)) return 0;
    return clampTo32((stat.m_size + pageBytes() - 1) / pageBytes() * pageBytes());
}
