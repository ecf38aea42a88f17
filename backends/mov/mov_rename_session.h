#pragma once

#include <memory>

#include "backends/mov/mov_reference_editor.h"

// What is known of a movie's references while it is renamed, from one of its files to the next.
// **Threads:** that of the rename; the others see nothing of it. **Owns:** the editor.
class MovRenameSession {
public:
    explicit MovRenameSession(const MediaObj& movie) : m_movie(movie), m_outer(t_inner) { t_inner = this; }
    ~MovRenameSession() { t_inner = m_outer; }
    MovRenameSession(const MovRenameSession&) = delete;
    MovRenameSession& operator=(const MovRenameSession&) = delete;

    // Of the rename of that movie in which this thread is; null outside of one. Gives: borrowed until its end.
    static std::unique_ptr<MovReferenceEditor>* find(const MediaObj& movie);

private:
    static thread_local MovRenameSession* t_inner;

    const MediaObj& m_movie;
    MovRenameSession* const m_outer;  // a namer may rename other movies
    std::unique_ptr<MovReferenceEditor> m_editor;
};
