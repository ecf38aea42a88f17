#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "backends/common/file_window.h"
#include "backends/wav/wav_parser.h"
#include "tests/kit/fake_file.h"

// The WAV parser over a file in memory. Whatever the bytes are: a sentence, or essence that lies wholly inside the
// file.

namespace {

void require(bool truth) {
    if (!truth) std::abort();
}

// What every movie of a WAV builds on.
void checkFormat(const WavFormat& format, std::uint64_t length) {
    require(format.channels >= 1 && format.channels <= WavParser::s_maxChannels);
    require(format.sampleRate != 0);
    require(format.bits == 8 || format.bits == 16 || format.bits == 24 || format.bits == 32);
    require(format.blockAlign == format.channels * format.bits / 8);
    require(format.encoding == MediaEncodingType::Pcm || format.bits == 8);
    require(format.dataOffset >= 20 && format.dataOffset <= length);
    require(format.samples <= (length - format.dataOffset) / format.blockAlign);
    require(format.samples <= format.maxSamples);
    require(format.hasBext || !format.hasUmid);
}

// The same bytes give the same answer.
bool isSame(const WavFormat& one, const WavFormat& other) {
    return one.encoding == other.encoding && one.channels == other.channels && one.sampleRate == other.sampleRate &&
           one.bits == other.bits && one.dataOffset == other.dataOffset && one.samples == other.samples &&
           one.maxSamples == other.maxSamples && one.timeReference == other.timeReference &&
           one.hasUmid == other.hasUmid && std::equal(std::begin(one.umid), std::end(one.umid), std::begin(other.umid));
}

bool parse(kit::FakeFile& file, std::uint64_t length, WavFormat& format) {
    FileWindow window(file, length);
    OpResult result = WavParser(window).parse(format);
    const bool success = result.success();
    require(success || (result.getMessage() != nullptr && std::string(result.getMessage()).rfind("wav: ", 0) == 0));
    result.discard();
    require(file.m_readCalls <= 4 * static_cast<int>(WavParser::s_maxChunks) + 16);
    return success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    WavFormat first, second, shrunk;
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
