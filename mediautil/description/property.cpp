#include <cstring>
#include <new>

#include "services/system/format_str.h"
#include "shared/include/description/media_property.h"

MediaProperty::MediaProperty() { init(Name::Unknown); }

MediaProperty::MediaProperty(Name name, unsigned int value) {
    init(name);
    set(value);
}

MediaProperty::MediaProperty(Name name, const char* text) {
    init(name);
    set(text, false);
}

MediaProperty::MediaProperty(const MediaProperty& other) : MediaPropertyEnum(other) {
    init(Name::Unknown);
    *this = other;
}

MediaProperty::~MediaProperty() { setType(Type::None); }

MediaProperty& MediaProperty::operator=(const MediaProperty& other) {
    if (this == &other) return *this;
    setType(Type::None);
    init(other.m_name, other.m_type, 0);
    const bool owned = other.m_owned != 0;
    if (m_type == Type::String && other.m_value) {
        set(other.stringValue(), owned);
    } else if (m_type == Type::Binary && other.m_value) {
        set(other.memValue(), other.m_size, owned);
    } else {
        m_value = other.m_value;
    }
    return *this;
}

void MediaProperty::init(Name name) { init(name, Type::None, 0); }

void MediaProperty::init(Name name, Type type, unsigned long long value) {
    m_type = type;
    m_name = name;
    m_value = value;
    m_owned = 0;
    m_size = 0;
}

bool MediaProperty::holdsHeapBlock() const { return m_owned && (m_type == Type::String || m_type == Type::Binary); }

// The owned bit stays on purpose: a property that has owned a value is not to be set to borrow one.
void MediaProperty::setType(Type type) {
    if (holdsHeapBlock()) delete[] reinterpret_cast<char*>(m_value);
    m_value = 0;
    m_type = type;
}

// Frees nothing on purpose: a property that holds a text is not turned into a number.
void MediaProperty::set(unsigned int value) {
    m_type = Type::Word4;
    m_value = value;
}

void MediaProperty::set(const char* text, bool copy) {
    setType(Type::String);
    store(text, text ? static_cast<unsigned int>(std::strlen(text)) + 1 : 0, copy);
}

void MediaProperty::set(const void* block, unsigned int size, bool copy) {
    setType(Type::Binary);
    store(block, size, copy);
}

void MediaProperty::store(const void* bytes, unsigned int size, bool copy) {
    if (copy && bytes) {
        char* memory = new (std::nothrow) char[size];
        m_owned = 1;
        if (memory) std::memcpy(memory, bytes, size);
        bytes = memory;
    }
    m_value = reinterpret_cast<std::uintptr_t>(bytes);
    m_size = bytes ? size : 0;
}

void MediaProperty::borrow(const MediaProperty& other) {
    setType(Type::None);
    init(other.m_name, other.m_type, other.m_value);
    m_size = other.m_size;
}

namespace {

bool sameText(const char* a, const char* b) { return a && b ? std::strcmp(a, b) == 0 : a == b; }

bool sameBlock(const MediaProperty& a, const MediaProperty& b) {
    if (!a.memValue() || !b.memValue()) return a.memValue() == b.memValue();
    return a.nMemBytes() == b.nMemBytes() && std::memcmp(a.memValue(), b.memValue(), a.nMemBytes()) == 0;
}

}  // namespace

bool MediaProperty::operator==(const MediaProperty& other) const {
    if (m_type != other.m_type || m_name != other.m_name) return false;
    if (m_type == Type::String) return sameText(stringValue(), other.stringValue());
    if (m_type == Type::Binary) return sameBlock(*this, other);
    return m_value == other.m_value;
}

AutoPtr<char> MediaProperty::toString() const {
    FormatStr text("%s=", lookup(m_name));
    switch (m_type) {
        case Type::None:
            text.cat("?");
            break;
        case Type::String:
            text.format("\"%s\"", stringValue() ? stringValue() : "(null)");
            break;
        case Type::Binary:
            text.cat("<binary>");
            break;
        case Type::Word1:
        case Type::Word2:
        case Type::Word3:
        case Type::Word4:
            text.format("%u", uintValue());
            break;
        // The low half only, which is meant.
        case Type::Signed64:
            text.format("%lld", static_cast<long long>(uintValue()));
            break;
        case Type::Unsigned64:
            text.format("%llu", static_cast<unsigned long long>(uintValue()));
            break;
    }
    return text;
}
