#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "services/system/log.h"
#include "support/visibility.h"

// The last few thousand messages at all levels, in memory of a fixed size.
//
// A message takes as many neighbouring slots as its text needs. Each slot is guarded by its own sequence number, so
// that neither writers nor readers ever wait; a slot that is overwritten while it is read, or that a slower writer
// still has, is left out.
// **Threads:** any.
class MO_PUBLIC LogRing {
public:
    static constexpr unsigned s_slots = 8192;
    // Bytes of text that are kept of one message; what is longer is cut.
    static constexpr std::size_t s_maxText = 3200;

    constexpr LogRing() = default;
    LogRing(const LogRing&) = delete;
    LogRing& operator=(const LogRing&) = delete;

    void add(const LogMessage& message);

    // Messages of that level since the start, those that have left the ring too.
    unsigned long long getCount(LogLevel level) const {
        return m_count[static_cast<unsigned>(level) % s_levels].load(std::memory_order_relaxed);
    }

    // Shows the messages, oldest first, until the visitor answers false. They are borrowed for the length of the call.
    using Visitor = bool (*)(const LogMessage& message, void* context);
    void visit(Visitor visitor, void* context) const;

private:
    static constexpr unsigned s_words = 15;     // of 8 bytes a slot, beside its sequence number
    static constexpr unsigned s_headWords = 4;  // of the first slot: time, numbers, the thread's name in two
    static constexpr unsigned s_levels = 4;
    static constexpr unsigned s_maxPieces = 29;  // slots of one message

    struct Slot {
        // 0 never used, odd while the writer of ticket n has it (2n + 1), 2n + 2 when its piece stands.
        std::atomic<std::uint64_t> m_sequence{0};
        std::atomic<std::uint64_t> m_words[s_words] = {};
    };
    struct Piece {
        std::uint64_t m_words[s_words];
    };

    void write(std::uint64_t ticket, const Piece& piece);
    bool read(std::uint64_t ticket, Piece& piece) const;

    std::atomic<std::uint64_t> m_next{0};  // the next ticket; its slot is the remainder by s_slots
    std::atomic<unsigned long long> m_count[s_levels] = {};
    Slot m_slot[s_slots];
};

// The ring of the process.
MO_PUBLIC LogRing& getLogRing();
