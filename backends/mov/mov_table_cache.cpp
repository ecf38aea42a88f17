#include "backends/mov/mov_table_cache.h"

#include <algorithm>
#include <cstring>

#include "shared/include/object/media_obj.h"
#include "support/op_result.h"

bool MovTableCache::read(std::uint64_t offset, void* target, unsigned size) const {
    auto* at = static_cast<std::uint8_t*>(target);
    while (size != 0) {
        const std::uint64_t window = offset / s_window;
        const auto inside = static_cast<unsigned>(offset % s_window);
        const unsigned part = std::min(size, s_window - inside);
        // Tables of a track often lie a power of two apart: the upper bits have their say.
        Slot& slot = m_slots[(window ^ window >> 7 ^ window >> 14) % m_slotCount];
        if (!copyFrom(slot, window, inside, at, part) && !fetch(slot, window, inside, at, part)) return false;
        at += part;
        offset += part;
        size -= part;
    }
    return true;
}

bool MovTableCache::copyFrom(const Slot& slot, std::uint64_t window, unsigned inside, void* target, unsigned size) {
    const std::uint64_t turn = slot.turn.load(std::memory_order_acquire);
    if (turn % 2 != 0 || slot.window.load(std::memory_order_acquire) != window) return false;
    std::uint64_t words[s_words];
    const unsigned first = inside / 8;
    const unsigned count = (inside + size + 7) / 8 - first;
    // Acquiring each word keeps the second look at the turn behind them all.
    for (unsigned i = 0; i < count; ++i)
        words[i] = slot.words[first + i].load(std::memory_order_acquire);
    if (slot.turn.load(std::memory_order_relaxed) != turn) return false;
    std::memcpy(target, reinterpret_cast<const std::uint8_t*>(words) + inside % 8, size);
    return true;
}

bool MovTableCache::fetch(Slot& slot, std::uint64_t window, unsigned inside, void* target, unsigned size) const {
    std::uint64_t words[s_words] = {};
    const AutoRefPtr<BasicFileIO> file = handle();
    if (!file) return false;
    const int got = file->readAt(window * s_window, words, s_window);
    if (got < 0 || static_cast<unsigned>(got) < inside + size) return false;
    std::memcpy(target, reinterpret_cast<const std::uint8_t*>(words) + inside, size);
    exchange(slot, window, words);
    return true;
}

// Whoever comes while another one exchanges the window does without.
void MovTableCache::exchange(Slot& slot, std::uint64_t window, const std::uint64_t* words) {
    std::uint64_t turn = slot.turn.load(std::memory_order_relaxed);
    if (turn % 2 != 0 || !slot.turn.compare_exchange_strong(turn, turn + 1, std::memory_order_acquire)) return;
    // Releasing each store keeps the odd turn in front of them all.
    slot.window.store(window, std::memory_order_release);
    for (unsigned i = 0; i < s_words; ++i)
        slot.words[i].store(words[i], std::memory_order_release);
    slot.turn.store(turn + 2, std::memory_order_release);
}

bool MovTableCache::readThrough(std::uint64_t offset, void* target, unsigned size) const {
    const AutoRefPtr<BasicFileIO> file = handle();
    return file && file->readAt(offset, target, size) == static_cast<int>(size);
}

AutoRefPtr<BasicFileIO> MovTableCache::handle() const {
    if (m_movie == nullptr) return m_file;
    OpResult result;
    AutoRefPtr<BasicFileIO> file =
        m_movie->open(m_movie->getMediaId(0), MediaAgent(), MediaObj::ReadMode::ReadOnly, result);
    result.discard();
    return file;
}
