#include "backends/mov/mov_references.h"

#include <algorithm>
#include <cstring>

#include "backends/common/byte_cursor.h"
#include "services/file/file_stat.h"
#include "services/file/fs_file_io.h"

namespace {

// The alias record: fixed fields, and tagged ones behind them.
constexpr std::size_t s_aliasFixed = 150;
constexpr std::size_t s_volumeName = 10, s_volumeRoom = 27;
constexpr std::size_t s_fileName = 50, s_fileRoom = 63;
constexpr std::size_t s_levels = 130;  // up from the alias, then down to the target
constexpr std::uint16_t s_tagEnd = 0xFFFF, s_tagMacPath = 2, s_tagPosixPath = 18, s_tagMountPoint = 19;

// A text that begins with its length, in a field of so many bytes behind that.
std::string pascalText(const std::uint8_t* at, std::size_t room) {
    const std::size_t length = std::min<std::size_t>(at[0], room);
    return std::string(reinterpret_cast<const char*>(at + 1), length);
}

// Up to the first terminator.
std::string textOf(const std::uint8_t* at, std::size_t size) {
    const void* end = std::memchr(at, 0, size);
    const std::size_t length =
        end != nullptr ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(end) - at) : size;
    return std::string(reinterpret_cast<const char*>(at), length);
}

void addCandidate(MovReference& reference, const std::string& path) {
    if (path.empty() || path.back() == '/' || path.find('\0') != std::string::npos) return;
    if (path.front() != '/' && MovReferences::climbs(path)) return;
    if (std::find(reference.candidates.begin(), reference.candidates.end(), path) == reference.candidates.end()) {
        reference.candidates.push_back(path);
    }
}

// What the tags of an alias say.
struct AliasPaths {
    std::string mac;    // "volume:folder:file" with '/' between the parts
    std::string posix;  // from the volume's root
    std::string mount;  // of the volume
};

std::string macPath(const std::uint8_t* at, std::size_t size) {
    std::string path(reinterpret_cast<const char*>(at), size);
    while (!path.empty() && path.back() == 0)
        path.pop_back();
    for (char& c : path) {
        if (c == ':' || c == 0) c = '/';
    }
    return path;
}

AliasPaths readTags(const std::uint8_t* content, std::size_t size) {
    AliasPaths paths;
    std::size_t at = s_aliasFixed;
    while (size - at >= 4) {
        ByteCursor cursor(content + at, 4);
        const std::uint16_t tag = cursor.be16();
        const std::size_t length = cursor.be16();
        at += 4;
        if (tag == s_tagEnd || length > size - at) break;
        if (tag == s_tagMacPath) paths.mac = macPath(content + at, length);
        if (tag == s_tagPosixPath) paths.posix = textOf(content + at, length);
        if (tag == s_tagMountPoint) paths.mount = textOf(content + at, length);
        at = std::min(at + length + length % 2, size);
    }
    return paths;
}

// The last `count` parts of a path.
std::string lastParts(const std::string& path, unsigned count) {
    std::size_t at = path.size();
    for (unsigned i = 0; i < count && at != std::string::npos && at != 0; ++i)
        at = path.rfind('/', at - 1);
    return at == std::string::npos ? path : path.substr(at + (at < path.size() && path[at] == '/' ? 1 : 0));
}

// The way from the movie to its media as it was when the alias was written, which still holds when both have moved;
// then the file's name beside the movie, and the whole path.
void readAlias(MovReference& reference, const std::uint8_t* content, std::size_t size) {
    if (size < s_aliasFixed) {
        reference.isRefused = true;
        return;
    }
    const std::string volume = pascalText(content + s_volumeName, s_volumeRoom);
    const std::string name = pascalText(content + s_fileName, s_fileRoom);
    const AliasPaths paths = readTags(content, size);
    ByteCursor levels(content + s_levels, 4);
    const std::uint16_t up = levels.be16();
    const std::uint16_t down = levels.be16();
    reference.text = !paths.posix.empty() ? paths.posix : !paths.mac.empty() ? paths.mac : name;
    if (up == 1 && down != 0xFFFF && down != 0 && !paths.mac.empty()) {
        addCandidate(reference, lastParts(paths.mac, down));
    }
    // Where the file lay outside the movie's folder, one of its name beside the movie may well be another.
    const bool isOutside = up > 1 && up != 0xFFFF;
    const bool hasName = name.find('/') == std::string::npos;
    if (hasName && !isOutside) addCandidate(reference, name);
    if (!paths.posix.empty()) {
        const std::string root = paths.mount == "/" ? std::string() : paths.mount;
        addCandidate(reference, root + (paths.posix.front() == '/' ? "" : "/") + paths.posix);
    }
    if (!paths.mac.empty()) {
        const bool hasVolume = paths.mac.compare(0, volume.size(), volume) == 0;
        const std::string inside = hasVolume ? paths.mac.substr(volume.size()) : paths.mac;
        if (!inside.empty()) addCandidate(reference, inside.front() == '/' ? inside : "/" + inside);
    }
    if (hasName && isOutside) addCandidate(reference, name);
}

void readUrl(MovReference& reference, const std::uint8_t* content, std::size_t size) {
    reference.text = textOf(content, size);
    std::string path;
    if (reference.text.empty()) {
        reference.isSelf = true;  // some writers leave the flag out, but there is nowhere else to go
    } else if (MovReferences::decodeUrl(reference.text, path)) {
        addCandidate(reference, path);
    }
}

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' || c == '-' ||
           c == '_' || c == '.' || c == '~' || c == '(' || c == ')' || c == '+' || c == ',' || c == '=' || c == '@';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The path without empty steps and ".", and perhaps with each ".." taken back by the step before it.
std::string withoutSteps(const std::string& path, bool takesBack) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == ".") continue;
        const bool goesBack = takesBack && part == ".." && !parts.empty() && parts.back() != "..";
        if (goesBack) {
            parts.pop_back();
        } else {
            parts.push_back(part);
        }
    }
    std::string text = !path.empty() && path.front() == '/' ? "/" : "";
    for (const std::string& part : parts)
        text += (&part == &parts.front() ? "" : "/") + part;
    return text;
}

bool isSameFile(const std::string& one, const std::string& other) {
    FileStat a, b;
    return statPath(one.c_str(), a) == 0 && statPath(other.c_str(), b) == 0 && a.m_key == b.m_key;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

MovReference MovReferences::parse(MovCode kind, std::uint32_t flags, const std::uint8_t* content, std::size_t size) {
    MovReference reference;
    reference.kind = kind;
    reference.isSelf = (flags & 1) != 0;
    if (reference.isSelf) return reference;
    if (kind == MovAtom::s_alis || kind == MovAtom::s_rsrc) {
        readAlias(reference, content, size);
    } else if (kind == MovAtom::s_url) {
        readUrl(reference, content, size);
    }
    reference.isRefused = !reference.isSelf && reference.candidates.empty();
    if (reference.text.empty()) reference.text = MovCodeText(kind).text;
    return reference;
}

std::string MovReferences::resolve(const MovReference& reference, const std::string& moviePath, bool& isThere) {
    const std::string folder = folderOf(moviePath);
    std::string first;
    isThere = false;
    for (const std::string& candidate : reference.candidates) {
        const std::string path = straight(candidate.front() == '/' ? candidate : folder + candidate);
        if (FsFileIO::exists(path.c_str())) {
            isThere = true;
            return path;
        }
        if (first.empty()) first = path;
    }
    return first;
}

std::string MovReferences::straight(const std::string& path) {
    const std::string spelled = withoutSteps(path, false), plain = withoutSteps(path, true);
    if (spelled == plain || isSameFile(spelled, plain)) return plain;
    // What isn't there yet lies in its folder.
    const bool isThere = FsFileIO::exists(spelled.c_str()) || FsFileIO::exists(plain.c_str());
    return !isThere && isSameFile(folderOf(spelled), folderOf(plain)) ? plain : spelled;
}

std::string MovReferences::encodeUrl(const std::string& path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string url = !path.empty() && path.front() == '/' ? "file://" : "";
    for (const char c : path) {
        if (isPlain(c)) {
            url += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            url += '%';
            url += digits[byte >> 4];
            url += digits[byte & 15];
        }
    }
    return url;
}

bool MovReferences::decodeUrl(const std::string& url, std::string& path) {
    std::string rest = url;
    if (startsWith(rest, "file://localhost/")) {
        rest = rest.substr(std::strlen("file://localhost"));
    } else if (startsWith(rest, "file:///")) {
        rest = rest.substr(std::strlen("file://"));
    } else if (startsWith(rest, "file:") && !startsWith(rest, "file://")) {
        rest = rest.substr(std::strlen("file:"));
    } else if (rest.find("://") != std::string::npos) {
        return false;
    }
    path.clear();
    for (std::size_t i = 0; i < rest.size(); ++i) {
        const bool isEscape =
            rest[i] == '%' && i + 2 < rest.size() && hexDigit(rest[i + 1]) >= 0 && hexDigit(rest[i + 2]) >= 0;
        if (isEscape) {
            const int byte = hexDigit(rest[i + 1]) * 16 + hexDigit(rest[i + 2]);
            if (byte == 0) return false;
            path += static_cast<char>(byte);
            i += 2;
        } else {
            path += rest[i];
        }
    }
    return !path.empty();
}

bool MovReferences::climbs(const std::string& path) {
    int depth = 0;
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        if (part == "..") {
            if (--depth < 0) return true;
        } else if (!part.empty() && part != ".") {
            ++depth;
        }
        at = end + 1;
    }
    return false;
}

std::string MovReferences::folderOf(const std::string& moviePath) {
    const std::size_t slash = moviePath.rfind('/');
    return slash == std::string::npos ? std::string() : moviePath.substr(0, slash + 1);
}
