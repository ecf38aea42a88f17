#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "services/buffer/obuf_pool.h"
#include "services/file/async_engine.h"
#include "services/file/basic_file_io.h"

// What the tests of the asynchronous engine share.
namespace AsyncKit {

// Polls for an outcome; the limit is only there for a machine that stands still.
inline bool waitFor(const std::function<bool()>& outcome) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!outcome()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

// A handle that holds a descriptor and counts itself.
class Handle final : public BasicFileIO {
public:
    explicit Handle(int fd) : BasicFileIO(BasicIOTypes::Mode::Update), m_fd(fd) { ++s_live; }
    ~Handle() override {
        --s_live;
        if (m_fd >= 0) ::close(m_fd);
    }
    int fd() const { return m_fd; }
    static inline std::atomic<int> s_live{0};

    bool open() override { return m_fd >= 0; }
    int read(void*, unsigned) override { return -1; }
    int readAt(unsigned long long, void*, unsigned) override { return -1; }
    bool isCached(unsigned long long, unsigned) override { return false; }
    int writeAt(unsigned long long, const void*, unsigned) override { return -1; }
    bool readAsync(const BasicIOTypes::ReadReq&) override { return false; }
    bool writeAsync(unsigned long long, phantom_OBUF* obuf) override {
        obufFree(obuf);
        return false;
    }
    unsigned long long getLength() override { return 0; }
    const char* getPath() const override { return ""; }
    AutoPtr<char> describe() const override { return AutoPtr<char>(new char[1]()); }
    bool exists() override { return true; }
    bool openById(OsPathId) override { return false; }
    OsPathId getPathId() override { return {}; }
    unsigned long long getVersion() override { return 0; }
    BasicIOTypes::SizeAdvice getSizeAdvice(bool) override { return BasicIOTypes::SizeAdvice::None; }
    void advise(BasicIOTypes::SizeAdvice) override {}
    void adviseReparse(int) override {}
    void resetLookAhead() override {}
    void setLookAhead(unsigned) override {}
    int write(const void*, unsigned) override { return -1; }
    bool close() override { return true; }
    bool flush() override { return true; }

protected:
    void modeChanged() override {}

private:
    const int m_fd;
};

inline unsigned char byteAt(unsigned long long offset) {
    return static_cast<unsigned char>((offset * 2654435761u) >> 13);
}

// A nameless file with known bytes.
inline int makeFile(unsigned long long size) {
    std::string path = testing::TempDir() + "async_engine_XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0) return -1;
    unlink(path.c_str());
    std::vector<unsigned char> bytes(size);
    for (unsigned long long i = 0; i < size; ++i)
        bytes[i] = byteAt(i);
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count <= 0) return -1;
        done += static_cast<std::size_t>(count);
    }
    return fd;
}

inline bool holdsBytesOf(const phantom_OBUF* obuf, unsigned long long offset, unsigned size) {
    if (obufSize(obuf) != size) return false;
    const unsigned char* bytes = obufFirstByte(obuf);
    for (unsigned i = 0; i < size; ++i) {
        if (bytes[i] != byteAt(offset + i)) return false;
    }
    return true;
}

// Counts answers by tag and looks at what they bring.
class Answers {
public:
    explicit Answers(unsigned count = 1) : m_counts(count) {}
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    const BasicIOTypes::ReadHook& hook() const { return m_hook; }
    static const void* tag(unsigned long number) { return reinterpret_cast<const void*>(number); }
    unsigned total() const { return m_total.load(); }
    unsigned failures() const { return m_failures.load(); }
    int lastStatus() const { return m_lastStatus.load(); }
    bool offEngine() const { return m_offEngine.load(); }
    bool eachOnce() const {
        for (const auto& count : m_counts) {
            if (count.load() != 1) return false;
        }
        return true;
    }
    // Called with each answer before its obuf is freed.
    std::function<void(const BasicIOTypes::ReadNotify&)> m_onAnswer;

private:
    bool readCb(const BasicIOTypes::ReadNotify& notify) {
        const auto number = reinterpret_cast<unsigned long>(notify.m_tag);
        if (number < m_counts.size()) ++m_counts[number];
        if (!AsyncEngine::onEngineThread()) m_offEngine = true;
        if (notify.m_obuf == nullptr) {
            ++m_failures;
            m_lastStatus = notify.m_status;
        }
        if (m_onAnswer) m_onAnswer(notify);
        obufFree(notify.m_obuf);
        ++m_total;
        return true;
    }

    std::vector<std::atomic<unsigned>> m_counts;
    std::atomic<unsigned> m_total{0}, m_failures{0};
    std::atomic<int> m_lastStatus{0};
    std::atomic<bool> m_offEngine{false};
    BridgeAnchor<Answers, const BasicIOTypes::ReadNotify&, bool> m_hook{*this, &Answers::readCb};
};

// Counts what handles are told.
class Sink final : public AsyncSink {
public:
    void readDone(int error) override {
        ++m_reads;
        m_readError = error;
    }
    void writeDone(unsigned long long offset, unsigned size, int error) override {
        m_bytes += size;
        if (error != 0) {
            ++m_failures;
            m_writeError = error;
        }
        m_lastOffset = offset;
        ++m_writes;
    }

    std::atomic<unsigned> m_reads{0}, m_writes{0}, m_failures{0};
    std::atomic<unsigned long long> m_bytes{0}, m_lastOffset{0};
    std::atomic<int> m_readError{-1}, m_writeError{0};
};

// Runs a test on an engine of each kind. Nothing may be left behind.
class Engine : public testing::TestWithParam<AsyncEngine::Kind> {
protected:
    void SetUp() override {
        m_liveBlocks = obufStats().m_liveBlocks;
        m_liveHandles = Handle::s_live;
        m_engine = AsyncEngine::forTests(GetParam());
        if (m_engine == nullptr) GTEST_SKIP() << "the kernel gives no ring";
        EXPECT_EQ(GetParam(), m_engine->getKind());
    }
    void TearDown() override {
        m_engine.reset();
        EXPECT_EQ(m_liveBlocks, obufStats().m_liveBlocks);
        EXPECT_EQ(m_liveHandles, Handle::s_live);
    }

    std::unique_ptr<AsyncEngine> m_engine;

private:
    unsigned long long m_liveBlocks = 0;
    int m_liveHandles = 0;
};

inline std::string kindName(const testing::TestParamInfo<AsyncEngine::Kind>& info) {
    return info.param == AsyncEngine::Kind::Uring ? "Ring" : "Pool";
}

inline BasicIOTypes::ReadReq request(const Answers& answers, unsigned long long offset, unsigned size,
                                     unsigned long tag = 0) {
    return {answers.hook(), offset, size, 0, Answers::tag(tag), false, false};
}

}  // namespace AsyncKit
