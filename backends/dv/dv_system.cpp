#include "backends/dv/dv_system.h"

#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/media_obj.h"

namespace {

constexpr auto s_420 = MediaChromaSample::C420;
constexpr auto s_411 = MediaChromaSample::C411;
constexpr auto s_422 = MediaChromaSample::C422;
constexpr auto s_pal = MediaVideoRate::Pal25;
constexpr auto s_ntsc = MediaVideoRate::Ntsc2997;

constexpr unsigned s_signal25 = 0x00;

// The rate that parameters speak of, by name or else by its numbers.
MediaVideoRate rateOf(const MediaClipParam& param) {
    if (param.m_videoRate != MediaVideoRate::Unknown || param.m_dataType == MediaDataType::Audio) {
        return param.m_videoRate;
    }
    if (param.m_ticksPerSample == 0 || param.m_ticksPerSample > 0x7FFFFFFFu) return MediaVideoRate::Unknown;
    return MediaObj::getVideoRate(FixedPoint<16>(param.m_sampleRate) / param.m_ticksPerSample);
}

bool fits(const DvSystem& system, const MediaClipParam& param) {
    const bool width = param.m_width == system.width || param.m_width == system.fullWidth;
    const bool chroma = param.m_chroma == MediaChromaSample::None || param.m_chroma == system.chroma;
    return width && chroma && param.m_height == system.height && rateOf(param) == system.videoRate;
}

}  // namespace

const DvSystem s_dvSystems[s_dvSystemCount] = {
    {"525/60 25 Mbit/s", false, 0x00, 0, 1, 720, 720, 480, s_411, s_ntsc, 30000, 1001},
    {"625/50 25 Mbit/s 4:2:0", true, 0x00, 0, 1, 720, 720, 576, s_420, s_pal, 25, 1},
    {"625/50 25 Mbit/s 4:1:1", true, 0x00, 0, 1, 720, 720, 576, s_411, s_pal, 25, 1},
    {"525/60 50 Mbit/s", false, 0x04, 2, 2, 720, 720, 480, s_422, s_ntsc, 30000, 1001},
    {"625/50 50 Mbit/s", true, 0x04, 2, 2, 720, 720, 576, s_422, s_pal, 25, 1},
    {"1080/60i 100 Mbit/s", false, 0x14, 3, 4, 1280, 1920, 1080, s_422, s_ntsc, 30000, 1001},
    {"1080/50i 100 Mbit/s", true, 0x14, 3, 4, 1440, 1920, 1080, s_422, s_pal, 25, 1},
    {"720/60p 100 Mbit/s", false, 0x18, 3, 2, 960, 1280, 720, s_422, MediaVideoRate::Hz5994, 60000, 1001},
    {"720/50p 100 Mbit/s", true, 0x18, 3, 2, 960, 1280, 720, s_422, MediaVideoRate::Hz50, 50, 1},
};

unsigned DvSystem::bitrate() const {
    const std::uint64_t bits = std::uint64_t{frameSize()} * 8 * rate;
    return static_cast<unsigned>((bits + ticks / 2) / ticks);
}

bool DvSystem::carriesSound(unsigned sampleRate, unsigned soundChannels, unsigned bits) const {
    const bool isRate = sampleRate == 48000 || sampleRate == 44100 || sampleRate == 32000;
    const bool isWord = bits == 16 || (bits == 12 && sampleRate == 32000);
    return isRate && isWord && soundChannels != 0 && soundChannels <= channels * (bits == 12 ? 4 : 2);
}

const DvSystem& DvSystem::basic(bool is625, unsigned apt) {
    // Only in 625 lines does the application tell the chroma: 4:2:0 by IEC 61834, 4:1:1 by SMPTE ST 314M.
    if (!is625) return s_dvSystems[0];
    return apt == 0 ? s_dvSystems[1] : s_dvSystems[2];
}

const DvSystem* DvSystem::find(bool is625, unsigned signal, unsigned apt) {
    if (signal == s_signal25) return &basic(is625, apt);
    for (const DvSystem& system : s_dvSystems) {
        if (system.is625 == is625 && system.signal == signal) return &system;
    }
    return nullptr;
}

const DvSystem* DvSystem::find(MediaVideoRate rate) {
    for (const DvSystem& system : s_dvSystems) {
        if (system.videoRate == rate) return &system;
    }
    return nullptr;
}

const DvSystem* DvSystem::find(const MediaClipParam& param) {
    if (param.m_dataType == MediaDataType::Audio) {
        const MediaVideoRate rate = rateOf(param);
        return find(rate == MediaVideoRate::Unknown ? MediaVideoRate::Ntsc2997 : rate);
    }
    const DvSystem* found = nullptr;
    for (const DvSystem& system : s_dvSystems) {
        if (!fits(system, param)) continue;
        // Where the chroma is left open, the size of a frame may tell.
        if (param.m_maxBitsPerSample == system.frameSize() * 8) return &system;
        if (found == nullptr) found = &system;
    }
    return found;
}
