#include <map>

#include "services/system/locks.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/switches.h"
#include "support/fixed_point.h"
#include "support/thread_annotations.h"

namespace {

// The kinds of media that this process has seen, by number. Walked from the lowest number on: the first match wins.
class ParamIdTable {
public:
    MediaClipParam::ParamId idOf(const MediaClipParam& param) MO_EXCLUDES(m_mutex) {
        const ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
        const MediaClipParam::ParamId known = find(param);
        return known != 0 ? known : add(param);
    }

private:
    MediaClipParam::ParamId find(const MediaClipParam& param) const MO_REQUIRES(m_mutex) {
        const bool announce = mediaObjDbg.on(MediaDbg::AnnounceParamId);
        for (const auto& [id, entry] : m_entries) {
            if (entry.paramIdMatch(param)) return id;
            if (announce) debugMsg("MCP::getId: %s != %s\n", param.toString().get(), entry.toString().get());
        }
        return 0;
    }

    MediaClipParam::ParamId add(const MediaClipParam& param) MO_REQUIRES(m_mutex) {
        const auto id = static_cast<MediaClipParam::ParamId>(m_entries.size() + 1);
        m_entries[id] = param;  // assigned, so that the entry keeps the extra pair
        if (mediaObjDbg.on(MediaDbg::AnnounceParamId))
            debugMsg("MediaClipDesc:id%d={%s}\n", static_cast<int>(id), param.toString().get());
        return id;
    }

    ZarnexPosix::JMutex m_mutex;
    std::map<MediaClipParam::ParamId, MediaClipParam> m_entries MO_GUARDED_BY(m_mutex);
};

bool uncompressedVideo(MediaEncodingType encoding) {
    return encoding == MediaEncodingType::Rec601 || encoding == MediaEncodingType::Dv;
}

bool lineCoded(MediaEncodingType encoding) {
    return encoding == MediaEncodingType::S436mVbi || encoding == MediaEncodingType::S436mAnc;
}

}  // namespace

MediaClipParam::ParamId MediaClipParam::getParamId() const {
    // Never destroyed: a movie may be parsed while the process ends.
    static ParamIdTable& table = *new ParamIdTable;
    return table.idOf(*this);
}

bool MediaClipParam::paramIdMatch(const MediaClipParam& other) const {
    if (m_encoding != other.m_encoding || m_dataType != other.m_dataType || m_coding != other.m_coding) return false;
    if (m_videoRate != other.m_videoRate || m_width != other.m_width || m_height != other.m_height) return false;
    if (m_aspect.get() != other.m_aspect.get() || m_chroma != other.m_chroma) return false;
    const bool scanKnown = m_vscan != MediaVideoScanType::Unknown && other.m_vscan != MediaVideoScanType::Unknown;
    if (scanKnown && m_vscan != other.m_vscan) return false;
    if (m_channels != other.m_channels || m_endian != other.m_endian) return false;
    if (!sameSampleSizes(other)) return false;
    if (m_extraParam[1] != other.m_extraParam[1] || m_extraParam[0] != other.m_extraParam[0]) return false;
    return sameSampleRate(other);
}

// Sizes that a compressed coding chooses from sample to sample don't make another kind of media.
bool MediaClipParam::sameSampleSizes(const MediaClipParam& other) const {
    if (m_maxBitsPerSample != other.m_maxBitsPerSample && lineCoded(m_encoding)) return false;
    if (m_bitsPerUnit == other.m_bitsPerUnit || m_dataType == MediaDataType::Audio) {
        return m_bitsPerUnit == other.m_bitsPerUnit;
    }
    return m_dataType != MediaDataType::Video || !uncompressedVideo(m_encoding);
}

// A rate that was rounded to hundredths is the exact one: they differ by less than a tick.
bool MediaClipParam::sameSampleRate(const MediaClipParam& other) const {
    // With the same ticks the difference is a whole number of them, of which the quotients below may lose a little.
    if (m_ticksPerSample == other.m_ticksPerSample) return m_sampleRate == other.m_sampleRate;
    if (m_ticksPerSample == 0 || other.m_ticksPerSample == 0) return false;
    const FixedPoint<16> rate = FixedPoint<16>(m_sampleRate) / m_ticksPerSample;
    const FixedPoint<16> otherRate = FixedPoint<16>(other.m_sampleRate) / other.m_ticksPerSample;
    const FixedPoint<16> difference = (rate - otherRate).abs();
    const FixedPoint<16> one(1);
    return difference * m_ticksPerSample < one && difference * other.m_ticksPerSample < one;
}
