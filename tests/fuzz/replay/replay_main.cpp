// Runs a fuzz target over files and folders of inputs without a fuzzing engine, so that old finds stay mended in every
// build.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

// An allocation of exactly the input's size: one byte read past it is caught where memory is checked.
void runOne(const Bytes& bytes) {
    const Bytes exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

void runConstantInputs() {
    for (const std::uint8_t fill : {0x00, 0x7f, 0xff}) {
        for (const std::size_t size : {0, 1, 4, 12, 44, 1024}) {
            runOne(Bytes(size, fill));
        }
    }
}

bool runFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "can't read %s\n", path.c_str());
        return false;
    }
    std::fprintf(stderr, "%s\n", path.c_str());
    runOne(Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
    return true;
}

bool runPath(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return !std::filesystem::exists(path) || runFile(path);
    }
    bool good = true;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        good = (!entry.is_regular_file() || runFile(entry.path())) && good;
    }
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    runConstantInputs();
    bool good = true;
    for (int i = 1; i < argc; ++i) {
        good = runPath(argv[i]) && good;
    }
    return good ? 0 : 1;
}
