#pragma once

#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"

// The movie descriptor that an object holds. **Owns** nothing: the object owns it.
template <typename T>
class PrivMovieDesc : public MediaMovieDesc {
public:
    // All unknown and read-only until the back-end fills it in, with a time base that may be divided by.
    explicit PrivMovieDesc(T* obj)
        : PrivMovieDesc(obj, MediaFileType::Unknown, 1, false, MediaEncodingType::Unknown, MediaVideoRate::Unknown) {}

    PrivMovieDesc(T* obj, MediaFileType fileType, unsigned int timeBase, bool writable, MediaEncodingType encoding,
                  MediaVideoRate standard)
        : MediaMovieDesc(fileType, timeBase, writable, encoding, standard, 0), m_obj(obj) {}

    T* getObj() override { return m_obj; }

    // Fail: Warning 17. Only movies with in and out points override them.
    OpResult setSelectIn(unsigned long long) override { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }
    OpResult setSelectOut(unsigned long long) override { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

protected:
    T* m_obj;  // borrowed
};
