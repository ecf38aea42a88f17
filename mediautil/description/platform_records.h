#pragma once

#include "services/metadata/platform_records.h"
#include "shared/include/description/media_enums.h"

// The platform's codes in this system's vocabulary; what has no place in it is Unknown, or no chroma.
MediaEncodingType toMediaEncodingType(ZxMediaType type);
MediaChromaSample toMediaChromaSample(ZxVideoSampleRatio ratio);
