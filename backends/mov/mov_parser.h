#pragma once

#include "backends/mov/mov_box_reader.h"
#include "backends/mov/mov_facts.h"
#include "support/op_result.h"

// Reads a movie's atoms from top to bottom: the movie's own, its tracks', and those of its fragments. Reads no essence
// and none of the sample tables.
// Bounded: so many headers, tracks, descriptions and runs as `MovLimit` says; nothing is called from within itself.
// **Threads:** one.
class MovParser {
public:
    explicit MovParser(FileWindow& file) : m_file(file) {}

    // Fails: a warning whose sentence says what is wrong and where; `movie` is then of no use.
    OpResult parse(MovMovie& movie);

private:
    OpResult parseAtoms();
    OpResult parseMovie(const MovBox& box);
    OpResult parseTracks(const MovBox& moov, unsigned& refused);
    void parseMovieHeader(const MovBox& box);
    void parseExtends(const MovBox& box);
    void parseExtendsTrack(const MovBox& box);
    void remark(const char* text);
    void cut(const char* text);

    FileWindow& m_file;
    unsigned m_left = MovLimit::s_atoms, m_leftOfFragments = MovLimit::s_fragmentAtoms;
    MovMovie m_movie;
    bool m_hasMovie = false;
};
