#include "backends/aiff/aiff_parser.h"
#include "tests/fuzz/audio_file.h"

// The AIFF parser.

namespace {

using fuzz::require;

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::runAudioFile<AiffParser, PcmFormat>(data, size, "aiff", &checkFormat, &isSame);
    return 0;
}
