#pragma once

#include <memory>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"

class TranslationMediaObj;
class TranslationTrack;

// The index of a clip without essence: it says how samples would lie, and finds none.
class TranslationLookup final : public MediaOffsetLookup {
public:
    TranslationLookup(const MediaOffsetSummary& summary, const MediaClipDesc& clip)
        : MediaOffsetLookup(summary), m_clip(clip) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override { return m_baseOffset; }
    std::uint32_t getFixedSize() const override { return m_sampleSize; }
    // Fails: false and warning 16, always; `desc` is left alone.
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    // Fails: false and warning 17, always.
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override;
    // Fails: warning 17, always.
    OpResult addEmptyEdit(unsigned long long samples) override;
    OpResult update(const MediaOffsetSummary& summary) override;

private:
    const MediaClipDesc& m_clip;  // borrowed: the clip outlives its lookup
};

// What a clip is like, its edits included, without the essence.
class TranslationClip final : public MediaClipDesc {
public:
    // An empty one, to be described by `setParam`.
    TranslationClip(TranslationTrack& track, unsigned index);
    // The description, length and edits of another clip.
    TranslationClip(TranslationTrack& track, unsigned index, const MediaClipDesc& source);
    ~TranslationClip() override;

    void setExtraParam(const std::uint32_t (&extra)[2]);

    bool getExtraParam(unsigned* extra, unsigned count) const override;
    unsigned getEditCount() const override { return static_cast<unsigned>(m_edits.size()); }
    MediaEditDesc* getEdit(unsigned index) override { return index < getEditCount() ? &m_edits[index] : nullptr; }
    const MediaEditDesc* getEdit(unsigned index) const override {
        return index < getEditCount() ? &m_edits[index] : nullptr;
    }
    unsigned getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override;
    const MediaTrackDesc& getTrack() const override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

private:
    TranslationTrack& m_track;  // borrowed: the owner
    const unsigned m_index;
    std::vector<MediaEditDesc> m_edits;
    std::uint32_t m_extra[2] = {0, 0};  // discriminators of the kind of essence
    bool m_hasExtra = false;
    TranslationLookup* m_lookup;  // one reference
};

// A track of a translation. **Owns:** its clips. **Units:** its length grows by each clip, in ticks of the movie.
class TranslationTrack final : public MediaTrackDesc {
public:
    TranslationTrack(TranslationMediaObj& movie, unsigned index);

    using MediaTrackDesc::createClip;
    // Fails: null and warning 1 for another type or rate than the track's, warning 8 for a clip without a sample rate.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    // Copies what the clip is like; its essence stays where it is. Fails: null and warning 1 for another type than the
    // track's, warning 8 for a clip without a sample rate.
    MediaClipDesc* copyClip(const MediaClipDesc& source, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned index) override { return index < getClipCount() ? m_clips[index].get() : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override {
        return index < getClipCount() ? m_clips[index].get() : nullptr;
    }
    unsigned getTrackIndex() const override { return m_index; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }
    const MediaPropertyList& getProperties() const override { return m_properties; }
    MediaPropertyList& getPropertiesForUpd() override { return m_properties; }

private:
    MediaClipDesc* append(std::unique_ptr<TranslationClip> clip, OpResult& result);

    TranslationMediaObj& m_movie;  // borrowed: the owner
    const unsigned m_index;
    MediaParams m_properties;
    std::vector<std::unique_ptr<TranslationClip>> m_clips;
};
