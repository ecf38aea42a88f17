#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "backends/mov/mov_atom_writer.h"
#include "services/file/fs_file_io.h"
#include "shared/include/object/media_agent.h"
#include "support/op_result.h"

class MediaObj;

// The references in the file of a finished movie, and their change. The new `moov` is on the disk before anything leads
// to it, and what leads to it is one byte, or the code of an atom, of which a part is no `moov`: a movie
// whose rewriting is cut off anywhere has the old index or the new one.
// Where the room of a recorded movie is found and the size stays, the `moov` goes into the slot that isn't in use; else
// it goes behind the end of the file. Either way the tables of the old one stay in their place for those who read them.
// **Threads:** one. **Owns:** its handle.
class MovReferenceEditor {
public:
    // Absolute path of the movie.
    explicit MovReferenceEditor(const std::string& path);

    // Finds the references. Fails: warning 2 for a file that can't be read or isn't as it should be.
    OpResult read();
    bool hasOthers() const;
    // Leads the references to one file to another; absolute paths. Answers whether there are any.
    bool lead(const std::string& from, const std::string& to);
    // Writes them as they are seen from a movie at that path, in the movie that is there. Fails: warning 5, 12, and 17
    // for a file whose last part has no end.
    OpResult write(const std::string& path);

    // What a movie does to rename one of its files: moves it by `move` and writes the references anew. On a failure the
    // file is back in its place.
    static OpResult rename(MediaObj& movie, MediaIdRec* id, const char* path,
                           const std::function<OpResult(const char*)>& move);

private:
    struct Entry {
        MovCode m_kind = 0;
        bool m_isSelf = false;
        std::string m_path;                 // absolute; empty for one that leads nowhere
        std::vector<std::uint8_t> m_bytes;  // as it stands
    };

    bool walk(const std::uint8_t* bytes, std::uint64_t size, bool isRewrite, unsigned depth);
    bool walkReferences(const std::uint8_t* bytes, std::uint64_t size, bool isRewrite);
    void putEntry(const Entry& entry);
    OpResult findMovie(FsFileIO& file);
    OpResult putInSlot(FsFileIO& file);
    OpResult putBehind(FsFileIO& file);
    OpResult closeLast(FsFileIO& file);
    static void takeBack(const std::string& moviePath, const std::string& from, const std::string& to);
    static OpResult put(FsFileIO& file, std::uint64_t at, const std::vector<std::uint8_t>& bytes);

    std::string m_path;
    std::vector<Entry> m_entries;
    std::vector<std::uint8_t> m_moov;  // what is in it
    std::uint64_t m_moovAt = 0, m_moovSize = 0;
    std::uint64_t m_roomAt = 0;   // of the room that it lies in, or 0
    std::uint64_t m_lastAt = 0;   // of the last atom
    bool m_lastIsOpen = false;    // to the end of the file
    bool m_lastCanClose = false;  // with room for its size
    std::uint64_t m_length = 0;   // of the file
    std::size_t m_next = 0;       // entry, in a walk
    MovAtomWriter m_out;
};
