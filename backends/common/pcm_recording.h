#pragma once

#include <memory>

#include "backends/common/pcm_movie.h"
#include "backends/common/recorded_movie.h"
#include "shared/include/index/media_edit_desc.h"

// What a format says of the files of plain samples that are recorded in it. Constant and for ever.
struct PcmWriter {
    static constexpr unsigned s_mostHeader = 128;  // bytes

    const char* name;  // begins the sentences of refusals
    MediaFileType fileType;
    std::uint64_t largestEnd;  // where the essence must end at the latest, bytes from the file's start
    // Fills in what a recording of these parameters is, without a sample yet. Fails: warning 8 with a sentence.
    OpResult (*choose)(const MediaClipParam& param, PcmFormat& format);
    // Makes the header of a file of `format.samples`. Answers its size, which is `format.dataOffset`.
    // Requires: room for `s_mostHeader` bytes.
    unsigned (*makeHeader)(const PcmFormat& format, std::uint8_t* bytes);

    // What all such formats ask of parameters: sound of 1 to 32 channels of whole bytes. Fails: warning 8.
    OpResult chooseCommon(const MediaClipParam& param, PcmFormat& format) const;
    // Fills in parameters of such a recording. Fails: false, with `param` as it was, for what can't be recorded.
    bool initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaEndian endian, unsigned sampleRate,
                   unsigned channels, unsigned bits) const;
};

// Writes the header behind the essence: with the first samples, from then on before a second of sound isn't told yet,
// and at a flush or the end. It never tells of a sample that isn't in the file before it.
class PcmHeaderKeeper final : public Recorder {
public:
    PcmHeaderKeeper(const PcmWriter& writer, AutoRefPtr<BasicFileIO> file)
        : Recorder(writer.name, file), m_writer(writer) {}

    // Writes the header of an empty file. Gives: the record of what is written. Fails: null and warning 12.
    std::shared_ptr<RecordedEssence> start(const PcmFormat& format, OpResult& result) MO_EXCLUDES(m_mutex);

private:
    static constexpr std::uint64_t s_unknown = ~std::uint64_t{0};

    OpResult keepUp(std::uint64_t end, Moment moment) override MO_REQUIRES(m_mutex);
    bool isDue(std::uint64_t samples, Moment moment) const MO_REQUIRES(m_mutex);
    OpResult putHeader(std::uint64_t samples) MO_REQUIRES(m_mutex);
    OpResult pad(std::uint64_t end) MO_REQUIRES(m_mutex);

    const PcmWriter& m_writer;
    PcmFormat m_format MO_GUARDED_BY(m_mutex);
    std::uint64_t m_told MO_GUARDED_BY(m_mutex) = 0;      // samples by the header, or unknown once a header was lost
    std::uint64_t m_paddedAt MO_GUARDED_BY(m_mutex) = 0;  // the byte that makes the essence even, once it is there
};

// The clip of an audio file that is being recorded.
class RecordedPcmClip final : public PcmClip {
public:
    RecordedPcmClip(PcmTrack& track, const PcmWriter& writer, const PcmFormat& format, MediaIdRec* file,
                    std::shared_ptr<RecordedEssence> essence);

    unsigned getEditCount() const override { return 1; }
    MediaEditDesc* getEdit(unsigned index) override { return index == 0 ? &m_edit : nullptr; }
    const MediaEditDesc* getEdit(unsigned index) const override { return index == 0 ? &m_edit : nullptr; }

private:
    MediaEditDesc m_edit;
};

// An audio file that is being recorded: the movie of `openWriter`. It describes itself as the file will when it is
// read.
class PcmRecording final : public RecordedMovie<PcmMovie, PcmHeaderKeeper> {
public:
    // What a registered creator does. Fails: null; 7 or 5 for the file, 17 for essence outside it.
    static MediaObj* create(const PcmWriter& writer, const char* path, OpResult& result, MediaContainment containment,
                            BasicIOTypes::SizeAdvice advice);

    using MediaObj::createTrack;
    // Makes the one track. Fails: null; warning 5 unless writable, 17 when there is one, else the format's refusal.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    // Fails: null; warning 5, 8 for another kind than the track's, 12 when the header can't be written.
    PcmClip* makeClip(PcmTrack& track, const MediaClipParam& param, OpResult& result) override;

private:
    PcmRecording(const PcmWriter& writer, AutoRefPtr<BasicFileIO> file);

    const PcmWriter& m_writer;
    PcmFormat m_format;  // of the track, once there is one
};
