#include "services/file/fs_file_io.h"

#include <sys/xattr.h>

#include <cerrno>
#include <cstring>

#include "services/file/file_calls.h"
#include "services/file/file_messages.h"
#include "services/system/format_str.h"

namespace {

// The extended attribute that keeps the stripe hint with the file, and its values.
constexpr char adviceName[] = "user.mediacore.stripe";
constexpr char largeText[] = "large";
constexpr char smallText[] = "small";

BasicIOTypes::SizeAdvice parseAdvice(const char* text, std::size_t length) {
    const std::string_view value(text, length);
    if (value == largeText) return BasicIOTypes::SizeAdvice::LargeStripe;
    if (value == smallText) return BasicIOTypes::SizeAdvice::SmallStripe;
    return BasicIOTypes::SizeAdvice::None;
}

}  // namespace

FsFileIO::FsFileIO(const char* tag, const char* path, BasicIOTypes::Mode mode)
    : BasicFileIO(mode), m_ref(path, m_pathRoom, s_room), m_tag(tag) {}

FsFileIO::FsFileIO(const char* tag, OsPathId id, BasicIOTypes::Mode mode) : FsFileIO(tag, nullptr, mode) {
    m_ref.bindToId(id);
}

FsFileIO::~FsFileIO() {
    closeDescriptor();
    reportWrites();
}

bool FsFileIO::refuse(int error, const char* what, const char* reason) {
    setLastError(error);
    if (!m_quiet.load(std::memory_order_relaxed)) tellFailure(m_tag, getPath(), what, error, reason);
    return false;
}

bool FsFileIO::exists() {
    FileStat stat;
    const int error = m_ref.lookAndBind(stat, m_sync.exchange(false, std::memory_order_relaxed));
    m_fresh.store(error == 0, std::memory_order_relaxed);
    if (error != 0) setLastError(error);
    return error == 0;
}

bool FsFileIO::openById(OsPathId id) {
    close();
    m_fresh.store(false, std::memory_order_relaxed);
    if (m_ref.bindToId(id)) return exists();
    setLastError(ENOENT);
    return false;
}

// The look that `exists` had a moment ago will do for the id, so that an open looks at its file only once here.
OsPathId FsFileIO::getPathId() {
    if (m_fresh.exchange(false, std::memory_order_relaxed)) return m_ref.identity()->getId();
    return m_ref.id();
}

int FsFileIO::look(FileStat& stat) {
    if (m_steady == nullptr || !m_steady->m_looked) return lookAnew(stat);
    stat = m_steady->m_stat;
    return 0;
}

int FsFileIO::lookAnew(FileStat& stat) {
    const int error = m_ref.look(stat, m_sync.exchange(false, std::memory_order_relaxed));
    if (m_steady != nullptr) {
        m_steady->m_looked = error == 0;
        m_steady->m_stat = stat;
    }
    return error;
}

unsigned long long FsFileIO::getVersion() {
    FileStat stat;
    return look(stat) == 0 ? stat.version() : 0;
}

unsigned long long FsFileIO::getLength() {
    FileStat stat;
    return look(stat) == 0 ? stat.m_size : 0;
}

AutoPtr<char> FsFileIO::describe() const {
    static constexpr const char* modes[] = {"create", "update", "read"};
    const FileIdentity* const identity = m_ref.identity();
    FormatStr text("%s(%s,%s,fd=%d,id=0x%llx)", m_tag, getPath(), modes[static_cast<unsigned>(getMode()) % 3],
                   fdOf(m_slot.load(std::memory_order_relaxed)),
                   identity != nullptr ? identity->getId().getId() : 0ull);
    return text;
}

std::string FsFileIO::getAbsolutePath() const { return FileTable::absolute(getPath()); }

void FsFileIO::refresh() {
    m_fresh.store(false, std::memory_order_relaxed);
    m_sync.store(true, std::memory_order_relaxed);
}

BasicIOTypes::SizeAdvice FsFileIO::readAdvice() {
    char text[16];
    ssize_t length = -1;
    if (!FileCalls::fails(FileCall::GetAttribute, getPath()))
        length = ::getxattr(getPath(), adviceName, text, sizeof text);
    return length > 0 ? parseAdvice(text, static_cast<std::size_t>(length)) : BasicIOTypes::SizeAdvice::None;
}

BasicIOTypes::SizeAdvice FsFileIO::getSizeAdvice(bool fresh) {
    const BasicIOTypes::SizeAdvice own = m_advice.load(std::memory_order_relaxed);
    if (!fresh && own != BasicIOTypes::SizeAdvice::None) return own;
    FileStat stat;
    if (m_ref.identity() == nullptr && m_ref.lookAndBind(stat) != 0) return own;
    FileIdentity& identity = *m_ref.identity();
    std::uint32_t kept = identity.m_keptAdvice.load(std::memory_order_relaxed);
    if (kept == FileIdentity::s_unknownAdvice) {
        kept = static_cast<std::uint32_t>(readAdvice());
        identity.m_keptAdvice.store(kept, std::memory_order_relaxed);
    }
    const auto advice = static_cast<BasicIOTypes::SizeAdvice>(kept);
    return advice != BasicIOTypes::SizeAdvice::None ? advice : identity.m_saidAdvice.load(std::memory_order_relaxed);
}

void FsFileIO::advise(BasicIOTypes::SizeAdvice advice) {
    m_advice.store(advice, std::memory_order_relaxed);
    FileStat stat;
    if (m_ref.identity() != nullptr || m_ref.lookAndBind(stat) == 0) storeAdvice(advice);
    Use use(*this, Use::IfOpen);
    if (use.fd() >= 0) applyHints(use.fd());
}

// Requires: the identity is known. Writes the attribute only where it says something else, and tries it once: a file
// system without attributes doesn't get them.
void FsFileIO::storeAdvice(BasicIOTypes::SizeAdvice advice) {
    FileIdentity& identity = *m_ref.identity();
    identity.m_saidAdvice.store(advice, std::memory_order_relaxed);
    if (!writable() || advice == BasicIOTypes::SizeAdvice::None) return;
    getSizeAdvice(true);
    const std::uint32_t value = static_cast<std::uint32_t>(advice);
    if (identity.m_keptAdvice.exchange(value, std::memory_order_relaxed) == value) return;
    const char* const text = advice == BasicIOTypes::SizeAdvice::LargeStripe ? largeText : smallText;
    if (!FileCalls::fails(FileCall::SetAttribute, getPath()))
        ::setxattr(getPath(), adviceName, text, std::strlen(text), 0);
}
