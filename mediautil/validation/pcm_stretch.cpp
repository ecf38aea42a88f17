#include "mediautil/validation/pcm_stretch.h"

#include <algorithm>
#include <numeric>

#include "mediautil/validation/pcm_lanes.h"
#include "shared/include/validation/pcm_parser.h"

// A lane of a vector belongs to the same channel again after as many vectors as make whole instants: a group. Each lane
// of a group has a count and a maximum of its own, which are put together for each channel at the end.

namespace {

using Form = PcmScanner::Form;
using Found = PcmScanner::Found;

constexpr unsigned s_mostVectors = 1024;  // in one pass: the counts of narrow lanes hold it, and the cache its bytes

constexpr unsigned vectorsOfGroup(unsigned channels, unsigned lanes) { return channels / std::gcd(channels, lanes); }

// One after the other: the sync words that an instant of two channels begins a burst with.
template <class Kind>
MO_INLINE typename Kind::Pairs syncPairs(const Form& form) {
    typename Kind::Vector words = {};
    for (unsigned lane = 0; lane < Kind::s_lanes; ++lane)
        words[lane] = static_cast<typename Kind::Lane>(lane % 2 == 0 ? form.m_syncPa : form.m_syncPb);
    return (typename Kind::Pairs)words;
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

// The pass over whole groups of `Vectors` vectors, or of a number known at run time if that is 0.
template <class Kind, unsigned Vectors>
MO_INLINE void passOver(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    using Vector = typename Kind::Vector;
    using Unsigned = typename Kind::Unsigned;
    const unsigned vectors = Vectors != 0 ? Vectors : vectorsOfGroup(form.m_channels, Kind::s_lanes);
    const std::size_t instant = std::size_t{form.m_channels} * Kind::s_bytes;
    constexpr std::uint32_t largest = static_cast<typename std::make_unsigned<typename Kind::Lane>::type>(-1);
    const Unsigned limit = Unsigned{} + static_cast<typename std::make_unsigned<typename Kind::Lane>::type>(
                                            std::min(form.m_limit, largest));
    const typename Kind::Pairs sync = syncPairs<Kind>(form);
    Unsigned maxStep[Vectors != 0 ? Vectors : PcmPattern::s_maxChannels] = {};
    Unsigned over[Vectors != 0 ? Vectors : PcmPattern::s_maxChannels] = {};
    Vector values = {};
    typename Kind::Pairs hits = {};
    for (unsigned group = 0; group < groups; ++group) {
        for (unsigned i = 0; i < vectors; ++i) {
            const Vector now = Kind::load(memory);
            const Unsigned step = Kind::step(Kind::load(memory - instant), now);
            values |= now;
            hits |= (typename Kind::Pairs)now == sync;
            maxStep[i] = step > maxStep[i] ? step : maxStep[i];
            over[i] -= (Unsigned)(step > limit);  // a lane that compares true is -1
            memory += Kind::s_lanes * Kind::s_bytes;
        }
    }
    found.m_anyValue = anyBit(values);
    found.m_sync = anyBit(hits);
    for (unsigned i = 0; i < vectors * Kind::s_lanes; ++i) {
        const unsigned channel = i % form.m_channels;
        const std::uint32_t laneMax = maxStep[i / Kind::s_lanes][i % Kind::s_lanes];
        found.m_maxStep[channel] = std::max(found.m_maxStep[channel], laneMax);
        found.m_over[channel] += over[i / Kind::s_lanes][i % Kind::s_lanes];
    }
}

// The usual numbers of channels fit one vector, and what is found then stays in registers.
template <class Kind>
MO_INLINE void passOverAny(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    if (vectorsOfGroup(form.m_channels, Kind::s_lanes) == 1) {
        passOver<Kind, 1>(form, memory, groups, found);
    } else {
        passOver<Kind, 0>(form, memory, groups, found);
    }
}

template <class Kind>
void commonPass(const Form& form, const unsigned char* memory, unsigned groups, Found& found) {
    passOverAny<Kind>(form, memory, groups, found);
}

#if defined(__x86_64__)

template <class Kind>
__attribute__((target("avx2"))) void avx2Pass(const Form& form, const unsigned char* memory, unsigned groups,
                                              Found& found) {
    passOverAny<Kind>(form, memory, groups, found);
}

template <class Kind>
PcmScanner::Pass passFor(PcmVectors vectors) {
    const bool isWide = vectors == PcmVectors::Widest && __builtin_cpu_supports("avx2");
    return isWide ? &avx2Pass<Kind> : &commonPass<Kind>;
}

#else

template <class Kind>
PcmScanner::Pass passFor(PcmVectors) {
    return &commonPass<Kind>;
}

#endif

struct Reader {
    PcmScanner::Pass m_pass = nullptr;
    PcmScanner::Value m_value = nullptr;
    unsigned m_lanes = 0;
};

template <class Kind>
Reader readerFor(PcmVectors vectors) {
    return Reader{passFor<Kind>(vectors), &Kind::value, Kind::s_lanes};
}

Reader readerOf(MediaEndian endian, unsigned bytes, PcmVectors vectors) {
    const bool isBig = endian == MediaEndian::Big;
    if (bytes == 4) return isBig ? readerFor<PcmLanes::Big32>(vectors) : readerFor<PcmLanes::Little32>(vectors);
    if (bytes == 3) return isBig ? readerFor<PcmLanes::Big24>(vectors) : readerFor<PcmLanes::Little24>(vectors);
    if (bytes == 2 && isBig) return readerFor<PcmLanes::Big16>(vectors);
    if (bytes == 1 && isBig) return readerFor<PcmLanes::Big8>(vectors);
    return Reader();
}

std::uint32_t stepBetween(std::int32_t from, std::int32_t to) {
    const std::uint32_t difference = static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from);
    return static_cast<std::int32_t>(difference) < 0 ? 0 - difference : difference;
}

}  // namespace

PcmScanner::PcmScanner(const PcmParser& parser, unsigned limit, PcmVectors vectors)
    : m_form{parser.getBytesPerSample(), parser.getChannels(), limit, parser.getSyncPa(), parser.getSyncPb()},
      m_parser(parser),
      m_isBlind(parser.getEndian() == MediaEndian::Little && (m_form.m_bytes == 1 || m_form.m_bytes == 2)) {
    if (m_form.m_channels == 0 || m_form.m_channels > PcmPattern::s_maxChannels) return;
    const Reader reader = readerOf(parser.getEndian(), m_form.m_bytes, vectors);
    m_pass = reader.m_pass;
    m_value = reader.m_value;
    if (m_isBlind) m_least = 1;
    if (m_pass == nullptr) return;
    m_least = vectorsOfGroup(m_form.m_channels, reader.m_lanes) * reader.m_lanes / m_form.m_channels;
}

PcmStretch PcmScanner::scan(const unsigned char* memory, unsigned samples) const {
    PcmStretch stretch;
    if (m_isBlind) {
        stretch.m_samples = samples;
        return stretch;
    }
    const unsigned most = s_mostVectors / m_form.m_channels;
    unsigned groups = std::min(samples / m_least, most);
    Found found;
    m_pass(m_form, memory, groups, found);
    if (found.m_sync && m_parser.isLookingForBurst()) {
        groups = findSync(memory, groups * m_least) / m_least;
        found = Found();
        m_pass(m_form, memory, groups, found);
    }
    stretch.m_samples = groups * m_least;
    if (groups > 0) close(memory, found, stretch);
    return stretch;
}

unsigned PcmScanner::findSync(const unsigned char* memory, unsigned samples) const {
    const std::size_t bytes = m_form.m_bytes;
    for (unsigned i = 0; i < samples; ++i) {
        const unsigned char* const at = memory + i * 2 * bytes;
        if (m_value(at) == m_form.m_syncPa && m_value(at + bytes) == m_form.m_syncPb) return i;
    }
    return samples;
}

void PcmScanner::close(const unsigned char* memory, const Found& found, PcmStretch& stretch) const {
    const std::size_t instant = std::size_t{m_form.m_channels} * m_form.m_bytes;
    const unsigned char* const last = memory + (stretch.m_samples - 1) * instant;
    stretch.m_silent = !found.m_anyValue;
    for (unsigned i = 0; i < m_form.m_channels; ++i) {
        const unsigned char* const at = last + i * m_form.m_bytes;
        PcmStretch::Channel& channel = stretch.m_chan[i];
        channel.m_last = m_value(at);
        channel.m_lastStep = stepBetween(m_value(at - instant), channel.m_last);
        channel.m_maxStep = found.m_maxStep[i];
        channel.m_over = found.m_over[i];
    }
}
