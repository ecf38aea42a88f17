#include <algorithm>

#include "mediautil/object/media_obj_impl.h"
#include "services/system/log.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"

// Morphing: a movie that is being built stands in the cache already, and readers wait for its end.

namespace {

const char* pathOrNil(const char* path) { return path != nullptr ? path : "(nil)"; }

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
    if (getMovieDesc()->isWritable()) setClipProperties(false);
    computeSyncAdjustments();
}

std::list<MediaObj*> MediaObj::filterDupObjects(std::list<MediaObj*> objects) const {
    objects.sort();
    objects.unique();
    return objects;
}
