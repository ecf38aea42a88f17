#include "services/system/open_metrics.h"

namespace {

struct TypeText {
    const char* m_name;
    const char* m_ending;  // of the samples' names
};

TypeText textOf(OpenMetrics::Type type) {
    switch (type) {
        case OpenMetrics::Type::Counter:
            return {"counter", "_total"};
        case OpenMetrics::Type::Gauge:
            return {"gauge", ""};
        case OpenMetrics::Type::Info:
            break;
    }
    return {"info", "_info"};
}

}  // namespace

OpenMetrics& OpenMetrics::family(std::string_view name, Type type, std::string_view help) {
    const TypeText text = textOf(type);
    m_sampleName.assign(name).append(text.m_ending);
    m_text.append("# TYPE ").append(name).append(" ").append(text.m_name).append("\n");
    m_text.append("# HELP ").append(name).append(" ");
    escape(help);
    m_text.append("\n");
    return *this;
}

OpenMetrics& OpenMetrics::sample(std::string_view label, std::string_view text, std::uint64_t value) {
    m_text.append(m_sampleName);
    if (!label.empty()) {
        m_text.append("{").append(label).append("=\"");
        escape(text);
        m_text.append("\"}");
    }
    m_text.append(" ").append(std::to_string(value)).append("\n");
    return *this;
}

void OpenMetrics::escape(std::string_view text) {
    for (const char c : text) {
        if (c == '\n') {
            m_text.append("\\n");
            continue;
        }
        if (c == '\\' || c == '"') m_text.push_back('\\');
        m_text.push_back(c);
    }
}
