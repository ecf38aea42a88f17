#include "tests/kit/temp_tree.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "services/file/fs_file_io.h"

namespace fs = std::filesystem;

namespace kit {

namespace {

void put(const fs::path& path, std::string_view bytes, std::ios::openmode mode) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | mode);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

TempTree::TempTree() {
    std::string pattern = (fs::temp_directory_path() / "mc_test_XXXXXX").string();
    if (const char* made = mkdtemp(pattern.data())) m_root = made;
}

TempTree::~TempTree() {
    std::error_code ignored;
    if (!m_root.empty()) fs::remove_all(m_root, ignored);
}

std::string TempTree::write(std::string_view name, std::string_view bytes) const {
    std::string full = path(name);
    put(full, bytes, std::ios::trunc);
    return full;
}

std::string TempTree::writePattern(std::string_view name, std::size_t size) const {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = patternAt(i);
    return write(name, bytes);
}

void TempTree::append(std::string_view name, std::string_view bytes) const { put(path(name), bytes, std::ios::app); }

void TempTree::remove(std::string_view name) const { fs::remove(path(name)); }

bool TempTree::exists(std::string_view name) const { return fs::exists(path(name)); }

OsPathId TempTree::idOf(const std::string& path) {
    AutoRefPtr<BasicFileIO> file(new FsFileIO("kit", path.c_str(), BasicIOTypes::Mode::ReadOnly));
    return file->getPathId();
}

}  // namespace kit
