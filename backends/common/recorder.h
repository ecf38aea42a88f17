#pragma once

#include <memory>

#include "backends/common/recorded_essence.h"
#include "services/buffer/obuf.h"
#include "services/file/file_claim.h"
#include "services/file/fs_file_io.h"
#include "services/system/locks.h"
#include "shared/include/object/media_obj.h"
#include "support/op_result.h"

struct MediaSampleInMovie;

// The write side of a movie that is being recorded: every write passes through here and is entered in the record of
// the essence, and what the format keeps up to date beside the essence is written in its turn.
// **Threads:** any; writes belong to one thread at a time. **Locks:** m_mutex, across each step that writes beside the
// essence; below it are those of the file list, the handle and the essence. **Owns:** a reference to the write handle,
// and the claim on the file.
class Recorder {
public:
    // `name` begins the sentences of failures and lives for ever. Requires: an open handle that may write.
    Recorder(const char* name, AutoRefPtr<BasicFileIO> file);
    virtual ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Makes or takes the file that is to be recorded: one that isn't there, or is empty. Gives: an open handle that has
    // claimed the file. Fails: null; warning 7 when something stands there or another process is recording it, 5 when
    // it can't be opened for writing, 17 for essence that is to lie elsewhere.
    static AutoRefPtr<BasicFileIO> createFile(const char* name, const char* path, MediaContainment containment,
                                              BasicIOTypes::SizeAdvice advice, OpResult& result);

    // The essence begins at `start`. Gives: its record. Fails: null; warning 7 when somebody else has written to the
    // file since it was taken. Thread: as the writes, before the first of them.
    std::shared_ptr<RecordedEssence> begin(unsigned track, std::uint64_t start, OpResult& result) MO_EXCLUDES(m_mutex);
    // The movie's own roads of a write, with the record kept. Fail: as these, and warning 12 when what goes beside the
    // essence can't be written.
    OpResult write(MediaObj& movie, const MediaSampleInMovie& sample, const MediaIoBuf& buf) MO_EXCLUDES(m_mutex);
    OpResult write(MediaObj& movie, const MediaSampleInMovie& sample, phantom_OBUF* obuf) MO_EXCLUDES(m_mutex);
    // Brings the file up to date behind what has been handed over, without waiting.
    OpResult update() MO_EXCLUDES(m_mutex);
    // Waits: for what is under way, and leaves the file as it is to stay. Fails: warning 12 when a write failed.
    OpResult finish() MO_EXCLUDES(m_mutex);
    // The same, for good: no write comes any more.
    void end() MO_EXCLUDES(m_mutex);

protected:
    // When what stands beside the essence is looked at: behind a write, at a flush, behind writes that were lost, and
    // at the end, when it stays so.
    enum class Moment : std::uint32_t { Written = 0, Flush = 1, Loss = 2, End = 3 };
    // So much of the essence, from its start to `end`, is in the file or will be before what is put now.
    virtual OpResult keepUp(std::uint64_t end, Moment moment) MO_REQUIRES(m_mutex);
    // Writes beside the essence, behind what is under way.
    OpResult put(std::uint64_t offset, const std::uint8_t* bytes, unsigned size) MO_REQUIRES(m_mutex);
    // Reads what has been written beside the essence. Requires: nothing under way. Fails: false when it isn't all
    // there.
    bool get(std::uint64_t offset, std::uint8_t* bytes, unsigned size) MO_REQUIRES(m_mutex);

    OpResult failed(const char* what) const;

    const char* const m_name;
    ZarnexPosix::JMutex m_mutex;

private:
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    void useHandle(const AutoRefPtr<BasicFileIO>& handle) MO_REQUIRES(m_mutex);
    void useHandleOf(MediaObj& movie, const MediaSampleInMovie& sample) MO_EXCLUDES(m_mutex);
    OpResult keepUpNow(Moment moment) MO_REQUIRES(m_mutex);
    OpResult lose(OpResult result) MO_REQUIRES(m_mutex);
    OpResult putHanded(std::uint64_t offset, const std::uint8_t* bytes, unsigned size) MO_REQUIRES(m_mutex);

    AutoRefPtr<BasicFileIO> m_handle MO_GUARDED_BY(m_mutex);  // null once it has ended
    FsFileIO* m_file MO_GUARDED_BY(m_mutex) = nullptr;        // the same
    FileClaim m_claim MO_GUARDED_BY(m_mutex);                 // until then
    std::shared_ptr<RecordedEssence> m_essence;               // set once, before the first write
};
