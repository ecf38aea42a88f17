#include "tests/checks/source_rules/stand_in_rule.h"

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <string_view>

namespace source_rules {

namespace {

constexpr std::string_view s_movie = "shared/include/object/media_obj.h";
constexpr std::string_view s_standIn = "neighbours/tl_media_obj.h";

const SourceFile* findFile(const std::vector<SourceFile>& tree, std::string_view path) {
    const auto found =
        std::find_if(tree.begin(), tree.end(), [&](const SourceFile& file) { return file.path == path; });
    return found != tree.end() ? &*found : nullptr;
}

// How often each name is declared in a statement that the pattern finds; the name is its first group. `lines` gets the
// 1-based line of each name's last declaration.
std::map<std::string, int> countNames(const SourceFile& file, const std::regex& pattern,
                                      std::map<std::string, int>& lines) {
    std::string text;
    for (const std::string& line : file.code) {
        text += line + '\n';
    }
    std::map<std::string, int> counts;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        const std::string name = match->str(1);
        ++counts[name];
        lines[name] = 1 + static_cast<int>(std::count(text.begin(), text.begin() + match->position(1), '\n'));
    }
    return counts;
}

}  // namespace

std::vector<Finding> checkStandIn(const std::vector<SourceFile>& tree) {
    static const std::regex declared(R"(\bvirtual\s[^;{}()~]*?\b(\w+)\s*\()");
    static const std::regex passedOn(R"(\b(\w+)\s*\([^;{}()]*\)\s*(?:const\s+)?override\s*;)");
    const SourceFile* movie = findFile(tree, s_movie);
    const SourceFile* standIn = findFile(tree, s_standIn);
    if (movie == nullptr || standIn == nullptr) {
        return {{std::string(movie == nullptr ? s_movie : s_standIn), 0, "is not in the tree"}};
    }
    std::map<std::string, int> lines, unused;
    const std::map<std::string, int> wanted = countNames(*movie, declared, lines);
    std::map<std::string, int> have = countNames(*standIn, passedOn, unused);
    std::vector<Finding> findings;
    for (const auto& [name, count] : wanted) {
        if (have[name] < count) {
            findings.push_back({movie->path, lines[name],
                                name + ": declared " + std::to_string(count) + " times, passed on " +
                                    std::to_string(have[name]) + " times in " + std::string(s_standIn)});
        }
    }
    return findings;
}

}  // namespace source_rules
