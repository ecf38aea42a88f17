#include "services/file/path_parser.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>

#include "services/file/file_calls.h"
#include "services/file/file_messages.h"
#include "services/file/file_stat.h"

PathParser::PathParser(const char* path) { append(path); }

PathParser& PathParser::operator=(const char* path) { return *this = PathParser(path); }

void PathParser::addElement(const char* element, std::size_t length) {
    const bool dot = length == 1 && *element == '.';
    if (length == 0 || (dot && (m_rooted || m_count > 0))) return;
    // "." stands only for itself, where there is nothing else.
    if (!m_rooted && m_text == ".") {
        m_text.clear();
        m_count = 0;
    }
    if (m_count > 0) m_text += '/';
    m_text.append(element, length);
    ++m_count;
}

PathParser& PathParser::append(const char* path) {
    if (path == nullptr) return *this;
    // A part of this very path would change under the walk.
    const std::less_equal<const char*> upTo;
    const bool isOwn = upTo(m_text.c_str(), path) && upTo(path, m_text.c_str() + m_text.size());
    const std::string own(isOwn ? path : "");
    if (isOwn) path = own.c_str();
    if (*path == '/' && m_text.empty()) {
        m_rooted = true;
        m_text = "/";
    }
    while (*path != '\0') {
        const std::size_t length = std::strcspn(path, "/");
        addElement(path, length);
        path += length;
        if (*path == '/') ++path;
    }
    return *this;
}

std::size_t PathParser::elementStart(int index) const {
    std::size_t at = m_rooted ? 1 : 0;
    if (index >= m_count) return m_text.size();
    for (int i = 0; i < index; ++i)
        at = m_text.find('/', at) + 1;
    return at;
}

std::size_t PathParser::lastElement() const { return elementStart(std::max(m_count - 1, 0)); }

int PathParser::compareHead(const PathParser& other) const {
    if (m_rooted != other.m_rooted) return 0;
    const int most = std::min(m_count, other.m_count);
    const std::size_t shorter = std::min(m_text.size(), other.m_text.size());
    int common = 0;
    for (std::size_t at = m_rooted ? 1 : 0; common < most; ++common) {
        while (at < shorter && m_text[at] != '/' && m_text[at] == other.m_text[at])
            ++at;
        const bool ends = at == m_text.size() || m_text[at] == '/';
        if (!ends || !(at == other.m_text.size() || other.m_text[at] == '/')) break;
        ++at;
    }
    return common;
}

std::string PathParser::getPrefix() const {
    const std::size_t start = lastElement();
    const std::size_t dot = m_text.rfind('.');
    return m_text.substr(start, dot == std::string::npos || dot < start ? std::string::npos : dot - start);
}

const char* PathParser::getSuffix() const {
    const std::size_t dot = m_text.rfind('.');
    return dot == std::string::npos || dot < lastElement() ? "" : m_text.c_str() + dot + 1;
}

PathParser PathParser::tail(int count) const {
    PathParser part;
    const int taken = std::clamp(count, 0, m_count);
    part.m_text = m_text.substr(elementStart(m_count - taken));
    if (taken == 0) part.m_text.clear();
    part.m_count = taken;
    return part;
}

PathParser PathParser::operator-(int count) const {
    PathParser part(*this);
    part.trimTail(count);
    return part;
}

PathParser PathParser::operator--(int) {
    PathParser before(*this);
    trimTail(1);
    return before;
}

void PathParser::trimHead(int count) {
    if (count > 0) *this = tail(m_count - std::min(count, m_count));
}

void PathParser::trimTail(int count) {
    if (count <= 0) return;
    const int left = std::max(m_count - count, 0);
    const std::size_t root = m_rooted ? 1 : 0;
    const std::size_t end = left > 0 ? elementStart(left) : root;
    // The slash in front of the first element dropped goes with it, the root's stays.
    m_text.resize(left > 0 && left < m_count ? end - 1 : end);
    m_count = left;
}

PathParser PathParser::operator+(const PathParser& other) const {
    PathParser sum(*this);
    sum += other;
    return sum;
}

PathParser PathParser::operator+(const char* other) const {
    PathParser sum(*this);
    sum += other;
    return sum;
}

bool PathParser::exists() const {
    FileStat stat;
    return !m_text.empty() && statPath(m_text.c_str(), stat) == 0;
}

static bool makeFolder(const char* path) {
    if (FileCalls::makeFolder(path) == 0) return true;
    const int error = errno;
    FileStat stat;
    // Another process may have made it at the same moment, and a folder that may not be written is still a way down.
    const int lookError = statPath(path, stat);
    if (lookError == 0 && stat.isFolder()) return true;
    tellFailure("PathParser", path, "make folder", lookError == 0 ? ENOTDIR : error);
    return false;
}

bool PathParser::mkdirs(bool leaveOutLast) const {
    const int count = m_count - (leaveOutLast ? 1 : 0);
    FileStat stat;
    if (count <= 0) return true;
    const PathParser whole = *this - (m_count - count);
    if (statPath(whole.m_text.c_str(), stat) == 0 && stat.isFolder()) return true;
    for (int i = 1; i <= count; ++i) {
        if (!makeFolder((*this - (m_count - i)).m_text.c_str())) return false;
    }
    return true;
}

PathParser PathParser::getcwd() {
    char path[PATH_MAX];
    return PathParser(::getcwd(path, sizeof path));
}
