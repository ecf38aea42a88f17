#include "shared/include/index/fixed_media_lookup.h"

#include "services/file/basic_file_io.h"
#include "services/system/format_str.h"
#include "services/system/msg_clamp.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

using U64 = unsigned long long;

constexpr U64 s_fewestOfBlock = 3;    // a block of which fewer samples are left is refused
constexpr long long s_mostDrift = 6;  // samples that a block may lie off the file's end and still be moved onto it

// Bytes of a block. The product wraps at 32 bits, which is meant: places in every index follow this arithmetic.
U64 blockBytes(std::uint32_t size, std::uint32_t count) { return static_cast<std::uint32_t>(U64{size} * count); }

// Place of a sample. False when it lies beyond what 64 bits can count: no file reaches there, wherever the sum wraps
// to.
bool placeOfSample(U64 base, std::uint32_t size, U64 sample, U64& offset) {
    U64 bytes = 0;
    const bool fits = !__builtin_mul_overflow(sample, size, &bytes);
    return !__builtin_add_overflow(base, bytes, &offset) && fits;
}

// Place of a whole DV frame that is asked for by its `count` samples: the nearest frame. False when the sample is
// beyond what the arithmetic can round. The last product wraps at 4 GiB, which is meant: places in every DV index
// follow this arithmetic.
bool placeOfDvFrame(U64 base, std::uint32_t size, U64 sample, std::uint32_t count, U64& offset) {
    long long thousandths = 0;
    const bool fits = !__builtin_mul_overflow(sample, 1000, &thousandths);
    const long long frame = (thousandths / static_cast<long long>(count) + 500) / 1000;
    offset = base + static_cast<std::uint32_t>(size * static_cast<U64>(frame));
    return fits;
}

// Whole samples in a file; none in one that is shorter than its own header.
U64 samplesInFile(U64 fileSize, U64 base, std::uint32_t size) {
    return size == 0 || fileSize < base ? 0 : (fileSize - base) / size;
}

// One sample, cut where the file ends: the last one may be short.
void describeSample(U64 sample, U64 offset, std::uint32_t size, U64 end, MediaSampleDesc& desc) {
    const U64 left = end - offset;
    desc.set(1, sample, offset, left < size ? static_cast<std::uint32_t>(left) : size, 0, false);
}

// A block of samples, cut where the file ends. A block at the very end of a growing file is refused rather than served
// with one or two samples.
bool describeBlock(U64 sample, std::uint32_t count, U64 offset, std::uint32_t size, U64 end, MediaSampleDesc& desc) {
    U64 bytes = blockBytes(size, count);
    if (bytes > end - offset) {
        const U64 left = (end - offset) / size;
        if (left < s_fewestOfBlock) return false;
        count = static_cast<std::uint32_t>(left);
        bytes = size * left;
    }
    desc.set(count, sample, offset, static_cast<std::uint32_t>(bytes), 0, false);
    return true;
}

// A block to be written. Up to six samples of drift between its computed start and the file's end are absorbed: it
// starts at that end and its own end stays, so that the file has neither hole nor overlap. A larger distance is left
// alone.
void placeBlock(const MediaRecordReq& req, U64 offset, std::uint32_t size, U64 fileEnd, MediaSampleDesc& desc) {
    const U64 blockEnd = offset + blockBytes(size, req.m_count);
    long long gap = 0;  // wraps for positions that no file has
    static_cast<void>(__builtin_sub_overflow(offset, fileEnd, &gap));
    const long long mostDrift = s_mostDrift * size;
    if (gap >= -mostDrift && gap <= mostDrift) offset = fileEnd;
    // A block that the move has pushed past its own end has no bytes left to write.
    const U64 bytes = blockEnd > offset ? blockEnd - offset : 0;
    desc.set(req.m_count, req.m_sample, offset, static_cast<std::uint32_t>(bytes), size == 0 ? 0 : gap / size, false);
}

void reportRewrite(const MediaRecordReq& req, const MediaSampleDesc& desc) {
    static MsgClamp gapClamp;
    if (desc.m_gap < 0) {
        gapClamp.error("%u samples @%llu rewritten! (end @%llu)\n", req.m_count, req.m_sample,
                       req.m_sample - static_cast<U64>(desc.m_gap));
    }
}

OpResult offsetMismatch(U64 requested, U64 computed) {
    const FormatStr message("FixedMediaLookup: req off=%lld calc off=%lld", static_cast<long long>(requested),
                            static_cast<long long>(computed));
    return MO_ERROR(MediaCode::InternalError, message.get());
}

}  // namespace

FixedMediaLookup::FixedMediaLookup(const MediaOffsetSummary& summary) : MediaOffsetLookup(summary) {}

unsigned long long FixedMediaLookup::getBaseOffset() const { return m_baseOffset; }

std::uint32_t FixedMediaLookup::getFixedSize() const { return m_sampleSize; }

unsigned long long FixedMediaLookup::getNumSamples() const { return m_numSamples; }

bool FixedMediaLookup::getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    result = OpResult::Ok;
    const U64 sample = req.m_sample;
    const std::uint32_t count = req.m_count;
    const std::uint32_t size = m_sampleSize;
    const bool dvFrame = count != 1 && getClip().getEncoding() == MediaEncodingType::Dv;
    if (dvFrame && count == 0) return false;  // no samples make no frame

    U64 offset = 0;
    const bool countable = dvFrame ? placeOfDvFrame(m_baseOffset, size, sample, count, offset)
                                   : placeOfSample(m_baseOffset, size, sample, offset);
    U64 end = m_endOffset;
    if (!countable || offset >= end) {
        if (!followFile(result)) return false;
        end = m_endOffset;
        if (!countable || sample >= m_numSamples || offset >= end) {
            desc.set(count, sample, offset, size, 0, false);
            return false;
        }
    }
    if (dvFrame) {
        desc.set(count, sample, offset, size, 0, false);
        return true;
    }
    if (count != 1) return describeBlock(sample, count, offset, size, end, desc);
    describeSample(sample, offset, size, end, desc);
    return true;
}

bool FixedMediaLookup::followFile(OpResult& result) const {
    const MediaClipDesc& clip = getClip();
    const AutoRefPtr<BasicFileIO> file =
        clip.getObj().open(clip.getMediaId(), MediaAgent(), MediaObj::ReadMode::ReadOnly, result);
    if (!file) return false;
    const U64 samples = samplesInFile(file->getLength(), m_baseOffset, m_sampleSize);
    // The summary moves under a const lookup by design: it follows what the file says, and its numbers are relaxed.
    const_cast<FixedMediaLookup*>(this)->updateNumSamples(samples).discard();
    return true;
}

bool FixedMediaLookup::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    result = OpResult::Ok;
    const U64 offset = m_baseOffset + m_sampleSize * req.m_sample;
    if (req.m_count == 1) {
        desc.set(1, req.m_sample, offset, req.m_info.getSize(), 0, false);
    } else {
        placeBlock(req, offset, m_sampleSize, m_endOffset, desc);
    }
    reportRewrite(req, desc);

    const U64 placed = desc.m_chunks[0].m_offset;
    if (req.m_hasOffset && req.m_offset != placed) {
        result = offsetMismatch(req.m_offset, placed);
        return false;
    }
    const U64 behind = req.m_sample + req.m_count;
    if (behind > m_numSamples) {
        m_numSamples = behind;
        m_endOffset = placed + desc.m_info.getSize();
    }
    return true;
}

OpResult FixedMediaLookup::update(const MediaOffsetSummary& summary) {
    set(summary);
    return OpResult::Ok;
}

OpResult FixedMediaLookup::updateNumSamples(unsigned long long numSamples) {
    m_numSamples = numSamples;
    m_endOffset = m_baseOffset + m_sampleSize * numSamples;
    return OpResult::Ok;
}
