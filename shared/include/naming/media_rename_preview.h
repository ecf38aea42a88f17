#pragma once

#include <string>
#include <vector>

#include "shared/include/object/media_obj.h"

// One file that a rename moves.
struct MediaRenameStep {
    MediaIdRec* m_id = nullptr;
    std::string m_from;  // absolute
    std::string m_to;    // absolute
};

// Says what `MediaObj::rename` of the same arguments would move, the movie first and then its media files in the order
// of its list, and touches nothing: no folder is made either. A name with a random tag is another one the next time.
// Fails: as `rename` does before its first move, except that the movie need not be written here; `steps` is empty then.
MO_PUBLIC OpResult previewMediaRename(MediaObj& movie, const char* newPath, bool renameMedia, MediaObj::Namer* namer,
                                      std::vector<MediaRenameStep>& steps);
