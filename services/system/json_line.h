#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/visibility.h"

// A parsed JSON value.
//
// The parser is strict about the grammar, refuses keys that come twice, zero characters and nesting deeper than
// s_maxDepth, and lets bytes that aren't UTF-8 pass in strings, since file names may hold them.
class MO_PUBLIC JsonValue {
public:
    enum class Kind : std::uint32_t { Null, False, True, Number, String, Array, Object };
    static constexpr unsigned s_maxDepth = 16;

    // Fails: false with the reason and the place, in bytes from the text's start.
    static bool parse(std::string_view text, JsonValue& value, std::string& reason);

    Kind getKind() const { return m_kind; }
    // A string's bytes, or a number as it was written; else empty.
    const std::string& getText() const { return m_text; }
    // Fails: false for what isn't a whole number of 0 to 2^64 - 1.
    bool getUnsigned(std::uint64_t& value) const;
    // The member of that name, borrowed, or null; also null when this isn't an object.
    const JsonValue* find(std::string_view key) const;
    // The items of an array, or the values of an object in their order.
    const std::vector<JsonValue>& getItems() const { return m_items; }
    // The keys of an object, in the order of the items.
    const std::vector<std::string>& getKeys() const { return m_keys; }

private:
    friend class JsonParser;

    Kind m_kind = Kind::Null;
    std::string m_text;
    std::vector<std::string> m_keys;
    std::vector<JsonValue> m_items;
};

// Writes one JSON value on one line. Commas come by themselves; bytes that aren't UTF-8 come out as U+FFFD.
class MO_PUBLIC JsonWriter {
public:
    JsonWriter& beginObject() { return open('{'); }
    JsonWriter& endObject() { return close('}'); }
    JsonWriter& beginArray() { return open('['); }
    JsonWriter& endArray() { return close(']'); }
    JsonWriter& key(std::string_view name);

    JsonWriter& string(std::string_view text);
    JsonWriter& number(std::int64_t value);
    JsonWriter& number(std::uint64_t value);
    JsonWriter& number(unsigned value) { return number(std::uint64_t{value}); }
    JsonWriter& number(int value) { return number(std::int64_t{value}); }
    JsonWriter& boolean(bool value) { return raw(value ? "true" : "false"); }
    JsonWriter& null() { return raw("null"); }
    // Puts in a value that is JSON already.
    JsonWriter& raw(std::string_view json);

    bool empty() const { return m_text.empty(); }
    const std::string& get() const { return m_text; }
    void clear();

private:
    JsonWriter& open(char bracket);
    JsonWriter& close(char bracket);
    void separate();
    void escape(std::string_view text);

    std::string m_text;
    bool m_needsComma = false;  // a value stands right before in the same array or object
};
