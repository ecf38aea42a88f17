#pragma once

#include <cstdint>

#include "shared/include/description/media_timecode.h"
#include "shared/include/description/relaxed.h"
#include "shared/include/index/sample_info.h"
#include "support/auto_ptr.h"
#include "support/memory_log_on.h"

class MediaClipDesc;
struct MediaRecordReq;
struct MediaSampleInMovie;

// One line of the record log. **Units:** samples, and bytes from the file's start.
class RecordLogEntry {
public:
    enum class OpType : std::uint32_t {
        Nil = 0,    // an entry that was never used
        Add = 1,    // samples added to a clip
        Write = 2,  // samples written
        Wes = 3,    // the last three are a back-end's
        Wkl = 4,
        Wtc = 5
    };

    // "?" for a number without a name.
    static const char* getName(OpType type);
    static const char* getName(SampleCodingType type);

    OpType getOpType() const { return m_opType; }
    unsigned long long getSampleNum() const { return m_sampleNum; }
    long long getFileOffset() const { return m_fileOffset; }
    unsigned getNBytes() const { return m_nBytes; }
    unsigned getNSamples() const { return m_nSamples; }
    unsigned getTrackIndex() const { return m_trackIndex; }
    bool wasListed() const { return m_listed; }
    void setListed() { m_listed = true; }

    // Becomes the line of a write, or of an add.
    RecordLogEntry& operator=(const MediaSampleInMovie& sample);
    void set(const MediaClipDesc& clip, const MediaRecordReq& req);
    // Gives: array text.
    AutoPtr<char> toString() const;

private:
    OpType m_opType = OpType::Nil;
    unsigned long long m_sampleNum = 0;  // first sample
    long long m_fileOffset = 0;          // of the first chunk; 0 when not known
    std::uint32_t m_nBytes = 0;
    std::uint16_t m_nSamples = 0;  // cut to its 16 bits
    std::uint8_t m_nChunks = 0;
    std::uint8_t m_trackIndex = 0;
    std::uint8_t m_clipIndex = 0;
    bool m_listed = false;  // has been printed
    SampleCodingType m_coding = SampleCodingType::Unknown;
    MediaTimecode m_timecode;
};

// The flight recorder of one movie: every sample that is added and every one that is written goes into a ring, and each
// new line is held against the one before it on its track. A gap of samples or an overlap of bytes is printed with the
// track's writes that haven't been printed yet.
// **Threads:** two writers get different entries; all else is as good as the order in which they come, which is enough
// for an aid that runs under a switch.
class MediaRecordTracker {
public:
    class Logger : public MemoryLogOn<RecordLogEntry, 12> {
    public:
        // Answer the entry's index.
        unsigned addEntry(const MediaSampleInMovie& sample);
        unsigned addEntry(const MediaClipDesc& clip, const MediaRecordReq& req);
        // Entry 0 for an index above the ring's last.
        const RecordLogEntry& getEntry(unsigned index) const { return m_entries[index < s_size ? index : 0]; }
        // Null for an index above the ring's last, and for an entry of another track or type: the ring may have come
        // round since.
        const RecordLogEntry* getEntry(unsigned index, unsigned track, RecordLogEntry::OpType type) const;
        // Prints the entries of that track and type that haven't been printed, the oldest first, `last` at the end.
        void list(unsigned last, unsigned track, RecordLogEntry::OpType type);
    };

    void log(const MediaSampleInMovie& sample);
    void log(const MediaClipDesc& clip, const MediaRecordReq& req);

    const Logger& logger() const { return m_logger; }

private:
    static constexpr unsigned s_checkedTracks = 64;  // those behind are entered and not checked

    // Ring indexes; -1 is none yet.
    struct LastEntry {
        LastEntry() { reset(); }
        void reset() {
            m_lastAdd = -1;
            m_lastWrite = -1;
        }

        Relaxed<std::int32_t> m_lastAdd;
        Relaxed<std::int32_t> m_lastWrite;
    };

    const RecordLogEntry* exchangeLast(Relaxed<std::int32_t>& last, unsigned index, unsigned track,
                                       RecordLogEntry::OpType type);
    void printEntry(unsigned index) const;

    Logger m_logger;
    LastEntry m_last[s_checkedTracks];
};
