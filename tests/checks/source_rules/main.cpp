// check_sources RULE ROOT: holds the tree at ROOT against one rule (layers, files, waits, exceptions or stand_in) and
// prints what breaks it as FILE:LINE: WHAT. Exit 0 says that nothing does, 1 that something does, 2 that the call is
// wrong.

#include "tests/checks/source_rules/include_rules.h"
#include "tests/checks/source_rules/stand_in_rule.h"
#include "tests/checks/source_rules/word_rules.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {

using Rule = std::vector<source_rules::Finding> (*)(const std::vector<source_rules::SourceFile>&);

const std::map<std::string, Rule> s_rules = {
    {"layers", source_rules::checkLayers},    {"files", source_rules::checkFileCalls},
    {"waits", source_rules::checkWaits},      {"exceptions", source_rules::checkExceptions},
    {"stand_in", source_rules::checkStandIn},
};

}  // namespace

int main(int argc, char** argv) {
    const auto rule = argc == 3 ? s_rules.find(argv[1]) : s_rules.end();
    if (rule == s_rules.end()) {
        std::fprintf(stderr, "usage: check_sources layers|files|waits|exceptions|stand_in ROOT\n");
        return 2;
    }
    const auto tree = source_rules::readTree(argv[2]);
    if (tree.empty()) {
        std::fprintf(stderr, "check_sources: no sources below %s\n", argv[2]);
        return 2;
    }
    const auto findings = rule->second(tree);
    for (const auto& finding : findings) {
        std::printf("%s:%d: %s\n", finding.path.c_str(), finding.line, finding.what.c_str());
    }
    std::printf("%s: %zu files, %zu findings\n", argv[1], tree.size(), findings.size());
    return findings.empty() ? 0 : 1;
}
