#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/mov/mov_index_editor.h"
#include "support/op_result.h"

// Changes one value in the `udta` of a finished movie; all else in there stays, whoever wrote it. A process that is
// killed on the way leaves the old value or the new one, and no byte of the essence is touched.
// The new `udta` goes, in this order of choice: into the slot of a recorded movie's room that isn't in use; into a
// `free` in the `moov`; into a piece of a `free` behind it, which the `moov` takes in for it; and else into a new
// `moov` behind the end of the file, with room for changes to come. A `free` becomes a `udta` by its code, and only
// then the old `udta` a `free`; of two the last one counts, and the first may go at leisure.
// **Threads:** one; other processes are kept out by a claim on the file.
class MovUserDataEditor {
public:
    // Absolute path of the movie.
    explicit MovUserDataEditor(const std::string& path) : m_index(path) {}

    // Puts the atom, whole, in the place of all of its code; an empty one takes them out. Fails: warning 11 for more
    // than a movie's user data may have, and as `MovIndexEditor`; what the file tells is then as it was.
    OpResult put(MovCode code, const std::vector<std::uint8_t>& atom);

private:
    // In the content of the `moov`.
    struct Atom {
        MovCode m_code;
        std::uint64_t m_at;
        std::uint64_t m_size;
    };

    bool look();
    bool gather(MovCode code, const std::vector<std::uint8_t>& atom);
    bool isAtEnd() const;
    std::vector<std::uint8_t> build(bool hasRoom) const;
    const Atom* findFree() const;
    OpResult takeFree();
    OpResult show(const Atom& place);

    MovIndexEditor m_index;
    std::vector<Atom> m_atoms;
    std::vector<std::uint8_t> m_content;  // of the new `udta`
};
