#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "backends/mov/mov_atoms.h"
#include "services/file/file_stat.h"
#include "services/file/fs_file_io.h"
#include "support/op_result.h"

class MovIndexRoom;

// The `moov` in the file of a finished movie, and another one in its stead. The new one is on the disk before anything
// leads to it, and what leads to it is one byte, or the code of an atom, of which a part is none that anybody knows: a
// movie whose rewriting is cut off anywhere has the old index or the new one. No essence moves.
// Where the room of a recorded movie is found and its tables keep their places, the new one goes into the slot that
// isn't in use; else it goes behind the end of the file, or where an earlier one of the same tables has left its place.
// Either way the tables of the old one stay in their place for those who read them.
// **Threads:** one. **Owns:** its handle. **Units:** bytes from the file's start.
class MovIndexEditor {
public:
    // Of the content of a `moov`, in bytes from its start.
    struct Stretch {
        std::uint64_t m_at;
        std::uint64_t m_size;
    };
    struct Patch {
        std::uint64_t m_at;
        std::vector<std::uint8_t> m_bytes;
    };

    // Absolute path of the movie.
    explicit MovIndexEditor(const std::string& path) : m_path(path) {}

    const std::string& getPath() const { return m_path; }
    // The movie has moved: what is written next is written there.
    void setPath(const std::string& path);
    // Whether the file at that path is the one that was read here, and nobody else has written to it since.
    bool isCurrent(const std::string& path) const;

    // Finds the `moov`. Fails: warning 2 for a file that can't be read or isn't as it should be.
    OpResult read();
    // What is in it.
    const std::vector<std::uint8_t>& getContent() const { return m_content; }
    // Where that stands.
    std::uint64_t getContentAt() const { return m_moovAt + s_head; }
    // Of the whole atom.
    std::uint64_t getSize() const { return m_moovSize; }
    // Whether it lies in the room of a recorded movie.
    bool isInRoom() const { return m_roomAt != 0; }
    // Bytes of the `free` that follows it; 0 where none does.
    std::uint64_t getFreeBehind() const { return m_freeBehind; }

    // Opens the file for the writing, unless it is open. Fails: warning 5.
    OpResult open();
    // The same, with the claim on the file. Fails: also warning 7 while another process records or changes it.
    OpResult openClaimed();
    // Whether the room has a slot for a `moov` of so many bytes. Requires: it is open.
    bool hasSlotFor(std::uint64_t size);
    // Writes another `moov`, the whole atom. `isAlike`: its tables stand where those of the present one do, from its
    // start. Requires: it has been read, and is open. Fails: warning 12, and 17 for a file that nothing can be put
    // behind: one of fragments, or whose last atom has no end.
    OpResult replace(const std::vector<std::uint8_t>& moov, bool isAlike);
    // Changes the `moov` within its size and layout, and the content that is held here with it. `variable`: where two
    // of this layout may differ, in the order of the content. Fails: as `replace`, and warning 2 when somebody else has
    // written to the file; what the file tells and the content are then as they were.
    OpResult change(std::vector<Patch>& patches, const std::vector<Stretch>& variable);
    // Writes a piece in its place. Fails: warning 12.
    OpResult put(std::uint64_t at, const std::vector<std::uint8_t>& bytes);
    // Puts on the disk what has been written. Fails: warning 12.
    OpResult flush();
    // Writes the code of the atom there, which says whether it is looked at. Fails: warning 12.
    OpResult putCode(std::uint64_t at, MovCode code);

private:
    static constexpr unsigned s_head = 8;

    OpResult find(FsFileIO& file);
    bool findRoom(std::uint64_t size, MovIndexRoom& room);
    OpResult putInSlot(std::vector<std::uint8_t> moov, MovIndexRoom& room);
    OpResult putBehind(std::vector<std::uint8_t> moov);
    OpResult closeLast();
    OpResult changeInSlot(MovIndexRoom& room, const std::vector<Patch>& patches);
    OpResult changeInTwin(const std::vector<Patch>& patches);
    OpResult putStretches(std::uint64_t at, const std::vector<Patch>& patches);
    OpResult showSlot(MovIndexRoom& room, unsigned slot);
    OpResult showInstead(std::uint64_t at);
    bool findTwin(const std::vector<Stretch>& variable);
    bool isTwin(std::uint64_t at, const std::vector<Stretch>& variable);
    std::vector<std::uint8_t> getMoov() const;
    void apply(std::vector<Patch>& patches);
    void shownAt(std::uint64_t at);
    void note();
    OpResult unreadable() const;
    OpResult unwritable() const;

    std::string m_path;
    AutoRefPtr<FsFileIO> m_file;  // null unless it is open
    std::vector<std::uint8_t> m_content;
    std::vector<std::uint64_t> m_spare;  // further ones, which nobody comes to: left by a process that was killed
    std::uint64_t m_moovAt = 0, m_moovSize = 0;  // no size: there is none
    std::uint64_t m_roomAt = 0;                  // of the room that it lies in, or 0
    std::uint64_t m_freeBehind = 0;              // see getFreeBehind
    std::uint64_t m_lastAt = 0;                  // of the last atom
    bool m_lastIsOpen = false;                   // to the end of the file
    bool m_lastCanClose = false;                 // with room for its size
    bool m_isCut = false;                        // the last atom claims more than there is, or is none
    bool m_hasFragments = false;
    std::uint64_t m_length = 0;          // of the file
    FileStat m_seen;                     // the file as it was read or left
    std::vector<std::uint64_t> m_frees;  // those, and further ones, that are as large as the `moov`
    std::uint64_t m_otherAt = 0;         // where the `moov` may go next, in place of an older one; or 0
    bool m_otherIsSlot = false;          // of the room, which alone leads there
    std::vector<Stretch> m_otherLacks;   // where the older one may differ from the content
};
