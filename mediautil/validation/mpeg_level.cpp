#include "shared/include/validation/mpeg_level.h"

#include "services/system/log.h"

namespace {

constexpr std::uint32_t s_max422HighRate = 300000000;  // bits a second

constexpr std::uint32_t answer(std::uint32_t level, std::uint32_t profile) { return level << 16 | profile; }

bool fits422Main(unsigned width, unsigned height, unsigned bitRate, MediaVideoRate rate) {
    if (width > 720 || height > 608 || bitRate > 50000000) return false;
    if (height > 512 && rate != MediaVideoRate::Pal25) return false;
    return static_cast<std::int32_t>(rate) <= static_cast<std::int32_t>(MediaVideoRate::Hz30);
}

std::uint32_t levelOf422(unsigned width, unsigned height, unsigned bitRate, MediaVideoRate rate) {
    if (fits422Main(width, height, bitRate, rate)) return MpegLevel::Main;
    if (bitRate > s_max422HighRate)
        infoMsg("mpeg bit rate %u bps exceeds max supported %u (422P@HL)\n", bitRate, s_max422HighRate);
    return MpegLevel::High;
}

// The rates that streams of High level are sent at, although their size would do with less.
bool isExactHighRate(unsigned width, unsigned bitRate) {
    return (width == 1440 && bitRate == 18000000) || (width > 720 && bitRate == 35000000);
}

std::uint32_t levelOfMain(unsigned width, unsigned height, unsigned bitRate, MediaVideoRate rate, bool exactRateHigh) {
    if (width > 1440 || bitRate > 60000000) return MpegLevel::High;
    if (exactRateHigh && isExactHighRate(width, bitRate)) return MpegLevel::High;
    const bool fitsHeight = height <= 480 || rate == MediaVideoRate::Pal25;
    return width <= 720 && bitRate <= 15000000 && fitsHeight ? MpegLevel::Main : MpegLevel::High1440;
}

}  // namespace

std::uint32_t calcMpegLevelAndProfile(unsigned int width, unsigned int height, MediaChromaSample chroma,
                                      unsigned int bitRate, MediaVideoRate rate, bool exactRateHigh) {
    if (chroma == MediaChromaSample::C422 || bitRate > 80000000)
        return answer(levelOf422(width, height, bitRate, rate), MpegProfile::P422);
    return answer(levelOfMain(width, height, bitRate, rate, exactRateHigh), MpegProfile::Main);
}
