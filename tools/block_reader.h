#pragma once

#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "shared/include/io/media_read_req.h"
#include "tools/failure.h"
#include "tools/movie.h"
#include "tools/track_samples.h"

// Reads a part of a track in order, with several asynchronous reads under way ahead of the one that is taken.
// **Threads:** one takes the blocks; they arrive on the engine's threads. **Locks:** m_mutex guards what arrives.
// **Owns:** the blocks that have arrived and weren't taken. Its end waits for reads that are under way.
class BlockReader {
public:
    // Samples of a block as they lie in the file. The receiver frees m_data.
    struct Block {
        phantom_OBUF* m_data = nullptr;
        unsigned long long m_samples = 0;
        unsigned m_bytes = 0;
    };

    BlockReader(const Movie& movie, const TrackSamples& samples, Part part);
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
        unsigned long long m_first = 0;  // sample, for messages
        bool m_pending = false;
        int m_status = 0;  // errno value of a read that failed
    };

    void prepare(Slot& slot, const MediaSampleDesc& samples);
    bool start(std::optional<Failure>& failure);
    void fill();
    bool receive(const BasicIOTypes::ReadNotify& notify);
    Failure explain(const Slot& slot) const;

    const Movie& m_movie;
    const TrackSamples& m_samples;
    const unsigned long long m_end;  // behind the last sample of the part
    unsigned long long m_at;         // the next sample to ask for
    unsigned m_head = 0;             // the slot to be taken next
    unsigned m_used = 0;
    std::optional<Failure> m_startFailure;  // told when all blocks before it are taken
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::array<Slot, s_depth> m_slots;
    BridgeAnchor<BlockReader, const BasicIOTypes::ReadNotify&, bool> m_hook;
};
