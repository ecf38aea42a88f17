#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "shared/include/description/media_enums.h"
#include "shared/include/index/media_sample_desc.h"
#include "support/op_result.h"
#include "tests/kit/gate.h"

class MediaObj;

namespace kit {

// What a clip is to be. **Units:** bytes and samples.
struct ClipScript {
    MediaEncodingType m_encoding = MediaEncodingType::Pcm;
    unsigned m_sampleRate = 48000;
    unsigned m_ticksPerSample = 1;
    unsigned m_bits = 16;
    unsigned m_channels = 2;
    unsigned m_bitrate = 0;
    unsigned long long m_samples = 0;
    unsigned long long m_base = 0;                              // file offset of sample 0
    unsigned m_sampleSize = 4;                                  // 0 for a clip of listed samples
    std::vector<std::vector<MediaSampleDesc::Chunk>> m_listed;  // the chunks of each sample; used with size 0
    unsigned m_file = 0;                                        // index in the movie's list, 0 being the movie itself
    MediaContainment m_container = MediaContainment::Embedded;
};

struct TrackScript {
    MediaDataType m_type = MediaDataType::Audio;
    MediaVideoRate m_rate = MediaVideoRate::Unknown;
    std::vector<ClipScript> m_clips;
    unsigned long long m_length = 0;  // ticks of the movie's time base; 0: what the clips add up to
};

// What the reader is to make of a file, and how it is to behave while it does and after.
struct MovieScript {
    unsigned m_timeBase = 48000;
    MediaVideoRate m_standard = MediaVideoRate::Pal25;
    MediaEncodingType m_encoding = MediaEncodingType::Pcm;
    std::vector<TrackScript> m_tracks;
    std::vector<std::string> m_files;  // secondary files, entered by path
    // Faults and delays of the parse.
    OpResult::Type m_failure = OpResult::Type::Ok;  // Warning and Error: the reader refuses so
    int m_failureCode = 0;
    std::string m_failureText;
    OpSubsystem m_failureSubsystem = 0;  // 0 is the core's own
    unsigned m_parseMsec = 0;
    std::shared_ptr<Gate> m_parseGate;  // the parse stands here until it is opened
    std::shared_ptr<Gate> m_closeGate;  // so does every close of the whole movie
    bool m_morph = false;               // the object comes in a morph
    bool m_entersPath = false;          // the reader enters the file by its path instead of the handle
    // Behaviour of the object.
    bool m_accept = true;  // what acceptReplacement answers
    std::uint32_t m_state = 0;
    unsigned long long m_fixedVersion = 0;  // other than 0: what getVersion answers whatever the file says
    std::list<MediaObj*> m_references;      // borrowed

    // Adds an audio track of one clip in the movie's own file.
    MovieScript& audio(unsigned long long samples, unsigned long long base = 0);
    // The same in the secondary file of that path, which is entered.
    MovieScript& audioIn(const std::string& path, unsigned long long samples);
    // `count` audio tracks of `samples` each.
    static MovieScript ofTracks(unsigned count, unsigned long long samples);
    MovieScript& refuse(OpResult::Type type, int code, const char* text = "");
};

}  // namespace kit
