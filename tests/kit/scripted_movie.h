#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/media_obj.h"
#include "tests/kit/movie_script.h"

namespace kit {

class ScriptedMovie;
class ScriptedTrack;

// A clip as its script tells it, with a fixed index or one of listed samples.
class ScriptedClip : public MediaClipDesc {
public:
    ScriptedClip(ScriptedTrack& track, unsigned index, const ClipScript& script, MediaIdRec* id);
    ~ScriptedClip() override;

    unsigned int getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned int) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned int) const override { return nullptr; }
    unsigned int getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override;
    const MediaTrackDesc& getTrack() const override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

private:
    ScriptedTrack& m_track;
    const unsigned m_index;
    MediaOffsetLookup* m_lookup;  // counted
};

class ScriptedTrack : public MediaTrackDesc {
public:
    ScriptedTrack(ScriptedMovie& movie, unsigned index, const TrackScript& script);

    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    using MediaTrackDesc::createClip;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned int getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned int index) override { return m_clips[index].get(); }
    const MediaClipDesc* getClip(unsigned int index) const override { return m_clips[index].get(); }
    unsigned int getTrackIndex() const override { return m_index; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

    void setLength(unsigned long long ticks) { m_length = ticks; }

private:
    ScriptedMovie& m_movie;
    const unsigned m_index;
    std::vector<std::unique_ptr<ScriptedClip>> m_clips;
};

// The one fake back-end: a movie that is what its script says, and counts what is asked of it.
// **Threads:** as a movie; what a test changes while it lives is atomic. **Owns:** its tracks, clips and lookups.
class ScriptedMovie : public MediaObj {
public:
    // A movie that never was opened: without a file, or with that file entered by its path. One reference for the
    // caller and, for `Cached`, one for the cache.
    explicit ScriptedMovie(const MovieScript& script, const std::string& path = {}, bool writable = false,
                           CacheRefValue refs = CacheRefValue::Cached);
    // As the reader makes it.
    ScriptedMovie(const MovieScript& script, const AutoRefPtr<BasicFileIO>& file, MediaFileType type);
    ~ScriptedMovie() override;

    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    MediaTrackDesc* getTrackAt(unsigned index) override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    using MediaObj::createTrack;
    unsigned long long getVersion() const override;
    std::uint32_t getState() const override { return m_state; }
    void flush(const MediaTrackDesc* track, bool now) override;
    using MediaObj::flush;
    OpResult close(MediaIdRec* id, MediaAgent agent) const override;
    bool acceptReplacement(const MediaObj* newObject) override;
    std::list<MediaObj*> getExternalRefMediaObj() const override { return m_references; }
    void setClipProperties(bool flag) override;
    void computeSyncAdjustments() override;

    ScriptedTrack& track(unsigned index) { return *m_tracks[index]; }
    // Gives a track a length and tells the descriptor, writable or not.
    void setTrackLength(unsigned index, unsigned long long ticks);

    // What a test may change, and what it may look at afterwards.
    std::atomic<bool> m_accept{true};
    std::atomic<std::uint32_t> m_state{0};
    std::atomic<unsigned long long> m_fixedVersion{0};
    std::list<MediaObj*> m_references;      // borrowed; before others have the movie
    std::shared_ptr<Gate> m_closeGate;      // before others have the movie
    std::shared_ptr<Gate> m_deleteGate;     // the destructor stands here
    std::shared_ptr<Gate> m_propsGate;      // the end of a morph stands here; before others have the movie
    std::atomic<int>* m_deleted = nullptr;  // counts the destruction, borrowed
    mutable std::atomic<int> m_closes{0};   // of the whole movie
    mutable std::atomic<int> m_fileCloses{0};
    std::atomic<int> m_flushes{0};
    std::atomic<int> m_vetoAsked{0};
    std::atomic<int> m_clipPropsSet{0};
    std::atomic<int> m_syncComputed{0};

private:
    void build(const MovieScript& script, MediaFileType type, bool writable);

    std::vector<std::unique_ptr<ScriptedTrack>> m_tracks;
};

// The file types for which the kit registers itself; no real format of ours uses them.
inline constexpr MediaFileType s_scripted = MediaFileType::Hdcam;       // "hdcam": reader and writer
inline constexpr MediaFileType s_scriptedToo = MediaFileType::Rec601;   // "601": reader and writer
inline constexpr MediaFileType s_readOnlyType = MediaFileType::Ac3;     // "ac3": reader alone
inline constexpr MediaFileType s_writeOnlyType = MediaFileType::S436m;  // "436": writer alone, style "kit style"
inline constexpr MediaFileType s_nobodysType = static_cast<MediaFileType>(7);
inline constexpr int s_priority = -1000;  // ahead of every real reader

// What the readers and writers make of a path. A path without a script is refused.
// **Threads:** any.
namespace Scripts {
void set(const std::string& path, const MovieScript& script);
// The script of an object that is bound to no file.
void setUnbound(const MovieScript& script, bool refuseObject);
// Forgets all scripts and counts.
void clear();
// How often a reader of the kit was called for the path, and by which types in order.
unsigned opens(const std::string& path);
std::vector<MediaFileType> openedAs(const std::string& path);
// Readers at work on the path now.
int parsing(const std::string& path);
unsigned creates(const std::string& path);
// The advice, containment, style and morph flag of the path's last creation.
struct Creation {
    MediaContainment m_containment = MediaContainment::Unknown;
    MediaFileType m_type = MediaFileType::Unknown;
    bool m_morph = false;
    BasicIOTypes::SizeAdvice m_advice = BasicIOTypes::SizeAdvice::None;
    std::string m_style;
    bool m_existedBefore = false;
};
Creation creation(const std::string& path);
}  // namespace Scripts

}  // namespace kit
