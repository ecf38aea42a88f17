#include "mediautil/naming/movie_rename.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/system/log.h"
#include "shared/include/naming/default_media_namer.h"
#include "shared/include/naming/media_rename_preview.h"
#include "shared/include/object/switches.h"

// A movie's part in its rename. What a format writes into its files it writes in its own renameMediaId.

OpResult MediaObj::rename(const char* newPath, bool renameMedia, Namer* namer) {
    return MovieRename(*this, newPath, renameMedia, namer).run();
}

OpResult MediaObj::renameMediaId(MediaIdRec* id, const char* path) {
    const bool log = mediaObjDbg.on(MediaDbg::RenameActivity);
    const auto number = reinterpret_cast<std::uintptr_t>(id);
    if (log) debugMsg("MO::rename: %s(id=%d) to %s --> ", getPath(id), static_cast<int>(number), path);
    OpResult result = m_impl->m_fileList.rename(static_cast<unsigned>(number - 1), path);
    if (log) debugMsg("%s\n", result ? "true" : "false");
    return result;
}

OpResult MediaObj::reviewMediaName(DefaultMediaNamer&, NameReq&, std::string&) { return OpResult(OpResult::Ok); }

OpResult previewMediaRename(MediaObj& movie, const char* newPath, bool renameMedia, MediaObj::Namer* namer,
                            std::vector<MediaRenameStep>& steps) {
    return MovieRename(movie, newPath, renameMedia, namer).preview(steps);
}
