#include "mediautil/io/chunk_handler.h"
#include "mediautil/io/media_file_list.h"
#include "mediautil/io/sample_check.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"

// The list's read side: it checks the request, picks the road and reports failures. No lock is held.

AutoPtr<char> MediaReadReq::toString() const {
    FormatStr text(160u);
    text.format("tag=%p", m_tag);
    if (isExternalReq()) text.cat(",extReq");
    if (isInternalReq()) text.cat(",intReq");
    if (isRedirectedReq()) text.cat(",intcpt");
    if (m_frag) text.cat(",frag");
    if (m_cacheL2) text.cat(",cL2R");
    text.format(",%s", m_sample.toString(Brevity::Short).get());
    return text;
}

OpResult MediaFileList::read(const MediaSampleInMovie& sample, MediaIoBuf& buf, AutoRefPtr<BasicFileIO> fp) {
    // More chunks than a sample has places for are nobody's sample.
    if (fp.get() == nullptr || sample.m_numChunks > MediaSampleDesc::s_maxChunks ||
        !buf.resize(sample.m_info.getSize(), MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign)) {
        return MO_WARNING(MediaCode::InternalError, nullptr);
    }
    unsigned char* target = buf.getMem();
    unsigned room = buf.size();
    for (unsigned i = 0; i < sample.m_numChunks; ++i) {
        const MediaSampleDesc::Chunk& chunk = sample.m_chunks[i];
        // Chunks that add up to more than the sample would run past the buffer.
        if (chunk.m_size > room) return MO_WARNING(MediaCode::InternalError, "chunks larger than their sample");
        const int count = fp->readAt(chunk.m_offset, target, chunk.m_size);
        if (count < static_cast<int>(chunk.m_size)) {
            FormatStr text("MediaFileList::read(%s,c[%d]=%db@%lld)-->%db, fileSz=%lld", fp->getPath(),
                           static_cast<int>(i), static_cast<int>(chunk.m_size), static_cast<long long>(chunk.m_offset),
                           count, static_cast<long long>(fp->getLength()));
            m_readClamp.error("%s\n", text.get());
            return MO_WARNING(MediaCode::ReadError, text.get());
        }
        // After each chunk, and so half-filled the first time when there are two, which is meant.
        SampleCheck::run(sample, false, buf);
        target += count;
        room -= static_cast<unsigned>(count);
    }
    return OpResult(OpResult::Ok);
}

// A read that expects its data in the cache and doesn't find them there is told; nothing else follows from it.
void MediaFileList::noticeMiss(const MediaReadReq& req, BasicFileIO& fp, bool recording) {
    if (!req.isInternalReq() || !req.m_cacheL2) return;
    if (req.m_frag && !mediaObjDbg.on(MediaDbg::MediaCache)) return;
    const MediaSampleDesc::Chunk& first = req.m_sample.m_chunks[0];
    if (fp.isCached(first.m_offset, first.m_size) || recording) return;
    m_missClamp.info("%s: media read cache miss: %s\n", fp.getPath(), req.toString().get());
}

OpResult MediaFileList::read(const MediaReadReq& req, AutoRefPtr<BasicFileIO> fp, bool recording) {
    const MediaSampleInMovie& sample = req.m_sample;
    const bool chunksMakeSense = sample.m_numChunks - 1 < MediaSampleDesc::s_maxChunks;
    if (fp.get() == nullptr || !chunksMakeSense || !fp->validate()) {
        const char* handle = fp.get() == nullptr ? "null" : fp->validate() ? "valid" : "invalid";
        m_readClamp.error("MediaFileList::read(%db,%dchk) fails, srcfp %s\n", static_cast<int>(sample.m_info.getSize()),
                          static_cast<int>(sample.m_numChunks), handle);
        return MO_WARNING(MediaCode::InternalError, nullptr);
    }
    noticeMiss(req, *fp, recording);
    if (sample.m_numChunks == 1 && !SampleCheck::wanted()) {
        // The everyday road: the notification goes from the file straight to the caller's hook.
        const MediaSampleDesc::Chunk& chunk = sample.m_chunks[0];
        const BasicIOTypes::ReadReq direct(*req.m_cb, chunk.m_offset, chunk.m_size, req.m_allocId, req.m_tag,
                                           req.m_frag, req.m_cacheL2);
        if (!fp->readAsync(direct)) return MO_WARNING(MediaCode::ReadError, nullptr);
        return OpResult(OpResult::Ok);
    }
    ChunkHandler* handler = new ChunkHandler(req);
    if (handler == nullptr) {
        m_readClamp.error("MediaFileList::read(%db,%dchk); handler=0\n", static_cast<int>(sample.m_info.getSize()),
                          static_cast<int>(sample.m_numChunks));
        return MO_WARNING(MediaCode::InternalError, nullptr);
    }
    if (!handler->read(fp.get())) return MO_WARNING(MediaCode::ReadError, nullptr);
    return OpResult(OpResult::Ok);
}
