#pragma once

#include <optional>
#include <string>
#include <string_view>

// Pure forms of text.

// The text as UTF-8 that a terminal may show: bytes that aren't UTF-8 and control characters become U+FFFD.
std::string printable(std::string_view bytes);
// A decimal number without sign; nothing for any other text and for what 64 bits don't hold.
std::optional<unsigned long long> parseCount(const std::string& text);
// Hours, minutes, seconds and milliseconds: 01:02:03.004.
std::string clockTime(double seconds);
