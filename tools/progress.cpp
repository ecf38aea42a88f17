#include "tools/progress.h"

#include <unistd.h>

#include <algorithm>

#include "tools/output.h"

namespace {

ProgressKind chosen(ProgressKind kind, bool quiet) {
    if (quiet) return ProgressKind::None;
    if (kind != ProgressKind::Auto) return kind;
    return Progress::hasTerminal() ? ProgressKind::Bar : ProgressKind::Plain;
}

std::chrono::milliseconds intervalOf(ProgressKind kind) {
    return std::chrono::milliseconds(kind == ProgressKind::Bar ? 200 : 10000);
}

void put(const std::string& text) { static_cast<void>(writeAll(STDERR_FILENO, text.data(), text.size())); }

std::string megabytes(double bytes) { return std::to_string(static_cast<unsigned long long>(bytes / 1e6)) + " MB"; }

}  // namespace

Progress::Progress(ProgressKind kind, bool quiet, unsigned long long totalBytes)
    : m_kind(chosen(kind, quiet)), m_total(totalBytes), m_start(Clock::now()), m_next(m_start + intervalOf(m_kind)) {}

bool Progress::hasTerminal() { return ::isatty(STDERR_FILENO) == 1; }

Progress::~Progress() {
    if (m_shown && m_kind == ProgressKind::Bar) put("\n");
    if (m_kind == ProgressKind::Json) show(Clock::now());
}

void Progress::update(unsigned long long bytes) {
    m_bytes = bytes;
    if (m_kind == ProgressKind::None) return;
    const Clock::time_point now = Clock::now();
    if (now < m_next) return;
    m_next = now + intervalOf(m_kind);
    m_shown = true;
    show(now);
}

void Progress::show(Clock::time_point now) const {
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    if (m_kind == ProgressKind::Json) {
        put(textOf(Json{
                {"schemaVersion", s_schemaVersion}, {"bytes", m_bytes}, {"total", m_total}, {"seconds", seconds}}) +
            "\n");
        return;
    }
    const auto bytes = static_cast<double>(m_bytes);
    // A total that isn't known is neither told nor drawn.
    const std::string whole = m_total != 0 ? " of " + megabytes(static_cast<double>(m_total)) : "";
    const std::string text = megabytes(bytes) + whole + ", " + megabytes(bytes / seconds) + "/s";
    const std::string drawn = m_total != 0 ? bar() + " " : "";
    put(m_kind == ProgressKind::Bar ? "\r" + drawn + text + "\033[K" : "mediacore: " + text + "\n");
}

std::string Progress::bar() const {
    constexpr unsigned width = 30;
    const double part = m_total == 0 ? 1 : static_cast<double>(m_bytes) / static_cast<double>(m_total);
    const unsigned full = std::min(width, static_cast<unsigned>(part * width));
    return "[" + std::string(full, '#') + std::string(width - full, '.') + "]";
}
