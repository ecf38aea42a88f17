#pragma once

#include "shared/include/description/media_clip_param.h"

// Parameters of plain sound of a file type: everything but its order of bytes, its video rate and the size that a
// sample takes in the file. **Units:** samples a second, bits of a word.
inline MediaClipParam soundParam(MediaFileType type, MediaEncodingType encoding, unsigned sampleRate, unsigned channels,
                                 unsigned bits) {
    MediaClipParam param;
    param.m_encoding = encoding;
    param.m_dataType = MediaDataType::Audio;
    param.m_fileType = type;
    param.m_sampleRate = sampleRate;
    param.m_ticksPerSample = 1;
    param.m_maxBitsPerSample = bits;
    param.m_bitsPerUnit = bits;
    param.m_channels = channels;
    param.m_bitrate = sampleRate * channels * bits;
    return param;
}
