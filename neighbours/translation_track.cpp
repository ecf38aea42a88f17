#include "neighbours/translation_track.h"

#include "neighbours/translation_media_obj.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"

namespace {

MediaOffsetSummary summaryOf(const MediaClipDesc& clip) {
    const MediaOffsetLookup* lookup = clip.getLookup();
    return lookup != nullptr ? lookup->getSummary() : MediaOffsetSummary();
}

// A rate is divided by wherever lengths are counted.
bool hasRate(std::uint32_t sampleRate, std::uint32_t ticksPerSample) { return sampleRate != 0 && ticksPerSample != 0; }

MediaClipDesc* refuse(int code, const char* message, OpResult& result) {
    result = MO_WARNING(code, message);
    return nullptr;
}

}  // namespace

bool TranslationLookup::getMediaOffset(const MediaPlayReq&, MediaSampleDesc&, OpResult& result) const {
    result = MO_WARNING(MediaCode::NoFileHandle, "a translation holds no essence");
    return false;
}

bool TranslationLookup::addSamples(const MediaRecordReq&, MediaSampleDesc&, OpResult& result) {
    result = MO_WARNING(MediaCode::OperationUnsupported, "a translation takes no essence");
    return false;
}

OpResult TranslationLookup::addEmptyEdit(unsigned long long) {
    return MO_WARNING(MediaCode::OperationUnsupported, "a translation takes no essence");
}

OpResult TranslationLookup::update(const MediaOffsetSummary& summary) {
    set(summary);
    return OpResult::Ok;
}

TranslationClip::TranslationClip(TranslationTrack& track, unsigned index)
    : MediaClipDesc(MediaContainment::Embedded),
      m_track(track),
      m_index(index),
      m_lookup(new TranslationLookup(MediaOffsetSummary(), *this)) {}

TranslationClip::TranslationClip(TranslationTrack& track, unsigned index, const MediaClipDesc& source)
    : MediaClipDesc(source), m_track(track), m_index(index), m_lookup(new TranslationLookup(summaryOf(source), *this)) {
    m_coding = source.getSequenceCoding();  // a back-end may work it out instead of keeping it
    m_hasExtra = source.getExtraParam(m_extra, 2);
    for (unsigned i = 0; i < source.getEditCount(); ++i)
        m_edits.push_back(*source.getEdit(i));
}

TranslationClip::~TranslationClip() { m_lookup->release(); }

void TranslationClip::setExtraParam(const std::uint32_t (&extra)[2]) {
    m_extra[0] = extra[0];
    m_extra[1] = extra[1];
    m_hasExtra = true;
}

bool TranslationClip::getExtraParam(unsigned* extra, unsigned count) const {
    if (!m_hasExtra) return false;
    for (unsigned i = 0; i < count && i < 2; ++i)
        extra[i] = m_extra[i];
    return true;
}

MediaTrackDesc& TranslationClip::getTrack() { return m_track; }

const MediaTrackDesc& TranslationClip::getTrack() const { return m_track; }

TranslationTrack::TranslationTrack(TranslationMediaObj& movie, unsigned index) : m_movie(movie), m_index(index) {}

MediaObj& TranslationTrack::getObj() { return m_movie; }

const MediaObj& TranslationTrack::getObj() const { return m_movie; }

MediaClipDesc* TranslationTrack::append(std::unique_ptr<TranslationClip> clip, OpResult& result) {
    const FixedPoint<16> ticks = clip->convertTo(m_movie.getMovieDesc()->getTimeBase());
    m_length = m_length + ticks.round().uint64Value();
    m_movie.getMovieDesc()->setLength(*this);  // also of a movie that says it is read-only: it is being built
    m_clips.push_back(std::move(clip));
    result = OpResult(OpResult::Ok);
    return m_clips.back().get();
}

MediaClipDesc* TranslationTrack::createClip(const MediaClipParam& param, OpResult& result) {
    if (!hasRate(param.m_sampleRate, param.m_ticksPerSample))
        return refuse(MediaCode::UnsupportedMediaType, "a clip without a sample rate", result);
    auto clip = std::make_unique<TranslationClip>(*this, getClipCount());
    OpResult described = clip->setParam(param);
    if (!described) {
        result = described;
        return nullptr;
    }
    clip->setExtraParam(param.m_extraParam);
    return append(std::move(clip), result);
}

MediaClipDesc* TranslationTrack::copyClip(const MediaClipDesc& source, OpResult& result) {
    if (!hasRate(source.getSampleRate(), source.getTicksPerSample()))
        return refuse(MediaCode::UnsupportedMediaType, "a clip without a sample rate", result);
    if (source.getType() != m_type) return refuse(MediaCode::InternalError, nullptr, result);
    return append(std::make_unique<TranslationClip>(*this, getClipCount(), source), result);
}
