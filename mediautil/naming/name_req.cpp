#include "shared/include/naming/name_req.h"

#include <cstring>

#include "mediautil/naming/movie_suffixes.h"
#include "services/system/text.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/core_subsystem.h"

// Which file of its movie a clip's file is: the number that its name gets.

namespace {

// Counts the files of a movie that have the suffix of one clip's file, in the order of their clips.
class FileCounter {
public:
    FileCounter(const MediaClipDesc& clip, MovieSuffixes& suffixes)
        : m_clip(clip),
          m_movie(clip.getObj()),
          m_suffixes(suffixes),
          m_suffix(suffixes.of(m_movie, clip.getMediaId())) {}

    // The clip's place among them, from 0; -1 for a file that is alone of its kind.
    int place() {
        for (unsigned i = 0; i < m_movie.getTrackCount(); ++i)
            walk(*m_movie.getTrackAt(i));
        return m_count < 2 ? -1 : m_place;
    }

private:
    void walk(const MediaTrackDesc& track) {
        for (unsigned j = 0; j < track.getClipCount(); ++j) {
            const MediaClipDesc& clip = *track.getClip(j);
            // Sound inside the pictures of a DV file is no file of its own.
            if (clip.getType() == MediaDataType::Audio && clip.getEncoding() == MediaEncodingType::Dv) continue;
            if (&clip == &m_clip) m_place = m_count;
            if (hasSuffix(clip) && (j == 0 || !isLike(*track.getClip(j - 1)))) ++m_count;
        }
    }

    // A run of clips like the given one counts once. It is the given clip that is compared with, whatever stands
    // between the two.
    bool isLike(const MediaClipDesc& before) const {
        return before.getEncoding() == m_clip.getEncoding() && before.getType() == m_clip.getType();
    }

    bool hasSuffix(const MediaClipDesc& clip) { return m_suffixes.of(m_movie, clip.getMediaId()) == m_suffix; }

    const MediaClipDesc& m_clip;
    const MediaObj& m_movie;
    MovieSuffixes& m_suffixes;
    const std::string_view m_suffix;
    int m_count = 0;
    int m_place = -1;
};

}  // namespace

MediaObj::NameReq::NameReq(const char* path, int index, MediaFileType type)
    : m_path(System::copy(path)), m_index(index), m_fileType(type) {
    m_name[0] = '\0';
}

MediaObj::NameReq::~NameReq() { delete[] m_path; }

OpResult MediaObj::NameReq::setMedia(const MediaObj&, const MediaClipDesc& clip, const char* newName) {
    MovieSuffixes suffixes;
    return setMedia(clip, newName, suffixes);
}

OpResult MediaObj::NameReq::setMedia(const MediaClipDesc& clip, const char* newName, MovieSuffixes& suffixes) {
    m_name[0] = '\0';
    const std::size_t length = newName != nullptr ? std::strlen(newName) : 0;
    if (length >= s_nameSize) return MO_WARNING(MediaCode::InternalError, "new name too long");
    m_index = FileCounter(clip, suffixes).place();
    m_fileType = clip.getFileType();
    if (newName != nullptr) std::memcpy(m_name, newName, length + 1);
    return OpResult(OpResult::Ok);
}
