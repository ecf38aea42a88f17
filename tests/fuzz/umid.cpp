#include <strings.h>

#include <cctype>
#include <cstring>
#include <vector>

#include "services/metadata/generic_umid.h"
#include "tests/fuzz/fuzz_input.h"

// Texts and bytes of identifiers, against the rule said once more: what is left
// of the text when its prefix and what stands between bytes are gone.

namespace {

using fuzz::require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t s_size = 32;
constexpr char s_prefix[] = "urn:smpte:umid:";

// The digits of the text; empty when something else is among them.
std::string digitsOf(std::string text) {
    const std::size_t prefix = sizeof(s_prefix) - 1;
    if (strncasecmp(text.c_str(), s_prefix, prefix) == 0) {
        text.erase(0, prefix);
    } else if (strncasecmp(text.c_str(), "0x", 2) == 0) {
        text.erase(0, 2);
    }
    std::string digits;
    for (const char c : text) {
        const bool digit = std::isxdigit(static_cast<unsigned char>(c)) != 0;
        if (!digit && (digits.empty() || digits.size() % 2 != 0 || (c != '.' && c != '-'))) return "";
        if (digit) digits += c;
    }
    return digits;
}

Bytes bytesOf(const std::string& digits) {
    Bytes bytes;
    if (digits.size() != 2 * s_size) return bytes;
    for (std::size_t i = 0; i < s_size; ++i)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16)));
    return bytes;
}

bool isBasic(const Bytes& bytes) {
    static constexpr std::uint8_t label[] = {0x06, 0x0A, 0x2B, 0x34};
    return bytes.size() == s_size && std::equal(std::begin(label), std::end(label), bytes.begin()) && bytes[12] == 0x13;
}

bool hasBytes(const GenericUmid& umid, const Bytes& bytes) {
    return std::equal(bytes.begin(), bytes.end(), umid.getBytes().begin(), umid.getBytes().end());
}

// The text is canonical, and reads back in every form that is understood.
void checkText(const GenericUmid& umid, const Bytes& bytes) {
    const std::string text = umid.getStringValue();
    require(text.size() == 15 + 64 + 7 && text.rfind(s_prefix, 0) == 0);
    std::string digits = digitsOf(text);
    require(bytesOf(digits) == bytes);
    std::string lower = text;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const std::string& form : {text, lower, digits, "0X" + digits}) {
        const AutoPtr<GenericUmid> again = GenericUmid::createFromString(form.c_str());
        require(again.get() != nullptr && again->getStringValue() == text);
    }
}

void checkUmid(GenericUmid& umid, Bytes bytes) {
    require(hasBytes(umid, bytes));
    checkText(umid, bytes);
    const char* const address = umid.getStringValue();
    umid.resetInstance();
    std::fill_n(bytes.begin() + 13, 3, std::uint8_t{0});
    require(umid.getStringValue() == address && hasBytes(umid, bytes));
    checkText(umid, bytes);
}

void check(const AutoPtr<GenericUmid>& umid, const Bytes& expected) {
    require((umid.get() != nullptr) == isBasic(expected));
    if (umid.get() != nullptr) checkUmid(*umid, expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).text();
    check(GenericUmid::createFromString(text.c_str()), bytesOf(digitsOf(text)));
    if (size >= s_size) check(GenericUmid::createFromBytes(data), Bytes(data, data + s_size));
    return 0;
}
