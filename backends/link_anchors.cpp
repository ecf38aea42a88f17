#include "backends/link_anchors.h"

#include "shared/include/object/media_format.h"

void forceMediaUtilLink() {
    forceLinkGxfMediaObj();
    forceLinkMxfMediaObj();
    forceLinkAesMediaObj();
    forceLinkQtMediaObj();
    forceLinkDvMediaObj();
    forceLinkAifMediaObj();
    forceLinkWavMediaObj();
    forceLinkMpegMediaObj();
    forceLinkMpeg4MediaObj();
    forceLinkAvcMediaObj();
    forceLinkDnxhdMediaObj();
    forceLinkVbiMediaObj();
    forceLink436mMediaObj();
    forceLinkNullMediaObj();
    forceLinkStreamedMediaObj();
    forceLinkAacMediaObj();
    forceLinkTsMediaObj();
    forceLinkProresMediaObj();
    forceLinkJpeg2000MediaObj();
}

// The formats that this build has no back-end for.
void forceLinkGxfMediaObj() {}
void forceLinkMxfMediaObj() {}
void forceLinkAesMediaObj() {}
void forceLinkMpegMediaObj() {}
void forceLinkMpeg4MediaObj() {}
void forceLinkAvcMediaObj() {}
void forceLinkDnxhdMediaObj() {}
void forceLinkVbiMediaObj() {}
void forceLink436mMediaObj() {}
void forceLinkNullMediaObj() {}
void forceLinkStreamedMediaObj() {}
void forceLinkAacMediaObj() {}
void forceLinkTsMediaObj() {}
void forceLinkProresMediaObj() {}
void forceLinkJpeg2000MediaObj() {}
