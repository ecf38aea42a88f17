#include "services/metadata/generic_umid.h"

#include <strings.h>
#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

namespace {

constexpr char s_prefix[] = "urn:smpte:umid:";
constexpr std::size_t s_prefixLength = sizeof(s_prefix) - 1;

// ST 330, table 1: the label up to the type of material, which isn't stated (0F), and the ways in which material and
// instance got their numbers: by UUID (2), and not defined (0). The length says that this is a basic UMID.
constexpr std::uint8_t s_label[] = {0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20};
constexpr std::size_t s_checkedLabel = 4;  // the designator that every universal label begins with
constexpr std::size_t s_instanceAt = 13;
constexpr std::size_t s_materialAt = 16;

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

GenericIdBase::~GenericIdBase() = default;

bool GenericIdBase::parseHex(const char* text, std::uint8_t* bytes, std::size_t count) {
    std::size_t digits = 0;
    for (; *text != '\0'; ++text) {
        const bool betweenBytes = digits % 2 == 0 && digits != 0;
        if (betweenBytes && (*text == '.' || *text == '-')) continue;
        const int digit = digitOf(*text);
        if (digit < 0 || digits == count * 2) return false;
        std::uint8_t& byte = bytes[digits / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | digit);
        ++digits;
    }
    return digits == count * 2;
}

void GenericIdBase::formatHex(const std::uint8_t* bytes, std::size_t count, char* text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0 && i % 4 == 0) *text++ = '.';
        *text++ = digits[bytes[i] >> 4];
        *text++ = digits[bytes[i] & 15];
    }
    *text = '\0';
}

AutoPtr<GenericUmid> GenericUmid::createFromString(const char* text) {
    if (text == nullptr) return nullptr;
    if (strncasecmp(text, s_prefix, s_prefixLength) == 0) {
        text += s_prefixLength;
    } else if (strncasecmp(text, "0x", 2) == 0) {
        text += 2;
    }
    std::uint8_t bytes[32] = {};
    if (!parseHex(text, bytes, sizeof(bytes))) return nullptr;
    return createFromBytes(bytes);
}

AutoPtr<GenericUmid> GenericUmid::createFromBytes(const std::uint8_t* bytes) {
    AutoPtr<GenericUmid> umid(new (std::nothrow) GenericUmid);
    if (umid.get() == nullptr) return nullptr;
    std::copy_n(bytes, umid->m_bytes.size(), umid->m_bytes.begin());
    if (!umid->isBasicUmid()) return nullptr;
    umid->makeText();
    return umid;
}

AutoPtr<GenericUmid> GenericUmid::generate() {
    std::uint8_t bytes[32] = {};
    std::copy(std::begin(s_label), std::end(s_label), bytes);
    bytes[s_lengthAt] = s_basicLength;
    std::uint8_t* const uuid = bytes + s_materialAt;
    if (getrandom(uuid, 16, 0) != 16) return nullptr;
    uuid[6] = static_cast<std::uint8_t>((uuid[6] & 0x0F) | 0x40);  // version 4, random
    uuid[8] = static_cast<std::uint8_t>((uuid[8] & 0x3F) | 0x80);
    return createFromBytes(bytes);
}

void GenericUmid::resetInstance() {
    std::fill(m_bytes.begin() + s_instanceAt, m_bytes.begin() + s_materialAt, std::uint8_t{0});
    makeText();
}

bool GenericUmid::isBasicUmid() const {
    return std::equal(s_label, s_label + s_checkedLabel, m_bytes.begin()) && m_bytes[s_lengthAt] == s_basicLength;
}

void GenericUmid::makeText() {
    std::memcpy(m_text, s_prefix, s_prefixLength);
    formatHex(m_bytes.data(), m_bytes.size(), m_text + s_prefixLength);
}
