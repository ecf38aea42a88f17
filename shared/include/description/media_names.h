#pragma once

#include "shared/include/description/enum_map.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/media_track_enum.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

// The name tables. Each lives for ever; the first row of a value is what prints, the others parse only.
MO_PUBLIC const EnumMap<MediaDataType>& getMediaDataTypeMap();
MO_PUBLIC const EnumMap<MediaVideoRate>& getMediaVideoRateMap();
MO_PUBLIC const EnumMap<MediaEncodingType>& getMediaEncodingTypeMap();
MO_PUBLIC const EnumMap<MediaFileType>& getMediaFileTypeMap();
MO_PUBLIC const EnumMap<MediaContainment>& getMediaContainmentMap();
MO_PUBLIC const EnumMap<MediaChromaSample>& getMediaChromaSampleMap();
MO_PUBLIC const EnumMap<MediaVideoScanType>& getMediaVideoScanTypeMap();
MO_PUBLIC const EnumMap<MediaAspectRatio>& getMediaAspectRatioMap();
MO_PUBLIC const EnumMap<S2016ActiveFmtDesc>& getS2016ActiveFmtDescMap();

// Texts of the media enumerations, both ways.
//
// A value without a row prints "?"; a text without a row parses to value 0. Texts that are answered live for ever.
class MO_PUBLIC MediaNames {
public:
    static const char* get(MediaVideoRate);
    static const char* get(MediaEncodingType);
    static const char* get(MediaDataType);
    static const char* get(MediaFileType);
    static const char* get(MediaAspectRatio);
    static const char* get(S2016ActiveFmtDesc);
    static const char* get(MediaVideoScanType);
    static const char* get(MediaChromaSample);
    static const char* get(MediaContainment);
    static const char* get(MediaEndian);
    static const char* get(SequenceCodingType);

    // The type's name and the ordinal, such as video0. Gives: array text, owned by the caller.
    static AutoPtr<char> get(MediaTrackEnum);

    static MediaVideoRate getVideoRate(const char* name);
    static MediaEncodingType getEncodingType(const char* name);
    static MediaDataType getDataType(const char* name);

    // The file type of a suffix, or of a path by what follows its last dot. Tried as it stands first, then with its
    // ASCII letters in lower case.
    static MediaFileType getFileType(const char* suffixOrPath);
};
