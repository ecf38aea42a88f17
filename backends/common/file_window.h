#pragma once

#include <cstdint>

#include "services/file/basic_file_io.h"

// Gives a parser the bytes of a file through one small window, so that headers that stand close together cost one read.
// **Owns:** the window's memory, not the file. **Threads:** one. **Units:** bytes from the file's start.
class FileWindow {
public:
    static constexpr unsigned s_size = 4096;

    FileWindow(BasicFileIO& file, std::uint64_t length) : m_file(file), m_length(length) {}

    std::uint64_t length() const { return m_length; }
    // True after a read that failed although the bytes ought to be there.
    bool failed() const { return m_failed; }

    // `count` bytes at `offset`, at most the window's size. Gives: borrowed until the next call, or null when the file
    // doesn't have them all.
    const std::uint8_t* at(std::uint64_t offset, unsigned count);

private:
    BasicFileIO& m_file;
    const std::uint64_t m_length;
    std::uint64_t m_start = 0;  // of the window in the file
    unsigned m_filled = 0;
    bool m_failed = false;
    std::uint8_t m_bytes[s_size];
};
