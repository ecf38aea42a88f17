#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "services/file/file_calls.h"
#include "tests/kit/switch_guard.h"
#include "tests/unit/naming/naming_fixture.h"

namespace naming {

// Names in a tree with the bytes of their files; a folder's name ends in a slash.
using Listing = std::map<std::string, std::string>;

// Movies of real files in a tree of their own.
class RenameScene : public ::testing::Test {
protected:
    using Move = RenamedMovie::Move;
    using Moves = std::vector<Move>;

    // The movie of that name with a track for each media file; all files are written, their names being their bytes.
    RenamedMovie* make(const std::string& name, const std::vector<std::string>& media, bool writable = true) {
        kit::MovieScript script;
        for (const std::string& file : media)
            script.audioIn(m_tree.write(file, file), 1);
        return new RenamedMovie(script, m_tree.write(name, name), writable, MediaObj::CacheRefValue::None);
    }
    // So many media files beside the movie.
    RenamedMovie* makeWith(unsigned count, const std::string& folder = "m/") {
        std::vector<std::string> media;
        for (unsigned i = 0; i < count; ++i)
            media.push_back(folder + "take" + std::to_string(i) + ".wav");
        return make(folder + "old.hdcam", media);
    }

    Listing tree() const {
        Listing listing;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_tree.root())) {
            std::string name = entry.path().string().substr(m_tree.root().size() + 1);
            if (entry.is_directory()) {
                listing[name + "/"] = "";
            } else {
                std::ifstream in(entry.path(), std::ios::binary);
                listing[name] = std::string(std::istreambuf_iterator<char>(in), {});
            }
        }
        return listing;
    }
    // The files alone.
    Listing files() const {
        Listing listing = tree();
        std::erase_if(listing, [](const auto& entry) { return entry.first.back() == '/'; });
        return listing;
    }
    std::string at(const std::string& name) const { return m_tree.path(name); }
    // What the movie says of its files.
    static std::vector<std::string> pathsOf(const MediaObj& movie) {
        std::vector<std::string> paths;
        for (unsigned i = 0; i < movie.getMediaCount(); ++i)
            paths.emplace_back(movie.getPath(movie.getMediaId(i)));
        return paths;
    }
    bool logged(LogLevel level, const std::string& text) const { return m_log.has(level, text); }

    kit::TempTree m_tree;
    kit::LogCapture m_log;
};

// Makes the calls of one kind fail while it stands, from one of them on.
class RenameFault {
public:
    // `first` counts from 1; `count` calls fail.
    RenameFault(FileCall call, unsigned first, unsigned count = ~0u) {
        s_call = call;
        s_seen = 0;
        s_first = first;
        s_count = count;
        FileCalls::setFault([](FileCall asked, const char*, int, std::size_t&) {
            if (asked != s_call) return 0;
            const unsigned now = ++s_seen;
            return now >= s_first && now - s_first < s_count ? EIO : 0;
        });
    }
    ~RenameFault() { FileCalls::setFault(nullptr); }
    RenameFault(const RenameFault&) = delete;
    RenameFault& operator=(const RenameFault&) = delete;

private:
    static inline FileCall s_call;
    static inline unsigned s_seen, s_first, s_count;
};

}  // namespace naming
