#pragma once

#include <cstdint>

#include "shared/include/object/media_obj.h"

// A movie that is made out of other movies: it has a descriptor of its own, and no file.
class FilterMediaObj : public MediaObj {
public:
    // Whether the movie says of itself that it can be written to, and so takes the lengths that it is notified of.
    enum class OpenAsWriter : std::uint32_t { No = 0, Yes = 1 };

    FilterMediaObj(OpenAsWriter asWriter, CacheRefValue cacheRefs);

    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    bool isStream() const override { return false; }
};
