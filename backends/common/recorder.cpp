#include "backends/common/recorder.h"

#include <cerrno>
#include <cstring>

#include "services/system/format_str.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"

namespace {

bool hasBytes(const MediaSampleDesc& sample) {
    for (unsigned i = 0; i < sample.m_numChunks; ++i) {
        if (sample.m_chunks[i].m_size != 0) return true;
    }
    return false;
}

// Gives: null when memory doesn't come.
phantom_OBUF* obufOf(const std::uint8_t* bytes, unsigned size) {
    phantom_OBUF* const obuf = obufAllocate(0, size);
    iovec piece{};
    if (obuf != nullptr && obufNTranslateHost(obuf, &piece, 1) == 1 && piece.iov_len >= size) {
        std::memcpy(piece.iov_base, bytes, size);
        return obuf;
    }
    obufFree(obuf);
    return nullptr;
}

OpResult occupied(const char* name, const char* path) {
    const FormatStr text("%s: %s is there already and is not overwritten", name, path);
    return MO_WARNING(MediaCode::FileExists, text.get());
}

constexpr unsigned s_attempts = 3;  // at a file that others take away

FsFileIO* asFsFile(const AutoRefPtr<BasicFileIO>& file) { return dynamic_cast<FsFileIO*>(file.get()); }

// Opens an empty file, made if there is none, and claims it. Gives: the handle with the claim, or null with the reason.
AutoRefPtr<BasicFileIO> takeFile(const char* name, const char* path, OpResult& result) {
    using Handle = AutoRefPtr<BasicFileIO>;
    const Handle file(new FsFileIO("recorder", path, BasicIOTypes::Mode::Create));
    if (file->exists() && file->getLength() != 0) {
        result = occupied(name, path);
        return Handle();
    }
    const bool isOpen = file->open();
    if (isOpen && !asFsFile(file)->claim() && file->getLastError() == EBUSY) {
        const FormatStr text("%s: %s is being recorded by another process", name, path);
        result = MO_WARNING(MediaCode::FileExists, text.get());
        return Handle();
    }
    if (!isOpen || !asFsFile(file)->hasClaim()) {
        const FormatStr text("%s: %s can't be written: %s", name, path, std::strerror(file->getLastError()));
        result = MO_WARNING(MediaCode::FileNotWritable, text.get());
        return Handle();
    }
    if (file->getLength() != 0) {  // somebody else was quicker
        result = occupied(name, path);
        return Handle();
    }
    return file;
}

}  // namespace

AutoRefPtr<BasicFileIO> Recorder::createFile(const char* name, const char* path, MediaContainment containment,
                                             BasicIOTypes::SizeAdvice advice, OpResult& result) {
    using Handle = AutoRefPtr<BasicFileIO>;
    if (containment == MediaContainment::ByRef || containment == MediaContainment::Mixed) {
        const FormatStr text("%s: the file holds its samples itself", name);
        result = MO_WARNING(MediaCode::OperationUnsupported, text.get());
        return Handle();
    }
    Handle file = takeFile(name, path, result);
    // Somebody may have removed it before it was claimed.
    for (unsigned i = 1; i < s_attempts && file && !asFsFile(file)->isAtPath(); ++i)
        file = takeFile(name, path, result);
    if (!file) return file;
    const bool isUnset = advice == BasicIOTypes::SizeAdvice::None;
    file->advise(isUnset ? BasicIOTypes::SizeAdvice::LargeStripe : advice);
    result = OpResult(OpResult::Ok);
    return file;
}

Recorder::Recorder(const char* name, AutoRefPtr<BasicFileIO> file) : m_name(name) {
    Scope lock(m_mutex);
    useHandle(file);
    // The handle may outlive the recording, as a reader's.
    if (m_file != nullptr) m_file->handClaimTo(m_claim);
}

Recorder::~Recorder() = default;

std::shared_ptr<RecordedEssence> Recorder::begin(unsigned track, std::uint64_t start, OpResult& result) {
    Scope lock(m_mutex);
    // A program that asks for no claim may have written to it.
    const bool isTaken = m_essence == nullptr && m_file != nullptr && m_file->getLength() != 0;
    result = isTaken ? occupied(m_name, m_file->getPath()) : OpResult(OpResult::Ok);
    if (isTaken) return nullptr;
    m_essence = std::make_shared<RecordedEssence>(track, start);
    m_essence->useHandle(m_handle);
    return m_essence;
}

void Recorder::useHandle(const AutoRefPtr<BasicFileIO>& handle) {
    if (m_handle.get() == handle.get()) return;
    m_handle = handle;
    m_file = dynamic_cast<FsFileIO*>(handle.get());
    if (m_essence != nullptr) m_essence->useHandle(handle);
}

OpResult Recorder::failed(const char* what) const {
    const FormatStr text("%s: %s", m_name, what);
    return MO_WARNING(MediaCode::WriteError, text.get());
}

OpResult Recorder::write(MediaObj& movie, const MediaSampleInMovie& sample, const MediaIoBuf& buf) {
    OpResult result = movie.MediaObj::vsWrite(sample, buf);
    if (m_essence == nullptr) return result;
    Scope lock(m_mutex);
    if (!result) return lose(result);
    m_essence->noteWritten(sample);
    return keepUpNow(Moment::Written);
}

// Somebody may have closed the handle in between: the list then makes another.
void Recorder::useHandleOf(MediaObj& movie, const MediaSampleInMovie& sample) {
    OpResult result(OpResult::Ok);
    const AutoRefPtr<BasicFileIO> handle = movie.getFp(result, sample.m_mediaId, true, sample.m_agent);
    result.discard();
    Scope lock(m_mutex);
    if (handle) useHandle(handle);
}

OpResult Recorder::write(MediaObj& movie, const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    if (m_essence == nullptr) return movie.MediaObj::vaWrite(sample, obuf);
    const unsigned bytes = obufSize(obuf);
    useHandleOf(movie, sample);
    // Without the lock: a check of the samples may ask the cache, which may be ending this recording. What another
    // thread puts beside the essence meanwhile speaks of less than there is.
    OpResult result = movie.MediaObj::vaWrite(sample, obuf);
    Scope lock(m_mutex);
    if (!result) return lose(result);
    if (bytes == 0 && !hasBytes(sample)) return result;  // nothing was handed over
    m_essence->noteHanded(sample, bytes);
    return keepUpNow(Moment::Written);
}

// What was under way with a write that failed is lost as well. The record and the file then say what there is.
OpResult Recorder::lose(OpResult result) {
    if (result.getCode() != MediaCode::WriteError || m_file == nullptr) return result;
    m_file->drain();
    m_essence->noteFailure();
    keepUp(m_essence->getWrittenEnd(), Moment::Loss).discard();
    return result;
}

OpResult Recorder::keepUpNow(Moment moment) {
    const bool isWriting = m_essence->isWriting();
    return keepUp(isWriting ? m_essence->getHandedEnd() : m_essence->getWrittenEnd(), moment);
}

OpResult Recorder::keepUp(std::uint64_t, Moment) { return OpResult(OpResult::Ok); }

OpResult Recorder::put(std::uint64_t offset, const std::uint8_t* bytes, unsigned size) {
    if (m_file == nullptr) return failed("the file is closed");
    if (m_essence->isWriting()) return putHanded(offset, bytes, size);
    if (m_file->writeAt(offset, bytes, size) != static_cast<int>(size)) return failed("the header can't be written");
    return OpResult(OpResult::Ok);
}

bool Recorder::get(std::uint64_t offset, std::uint8_t* bytes, unsigned size) {
    return m_file != nullptr && m_file->readAt(offset, bytes, size) == static_cast<int>(size);
}

OpResult Recorder::putHanded(std::uint64_t offset, const std::uint8_t* bytes, unsigned size) {
    phantom_OBUF* const obuf = obufOf(bytes, size);
    if (obuf == nullptr) return failed("no memory for the header");
    if (!m_file->writeAsync(offset, obuf)) return lose(failed("the header can't be written"));
    m_essence->noteHandedHeader();
    return OpResult(OpResult::Ok);
}

OpResult Recorder::update() {
    Scope lock(m_mutex);
    return m_essence != nullptr && m_file != nullptr ? keepUpNow(Moment::Flush) : OpResult(OpResult::Ok);
}

OpResult Recorder::finish() {
    Scope lock(m_mutex);
    if (m_essence == nullptr || m_file == nullptr) return OpResult(OpResult::Ok);
    const bool good = m_file->drain();
    if (!good) m_essence->noteFailure();
    OpResult result = keepUp(m_essence->getWrittenEnd(), Moment::End);
    if (good || !result) return result;
    return failed("samples handed over for writing were lost");
}

void Recorder::end() {
    finish().discard();
    Scope lock(m_mutex);
    useHandle(AutoRefPtr<BasicFileIO>());
    m_claim.release();
}
