#include "tools/track_samples.h"

#include <algorithm>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

// Samples that differ in size are asked for one by one: each lies where it likes. So are those of DV, whose index takes
// any other count for the sound of one frame.
unsigned long long samplesAtOnce(const MediaClipDesc& clip, unsigned bytes) {
    const MediaOffsetLookup* lookup = clip.getLookup();
    const unsigned size = lookup != nullptr ? lookup->getFixedSize() : 0;
    return size == 0 || clip.getEncoding() == MediaEncodingType::Dv ? 1 : std::max(1u, bytes / size);
}

}  // namespace

TrackSamples::TrackSamples(const MediaTrackDesc& track) : m_path(track.getObj().getPath(nullptr)) {
    for (unsigned i = 0; i < track.getClipCount(); ++i) {
        const MediaClipDesc& clip = *track.getClip(i);
        if (clip.getMediaId() == nullptr) continue;  // a gap has a length and no samples
        const unsigned edits = clip.getEditCount();
        for (unsigned k = 0; k < edits; ++k)
            add(clip, clip.getEdit(k)->getIn(), clip.getEdit(k)->getLength());
        if (edits == 0) add(clip, 0, clip.getLength());
    }
}

void TrackSamples::add(const MediaClipDesc& clip, unsigned long long first, unsigned long long count) {
    if (count == 0) return;
    m_spans.push_back(Span{&clip, m_count, first, count});
    m_count += count;
}

const TrackSamples::Span& TrackSamples::spanAt(unsigned long long at) const {
    const auto behind = std::upper_bound(m_spans.begin(), m_spans.end(), at,
                                         [](unsigned long long place, const Span& span) { return place < span.m_at; });
    return *(behind - 1);
}

unsigned long long TrackSamples::bytesOf(unsigned long long, unsigned long long count) const {
    const MediaOffsetLookup* lookup = m_spans.empty() ? nullptr : m_spans.front().m_clip->getLookup();
    return lookup != nullptr ? count * lookup->getFixedSize() : 0;
}

bool TrackSamples::locate(unsigned long long at, unsigned long long most, unsigned bytes, Stretch& stretch,
                          std::optional<Failure>& failure) const {
    const Span& span = spanAt(at);
    const unsigned long long count =
        std::min({most, samplesAtOnce(*span.m_clip, bytes), span.m_at + span.m_count - at});
    OpResult result;
    const MediaPlayReq request(span.m_first + (at - span.m_at), static_cast<unsigned>(count));
    if (span.m_clip->getMediaOffset(request, stretch.m_where, result) && stretch.m_where.m_count > 0) {
        stretch.m_units = stretch.m_where.m_count;
        return true;
    }
    if (!result) {
        failure = Failure::from(result, m_path);
    } else {
        failure = Failure::make(ExitCode::IoError, MediaCode::ReadError, m_path,
                                "the index ends before sample " + std::to_string(at));
    }
    return false;
}
