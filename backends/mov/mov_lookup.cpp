#include "backends/mov/mov_lookup.h"

#include <algorithm>

#include "backends/mov/mov_picture_types.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

// Stretches of a file that are joined for one request at most: small chunks one behind the other.
constexpr unsigned s_mostJoined = 4096;
// How far back an anchor is looked for: longer than any run of B pictures.
constexpr unsigned s_anchorReach = 64;

}  // namespace

// The end is known where one stretch holds all samples; looking it up elsewhere would cost a walk.
MediaOffsetSummary MovLookup::summaryOf(const MovTrackSamples& samples, const MovClipPlan& plan) {
    MediaOffsetSummary summary;
    MovSpot spot;
    if (plan.samples == 0 || !samples.find(plan.base, spot)) return summary;
    const std::uint32_t size = samples.fixedSize();
    std::uint64_t end = 0;
    const bool isOne = size != 0 && spot.following + 1 >= plan.samples &&
                       !__builtin_mul_overflow(size, plan.samples, &end) &&
                       !__builtin_add_overflow(end, spot.offset, &end);
    summary.set(size, spot.offset, plan.samples, isOne ? end : 0);
    return summary;
}

MovLookup::MovLookup(const MovTrackSamples& samples, const MovClipPlan& plan, unsigned lengthBytes,
                     const MediaClipDesc& clip)
    : MediaOffsetLookup(summaryOf(samples, plan)),
      m_samples(samples),
      m_clip(clip),
      m_base(plan.base),
      m_lengthBytes(lengthBytes),
      m_isAllSync(samples.isAllSync()) {}

bool MovLookup::isVideo() const { return m_clip.getType() == MediaDataType::Video; }

bool MovLookup::getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    result = OpResult(OpResult::Ok);
    if (req.m_sample >= m_numSamples) {
        // Sound ends where it ends: no anchor stands for a block of samples.
        if (m_numSamples == 0 || !isVideo()) return false;
        // The frame past the end repeats an anchor, and so it has to know which pictures are some.
        MediaPlayReq withTypes = req;
        withTypes.m_flag = true;
        return getMediaOffsetFrameN(m_clip, withTypes, desc, result);
    }
    if (!findPlaces(req, desc)) {
        result = MO_WARNING(MediaCode::ParserError, "mov: the sample tables don't say where a sample lies");
        return false;
    }
    if (req.m_flag) findAnchor(req, desc);
    return true;
}

bool MovLookup::getFrameInfo(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    if (!getMediaOffset(req, desc, result)) return false;
    if (!req.m_flag && !desc.m_frameN && req.m_sample < m_numSamples) findAnchor(req, desc);
    return true;
}

bool MovLookup::findPlaces(const MediaPlayReq& req, MediaSampleDesc& desc) const {
    const std::uint64_t wanted = std::min<std::uint64_t>(std::max(req.m_count, 1u), m_numSamples - req.m_sample);
    std::uint64_t have = 0, total = 0, end = 0;
    for (unsigned joined = 0; have < wanted && joined < s_mostJoined; ++joined) {
        MovSpot spot;
        std::uint64_t found = 0, bytes = 0;
        if (!m_samples.findTogether(m_base + req.m_sample + have, wanted - have, spot, found, bytes)) return false;
        // As many as the bits of a size hold.
        while (bytes >= MediaSampleDesc::s_unknownSize - total && found > 1) {
            if (!m_samples.findTogether(m_base + req.m_sample + have, found / 2, spot, found, bytes)) return false;
        }
        if (bytes >= MediaSampleDesc::s_unknownSize - total) break;
        if (have == 0) {
            desc.set(0, req.m_sample, spot.offset, 0u, 0, false);
        } else if (spot.offset != end) {
            if (desc.m_numChunks == MediaSampleDesc::s_maxChunks) break;
            desc.m_chunks[desc.m_numChunks++] = MediaSampleDesc::Chunk(spot.offset, 0);
        }
        desc.m_chunks[desc.m_numChunks - 1].m_size += static_cast<std::uint32_t>(bytes);
        end = spot.offset + bytes;
        total += bytes;
        have += found;
    }
    if (have == 0) return false;
    desc.m_count = static_cast<std::uint32_t>(have);
    desc.m_info.reset(static_cast<unsigned>(total));
    if (!isVideo()) return true;
    const bool isSync = m_isAllSync || m_samples.isSync(m_base + req.m_sample);
    desc.m_info.setEncoding(isSync ? SampleCodingType::I : SampleCodingType::Unknown);
    return true;
}

SampleCodingType MovLookup::typeOf(const MediaPlayReq& req, unsigned long long sample) const {
    MovSpot spot;
    std::uint64_t found = 0, bytes = 0;
    OpResult result;
    if (!m_samples.findTogether(m_base + sample, 1, spot, found, bytes)) return SampleCodingType::Unknown;
    const AutoRefPtr<BasicFileIO> file =
        m_clip.getObj().open(m_clip.getMediaId(), req.m_agent, MediaObj::ReadMode::ReadOnly, result);
    result.discard();
    if (!file) return SampleCodingType::Unknown;
    return MovPictureTypes::look(*file, m_clip.getEncoding(), m_lengthBytes, spot.offset, spot.size);
}

// What the pictures themselves say counts; where they say nothing, the tables' word stands.
void MovLookup::findAnchor(const MediaPlayReq& req, MediaSampleDesc& desc) const {
    if (!isVideo() || !MovPictureTypes::tells(m_clip.getEncoding())) return;
    const SampleCodingType type = typeOf(req, req.m_sample);
    if (type != SampleCodingType::Unknown) desc.m_info.setEncoding(type);
    if (type != SampleCodingType::B) return;
    for (unsigned back = 1; back <= s_anchorReach && back <= req.m_sample; ++back) {
        const SampleCodingType before = typeOf(req, req.m_sample - back);
        if (before == SampleCodingType::B) continue;
        if (before != SampleCodingType::Unknown) desc.m_anchor = req.m_sample - back;
        return;
    }
}

OpResult MovLookup::update(const MediaOffsetSummary&) { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

bool MovLookup::getSampleTime(unsigned long long sample, MovSampleTime& time) const {
    std::int32_t shift = 0;
    if (sample >= m_numSamples || !m_samples.timeOf(m_base + sample, time.decoded)) return false;
    if (!m_samples.shiftOf(m_base + sample, shift)) return false;
    return !__builtin_add_overflow(time.decoded, shift, &time.shown);
}
