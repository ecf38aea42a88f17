#include "mediautil/io/media_file_list.h"
#include "mediautil/io/sample_check.h"
#include "services/buffer/obuf.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"

// The list's write side: it gets the write handle, checks what is to be written and reports failures. No lock is held
// but while the handle is got.

namespace {

// In 64 bits, so that two large chunks don't come to nothing.
unsigned long long chunkBytes(const MediaSampleInMovie& sample) {
    unsigned long long sum = 0;
    for (unsigned i = 0; i < sample.m_numChunks && i < MediaSampleDesc::s_maxChunks; ++i)
        sum += sample.m_chunks[i].m_size;
    return sum;
}

// Signed on purpose: a sample of 2 GiB or more sets no limit.
bool isTooLarge(const phantom_OBUF* obuf, unsigned sampleSize) {
    return static_cast<int>(sampleSize) >= 0 && static_cast<int>(obufSize(obuf)) > static_cast<int>(sampleSize);
}

}  // namespace

OpResult MediaFileList::write(const MediaSampleInMovie& sample, const MediaIoBuf& buf) {
    const unsigned long long bytes = chunkBytes(sample);
    if (bytes == 0) return OpResult(OpResult::Ok);
    OpResult result(OpResult::Ok);
    AutoRefPtr<BasicFileIO> fp = getFp(sample.m_mediaId, true, sample.m_agent, result);
    if (fp.get() == nullptr) {
        m_writeClamp.error("MO: no fp for write(%s,MediaIoBuf)\n", sample.toString(Brevity::Long).get());
        return result;
    }
    // Otherwise the write would run past the buffer's end.
    if (bytes > buf.size() || sample.m_numChunks > MediaSampleDesc::s_maxChunks) {
        return MO_WARNING(MediaCode::InternalError, "chunks larger than their buffer");
    }
    SampleCheck::run(sample, true, buf);
    const unsigned char* source = buf.getMem();
    for (unsigned i = 0; i < sample.m_numChunks; ++i) {
        const MediaSampleDesc::Chunk& chunk = sample.m_chunks[i];
        const int count = fp->writeAt(chunk.m_offset, source, chunk.m_size);
        if (count != static_cast<int>(chunk.m_size)) return MO_WARNING(MediaCode::WriteError, nullptr);
        source += chunk.m_size;
    }
    return OpResult(OpResult::Ok);
}

// Says what keeps an obuf from being written, if anything does, and frees it then.
bool MediaFileList::complain(const MediaSampleInMovie& sample, BasicFileIO* fp, phantom_OBUF* obuf) {
    const unsigned sampleSize = sample.m_info.getSize();
    const bool missing = obuf == nullptr && sampleSize != 0;
    if (fp != nullptr && !missing && !isTooLarge(obuf, sampleSize)) return false;
    FormatStr text(128u);
    if (fp == nullptr) {
        text.cat("MO: no fp");
    } else if (missing) {
        text.format("MO(%s): no obuf", fp->getPath());
    } else {
        text.format("MO(%s): obuf too large, expected %db,got %db", fp->getPath(), static_cast<int>(sampleSize),
                    static_cast<int>(obufSize(obuf)));
    }
    text.format(": write(%s,obuf=%p", sample.toString(Brevity::Long).get(), static_cast<void*>(obuf));
    if (obuf != nullptr) {
        text.format(",sz=%d,max=%u", static_cast<int>(obufSize(obuf)), sampleSize);
        obufFree(obuf);
    }
    text.cat(")\n");
    m_writeClamp.error("%s", text.get());
    return true;
}

OpResult MediaFileList::write(const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    if (chunkBytes(sample) == 0 && obufSize(obuf) == 0) {
        obufFree(obuf);
        return OpResult(OpResult::Ok);
    }
    OpResult result(OpResult::Ok);
    AutoRefPtr<BasicFileIO> fp = getFp(sample.m_mediaId, true, sample.m_agent, result);
    // The complaint says all that the result would.
    result.discard();
    if (complain(sample, fp.get(), obuf)) return MO_WARNING(MediaCode::InternalError, nullptr);
    SampleCheck::run(sample, true, obuf);
    // The chunks aren't walked, which is meant: an obuf goes to one place.
    if (!fp->writeAsync(sample.m_chunks[0].m_offset, obuf)) return MO_WARNING(MediaCode::WriteError, nullptr);
    return OpResult(OpResult::Ok);
}
