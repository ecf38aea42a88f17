#pragma once

#include <string>

#include "shared/include/index/sample_info.h"

// Pictures of MPEG-2 as small as one can be: a grey block of 16 by 16, and in its user data its number and some more,
// so that each has a size of its own. Ten of them are a closed group, in the order of decoding I P B B P B B P B B.
namespace filmpicture {

constexpr unsigned s_width = 16, s_height = 16, s_rate = 25;

SampleCodingType codingOf(unsigned long long number);
std::string bytesOf(unsigned long long number);

}  // namespace filmpicture
