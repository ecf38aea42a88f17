#include "services/system/json_line.h"

#include <charconv>
#include <cstdio>

namespace {

// How many bytes the well-formed UTF-8 character at the start has, or 0.
unsigned getCharacterLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const unsigned length = first >= 0xc2 && first < 0xe0   ? 2
                            : (first & 0xf0) == 0xe0        ? 3
                            : first >= 0xf0 && first < 0xf5 ? 4
                                                            : 0;
    if (length == 0 || text.size() < length) return 0;
    for (unsigned i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    // Longer than it need be, a surrogate, or above the last character.
    if (first == 0xe0 && byte(1) < 0xa0) return 0;
    if (first == 0xed && byte(1) >= 0xa0) return 0;
    if (first == 0xf0 && byte(1) < 0x90) return 0;
    if (first == 0xf4 && byte(1) >= 0x90) return 0;
    return length;
}

void appendCharacter(std::string& text, unsigned code) {
    const auto put = [&text](unsigned byte) { text.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

class JsonParser {
public:
    JsonParser(std::string_view text, std::string& reason) : m_text(text), m_reason(reason) {}

    bool parseAll(JsonValue& value) {
        if (!parseValue(value, 0)) return false;
        skipBlanks();
        return m_at == m_text.size() || fail("something stands behind the value");
    }

private:
    bool fail(const char* what) {
        m_reason = std::string(what) + " at byte " + std::to_string(m_at);
        return false;
    }

    bool atEnd() const { return m_at >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_at]; }

    bool take(char c) {
        if (peek() != c || atEnd()) return false;
        ++m_at;
        return true;
    }

    void skipBlanks() {
        while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\r' || peek() == '\n')) {
            ++m_at;
        }
    }

    bool parseValue(JsonValue& value, unsigned depth) {
        skipBlanks();
        if (atEnd()) return fail("a value is missing");
        switch (peek()) {
            case '{':
                return parseObject(value, depth + 1);
            case '[':
                return parseArray(value, depth + 1);
            case '"':
                value.m_kind = JsonValue::Kind::String;
                return parseString(value.m_text);
            case 't':
                return parseWord("true", JsonValue::Kind::True, value);
            case 'f':
                return parseWord("false", JsonValue::Kind::False, value);
            case 'n':
                return parseWord("null", JsonValue::Kind::Null, value);
            default:
                return parseNumber(value);
        }
    }

    bool parseWord(std::string_view word, JsonValue::Kind kind, JsonValue& value) {
        if (m_text.substr(m_at, word.size()) != word) return fail("an unknown word stands");
        m_at += word.size();
        value.m_kind = kind;
        return true;
    }

    bool takeDigits() {
        if (!isDigit(peek())) return false;
        while (isDigit(peek())) {
            ++m_at;
        }
        return true;
    }

    bool parseNumber(JsonValue& value) {
        const std::size_t start = m_at;
        take('-');
        const bool leadingZero = peek() == '0';
        const std::size_t digits = m_at;
        if (!takeDigits()) return fail("no value can begin");
        if (leadingZero && m_at > digits + 1) return fail("a number begins with 0");
        if (take('.') && !takeDigits()) return fail("a digit is missing");
        if (peek() == 'e' || peek() == 'E') {
            ++m_at;
            if (!take('+')) take('-');
            if (!takeDigits()) return fail("a digit is missing");
        }
        value.m_kind = JsonValue::Kind::Number;
        value.m_text = m_text.substr(start, m_at - start);
        return true;
    }

    bool parseHex(unsigned& code) {
        const std::string_view digits = m_text.substr(m_at, 4);
        const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
        if (digits.size() != 4 || end.ec != std::errc() || end.ptr != digits.data() + 4)
            return fail("four hexadecimal digits are missing");
        m_at += 4;
        return true;
    }

    bool parseUnicode(std::string& text) {
        unsigned code = 0;
        if (!parseHex(code)) return false;
        if (code == 0) return fail("a zero character stands");
        if (code >= 0xdc00 && code < 0xe000) return fail("half a character stands");
        if (code >= 0xd800 && code < 0xdc00) {
            unsigned low = 0;
            if (!take('\\') || !take('u')) return fail("half a character stands");
            if (!parseHex(low)) return false;
            if (low < 0xdc00 || low >= 0xe000) return fail("half a character stands");
            code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
        }
        appendCharacter(text, code);
        return true;
    }

    bool parseEscape(std::string& text) {
        if (atEnd()) return fail("the string has no end");
        const char c = m_text[m_at++];
        switch (c) {
            case '"':
            case '\\':
            case '/':
                text.push_back(c);
                return true;
            case 'b':
                text.push_back('\b');
                return true;
            case 'f':
                text.push_back('\f');
                return true;
            case 'n':
                text.push_back('\n');
                return true;
            case 'r':
                text.push_back('\r');
                return true;
            case 't':
                text.push_back('\t');
                return true;
            case 'u':
                return parseUnicode(text);
            default:
                --m_at;
                return fail("an unknown escape stands");
        }
    }

    bool parseString(std::string& text) {
        ++m_at;
        for (;;) {
            if (atEnd()) return fail("the string has no end");
            const char c = m_text[m_at];
            if (static_cast<unsigned char>(c) < 0x20) return fail("a control character stands");
            ++m_at;
            if (c == '"') return true;
            if (c != '\\') {
                text.push_back(c);
            } else if (!parseEscape(text)) {
                return false;
            }
        }
    }

    bool parseArray(JsonValue& value, unsigned depth) {
        if (depth > JsonValue::s_maxDepth) return fail("the nesting is too deep");
        value.m_kind = JsonValue::Kind::Array;
        ++m_at;
        skipBlanks();
        if (take(']')) return true;
        for (;;) {
            if (!parseValue(value.m_items.emplace_back(), depth)) return false;
            skipBlanks();
            if (take(']')) return true;
            if (!take(',')) return fail("\",\" or \"]\" is missing");
        }
    }

    bool parseMember(JsonValue& value, unsigned depth) {
        skipBlanks();
        if (peek() != '"') return fail("a key is missing");
        std::string key;
        if (!parseString(key)) return false;
        if (value.find(key) != nullptr) return fail("a key comes twice");
        skipBlanks();
        if (!take(':')) return fail("\":\" is missing");
        JsonValue member;
        if (!parseValue(member, depth)) return false;
        value.m_keys.push_back(std::move(key));
        value.m_items.push_back(std::move(member));
        return true;
    }

    bool parseObject(JsonValue& value, unsigned depth) {
        // A line of 64 KiB could hold keys enough to make the search for a second one slow.
        constexpr std::size_t maxMembers = 256;
        if (depth > JsonValue::s_maxDepth) return fail("the nesting is too deep");
        value.m_kind = JsonValue::Kind::Object;
        ++m_at;
        skipBlanks();
        if (take('}')) return true;
        for (;;) {
            if (value.m_keys.size() == maxMembers) return fail("an object has too many members");
            if (!parseMember(value, depth)) return false;
            skipBlanks();
            if (take('}')) return true;
            if (!take(',')) return fail("\",\" or \"}\" is missing");
        }
    }

    std::string_view m_text;
    std::string& m_reason;
    std::size_t m_at = 0;
};

bool JsonValue::parse(std::string_view text, JsonValue& value, std::string& reason) {
    value = JsonValue();
    return JsonParser(text, reason).parseAll(value);
}

bool JsonValue::getUnsigned(std::uint64_t& value) const {
    if (m_kind != Kind::Number) return false;
    std::uint64_t number = 0;
    const std::from_chars_result end = std::from_chars(m_text.data(), m_text.data() + m_text.size(), number);
    if (end.ec != std::errc() || end.ptr != m_text.data() + m_text.size()) return false;
    value = number;
    return true;
}

const JsonValue* JsonValue::find(std::string_view key) const {
    for (std::size_t i = 0; i < m_keys.size(); ++i) {
        if (m_keys[i] == key) return &m_items[i];
    }
    return nullptr;
}

void JsonWriter::clear() {
    m_text.clear();
    m_needsComma = false;
}

void JsonWriter::separate() {
    if (m_needsComma) m_text.push_back(',');
    m_needsComma = true;
}

JsonWriter& JsonWriter::open(char bracket) {
    separate();
    m_text.push_back(bracket);
    m_needsComma = false;
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    m_text.push_back(bracket);
    m_needsComma = true;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    string(name);
    m_text.push_back(':');
    m_needsComma = false;
    return *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
    separate();
    m_text.append(json);
    return *this;
}

JsonWriter& JsonWriter::number(std::int64_t value) { return raw(std::to_string(value)); }

JsonWriter& JsonWriter::number(std::uint64_t value) { return raw(std::to_string(value)); }

JsonWriter& JsonWriter::string(std::string_view text) {
    separate();
    m_text.push_back('"');
    escape(text);
    m_text.push_back('"');
    return *this;
}

void JsonWriter::escape(std::string_view text) {
    while (!text.empty()) {
        const unsigned length = getCharacterLength(text);
        const char c = text[0];
        if (length == 0) {
            m_text.append("\xef\xbf\xbd");
        } else if (c == '"' || c == '\\') {
            m_text.push_back('\\');
            m_text.push_back(c);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof(code), "\\u%04x", static_cast<unsigned>(c));
            m_text.append(code);
        } else {
            m_text.append(text.substr(0, length));
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
}
