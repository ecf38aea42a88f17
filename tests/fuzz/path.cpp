#include <vector>

#include "services/file/path_parser.h"
#include "tests/fuzz/fuzz_input.h"

// A path through any run of its operations, beside a plain list of elements
// that goes through the same. The input is a text that ends in a zero byte,
// then the operations: a byte that says which, and what that one needs.

namespace {

using fuzz::require;
using Elements = std::vector<std::string>;

struct Plain {
    Elements m_elements;
    bool m_rooted = false;

    bool empty() const { return m_elements.empty() && !m_rooted; }
    int count() const { return static_cast<int>(m_elements.size()); }

    void append(const std::string& text) {
        if (empty() && !text.empty() && text[0] == '/') m_rooted = true;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t slash = std::min(text.find('/', at), text.size());
            add(text.substr(at, slash - at));
            at = slash + 1;
        }
    }
    void add(const std::string& element) {
        if (element.empty() || (element == "." && !empty())) return;
        if (!m_rooted && m_elements == Elements{"."}) m_elements.clear();
        m_elements.push_back(element);
    }
    int clamp(int number) const { return std::clamp(number, 0, count()); }
    void trimTail(int number) { m_elements.resize(m_elements.size() - static_cast<std::size_t>(clamp(number))); }
    void trimHead(int number) {
        if (number <= 0) return;
        m_elements.erase(m_elements.begin(), m_elements.begin() + clamp(number));
        m_rooted = false;
    }
    Plain tail(int number) const { return Plain{{m_elements.end() - clamp(number), m_elements.end()}, false}; }
    int common(const Plain& other) const {
        int same = 0;
        const auto element = [](const Plain& path, int i) { return path.m_elements[static_cast<std::size_t>(i)]; };
        if (m_rooted != other.m_rooted) return 0;
        while (same < std::min(count(), other.count()) && element(*this, same) == element(other, same))
            ++same;
        return same;
    }
    std::string text() const {
        std::string joined;
        for (const std::string& element : m_elements)
            joined += (joined.empty() ? "" : "/") + element;
        return joined;
    }
};

struct Path {
    PathParser m_path;
    Plain m_plain;
};

void checkName(const PathParser& path, const Plain& plain) {
    const std::string name = plain.count() > 0 ? plain.m_elements.back() : "";
    const std::size_t dot = name.rfind('.');
    require(path.getPrefix() == name.substr(0, dot));
    require(path.getSuffix() == (dot == std::string::npos ? "" : name.substr(dot + 1)));
}

void check(const PathParser& path, const Plain& plain) {
    const std::string text = (plain.m_rooted ? "/" : "") + plain.text();
    require(path.getPath(true) == text && path.getPath(false) == plain.text());
    require(path.getNumElem() == plain.count() && path.getLength() == text.size());
    require(PathParser(path.getPath(true)) == path && !(PathParser(path.getPath(true)) != path));
    checkName(path, plain);
}

void check(const Path& path) { check(path.m_path, path.m_plain); }

// Taken apart anywhere and put together again it is the same.
void checkParts(const Path& path, int number) {
    const PathParser& whole = path.m_path;
    const PathParser head = whole - number;
    const PathParser tail = whole.tail(number);
    check(tail, path.m_plain.tail(number));
    require(head + tail == whole && head + tail.getPath(false) == whole);
    require(head.getNumElem() + tail.getNumElem() == whole.getNumElem());
    require(head.compareHead(whole) == head.getNumElem());
    Plain cut = path.m_plain;
    cut.trimTail(number);
    check(head, cut);
}

void checkPair(const Path& one, const Path& other) {
    const int common = one.m_plain.common(other.m_plain);
    require(one.m_path.compareHead(other.m_path) == common && other.m_path.compareHead(one.m_path) == common);
    const bool same =
        one.m_plain.m_rooted == other.m_plain.m_rooted && one.m_plain.m_elements == other.m_plain.m_elements;
    require((one.m_path == other.m_path) == same);
}

// A number of elements, a few of them below 0 or beyond all.
int numberOf(unsigned byte) {
    return byte == 255 ? 0x7FFFFFFF : byte == 254 ? -0x7FFFFFFF - 1 : static_cast<int>(byte) - 4;
}

void appendItself(Path& path, unsigned part) {
    const bool whole = part % 2 == 0;
    path.m_plain.append((whole && path.m_plain.m_rooted ? "/" : "") + path.m_plain.text());
    path.m_path.append(path.m_path.getPath(whole));
}

void operate(Path& path, Path& other, fuzz::Input& input) {
    switch (input.byte() % 8) {
        case 0: {
            const std::string text = input.text();
            path.m_path += text.c_str();
            path.m_plain.append(text);
            break;
        }
        case 1: {
            const int number = numberOf(input.byte());
            path.m_path.trimHead(number);
            path.m_plain.trimHead(number);
            break;
        }
        case 2: {
            const int number = numberOf(input.byte());
            path.m_path.trimTail(number);
            path.m_plain.trimTail(number);
            break;
        }
        case 3: {
            const PathParser before = path.m_path;
            require(path.m_path-- == before);
            path.m_plain.trimTail(1);
            break;
        }
        case 4:
            std::swap(path, other);
            break;
        case 5:
            path.m_plain.append((other.m_plain.m_rooted ? "/" : "") + other.m_plain.text());
            path.m_path = path.m_path + other.m_path;
            break;
        case 6:
            appendItself(path, input.byte());
            break;
        default:
            checkParts(path, numberOf(input.byte()));
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned longest = 256;
    fuzz::Input input(data, size);
    Path path, other;
    const std::string text = input.text();
    path.m_path = text.c_str();
    path.m_plain.append(text);
    check(path);
    for (unsigned left = 32; left > 0 && !input.empty(); --left) {
        if (path.m_path.getLength() > longest || other.m_path.getLength() > longest) break;
        operate(path, other, input);
        check(path);
        checkPair(path, other);
    }
    checkParts(path, 1);
    return 0;
}
