#pragma once

#include <cstdint>

#include "shared/include/description/media_enums.h"
#include "shared/include/description/relaxed.h"
#include "support/op_result.h"
#include "support/visibility.h"

class MediaObj;
class MediaTrackDesc;

// What a movie says about itself as a whole: file type, time base, writable, recording, standard and lengths.
//
// **Threads:** the flags and lengths are read by the cache and by readers while a recorder changes them, so they are
// relaxed atomics. **Locks:** none. **Units:** lengths in ticks of the time base.
class MO_PUBLIC MediaMovieDesc {
public:
    // The last argument is taken and not kept. Requires: `timeBase` above 0.
    MediaMovieDesc(MediaFileType fileType, unsigned int timeBase, bool writable, MediaEncodingType encoding,
                   MediaVideoRate standard, unsigned int);
    virtual ~MediaMovieDesc() = default;

    virtual MediaObj* getObj() = 0;
    virtual OpResult setSelectIn(unsigned long long in) = 0;
    virtual OpResult setSelectOut(unsigned long long out) = 0;

    // Fills in what a back-end has learnt from its file. Requires: `timeBase` above 0; nobody else has the movie yet.
    void init(MediaFileType fileType, unsigned int timeBase, bool writable, MediaEncodingType encoding,
              MediaVideoRate standard);

    MediaFileType getFileType() const { return m_fileType; }
    // Ticks a second in which track lengths are counted.
    unsigned int getTimeBase() const { return m_timeBase; }
    bool isWritable() const { return m_writable; }
    bool isRecording() const { return m_recording; }
    unsigned long long getSelectIn() const { return m_selectIn; }
    unsigned long long getSelectOut() const { return m_selectOut; }
    unsigned int getNumMedia() const { return m_numMedia; }
    MediaEncodingType getEncoding() const { return m_encoding; }
    MediaVideoRate getStandard() const { return m_standard; }
    // Length of the track last notified, in ticks.
    unsigned long long getLastTrackLength() const { return m_lastTrackLength; }
    // Greatest length notified so far, in ticks.
    unsigned long long getMaxTrackLength() const { return m_maxTrackLength; }

    // For a back-end that learns these with its first track, before there is a length. Requires: `timeBase` above 0.
    void setTimeBase(unsigned int timeBase) { m_timeBase = timeBase; }
    void setEncoding(MediaEncodingType encoding) { m_encoding = encoding; }
    void setWritable(bool writable) { m_writable = writable; }
    void setRecording(bool recording) { m_recording = recording; }
    void setNumMedia(unsigned int count) { m_numMedia = count; }
    void setStandard(MediaVideoRate rate) { m_standard = rate; }

    // Notes the track's length as the last one, and as the greatest if it is; the greatest never goes down.
    void setLength(const MediaTrackDesc& track);

protected:
    MediaFileType m_fileType;
    Relaxed<std::uint32_t> m_timeBase;  // ticks a second
    Relaxed<bool> m_writable;
    Relaxed<bool> m_recording{false};
    Relaxed<unsigned long long> m_selectIn{0};
    Relaxed<unsigned long long> m_selectOut{0};
    Relaxed<std::uint32_t> m_numMedia{0};
    Relaxed<MediaEncodingType> m_encoding;
    Relaxed<MediaVideoRate> m_standard;
    Relaxed<unsigned long long> m_lastTrackLength{0};  // ticks
    std::uint64_t m_reserved = 0;                      // cleared, for back-ends
    Relaxed<unsigned long long> m_maxTrackLength{0};   // ticks
    std::uint64_t m_extra = 0;                         // cleared, for back-ends
};
