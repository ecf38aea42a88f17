#include "neighbours/tl_media_obj.h"

#include "shared/include/description/media_property.h"
#include "shared/include/index/media_red_zone.h"

namespace Timeline {

TlMediaObj::TlMediaObj(const AutoRefPtr<MediaObj>& obj) : MediaObj(0, CacheRefValue::None), m_obj(obj) {}

AutoRefPtr<MediaObj> TlMediaObj::wrap(AutoRefPtr<MediaObj> obj) {
    if (obj.get() == nullptr) return obj;
    return AutoRefPtr<MediaObj>(new TlMediaObj(obj), PreReferenced());
}

OsPathId TlMediaObj::getFileId() const { return behind().getFileId(); }

OsPathId TlMediaObj::getPathId() const { return behind().getPathId(); }

OsPathId TlMediaObj::getPathId(MediaIdRec* id) const { return behind().getPathId(id); }

unsigned long long TlMediaObj::getVersion() const { return behind().getVersion(); }

void TlMediaObj::setVersion(unsigned long long version, bool written) { behind().setVersion(version, written); }

std::uint32_t TlMediaObj::getState() const { return behind().getState(); }

SwVersion TlMediaObj::getMediaLayerVersion() const { return behind().getMediaLayerVersion(); }

bool TlMediaObj::isZarnexMovie() const { return behind().isZarnexMovie(); }

MediaTrackDesc* TlMediaObj::createTranslationTrack(unsigned index, MediaFileType type, OpResult& result) {
    return behind().createTranslationTrack(index, type, result);
}

bool TlMediaObj::acceptSideBandFiles(const std::string& folder, std::list<std::string>& files) {
    return behind().acceptSideBandFiles(folder, files);
}

void TlMediaObj::getSideBandFiles(std::string& folder, std::list<std::string>& files) {
    behind().getSideBandFiles(folder, files);
}

bool TlMediaObj::canHaveSideBandFiles() const { return behind().canHaveSideBandFiles(); }

MediaMovieDesc* TlMediaObj::getMovieDesc() { return behind().getMovieDesc(); }

const MediaMovieDesc* TlMediaObj::getMovieDesc() const { return behind().getMovieDesc(); }

unsigned TlMediaObj::getTrackCount() const { return behind().getTrackCount(); }

const MediaTrackDesc* TlMediaObj::getTrackAt(unsigned index) const { return behind().getTrackAt(index); }

MediaTrackDesc* TlMediaObj::getTrackAt(unsigned index) { return behind().getTrackAt(index); }

MediaTrackDesc* TlMediaObj::createTrack(const MediaClipParam& param, OpResult& result) {
    return behind().createTrack(param, result);
}

MediaTrackDesc* TlMediaObj::createTrack(const MediaTrackDesc& source, OpResult& result) {
    return behind().createTrack(source, result);
}

void TlMediaObj::flush(const MediaTrackDesc* track, bool now) { behind().flush(track, now); }

void TlMediaObj::purge() const { behind().purge(); }

bool TlMediaObj::tracksMustBeAligned() const { return behind().tracksMustBeAligned(); }

bool TlMediaObj::supportsEmptyEdits() const { return behind().supportsEmptyEdits(); }

bool TlMediaObj::isStream() const { return behind().isStream(); }

bool TlMediaObj::canHaveRefMedia() const { return behind().canHaveRefMedia(); }

AutoRefPtr<BasicFileIO> TlMediaObj::open(MediaIdRec* id, MediaAgent agent, ReadMode mode, OpResult& result) const {
    return behind().open(id, agent, mode, result);
}

OpResult TlMediaObj::close(MediaIdRec* id, MediaAgent agent) const { return behind().close(id, agent); }

OpResult TlMediaObj::reread() const { return behind().reread(); }

OpResult TlMediaObj::vaRead(const MediaReadReq& req) const { return behind().vaRead(req); }

OpResult TlMediaObj::vsRead(const MediaSampleInMovie& sample, MediaIoBuf& buf) const {
    return behind().vsRead(sample, buf);
}

OpResult TlMediaObj::vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    return behind().vaWrite(sample, obuf);
}

OpResult TlMediaObj::vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf) {
    return behind().vsWrite(sample, buf);
}

MediaTrackDesc* TlMediaObj::copyClips(const MediaTrackDesc& source, OpResult& result) {
    return behind().copyClips(source, result);
}

MediaTrackDesc* TlMediaObj::createClip(const MediaTrackDesc& source, MediaContainment containment, OpResult& result) {
    return behind().createClip(source, containment, result);
}

bool TlMediaObj::canReceive(const MediaObj& source, MediaEncodingType& encoding) const {
    return behind().canReceive(source, encoding);
}

unsigned TlMediaObj::getPlayoutIopExtra() const { return behind().getPlayoutIopExtra(); }

MediaIdRec* TlMediaObj::commonId() const { return behind().commonId(); }

OpResult TlMediaObj::remove() { return behind().remove(); }

OpResult TlMediaObj::setRecording(bool recording) { return behind().setRecording(recording); }

bool TlMediaObj::isRecording() const { return behind().isRecording(); }

bool TlMediaObj::canPrecharge() const { return behind().canPrecharge(); }

bool TlMediaObj::canPrecharge(unsigned& gopLength) const { return behind().canPrecharge(gopLength); }

void TlMediaObj::adviseCapacity(unsigned long long capacity) { behind().adviseCapacity(capacity); }

MediaRedZone TlMediaObj::getRedZone(bool flag) const { return behind().getRedZone(flag); }

void TlMediaObj::inheritVideoRate(MediaVideoRate rate) { behind().inheritVideoRate(rate); }

void TlMediaObj::setDefaultVideoRate(MediaVideoRate rate) {
    behind().setDefaultVideoRate(rate);
    MediaObj::setDefaultVideoRate(rate);  // the movie's rate is worked out without a virtual call, from its own record
}

OpResult TlMediaObj::setTimecode(const MediaTimecode& timecode) { return behind().setTimecode(timecode); }

OpResult TlMediaObj::setTimecode(MediaAgent agent, unsigned long long frame, const MediaTimecode& timecode) {
    return behind().setTimecode(agent, frame, timecode);
}

MediaTimecode TlMediaObj::getTimecode() const { return behind().getTimecode(); }

const char* TlMediaObj::getPath(MediaIdRec* id) const { return behind().getPath(id); }

unsigned long long TlMediaObj::getMediaSize(MediaIdRec* id) const { return behind().getMediaSize(id); }

MediaIdRec* TlMediaObj::getMediaId(unsigned index) const { return behind().getMediaId(index); }

unsigned TlMediaObj::getMediaIndex(MediaIdRec* id) const { return behind().getMediaIndex(id); }

unsigned TlMediaObj::getMediaCount() const { return behind().getMediaCount(); }

AutoRefPtr<BasicFileIO> TlMediaObj::getFp(OpResult& result, MediaIdRec* id, MediaAgent agent) const {
    return behind().getFp(result, id, agent);
}

AutoRefPtr<BasicFileIO> TlMediaObj::getFp(OpResult& result, MediaIdRec* id, bool writable, MediaAgent agent) const {
    return behind().getFp(result, id, writable, agent);
}

FixedPoint<16> TlMediaObj::getMaxLength() const { return behind().getMaxLength(); }

unsigned long long TlMediaObj::getFrameLength() const { return behind().getFrameLength(); }

unsigned long long TlMediaObj::getReadSafeFrameLength() const { return behind().getReadSafeFrameLength(); }

bool TlMediaObj::getFinalFrameLength(unsigned long long& frames) const { return behind().getFinalFrameLength(frames); }

const MediaPropertyList& TlMediaObj::getProperties() const { return behind().getProperties(); }

OpResult TlMediaObj::requestStyle(const char* style, bool flag) { return behind().requestStyle(style, flag); }

const char* TlMediaObj::getStyle() const { return behind().getStyle(); }

const char* const* TlMediaObj::getStyles(unsigned& count) const { return behind().getStyles(count); }

void TlMediaObj::beginMorph() { behind().beginMorph(); }

void TlMediaObj::endMorph() { behind().endMorph(); }

void* TlMediaObj::getParseRoot() { return behind().getParseRoot(); }

AutoPtr<char> TlMediaObj::toString(bool full) const { return behind().toString(full); }

std::list<MediaObj*> TlMediaObj::getExternalRefMediaObj() const { return behind().getExternalRefMediaObj(); }

void TlMediaObj::setReadOnly() { behind().setReadOnly(); }

void TlMediaObj::computeSyncAdjustments() { behind().computeSyncAdjustments(); }

bool TlMediaObj::notifyLength(MediaTrackDesc& track) { return behind().notifyLength(track); }

bool TlMediaObj::acceptReplacement(const MediaObj* newObject) { return behind().acceptReplacement(newObject); }

void TlMediaObj::setClipProperties(bool flag) { behind().setClipProperties(flag); }

const char* TlMediaObj::getClipProperties() const { return behind().getClipProperties(); }

bool TlMediaObj::addClipProperty(const char* name) { return behind().addClipProperty(name); }

OpResult TlMediaObj::isClipSupported(const char* supported) const { return behind().isClipSupported(supported); }

void TlMediaObj::resetClipProperties() { behind().resetClipProperties(); }

OpResult TlMediaObj::requestClipProperties(const char* names) { return behind().requestClipProperties(names); }

const UserDataSet* TlMediaObj::getUserDataMovie() const { return behind().getUserDataMovie(); }

UserDataSet* TlMediaObj::getUserDataMovie(bool make) { return behind().getUserDataMovie(make); }

const char* TlMediaObj::getUmid() const { return behind().getUmid(); }

OpResult TlMediaObj::generateUmid() { return behind().generateUmid(); }

OpResult TlMediaObj::setProxyUmid(const MediaObj& other) { return behind().setProxyUmid(other); }

const char* TlMediaObj::getSourceUmid(OpResult& result) { return behind().getSourceUmid(result); }

OpResult TlMediaObj::rename(const char* newPath, bool renameMedia, Namer* namer) {
    return behind().rename(newPath, renameMedia, namer);
}

OpResult TlMediaObj::renameMediaId(MediaIdRec* id, const char* path) { return behind().renameMediaId(id, path); }

OpResult TlMediaObj::reviewMediaName(DefaultMediaNamer& namer, NameReq& req, std::string& name) {
    return behind().reviewMediaName(namer, req, name);
}

void TlMediaObj::addWriter() { behind().addWriter(); }

void TlMediaObj::dropWriter() { behind().dropWriter(); }

}  // namespace Timeline
