#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "services/file/file_calls.h"
#include "services/file/file_identity.h"
#include "services/file/file_per_client.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"

// What the tests of files share.
namespace FileKit {

using Mode = BasicIOTypes::Mode;
using Fp = AutoRefPtr<BasicFileIO>;

// Polls for an outcome; the limit is only there for a machine that stands still.
inline bool waitFor(const std::function<bool()>& outcome) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!outcome()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A folder of its own for each test, removed with all that is in it.
class Tree {
public:
    Tree() {
        std::string name = (std::filesystem::temp_directory_path() / "mediacore-file-XXXXXX").string();
        m_root = ::mkdtemp(name.data());
        ::chmod(m_root.c_str(), 0755);
    }
    ~Tree() {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    const std::string& root() const { return m_root; }
    std::string operator/(const std::string& name) const { return m_root + "/" + name; }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(*this / name, std::ios::binary | std::ios::trunc) << text;
        return *this / name;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(*this / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

private:
    std::string m_root;
};

inline void move(const std::string& from, const std::string& to) { ASSERT_EQ(0, ::rename(from.c_str(), to.c_str())); }

inline Fp reader(const std::string& path) { return Fp(new FsFileIO("test", path.c_str(), Mode::ReadOnly)); }
inline Fp handle(const std::string& path, Mode mode) { return Fp(new FsFileIO("test", path.c_str(), mode)); }
inline FsFileIO& fs(const Fp& fp) { return static_cast<FsFileIO&>(*fp); }

inline OsPathId idOf(const std::string& path) { return reader(path)->getPathId(); }
inline unsigned long long versionOf(const std::string& path) { return reader(path)->getVersion(); }

inline std::string textOf(const Fp& fp, unsigned size = 100) {
    std::string text(size, '\0');
    const int count = fp->readAt(0, text.data(), size);
    text.resize(count > 0 ? static_cast<unsigned>(count) : 0);
    return text;
}

inline unsigned openDescriptors() {
    unsigned count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

// Runs in a process of its own, as another user if told so, and answers whether it came out true within the time.
inline bool inChild(const std::function<bool()>& work, bool otherUser = false) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(60);
        if (otherUser && (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) ::_exit(2);
        ::_exit(work() ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Catches what is logged.
class Log : public LogSink {
public:
    Log() { setLogSink(this); }
    ~Log() override { setLogSink(nullptr); }
    void write(const LogMessage& message) override {
        const std::lock_guard lock(m_mutex);
        m_lines.emplace_back(message.m_text);
    }
    unsigned count(const std::string& part) const {
        const std::lock_guard lock(m_mutex);
        unsigned found = 0;
        for (const std::string& line : m_lines)
            found += line.find(part) != std::string::npos ? 1 : 0;
        return found;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

// True when what is done is told by a line with this text; done again while the clamp holds it back.
inline bool tells(const std::string& part, const std::function<void()>& action) {
    Log log;
    return waitFor([&] {
        action();
        return log.count(part) > 0;
    });
}

// Lets a call of the file layer fail, from its n-th time on or only then.
class Fault {
public:
    Fault(FileCall call, int error, int from = 1, bool forEver = true) {
        s_call = call;
        s_error = error;
        s_from = from;
        s_forEver = forEver;
        s_seen = 0;
        s_limit = 0;
        FileCalls::setFault(&strike);
    }
    // Makes every call move at most so many bytes.
    Fault(FileCall call, std::size_t limit) : Fault(call, 0, 1 << 30) { s_limit = limit; }
    ~Fault() { FileCalls::setFault(nullptr); }
    static int seen() { return s_seen; }

private:
    static int strike(FileCall call, const char*, int, std::size_t& size) {
        if (call != s_call) return 0;
        const int time = ++s_seen;
        if (s_limit > 0 && size > s_limit) size = s_limit;
        return time == s_from || (s_forEver && time > s_from) ? s_error.load() : 0;
    }
    static inline FileCall s_call;
    static inline std::atomic<int> s_error{0};
    static inline std::atomic<int> s_from{0};
    static inline std::atomic<bool> s_forEver{false};
    static inline std::atomic<int> s_seen{0};
    static inline std::atomic<std::size_t> s_limit{0};
};

}  // namespace FileKit
