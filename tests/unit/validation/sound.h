#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "shared/include/description/media_enums.h"

// Blocks of sound for the tests of validation. A word is one channel's sample.
namespace sound {

struct Form {
    MediaEndian m_endian = MediaEndian::Big;
    unsigned m_bytes = 2;
    unsigned m_channels = 2;

    unsigned instant() const { return m_bytes * m_channels; }
};

inline std::string word(const Form& form, std::int64_t value) {
    std::string bytes;
    for (unsigned i = 0; i < form.m_bytes; ++i) {
        const unsigned place = form.m_endian == MediaEndian::Big ? form.m_bytes - 1 - i : i;
        bytes += static_cast<char>(value >> 8 * place);
    }
    return bytes;
}

inline std::string words(const Form& form, const std::vector<std::int64_t>& values) {
    std::string bytes;
    for (const std::int64_t value : values)
        bytes += word(form, value);
    return bytes;
}

// The same value in all channels of so many instants.
inline std::string steady(const Form& form, std::int64_t value, unsigned instants) {
    std::string bytes;
    for (unsigned i = 0; i < instants * form.m_channels; ++i)
        bytes += word(form, value);
    return bytes;
}

// A word with these 16 bits at its top.
inline std::string top(const Form& form, std::uint16_t bits) {
    return word(form, static_cast<std::int64_t>(bits) << 8 * (form.m_bytes - 2));
}

// A burst in a stereo pair: its sync words, a length word for `declared` instants, and `present` instants of noise.
inline std::string burst(const Form& form, unsigned declared, unsigned present, unsigned seed = 1) {
    std::string bytes = top(form, 0xF872) + top(form, 0x4E1F) + top(form, 1);
    bytes += top(form, static_cast<std::uint16_t>(declared * 32));
    std::minstd_rand noise(seed);
    for (unsigned i = 0; i < present * form.instant(); ++i)
        bytes += static_cast<char>(noise() >> 8);
    return bytes;
}

}  // namespace sound
