#pragma once

#include "mediautil/io/chunk_alloc.h"

// Looks at the parts of a chunk allocator.
class ChunkProbe {
public:
    explicit ChunkProbe(ChunkAlloc& alloc) : m_alloc(alloc) {}

    bool hasThread() const { return m_alloc.thread() != nullptr; }
    // Whether its thread has been asked to end. Requires: it has one, and that isn't being destroyed.
    bool stopRequested() const { return m_alloc.thread()->stopRequested(); }

private:
    ChunkAlloc& m_alloc;
};
