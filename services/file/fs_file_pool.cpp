// Memory of file handles. Each thread keeps a few blocks; beyond that they go through one short list.

#include <cstdlib>

#include "services/file/fs_file_io.h"
#include "services/system/short_lock.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MO_PLAIN_HANDLE_MEMORY 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define MO_PLAIN_HANDLE_MEMORY 1
#endif

namespace {

struct Block {
    Block* m_next;
};

// The blocks that no thread keeps.
class SharedBlocks {
public:
    Block* take() {
        ShortScope lock(m_lock);
        Block* const block = m_first;
        if (block != nullptr) {
            m_first = block->m_next;
            --m_count;
        }
        return block;
    }
    // Fails: false when there are enough.
    bool give(Block* block) {
        ShortScope lock(m_lock);
        if (m_count >= s_most) return false;
        block->m_next = m_first;
        m_first = block;
        ++m_count;
        return true;
    }

private:
    static constexpr unsigned s_most = 256;

    ShortLock m_lock;
    Block* m_first MO_GUARDED_BY(m_lock) = nullptr;
    unsigned m_count MO_GUARDED_BY(m_lock) = 0;
};

SharedBlocks s_shared;

void put(Block* block) {
    if (!s_shared.give(block)) std::free(block);
}

// A thread's own blocks. Its destructor runs at the thread's end; handles that go later still pass through the shared
// list.
struct OwnBlocks {
    static constexpr unsigned s_most = 8;

    Block* m_first = nullptr;
    unsigned m_count = 0;
    bool m_ended = false;

    ~OwnBlocks() {
        m_ended = true;
        while (Block* const block = take())
            put(block);
    }
    Block* take() {
        Block* const block = m_first;
        if (block != nullptr) {
            m_first = block->m_next;
            --m_count;
        }
        return block;
    }
    bool give(Block* block) {
        if (m_ended || m_count >= s_most) return false;
        block->m_next = m_first;
        m_first = block;
        ++m_count;
        return true;
    }
};

[[maybe_unused]] thread_local OwnBlocks t_own;

}  // namespace

#ifdef MO_PLAIN_HANDLE_MEMORY

// Under the address checker every handle has memory of its own, so that a use after the end shows.
void* FsFileIO::operator new(std::size_t size) noexcept { return std::malloc(size); }
void FsFileIO::operator delete(void* memory) noexcept { std::free(memory); }

#else

void* FsFileIO::operator new(std::size_t size) noexcept {
    Block* block = t_own.take();
    if (block == nullptr) block = s_shared.take();
    return block != nullptr ? block : std::malloc(size);
}

void FsFileIO::operator delete(void* memory) noexcept {
    if (memory == nullptr) return;
    Block* const block = static_cast<Block*>(memory);
    if (!t_own.give(block)) put(block);
}

#endif
