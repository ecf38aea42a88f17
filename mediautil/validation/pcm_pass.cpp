#include "mediautil/validation/pcm_pass.h"

#include <algorithm>
#include <numeric>
#include <type_traits>

#include "mediautil/validation/pcm_lanes.h"

// Each lane of a group has a maximum and a count of its own, which are put together for each channel at the end.

namespace {

using PcmPass::Form;
using PcmPass::Found;
using PcmPass::Pass;
using PcmPass::Reader;
using PcmPass::vectorsOfGroup;

constexpr unsigned s_fetchAhead = 1024;  // bytes that are on their way from memory while these are looked at

enum class Counting { Off, On };

// One after the other: the sync words that an instant of two channels begins a burst with.
template <class Kind>
MO_INLINE typename Kind::Pairs syncPairs(const Form& form) {
    typename Kind::Vector words = {};
    for (unsigned lane = 0; lane < Kind::s_lanes; ++lane)
        words[lane] = static_cast<typename Kind::Lane>(lane % 2 == 0 ? form.m_syncPa : form.m_syncPb);
    return (typename Kind::Pairs)words;
}

template <class Kind>
MO_INLINE typename Kind::Unsigned limitOf(const Form& form) {
    using Step = typename std::make_unsigned<typename Kind::Lane>::type;
    constexpr std::uint32_t largest = static_cast<Step>(-1);
    return typename Kind::Unsigned{} + static_cast<Step>(std::min(form.m_limit, largest));
}

template <class Vector>
MO_INLINE bool anyBit(const Vector& vector) {
    std::uint64_t words[sizeof(Vector) / 8];
    std::memcpy(words, &vector, sizeof words);
    std::uint64_t all = 0;
    for (const std::uint64_t word : words)
        all |= word;
    return all != 0;
}

// The pass over groups of `Vectors` vectors, or of a number known at run time if that is 0.
template <class Kind, unsigned Vectors, Counting Counts>
MO_INLINE void passOver(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    using Unsigned = typename Kind::Unsigned;
    const unsigned vectors = Vectors != 0 ? Vectors : vectorsOfGroup(form.m_channels, Kind::s_lanes);
    const std::size_t instant = std::size_t{form.m_channels} * Kind::s_bytes;
    const Unsigned limit = limitOf<Kind>(form);
    const typename Kind::Pairs sync = syncPairs<Kind>(form);
    Unsigned maxStep[Vectors != 0 ? Vectors : PcmPattern::s_maxChannels] = {};
    Unsigned over[Vectors != 0 ? Vectors : PcmPattern::s_maxChannels] = {};
    typename Kind::Pairs hits = {};
    for (unsigned group = 0; group < groups; ++group) {
        for (unsigned i = 0; i < vectors; ++i) {
            __builtin_prefetch(memory + s_fetchAhead);
            const typename Kind::Vector now = Kind::load(memory);
            const Unsigned step = Kind::step(Kind::load(memory - instant), now);
            hits |= (typename Kind::Pairs)now == sync;
            maxStep[i] = step > maxStep[i] ? step : maxStep[i];
            if constexpr (Counts == Counting::On) over[i] -= (Unsigned)(step > limit);  // a lane that is true is -1
            memory += Kind::s_lanes * Kind::s_bytes;
        }
    }
    found.m_sync = anyBit(hits);
    for (unsigned i = 0; i < vectors * Kind::s_lanes; ++i) {
        const unsigned channel = i % form.m_channels;
        const std::uint32_t laneMax = maxStep[i / Kind::s_lanes][i % Kind::s_lanes];
        found.m_maxStep[channel] = std::max(found.m_maxStep[channel], laneMax);
        found.m_over[channel] += over[i / Kind::s_lanes][i % Kind::s_lanes];
    }
}

// The usual numbers of channels fit one vector, and what is found then stays in registers.
template <class Kind, Counting Counts>
MO_INLINE void passOverAny(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    if (vectorsOfGroup(form.m_channels, Kind::s_lanes) == 1) {
        passOver<Kind, 1, Counts>(form, memory, groups, found);
    } else {
        passOver<Kind, 0, Counts>(form, memory, groups, found);
    }
}

template <class Kind, Counting Counts>
void commonPass(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    passOverAny<Kind, Counts>(form, memory, groups, found);
}

template <class Kind>
Reader commonReader() {
    return Reader{&commonPass<Kind, Counting::Off>, &commonPass<Kind, Counting::On>, &Kind::value, Kind::s_lanes};
}

#if defined(__x86_64__)

template <class Kind, Counting Counts>
__attribute__((target("avx2"))) void avx2Pass(const Form& form, const unsigned char* memory, unsigned groups,
                                              Found& found) {
    passOverAny<Kind, Counts>(form, memory, groups, found);
}

template <class Common, class Shuffled>
Reader readerFor(PcmVectors vectors) {
    if (vectors == PcmVectors::Common || !__builtin_cpu_supports("avx2")) return commonReader<Common>();
    return Reader{&avx2Pass<Shuffled, Counting::Off>, &avx2Pass<Shuffled, Counting::On>, &Shuffled::value,
                  Shuffled::s_lanes};
}

#else

template <class Common, class Shuffled>
Reader readerFor(PcmVectors) {
    return commonReader<Common>();
}

#endif

}  // namespace

unsigned PcmPass::vectorsOfGroup(unsigned channels, unsigned lanes) { return channels / std::gcd(channels, lanes); }

Reader PcmPass::readerOf(MediaEndian endian, unsigned bytes, PcmVectors vectors) {
    using namespace PcmLanes;
    const bool isBig = endian == MediaEndian::Big;
    if (bytes == 4) return isBig ? readerFor<Big32, Big32>(vectors) : readerFor<Little32, Little32>(vectors);
    if (bytes == 3) return isBig ? readerFor<Big24Common, Big24>(vectors) : readerFor<Little24, Little24>(vectors);
    if (bytes == 2 && isBig) return readerFor<Big16, Big16Shuffled>(vectors);
    if (bytes == 1 && isBig) return readerFor<Big8, Big8>(vectors);
    return Reader();
}
