#include "shared/include/description/media_movie_desc.h"

#include "shared/include/description/media_track_desc.h"

MediaMovieDesc::MediaMovieDesc(MediaFileType fileType, unsigned int timeBase, bool writable, MediaEncodingType encoding,
                               MediaVideoRate standard, unsigned int)
    : m_fileType(fileType), m_timeBase(timeBase), m_writable(writable), m_encoding(encoding), m_standard(standard) {}

void MediaMovieDesc::init(MediaFileType fileType, unsigned int timeBase, bool writable, MediaEncodingType encoding,
                          MediaVideoRate standard) {
    m_fileType = fileType;
    m_timeBase = timeBase;
    m_writable = writable;
    m_encoding = encoding;
    m_standard = standard;
}

void MediaMovieDesc::setLength(const MediaTrackDesc& track) {
    const unsigned long long length = track.getLength();
    m_lastTrackLength = length;
    if (length > m_maxTrackLength) m_maxTrackLength = length;
}
