#include "services/system/log_ring.h"

#include <algorithm>
#include <cstring>

// A slot's words are written with release and read with acquire, so that whoever sees a word of a newer writer also
// sees that writer's odd sequence number when he looks at it again.
namespace {

constinit LogRing s_ring;

// The numbers of a piece in one word: the thread's, the level, pieces of the message, this piece's index, bytes of text
// here.
struct Numbers {
    std::uint32_t m_threadId;
    std::uint8_t m_level;
    std::uint8_t m_pieces;
    std::uint8_t m_index;
    std::uint8_t m_bytes;
};
static_assert(sizeof(Numbers) == sizeof(std::uint64_t));

constexpr std::size_t s_nameBytes = 16;

}  // namespace

LogRing& getLogRing() { return s_ring; }

void LogRing::write(std::uint64_t ticket, const Piece& piece) {
    Slot& slot = m_slot[ticket % s_slots];
    std::uint64_t seen = slot.m_sequence.load(std::memory_order_relaxed);
    // A writer that was overtaken by a whole round leaves the slot to whoever has it.
    if ((seen & 1u) != 0 || seen > 2 * ticket) return;
    if (!slot.m_sequence.compare_exchange_strong(seen, 2 * ticket + 1, std::memory_order_relaxed)) return;
    for (unsigned i = 0; i < s_words; ++i) {
        slot.m_words[i].store(piece.m_words[i], std::memory_order_release);
    }
    slot.m_sequence.store(2 * ticket + 2, std::memory_order_release);
}

bool LogRing::read(std::uint64_t ticket, Piece& piece) const {
    const Slot& slot = m_slot[ticket % s_slots];
    if (slot.m_sequence.load(std::memory_order_acquire) != 2 * ticket + 2) return false;
    for (unsigned i = 0; i < s_words; ++i) {
        piece.m_words[i] = slot.m_words[i].load(std::memory_order_acquire);
    }
    return slot.m_sequence.load(std::memory_order_relaxed) == 2 * ticket + 2;
}

void LogRing::add(const LogMessage& message) {
    constexpr std::size_t firstBytes = (s_words - s_headWords) * 8;
    constexpr std::size_t nextBytes = (s_words - 1) * 8;
    static_assert(firstBytes + (s_maxPieces - 1) * nextBytes >= s_maxText);

    m_count[static_cast<unsigned>(message.m_level) % s_levels].fetch_add(1, std::memory_order_relaxed);
    const std::size_t length = std::min(message.m_length, s_maxText);
    const std::size_t behind = length > firstBytes ? length - firstBytes : 0;
    Numbers numbers = {message.m_threadId, static_cast<std::uint8_t>(message.m_level),
                       static_cast<std::uint8_t>(1 + (behind + nextBytes - 1) / nextBytes), 0, 0};
    const std::uint64_t ticket = m_next.fetch_add(numbers.m_pieces, std::memory_order_relaxed);
    std::size_t done = 0;
    for (unsigned i = 0; i < numbers.m_pieces; ++i) {
        Piece piece = {};
        unsigned word = 1;
        numbers.m_index = static_cast<std::uint8_t>(i);
        if (i == 0) {
            piece.m_words[1] = static_cast<std::uint64_t>(message.m_time);
            std::memcpy(&piece.m_words[2], message.m_threadName,
                        std::min(std::strlen(message.m_threadName), s_nameBytes - 1));
            word = s_headWords;
        }
        numbers.m_bytes = static_cast<std::uint8_t>(std::min<std::size_t>(length - done, (s_words - word) * 8));
        std::memcpy(&piece.m_words[0], &numbers, sizeof(numbers));
        std::memcpy(&piece.m_words[word], message.m_text + done, numbers.m_bytes);
        done += numbers.m_bytes;
        write(ticket + i, piece);
    }
}

void LogRing::visit(Visitor visitor, void* context) const {
    const std::uint64_t end = m_next.load(std::memory_order_acquire);
    std::uint64_t ticket = end > s_slots ? end - s_slots : 0;
    while (ticket < end) {
        Piece piece;
        Numbers first = {};
        if (read(ticket, piece)) std::memcpy(&first, &piece.m_words[0], sizeof(first));
        if (first.m_pieces == 0 || first.m_index != 0) {
            ++ticket;
            continue;
        }
        char name[s_nameBytes];
        char text[s_maxText + s_words * 8];
        LogMessage message;
        message.m_level = static_cast<LogLevel>(first.m_level);
        message.m_time = static_cast<std::int64_t>(piece.m_words[1]);
        message.m_threadId = first.m_threadId;
        std::memcpy(name, &piece.m_words[2], s_nameBytes);
        message.m_threadName = name;
        std::memcpy(text, &piece.m_words[s_headWords], first.m_bytes);
        message.m_length = first.m_bytes;
        bool whole = true;
        for (unsigned i = 1; i < first.m_pieces && whole; ++i) {
            Numbers next = {};
            whole = read(ticket + i, piece);
            if (!whole) break;
            std::memcpy(&next, &piece.m_words[0], sizeof(next));
            std::memcpy(text + message.m_length, &piece.m_words[1], next.m_bytes);
            message.m_length += next.m_bytes;
        }
        ticket += first.m_pieces;
        if (!whole) continue;
        text[message.m_length] = 0;
        message.m_text = text;
        if (!visitor(message, context)) return;
    }
}
