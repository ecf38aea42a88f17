#pragma once

#include <cstdint>
#include <vector>

#include "backends/common/written_runs.h"
#include "services/file/fs_file_io.h"
#include "services/system/short_lock.h"
#include "shared/include/index/essence_tracker.h"
#include "support/auto_ptr.h"

// What of a recorded clip is in its file already. The recorder reports samples that it enters, writes and hands to the
// handle for writing; a reader asks, on any thread. The tracker tells of the latest runs of samples, rewritten ones
// included, but only of so many; the bytes tell of all.
// Handed-over writes end in the order of the calls, so the handle's count of those that went well says which have.
// **Threads:** the recorder's operations belong to one thread at a time. **Locks:** m_lock, a leaf, for the tracker and
// all else here. **Owns:** a reference to the handle. **Units:** bytes from the file's start.
class RecordedEssence {
public:
    // The first sample lies at `start`.
    RecordedEssence(unsigned track, std::uint64_t start) : m_tracker(track, true), m_written(start), m_handed(start) {}

    // Samples have been entered; the index ended at `endBefore`, and what lies between is a hole of zeros.
    void noteAdded(const MediaRecordReq& req, const MediaSampleDesc& desc, std::uint64_t endBefore) MO_EXCLUDES(m_lock);
    // Their bytes have been written.
    void noteWritten(const MediaSampleDesc& desc) MO_EXCLUDES(m_lock);
    // The handle that writes are handed to from now on. Requires: one before it has nothing under way any more.
    void useHandle(const AutoRefPtr<BasicFileIO>& handle) MO_EXCLUDES(m_lock);
    // So many bytes for the description's first chunk have been handed over, or a header behind what has been.
    void noteHanded(const MediaSampleDesc& desc, unsigned bytes) MO_EXCLUDES(m_lock);
    void noteHandedHeader() MO_EXCLUDES(m_lock);
    // A write has failed: what isn't written now never will be. Requires: a handle that has nothing under way.
    void noteFailure() MO_EXCLUDES(m_lock);

    // All bytes before this place are in the file.
    std::uint64_t getWrittenEnd() MO_EXCLUDES(m_lock);
    // They are, or will be when what has been handed over so far has been written.
    std::uint64_t getHandedEnd() MO_EXCLUDES(m_lock);
    // True while the handle has some of it still to write.
    bool isWriting() MO_EXCLUDES(m_lock);

    // Whether all bytes of a sample are in the file, and no newer ones are on their way to its place.
    bool isAvailable(const MediaSampleDesc& desc) MO_EXCLUDES(m_lock);
    // The same of bytes alone.
    bool isWritten(const MediaSampleDesc& desc) MO_EXCLUDES(m_lock);

private:
    struct Run {
        std::uint64_t m_from = 0;
        std::uint64_t m_to = 0;
    };
    // A write in the handle's hands; a header has no bytes here.
    struct Handed {
        Run m_run;
        unsigned long long m_sample = 0;
        unsigned m_count = 0;
    };

    // First in, first out, in memory that is kept: a steady stream of writes takes none.
    class HandedQueue {
    public:
        bool empty() const { return m_first == m_all.size(); }
        const Handed& front() const { return m_all[m_first]; }
        void push(const Handed& handed);
        void pop();
        void clear();

    private:
        std::vector<Handed> m_all;
        std::size_t m_first = 0;  // those before it have been popped
    };

    void settle() MO_REQUIRES(m_lock);
    void lose() MO_REQUIRES(m_lock);
    void push(const Handed& handed) MO_REQUIRES(m_lock);
    Run withHole(std::uint64_t offset, std::uint64_t bytes) const MO_REQUIRES(m_lock);
    bool hasBytes(const MediaSampleDesc& desc) const MO_REQUIRES(m_lock);

    ShortLock m_lock;
    EssenceTracker m_tracker MO_GUARDED_BY(m_lock);
    WrittenRuns m_written MO_GUARDED_BY(m_lock);
    WrittenRuns m_handed MO_GUARDED_BY(m_lock);                 // with what has been written
    std::vector<Run> m_holes MO_GUARDED_BY(m_lock);             // in order; each is there with the block behind it
    HandedQueue m_queue MO_GUARDED_BY(m_lock);                  // handed over and not known to be written
    unsigned long long m_doneBefore MO_GUARDED_BY(m_lock) = 0;  // of the handle, when the queue's first was handed over
    AutoRefPtr<BasicFileIO> m_handle MO_GUARDED_BY(m_lock);
    const FsFileIO* m_file MO_GUARDED_BY(m_lock) = nullptr;  // the same, or null
};
