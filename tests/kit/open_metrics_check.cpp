#include "tests/kit/open_metrics_check.h"

#include <map>
#include <regex>
#include <set>

namespace kit {

namespace {

const char* endingOf(const std::string& type) {
    static const std::map<std::string, const char*> endings = {{"counter", "_total"}, {"gauge", ""}, {"info", "_info"}};
    const auto found = endings.find(type);
    return found != endings.end() ? found->second : nullptr;
}

class Checker {
public:
    std::string check(const std::string& text) {
        static const std::string end = "# EOF\n";
        if (text.size() < end.size() || text.substr(text.size() - end.size()) != end) return "no end mark";
        std::size_t begin = 0;
        while (begin < text.size() - end.size()) {
            const std::size_t next = text.find('\n', begin);
            const std::string line = text.substr(begin, next - begin);
            const std::string finding = line[0] == '#' ? checkDescriptor(line) : checkSample(line);
            if (!finding.empty()) return finding + ": " + line;
            begin = next + 1;
        }
        return isEmpty() ? "a family without samples" : "";
    }

private:
    bool isEmpty() const { return !m_family.empty() && m_samples == 0; }

    std::string checkDescriptor(const std::string& line) {
        static const std::regex type("# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) ([a-z]+)");
        static const std::regex help("# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) ((?:[^\\\\\"]|\\\\[n\\\\\"])*)");
        std::smatch parts;
        if (std::regex_match(line, parts, help))
            return parts[1] != m_family || m_samples != 0 || m_hasHelp++ != 0 ? "a help that isn't its family's" : "";
        if (!std::regex_match(line, parts, type)) return "neither a type nor a help";
        if (isEmpty()) return "behind a family without samples";
        m_family = parts[1];
        m_samples = 0;
        m_hasHelp = 0;
        if (endingOf(parts[2]) == nullptr) return "an unknown type";
        m_sampleName = m_family + endingOf(parts[2]);
        for (const char* ending : {"_total", "_info", "_created", "_bucket", "_count", "_sum"}) {
            if (m_family.ends_with(ending)) return "a family with the ending of a sample";
        }
        return m_families.insert(m_family).second ? "" : "a family that has been there";
    }

    std::string checkSample(const std::string& line) {
        static const std::regex sample(
            "([a-zA-Z_:][a-zA-Z0-9_:]*)(\\{[a-zA-Z_][a-zA-Z0-9_]*=\"(?:[^\\\\\"]|\\\\[n\\\\\"])*\"\\})? ([0-9]+)");
        std::smatch parts;
        if (!std::regex_match(line, parts, sample)) return "no sample";
        if (m_family.empty() || parts[1] != m_sampleName) return "a sample of no family, or of another one";
        if (m_hasHelp == 0) return "a sample without help";
        ++m_samples;
        return m_seen.insert(parts[1].str() + parts[2].str()).second ? "" : "a sample that comes twice";
    }

    std::string m_family, m_sampleName;
    unsigned m_samples = 0, m_hasHelp = 0;
    std::set<std::string> m_families, m_seen;
};

}  // namespace

std::string checkOpenMetrics(const std::string& text) { return Checker().check(text); }

}  // namespace kit
