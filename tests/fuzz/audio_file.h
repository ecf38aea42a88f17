#pragma once

#include "backends/common/file_window.h"
#include "support/op_result.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/kit/fake_file.h"

// What the targets of audio files share: the parser over a file in memory. Whatever the bytes are: a sentence that
// begins with the format's name, or essence that lies wholly inside the file.

namespace fuzz {

template <class Parser, class Format>
bool parseAudio(const std::string& bytes, std::uint64_t length, const char* name, Format& format) {
    kit::FakeFile file;
    file.m_content = bytes;
    FileWindow window(file, length);
    OpResult result = Parser(window).parse(format);
    const bool success = result.success();
    const std::string sentence = result.getMessage() != nullptr ? result.getMessage() : "";
    require(success || sentence.rfind(std::string(name) + ": ", 0) == 0);
    result.discard();
    require(file.m_readCalls <= 4 * static_cast<int>(Parser::s_maxChunks) + 16);
    return success;
}

template <class Parser, class Format>
void runAudioFile(const std::uint8_t* data, std::size_t size, const char* name,
                  void (*checkFormat)(const Format& format, std::uint64_t length),
                  bool (*isSame)(const Format& one, const Format& other)) {
    const std::string bytes = Input(data, size).rest();
    Format first, second, shrunk;
    const bool success = parseAudio<Parser>(bytes, size, name, first);
    if (success) checkFormat(first, size);
    require(parseAudio<Parser>(bytes, size, name, second) == success && (!success || isSame(first, second)));
    // A file that is cut while it is parsed: its length was taken before.
    if (parseAudio<Parser>(bytes.substr(0, size / 2), size, name, shrunk)) checkFormat(shrunk, size);
}

}  // namespace fuzz
