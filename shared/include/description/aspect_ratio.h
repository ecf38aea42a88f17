#pragma once

#include "shared/include/description/media_enums.h"

// The aspect ratio of a picture: what the file states, overridden by what active format data says.
class AspectRatio {
public:
    // Tag: the ratio comes from active format data.
    struct ViaAFD {};

    MediaAspectRatio get() const { return m_afd != MediaAspectRatio::Unknown ? m_afd : m_file; }

    // Stores what the file states. Answers whether that changed.
    bool set(MediaAspectRatio ratio) { return store(m_file, ratio); }

    // Stores what active format data says. Answers whether that changed.
    bool set(MediaAspectRatio ratio, ViaAFD) { return store(m_afd, ratio); }

    AspectRatio& operator=(MediaAspectRatio ratio) {
        set(ratio);
        return *this;
    }

private:
    static bool store(MediaAspectRatio& field, MediaAspectRatio ratio) {
        if (field == ratio) return false;
        field = ratio;
        return true;
    }

    MediaAspectRatio m_file = MediaAspectRatio::Unknown;
    MediaAspectRatio m_afd = MediaAspectRatio::Unknown;
};
