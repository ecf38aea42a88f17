#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

#include "services/file/basic_file_io.h"
#include "services/file/os_path_id.h"
#include "services/system/locks.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_enum.h"
#include "shared/include/description/sw_version.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/media_agent.h"
#include "support/auto_ptr.h"
#include "support/bridge.h"
#include "support/fixed_point.h"
#include "support/ibase.h"
#include "support/op_result.h"
#include "support/ref_count.h"
#include "support/visibility.h"

class DefaultMediaNamer;
class IRecordTrain;
class MediaClipDesc;
class MediaClipParam;
class MediaIoBuf;
class MediaMovieDesc;
class MediaObjImpl;
class MediaTrackDesc;
class UserDataSet;
struct MediaReaderDesc;
struct MediaRecordReq;
struct MediaRedZone;
struct MediaWriterDesc;
struct XmlBuffer;

// Bits of a movie's state that the core acts on; back-ends may use others.
enum MediaObjStateBit : std::uint32_t {
    MediaObjStateKeep = 1,        // handed out again whatever the file's version says
    MediaObjStateLiveVersion = 2  // the version follows the file even though the movie isn't writable
};

// A movie: a tree of tracks and clips together with the files that hold them. Format back-ends derive from it and add
// their data; the process-wide cache shares one live object per file among all clients.
// **Owns:** its private record with the file list and the descriptor; tracks, clips and lookups are the back-end's.
// **Threads:** any number may open, read, query and release. A reference holds the object: one per client, per
// `Persist` and per `ScopeHold`, and one of the cache's own from construction on.
// **Units:** lengths of tracks in ticks of the movie's time base, of clips in samples.
// **Defined in** mediautil/object (life, holders, open), mediautil/description (rates, tracks, copies, clip
// properties), mediautil/io, mediautil/naming.
class MO_PUBLIC MediaObj : public IBase {
public:
    enum class ReadMode : std::uint32_t { ReadOnly = 0, ReadWrite = 1 };
    enum class Trace : std::uint32_t { List = 0, Status = 1, Flush = 2 };
    // References set aside for the cache when an object is made; the creator's own comes on top.
    enum class CacheRefValue : int { None = 0, Cached = 1 };

    class NameReq;
    class Persist;
    class RenameReq;
    class ScopeHold;

    using OnChanged = BridgeHook<const Persist&, bool>;
    using OnChanging = BridgeHook<MediaObj&, bool>;
    // Chooses the name of a file: writes it into the request and answers whether there is one.
    using Namer = BridgeHook<const NameReq&, bool>;

    // --- Opening -----------------------------------------------------------------------------------------------------
    // Answers the shared object of the file at `path`, parsing it when none is live. `type` 0 lets the file's suffix
    // choose the readers; `force` asks for a fresh parse. Gives: one reference. Fails: null; codes 1 (null path, no
    // id), 6 (no such file, with the path), 8 (no reader took it). Waits: 1 ms polls for another parse of the file and
    // for a morph, without limit. An empty path is a file that isn't there.
    static MediaObj* openReader(const char* path, ReadMode mode, OpResult& result, MediaFileType type = {},
                                bool force = false);
    static MediaObj* openReader(OsPathId id, ReadMode mode, OpResult& result, MediaFileType type = {},
                                bool force = false);
    static MediaObj* openReader(AutoRefPtr<BasicFileIO> file, OpResult& result, MediaFileType type = {},
                                bool force = false);
    // Creates a movie for recording; the directories of its path are made. `type` 0 comes from the suffix. Gives: one
    // reference, to be given back by `release(agent, true)`. Fails: null; code 8 without a writer, the back-end's own
    // result, or ok when somebody else's object stands for that file already.
    static MediaObj* openWriter(const char* path, bool morph, OpResult& result, MediaContainment containment,
                                MediaFileType type, const char* style, BasicIOTypes::SizeAdvice advice);
    // Gives: an object of a format that is bound to no file and is never cached, with one reference, or null.
    static MediaObj* openObj(MediaFileType type, OpResult& result);
    // An empty movie of structure only, for its caller to fill. Gives: one reference, never cached. Fails: null, code 8
    // for a type without a writer.
    static MediaObj* openTranslationObj(MediaFileType type, OpResult& result);
    // The first `size` bytes of a file. A short read is a success, and the tail then undefined. Fails: codes 1, 2, 13.
    static AutoArrayPtr<unsigned char> readRawHeader(AutoRefPtr<BasicFileIO> file, unsigned size, OpResult& result);
    // The object that is live for a file, or null; parses nothing. Gives: one reference. Waits: for a morph, as above.
    static MediaObj* getOpenObj(OsPathId id);

    // Start and stop all subsystems of the process.
    static bool init();
    static bool shutdown();

    // The format tables. Requires: before the first open; no lock is taken. Answer the table's new count.
    static unsigned registerOpener(const MediaReaderDesc& desc, int priority);
    static unsigned registerCreator(const MediaWriterDesc& desc, int priority);

    // The cache's listing, and the release of what nobody holds (of `only` whatever its idle time, if not null).
    static void trace(Trace kind);
    static void flushAll(const MediaObj* only);

    // --- Life --------------------------------------------------------------------------------------------------------
    MediaObj(unsigned long long version, CacheRefValue cacheRefs);
    MediaObj(const MediaObj&) = delete;
    MediaObj& operator=(const MediaObj&) = delete;

    // False for a destroyed object whose memory is intact.
    bool isValid() const { return m_magic == s_magic; }
    // The core's record; opaque to back-ends and clients.
    MediaObjImpl& impl() const { return *m_impl; }
    MediaMovieDesc* getDesc();
    const MediaMovieDesc* getDesc() const;
    RefCount* getRefCount();
    int getReferenceCount() const;
    unsigned getSerialNum() const;
    bool isMorphing() const;
    // For back-ends: true inside a morph, else a warning once per process with `who`.
    bool ensureMorphing(const char* who) const;
    // This movie's structure without its essence and files. Gives: one reference, never cached; null and warning 1
    // without memory. Fails: a track that can't be copied leaves its reason in `result`, and the others are copied.
    MediaObj* createTranslationObj(OpResult& result) const;
    // The record train that this movie is. Gives: a reference of the movie, or an empty pointer without one.
    AutoReleasePtr<IRecordTrain> getRecordTrainInterface();
    bool hasState(MediaObjStateBit bit) const { return (getState() & bit) != 0; }
    void setCacheId(OsPathId id);
    void setCachedFileId(OsPathId id);
    // Moves all `Persist` holders of this object to `other`.
    void replaceWith(MediaObj* other);
    // The client's way out: closes the agent's files, hands back the writer if there is one, and drops the reference.
    // Answers the remaining count.
    int release(MediaAgent agent, bool writer);

    // --- Files -------------------------------------------------------------------------------------------------------
    // Enter a file in the movie's list and answer its id; the same file gets the same id.
    MediaIdRec* allocMediaId(const char* path);
    // Takes: a handle that turns out to be in the list already must not survive in its creator's hands, so the call
    // then gives up one reference more than its argument's own; only a caller that holds one to spare may risk that.
    MediaIdRec* allocMediaId(AutoRefPtr<BasicFileIO> file);
    void flush(MediaIdRec* id);
    bool allFilesOpen(MediaAgent agent, bool writable) const;
    unsigned getNumOpenFiles(MediaAgent agent) const;
    unsigned getDirtyOccupancy() const;
    unsigned getTotalOccupancy(MediaAgent agent, bool all) const;
    unsigned getCacheSize(MediaAgent agent, bool all) const;
    void disableLowLevelMessages();

    // --- Movie-level answers -----------------------------------------------------------------------------------------
    // Video tracks in order, then audio tracks; 0 starts, all ones ends. Stores the track's index.
    MediaTrackEnum getNext(MediaTrackEnum current, unsigned& index) const;
    MediaTrackEnum getTrackEnum(unsigned short index) const;
    unsigned getTrackIndex(MediaTrackEnum track) const;
    MediaTrackDesc* getTrack(MediaTrackEnum track);
    const MediaTrackDesc* getTrack(MediaTrackEnum track) const;
    const MediaClipDesc* findClipUsing(MediaIdRec* id) const;
    MediaEncodingType calcEncoding() const;
    MediaContainment getContainment() const;
    SequenceCodingType getVideoSequenceCoding() const;
    unsigned getMovieGopLength() const;
    // The frame as a track's index knows it; the same frame for a track that isn't there.
    unsigned long long getSyncAdjustedFrame(unsigned long long frame, unsigned trackIndex) const;
    MediaVideoRate getVideoRate() const;
    FixedPoint<16> getRealVideoRate() const;
    static MediaVideoRate getVideoRate(FixedPoint<16> rate);
    static FixedPoint<16> getRealVideoRate(MediaVideoRate rate);
    MediaPropertyList& getPropertiesForUpd();
    OpResult setProperty(const MediaProperty& property);
    ClipPropsProperty get(MediaPropertyEnum::ClipProps tag) const;
    // Folds the rollout of each track's last clip into it. Fails: the first track's result that isn't ok; those behind
    // it aren't asked.
    OpResult beginRollout();
    // The longest precharge of all tracks, in frames.
    unsigned getMoviePrecharge() const;
    // Says to every file that the agent has open how many bytes will be read next.
    void setLookAhead(MediaAgent agent, unsigned bytes);
    // Enter a write, or an add, in the movie's record log. Thread: any, at the log's own risk of order.
    void log(const MediaSampleInMovie& sample);
    void log(const MediaClipDesc& clip, const MediaRecordReq& req);
    // Writes an XML text of the movie to a new file. Fails: error 1 (no name, no text), 2 (can't be opened), 7 (the
    // file is there already and isn't touched), 12 (short, with the counts); a short file may stay behind then.
    OpResult writeXmlToFile(XmlBuffer& buffer, const char* filename);
    // Sorted by address, without duplicates.
    std::list<MediaObj*> filterDupObjects(std::list<MediaObj*> objects) const;

    // --- Reading and writing without an object at hand ---------------------------------------------------------------
    // Reads through the live object of the sample's file. Fails: code 1 when none is live; the hook then stays silent.
    static OpResult saRead(const MediaReadReq& req);
    // Writes through it. Takes: the obuf, always. Fails: code 1 when no object is live, else as `vaWrite`.
    static OpResult saWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf);
    static void setReadReqOrigin(MediaReadReq& req, MediaReadReq::Origin origin);

    // --- What back-ends supply or refine -----------------------------------------------------------------------------
    ~MediaObj() override;
    int preserve() override;
    int release() override;
    virtual OsPathId getFileId() const;
    virtual OsPathId getPathId() const;
    virtual OsPathId getPathId(MediaIdRec* id) const;
    // The version of the content that the object was built from; follows the file while it is written here.
    virtual unsigned long long getVersion() const;
    virtual void setVersion(unsigned long long version, bool written);
    virtual std::uint32_t getState() const;
    virtual SwVersion getMediaLayerVersion() const;
    virtual bool isZarnexMovie() const;
    virtual MediaTrackDesc* createTranslationTrack(unsigned index, MediaFileType type, OpResult& result);
    virtual bool acceptSideBandFiles(const std::string& folder, std::list<std::string>& files);
    virtual void getSideBandFiles(std::string& folder, std::list<std::string>& files);
    virtual bool canHaveSideBandFiles() const;
    virtual MediaMovieDesc* getMovieDesc() = 0;
    virtual const MediaMovieDesc* getMovieDesc() const = 0;
    virtual unsigned getTrackCount() const = 0;
    // The track at this place, or null at and past the end. Gives: borrowed.
    virtual const MediaTrackDesc* getTrackAt(unsigned index) const = 0;
    virtual MediaTrackDesc* getTrackAt(unsigned index) = 0;
    virtual MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) = 0;
    virtual MediaTrackDesc* createTrack(const MediaTrackDesc& source, OpResult& result);
    // Writes back the files of a track's clips, or all files; nothing at all unless `now`.
    virtual void flush(const MediaTrackDesc* track, bool now);
    virtual void purge() const;
    virtual bool tracksMustBeAligned() const;
    virtual bool supportsEmptyEdits() const;
    virtual bool isStream() const;
    virtual bool canHaveRefMedia() const;
    // A handle on one of the movie's files for a client; empty for a null id.
    virtual AutoRefPtr<BasicFileIO> open(MediaIdRec* id, MediaAgent agent, ReadMode mode, OpResult& result) const;
    // Ends a client's handles on one file, or with a null id on all files and closes the tracks.
    virtual OpResult close(MediaIdRec* id, MediaAgent agent) const;
    // Parses the file again, now, on this thread; ok and nothing for a movie that is being written here.
    virtual OpResult reread() const;
    // Starts a read; on ok the data come, or have come, at the request's hook. Requires: no lock that the hook takes.
    virtual OpResult vaRead(const MediaReadReq& req) const;
    // Reads a sample into `buf`, which is resized to it. Fails: code 1 (no handle, too large), 13 (short, with a text).
    virtual OpResult vsRead(const MediaSampleInMovie& sample, MediaIoBuf& buf) const;
    // Starts a write of the whole obuf at the sample's first chunk. Takes: the obuf, always. Fails: code 1 (no handle,
    // no or too large an obuf), 12; a write that fails later is told by the file's next write, flush or close.
    virtual OpResult vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf);
    // Writes the sample's chunks, one behind the other in `buf`. Fails: code 1 (`buf` too small), 12, 16 (no handle).
    virtual OpResult vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf);
    virtual MediaTrackDesc* copyClips(const MediaTrackDesc& source, OpResult& result);
    virtual MediaTrackDesc* createClip(const MediaTrackDesc& source, MediaContainment containment, OpResult& result);
    virtual bool canReceive(const MediaObj& source, MediaEncodingType& encoding) const;
    virtual unsigned getPlayoutIopExtra() const;
    virtual MediaIdRec* commonId() const;
    // Deletes the movie's files from disk; nothing at all when one is protected.
    virtual OpResult remove();
    virtual OpResult setRecording(bool recording);
    virtual bool isRecording() const;
    // Whether a recording may begin before its in point: with pictures that depend on others. Stores the GOP's length.
    virtual bool canPrecharge() const;
    virtual bool canPrecharge(unsigned& gopLength) const;
    // Says to every track what time a recording may fill, in ticks of the time base.
    virtual void adviseCapacity(unsigned long long capacity);
    // The part of the movie that must not be copied yet: none.
    virtual MediaRedZone getRedZone(bool) const;
    virtual void inheritVideoRate(MediaVideoRate rate);
    virtual void setDefaultVideoRate(MediaVideoRate rate);
    virtual OpResult setTimecode(const MediaTimecode& timecode);
    virtual OpResult setTimecode(MediaAgent agent, unsigned long long frame, const MediaTimecode& timecode);
    virtual MediaTimecode getTimecode() const;
    // Borrowed for the object's life; a null id is the primary file.
    virtual const char* getPath(MediaIdRec* id) const;
    virtual unsigned long long getMediaSize(MediaIdRec* id) const;
    virtual MediaIdRec* getMediaId(unsigned index) const;
    virtual unsigned getMediaIndex(MediaIdRec* id) const;
    virtual unsigned getMediaCount() const;
    virtual AutoRefPtr<BasicFileIO> getFp(OpResult& result, MediaIdRec* id, MediaAgent agent) const;
    virtual AutoRefPtr<BasicFileIO> getFp(OpResult& result, MediaIdRec* id, bool writable, MediaAgent agent) const;
    // The longest time that every track can hold, in seconds.
    virtual FixedPoint<16> getMaxLength() const;
    // In video frames.
    virtual unsigned long long getFrameLength() const;
    // Frames that may be read now, although the movie may still grow.
    virtual unsigned long long getReadSafeFrameLength() const;
    virtual bool getFinalFrameLength(unsigned long long& frames) const;
    virtual const MediaPropertyList& getProperties() const;
    virtual OpResult requestStyle(const char* style, bool flag);
    virtual const char* getStyle() const;
    virtual const char* const* getStyles(unsigned& count) const;
    // Between these the movie is being built: readers wait for it, and the end works out derived values.
    virtual void beginMorph();
    virtual void endMorph();
    virtual void* getParseRoot();
    // One line for messages; `full` adds address, version, lengths and ids. Gives: array text.
    virtual AutoPtr<char> toString(bool full) const;
    // The movies that this one refers to, borrowed.
    virtual std::list<MediaObj*> getExternalRefMediaObj() const;
    virtual void setReadOnly();
    virtual void computeSyncAdjustments();
    // Tells a writable movie a track's new length; answers whether it is writable.
    virtual bool notifyLength(MediaTrackDesc& track);
    // A back-end's veto against being replaced by a newer parse. Requires: takes no lock of the cache.
    virtual bool acceptReplacement(const MediaObj* newObject);
    // Called at the end of a morph; back-ends that keep clip properties override it. Requires: opens not its own file.
    virtual void setClipProperties(bool flag);
    // The names of the properties that the movie was given, joined by commas; "" for none. Borrowed until they change.
    virtual const char* getClipProperties() const;
    // Adds a name to them. Answers false, and changes nothing, when it is among them.
    virtual bool addClipProperty(const char* name);
    // Ok when all of the movie's properties are among the names in `supported`, joined by commas as well.
    // Fails: warning 14 that names the first that isn't.
    virtual OpResult isClipSupported(const char* supported) const;
    virtual void resetClipProperties();
    virtual OpResult requestClipProperties(const char* names);
    // What the movie carries about itself, or null. Borrowed for the object's life; `make` makes it if it is missing.
    virtual const UserDataSet* getUserDataMovie() const;
    virtual UserDataSet* getUserDataMovie(bool make);
    // The text of the movie's identifier, or null. Borrowed until the user data change.
    virtual const char* getUmid() const;
    virtual OpResult generateUmid();
    // Takes over the identifier of the movie that this one is a proxy of.
    virtual OpResult setProxyUmid(const MediaObj& other);
    // The identifier of the material, whatever the copy. Borrowed for the object's life; `result` is touched only by a
    // failure. Fails: null; warning 2 (no identifier), 1 (one that can't be read).
    virtual const char* getSourceUmid(OpResult& result);
    // Renames or moves the movie with its media files, whose references stay valid. `renameMedia` gives each media file
    // a new name as well. `namer` chooses names; null is a `DefaultMediaNamer`. Requires: a movie that is written here
    // when a media file has to move. Fails: before anything has moved, or with all moved back as far as it goes; the
    // last step alone, which gives the movie its name, leaves the media at their new places.
    virtual OpResult rename(const char* newPath, bool renameMedia, Namer* namer);
    // Moves one file of the movie; a back-end rewrites its references to it as well. Fails: the file list's result.
    virtual OpResult renameMediaId(MediaIdRec* id, const char* path);
    // A back-end's say in the name that a namer is to choose.
    virtual OpResult reviewMediaName(DefaultMediaNamer& namer, NameReq& req, std::string& name);
    virtual void addWriter();
    virtual void dropWriter();

private:
    static constexpr std::uint32_t s_magic = 543210;

    static MediaObj* openReaderInt(AutoRefPtr<BasicFileIO> file, MediaFileType type, OpResult& result, bool force);

    MediaObjImpl* m_impl;                // owned
    std::atomic<std::uint32_t> m_magic;  // s_magic while alive; a stray pointer shows as an error, not as a crash
};

// Holds one reference for the length of a scope.
class MO_PUBLIC MediaObj::ScopeHold {
public:
    ScopeHold() = default;
    ScopeHold(const ScopeHold&) = delete;
    ~ScopeHold() {
        if (m_obj != nullptr) m_obj->release();
    }

    bool null() const { return m_obj == nullptr; }
    bool valid() const { return m_obj != nullptr; }
    MediaObj* get() const { return m_obj; }
    // Gives: the reference, and holds nothing any more.
    MediaObj* forget() {
        MediaObj* obj = m_obj;
        m_obj = nullptr;
        return obj;
    }
    MediaObj* operator->() const { return m_obj; }
    // Holds `obj` with a reference of its own; safe for the object that is held already.
    ScopeHold& operator=(MediaObj* obj) {
        if (obj != nullptr) obj->preserve();
        if (m_obj != nullptr) m_obj->release();
        m_obj = obj;
        return *this;
    }
    ScopeHold& operator=(const ScopeHold&) = delete;

private:
    MediaObj* m_obj = nullptr;
};

// A holder of long life: a client's pointer to a movie that is moved when the cache replaces the object by a newer one.
// **Locks:** every change takes the process-wide holder lock and then `m_lock`; `preserve` takes `m_lock` alone.
// The hooks run under both and must touch neither holders nor cache.
class MO_PUBLIC MediaObj::Persist {
public:
    // `onChanging` is called before a move, with the new object, and `onChanged` after it. Borrowed; either may be
    // null.
    explicit Persist(OnChanged* onChanged = nullptr, OnChanging* onChanging = nullptr);
    Persist(const Persist& other);
    ~Persist();

    // Takes: the reference of the scope hold.
    Persist& operator=(ScopeHold& hold);
    Persist& operator=(const Persist& other);
    // Takes: the caller's reference. Null lets go.
    Persist& operator=(MediaObj* obj);

    // A safe look at the object of the moment. Gives: one reference, or null.
    MediaObj* preserve() const MO_EXCLUDES(m_lock);

private:
    friend class MediaObj;

    void replace(MediaObj* other) MO_EXCLUDES(m_lock);
    MediaObj* exchange(MediaObj* other, bool preserveNew, bool& same) MO_EXCLUDES(m_lock);
    // The pointer as it stands. Requires: the holder lock, which keeps every change away.
    MediaObj* current() const MO_NO_THREAD_SAFETY_ANALYSIS;
    void setCurrent(MediaObj* obj) MO_EXCLUDES(m_lock);

    MediaObj* m_obj MO_GUARDED_BY(m_lock) = nullptr;  // one reference held
    OnChanged* m_onChanged;                           // borrowed
    OnChanging* m_onChanging;                         // borrowed
    mutable ZarnexPosix::JMultiLock<ZarnexPosix::JMutex> m_lock;
};
