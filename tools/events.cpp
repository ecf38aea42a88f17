#include "tools/events.h"

bool Events::add(const Json& event, const std::string& text) {
    if (m_output.options().m_lines) {
        Json line{{"schemaVersion", s_schemaVersion}};
        line.update(event);
        return m_output.print(textOf(line) + "\n");
    }
    if (m_output.options().wantsDocument()) {
        m_list.push_back(event);
        return true;
    }
    return text.empty() || m_output.print(text + "\n");
}
