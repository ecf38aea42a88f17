#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/auto_ptr.h"
#include "support/visibility.h"

// An identifier of bytes that has a text: what all lengths share.
class MO_PUBLIC GenericIdBase {
public:
    virtual ~GenericIdBase();

    // The canonical text. Gives: borrowed for the object's life, the same address at every call; null for an
    // identifier without one.
    virtual const char* getStringValue() const = 0;

protected:
    // Reads `count` bytes of two hex digits each, between which dots and hyphens are stepped over.
    // Fails: false when the text holds anything else, fewer digits or more.
    static bool parseHex(const char* text, std::uint8_t* bytes, std::size_t count);
    // Writes two upper-case digits a byte, with a dot in front of every fourth byte but the first, and an end.
    // Requires: room for them all.
    static void formatHex(const std::uint8_t* bytes, std::size_t count, char* text);
};

template <std::size_t Bytes>
class GenericId : public GenericIdBase {
public:
    const std::array<std::uint8_t, Bytes>& getBytes() const { return m_bytes; }

protected:
    std::array<std::uint8_t, Bytes> m_bytes{};
};

// The basic unique material identifier of SMPTE ST 330: a universal label of 12 bytes, the length of what follows, an
// instance of 3 bytes, which tells copies of one material apart, and a material number of 16.
// Its text is its uniform resource name (SMPTE ST 2029, in the name space of RFC 5119): "urn:smpte:umid:" and eight
// groups of eight digits joined by dots.
// **Threads:** a value; one object belongs to one thread.
class MO_PUBLIC GenericUmid final : public GenericId<32> {
public:
    static constexpr std::size_t s_bytes = 32;
    // Where an identifier states how many bytes follow, and what the basic and the extended one state there.
    static constexpr std::size_t s_lengthAt = 12;
    static constexpr std::uint8_t s_basicLength = 0x13;
    static constexpr std::uint8_t s_extendedLength = 0x33;

    // Reads the canonical text, or 64 hex digits with or without "0x", in either case.
    // Gives: an owned object. Fails: null for any other text, for null and for bytes that aren't a basic UMID.
    static AutoPtr<GenericUmid> createFromString(const char* text);
    // The same from 32 bytes as a file holds them.
    static AutoPtr<GenericUmid> createFromBytes(const std::uint8_t* bytes);
    // A new one: material of no stated type, numbered by a random UUID (RFC 4122), instance 0.
    // Fails: null when the system has no random bytes.
    static AutoPtr<GenericUmid> generate();

    // Makes it the identifier of the material, whatever the copy.
    void resetInstance();
    const char* getStringValue() const override { return m_text; }

private:
    static constexpr std::size_t s_textSize = 15 + 64 + 7 + 1;  // prefix, digits, dots, end

    GenericUmid() = default;
    bool isBasicUmid() const;
    void makeText();

    char m_text[s_textSize] = {};
};
