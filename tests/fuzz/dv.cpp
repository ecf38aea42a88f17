#include "backends/common/file_window.h"
#include "backends/dv/dv_black.h"
#include "backends/dv/dv_parser.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/kit/fake_file.h"

// The DV parser over a file in memory. Whatever the bytes are: a sentence, or whole frames that lie inside the file.
// The first byte of the input chooses what the file is: the rest of the input as it stands, or a sound stream of some
// system which the rest changes. A change is four bytes, namely a unit of 16 KiB, two for a place from there on and the
// count of the bytes that follow and go there. What is left at the end cuts the stream.

namespace {

constexpr std::size_t s_unit = 16384;

using fuzz::require;

// One frame of each choice is made once and kept.
const std::string& soundFrame(unsigned choice) {
    static std::string frames[256];
    std::string& frame = frames[choice % 256];
    if (!frame.empty()) return frame;
    const DvSystem& system = s_dvSystems[choice % s_dvSystemCount];
    DvAudio audio;
    audio.channels = choice % 4;
    frame.resize(system.frameSize());
    DvBlack::write(system, choice % 2 == 0, MediaAspectRatio::Ratio16x9, audio,
                   reinterpret_cast<std::uint8_t*>(frame.data()));
    return frame;
}

void putSoundStream(unsigned choice, std::string& bytes) {
    const std::string& frame = soundFrame(choice);
    for (unsigned i = 0; i <= choice / s_dvSystemCount % 3; ++i)
        bytes += frame;
}

void makeChanges(const std::uint8_t* data, std::size_t size, std::string& bytes) {
    while (size >= 4) {
        const std::size_t at = (data[0] * s_unit + (data[1] << 8 | data[2])) % bytes.size();
        const std::size_t count = std::min({std::size_t{data[3]}, size - 4, bytes.size() - at});
        std::copy_n(data + 4, count, bytes.begin() + static_cast<std::ptrdiff_t>(at));
        data += 4 + count;
        size -= 4 + count;
    }
    if (size == 3) bytes.resize(bytes.size() - (data[0] << 8 | data[1]));
    if (size == 2) bytes.erase(0, static_cast<std::size_t>(data[0] << 8 | data[1]));
}

void putFile(const std::uint8_t* data, std::size_t size, std::string& bytes) {
    bytes.clear();
    if (size == 0) return;
    if (data[0] == 0) {
        bytes.assign(reinterpret_cast<const char*>(data + 1), size - 1);
        return;
    }
    putSoundStream(data[0] - 1u, bytes);
    makeChanges(data + 1, size - 1, bytes);
}

// What every movie of a stream builds on.
void checkFormat(const DvFormat& format, std::uint64_t length) {
    require(format.system != nullptr);
    require(format.frames != 0 && format.frames <= format.maxFrames);
    require(format.baseOffset < length);
    require(format.frames <= (length - format.baseOffset) / format.system->frameSize());
    require(format.scan != MediaVideoScanType::Unknown);
    const DvAudio& audio = format.audio;
    require(audio.channels <= 16);
    require(audio.rate == 48000 || audio.rate == 44100 || audio.rate == 32000);
    require(audio.bits == 16 || audio.bits == 12 || audio.bits == 20);
    const MediaTimecode& timecode = format.timecode;
    const bool isTime = timecode.m_hours < 24 && timecode.m_minutes < 60 && timecode.m_seconds < 60;
    require(isTime && timecode.m_frames < 60);
}

bool isSame(const DvFormat& one, const DvFormat& other) {
    return one.system == other.system && one.isPro == other.isPro && one.aspect == other.aspect &&
           one.scan == other.scan && one.audio.channels == other.audio.channels && one.baseOffset == other.baseOffset &&
           one.frames == other.frames && one.maxFrames == other.maxFrames &&
           one.timecode.getCounter() == other.timecode.getCounter();
}

bool parse(kit::FakeFile& file, std::uint64_t length, DvFormat& format) {
    file.m_readCalls = 0;
    FileWindow window(file, length);
    OpResult result = DvParser(window).parse(format);
    const bool success = result.success();
    require(success || (result.getMessage() != nullptr && std::string(result.getMessage()).rfind("dv: ", 0) == 0));
    result.discard();
    require(static_cast<std::uint64_t>(file.m_readCalls) <= 2 * std::min<std::uint64_t>(length, 1u << 20) + 1000);
    return success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Kept, since memory of this size that is new each time costs more than the parser does.
    static kit::FakeFile file;
    putFile(data, size, file.m_content);
    const std::uint64_t length = file.m_content.size();
    DvFormat first, second, shrunk;
    const bool success = parse(file, length, first);
    if (success) checkFormat(first, length);
    require(parse(file, length, second) == success && (!success || isSame(first, second)));
    // A file that is cut while it is parsed: its length was taken before.
    file.m_content.resize(length / 2);
    if (parse(file, length, shrunk)) checkFormat(shrunk, length);
    return 0;
}
