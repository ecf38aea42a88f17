#include "backends/mov/mov_rename_session.h"

thread_local MovRenameSession* MovRenameSession::t_inner = nullptr;

std::unique_ptr<MovReferenceEditor>* MovRenameSession::find(const MediaObj& movie) {
    MovRenameSession* session = t_inner;
    while (session != nullptr && &session->m_movie != &movie)
        session = session->m_outer;
    return session != nullptr ? &session->m_editor : nullptr;
}
