#pragma once

#include <gtest/gtest.h>

#include <string>

#include "backends/common/file_window.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"

// What a back-end's parser made of some bytes. `readAnswer`, where it is below 0, is what the file answers to every
// read.
template <class Parser, class Format>
struct ParserVerdict {
    explicit ParserVerdict(const std::string& bytes, int readAnswer = 0) {
        m_file.m_content = bytes;
        m_file.m_readAnswer = readAnswer;
        FileWindow window(m_file, bytes.size());
        m_result = Parser(window).parse(m_format);
    }
    // Of whatever makes a file's bytes.
    template <class Builder>
    explicit ParserVerdict(const Builder& builder) : ParserVerdict(builder.bytes()) {}
    ~ParserVerdict() { m_result.discard(); }
    ParserVerdict(const ParserVerdict&) = delete;
    ParserVerdict& operator=(const ParserVerdict&) = delete;

    kit::FakeFile m_file;
    Format m_format;
    OpResult m_result;
};

template <class Verdict>
void expectRefusal(const Verdict& verdict, int code, const std::string& sentence) {
    EXPECT_TRUE(kit::isWarning(verdict.m_result, code)) << sentence;
    ASSERT_NE(verdict.m_result.getMessage(), nullptr) << sentence;
    EXPECT_EQ(verdict.m_result.getMessage(), sentence);
}
