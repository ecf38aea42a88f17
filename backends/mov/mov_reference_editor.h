#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/mov/mov_index_editor.h"
#include "backends/mov/mov_reference_list.h"
#include "shared/include/object/media_agent.h"
#include "support/op_result.h"

class MediaObj;

// The references in the file of a finished movie, and their change (how the file stays whole: `MovIndexEditor`).
// **Threads:** one. **Owns:** a handle, once it has written.
class MovReferenceEditor {
public:
    using Move = std::function<OpResult(const char*)>;

    // Absolute path of the movie.
    explicit MovReferenceEditor(const std::string& path);

    // Finds the references. Fails: warning 2 for a file that can't be read or isn't as it should be.
    OpResult read();
    // Whether the file at that path is the one that was read or left here.
    bool isCurrent(const std::string& path) const { return m_index.isCurrent(path); }
    bool hasOthers() const { return m_list.hasOthers(); }
    // Leads the references to one file to another; absolute paths. Answers whether there are any.
    bool lead(const std::string& from, const std::string& to) { return m_list.lead(from, to); }
    // Writes them as they are seen from a movie at that path, in the movie that is there. One that says the same
    // isn't touched. Fails: warning 2, and as `MovIndexEditor`; then this is of no use any more.
    OpResult write(const std::string& path);

    // What a movie does to rename one of its files: moves it by `move` and writes the references anew. `kept` has what
    // is known of them from one file to the next, and may be null. On a failure the file is back in its place; a media
    // file stays at the new one if the movie can't be led back either.
    static OpResult rename(MediaObj& movie, MediaIdRec* id, const char* path, const Move& move,
                           std::unique_ptr<MovReferenceEditor>& kept);

    // Whether that takes the movie itself to another name in its folder, and no reference changes.
    static bool isNear(const MediaObj& movie, MediaIdRec* id, const char* path);

private:
    bool takeBack(const std::string& moviePath, const std::string& from, const std::string& to) const;
    OpResult writeAnew();
    const std::vector<std::uint8_t>& getContent() const { return m_index.getContent(); }

    std::string m_path;
    MovIndexEditor m_index;
    MovReferenceList m_list;
};
