#pragma once

#include <cstdlib>
#include <new>

// Counts the blocks that a thread takes from the heap by `operator new`. It replaces the program's allocation
// operators and is therefore included by one source a program.

namespace kit {

inline thread_local unsigned long long t_heapTaken = 0;

inline void* takeHeap(std::size_t size) noexcept {
    ++t_heapTaken;
    return std::malloc(size != 0 ? size : 1);
}

inline void* takeHeapOrThrow(std::size_t size) {
    void* const memory = takeHeap(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

// Blocks that this thread has taken since it stands.
class HeapTaken {
public:
    HeapTaken() : m_before(t_heapTaken) {}
    unsigned long long count() const { return t_heapTaken - m_before; }

private:
    const unsigned long long m_before;
};

}  // namespace kit

// Not inlined, so that the compiler doesn't see past them that `free` gets what `new` gave.
[[gnu::noinline]] void* operator new(std::size_t size) { return kit::takeHeapOrThrow(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return kit::takeHeapOrThrow(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return kit::takeHeap(size); }
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return kit::takeHeap(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
