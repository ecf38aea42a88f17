#include "tests/unit/index/heap_taken.h"

#include <cstdlib>
#include <new>

// By itself, so that no compiler sees through one half of a pair and misses the other.

namespace {

thread_local unsigned long long t_calls = 0;

void* take(std::size_t size) noexcept {
    ++t_calls;
    return std::malloc(size != 0 ? size : 1);
}

void* takeOrThrow(std::size_t size) {
    void* const memory = take(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

unsigned long long heapCalls() { return t_calls; }

void* operator new(std::size_t size) { return takeOrThrow(size); }
void* operator new[](std::size_t size) { return takeOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return take(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return take(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
