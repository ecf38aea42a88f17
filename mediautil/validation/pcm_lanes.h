#pragma once

#include <cstdint>
#include <cstring>

// How the samples of each kind come into the lanes of a vector, and how one of them is read alone. A kind has
//   Lane, s_lanes    the type of a sample in a vector, and how many there are
//   s_bytes          of a sample in memory
//   Vector load(p)   the samples from there on; nothing behind them is read
//   value(p)         one sample
// Vectors are the compiler's own; where the processor has narrower ones they are taken apart.

// All of it is inlined, so how vectors would be handed from function to function doesn't matter.
#pragma GCC diagnostic ignored "-Wpsabi"

#define MO_INLINE inline __attribute__((always_inline))

namespace PcmLanes {

using Bytes16 = std::uint8_t __attribute__((vector_size(16)));
using Bytes32 = std::uint8_t __attribute__((vector_size(32)));

template <class Vector>
MO_INLINE Vector fetch(const unsigned char* memory) {
    Vector vector;
    std::memcpy(&vector, memory, sizeof vector);
    return vector;
}

MO_INLINE std::int32_t signedOf(std::uint32_t atTheTop, unsigned bits) {
    return static_cast<std::int32_t>(atTheTop) >> (32 - bits);
}

struct Narrow {
    using Lane = std::int16_t;
    using Vector = std::int16_t __attribute__((vector_size(32)));
    using Unsigned = std::uint16_t __attribute__((vector_size(32)));
    using Pairs = std::int32_t __attribute__((vector_size(32)));
    static constexpr unsigned s_lanes = 16;

    // The difference of two lanes has 17 bits, its amount 16.
    static MO_INLINE Unsigned step(const Vector& from, const Vector& to) {
        return (Unsigned)(to > from ? to : from) - (Unsigned)(to > from ? from : to);
    }
};

struct Wide {
    using Lane = std::int32_t;
    using Vector = std::int32_t __attribute__((vector_size(32)));
    using Unsigned = std::uint32_t __attribute__((vector_size(32)));
    using Pairs = std::int64_t __attribute__((vector_size(32)));
    static constexpr unsigned s_lanes = 8;

    // Samples of 32 bits may differ by more than that: the difference wraps, as the rule wants it.
    static MO_INLINE Unsigned step(const Vector& from, const Vector& to) {
        const Unsigned difference = (Unsigned)to - (Unsigned)from;
        return (Vector)difference < 0 ? 0 - difference : difference;
    }
};

struct Big8 : Narrow {
    static constexpr unsigned s_bytes = 1;
    static MO_INLINE Vector load(const unsigned char* p) {
        using Bytes = std::int8_t __attribute__((vector_size(16)));
        return __builtin_convertvector(fetch<Bytes>(p), Vector);
    }
    static MO_INLINE std::int32_t value(const unsigned char* p) { return static_cast<std::int8_t>(p[0]); }
};

struct Big16 : Narrow {
    static constexpr unsigned s_bytes = 2;
    static MO_INLINE Vector load(const unsigned char* p) {
        const auto swapped = fetch<Unsigned>(p);
        return (Vector)(swapped << 8 | swapped >> 8);
    }
    static MO_INLINE std::int32_t value(const unsigned char* p) { return static_cast<std::int16_t>(p[0] << 8 | p[1]); }
};

// The same where a shuffle of bytes is one instruction.
struct Big16Shuffled : Big16 {
    static MO_INLINE Vector load(const unsigned char* p) {
        const auto bytes = fetch<Bytes32>(p);
        return (Vector)__builtin_shufflevector(bytes, bytes, 1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 17,
                                               16, 19, 18, 21, 20, 23, 22, 25, 24, 27, 26, 29, 28, 31, 30);
    }
};

// Eight samples of three bytes: four from the first twelve bytes, four from the other twelve. Each comes to the top of
// its lane; what lies below it there is shifted out.
struct Big24 : Wide {
    static constexpr unsigned s_bytes = 3;
    // The difference has 25 bits.
    static MO_INLINE Unsigned step(const Vector& from, const Vector& to) {
        const Vector difference = to - from;
        return (Unsigned)(difference < 0 ? -difference : difference);
    }
    static MO_INLINE Vector load(const unsigned char* p) {
        const Bytes32 both = fetchBoth(p);
        return (Vector)__builtin_shufflevector(both, both, 0, 2, 1, 0, 3, 5, 4, 3, 6, 8, 7, 6, 9, 11, 10, 9, 20, 22, 21,
                                               20, 23, 25, 24, 23, 26, 28, 27, 26, 29, 31, 30, 29) >>
               8;
    }
    static MO_INLINE std::int32_t value(const unsigned char* p) {
        return signedOf(std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8, 24);
    }
    // The other twelve stand at the end of the upper half.
    static MO_INLINE Bytes32 fetchBoth(const unsigned char* p) {
        return __builtin_shufflevector(fetch<Bytes16>(p), fetch<Bytes16>(p + 8), 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
                                       12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
    }
};

// The same where shuffles of bytes are many instructions: word by word, of which the last is taken by its end.
struct Big24Common : Big24 {
    static MO_INLINE Vector load(const unsigned char* p) {
        return Vector{word(p),      word(p + 3),  word(p + 6),  word(p + 9),
                      word(p + 12), word(p + 15), word(p + 18), word(p + 20) << 8} >>
               8;
    }
    static MO_INLINE std::int32_t word(const unsigned char* p) {
        std::uint32_t word;
        std::memcpy(&word, p, sizeof word);
        return static_cast<std::int32_t>(__builtin_bswap32(word));
    }
};

// The rule keeps the upper two bytes of these, without a sign.
struct Little24 : Wide {
    static constexpr unsigned s_bytes = 3;
    static MO_INLINE Vector load(const unsigned char* p) {
        const Bytes32 both = Big24::fetchBoth(p);
        const auto tops =
            (Unsigned)__builtin_shufflevector(both, both, 0, 0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 20, 20, 21,
                                              22, 23, 23, 24, 25, 26, 26, 27, 28, 29, 29, 30, 31);
        return (Vector)(tops >> 16);
    }
    static MO_INLINE std::int32_t value(const unsigned char* p) { return p[1] | p[2] << 8; }
};

struct Big32 : Wide {
    static constexpr unsigned s_bytes = 4;
    static MO_INLINE Vector load(const unsigned char* p) {
        const auto bytes = fetch<Bytes32>(p);
        return (Vector)__builtin_shufflevector(bytes, bytes, 3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12, 19,
                                               18, 17, 16, 23, 22, 21, 20, 27, 26, 25, 24, 31, 30, 29, 28);
    }
    static MO_INLINE std::int32_t value(const unsigned char* p) {
        std::uint32_t word;
        std::memcpy(&word, p, sizeof word);
        return static_cast<std::int32_t>(__builtin_bswap32(word));
    }
};

struct Little32 : Wide {
    static constexpr unsigned s_bytes = 4;
    static MO_INLINE Vector load(const unsigned char* p) { return fetch<Vector>(p); }
    static MO_INLINE std::int32_t value(const unsigned char* p) {
        std::int32_t word;
        std::memcpy(&word, p, sizeof word);
        return word;
    }
};

}  // namespace PcmLanes
