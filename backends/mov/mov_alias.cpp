#include "backends/mov/mov_alias.h"

#include <algorithm>

namespace {

constexpr unsigned s_selfFlag = 1;
constexpr unsigned s_fixedSize = 150;  // of the record, without its tagged fields
constexpr unsigned s_grain = 512;      // bytes
constexpr unsigned s_tagFolder = 0, s_tagMacPath = 2, s_tagPosixPath = 18, s_tagMountPoint = 19, s_tagEnd = 0xFFFF;
const std::string s_volume = "disk";

std::vector<std::string> partsOf(const std::string& path) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == ".") continue;
        if (part != "..") {
            parts.push_back(part);
        } else if (!parts.empty()) {
            parts.pop_back();
        }
    }
    return parts;
}

void putTag(MovAtomWriter& out, unsigned tag, const std::string& text) {
    out.be16(tag).be16(text.size()).bytes(text.data(), text.size());
    if (text.size() % 2 != 0) out.be8(0);
}

std::string macPathOf(const std::vector<std::string>& parts) {
    std::string path = s_volume;
    for (const std::string& part : parts)
        path += ":" + part;
    return path;
}

std::string posixPathOf(const std::vector<std::string>& parts) {
    std::string path;
    for (const std::string& part : parts)
        path += "/" + part;
    return path;
}

// Up from the movie to the folder in common, and down from there to the file.
struct Steps {
    Steps(const std::vector<std::string>& movie, const std::vector<std::string>& file) {
        const auto ends = std::mismatch(movie.begin(), movie.end(), file.begin(), file.end());
        m_up = static_cast<std::size_t>(movie.end() - ends.first);
        m_down = static_cast<std::size_t>(file.end() - ends.second);
    }
    bool operator==(const Steps&) const = default;

    std::size_t m_up, m_down;
};

// Behind a link, text can't tell where such a path leads.
bool goesUp(const std::string& path) { return (path + "/").find("/../") != std::string::npos; }

}  // namespace

std::string MovAlias::normal(const std::string& path) { return posixPathOf(partsOf(path)); }

bool MovAlias::isSameWay(const std::string& oneMovie, const std::string& otherMovie, const std::string& path) {
    const std::vector<std::string> file = partsOf(path);
    return !goesUp(path) && Steps(partsOf(oneMovie), file) == Steps(partsOf(otherMovie), file);
}

void MovAlias::put(MovAtomWriter& out, const std::string& moviePath, const std::string& path, std::uint64_t pad) {
    constexpr unsigned outside = 2, unknown = 0xFFFF;
    const std::vector<std::string> movie = partsOf(moviePath), file = partsOf(path);
    const Steps steps(movie, file);
    const bool isPlain = !goesUp(path);
    const std::string name = file.empty() ? std::string() : file.back();
    MovAtomWriter tags;
    putTag(tags, s_tagFolder, file.size() < 2 ? s_volume : file[file.size() - 2]);
    putTag(tags, s_tagMacPath, macPathOf(file));
    putTag(tags, s_tagPosixPath, isPlain ? posixPathOf(file) : path);
    putTag(tags, s_tagMountPoint, "/");
    tags.be16(s_tagEnd).be16(0);
    const std::vector<std::uint8_t>& bytes = tags.getBytes();

    out.open(MovAtom::s_alis, 0, 0);
    out.be32(0).be16(s_fixedSize + bytes.size()).be16(2).be16(0);  // user, size, version, a file
    out.pascal(s_volume, 28).be32(0).be16(0x482B).be16(0);         // made, kind of file system, of disk
    out.be32(0).pascal(name, 64).be32(0).be32(0).be32(0).be32(0);  // folder's number; number, made, type, creator
    out.be16(isPlain ? steps.m_up : outside).be16(isPlain ? steps.m_down : unknown);
    out.be32(0).be16(0).zeros(10).bytes(bytes.data(), bytes.size());
    // Most other paths take the same room: the reference can change and all behind it stays in its place.
    const std::size_t used = s_fixedSize + bytes.size();
    out.zeros((s_grain - used % s_grain) % s_grain + pad);
    out.close();
}

void MovAlias::putSelf(MovAtomWriter& out) { out.open(MovAtom::s_url, 0, s_selfFlag).close(); }
