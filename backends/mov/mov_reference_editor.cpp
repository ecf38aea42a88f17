#include "backends/mov/mov_reference_editor.h"

#include "backends/mov/mov_references.h"
#include "services/file/fs_file_io.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

OpResult unreadable(const std::string& path) {
    return MO_WARNING(MediaCode::UnknownError, FormatStr("mov: %s: the references can't be read", path.c_str()).get());
}

std::string absolute(const char* path) {
    const AutoRefPtr<FsFileIO> file(new FsFileIO("temp", path, BasicIOTypes::Mode::ReadOnly));
    return MovReferences::straight(file->getAbsolutePath());
}

}  // namespace

MovReferenceEditor::MovReferenceEditor(const std::string& path)
    : m_path(MovReferences::straight(path)), m_index(m_path) {}

OpResult MovReferenceEditor::read() {
    OpResult result = m_index.read();
    if (!result) return result;
    return m_list.read(getContent(), m_path) ? OpResult(OpResult::Ok) : unreadable(m_path);
}

OpResult MovReferenceEditor::write(const std::string& path) {
    m_path = MovReferences::straight(path);
    m_index.setPath(m_path);
    m_list.setMovie(m_path);
    std::vector<MovIndexEditor::Patch> patches;
    const bool fits = m_list.makePatches(getContent(), patches);
    if (fits && patches.empty()) return OpResult(OpResult::Ok);
    OpResult result = m_index.open();
    if (!result) return result;
    return fits ? m_index.change(patches, m_list.getVariable()) : writeAnew();
}

// The tables move, and nobody's may be overwritten.
OpResult MovReferenceEditor::writeAnew() {
    OpResult result = m_index.replace(m_list.rebuild(getContent()), false);
    if (result) result = m_index.read();
    return result && !m_list.locate(getContent()) ? unreadable(m_path) : std::move(result);
}

// The file is back where it was, and whatever has come of the new references, the old ones are wanted. Answers whether
// they stand.
bool MovReferenceEditor::takeBack(const std::string& moviePath, const std::string& from, const std::string& to) const {
    MovReferenceEditor editor(moviePath);
    OpResult result = editor.read();
    if (result && editor.getContent() == getContent()) return true;
    if (result && (moviePath == from || editor.lead(to, from))) result = editor.write(moviePath);
    if (result) return true;
    result.discard();
    MovReferenceEditor seen(moviePath);
    result = seen.read();
    const bool isNew = result && seen.getContent() == editor.getContent();
    result.discard();
    return !isNew;
}

bool MovReferenceEditor::isNear(const MediaObj& movie, MediaIdRec* id, const char* path) {
    const std::string from = absolute(movie.getPath(id)), to = absolute(path);
    return id == movie.getMediaId(0) && MovReferences::folderOf(from) == MovReferences::folderOf(to);
}

OpResult MovReferenceEditor::rename(MediaObj& movie, MediaIdRec* id, const char* path, const Move& move,
                                    std::unique_ptr<MovReferenceEditor>& kept) {
    const std::string moviePath = absolute(movie.getPath(nullptr));
    const std::string from = absolute(movie.getPath(id)), planned = absolute(path);
    const bool isMovie = id == movie.getMediaId(0);
    if (from == planned || isNear(movie, id, path)) return move(path);
    std::unique_ptr<MovReferenceEditor> editor = std::move(kept);
    OpResult result(OpResult::Ok);
    if (editor == nullptr || !editor->isCurrent(moviePath)) {
        editor = std::make_unique<MovReferenceEditor>(moviePath);
        result = editor->read();
    }
    if (!result && movie.getMediaCount() == 1) {
        result.discard();
        return move(path);
    }
    // A file that moves without its references is lost to the movie.
    if (result && !isMovie && !editor->m_list.leadsTo(from)) result = unreadable(moviePath);
    if (result) result = move(path);
    if (!result) return result;
    // By now the path can be seen to be straight.
    const std::string to = absolute(path);
    editor->lead(from, to);
    if (editor->hasOthers()) result = editor->write(isMovie ? to : moviePath);
    if (result) {
        kept = std::move(editor);
        return result;
    }
    OpResult back = move(from.c_str());
    // A media file that the movie goes on to see at its new place has to be there.
    if (back && !editor->takeBack(moviePath, from, to) && !isMovie) back = move(path);
    back.discard();
    return result;
}
