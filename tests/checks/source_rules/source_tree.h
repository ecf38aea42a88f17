#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace source_rules {

// One #include line.
struct Include {
    std::string target;  // as written between the marks
    bool angled = false;
    int line = 0;  // 1-based
};

// A source or header of the tree.
struct SourceFile {
    std::string path;               // from the tree's root, with "/" between the elements
    std::vector<std::string> raw;   // the lines as they stand
    std::vector<std::string> code;  // the same with comments and the insides of literals blanked out
    std::vector<Include> includes;
};

// What a rule found wrong, and where.
struct Finding {
    std::string path;
    int line = 0;
    std::string what;
};

// Blanks out comments and the insides of string and character literals, raw strings included; lines stay lines.
std::string stripCommentsAndLiterals(const std::string& text);

// Reads one file's text as a member of the tree.
SourceFile parseSource(const std::string& path, const std::string& text);

// Every source and header of the project's folders below root, in order of their paths.
std::vector<SourceFile> readTree(const std::filesystem::path& root);

}  // namespace source_rules
