#include "tests/stress/stress_recorder.h"

#include <cstdlib>
#include <cstring>

#include "backends/dv/dv_black.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/samples.h"
#include "tests/stress/film_picture.h"

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

MediaFileType typeOf(Kind kind) {
    switch (kind) {
        case Kind::Wav:
            return MediaFileType::Wav;
        case Kind::Aiff:
            return MediaFileType::Aiff;
        case Kind::Dv:
            return MediaFileType::Dv;
        default:
            return MediaFileType::QuickTime;
    }
}

const char* suffixOf(Kind kind) {
    switch (kind) {
        case Kind::Wav:
            return ".wav";
        case Kind::Aiff:
            return ".aiff";
        case Kind::Dv:
            return ".dv";
        default:
            return ".mov";
    }
}

unsigned tracksOf(Kind kind) { return typeOf(kind) == MediaFileType::QuickTime ? 2 : 1; }

unsigned sizeOf(Kind kind) { return kind == Kind::Dv ? dvSystem().frameSize() : s_soundSize; }

std::string essence(Kind kind, unsigned track, unsigned long long sample, unsigned count) {
    const bool isPictures = isFilm(kind) && track == 0;
    if (kind != Kind::Dv && !isPictures) return kit::patternFrom(sample * s_soundSize, count * s_soundSize);
    std::string bytes;
    for (unsigned i = 0; i < count; ++i)
        bytes += isPictures ? filmpicture::bytesOf(sample + i) : frame(sample + i);
    return bytes;
}

bool Recording::begin(const std::string& path, Kind kind, unsigned rate) {
    m_kind = kind;
    const MediaFileType type = typeOf(kind);
    const MediaContainment containment = isByRef(kind) ? MediaContainment::ByRef : MediaContainment::Embedded;
    OpResult result;
    m_movie =
        MediaObj::openWriter(path.c_str(), false, result, containment, type, nullptr, BasicIOTypes::SizeAdvice::None);
    result.discard();
    if (m_movie == nullptr) return false;
    for (unsigned i = 0; i < tracksOf(kind); ++i) {
        MediaClipParam param;
        bool isGood = false;
        if (kind == Kind::Dv) {
            isGood = param.initVideo(type, MediaEncodingType::Dv, MediaVideoRate::Ntsc2997);
        } else if (isFilm(kind) && i == 0) {
            isGood = param.initVideo(type, MediaEncodingType::Mpeg, MediaVideoRate::Pal25);
            param.m_width = filmpicture::s_width;
            param.m_height = filmpicture::s_height;
            param.m_vscan = MediaVideoScanType::Progressive;
        } else {
            isGood = param.initAudio(type, MediaEncodingType::Pcm, MediaVideoRate::Unknown, rate, s_channels, s_bits);
        }
        if (isGood) m_tracks[i] = makeTrack(param);
        if (m_tracks[i] == nullptr) return false;
    }
    if (isFilm(kind)) m_soundPerSample = rate / filmpicture::s_rate;
    return true;
}

MediaTrackDesc* Recording::makeTrack(const MediaClipParam& param) {
    OpResult result;
    MediaTrackDesc* const track = m_movie->createTrack(param, result);
    const bool isMade = track != nullptr && track->createClip(param, result) != nullptr;
    result.discard();
    return isMade ? track : nullptr;
}

bool Recording::write(unsigned count, bool async) {
    bool isWritten = isFilm(m_kind) ? writePictures(count, async) : writeTo(0, m_samples, count, async);
    if (isWritten && m_tracks[1] != nullptr)
        isWritten = writeTo(1, m_samples * m_soundPerSample, count * m_soundPerSample, async);
    m_samples += count;
    return isWritten;
}

bool Recording::writePictures(unsigned count, bool async) {
    for (unsigned i = 0; i < count; ++i) {
        if (m_samples + i == s_skippedAfter && !m_tracks[0]->setPrecharge(s_skipped).success()) return false;
        if (!writeTo(0, m_samples + i, 1, async)) return false;
    }
    return true;
}

bool Recording::writeTo(unsigned track, unsigned long long sample, unsigned count, bool async) {
    const std::string bytes = essence(m_kind, track, sample, count);
    SampleInfo info;
    info.reset(static_cast<unsigned>(bytes.size()));
    if (isFilm(m_kind) && track == 0) info.setEncoding(filmpicture::codingOf(sample));
    MediaSampleInMovie where;
    OpResult result;
    const bool isEntered = m_tracks[track]->addSamples(MediaRecordReq(sample, count, info), where, result);
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
