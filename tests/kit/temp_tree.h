#pragma once

#include <string>
#include <string_view>

#include "services/file/os_path_id.h"

namespace kit {

// A folder of its own for one test, removed with all that is in it at the end.
class TempTree {
public:
    TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;
    ~TempTree();

    const std::string& root() const { return m_root; }
    // The path of that name inside the folder; nothing is made.
    std::string path(std::string_view name) const { return m_root + "/" + std::string(name); }
    // Writes a file in place, so that it stays the same file, and answers its path. Folders in the name are made.
    std::string write(std::string_view name, std::string_view bytes) const;
    // The same with `size` bytes, each the low byte of its offset divided by 251.
    std::string writePattern(std::string_view name, std::size_t size) const;
    static char patternAt(unsigned long long offset) { return static_cast<char>(offset % 251); }
    void append(std::string_view name, std::string_view bytes) const;
    void remove(std::string_view name) const;
    bool exists(std::string_view name) const;
    // The file layer's id of a file.
    static OsPathId idOf(const std::string& path);

private:
    std::string m_root;
};

}  // namespace kit
