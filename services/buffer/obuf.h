#pragma once

#include <sys/uio.h>

#include <cstdint>

#include "support/visibility.h"

// The segmented media buffer: a reference to a list of pieces of page-aligned memory from per-class pools.
// Held by pointer only. **Threads:** one reference belongs to one thread at a time; references that share bytes may
// live on different threads. The bytes of a buffer that is shared are not to be written.
struct phantom_OBUF;

// Allocation class of buffers; each has a pool of its own. Any value is legal, 0 is the everyday class.
using phantom_obAllocationId_t = std::uint32_t;

// Position that `obufInsert` takes for "at the end".
inline constexpr unsigned obufAppend = 0xFFFFFFFFu;

// Gives: a buffer of `size` bytes with one reference, or null when memory doesn't come. A size of 0 is an empty buffer.
MO_PUBLIC phantom_OBUF* obufAllocate(phantom_obAllocationId_t id, unsigned size);
// Takes: one reference. Null is allowed.
MO_PUBLIC void obufFree(phantom_OBUF* buf);
// Gives: a further reference to the same bytes, or null for null or when memory doesn't come.
MO_PUBLIC phantom_OBUF* obufDup(phantom_OBUF* buf);
// Bytes in all pieces; 0 for null.
MO_PUBLIC unsigned obufSize(const phantom_OBUF* buf);
// Number of pieces; 0 for null.
MO_PUBLIC unsigned obufSegmentCount(const phantom_OBUF* buf);
// Splices `source` into `destination` at byte `position`, or behind its end with `obufAppend`; no byte is copied.
// Takes: `source`, on success only. Fails: 0 for a null buffer, a position past the end, or no memory.
MO_PUBLIC int obufInsert(phantom_OBUF* destination, phantom_OBUF* source, unsigned position);
// Fills at most `max` entries with the pieces' host addresses and answers how many it filled.
MO_PUBLIC int obufNTranslateHost(const phantom_OBUF* buf, iovec* list, int max);
