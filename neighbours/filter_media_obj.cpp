#include "neighbours/filter_media_obj.h"

#include "shared/include/description/media_movie_desc.h"

FilterMediaObj::FilterMediaObj(OpenAsWriter asWriter, CacheRefValue cacheRefs) : MediaObj(0, cacheRefs) {
    getDesc()->setWritable(asWriter == OpenAsWriter::Yes);
}
