#pragma once

#include <cstdint>

#include "services/metadata/platform_records.h"
#include "shared/include/description/aspect_ratio.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/media_property.h"
#include "shared/include/index/media_offset_summary.h"
#include "support/auto_ptr.h"
#include "support/op_result.h"
#include "support/visibility.h"

class MediaClipDesc;
class MediaTrackDesc;

// What kind of essence a clip holds: a value record that a caller fills in to make a clip, and that names a kind of
// media for the whole process.
//
// A copy is a new description and loses the extra pair; an assignment is exact and keeps it. Both are meant: the
// entries of the id table are made by assignment.
//
// **Threads:** a value of one thread; the id table behind getParamId has its own mutex.
// **Owns:** its bag. **Units:** the rate is the pair m_sampleRate over m_ticksPerSample, never a float.
class MO_PUBLIC MediaClipParam {
public:
    // Number of a kind of media: from 1, dense, the same for the life of the process, never stored. 0 is none yet.
    using ParamId = std::uint32_t;

    MediaClipParam();

    // Short form for a video description; the sample rate stays 0.
    MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaVideoRate videoRate, unsigned int width,
                   unsigned int height, AspectRatio aspect);

    // A sample rate or ticks of 0 become 1, and that is reported as an internal error; the record is sound all the
    // same.
    MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaVideoRate videoRate,
                   const MediaOffsetSummary& offsets, unsigned int sampleRate, unsigned int ticksPerSample,
                   unsigned int maxBitsPerSample, unsigned int bitsPerUnit, unsigned int channels, MediaEndian endian,
                   unsigned int width, unsigned int height, AspectRatio aspect);

    // Full form. A sample rate or ticks of 0 become 1.
    MediaClipParam(MediaEncodingType encoding, MediaDataType dataType, MediaFileType fileType,
                   SequenceCodingType coding, MediaVideoRate videoRate, unsigned int width, unsigned int height,
                   MediaChromaSample chroma, MediaVideoScanType vscan, unsigned int sampleRate,
                   unsigned int ticksPerSample, unsigned int maxBitsPerSample, unsigned int bitsPerUnit,
                   unsigned int channels, MediaEndian endian, const MediaOffsetSummary& offsets, AspectRatio aspect);

    // Data type and video rate are the track's. Zeros stay, and the bitrate isn't divided by the ticks.
    MediaClipParam(const MediaTrackDesc& track, MediaEncodingType encoding, const MediaOffsetSummary& offsets,
                   unsigned int sampleRate, unsigned int ticksPerSample, unsigned int maxBitsPerSample,
                   unsigned int bitsPerUnit, unsigned int channels, MediaEndian endian, unsigned int width,
                   unsigned int height, AspectRatio aspect);

    // Snapshot of a clip, its extra pair included.
    explicit MediaClipParam(const MediaClipDesc& clip);

    // From the platform's description record.
    MediaClipParam(const ZxMediaSummary1& summary, ZxFrameStruct frameStruct);

    MediaClipParam(const MediaClipParam& other);
    ~MediaClipParam();
    MediaClipParam& operator=(const MediaClipParam& other);

    // The bag. Gives: borrowed, as long as this record lives.
    MediaParams& getParams() const { return *m_params; }
    // The property of that name, or a default one.
    MediaProperty getParam(MediaPropertyEnum::Name name) const;
    OpResult setParam(const MediaProperty& property);

    // The file type that is the natural home of this essence, whatever m_fileType says.
    MediaFileType getFileType() const { return getFileType(m_encoding, m_endian); }
    static MediaFileType getFileType(MediaEncodingType encoding, MediaEndian endian);

    // The number of this kind of media, made on first sight. Thread: any.
    ParamId getParamId() const;

    // Whether this and the other are the same kind of media. Bitrate, file type, offsets and bag don't count; an
    // unknown scan matches every scan, so this is no equivalence.
    bool paramIdMatch(const MediaClipParam& other) const;
    bool operator==(const MediaClipParam& other) const { return paramIdMatch(other); }

    // One line for logs. Gives: array text, owned by the caller.
    AutoPtr<char> toString() const;

    // Sets sample rate and ticks from m_videoRate; the argument is ignored, which is meant.
    // Fails: Error 1 on a rate without a row; the sample rate is then 1.
    OpResult initSampleRate(MediaVideoRate rate);

    // Lets the writer of a file type fill in this record. False without a type, a writer or a fill function.
    bool initAudio(MediaFileType fileType, MediaEncodingType encoding, MediaVideoRate rate, unsigned int first,
                   unsigned int second, unsigned int third);
    bool initVideo(MediaFileType fileType, MediaEncodingType encoding, MediaVideoRate rate);

    MediaEncodingType m_encoding = MediaEncodingType::Unknown;
    MediaDataType m_dataType = MediaDataType::Unknown;
    MediaFileType m_fileType = MediaFileType::Unknown;  // file kind that the essence is in or is to go in
    SequenceCodingType m_coding = SequenceCodingType::Intra;
    MediaVideoRate m_videoRate = MediaVideoRate::Unknown;
    std::uint32_t m_width = 0;   // pixels a line
    std::uint32_t m_height = 0;  // lines a frame
    MediaChromaSample m_chroma = MediaChromaSample::None;
    MediaVideoScanType m_vscan = MediaVideoScanType::Unknown;
    std::uint32_t m_sampleRate = 0;        // samples in m_ticksPerSample seconds
    std::uint32_t m_ticksPerSample = 1;    // denominator of the rate
    std::uint32_t m_maxBitsPerSample = 0;  // largest sample, in bits
    std::uint32_t m_bitsPerUnit = 0;       // bits a unit of a sample
    std::uint32_t m_channels = 0;
    MediaEndian m_endian = MediaEndian::Big;
    std::uint32_t m_bitrate = 0;   // bits a second
    MediaOffsetSummary m_offsets;  // summary of sample sizes
    AspectRatio m_aspect;
    std::uint32_t m_extraParam[2] = {0, 0};  // discriminators of one kind of essence

private:
    void setRate(unsigned int sampleRate, unsigned int ticksPerSample);
    void setSampling(unsigned int maxBitsPerSample, unsigned int bitsPerUnit, unsigned int channels,
                     MediaEndian endian);
    void takeVideo(const ZxMediaSummary1& summary, ZxFrameStruct frameStruct);
    void takeOther(const ZxMediaSummary1& summary);
    bool sameSampleSizes(const MediaClipParam& other) const;
    bool sameSampleRate(const MediaClipParam& other) const;

    MediaParams* m_params;  // open-ended parameters
};
