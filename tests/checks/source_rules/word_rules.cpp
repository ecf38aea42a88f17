#include "tests/checks/source_rules/word_rules.h"

#include <regex>
#include <string>
#include <string_view>

namespace source_rules {

namespace {

bool inLibrary(const std::string& path) {
    for (const std::string_view folder :
         {"support/", "services/", "shared/include/", "neighbours/", "mediautil/", "backends/"}) {
        if (path.starts_with(folder)) {
            return true;
        }
    }
    return false;
}

// The control socket is a name in a folder of its own, and no media.
bool mayCallForFiles(const std::string& path) {
    return path.starts_with("services/file/") || path.starts_with("services/system/control_listener.");
}

// What the kernel tells about this process under /proc is asked through calls for files, but is none.
void findWord(const SourceFile& file, const std::regex& word, const std::string& why, std::vector<Finding>& findings) {
    for (std::size_t i = 0; i < file.code.size(); ++i) {
        std::smatch match;
        if (std::regex_search(file.code[i], match, word) && file.raw[i].find("\"/proc/") == std::string::npos) {
            findings.push_back({file.path, static_cast<int>(i) + 1, match.str() + ": " + why});
        }
    }
}

}  // namespace

std::vector<Finding> checkFileCalls(const std::vector<SourceFile>& tree) {
    // A member may well be called open or rename, so the plain names count only when they are called as the system's
    // own, with :: before them and nothing before that.
    static const std::regex call(
        R"((^|[^\w>:])::(open|openat|creat|stat|lstat|fstatat|statx|rename|renameat2?|truncate|link|symlink|mkdir|rmdir|opendir|mkstemp|pread|pwrite|preadv|pwritev|ftruncate|fallocate)\s*\(|\b(fopen|freopen|tmpfile|opendir|scandir|nftw|inotify_init1?|inotify_add_watch|posix_fallocate|open_by_handle_at|name_to_handle_at)\s*\(|\bstd::(o|i|)fstream\b|\bstd::filesystem\b)");
    static const std::regex header(R"(#\s*include\s*<(fstream|filesystem)>)");
    std::vector<Finding> findings;
    for (const SourceFile& file : tree) {
        if (inLibrary(file.path) && !mayCallForFiles(file.path)) {
            findWord(file, call, "only services/file calls the system for files", findings);
            findWord(file, header, "only services/file calls the system for files", findings);
        }
    }
    return findings;
}

std::vector<Finding> checkWaits(const std::vector<SourceFile>& tree) {
    static const std::regex word(
        R"(\b(condition_variable(_any)?|pthread_cond_\w+|std::(counting_semaphore|binary_semaphore|latch|barrier|future|promise)|sem_wait|sem_timedwait)\b)");
    std::vector<Finding> findings;
    for (const SourceFile& file : tree) {
        if (file.path.starts_with("mediautil/")) {
            findWord(file, word, "waits are polls with waitMsec", findings);
        }
    }
    return findings;
}

std::vector<Finding> checkExceptions(const std::vector<SourceFile>& tree) {
    static const std::regex word(R"(\bthrow\b|\btry\s*\{|\bcatch\s*\(|\btry\s*$)");
    std::vector<Finding> findings;
    for (const SourceFile& file : tree) {
        if (inLibrary(file.path)) {
            findWord(file, word, "the library throws nothing and catches nothing", findings);
        }
    }
    return findings;
}

}  // namespace source_rules
