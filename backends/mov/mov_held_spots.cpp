#include "backends/mov/mov_held_spots.h"

#include <algorithm>
#include <bit>
#include <new>

namespace {

// A slot's words, and behind them the bits of the sizes and then those of the gaps that aren't the least one. The first
// says which block it is, of how many samples, and the bits of a size and of a gap; it is 0 in an empty slot.
constexpr unsigned s_what = 0, s_base = 1, s_leastGap = 2, s_leastSize = 3, s_syncs = 4, s_wideGaps = 5, s_bits = 6;

constexpr std::uint64_t s_mostBlocks = 0xFFFFFFFF;  // whose numbers, and one, fit 32 bits
constexpr std::int64_t s_mostGap = 1ll << 48;       // sums of a block's fit 64 bits, either way

struct What {
    unsigned count, sizeBits, gapBits;
};

std::uint64_t whatOf(std::uint64_t block, What what) {
    return (block + 1) << 24 | std::uint64_t{what.count} << 16 | what.sizeBits << 8 | what.gapBits;
}
What partsOf(std::uint64_t word) {
    return {static_cast<unsigned>(word >> 16 & 0xFF), static_cast<unsigned>(word >> 8 & 0xFF),
            static_cast<unsigned>(word & 0xFF)};
}

std::uint64_t bitsAt(const std::uint64_t* words, unsigned at, unsigned width) {
    if (width == 0) return 0;
    const unsigned shift = at % 64;
    std::uint64_t value = words[at / 64] >> shift;
    if (shift + width > 64) value |= words[at / 64 + 1] << (64 - shift);
    return value & ~0ull >> (64 - width);
}

void setBits(std::uint64_t* words, unsigned at, unsigned width, std::uint64_t value) {
    if (width == 0) return;
    const unsigned shift = at % 64;
    words[at / 64] |= (value & ~0ull >> shift) << shift;
    if (shift + width > 64) words[at / 64 + 1] |= value >> (64 - shift);
}

std::uint64_t sumOf(const std::uint64_t* words, unsigned at, unsigned width, unsigned count) {
    std::uint64_t sum = 0;
    for (unsigned i = 0; i < count; ++i)
        sum += bitsAt(words, at + i * width, width);
    return sum;
}

// Bytes between a sample and the one before it; below 0 where the file goes back.
std::int64_t gapBefore(const MovHeldSpots::Block& block, unsigned sample) {
    const auto end = static_cast<std::int64_t>(block.offsets[sample - 1]) + block.sizes[sample - 1];
    return static_cast<std::int64_t>(block.offsets[sample]) - end;
}

struct Gaps {
    explicit Gaps(const MovHeldSpots::Block& block) {
        for (unsigned i = 1; i < block.count; ++i) {
            least = std::min(least, gapBefore(block, i));
            most = std::max(most, gapBefore(block, i));
        }
        for (unsigned i = 1; i < block.count; ++i)
            wide |= std::uint64_t{gapBefore(block, i) != least} << i;
    }

    std::int64_t least = s_mostGap, most = -s_mostGap;
    std::uint64_t wide = 0;  // a bit for each sample with more than the least in front of it
};

bool pack(const MovHeldSpots::Block& block, std::uint64_t number, std::uint64_t* words, unsigned room) {
    const auto [least, most] = std::minmax_element(block.sizes, block.sizes + block.count);
    const Gaps gaps(block);
    if (gaps.least < -s_mostGap || gaps.most > s_mostGap) return false;
    What what{block.count, static_cast<unsigned>(std::bit_width(*most - *least)), 0};
    if (gaps.wide != 0) what.gapBits = std::bit_width(static_cast<std::uint64_t>(gaps.most - gaps.least));
    unsigned gapAt = block.count * what.sizeBits;
    if (gapAt + static_cast<unsigned>(std::popcount(gaps.wide)) * what.gapBits > room * 64) return false;

    words[s_what] = whatOf(number, what);
    words[s_base] = block.offsets[0];
    words[s_leastGap] = static_cast<std::uint64_t>(gaps.least);
    words[s_leastSize] = std::uint64_t{*least} << 32 | block.description;
    words[s_syncs] = block.syncs;
    words[s_wideGaps] = gaps.wide;
    for (unsigned i = 0; i < block.count; ++i) {
        setBits(words + s_bits, i * what.sizeBits, what.sizeBits, block.sizes[i] - *least);
        if ((gaps.wide >> i & 1) == 0) continue;
        setBits(words + s_bits, gapAt, what.gapBits, static_cast<std::uint64_t>(gapBefore(block, i) - gaps.least));
        gapAt += what.gapBits;
    }
    return true;
}

MovHeldSpots::Place unpack(const std::uint64_t* words, unsigned sample) {
    const What what = partsOf(words[s_what]);
    const auto least = static_cast<std::int64_t>(words[s_leastSize] >> 32);
    const std::int64_t step = least + static_cast<std::int64_t>(words[s_leastGap]);
    const auto wide = static_cast<unsigned>(std::popcount(words[s_wideGaps] & ~0ull >> (63 - sample)));
    MovHeldSpots::Place place;
    const std::uint64_t more = sumOf(words + s_bits, 0, what.sizeBits, sample) +
                               sumOf(words + s_bits, what.count * what.sizeBits, what.gapBits, wide);
    place.offset = static_cast<std::uint64_t>(static_cast<std::int64_t>(words[s_base] + more) + sample * step);
    const std::uint64_t own = bitsAt(words + s_bits, sample * what.sizeBits, what.sizeBits);
    place.size = static_cast<std::uint32_t>(static_cast<std::uint64_t>(least) + own);
    place.description = static_cast<std::uint32_t>(words[s_leastSize]);
    return place;
}

}  // namespace

MovHeldSpots::~MovHeldSpots() {
    for (unsigned page = 0; page * s_pageSlots < m_slotCount; ++page)
        delete[] m_pages[page].load(std::memory_order_relaxed);
}

void MovHeldSpots::init(std::uint64_t samples, const MovTableCache& cache) {
    const std::uint64_t blocks = samples / s_block + (samples % s_block != 0);
    if (blocks == 0 || blocks >= s_mostBlocks) return;
    const auto slots = static_cast<unsigned>(std::min<std::uint64_t>(blocks, s_mostSlots));
    m_cache = &cache;
    m_pages.reset(new (std::nothrow) std::atomic<Slot*>[(slots - 1) / s_pageSlots + 1]());
    m_slotCount = m_pages != nullptr ? slots : 0;
}

MovHeldSpots::Slot* MovHeldSpots::look(std::uint64_t block) const {
    const unsigned slot = slotOf(block);
    Slot* const page = m_pages[slot / s_pageSlots].load(std::memory_order_acquire);
    return page != nullptr ? page + slot % s_pageSlots : nullptr;
}

// Memory that was spent and didn't come isn't asked for again.
MovHeldSpots::Slot* MovHeldSpots::take(std::uint64_t block) const {
    if (Slot* const slot = look(block)) return slot;
    const unsigned number = slotOf(block) / s_pageSlots;
    const unsigned count = std::min(s_pageSlots, m_slotCount - number * s_pageSlots);
    if (!m_cache->spend(count * s_slotBytes)) return nullptr;
    Slot* const page = new (std::nothrow) Slot[count];
    if (page == nullptr) return nullptr;
    Slot* other = nullptr;
    if (!m_pages[number].compare_exchange_strong(other, page, std::memory_order_acq_rel, std::memory_order_acquire)) {
        delete[] page;
        m_cache->giveBack(count * s_slotBytes);
    }
    return look(block);
}

MovHeldSpots::Answer MovHeldSpots::find(std::uint64_t sample, Place& place) const {
    if (m_slotCount == 0) return Answer::Absent;
    const std::uint64_t block = sample / s_block;
    Slot* const slot = look(block);
    if (slot == nullptr) return m_cache->hasRoom(s_pageSlots * s_slotBytes) ? Answer::Wanted : Answer::Absent;
    const std::uint32_t turn = slot->turn.load(std::memory_order_acquire);
    std::uint64_t words[s_words];
    words[s_what] = slot->words[s_what].load(std::memory_order_acquire);
    if (turn % 2 != 0 || words[s_what] == 0) return turn % 2 != 0 ? Answer::Absent : Answer::Wanted;
    if (words[s_what] >> 24 != block + 1) {
        const auto name = static_cast<std::uint32_t>(block + 1);
        if (slot->missed.load(std::memory_order_relaxed) == name) return Answer::Wanted;
        slot->missed.store(name, std::memory_order_relaxed);
        return Answer::Absent;
    }
    if (sample % s_block >= partsOf(words[s_what]).count) return Answer::Absent;
    // Acquiring each word keeps the second look at the turn behind them all.
    for (unsigned i = s_what + 1; i < s_words; ++i)
        words[i] = slot->words[i].load(std::memory_order_acquire);
    if (slot->turn.load(std::memory_order_relaxed) != turn) return Answer::Absent;
    if (slot->missed.load(std::memory_order_relaxed) != 0) slot->missed.store(0, std::memory_order_relaxed);
    place = unpack(words, sample % s_block);
    return Answer::Held;
}

bool MovHeldSpots::findSync(std::uint64_t sample, bool& isSync) const {
    const Slot* const slot = m_slotCount != 0 ? look(sample / s_block) : nullptr;
    if (slot == nullptr) return false;
    const std::uint32_t turn = slot->turn.load(std::memory_order_acquire);
    const std::uint64_t what = slot->words[s_what].load(std::memory_order_acquire);
    const std::uint64_t syncs = slot->words[s_syncs].load(std::memory_order_acquire);
    if (turn % 2 != 0 || slot->turn.load(std::memory_order_relaxed) != turn) return false;
    if (what >> 24 != sample / s_block + 1 || sample % s_block >= partsOf(what).count) return false;
    isSync = (syncs >> sample % s_block & 1) != 0;
    return true;
}

void MovHeldSpots::hold(std::uint64_t sample, const Block& block) const {
    const std::uint64_t number = sample / s_block;
    Slot* const slot = m_slotCount != 0 ? take(number) : nullptr;
    if (slot == nullptr) return;
    std::uint64_t words[s_words] = {};
    if (block.count == 0 || !pack(block, number, words, s_words - s_bits)) words[s_what] = whatOf(number, {0, 0, 0});
    exchange(*slot, words);
}

// Whoever comes while another one exchanges the block does without.
void MovHeldSpots::exchange(Slot& slot, const std::uint64_t* words) {
    std::uint32_t turn = slot.turn.load(std::memory_order_relaxed);
    if (turn % 2 != 0 || !slot.turn.compare_exchange_strong(turn, turn + 1, std::memory_order_acquire)) return;
    // Releasing each store keeps the odd turn in front of them all.
    for (unsigned i = 0; i < s_words; ++i)
        slot.words[i].store(words[i], std::memory_order_release);
    slot.missed.store(0, std::memory_order_relaxed);
    slot.turn.store(turn + 2, std::memory_order_release);
}
