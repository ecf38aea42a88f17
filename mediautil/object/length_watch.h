#pragma once

#include "services/file/basic_file_io.h"
#include "services/system/locks.h"

class MediaObj;

// Keeps track of how far a growing movie may safely be read, and carries that over when the movie's object is replaced.
// **Threads:** any. **Locks:** its own mutex, a leaf. **Owns:** a handle on the primary file.
// **Units:** frames, and µs of Clock::nowRelative.
class LengthWatch {
public:
    LengthWatch();
    // A copy starts from the history of its source, with a handle of its own.
    LengthWatch(const LengthWatch& other);
    LengthWatch& operator=(const LengthWatch&) = delete;
    // Goes on from another watch's history instead of its own.
    void takeOver(const LengthWatch& other) MO_EXCLUDES(m_mutex) MO_NO_THREAD_SAFETY_ANALYSIS;
    ~LengthWatch();

    // Frames whose bytes lie wholly inside the files as they stand. Never falls back while the movie grows; once
    // nothing has grown for the time limit, the movie's own length.
    unsigned long long safeLength(const MediaObj* obj) MO_EXCLUDES(m_mutex);
    // The same at a given time.
    unsigned long long safeLengthAt(const MediaObj* obj, long long now) MO_EXCLUDES(m_mutex);

private:
    static constexpr long long s_timeLimit = 20000000;  // µs without growth after which a movie counts as finished

    // Opens the watch's own handle and answers the primary file's length, 0 when it can't be had.
    unsigned long long primaryLength(const MediaObj* obj) MO_REQUIRES(m_mutex);

    mutable ZarnexPosix::JMutex m_mutex;
    long long m_timeLimit MO_GUARDED_BY(m_mutex) = s_timeLimit;
    long long m_lastGrowth MO_GUARDED_BY(m_mutex) = 0;  // when bytes or frames last grew; 0 before the first look
    unsigned long long m_lastBytes MO_GUARDED_BY(m_mutex) = 0;   // primary file's length at the last look
    unsigned long long m_safeFrames MO_GUARDED_BY(m_mutex) = 0;  // greatest safe length since growth began
    BasicFileIO* m_file MO_GUARDED_BY(m_mutex) = nullptr;        // owned by one reference
};
