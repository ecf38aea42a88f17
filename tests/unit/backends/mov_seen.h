#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/kit/temp_tree.h"

// What a reader of the simplest kind sees in a movie file: it walks the atoms and takes the first `moov`.
struct MovSeen {
    struct Track {
        std::string m_code;  // of the first sample description
        unsigned m_references = 0;
        std::uint64_t m_samples = 0;      // by the sizes
        std::uint64_t m_timed = 0;        // by the durations
        std::uint64_t m_inChunks = 0;     // by the chunks
        std::uint64_t m_end = 0;          // of the last chunk's first byte
        std::vector<std::uint64_t> m_at;  // of each sample
        std::vector<std::uint32_t> m_sizes;
        std::vector<std::uint32_t> m_syncs;
        std::vector<std::uint32_t> m_late;  // ctts, each sample
        struct Edit {
            std::uint64_t m_ticks, m_in;
        };
        std::vector<Edit> m_edits;
    };

    std::string m_error;  // the first thing that is wrong; empty when all is well
    unsigned m_moovs = 0;
    std::vector<std::string> m_top;  // the codes at the top
    std::uint64_t m_moovAt = 0;
    std::string m_userData;
    std::uint32_t m_timescale = 0;
    std::vector<Track> m_tracks;

    static MovSeen of(const std::string& path);

private:
    void look(const std::string& bytes);
    void movie(const std::string& bytes);
    void inside(const std::string& bytes, Track* track);
    void take(const std::string& code, const std::string& bytes, Track& track);
    void place(Track& track);
    void wrong(const std::string& what) {
        if (m_error.empty()) m_error = what;
    }

    std::map<Track*, std::vector<std::uint64_t>> m_chunks;
    std::map<Track*, std::vector<std::uint64_t>> m_runs;
    std::uint32_t m_fixed = 0;
};
