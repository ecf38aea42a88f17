#pragma once

#include <string>

#include "support/visibility.h"

// A path as a sequence of elements, by the rules of text alone: repeated and trailing slashes and "." elements are
// dropped,
// ".." is an element like any other, and the root is no element but a property of the whole.
// **Threads:** a value; one object belongs to one thread. **Units:** bytes; counts below 0 are taken as 0.
class MO_PUBLIC PathParser {
public:
    PathParser() = default;
    // Null and the empty text give the empty path.
    PathParser(const char* path);
    PathParser(const PathParser&) = default;
    PathParser& operator=(const PathParser&) = default;
    PathParser& operator=(const char* path);

    // By elements; a path from the root differs from one that isn't.
    bool operator==(const PathParser& other) const { return m_rooted == other.m_rooted && m_text == other.m_text; }
    bool operator!=(const PathParser& other) const { return !(*this == other); }

    // How many leading elements the two have in common; 0 when only one starts at the root.
    int compareHead(const PathParser& other) const;
    int getNumElem() const { return m_count; }
    // Bytes of `getPath(true)`.
    unsigned getLength() const { return static_cast<unsigned>(m_text.size()); }
    // The text, with the slash of the root or without it. Borrowed until the next change.
    const char* getPath(bool withRoot) const { return m_text.c_str() + (m_rooted && !withRoot ? 1 : 0); }
    // The last element before its last dot; all of it when it has none.
    std::string getPrefix() const;
    // The last element behind its last dot; empty when it has none. Borrowed until the next change.
    const char* getSuffix() const;

    // The last `count` elements, as a path that doesn't start at the root.
    PathParser tail(int count) const;
    // A copy without the last `count` elements.
    PathParser operator-(int count) const;
    // Drops the last element and answers the path as it was.
    PathParser operator--(int);
    // Drops leading elements, and with the first of them the root.
    void trimHead(int count);
    void trimTail(int count);
    // Adds the elements of a text; a root in it counts for nothing, except that it makes an empty path start there.
    PathParser& append(const char* path);
    PathParser operator+(const PathParser& other) const;
    PathParser operator+(const char* other) const;
    PathParser& operator+=(const PathParser& other) { return append(other.m_text.c_str()); }
    PathParser& operator+=(const char* other) { return append(other); }

    // True when anything is there under this path.
    bool exists() const;
    // Makes the folders of this path that aren't there, the last element left out if told so.
    // Fails: false when one can't be made or something else has its name, with a line that names it.
    bool mkdirs(bool leaveOutLast) const;
    // The current directory; the empty path when there is none.
    static PathParser getcwd();

private:
    // Where the element of that number begins in the text; the text's end for the number of elements.
    std::size_t elementStart(int index) const;
    std::size_t lastElement() const;
    void addElement(const char* element, std::size_t length);

    std::string m_text;     // the elements joined by single slashes, behind one more if rooted
    int m_count = 0;        // elements
    bool m_rooted = false;  // starts at the root
};
