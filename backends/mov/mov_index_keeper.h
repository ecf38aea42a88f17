#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/common/recorder.h"
#include "backends/mov/mov_index_room.h"
#include "backends/mov/mov_told_movie.h"

// Keeps the file of a movie that is being recorded readable at every moment:
//
//     ftyp | room for moov | mdat of essence [| larger room for moov | mdat of essence]...
//
// The last `mdat` has the size 0, "to the end of the file", so that essence grows without a header to follow; in front
// of its essence lie eight bytes for its size. To close it they are written first, which nobody sees, and then the one
// byte that says "the size follows" where it said 0.
// The `moov` is brought up to date at the first samples, before a second of any track isn't told, at a flush and at the
// end, and tells only of samples that are in the file before it (how a reader never sees half of it: `MovIndexRoom`).
// When a table outgrows the room: a larger room and the head of a new `mdat` are written behind all essence, with a
// complete `moov`; then the present `mdat` is closed, which brings the new room in sight, and then the old room leads
// past its slots. Between these two bytes there are two complete indices, at no time none.
// What is written stands in the order of the writes; behind a power failure the file system decides.
// **Threads:** `reserve` any; what describes the movie, and the writes, one at a time. **Locks:** `Recorder`'s m_mutex.
class MovIndexKeeper final : public Recorder {
public:
    // `path` is absolute.
    MovIndexKeeper(AutoRefPtr<BasicFileIO> file, const std::string& path);

    // Lays out the file, once, before the first samples. Gives: the record of the essence in it. Fails: null, as
    // `Recorder::begin`, and warning 12.
    std::shared_ptr<RecordedEssence> start(OpResult& result) MO_EXCLUDES(m_mutex);
    // Where so many bytes of essence go in the movie's own file. Requires: it has been laid out.
    std::uint64_t reserve(std::uint64_t bytes) { return m_end.fetch_add(bytes, std::memory_order_relaxed); }
    // Where the next would go.
    std::uint64_t getEnd() const { return m_end.load(std::memory_order_relaxed); }

    // Answer the number of what they enter.
    unsigned addMedia(const MovToldMedia& media) MO_EXCLUDES(m_mutex);
    unsigned addTrack(const MediaClipParam& param) MO_EXCLUDES(m_mutex);
    void addClip(unsigned track, const MovToldClip& clip) MO_EXCLUDES(m_mutex);
    void setTimescale(std::uint32_t timescale) MO_EXCLUDES(m_mutex);
    void setPath(const std::string& path) MO_EXCLUDES(m_mutex);
    void setMediaPath(unsigned media, const std::string& path) MO_EXCLUDES(m_mutex);
    void setUserData(const std::vector<std::uint8_t>& atoms) MO_EXCLUDES(m_mutex);
    // In place of the one before it. Its sample goes behind the essence, once for each, with the next update.
    void setTimecode(const MovToldTimecode& timecode) MO_EXCLUDES(m_mutex);
    // Looks at a sample that is about to be written for what the file has to say of a stream of AVC and its pictures.
    void look(const MediaSampleInMovie& sample, const std::uint8_t* bytes, std::size_t size) MO_EXCLUDES(m_mutex);

    // Before essence is written: a movie that was finished is open again.
    OpResult reopen() MO_EXCLUDES(m_mutex);
    // Behind essence that was written to another file.
    OpResult follow() MO_EXCLUDES(m_mutex);

private:
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    // One after the other, the last one in use.
    struct Part {
        MovIndexRoom m_room;
        std::uint64_t m_mdat = 0;  // the head of the essence behind the room
    };

    static constexpr unsigned s_mdatHead = 16;

    OpResult keepUp(std::uint64_t end, Moment moment) override MO_REQUIRES(m_mutex);
    bool isDue(std::uint64_t end) const MO_REQUIRES(m_mutex);
    std::uint64_t tellable(const MovToldClip& clip, std::uint64_t end) const MO_REQUIRES(m_mutex);
    std::uint64_t endOf(const MovToldClip& clip, std::uint64_t end) const MO_REQUIRES(m_mutex);
    void tell(std::uint64_t end) MO_REQUIRES(m_mutex);
    OpResult putTimecode() MO_REQUIRES(m_mutex);
    OpResult bringUpToDate() MO_REQUIRES(m_mutex);
    OpResult moveOn() MO_REQUIRES(m_mutex);
    OpResult putMdat(std::uint64_t at) MO_REQUIRES(m_mutex);
    OpResult closeMdat(std::uint64_t at, std::uint64_t end) MO_REQUIRES(m_mutex);
    OpResult openMdat() MO_REQUIRES(m_mutex);
    OpResult recover() MO_REQUIRES(m_mutex);
    OpResult putBytes(std::uint64_t offset, const std::vector<std::uint8_t>& bytes) MO_REQUIRES(m_mutex);
    // For the room, which knows no lock: the caller of its operations holds it.
    MovIndexRoom::Put putter() MO_NO_THREAD_SAFETY_ANALYSIS;

    MovToldMovie m_movie MO_GUARDED_BY(m_mutex);
    std::vector<Part> m_parts MO_GUARDED_BY(m_mutex);
    std::vector<std::uint8_t> m_shown MO_GUARDED_BY(m_mutex);  // the heads that readers come to
    std::shared_ptr<RecordedEssence> m_essence;                // set once, by `start`
    std::atomic<std::uint64_t> m_end{0};
    bool m_isClosed MO_GUARDED_BY(m_mutex) = false;  // the last `mdat`
};
