#include "tests/checks/source_rules/source_tree.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <sstream>

namespace source_rules {

namespace {

constexpr std::array s_folders = {"support",  "services", "shared",   "neighbours", "mediautil",
                                  "backends", "tools",    "examples", "tests",      "bench"};

bool isSource(const std::filesystem::path& path) {
    const std::string suffix = path.extension();
    return suffix == ".h" || suffix == ".cpp" || path.filename() == "mediaobj";
}

// Copies text while blanking what is no code.
class Stripper {
public:
    explicit Stripper(const std::string& text) : m_text(text) {}

    std::string run() {
        while (m_at < m_text.size()) {
            step();
        }
        return std::move(m_out);
    }

private:
    bool sees(const char* mark) const { return m_text.compare(m_at, std::char_traits<char>::length(mark), mark) == 0; }

    void keep() { m_out += m_text[m_at++]; }

    void blank() {
        m_out += m_text[m_at] == '\n' ? '\n' : ' ';
        ++m_at;
    }

    void step() {
        if (sees("//")) {
            blankUntil("\n", false);
        } else if (sees("/*")) {
            blankUntil("*/", true);
        } else if (sees("R\"")) {
            rawString();
        } else if (m_text[m_at] == '"') {
            literal('"');
        } else if (m_text[m_at] == '\'' && !insideNumber()) {
            literal('\'');
        } else {
            keep();
        }
    }

    // 1'000'000 has separators and no character literals.
    bool insideNumber() const { return m_at > 0 && std::isalnum(static_cast<unsigned char>(m_text[m_at - 1])) != 0; }

    void blankUntil(const char* mark, bool markToo) {
        const std::size_t found = m_text.find(mark, m_at);
        std::size_t end = found == std::string::npos ? m_text.size() : found;
        if (markToo && found != std::string::npos) {
            end += std::char_traits<char>::length(mark);
        }
        while (m_at < end) {
            blank();
        }
    }

    void literal(char mark) {
        keep();
        while (m_at < m_text.size() && m_text[m_at] != mark && m_text[m_at] != '\n') {
            if (m_text[m_at] == '\\' && m_at + 1 < m_text.size()) {
                blank();
            }
            blank();
        }
        if (m_at < m_text.size()) {
            keep();
        }
    }

    void rawString() {
        const std::size_t open = m_text.find('(', m_at);
        if (open == std::string::npos) {
            keep();
            return;
        }
        const std::string close = ")" + m_text.substr(m_at + 2, open - m_at - 2) + "\"";
        blankUntil(close.c_str(), true);
    }

    const std::string& m_text;
    std::size_t m_at = 0;
    std::string m_out;
};

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

std::string stripCommentsAndLiterals(const std::string& text) { return Stripper(text).run(); }

SourceFile parseSource(const std::string& path, const std::string& text) {
    static const std::regex directive(R"(^\s*#\s*include\s*(?:"([^"]+)\"|<([^>]+)>))");
    SourceFile file{path, splitLines(text), splitLines(stripCommentsAndLiterals(text)), {}};
    for (std::size_t i = 0; i < file.raw.size() && i < file.code.size(); ++i) {
        std::smatch match;
        // The stripped line says that the directive is code, the raw one still has the name.
        if (file.code[i].find('#') != std::string::npos && std::regex_search(file.raw[i], match, directive)) {
            const bool angled = match[2].matched;
            file.includes.push_back({angled ? match[2].str() : match[1].str(), angled, static_cast<int>(i) + 1});
        }
    }
    return file;
}

std::vector<SourceFile> readTree(const std::filesystem::path& root) {
    std::vector<SourceFile> files;
    for (const char* folder : s_folders) {
        if (!std::filesystem::is_directory(root / folder)) {
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            if (entry.is_regular_file() && isSource(entry.path())) {
                std::ifstream stream(entry.path(), std::ios::binary);
                std::ostringstream text;
                text << stream.rdbuf();
                files.push_back(
                    parseSource(std::filesystem::relative(entry.path(), root).generic_string(), text.str()));
            }
        }
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return files;
}

}  // namespace source_rules
