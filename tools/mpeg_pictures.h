#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/include/index/sample_info.h"
#include "tools/sample_source.h"

class MediaClipParam;

// Cuts a stream of MPEG-2 video into its pictures, each with the headers in front of it; the two fields of a picture
// stay together. Source: ISO/IEC 13818-2.
class MpegPictures {
public:
    static constexpr unsigned s_mark = 4;  // bytes

    explicit MpegPictures(SampleSource& source) : m_source(source) {}

    // Whether a stream begins so.
    static bool isMark(const unsigned char* bytes) {
        return bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1 && bytes[3] == 0xB3;
    }
    // Reads the first picture, and fills in what its headers say. Fails: false for a stream that has none.
    bool describe(MediaClipParam& param, std::optional<Failure>& failure);
    // Stores the next picture. Answers false at the end.
    bool next(std::string& picture, SampleCodingType& kind, std::optional<Failure>& failure);

private:
    bool isStart(std::size_t at) const;
    bool isEndOfPicture(std::size_t at);
    bool fill(std::optional<Failure>& failure);

    SampleSource& m_source;
    std::string m_ahead;     // bytes that no picture was made of yet
    std::size_t m_at = 0;    // looked at so far
    unsigned m_headers = 0;  // of pictures in the one that is being cut
    bool m_isField = false;  // its first one is a field
    bool m_atEnd = false;
    SampleCodingType m_kind = SampleCodingType::Unknown;
};
