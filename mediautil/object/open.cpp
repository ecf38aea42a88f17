#include <cstring>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "mediautil/object/suffix.h"
#include "neighbours/tl_media_obj.h"
#include "services/file/fs_file_io.h"
#include "services/file/path_parser.h"
#include "services/system/log.h"
#include "services/system/text.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"

// How movies come into being. An open is a conversation with the cache: it asks for the live object of the file, else
// claims the file so that nobody parses it twice, parses without any lock, and lets the cache decide what stands.

using Mode = BasicIOTypes::Mode;
using SizeAdvice = BasicIOTypes::SizeAdvice;

namespace {

// The path without one slash at its end; a copy is made only where there is one.
class TrimmedPath {
public:
    explicit TrimmedPath(const char* path) : m_path(path), m_copy(nullptr) {
        const std::size_t length = std::strlen(path);
        if (length == 0 || path[length - 1] != '/') return;
        m_copy = AutoArrayPtr<char>(System::copy(path));
        m_copy.get()[length - 1] = '\0';
        m_path = m_copy.get();
    }
    const char* get() const { return m_path; }

private:
    const char* m_path;
    AutoArrayPtr<char> m_copy;
};

Mode handleMode(MediaObj::ReadMode mode) {
    return mode == MediaObj::ReadMode::ReadOnly ? Mode::ReadOnly : Mode::Update;
}

// Whether the object that the cache has is what an open asks for.
bool willDo(MediaObj& object, bool hasWriters, bool fileWritable, bool force, OpResult& result) {
    if (hasWriters) return true;  // what is being written is never parsed again, whoever asks
    if (fileWritable) return false;
    if (!force) {
        AutoRefPtr<BasicFileIO> first = object.getFp(result, object.getMediaId(0), MediaAgent(nullptr));
        const bool current = first.get() != nullptr && object.getVersion() == first->getVersion();
        result.discard();
        result = OpResult(OpResult::Ok);
        if (current) return true;
    }
    return object.hasState(MediaObjStateKeep);
}

void pollForMorph(MediaObjImpl& impl) {
    ++impl.m_morphWaits;
    while (impl.isUnfinished())
        waitMsec(1);
    --impl.m_morphWaits;
}

void waitForMorph(MediaObj& object, BasicFileIO& file) {
    if (!object.impl().isUnfinished()) return;
    const bool log = mediaObjDbg.on(MediaDbg::Morph);
    const long long start = Clock::nowRelative();
    if (log) {
        debugMsg("MO::openReader(%s): wait for morph, now=%d\n", file.getPath(), object.impl().m_morphCount.getCount());
    }
    pollForMorph(object.impl());
    if (log) {
        debugMsg("MO::openReader(%s): morph wait done after %lldus\n", file.getPath(), Clock::nowRelative() - start);
    }
}

// Ends a failed try behind which another reader is asked: an error of it is not the caller's business.
void forget(OpResult& result) {
    if (result.getType() == OpResult::Type::Error) result.downgradeTo(OpResult::Type::Quiet);
    result = OpResult(OpResult::Ok);
}

// Tries every reader in the table's order.
MediaObj* probeAll(const AutoRefPtr<BasicFileIO>& file, OpResult& result) {
    const Registrar<MediaReaderDesc>& readers = MediaObjImpl::getReaderReg();
    for (unsigned i = 0; i < readers.countElem(); ++i) {
        if (readers.getElem(i).m_open == nullptr) continue;
        if (MediaObj* object = readers.getElem(i).m_open(file, result)) return object;
        forget(result);
    }
    return nullptr;
}

// Tries the readers of the types given; a type without a reader is passed over in silence. The last try's failure
// stays in the result.
MediaObj* probeTypes(const std::vector<MediaFileType>& types, const AutoRefPtr<BasicFileIO>& file, OpResult& result) {
    for (MediaFileType type : types) {
        const char* name = getMediaFileTypeMap().mapValue(type);
        MediaReaderDesc reader;
        if (name == nullptr || !MediaObjImpl::getReaderReg().lookup(name, reader) || reader.m_open == nullptr) continue;
        forget(result);
        if (MediaObj* object = reader.m_open(file, result)) return object;
    }
    return nullptr;
}

MediaObj* parse(const AutoRefPtr<BasicFileIO>& file, MediaFileType type, OpResult& result) {
    std::vector<MediaFileType> types;
    if (type == MediaFileType::Unknown) {
        types = mapSuffixToFileTypes(file->getPath());
    } else {
        types.push_back(type);
    }
    MediaObj* object = types.empty() ? probeAll(file, result) : probeTypes(types, file, result);
    if (object == nullptr) {
        // The reader's own reason goes along as the message, so that the refusal names the place in the file.
        result.discard();
        result = MO_WARNING(MediaCode::UnsupportedMediaType, result.getMessage());
    }
    return object;
}

void warnOfMissingMedia(const MediaObj& object) {
    for (unsigned i = 0; i < object.getMediaCount(); ++i) {
        const char* path = object.getPath(object.getMediaId(i));
        // The primary file's path is empty when the file has gone: it has just been looked at.
        const bool there = i == 0 ? path != nullptr && *path != '\0' : FsFileIO::exists(path);
        if (!there) warningMsg("%s missing, clip may be unusable\n", path);
    }
}

bool holdsItsMedia(const MediaObj& object) {
    return static_cast<std::uint32_t>(object.getContainment()) > static_cast<std::uint32_t>(MediaContainment::ByRef);
}

// A file with embedded media wants large stripes.
void adviseStripes(MediaObj& object) {
    MediaFileList& files = object.impl().m_fileList;
    if (holdsItsMedia(object) && files.getSizeAdvice(0) == SizeAdvice::None) files.advise(0, SizeAdvice::LargeStripe);
}

// Switched off on purpose: the advice is none on every ordinary disk, and the line would come with each new object.
constexpr bool s_warnOfStripes = false;

void examineNewObject(MediaObj& object, BasicFileIO& file) {
    if (!mediaObjDbg.on(MediaDbg::IgnoreMissingMedia)) {
        warnOfMissingMedia(object);
        adviseStripes(object);
    }
    if (s_warnOfStripes && file.getSizeAdvice(false) == SizeAdvice::None && holdsItsMedia(object)) {
        warningMsg("%s has embedded media and is not striped... playout performance may suffer.\n", file.getPath());
    }
}

// Under its switch a stand-in goes out for what is only read. Takes: the reference on `object`. Gives: one reference.
MediaObj* wrapIfAsked(MediaObj* object) {
    if (object == nullptr || !mediaObjDbg.on(MediaDbg::WrapInTlmo) || object->getMovieDesc()->isWritable())
        return object;
    const MediaVideoRate rate = object->impl().m_defaultVideoRate.load(std::memory_order_relaxed);
    MediaObj::ScopeHold standIn;
    standIn = Timeline::TlMediaObj::wrap(AutoRefPtr<MediaObj>(object, PreReferenced())).get();
    standIn->impl().m_defaultVideoRate.store(rate, std::memory_order_relaxed);
    return standIn.forget();
}

// A file that somebody else has made since it was looked for.
bool isOthers(const OpResult& result) {
    return result.getSubsystem() == mediaCoreOpSubsystem.getId() && result.getCode() == MediaCode::FileExists;
}

// Removes the file that an `openWriter` without success has made, unless another recording has it by now: `own` of the
// claims on it are that call's. Where it made a movie only an empty file goes, and one that it has claimed.
void takeBack(const char* path, unsigned own) {
    const AutoRefPtr<BasicFileIO> file(new FsFileIO("MO::opnWtr", path, BasicIOTypes::Mode::Update));
    auto& handle = static_cast<FsFileIO&>(*file);
    handle.disableLowLevelMessages();
    if (!handle.exists() || (own != 0 && handle.getLength() != 0)) return;
    FileClaim claim;
    const int error = handle.open() ? claim.take(handle) : EACCES;
    const bool isClaimable = error == 0 && claim.count() == own + 1 && handle.isAtPath();
    if (isClaimable || (error != 0 && error != EBUSY && own == 0)) FsFileIO::remove(path);
}

}  // namespace

MediaObj* MediaObj::openReader(const char* path, ReadMode mode, OpResult& result, MediaFileType type, bool force) {
    if (path == nullptr) {
        result = MO_WARNING(MediaCode::InternalError, nullptr);
        return nullptr;
    }
    AutoRefPtr<BasicFileIO> file(new FsFileIO("MO::opnRdr", TrimmedPath(path).get(), handleMode(mode)));
    return openReader(file, result, type, force);
}

MediaObj* MediaObj::openReader(OsPathId id, ReadMode mode, OpResult& result, MediaFileType type, bool force) {
    AutoRefPtr<BasicFileIO> file(new FsFileIO("MO::opnRdr", id, handleMode(mode)));
    return openReader(file, result, type, force);
}

MediaObj* MediaObj::openReader(AutoRefPtr<BasicFileIO> file, OpResult& result, MediaFileType type, bool force) {
    if (!file->exists()) {
        result = MO_WARNING(MediaCode::FileNonExistent, file->getPath());
        return nullptr;
    }
    return openReaderInt(file, type, result, force);
}

MediaObj* MediaObj::openReaderInt(AutoRefPtr<BasicFileIO> file, MediaFileType type, OpResult& result, bool force) {
    result = OpResult(OpResult::Ok);
    CachedMediaObj& cache = *CachedMediaObj::getRef();
    bool reserved = false;
    // While a file is being identified it counts as a header file.
    if (file->getSizeAdvice(true) == SizeAdvice::None) file->advise(SizeAdvice::SmallStripe);
    const bool fileWritable = file->writable();
    OsPathId id;
    for (;;) {
        id = file->getPathId();
        if (id == 0) {
            result = MO_WARNING(MediaCode::InternalError, nullptr);
            return nullptr;
        }
        bool hasWriters = false;
        MediaObj* live = cache.find(id, fileWritable, &hasWriters);
        if (live != nullptr) {
            if (willDo(*live, hasWriters, fileWritable, force, result)) {
                waitForMorph(*live, *file);
                return live;
            }
            if (mediaObjDbg.on(MediaDbg::CacheActivity))
                debugMsg("CMO::openRdr: ignore %s\n", live->toString(true).get());
            live->release();
            break;
        }
        reserved = cache.reserve(id);
        if (reserved) break;
        // Another thread is parsing this file: it will install its object or give up.
        waitMsec(1);
    }
    CachedMediaObj::AutoCancel cancel(cache, id, reserved);
    unsigned long long version = 0;
    MediaObj* object = nullptr;
    {
        const FsFileIO::SteadyFacts steady(*file);
        // Read ahead of the parse, so that a change in between is seen later.
        version = file->getVersion();
        object = parse(file, type, result);
    }
    if (object == nullptr) return nullptr;
    object->setVersion(version, false);
    MediaObj* installed = cache.replace(object, id, fileWritable, force);
    if (installed == object) examineNewObject(*object, *file);
    return wrapIfAsked(installed);
}

MediaObj* MediaObj::openWriter(const char* path, bool morph, OpResult& result, MediaContainment containment,
                               MediaFileType type, const char* style, SizeAdvice advice) {
    if (path == nullptr) {
        result = MO_WARNING(MediaCode::InternalError, nullptr);
        return nullptr;
    }
    const TrimmedPath trimmed(path);
    path = trimmed.get();
    if (type == MediaFileType::Unknown) type = mapSuffixToFileType(path);
    MediaWriterDesc desc;
    result = MediaObjImpl::lookup(type, desc, style);
    if (!result) return nullptr;
    if (desc.m_create == nullptr) {  // a format that is known and only read
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    const bool existed = FsFileIO::exists(path);
    if (!existed) PathParser(path).mkdirs(true);
    MediaObj* object = desc.m_create(path, result, containment, type, morph, advice, style);
    if (object == nullptr) {
        if (!existed && !isOthers(result)) takeBack(path, 0);
        return nullptr;
    }
    if (static_cast<std::uint32_t>(containment) > static_cast<std::uint32_t>(MediaContainment::ByRef)) {
        MediaFileList& files = object->impl().m_fileList;
        if (files.getSizeAdvice(0) == SizeAdvice::None) files.advise(0, SizeAdvice::LargeStripe);
    }
    if (morph) object->beginMorph();
    object->setRecording(true).discard();
    // What loses to another object is kept for a look at its file.
    ScopeHold made;
    made = object;
    MediaObj* const winner = CachedMediaObj::getRef()->replace(object, OsPathId(0), true, false);
    if (winner == nullptr && !existed) takeBack(path, 1);
    return winner;
}

MediaObj* MediaObj::openObj(MediaFileType type, OpResult& result) {
    MediaWriterDesc desc;
    result = MediaObjImpl::lookup(type, desc, nullptr);
    if (!result) return nullptr;
    if (desc.m_open == nullptr) {
        result = MO_WARNING(MediaCode::UnsupportedMediaType, nullptr);
        return nullptr;
    }
    MediaObj* object = desc.m_open(type, result);
    // Such an object has no files, so the file list's complaint that it has no handle is to be expected.
    if (!result && result.getSubsystem() == mediaCoreOpSubsystem.getId() &&
        result.getCode() == MediaCode::NoFileHandle) {
        result.discard();
        result = OpResult(OpResult::Ok);
    }
    // It will never be cached, so the reference set aside for the cache goes directly on the count.
    if (object != nullptr) object->getRefCount()->release();
    return object;
}

AutoArrayPtr<unsigned char> MediaObj::readRawHeader(AutoRefPtr<BasicFileIO> file, unsigned size, OpResult& result) {
    if (file.get() == nullptr || size == 0) {
        result = MO_WARNING(MediaCode::InternalError, nullptr);
        return AutoArrayPtr<unsigned char>(nullptr);
    }
    AutoArrayPtr<unsigned char> buffer(new (std::nothrow) unsigned char[size]);
    if (buffer.get() == nullptr) {
        result = MO_WARNING(MediaCode::InternalError, "no memory for the header");
        return buffer;
    }
    if (!file->open()) {
        result = MO_WARNING(MediaCode::UnknownError, nullptr);
        return AutoArrayPtr<unsigned char>(nullptr);
    }
    if (file->read(buffer.get(), size) <= 0) {
        result = MO_WARNING(MediaCode::ReadError, nullptr);
        return AutoArrayPtr<unsigned char>(nullptr);
    }
    result = OpResult(OpResult::Ok);
    return buffer;
}

MediaObj* MediaObj::getOpenObj(OsPathId id) {
    MediaObj* object = CachedMediaObj::getRef()->find(id, false, nullptr);
    if (object != nullptr && object->impl().isUnfinished()) pollForMorph(object->impl());
    return object;
}

bool MediaObj::init() { return Subsystem::Registry::initSubsystems(); }

bool MediaObj::shutdown() {
    if (CachedMediaObj::exists()) flushAll(nullptr);
    return Subsystem::Registry::shutdownSubsystems();
}
