#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "backends/aiff/aiff_parser.h"
#include "backends/common/file_window.h"
#include "tests/kit/fake_file.h"

// The AIFF parser over a file in memory. Whatever the bytes are: a sentence, or essence that lies wholly inside the
// file.

namespace {

void require(bool truth) {
    if (!truth) std::abort();
}

// What every movie of an AIFF builds on.
void checkFormat(const PcmFormat& format, std::uint64_t length) {
    require(format.channels >= 1 && format.channels <= AiffParser::s_maxChannels);
    require(format.sampleRate != 0);
    require(format.bits == 8 || format.bits == 16 || format.bits == 24 || format.bits == 32);
    require(format.blockAlign == format.channels * format.bits / 8);
    require(format.encoding == MediaEncodingType::Pcm ||
            (format.encoding == MediaEncodingType::ALaw && format.bits == 8));
    require(format.dataOffset >= 28 && format.dataOffset <= length);
    require(format.samples <= (length - format.dataOffset) / format.blockAlign);
    require(format.samples <= format.maxSamples && format.maxSamples <= 0xFFFFFFFFu);
}

// The same bytes give the same answer.
bool isSame(const PcmFormat& one, const PcmFormat& other) {
    return one.encoding == other.encoding && one.endian == other.endian && one.channels == other.channels &&
           one.sampleRate == other.sampleRate && one.bits == other.bits && one.blockAlign == other.blockAlign &&
           one.dataOffset == other.dataOffset && one.samples == other.samples && one.maxSamples == other.maxSamples;
}

bool parse(kit::FakeFile& file, std::uint64_t length, PcmFormat& format) {
    FileWindow window(file, length);
    OpResult result = AiffParser(window).parse(format);
    const bool success = result.success();
    require(success || (result.getMessage() != nullptr && std::string(result.getMessage()).rfind("aiff: ", 0) == 0));
    result.discard();
    require(file.m_readCalls <= 4 * static_cast<int>(AiffParser::s_maxChunks) + 16);
    return success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    PcmFormat first, second, shrunk;
    kit::FakeFile file, again, shorter;
    file.m_content = again.m_content = bytes;
    const bool success = parse(file, size, first);
    if (success) checkFormat(first, size);
    require(parse(again, size, second) == success && (!success || isSame(first, second)));
    // A file that is cut while it is parsed: its length was taken before.
    shorter.m_content = bytes.substr(0, size / 2);
    if (parse(shorter, size, shrunk)) checkFormat(shrunk, size);
    return 0;
}
