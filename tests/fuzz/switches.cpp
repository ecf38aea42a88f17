#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "services/system/debugger_on.h"
#include "services/system/log.h"
#include "services/system/switch_bank.h"
#include "services/system/switch_environment.h"
#include "tests/fuzz/fuzz_input.h"

// The texts by which an operator sets switches and the log: an environment's
// list of assignments, a value, bits by their names. Beside the switches stands
// the rule said once more.

namespace {

using fuzz::require;

// Every line of the log is one line, however wild the text that it quotes.
class LineChecker : public LogSink {
public:
    void write(const LogMessage& message) override {
        require(std::strlen(message.m_text) == message.m_length && message.m_length != 0);
        for (std::size_t i = 0; i < message.m_length; ++i) {
            const auto c = static_cast<unsigned char>(message.m_text[i]);
            require((c >= 0x20 && c != 0x7F) || c == '\t');
        }
        ++m_lines;
    }

    unsigned m_lines = 0;
};

constexpr unsigned s_bitCount = 3;
constexpr const char* s_bitNames[s_bitCount] = {"red", "deep green", "7"};

DebuggerOn s_bits("fuzzBits", s_bitCount, s_bitNames[0], s_bitNames[1], s_bitNames[2]);
DebuggerOn s_number("fuzzNumber", 5u, DebuggerTypes::Init::Value);

std::string trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string> split(const std::string& text, char by) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(by, at), text.size());
        parts.push_back(trim(text.substr(at, end - at)));
        at = end + 1;
    }
    return parts;
}

std::optional<unsigned> plainNumber(const std::string& text) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const char* const known = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.find_first_not_of(known) != std::string::npos) return {};
    const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size() - 1);
    if (digits.size() - first > 10) return {};
    const unsigned long long value = std::stoull(digits, nullptr, hex ? 16 : 10);
    return value > 0xFFFFFFFFu ? std::nullopt : std::optional<unsigned>(static_cast<unsigned>(value));
}

std::optional<unsigned> plainBits(const std::string& text) {
    unsigned bits = 0;
    for (const std::string& name : split(text, '|')) {
        const auto found = std::find(std::begin(s_bitNames), std::end(s_bitNames), name);
        if (found == std::end(s_bitNames)) return {};
        bits |= 1u << (found - std::begin(s_bitNames));
    }
    return bits;
}

// What the text sets the switch of bits to; a name that is a number goes first.
std::optional<unsigned> plainBitValue(const std::string& text) {
    if (const std::optional<unsigned> bits = plainBits(text)) return bits;
    const std::optional<unsigned> number = plainNumber(text);
    return number && *number >> s_bitCount == 0 ? number : std::nullopt;
}

void checkEnvironment(const std::string& text, LineChecker& log) {
    unsigned bits = 2, number = 5, bad = 0, wrongValues = 0;
    for (const std::string& entry : split(text, ',')) {
        if (entry.empty()) continue;
        const std::size_t equals = entry.find('=');
        const std::string name = trim(entry.substr(0, equals));
        const bool assigns = equals != std::string::npos;
        const std::string value = assigns ? trim(entry.substr(equals + 1)) : "";
        const bool known = SwitchBank::visit(
            name.c_str(), [](DebuggerOn&, void*) {}, nullptr);
        if (!assigns || !known) ++bad;
        if (!assigns || (name != s_bits.getName() && name != s_number.getName())) continue;
        const bool isBits = name == s_bits.getName();
        const std::optional<unsigned> given = isBits ? plainBitValue(value) : plainNumber(value);
        if (given) (isBits ? bits : number) = *given;
        wrongValues += given ? 0 : 1;
    }
    s_bits.set(2);
    s_number.set(5);
    SwitchEnvironment::apply(s_bits, text.c_str());
    SwitchEnvironment::apply(s_number, text.c_str());
    require(s_bits.get() == bits && s_number.get() == number && log.m_lines == wrongValues);
    require(SwitchEnvironment::reportUnknown(text.c_str()) == bad && log.m_lines == wrongValues + bad);
}

void checkSet(const std::string& text) {
    FormatStr reason(0u);
    const std::optional<unsigned> bits = plainBitValue(trim(text));
    require(SwitchBank::set(s_bits.getName(), text.c_str(), reason) == bits.has_value());
    require(reason.empty() == bits.has_value());
    if (bits) require(s_bits.get() == *bits);
}

// A number stands for one bit here.
void checkSetBits(const std::string& text) {
    std::optional<unsigned> bits = plainBits(trim(text));
    const std::optional<unsigned> number = plainNumber(trim(text));
    if (!bits && number && *number < s_bitCount) bits = 1u << *number;
    FormatStr reason(0u);
    s_bits.set(5);
    require(SwitchBank::setBits(s_bits.getName(), text.c_str(), false, reason) == bits.has_value());
    require(reason.empty() == bits.has_value());
    require(s_bits.get() == (5u & ~bits.value_or(0)));
    FormatStr again(0u);
    require(SwitchBank::setBits(s_bits.getName(), text.c_str(), true, again) == bits.has_value());
    require(s_bits.get() == (5u | bits.value_or(0)));
}

// The log's own settings are put back, whatever they were set to.
void checkLogSettings(const std::string& text, const LineChecker& log) {
    const LogLevel level = getLogLevel();
    const LogDestination destination = getLogDestination();
    const unsigned lines = log.m_lines;
    const bool done = applyLogSettings(text.c_str());
    require(done || (getLogLevel() == level && getLogDestination() == destination && log.m_lines == lines + 1));
    setLogLevel(level);
    setLogDestination(destination);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).text();
    LineChecker log;
    LogSink* const before = setLogSink(&log);
    checkEnvironment(text, log);
    checkSet(text);
    checkSetBits(text);
    checkLogSettings(text, log);
    setLogSink(before);
    return 0;
}
