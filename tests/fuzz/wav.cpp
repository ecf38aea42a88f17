#include "backends/wav/wav_parser.h"
#include "tests/fuzz/audio_file.h"

// The WAV parser.

namespace {

using fuzz::require;

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::runAudioFile<WavParser, WavFormat>(data, size, "wav", &checkFormat, &isSame);
    return 0;
}
