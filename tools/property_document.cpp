#include "tools/property_document.h"

#include <cstdint>

#include "shared/include/description/media_property.h"

namespace {

// A number without a name in the table is told apart by the number.
std::string nameOf(MediaPropertyEnum::Name name) {
    const std::string text = MediaPropertyEnum::lookup(name);
    return text == "?" ? text + std::to_string(static_cast<std::uint32_t>(name)) : text;
}

std::string digitsOf(const MediaProperty& property) {
    static constexpr char digits[] = "0123456789abcdef";
    const auto* bytes = static_cast<const std::uint8_t*>(property.memValue());
    std::string text = "0x";
    for (unsigned i = 0; bytes != nullptr && i < property.nMemBytes(); ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

// All 64 bits of an integer, which a plain read has as an address only.
std::uint64_t wholeOf(const MediaProperty& property) { return reinterpret_cast<std::uintptr_t>(property.memValue()); }

Json valueOf(const MediaProperty& property) {
    switch (property.getType()) {
        case MediaPropertyEnum::Type::None:
            return nullptr;
        case MediaPropertyEnum::Type::String:
            return property.stringValue() != nullptr ? property.stringValue() : "";
        case MediaPropertyEnum::Type::Binary:
            return digitsOf(property);
        case MediaPropertyEnum::Type::Signed64:
            return static_cast<std::int64_t>(wholeOf(property));
        case MediaPropertyEnum::Type::Unsigned64:
            return wholeOf(property);
        default:
            return property.uintValue();
    }
}

}  // namespace

Json describeProperties(const MediaPropertyList& bag) {
    Json properties = Json::object();
    for (unsigned i = 0; i < bag.getPropertyCount(); ++i) {
        const MediaProperty& property = *bag.get(i);
        properties[nameOf(property.getName())] = valueOf(property);
    }
    return properties;
}
