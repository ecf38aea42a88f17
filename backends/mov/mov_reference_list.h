#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "backends/mov/mov_atom_writer.h"
#include "backends/mov/mov_index_editor.h"

// The references in the content of a `moov`, and that content with other ones. What a `dinf` doesn't need is a `free`
// at its end, and so references change without a table moving. Where one is too small all get anew room for twice what
// they hold. An entry that leads where it should is left as it stands, whoever wrote it.
// **Threads:** one. **Owns:** the entries; the content is the caller's. **Units:** bytes from the content's start.
class MovReferenceList {
public:
    // Takes the entries of a movie at that absolute path. Fails: false for content that isn't as it should be.
    bool read(const std::vector<std::uint8_t>& content, const std::string& moviePath);
    // Finds out where the same entries stand in content that was built here. Fails: the same.
    bool locate(const std::vector<std::uint8_t>& content);

    // Whether one leads to another file than the movie's.
    bool hasOthers() const { return !m_byPath.empty(); }
    bool leadsTo(const std::string& path) const { return m_byPath.contains(path); }
    // Leads the entries to one file to another; absolute paths. Answers whether there are any.
    bool lead(const std::string& from, const std::string& to);
    // They are seen from a movie at that absolute path from now on.
    void setMovie(const std::string& path);

    // What differs from the content, in its place. Fails: false where a `dinf` is too small.
    bool makePatches(const std::vector<std::uint8_t>& content, std::vector<MovIndexEditor::Patch>& patches);
    // The whole `moov`, with new room.
    std::vector<std::uint8_t> rebuild(const std::vector<std::uint8_t>& content);
    // What isn't the same in every `moov` of this layout, in the order of the content: references, and user data.
    const std::vector<MovIndexEditor::Stretch>& getVariable() const { return m_variable; }

private:
    struct Entry {
        MovCode m_kind = 0;
        bool m_isAbsolute = false;          // it names the whole path
        bool m_isLed = false;               // it doesn't stand as it should
        std::size_t m_list = 0;             // that it is in
        std::string m_path;                 // absolute; empty for the movie itself and for one that leads nowhere
        std::vector<std::uint8_t> m_bytes;  // as it stood at first
    };
    // A `dinf`.
    struct List {
        std::uint64_t m_at = 0, m_size = 0;  // with its head
        std::size_t m_first = 0;             // entry
        bool m_isDirty = false;              // it may differ from the content
    };
    enum class Walk : std::uint32_t { Read, Locate };

    bool walk(const std::uint8_t* bytes, std::uint64_t size, Walk kind, unsigned depth);
    bool walkList(const std::uint8_t* bytes, std::uint64_t size, Walk kind);
    bool walkReferences(const std::uint8_t* bytes, std::uint64_t size, Walk kind);
    void take(const std::uint8_t* bytes, std::uint64_t size);
    bool stands(const Entry& entry) const;
    void putEntry(const Entry& entry, std::uint64_t pad, MovAtomWriter& out) const;
    std::vector<std::uint8_t> build(const std::uint8_t* dinf, const List& list, std::uint64_t pad) const;
    bool buildIn(const std::uint8_t* dinf, const List& list, std::uint64_t size,
                 std::vector<std::uint8_t>& bytes) const;
    void copy(const std::uint8_t* bytes, std::uint64_t size, MovAtomWriter& out);
    void copyList(const std::uint8_t* dinf, const List& list, MovAtomWriter& out) const;
    std::size_t lastLed(const List& list) const;
    std::size_t endOf(const List& list) const;
    void soil(std::size_t list);
    void clean();

    std::string m_moviePath;       // that they are seen from
    std::string m_firstPath;       // that they were read from
    std::vector<Entry> m_entries;  // in their order
    std::vector<List> m_lists;     // the same
    std::vector<std::size_t> m_dirty;
    std::unordered_multimap<std::string, std::size_t> m_byPath;  // entries
    std::vector<MovIndexEditor::Stretch> m_variable;
    const std::uint8_t* m_start = nullptr;  // of the content, in a walk
    std::size_t m_nextList = 0;             // the same
};
