#include <algorithm>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"

// Morphing: a movie that is being built stands in the cache already, and readers wait for its end.

namespace {

using SizeAdvice = BasicIOTypes::SizeAdvice;

const char* pathOrNil(const char* path) { return path != nullptr ? path : "(nil)"; }

// Bits a second of the clips that the tracks begin with.
unsigned long long bitrateOf(const MediaObj& movie) {
    unsigned long long sum = 0;
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        const MediaTrackDesc* track = movie.getTrackAt(i);
        if (track->getClipCount() != 0) sum += track->getClip(0)->getBitrate();
    }
    return sum;
}

// Closes the movie's own file and makes it anew with the other stripes.
void restripe(MediaObj& movie, BasicFileIO& file, SizeAdvice wanted) {
    file.close();
    file.advise(wanted);
    file.setMode(BasicIOTypes::Mode::Create);
    file.open();
    CachedMediaObj::getRef()->updateId(&movie);
}

// Out of action on purpose: a file that was made for media and got a little of it is left as it lies.
constexpr bool s_restripe = false;

void checkStripes(MediaObj& movie) {
    constexpr unsigned long long mostOfSmall = 5000000;  // bits a second that small stripes can carry
    SizeAdvice wanted = SizeAdvice::LargeStripe;
    if (movie.getContainment() == MediaContainment::Embedded && bitrateOf(movie) <= mostOfSmall)
        wanted = SizeAdvice::SmallStripe;
    MediaFileList& files = movie.impl().m_fileList;
    if (!s_restripe || files.size() == 0 || files.getSizeAdvice(0) >= wanted) return;
    OpResult result(OpResult::Ok);
    const AutoRefPtr<BasicFileIO> file = movie.getFp(result, movie.getMediaId(0), true, MediaAgent(nullptr));
    if (!file) return;
    const auto* held = dynamic_cast<const FsFileIO*>(file.get());
    if (held != nullptr && held->isOpen()) {
        warningMsg("Warning: %s created for %s, but should be %s\n", pathOrNil(movie.getPath(nullptr)), "large stripe",
                   "small stripe");
    } else {
        restripe(movie, *file, wanted);
    }
}

// Keeps readers back until the last steps have been done, for which the count has fallen already.
class MorphEnd {
public:
    explicit MorphEnd(MediaObjImpl& impl) : m_impl(impl) { ++m_impl.m_morphEnds; }
    MorphEnd(const MorphEnd&) = delete;
    ~MorphEnd() { --m_impl.m_morphEnds; }

private:
    MediaObjImpl& m_impl;
};

}  // namespace

bool MediaObj::isMorphing() const { return m_impl->m_morphCount.getCount() > 0; }

bool MediaObj::ensureMorphing(const char* who) const {
    if (isMorphing()) return true;
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) warningMsg("%s: morphing not set.\n", who);
    return false;
}

void MediaObj::beginMorph() {
    const int count = ++m_impl->m_morphCount;
    if (mediaObjDbg.on(MediaDbg::Morph)) debugMsg("MO::beginMorph(%s)-->%d\n", pathOrNil(getPath(nullptr)), count);
}

void MediaObj::endMorph() {
    const MorphEnd end(*m_impl);
    const int count = --m_impl->m_morphCount;
    if (mediaObjDbg.on(MediaDbg::Morph)) debugMsg("MO::endMorph(%s)-->%d\n", pathOrNil(getPath(nullptr)), count);
    if (count < 0) {
        static std::atomic<bool> told{false};
        if (!told.exchange(true)) errorMsg("MO::endMorph: too many calls for %s\n", pathOrNil(getPath(nullptr)));
    }
    if (count != 0) return;
    if (m_impl->isWritable()) {
        // A movie's references become known only while it morphs, so they gain their writer here.
        for (MediaObj* referenced : filterDupObjects(getExternalRefMediaObj()))
            referenced->addWriter();
    }
    if (getMovieDesc()->isWritable()) {
        setClipProperties(false);
        checkStripes(*this);
    }
    computeSyncAdjustments();
}

std::list<MediaObj*> MediaObj::filterDupObjects(std::list<MediaObj*> objects) const {
    objects.sort();
    objects.unique();
    return objects;
}
