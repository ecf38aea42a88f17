#pragma once

#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "shared/include/io/media_read_req.h"
#include "tools/failure.h"
#include "tools/movie.h"
#include "tools/track_units.h"

// Reads a part of a track in order, with several asynchronous reads under way ahead of the one that is taken.
// **Threads:** one takes the blocks; they arrive on the engine's threads. **Locks:** m_mutex guards what arrives.
// **Owns:** the blocks that have arrived and weren't taken. Its end waits for reads that are under way.
class BlockReader {
public:
    // A block as it lies in the file. The receiver frees m_data, which is null for units without a byte.
    struct Block {
        phantom_OBUF* m_data = nullptr;
        unsigned long long m_units = 0;
        unsigned m_samples = 0;
        unsigned m_bytes = 0;
    };

    BlockReader(const Movie& movie, const TrackUnits& units, Part part);
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;
    ~BlockReader();

    // The next block; false at the end of the part. Waits: until the block is there.
    // Fails: false with the reason.
    bool next(Block& block, std::optional<Failure>& failure);

private:
    static constexpr unsigned s_depth = 6;  // reads under way
    static constexpr unsigned s_blockBytes = 1 << 19;

    struct Slot {
        Block m_block;
        unsigned long long m_first = 0;  // unit, for messages
        bool m_pending = false;
        int m_status = 0;  // errno value of a read that failed
    };

    void prepare(Slot& slot, const TrackUnits::Stretch& stretch);
    bool start(std::optional<Failure>& failure);
    bool read(Slot& slot, const MediaSampleInMovie& where, std::optional<Failure>& failure);
    void fill();
    bool receive(const BasicIOTypes::ReadNotify& notify);
    Failure explain(const Slot& slot) const;

    const Movie& m_movie;
    const TrackUnits& m_units;
    const unsigned long long m_end;  // behind the last unit of the part
    unsigned long long m_at;         // the next unit to ask for
    unsigned m_head = 0;             // the slot to be taken next
    unsigned m_used = 0;
    std::optional<Failure> m_startFailure;  // told when all blocks before it are taken
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::array<Slot, s_depth> m_slots;
    BridgeAnchor<BlockReader, const BasicIOTypes::ReadNotify&, bool> m_hook;
};
