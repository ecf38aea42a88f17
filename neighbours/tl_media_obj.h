#pragma once

#include "shared/include/object/media_obj.h"

namespace Timeline {

// A movie that stands for another one: what it is asked through its virtual operations it passes on, and the tracks,
// clips and files that it shows are the other movie's. Its life is its own: it counts its references, is never in the
// cache, and doesn't follow a replacement.
// What isn't virtual is answered from its own record, which has no files: to count handles, ask the other movie, which
// is what the tracks belong to.
// **Owns:** one reference on the other movie. **Threads:** as the other movie.
class TlMediaObj final : public MediaObj {
public:
    // Takes: the argument's reference. Gives: a stand-in with no other reference; null for null.
    static AutoRefPtr<MediaObj> wrap(AutoRefPtr<MediaObj> obj);

    OsPathId getFileId() const override;
    OsPathId getPathId() const override;
    OsPathId getPathId(MediaIdRec* id) const override;
    unsigned long long getVersion() const override;
    void setVersion(unsigned long long version, bool written) override;
    std::uint32_t getState() const override;
    SwVersion getMediaLayerVersion() const override;
    bool isZarnexMovie() const override;
    MediaTrackDesc* createTranslationTrack(unsigned index, MediaFileType type, OpResult& result) override;
    bool acceptSideBandFiles(const std::string& folder, std::list<std::string>& files) override;
    void getSideBandFiles(std::string& folder, std::list<std::string>& files) override;
    bool canHaveSideBandFiles() const override;
    MediaMovieDesc* getMovieDesc() override;
    const MediaMovieDesc* getMovieDesc() const override;
    unsigned getTrackCount() const override;
    const MediaTrackDesc* getTrackAt(unsigned index) const override;
    MediaTrackDesc* getTrackAt(unsigned index) override;
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    MediaTrackDesc* createTrack(const MediaTrackDesc& source, OpResult& result) override;
    using MediaObj::flush;
    void flush(const MediaTrackDesc* track, bool now) override;
    void purge() const override;
    bool tracksMustBeAligned() const override;
    bool supportsEmptyEdits() const override;
    bool isStream() const override;
    bool canHaveRefMedia() const override;
    AutoRefPtr<BasicFileIO> open(MediaIdRec* id, MediaAgent agent, ReadMode mode, OpResult& result) const override;
    OpResult close(MediaIdRec* id, MediaAgent agent) const override;
    OpResult reread() const override;
    OpResult vaRead(const MediaReadReq& req) const override;
    OpResult vsRead(const MediaSampleInMovie& sample, MediaIoBuf& buf) const override;
    OpResult vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) override;
    OpResult vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf) override;
    MediaTrackDesc* copyClips(const MediaTrackDesc& source, OpResult& result) override;
    MediaTrackDesc* createClip(const MediaTrackDesc& source, MediaContainment containment, OpResult& result) override;
    bool canReceive(const MediaObj& source, MediaEncodingType& encoding) const override;
    unsigned getPlayoutIopExtra() const override;
    MediaIdRec* commonId() const override;
    OpResult remove() override;
    OpResult setRecording(bool recording) override;
    bool isRecording() const override;
    bool canPrecharge() const override;
    bool canPrecharge(unsigned& gopLength) const override;
    void adviseCapacity(unsigned long long capacity) override;
    MediaRedZone getRedZone(bool flag) const override;
    void inheritVideoRate(MediaVideoRate rate) override;
    void setDefaultVideoRate(MediaVideoRate rate) override;
    OpResult setTimecode(const MediaTimecode& timecode) override;
    OpResult setTimecode(MediaAgent agent, unsigned long long frame, const MediaTimecode& timecode) override;
    MediaTimecode getTimecode() const override;
    const char* getPath(MediaIdRec* id) const override;
    unsigned long long getMediaSize(MediaIdRec* id) const override;
    MediaIdRec* getMediaId(unsigned index) const override;
    unsigned getMediaIndex(MediaIdRec* id) const override;
    unsigned getMediaCount() const override;
    AutoRefPtr<BasicFileIO> getFp(OpResult& result, MediaIdRec* id, MediaAgent agent) const override;
    AutoRefPtr<BasicFileIO> getFp(OpResult& result, MediaIdRec* id, bool writable, MediaAgent agent) const override;
    FixedPoint<16> getMaxLength() const override;
    unsigned long long getFrameLength() const override;
    unsigned long long getReadSafeFrameLength() const override;
    bool getFinalFrameLength(unsigned long long& frames) const override;
    const MediaPropertyList& getProperties() const override;
    OpResult requestStyle(const char* style, bool flag) override;
    const char* getStyle() const override;
    const char* const* getStyles(unsigned& count) const override;
    void beginMorph() override;
    void endMorph() override;
    void* getParseRoot() override;
    AutoPtr<char> toString(bool full) const override;
    std::list<MediaObj*> getExternalRefMediaObj() const override;
    void setReadOnly() override;
    void computeSyncAdjustments() override;
    bool notifyLength(MediaTrackDesc& track) override;
    bool acceptReplacement(const MediaObj* newObject) override;
    void setClipProperties(bool flag) override;
    const char* getClipProperties() const override;
    bool addClipProperty(const char* name) override;
    OpResult isClipSupported(const char* supported) const override;
    void resetClipProperties() override;
    OpResult requestClipProperties(const char* names) override;
    const UserDataSet* getUserDataMovie() const override;
    UserDataSet* getUserDataMovie(bool make) override;
    const char* getUmid() const override;
    OpResult generateUmid() override;
    OpResult setProxyUmid(const MediaObj& other) override;
    const char* getSourceUmid(OpResult& result) override;
    OpResult rename(const char* newPath, bool renameMedia, Namer* namer) override;
    OpResult renameMediaId(MediaIdRec* id, const char* path) override;
    OpResult reviewMediaName(DefaultMediaNamer& namer, NameReq& req, std::string& name) override;
    void addWriter() override;
    void dropWriter() override;

private:
    explicit TlMediaObj(const AutoRefPtr<MediaObj>& obj);

    MediaObj& behind() { return *m_obj; }
    const MediaObj& behind() const { return *m_obj; }

    const AutoRefPtr<MediaObj> m_obj;  // counted; never null
};

}  // namespace Timeline
