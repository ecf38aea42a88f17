#pragma once

#include <cstdint>

#include "backends/common/file_window.h"
#include "backends/mov/mov_atoms.h"

// An atom: where it stands and how far it reaches. **Units:** bytes from the file's start.
struct MovBox {
    MovCode type = 0;
    std::uint64_t start = 0;  // of its header
    std::uint64_t body = 0;
    std::uint64_t end = 0;  // never past its parent's
    bool isCut = false;     // it claims more than its parent has

    std::uint64_t size() const { return end - body; }
};

// Walks over the atoms in one stretch of a file. A size of 0 reaches to the end of the stretch, one of 1 stands behind
// the type in 64 bits; what is smaller than its own header ends the walk.
// **Threads:** one. **Owns:** nothing.
class MovBoxReader {
public:
    // `left` counts down the headers that a whole parse may look at.
    MovBoxReader(FileWindow& file, std::uint64_t start, std::uint64_t end, unsigned& left)
        : m_file(file), m_at(start), m_end(end), m_left(left) {}

    // The next atom, or false at the end of the stretch and at what is no atom.
    bool next(MovBox& box);
    // True when the walk ended at what is no atom, and where.
    bool isDamaged() const { return m_damaged; }
    std::uint64_t place() const { return m_at; }

private:
    FileWindow& m_file;
    std::uint64_t m_at;
    const std::uint64_t m_end;
    unsigned& m_left;
    bool m_damaged = false;
};
