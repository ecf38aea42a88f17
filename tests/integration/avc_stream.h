#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Streams of AVC as no encoder at hand makes them: each picture is one macroblock, or one in each of two fields. A
// picture of I is of plain grey, the others repeat what they refer to.
namespace avcstream {

struct Picture {
    char m_kind = 'P';
    std::uint32_t m_count = 0;  // when it is shown: frames from the last new beginning, as it is coded
    bool m_isReference = true;  // others may refer to it
    bool m_isReset = false;     // all pictures that are kept are forgotten with it
    char m_secondField = '\0';  // the kind of the other field of a pair
};

struct Stream {
    unsigned m_orderKind = 0;  // how pictures tell when they are shown
    bool m_hasFields = false;
    std::vector<Picture> m_pictures;  // in the order of decoding; an I of count 0 begins anew

    // The units of each picture, without anything around them; sets stand in front of each new beginning.
    std::vector<std::vector<std::string>> units() const;
};

// A picture's units as they lie in movies, and as they lie in a bare stream.
std::string withLengths(const std::vector<std::string>& units);
std::string withStartCodes(const std::vector<std::string>& units);

}  // namespace avcstream
