#include "services/system/format_str.h"
#include "shared/include/index/media_sample_desc.h"

namespace {

void formatOwner(FormatStr& text, const MediaSampleInMovie& sample, Brevity brevity) {
    const bool isLong = brevity == Brevity::Long;
    if (isLong) text.format("agnt=%p,", static_cast<const void*>(sample.m_agent.client()));
    text.format("mid=%p,trk%u,clp%u,", static_cast<const void*>(sample.m_mediaId), unsigned{sample.m_trackIndex},
                unsigned{sample.m_clipIndex});
    if (isLong) text.format("obj=0x%llx%s,", sample.m_pathId.getId(), sample.m_closeOther ? ",closeOther" : "");
}

// The list of several chunks isn't closed by a brace, and each chunk has a comma behind it: readers of logs know it so.
void formatChunks(FormatStr& text, const MediaSampleDesc& sample) {
    const unsigned count = sample.m_numChunks;
    if (count == 0) return;
    if (count == 1) {
        text.format(",%ub@%lld", sample.m_chunks[0].m_size, static_cast<long long>(sample.m_chunks[0].m_offset));
        return;
    }
    text.format(",c[%u]={", count);
    for (unsigned i = 0; i < count && i < MediaSampleDesc::s_maxChunks; ++i) {
        if (i > 0) text.cat(",");
        text.format("%ub@%lld,", sample.m_chunks[i].m_size, static_cast<long long>(sample.m_chunks[i].m_offset));
    }
}

void formatTimecode(FormatStr& text, const MediaSampleDesc& sample) {
    if (sample.m_timecode.isValid()) {
        text.format(",%s", sample.m_timecode.toString().get());
    } else if (sample.m_tcAvailable) {
        text.cat(",tc avail");
    }
}

}  // namespace

AutoPtr<char> MediaSampleInMovie::toString(Brevity brevity) const {
    FormatStr text(128);
    formatOwner(text, *this, brevity);
    text.format("%us@%lld", m_count, static_cast<long long>(m_sample));
    formatChunks(text, *this);
    formatTimecode(text, *this);
    return text;
}
