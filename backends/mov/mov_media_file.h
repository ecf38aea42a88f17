#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>

#include "backends/mov/mov_index_keeper.h"

// A file that the samples of a recorded movie go into: its own, or one that it refers to, which holds samples alone.
// **Threads:** `reserve` and `getEnd` any; the rest as the writes. **Owns:** its recorder, unless that is the movie's.
struct MovMediaFile {
    std::uint64_t reserve(std::uint64_t bytes) {
        return m_keeper != nullptr ? m_keeper->reserve(bytes) : m_end.fetch_add(bytes, std::memory_order_relaxed);
    }
    std::uint64_t getEnd() const {
        return m_keeper != nullptr ? m_keeper->getEnd() : m_end.load(std::memory_order_relaxed);
    }
    // Somebody else has put samples up to there.
    void extend(std::uint64_t end) { m_end = std::max(getEnd(), end); }
    bool isOwn() const { return m_keeper != nullptr; }

    MediaIdRec* m_id = nullptr;
    unsigned m_number = 0;                 // in what the movie's file tells
    MovIndexKeeper* m_keeper = nullptr;    // borrowed: of the movie's own file
    std::unique_ptr<Recorder> m_recorder;  // of another file
    std::shared_ptr<RecordedEssence> m_essence;
    std::atomic<std::uint64_t> m_end{0};  // of another file
};
