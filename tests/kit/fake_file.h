#pragma once

#include <atomic>
#include <cstring>
#include <string>

#include "services/file/basic_file_io.h"
#include "services/system/text.h"

namespace kit {

// A handle on no file: it answers what it is told to, and keeps what it was asked.
class FakeFile : public BasicFileIO {
public:
    explicit FakeFile(BasicIOTypes::Mode mode = BasicIOTypes::Mode::ReadOnly) : BasicFileIO(mode) {}
    ~FakeFile() override {
        if (m_destroyed != nullptr) *m_destroyed = true;
    }

    bool open() override {
        ++m_openCalls;
        return m_openAnswer;
    }
    int read(void* memory, unsigned size) override { return readAt(0, memory, size); }
    int readAt(unsigned long long offset, void* memory, unsigned size) override {
        const int call = ++m_readCalls;
        if (call == m_shortRead) size = size < m_shortBytes ? size : m_shortBytes;
        if (m_readAnswer < 0) return m_readAnswer;
        if (offset >= m_content.size()) return 0;
        const std::size_t left = m_content.size() - offset;
        const std::size_t count = size < left ? size : left;
        if (count != 0) std::memcpy(memory, m_content.data() + offset, count);
        return static_cast<int>(count);
    }
    bool isCached(unsigned long long, unsigned) override {
        ++m_cachedCalls;
        return m_cachedAnswer;
    }
    int writeAt(unsigned long long, const void*, unsigned) override { return -1; }
    bool readAsync(const BasicIOTypes::ReadReq& request) override {
        ++m_asyncCalls;
        m_lastHook = request.m_hook;
        m_lastOffset = request.m_offset;
        m_lastSize = request.m_size;
        m_lastAllocId = request.m_allocId;
        m_lastTag = request.m_tag;
        m_lastFrag = request.m_frag;
        m_lastCacheL2 = request.m_cacheL2;
        return m_asyncAnswer;
    }
    bool writeAsync(unsigned long long, phantom_OBUF* obuf) override {
        obufFree(obuf);
        return false;
    }
    unsigned long long getLength() override { return m_content.size(); }
    const char* getPath() const override { return m_path.c_str(); }
    AutoPtr<char> describe() const override { return AutoPtr<char>(System::copy(m_path.c_str())); }
    bool exists() override { return m_existsAnswer; }
    bool openById(OsPathId) override { return false; }
    OsPathId getPathId() override { return m_id; }
    unsigned long long getVersion() override { return 1; }
    BasicIOTypes::SizeAdvice getSizeAdvice(bool) override { return m_advice; }
    void advise(BasicIOTypes::SizeAdvice advice) override { m_advice = advice; }
    void adviseReparse(int) override {}
    void resetLookAhead() override {}
    void setLookAhead(unsigned) override {}
    int write(const void*, unsigned) override { return -1; }
    bool close() override { return true; }
    bool flush() override { return true; }

    std::string m_path = "/nowhere/fake";
    std::string m_content;
    OsPathId m_id;
    BasicIOTypes::SizeAdvice m_advice = BasicIOTypes::SizeAdvice::None;
    bool m_openAnswer = true;
    bool m_existsAnswer = true;
    bool m_cachedAnswer = true;
    bool m_asyncAnswer = true;
    int m_readAnswer = 0;       // below 0: what every read answers
    int m_shortRead = 0;        // the read of that number, from 1, is short
    unsigned m_shortBytes = 0;  // what it answers then
    bool* m_destroyed = nullptr;

    int m_openCalls = 0, m_cachedCalls = 0, m_asyncCalls = 0;
    std::atomic<int> m_readCalls{0};  // may come from several threads
    const BasicIOTypes::ReadHook* m_lastHook = nullptr;
    unsigned long long m_lastOffset = 0;
    unsigned m_lastSize = 0;
    phantom_obAllocationId_t m_lastAllocId = 0;
    const void* m_lastTag = nullptr;
    bool m_lastFrag = false;
    bool m_lastCacheL2 = false;

protected:
    void modeChanged() override {}
};

}  // namespace kit
