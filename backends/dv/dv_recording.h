#pragma once

#include <memory>

#include "backends/common/recorded_lookup.h"
#include "backends/common/recorded_movie.h"
#include "backends/dv/dv_media_obj.h"
#include "shared/include/index/media_edit_desc.h"

// The index of frames that are being recorded, or of the sound in them, which is entered with its frame.
class RecordedDvLookup final : public DvIndex<RecordedLookup> {
public:
    RecordedDvLookup(const DvSystem& system, const MediaOffsetSummary& summary, const MediaClipDesc& clip,
                     std::shared_ptr<RecordedEssence> essence);

    // Fails: as `RecordedLookup`, and warning 17 for several frames at once and for sound without its frame.
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override;

private:
    bool addSound(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result);
};

// A clip of DV that is being recorded.
class RecordedDvClip final : public DvClip {
public:
    RecordedDvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file, std::shared_ptr<RecordedEssence> essence);

    unsigned getEditCount() const override { return 1; }
    MediaEditDesc* getEdit(unsigned index) override { return index == 0 ? &m_edit : nullptr; }
    const MediaEditDesc* getEdit(unsigned index) const override { return index == 0 ? &m_edit : nullptr; }

private:
    MediaEditDesc m_edit;
};

// A DV stream that is being recorded: nothing but frames, entered one by one on the video track. The audio track, if
// one is made, follows them: it describes the sound in the frames and is never added to by itself. What only the frames
// tell, their timecode above all, the movie learns when it is read again.
class DvRecording final : public RecordedMovie<DvMediaObj, Recorder> {
public:
    // What the registered creator does. Fails: as `Recorder::createFile`.
    static MediaObj* create(const char* path, OpResult& result, MediaContainment containment,
                            BasicIOTypes::SizeAdvice advice);

    using MediaObj::createTrack;
    // The video track first. Fails: null; warning 5 unless writable, 8 for what no system of DV carries, 17 for a
    // second track of a kind, for sound ahead of the frames' track and once there are frames.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    DvClip* makeClip(DvTrack& track, const MediaClipParam& param, OpResult& result) override;
    // Sound lasts as long as its frames: a conversion from its own samples would round.
    bool notifyLength(MediaTrackDesc& track) override;

private:
    explicit DvRecording(AutoRefPtr<BasicFileIO> file);

    OpResult choose(const MediaClipParam& param, DvFormat& format) const;
    OpResult chooseSound(const MediaClipParam& param, DvFormat& format) const;
    bool hasFrames() const;

    DvFormat m_format;  // of the tracks that there are; without a system until the first
    std::shared_ptr<RecordedEssence> m_essence;
};
