#pragma once

// Counts what the whole process takes from the heap, `operator new` and the libraries' own calls alike. It replaces the
// allocation functions of the C library and is therefore included by one source a program.

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace bench {

inline std::atomic<bool> s_countHeap{false};
inline std::atomic<unsigned long long> s_allocations{0};
inline std::atomic<long long> s_heapBytes{0};

inline void* noteTaken(void* memory) {
    if (memory != nullptr && s_countHeap.load(std::memory_order_relaxed)) {
        s_allocations.fetch_add(1, std::memory_order_relaxed);
        // A block's own head belongs to what it costs.
        s_heapBytes.fetch_add(static_cast<long long>(malloc_usable_size(memory) + sizeof(std::size_t)),
                              std::memory_order_relaxed);
    }
    return memory;
}
inline void noteGiven(void* memory) {
    if (memory != nullptr && s_countHeap.load(std::memory_order_relaxed)) {
        s_heapBytes.fetch_sub(static_cast<long long>(malloc_usable_size(memory) + sizeof(std::size_t)),
                              std::memory_order_relaxed);
    }
}

// Counts for as long as it lives. One at a time.
class HeapCount {
public:
    HeapCount() {
        s_allocations = 0;
        s_heapBytes = 0;
        s_countHeap = true;
    }
    ~HeapCount() { s_countHeap = false; }
    HeapCount(const HeapCount&) = delete;
    HeapCount& operator=(const HeapCount&) = delete;

    unsigned long long allocations() const { return s_allocations; }
    // Taken and not given back.
    long long bytes() const { return s_heapBytes; }
};

}  // namespace bench

extern "C" {
void* malloc(std::size_t size) { return bench::noteTaken(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return bench::noteTaken(__libc_calloc(count, size)); }
void* realloc(void* memory, std::size_t size) {
    bench::noteGiven(memory);
    return bench::noteTaken(__libc_realloc(memory, size));
}
void* memalign(std::size_t alignment, std::size_t size) { return bench::noteTaken(__libc_memalign(alignment, size)); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    *memory = memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}
void free(void* memory) {
    bench::noteGiven(memory);
    __libc_free(memory);
}
}
