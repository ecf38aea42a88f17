#include "tools/held_movie.h"

#include "tools/movie.h"

HeldMovie::HeldMovie(const std::string& path) : m_hook(*this, &HeldMovie::changed), m_holder(&m_hook) {
    const Movie movie(path);
    m_failure = movie.failure();
    if (m_failure) return;
    MediaObj::ScopeHold hold;
    hold = const_cast<MediaObj*>(movie.get());
    m_holder = hold;
}
