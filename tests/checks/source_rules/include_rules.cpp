#include "tests/checks/source_rules/include_rules.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace source_rules {

namespace {

struct Room {
    std::string_view name;
    std::string_view prefix;  // of its files' paths
    std::string_view above;   // the rooms, each followed by a space, whose headers it may include; "*" is all
    bool standardOnly;        // nothing in angle brackets but the C++ standard library
};

constexpr std::array s_rooms = {
    Room{"support", "support/", "support ", true},
    Room{"services", "services/", "support services ", false},
    Room{"shared/include", "shared/include/", "support services shared/include ", true},
    Room{"neighbours", "neighbours/", "support services shared/include neighbours ", true},
    Room{"mediautil", "mediautil/", "support services shared/include neighbours mediautil ", true},
    Room{"backends", "backends/", "support services shared/include backends ", true},
    Room{"tools", "tools/", "support services shared/include tools ", false},
    Room{"examples", "examples/", "support services shared/include examples ", false},
    Room{"tests", "tests/", "*", false},
    Room{"bench", "bench/", "*", false},
};

const Room* roomOf(std::string_view path) {
    for (const Room& room : s_rooms) {
        if (path.starts_with(room.prefix)) {
            return &room;
        }
    }
    return nullptr;
}

bool mayInclude(const Room& from, const Room& to) {
    return from.above == "*" || from.above.find(std::string(to.name) + " ") != std::string_view::npos;
}

bool insideLibrary(const Room& room) {
    return room.name != "tools" && room.name != "examples" && room.name != "tests" && room.name != "bench";
}

// A test or a measurement may name what stands beside it without the way from the root.
bool maySeeNeighbours(const Room& room) { return room.name == "tests" || room.name == "bench"; }

// "wav" of "backends/wav/x.h"; empty for a file that stands right in the room.
std::string shelfOf(std::string_view path, std::string_view room) {
    const std::string_view rest = path.substr(room.size() + 1);
    const std::size_t slash = rest.find('/');
    return slash == std::string_view::npos ? std::string() : std::string(rest.substr(0, slash));
}

// The standard library's headers have neither a folder nor a suffix.
bool isStandardHeader(const std::string& name) {
    return name.find_first_of("./") == std::string::npos && name != "mediaobj";
}

class LayerCheck {
public:
    explicit LayerCheck(const std::vector<SourceFile>& tree) : m_tree(tree) {
        for (const SourceFile& file : tree) {
            m_byPath[file.path] = &file;
        }
    }

    std::vector<Finding> run() {
        for (const SourceFile& file : m_tree) {
            if (const Room* room = roomOf(file.path)) {
                for (const Include& include : file.includes) {
                    checkInclude(file, *room, include);
                }
            }
        }
        for (const SourceFile& file : m_tree) {
            findCircles(file);
        }
        return std::move(m_findings);
    }

private:
    void report(const SourceFile& file, const Include& include, const std::string& what) {
        m_findings.push_back({file.path, include.line, what});
    }

    void checkInclude(const SourceFile& file, const Room& from, const Include& include) {
        if (insideLibrary(from) && (include.target == "mediaobj" || include.target == "shared/include/mediaobj")) {
            report(file, include, "the library itself includes the one header that it needs, not the chief header");
        } else if (include.angled) {
            checkAngled(file, from, include);
        } else {
            checkQuoted(file, from, include);
        }
    }

    void checkAngled(const SourceFile& file, const Room& from, const Include& include) {
        if (from.standardOnly && !isStandardHeader(include.target)) {
            report(file, include, std::string(from.name) + " -> <" + include.target + ">: beyond the standard library");
        }
    }

    void checkQuoted(const SourceFile& file, const Room& from, const Include& include) {
        const std::string folder = file.path.substr(0, file.path.rfind('/') + 1);
        if (maySeeNeighbours(from) && m_byPath.contains(folder + include.target)) {
            return;
        }
        const Room* to = roomOf(include.target);
        if (to == nullptr || !m_byPath.contains(include.target)) {
            report(file, include, "\"" + include.target + "\" is no file of the tree by its path from the root");
        } else if (!mayInclude(from, *to)) {
            report(file, include,
                   std::string(from.name) + " -> " + std::string(to->name) + ": \"" + include.target + "\"");
        } else {
            checkShelves(file, from, *to, include);
        }
    }

    void checkShelves(const SourceFile& file, const Room& from, const Room& to, const Include& include) {
        if (&from != &to) {
            return;
        }
        const std::string own = shelfOf(file.path, from.name);
        const std::string other = shelfOf(include.target, to.name);
        if (from.name == "mediautil" && own != other && (other == "naming" || other == "validation")) {
            report(file, include,
                   "mediautil/" + own + " -> mediautil/" + other + ": a leaf that nothing else includes");
        }
        if (from.name == "backends" && !own.empty() && !other.empty() && own != other && other != "common") {
            report(file, include,
                   "backends/" + own + " -> backends/" + other + ": formats share through backends/common");
        }
    }

    // Depth first over the quoted includes; a file that is met again on the way to itself closes a circle.
    void findCircles(const SourceFile& file) {
        if (!m_done.insert(file.path).second) {
            return;
        }
        m_way.push_back(file.path);
        for (const Include& include : file.includes) {
            const auto next = m_byPath.find(include.target);
            if (next == m_byPath.end()) {
                continue;
            }
            const auto start = std::find(m_way.begin(), m_way.end(), next->first);
            if (start != m_way.end()) {
                std::string circle;
                for (auto step = start; step != m_way.end(); ++step) {
                    circle += *step + " -> ";
                }
                report(file, include, "includes go round in a circle: " + circle + next->first);
            } else {
                findCircles(*next->second);
            }
        }
        m_way.pop_back();
    }

    const std::vector<SourceFile>& m_tree;
    std::map<std::string, const SourceFile*> m_byPath;
    std::set<std::string> m_done;
    std::vector<std::string> m_way;
    std::vector<Finding> m_findings;
};

}  // namespace

std::vector<Finding> checkLayers(const std::vector<SourceFile>& tree) { return LayerCheck(tree).run(); }

}  // namespace source_rules
