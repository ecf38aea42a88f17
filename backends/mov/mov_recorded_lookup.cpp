#include "backends/mov/mov_recorded_lookup.h"

#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"

namespace {

constexpr std::int64_t s_mostDrift = 6;  // samples that a block may lie off the end and still be moved onto it
constexpr std::uint64_t s_mostBytes = 0x7FFFFFFF;  // of one block

OpResult outOfRange(const FormatStr& text) { return MO_WARNING(MediaCode::OutOfRange, text.get()); }

}  // namespace

MovRecordedLookup::MovRecordedLookup(const MediaClipDesc& clip, std::shared_ptr<MovRunIndex> index,
                                     std::shared_ptr<MovMediaFile> file)
    : MediaOffsetLookup(MediaOffsetSummary(index->getFixedSize(), 0, 0, 0)),
      m_clip(clip),
      m_index(std::move(index)),
      m_file(std::move(file)) {}

unsigned long long MovRecordedLookup::getBaseOffset() const {
    return m_index->getSamples() != 0 ? m_index->find(0, 1).m_offset : m_file->getEnd();
}

void MovRecordedLookup::describe(std::uint64_t sample, std::uint32_t count, MediaSampleDesc& desc) const {
    const MovRunIndex::Stretch first = m_index->find(sample, count);
    SampleInfo info = m_index->getInfo(sample);
    info.setSize(static_cast<std::uint32_t>(first.m_bytes));
    desc.set(static_cast<unsigned>(first.m_samples), sample, first.m_offset, info, 0, false);
    if (first.m_samples >= count || sample + first.m_samples >= m_index->getSamples()) return;
    const MovRunIndex::Stretch second = m_index->find(sample + first.m_samples, count - first.m_samples);
    desc.m_count += static_cast<unsigned>(second.m_samples);
    desc.m_info.setSize(static_cast<std::uint32_t>(first.m_bytes + second.m_bytes));
    if (second.m_offset == first.m_offset + first.m_bytes) {
        desc.m_chunks[0].m_size = desc.m_info.getSize();
        return;
    }
    desc.m_numChunks = 2;
    desc.m_chunks[1] = MediaSampleDesc::Chunk(second.m_offset, static_cast<std::uint32_t>(second.m_bytes));
}

bool MovRecordedLookup::getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    result = OpResult(OpResult::Ok);
    if (req.m_sample >= m_index->getSamples()) {
        desc.set(req.m_count, req.m_sample, m_file->getEnd(), m_index->getFixedSize(), 0, false);
        return false;
    }
    if (req.m_count == 0) return false;
    describe(req.m_sample, req.m_count, desc);
    return mediaObjDbg.on(MediaDbg::IgnoreMissingMedia) || m_file->m_essence->isWritten(desc);
}

bool MovRecordedLookup::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    result = OpResult(OpResult::Ok);
    if (refuse(req, result)) return false;
    const std::uint64_t samples = m_index->getSamples();
    const std::uint64_t behind = req.m_sample + req.m_count;
    const auto gap = static_cast<std::int64_t>(req.m_sample - samples);
    const bool isNear = gap >= -s_mostDrift && gap <= s_mostDrift && behind > samples;
    if (gap == 0 || (isNear && req.m_count != 1)) return append(req, behind - samples, gap, desc, result);
    if (behind <= samples) return rewrite(req, desc, result);
    const FormatStr text("mov: sample %llu can't follow sample %llu", req.m_sample,
                         static_cast<unsigned long long>(samples));
    result = MO_WARNING(MediaCode::OperationUnsupported, text.get());
    return false;
}

bool MovRecordedLookup::refuse(const MediaRecordReq& req, OpResult& result) const {
    const std::uint32_t fixed = m_index->getFixedSize(), size = req.m_info.getSize();
    constexpr unsigned long long most = 1ull << 62;
    if (fixed == 0 && (req.m_count != 1 || size == 0)) {
        result =
            outOfRange(FormatStr("mov: %u samples of %u bytes are entered at once, one can be", req.m_count, size));
        return true;
    }
    const bool isOdd = req.m_count == 0 || (fixed != 0 && req.m_count == 1 && size != fixed);
    if (isOdd || size > s_mostBytes || std::uint64_t{fixed} * req.m_count > s_mostBytes || req.m_sample > most) {
        result = outOfRange(FormatStr("mov: %u samples of %u bytes, one has %u bytes", req.m_count, size, fixed));
        return true;
    }
    return false;
}

bool MovRecordedLookup::rewrite(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) const {
    MediaSampleDesc old;
    describe(req.m_sample, req.m_count, old);
    const bool isSameSize = m_index->getFixedSize() != 0 || old.m_info.getSize() == req.m_info.getSize();
    if (old.m_count != req.m_count || old.m_numChunks != 1 || !isSameSize) {
        result = outOfRange(FormatStr("mov: samples from %llu on can't be written again in one piece of %u bytes",
                                      req.m_sample, req.m_info.getSize()));
        return false;
    }
    const std::uint64_t offset = old.m_chunks[0].m_offset;
    desc.set(req.m_count, req.m_sample, offset, old.m_info,
             static_cast<long long>(req.m_sample - m_index->getSamples()), false);
    return true;
}

bool MovRecordedLookup::append(const MediaRecordReq& req, std::uint64_t count, std::int64_t gap, MediaSampleDesc& desc,
                               OpResult& result) {
    const std::uint32_t fixed = m_index->getFixedSize();
    const std::uint64_t bytes = fixed != 0 ? fixed * count : req.m_info.getSize();
    const std::uint64_t endBefore = m_file->getEnd();
    std::uint64_t offset = 0;
    if (!place(req, bytes, offset, result)) return false;
    if (!m_index->add(offset, count, req.m_info)) {
        result = MO_ERROR(MediaCode::InternalError, "mov: no memory for the index");
        return false;
    }
    SampleInfo info = req.m_info;
    info.setSize(static_cast<std::uint32_t>(bytes));
    desc.set(req.m_count, req.m_sample, offset, info, gap, false);
    // What lies between samples that others have put counts as theirs; the movie's own file has no holes.
    if (req.m_hasOffset) m_file->m_essence->noteAdded(req, desc, m_file->isOwn() ? offset : endBefore);
    m_numSamples = m_index->getSamples();
    m_endOffset = offset + bytes;
    return true;
}

bool MovRecordedLookup::place(const MediaRecordReq& req, std::uint64_t bytes, std::uint64_t& offset,
                              OpResult& result) const {
    if (req.m_hasOffset && !m_file->isOwn()) {
        offset = req.m_offset;
        m_file->extend(offset + bytes);
        return true;
    }
    if (req.m_hasOffset && req.m_offset != m_file->getEnd()) {
        const FormatStr text("mov: req off=%llu calc off=%llu", req.m_offset,
                             static_cast<unsigned long long>(m_file->getEnd()));
        result = MO_ERROR(MediaCode::InternalError, text.get());
        return false;
    }
    offset = m_file->reserve(bytes);
    return true;
}

OpResult MovRecordedLookup::addEmptyEdit(unsigned long long) {
    return MO_WARNING(MediaCode::OperationUnsupported, "mov: a track that is recorded has no holes");
}
