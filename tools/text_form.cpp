#include "tools/text_form.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

constexpr std::string_view s_replacement = "\xEF\xBF\xBD";

// How many bytes a first byte promises, 0 when it can't be one.
unsigned sequenceLength(unsigned char first) {
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return 2;
    if (first >= 0xE0 && first <= 0xEF) return 3;
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

// The bytes of the character at the start of the text, 0 when there is none: longer forms than needed, surrogates and
// numbers past the last one are none.
unsigned characterLength(std::string_view text) {
    const auto byteAt = [text](unsigned i) { return static_cast<unsigned char>(text[i]); };
    const unsigned length = sequenceLength(byteAt(0));
    if (length == 0 || length > text.size()) return 0;
    for (unsigned i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xC0) != 0x80) return 0;
    }
    if (length < 3) return length;
    const unsigned second = byteAt(1);
    const bool tooLong = (byteAt(0) == 0xE0 && second < 0xA0) || (byteAt(0) == 0xF0 && second < 0x90);
    const bool noCharacter = (byteAt(0) == 0xED && second > 0x9F) || (byteAt(0) == 0xF4 && second > 0x8F);
    return tooLong || noCharacter ? 0 : length;
}

bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string printable(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const unsigned length = characterLength(bytes);
        const std::string_view character = bytes.substr(0, length == 0 ? 1 : length);
        text += length == 0 || isControl(character) ? s_replacement : character;
        bytes.remove_prefix(character.size());
    }
    return text;
}

std::optional<unsigned long long> parseCount(const std::string& text) {
    unsigned long long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text.empty()) return std::nullopt;
    return value;
}

std::string clockTime(double seconds) {
    const auto milliseconds = static_cast<unsigned long long>(std::llround(seconds * 1000));
    char text[40];
    std::snprintf(text, sizeof text, "%02llu:%02llu:%02llu.%03llu", milliseconds / 3600000, milliseconds / 60000 % 60,
                  milliseconds / 1000 % 60, milliseconds % 1000);
    return text;
}
