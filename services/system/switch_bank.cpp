#include "services/system/switch_bank.h"

#include <charconv>
#include <cstring>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

// The list and its lock are ready before any constructor runs: switches are constructed in every file's static
// initialisation.
namespace {

constinit std::mutex s_lock;
constinit DebuggerOn* s_first = nullptr;

std::string_view trim(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// A list is one of names, also when its first begins with a digit.
bool isNumber(std::string_view text) {
    return !text.empty() && text[0] >= '0' && text[0] <= '9' && text.find('|') == std::string_view::npos;
}

enum class NumberError { None, NotANumber, TooLarge };

NumberError parseNumber(std::string_view text, unsigned& value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (hex) text.remove_prefix(2);
    const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (end.ec == std::errc::result_out_of_range) return NumberError::TooLarge;
    return end.ec == std::errc() && end.ptr == text.data() + text.size() ? NumberError::None : NumberError::NotANumber;
}

int width(std::string_view text) { return static_cast<int>(text.size() < 80 ? text.size() : 80); }

bool refuseNumber(NumberError error, const DebuggerOn& item, std::string_view text, FormatStr& reason) {
    reason.format(error == NumberError::TooLarge ? "%s: \"%.*s\" doesn't fit 32 bits"
                                                 : "%s: \"%.*s\" isn't a number (decimal, or hexadecimal behind 0x)",
                  item.getName(), width(text), text.data());
    return false;
}

bool findBit(const DebuggerOn& item, std::string_view name, unsigned& bit) {
    for (unsigned i = 0; i < item.getBitCount(); ++i) {
        const char* const known = item.getBitName(i);
        if (known == nullptr || name != known) continue;
        bit = i;
        return true;
    }
    return false;
}

bool parseBitNames(const DebuggerOn& item, std::string_view text, unsigned& value, FormatStr& reason) {
    unsigned bits = 0;
    for (;;) {
        const std::size_t bar = text.find('|');
        const std::string_view name = trim(text.substr(0, bar));
        unsigned bit = 0;
        if (!findBit(item, name, bit)) {
            reason.format("%s has no bit named \"%.*s\"", item.getName(), width(name), name.data());
            return false;
        }
        bits |= 1u << bit;
        if (bar == std::string_view::npos) break;
        text.remove_prefix(bar + 1);
    }
    value = bits;
    return true;
}

bool parseBitNumber(const DebuggerOn& item, std::string_view text, unsigned& bits, FormatStr& reason) {
    unsigned bit = 0;
    const NumberError error = parseNumber(text, bit);
    if (error != NumberError::None) return refuseNumber(error, item, text, reason);
    const unsigned limit = item.getBitCount() != 0 ? item.getBitCount() : DebuggerOn::s_maxBits;
    if (bit >= limit) {
        reason.format("%s has no bit %u: its bits are 0 to %u", item.getName(), bit, limit - 1);
        return false;
    }
    bits = 1u << bit;
    return true;
}

struct Change {
    const char* m_text;
    bool m_on;
    FormatStr& m_reason;
    bool m_done = false;
};

void setValue(DebuggerOn& item, void* context) {
    Change& change = *static_cast<Change*>(context);
    unsigned value = 0;
    change.m_done = SwitchBank::parse(item, change.m_text, value, change.m_reason);
    if (change.m_done) item.setFromOutside(value);
}

void changeBits(DebuggerOn& item, void* context) {
    Change& change = *static_cast<Change*>(context);
    const std::string_view text = trim(change.m_text != nullptr ? change.m_text : "");
    unsigned bits = 0;
    unsigned known = 0;
    const bool byName = !isNumber(text) || findBit(item, text, known);
    change.m_done =
        byName ? parseBitNames(item, text, bits, change.m_reason) : parseBitNumber(item, text, bits, change.m_reason);
    if (change.m_done) item.changeBitsFromOutside(change.m_on ? bits : 0, change.m_on ? 0 : bits);
}

bool changeByName(const char* name, SwitchBank::Visitor visitor, Change& change) {
    if (SwitchBank::visit(name, visitor, &change)) return change.m_done;
    change.m_reason.format("no switch is named \"%.80s\"", name != nullptr ? name : "");
    return false;
}

}  // namespace

void SwitchBank::add(DebuggerOn& item) {
    const std::lock_guard<std::mutex> guard(s_lock);
    DebuggerOn** place = &s_first;
    while (*place != nullptr) {
        place = &(*place)->m_next;
    }
    *place = &item;
}

void SwitchBank::remove(DebuggerOn& item) {
    {
        const std::lock_guard<std::mutex> guard(s_lock);
        DebuggerOn** place = &s_first;
        while (*place != nullptr && *place != &item) {
            place = &(*place)->m_next;
        }
        if (*place == &item) *place = item.m_next;
    }
    while (item.m_users.load(std::memory_order_acquire) != 0) {
        std::this_thread::yield();
    }
}

void SwitchBank::visit(Visitor visitor, void* context) {
    std::vector<DebuggerOn*> items;
    {
        const std::lock_guard<std::mutex> guard(s_lock);
        for (DebuggerOn* item = s_first; item != nullptr; item = item->m_next) {
            item->m_users.fetch_add(1, std::memory_order_relaxed);
            items.push_back(item);
        }
    }
    for (DebuggerOn* item : items) {
        visitor(*item, context);
        item->m_users.fetch_sub(1, std::memory_order_release);
    }
}

bool SwitchBank::visit(const char* name, Visitor visitor, void* context) {
    DebuggerOn* found = nullptr;
    {
        const std::lock_guard<std::mutex> guard(s_lock);
        for (DebuggerOn* item = s_first; item != nullptr && name != nullptr && found == nullptr; item = item->m_next) {
            if (std::strcmp(item->m_name, name) == 0) found = item;
        }
        if (found != nullptr) found->m_users.fetch_add(1, std::memory_order_relaxed);
    }
    if (found == nullptr) return false;
    visitor(*found, context);
    found->m_users.fetch_sub(1, std::memory_order_release);
    return true;
}

bool SwitchBank::set(const char* name, const char* value, FormatStr& reason) {
    Change change{value, true, reason};
    return changeByName(name, &setValue, change);
}

bool SwitchBank::setBits(const char* name, const char* bits, bool on, FormatStr& reason) {
    Change change{bits, on, reason};
    return changeByName(name, &changeBits, change);
}

bool SwitchBank::parse(const DebuggerOn& item, const char* text, unsigned& value, FormatStr& reason) {
    const std::string_view given = trim(text != nullptr ? text : "");
    if (given.empty()) {
        reason.format("%s: the value is empty", item.getName());
        return false;
    }
    unsigned bit = 0;
    if (item.isBitField() && (!isNumber(given) || findBit(item, given, bit)))
        return parseBitNames(item, given, value, reason);
    unsigned number = 0;
    const NumberError error = parseNumber(given, number);
    if (error != NumberError::None) return refuseNumber(error, item, given, reason);
    const unsigned count = item.getBitCount();
    if (item.isBitField() && count != 0 && count < DebuggerOn::s_maxBits && (number >> count) != 0) {
        reason.format("%s: \"%.*s\" sets bits above the last, which is %u", item.getName(), width(given), given.data(),
                      count - 1);
        return false;
    }
    value = number;
    return true;
}
