#include "mediautil/naming/movie_rename.h"

#include <optional>

#include "mediautil/naming/rename_plan.h"
#include "services/file/fs_file_io.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/naming/default_media_namer.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"

// The walk over a rename: checks, the plan of names, the moves, and the way back when one of them fails. The order of
// the steps is what keeps a movie whole: until the plan stands no file is touched, and while media move nobody can open
// the movie by either of its names.

namespace {

constexpr unsigned s_namerPasses = 50;

bool logs() { return mediaObjDbg.on(MediaDbg::RenameActivity); }

std::string absolutePath(const char* path) {
    // A handle that is never opened.
    const AutoRefPtr<FsFileIO> file(new FsFileIO("temp", path, BasicIOTypes::Mode::Update));
    return file.get() != nullptr ? file->getAbsolutePath() : std::string();
}

// An earlier rename of this object has left the path as it spelled it, up and down again. Where the straight one leads
// to the same file it is the one to reckon with: the other would make a file that may stay look like one that moves.
PathParser placeNow(const MediaObj& movie, MediaIdRec* id) {
    const PathParser spelled(absolutePath(movie.getPath(id)).c_str());
    const PathParser straight = RenamePlan::straight(spelled);
    if (straight == spelled) return spelled;
    const AutoRefPtr<FsFileIO> file(new FsFileIO("temp", straight.getPath(true), BasicIOTypes::Mode::ReadOnly));
    const bool isSame = file.get() != nullptr && file->exists() && file->getPathId() == movie.getPathId(id);
    return isSame ? straight : spelled;
}

// Under the switch that makes logs comparable, paths are told from the current folder on.
std::string shown(PathParser path) {
    if (mediaObjDbg.on(MediaDbg::Validation)) path.trimHead(path.compareHead(PathParser::getcwd()));
    return path.getPath(true);
}

std::string shownAsGiven(const char* path) {
    return mediaObjDbg.on(MediaDbg::Validation) ? shown(PathParser(path)) : std::string(path);
}

OpResult noPlaceFor(const RenamePlan::Place& place, const PathParser& movie, const PathParser& media) {
    FormatStr text(256u);
    if (place.m_fault == RenamePlan::Fault::NothingInCommon) {
        text.format("movie (%s) and media (%s) have no common path components", movie.getPath(true),
                    media.getPath(true));
    } else {
        text.format("relative path from movie (%s) to media (%s) cannot be preserved.", movie.getPath(true),
                    media.getPath(true));
    }
    return MO_ERROR(MediaCode::UnknownError, text.get());
}

}  // namespace

MovieRename::MovieRename(MediaObj& movie, const char* newPath, bool renameMedia, MediaObj::Namer* namer)
    : m_movie(movie), m_newPath(newPath), m_renameMedia(renameMedia), m_namer(namer) {}

OpResult MovieRename::run() {
    OpResult result = check();
    if (!result) return result;
    if (takesShortRoad()) return moveMovie(m_newPath);
    result = plan(Touch::Files);
    return result ? move() : result;
}

OpResult MovieRename::check() {
    const bool named = m_newPath != nullptr && *m_newPath != '\0';
    if (m_movie.getMediaCount() == 0 || !named) return MO_WARNING(MediaCode::InternalError, nullptr);
    m_src = absolutePath(m_movie.getPath(m_movie.getMediaId(0))).c_str();
    m_dst = absolutePath(m_newPath).c_str();
    if (logs()) {
        debugMsg("MO::rename: srcMoviePath=%s dstMoviePath=%s\n", m_src.getPath(true), m_dst.getPath(true));
    }
    if (m_src == m_dst) {
        if (logs()) debugMsg("MO::rename: rename aborted, src==dst\n");
        return MO_WARNING(MediaCode::FileExists, nullptr);
    }
    const MediaFileType type = m_movie.getMovieDesc()->getFileType();
    const MediaFileType changed = RenamePlan::changedType(type, m_dst);
    if (changed == MediaFileType::Unknown) return OpResult(OpResult::Ok);
    const FormatStr text("Rename would change type from %s to %s: %s --> %s", MediaNames::get(type),
                         MediaNames::get(changed), m_src.getPath(true), m_newPath);
    return MO_ERROR(MediaCode::OperationUnsupported, text.get());
}

// In its folder the movie's way to its media stays the same.
bool MovieRename::takesShortRoad() const { return !m_renameMedia && RenamePlan::staysInFolder(m_src, m_dst); }

OpResult MovieRename::plan(Touch touch) {
    MediaObj::RenameReq req(m_src.getPath(true), m_newPath, m_renameMedia);
    std::optional<DefaultMediaNamer> own;
    if (m_namer == nullptr) own.emplace(nullptr, nullptr, s_namerPasses);
    const MediaObj::Namer& namer = own ? *own->getCbInfo() : *m_namer;
    const unsigned count = m_movie.getMediaCount();
    for (unsigned i = 1; i < count; ++i) {
        const PathParser media = placeNow(m_movie, m_movie.getMediaId(i));
        m_pairs.push_back(AutoPtr<RenamePair>(new RenamePair(media.getPath(true))));
        OpResult result = planOne(*m_pairs.back(), m_movie.getMediaId(i), req, namer, touch);
        if (!result) return result;
    }
    return OpResult(OpResult::Ok);
}

OpResult MovieRename::planOne(RenamePair& pair, MediaIdRec* id, MediaObj::RenameReq& req, const MediaObj::Namer& namer,
                              Touch touch) {
    const RenamePlan::Place place = RenamePlan::placeOf(pair.m_src, m_src, m_dst);
    if (place.m_fault != RenamePlan::Fault::None) return noPlaceFor(place, m_src, pair.m_src);
    pair.m_dst = place.m_path;
    if (needsNothing(pair)) return OpResult(OpResult::Ok);
    if (touch == Touch::Files && !m_movie.getMovieDesc()->isWritable()) {
        const FormatStr text("can't get write access to rename and rewrite %s", m_src.getPath(true));
        return MO_ERROR(MediaCode::FileNotWritable, text.get());
    }
    const MediaClipDesc* const clip = m_movie.findClipUsing(id);
    if (clip == nullptr) return MO_ERROR(MediaCode::InternalError, nullptr);
    OpResult result = req.setMedia(m_movie, *clip, pair.m_dst.getPath(true));
    if (!result) {
        result.deliverNote(true);
        return result;
    }
    if (m_renameMedia || FsFileIO::exists(req.m_name)) {
        if (!namer.callCb(req)) return MO_WARNING(MediaCode::InternalError, nullptr);
        pair.m_dst = req.m_name;
    }
    const bool roomMade = touch == Touch::Nothing || makeFolderFor(pair.m_dst);
    return roomMade ? OpResult(OpResult::Ok) : MO_WARNING(MediaCode::UnknownError, nullptr);
}

// Most files go where the one before them goes.
bool MovieRename::makeFolderFor(const PathParser& path) {
    const PathParser folder = path - 1;
    if (folder == m_made) return true;
    if (!path.mkdirs(true)) return false;
    m_made = folder;
    return true;
}

OpResult MovieRename::move() {
    if (!m_dst.mkdirs(true)) return MO_WARNING(MediaCode::UnknownError, nullptr);
    if (m_pairs.empty()) return moveMovie(m_newPath);
    if (!RenamePlan::temporaryNameFits(m_newPath)) {
        return MO_WARNING(MediaCode::InternalError, "temporary name too long");
    }
    m_dst = RenamePlan::temporaryName(m_dst);
    OpResult result = moveMovie(m_dst.getPath(true));
    if (!result) return result;
    result = moveMedia();
    if (!result) return result;
    m_movie.close(nullptr, MediaAgent(nullptr)).discard();
    // Behind this there is no way back: when it fails, the media stay at their new places and the movie aside.
    return moveMovie(m_newPath);
}

OpResult MovieRename::moveMedia() {
    for (unsigned i = 0; i < m_pairs.size(); ++i) {
        const RenamePair& pair = *m_pairs[i];
        if (needsNothing(pair)) continue;
        const PathParser path = RenamePlan::spelledFrom(m_dst, pair.m_dst);
        OpResult result = m_movie.renameMediaId(idOf(i), path.getPath(true));
        if (result) continue;
        errorMsg("can't rename: %s --> %s\n", shown(pair.m_src).c_str(), shown(pair.m_dst).c_str());
        rollBack(i);
        return result;
    }
    return OpResult(OpResult::Ok);
}

// A restore that fails is told, and the others go on.
void MovieRename::rollBack(unsigned failed) {
    const std::string src = shown(m_src);
    const std::string given = shownAsGiven(m_newPath);
    const bool comparable = mediaObjDbg.on(MediaDbg::Validation);
    errorMsg("rename of movie failed: %s --> %s\n", src.c_str(), given.c_str());
    for (unsigned i = failed + 1; i-- > 0;) {
        const RenamePair& pair = *m_pairs[i];
        if (pair.m_src == pair.m_dst) continue;
        OpResult result = m_movie.renameMediaId(idOf(i), pair.m_src.getPath(true));
        if (result) continue;
        result.discard();
        // In comparable logs these lines name the pair that failed first, and the last one has its paths the other way
        // round: both are meant, as output for debugging.
        const RenamePair& told = comparable ? *m_pairs[failed] : pair;
        errorMsg("cannot restore %s to %s\n", shown(told.m_dst).c_str(), shown(told.m_src).c_str());
    }
    OpResult result = moveMovie(m_src.getPath(true));
    if (!result) {
        result.discard();
        errorMsg("cannot restore %s to %s\n", (comparable ? src : given).c_str(), (comparable ? given : src).c_str());
    }
    m_movie.flush(nullptr, false);
}

OpResult MovieRename::preview(std::vector<MediaRenameStep>& steps) {
    steps.clear();
    OpResult result = check();
    if (!result) return result;
    if (!takesShortRoad()) {
        result = plan(Touch::Nothing);
        if (!result) return result;
        if (!m_pairs.empty() && !RenamePlan::temporaryNameFits(m_newPath)) {
            return MO_WARNING(MediaCode::InternalError, "temporary name too long");
        }
    }
    steps.push_back({m_movie.getMediaId(0), m_src.getPath(true), m_dst.getPath(true)});
    for (unsigned i = 0; i < m_pairs.size(); ++i) {
        const RenamePair& pair = *m_pairs[i];
        if (!needsNothing(pair)) steps.push_back({idOf(i), pair.m_src.getPath(true), pair.m_dst.getPath(true)});
    }
    return OpResult(OpResult::Ok);
}
