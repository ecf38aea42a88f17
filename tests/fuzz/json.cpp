#include <cerrno>
#include <cstring>

#include "services/system/json_line.h"
#include "tests/fuzz/fuzz_input.h"

// One line of JSON. Whatever the bytes are: a reason with its place, or a value
// that keeps the parser's limits and that is the same when it is written and
// read again.

namespace {

using fuzz::require;

void checkNumber(const JsonValue& value) {
    std::uint64_t number = 0;
    const std::string& text = value.getText();
    const bool isWhole = value.getUnsigned(number);
    require(!text.empty());
    errno = 0;
    char* end = nullptr;
    const unsigned long long expected = std::strtoull(text.c_str(), &end, 10);
    require(isWhole == (text[0] != '-' && *end == '\0' && errno == 0));
    require(!isWhole || number == expected);
}

void checkMembers(const JsonValue& value) {
    require(value.getKeys().size() == value.getItems().size());
    for (std::size_t i = 0; i < value.getKeys().size(); ++i)
        require(value.find(value.getKeys()[i]) == &value.getItems()[i]);
}

void checkValue(const JsonValue& value, unsigned depth) {
    const JsonValue::Kind kind = value.getKind();
    const bool isList = kind == JsonValue::Kind::Array || kind == JsonValue::Kind::Object;
    require(depth + (isList ? 1 : 0) <= JsonValue::s_maxDepth);
    require(value.getText().find('\0') == std::string::npos);
    require(isList || value.getItems().empty());
    if (kind == JsonValue::Kind::Number) checkNumber(value);
    if (kind == JsonValue::Kind::Object) checkMembers(value);
    for (const JsonValue& item : value.getItems())
        checkValue(item, depth + 1);
}

void write(JsonWriter& out, const JsonValue& value) {
    const bool isObject = value.getKind() == JsonValue::Kind::Object;
    switch (value.getKind()) {
        case JsonValue::Kind::Null:
            out.null();
            return;
        case JsonValue::Kind::False:
        case JsonValue::Kind::True:
            out.boolean(value.getKind() == JsonValue::Kind::True);
            return;
        case JsonValue::Kind::Number:
            out.raw(value.getText());
            return;
        case JsonValue::Kind::String:
            out.string(value.getText());
            return;
        case JsonValue::Kind::Array:
        case JsonValue::Kind::Object:
            break;
    }
    isObject ? out.beginObject() : out.beginArray();
    for (std::size_t i = 0; i < value.getItems().size(); ++i) {
        if (isObject) out.key(value.getKeys()[i]);
        write(out, value.getItems()[i]);
    }
    isObject ? out.endObject() : out.endArray();
}

// As JSON, on one line.
std::string textOf(const JsonValue& value) {
    JsonWriter out;
    write(out, value);
    for (const char c : out.get())
        require(static_cast<unsigned char>(c) >= 0x20);
    return out.get();
}

// Two keys that aren't UTF-8 may come out as the same one; every other value
// reads back.
void checkAgain(const JsonValue& value) {
    const std::string text = textOf(value);
    JsonValue again;
    std::string reason;
    if (JsonValue::parse(text, again, reason)) {
        require(textOf(again) == text);
    } else {
        require(reason.rfind("a key comes twice", 0) == 0 && text.find("\xef\xbf\xbd") != std::string::npos);
    }
}

void checkReason(const std::string& reason, std::size_t size) {
    const std::size_t at = reason.rfind(" at byte ");
    require(at != std::string::npos && at != 0);
    require(std::strtoull(reason.c_str() + at + std::strlen(" at byte "), nullptr, 10) <= size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    JsonValue value;
    std::string reason;
    if (!JsonValue::parse(line, value, reason)) {
        checkReason(reason, size);
        return 0;
    }
    checkValue(value, 0);
    checkAgain(value);
    return 0;
}
