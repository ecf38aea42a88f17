#include "backends/common/recorded_lookup.h"

#include "services/system/format_str.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"

bool RecordedLookup::getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    result = OpResult(OpResult::Ok);
    if (m_riding == Riding::Yes)
        return FixedMediaLookup::getMediaOffset(req, desc, result) && m_essence->isWritten(desc);
    if (req.m_sample >= m_numSamples) {
        desc.set(req.m_count, req.m_sample, m_baseOffset + req.m_sample * m_sampleSize, m_sampleSize, 0, false);
        return false;
    }
    return FixedMediaLookup::getMediaOffset(req, desc, result) && m_essence->isAvailable(desc);
}

bool RecordedLookup::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    if (refuse(req, result)) return false;
    const unsigned long long endBefore = m_endOffset;
    if (!FixedMediaLookup::addSamples(req, desc, result)) return false;
    m_essence->noteAdded(req, desc, endBefore);
    return true;
}

bool RecordedLookup::refuse(const MediaRecordReq& req, OpResult& result) const {
    const unsigned long long samples = (m_largestEnd - m_baseOffset) / m_sampleSize;
    if (req.m_count == 0 || (req.m_count == 1 && req.m_info.getSize() != m_sampleSize)) {
        const FormatStr text("%s: %u samples of %u bytes, one has %u bytes", m_name, req.m_count, req.m_info.getSize(),
                             m_sampleSize);
        result = MO_WARNING(MediaCode::OutOfRange, text.get());
        return true;
    }
    if (req.m_count > samples || req.m_sample > samples - req.m_count) {
        const FormatStr text("%s: the file is full with %llu samples", m_name, samples);
        result = MO_WARNING(MediaCode::OutOfRange, text.get());
        return true;
    }
    return false;
}

OpResult RecordedLookup::addEmptyEdit(unsigned long long) {
    const FormatStr text("%s: the file can't tell of a hole", m_name);
    return MO_WARNING(MediaCode::OperationUnsupported, text.get());
}
