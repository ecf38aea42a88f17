#pragma once

#include "backends/common/pcm_object.h"
#include "backends/common/pcm_recording.h"
#include "shared/include/object/media_format.h"

// What a format of plain samples registers for its writing. The three numbers of sound are samples a second, channels
// and bits of a word; the clips of a movie without a file fill with silence, and check samples.
template <const PcmWriter& Writer, MediaEndian Endian>
MediaWriterDesc describePcmWriter(MediaFileType type) {
    MediaWriterDesc desc;
    desc.m_fileType = type;
    desc.m_create = [](const char* path, OpResult& result, MediaContainment containment, MediaFileType, bool,
                       BasicIOTypes::SizeAdvice advice,
                       const char*) { return PcmRecording::create(Writer, path, result, containment, advice); };
    desc.m_open = &PcmObject::open;
    desc.m_initAudio = [](MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate, unsigned sampleRate,
                          unsigned channels, unsigned bits) {
        return Writer.initAudio(param, encoding, Endian, sampleRate, channels, bits);
    };
    return desc;
}
