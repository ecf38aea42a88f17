#pragma once

#include <cstdint>

#include "support/auto_ptr.h"
#include "support/visibility.h"

// The part of a movie that must not be copied yet.
struct MediaRedZone {
    enum class ZoneType : std::uint32_t {
        Bytes = 0,     // so many bytes
        WholeFile = 1  // the file, whatever the size says
    };

    MediaRedZone(ZoneType type, unsigned long long size) : m_type(type), m_size(size) {}

    // Nothing is held back.
    static MediaRedZone okToCopy() { return {ZoneType::Bytes, 0}; }
    // Gives: array text.
    MO_PUBLIC AutoPtr<char> toString() const;

    ZoneType m_type;
    unsigned long long m_size;
};
