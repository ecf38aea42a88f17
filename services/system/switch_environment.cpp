#include "services/system/switch_environment.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "services/system/format_str.h"
#include "services/system/log.h"
#include "services/system/switch_bank.h"

namespace {

constexpr const char* s_variable = "MEDIACORE_SWITCHES";
constexpr unsigned s_maxEntries = 64;

constinit std::atomic<std::uint64_t> s_claimed{
    0};  // a bit for each entry of the environment whose switch has been constructed
constinit std::atomic<bool> s_reported{false};

std::string_view trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Goes through the entries of a text such as "a=1,b=2".
class Entries {
public:
    explicit Entries(const char* text) : m_rest(text != nullptr ? text : "") {}

    // Steps to the next entry that isn't blank.
    bool next() {
        do {
            if (m_rest.empty()) return false;
            const std::size_t comma = m_rest.find(',');
            m_entry = trim(m_rest.substr(0, comma));
            m_rest = comma == std::string_view::npos ? std::string_view() : m_rest.substr(comma + 1);
        } while (m_entry.empty());
        ++m_count;
        return true;
    }

    std::string_view getEntry() const { return m_entry; }
    bool isAssignment() const { return m_entry.find('=') != std::string_view::npos; }
    std::string_view getName() const { return trim(m_entry.substr(0, m_entry.find('='))); }
    std::string_view getValue() const {
        return isAssignment() ? trim(m_entry.substr(m_entry.find('=') + 1)) : std::string_view();
    }
    // The entry's bit; the last ones of very many have none.
    std::uint64_t getMask() const { return m_count <= s_maxEntries ? std::uint64_t{1} << (m_count - 1) : 0; }

private:
    std::string_view m_rest;
    std::string_view m_entry;
    unsigned m_count = 0;  // of the entries stepped to so far
};

int width(std::string_view text) { return static_cast<int>(text.size() < 80 ? text.size() : 80); }

// Gives: a bit for each entry that was the switch's.
std::uint64_t applyEntries(DebuggerOn& item, const char* settings) {
    std::uint64_t claimed = 0;
    for (Entries entries(settings); entries.next();) {
        if (!entries.isAssignment() || entries.getName() != item.getName()) continue;
        claimed |= entries.getMask();
        FormatStr reason(128u);
        unsigned value = 0;
        if (SwitchBank::parse(item, std::string(entries.getValue()).c_str(), value, reason)) {
            item.set(value);
        } else {
            warningMsg("%s: %s\n", s_variable, reason.get());
        }
    }
    return claimed;
}

void reportEntry(const Entries& entries) {
    const std::string_view text = entries.isAssignment() ? entries.getName() : entries.getEntry();
    warningMsg(
        entries.isAssignment() ? "%s: no switch is named \"%.*s\"\n" : "%s: \"%.*s\" isn't of the form name=value\n",
        s_variable, width(text), text.data());
}

// The last chance to tell of a name that nobody claimed.
struct AtExit {
    ~AtExit() { SwitchEnvironment::reportUnknown(); }
};
AtExit s_atExit;

}  // namespace

void SwitchEnvironment::apply(DebuggerOn& item) {
    const char* const settings = std::getenv(s_variable);
    if (settings != nullptr) s_claimed.fetch_or(applyEntries(item, settings), std::memory_order_relaxed);
}

void SwitchEnvironment::apply(DebuggerOn& item, const char* settings) { applyEntries(item, settings); }

void SwitchEnvironment::reportUnknown() {
    if (s_reported.exchange(true)) return;
    const std::uint64_t claimed = s_claimed.load(std::memory_order_relaxed);
    for (Entries entries(std::getenv(s_variable)); entries.next();) {
        if (entries.getMask() != 0 && (claimed & entries.getMask()) == 0) reportEntry(entries);
    }
}

unsigned SwitchEnvironment::reportUnknown(const char* settings) {
    unsigned bad = 0;
    for (Entries entries(settings); entries.next();) {
        const std::string name(entries.getName());
        const bool known = SwitchBank::visit(
            name.c_str(), [](DebuggerOn&, void*) {}, nullptr);
        if (entries.isAssignment() && known) continue;
        reportEntry(entries);
        ++bad;
    }
    return bad;
}
