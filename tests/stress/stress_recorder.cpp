#include "tests/stress/stress_recorder.h"

#include <cstdlib>
#include <cstring>

#include "backends/dv/dv_black.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/samples.h"

namespace stress {

namespace {

std::string blackFrame() {
    std::string bytes(dvSystem().frameSize(), '\0');
    DvAudio sound;
    sound.channels = s_channels;
    DvBlack::write(dvSystem(), false, MediaAspectRatio::Ratio4x3, sound, reinterpret_cast<std::uint8_t*>(bytes.data()));
    return bytes;
}

std::string frame(unsigned long long number) {
    static const std::string black = blackFrame();
    constexpr std::size_t block = 80;
    std::string bytes = black;
    for (std::size_t at = 0; at + block <= bytes.size(); at += block) {
        const bool isPicture = static_cast<unsigned char>(bytes[at]) >> 5 == 4;
        if (isPicture) std::memcpy(&bytes[at + block - sizeof number], &number, sizeof number);
    }
    return bytes;
}

}  // namespace

const DvSystem& dvSystem() { return *DvSystem::find(MediaVideoRate::Ntsc2997); }

unsigned sizeOf(MediaFileType type) { return type == MediaFileType::Dv ? dvSystem().frameSize() : s_soundSize; }

const char* suffixOf(MediaFileType type) {
    if (type == MediaFileType::Dv) return ".dv";
    if (type == MediaFileType::QuickTime) return ".mov";
    return type == MediaFileType::Wav ? ".wav" : ".aiff";
}

std::string essence(MediaFileType type, unsigned long long sample, unsigned count) {
    if (type != MediaFileType::Dv) return kit::patternFrom(sample * s_soundSize, count * s_soundSize);
    std::string bytes;
    for (unsigned i = 0; i < count; ++i)
        bytes += frame(sample + i);
    return bytes;
}

bool Recording::begin(const std::string& path, MediaFileType type, unsigned rate) {
    m_type = type;
    MediaClipParam param;
    const bool isGood =
        type == MediaFileType::Dv
            ? param.initVideo(type, MediaEncodingType::Dv, MediaVideoRate::Ntsc2997)
            : param.initAudio(type, MediaEncodingType::Pcm, MediaVideoRate::Unknown, rate, s_channels, s_bits);
    if (!isGood) return false;
    OpResult result;
    m_movie = MediaObj::openWriter(path.c_str(), false, result, MediaContainment::Embedded, type, nullptr,
                                   BasicIOTypes::SizeAdvice::None);
    result.discard();
    if (m_movie == nullptr) return false;
    m_track = makeTrack(param);
    if (type == MediaFileType::QuickTime) m_second = makeTrack(param);
    return m_track != nullptr && (type != MediaFileType::QuickTime || m_second != nullptr);
}

MediaTrackDesc* Recording::makeTrack(const MediaClipParam& param) {
    OpResult result;
    MediaTrackDesc* const track = m_movie->createTrack(param, result);
    const bool isMade = track != nullptr && track->createClip(param, result) != nullptr;
    result.discard();
    return isMade ? track : nullptr;
}

bool Recording::write(unsigned count, bool async) {
    const std::string bytes = essence(m_type, m_samples, count);
    const bool isWritten =
        writeTo(*m_track, count, bytes, async) && (m_second == nullptr || writeTo(*m_second, count, bytes, async));
    m_samples += count;
    return isWritten;
}

bool Recording::writeTo(MediaTrackDesc& track, unsigned count, const std::string& bytes, bool async) {
    SampleInfo info;
    info.reset(count * sizeOf(m_type));
    MediaSampleInMovie where;
    OpResult result;
    const bool isEntered = track.addSamples(MediaRecordReq(m_samples, count, info), where, result);
    result.discard();
    if (!isEntered) return false;
    if (async) return m_movie->vaWrite(where, kit::obufOf(bytes)).success();
    MediaIoBuf buffer;
    kit::fill(buffer, bytes);
    return m_movie->vsWrite(where, buffer).success();
}

void Recording::flush() { m_movie->flush(nullptr, true); }

bool Recording::end() {
    const bool hasEnded = m_movie->setRecording(false).success();
    m_movie->release(MediaAgent(nullptr), true);
    return hasEnded;
}

unsigned lengthFrom(const char* variable, unsigned otherwise) {
    const char* const text = std::getenv(variable);
    const unsigned long value = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    return value != 0 ? static_cast<unsigned>(value) : otherwise;
}

}  // namespace stress
