#include <set>
#include <vector>

#include "shared/include/object/switches.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/unit/description/description_fixture.h"

// Clip properties: the list as a file may hold it, names that are added, and
// what a client says that it understands, beside a plain list. The input is
// texts that end in zero bytes: the list, what is understood, and then names.

namespace {

using fuzz::require;

// Properties with texts of their own.
class Movie : public TestMovie {
public:
    const MediaPropertyList& getProperties() const override { return m_bag; }

private:
    class Bag : public MediaParams {
    public:
        OpResult set(const MediaProperty& property) override {
            MediaProperty own;
            own.init(property.getName());
            own.set(property.stringValue(), true);
            return MediaParams::set(own);
        }
    };
    Bag m_bag;
};

// What stands between commas; a comma at the end has nothing behind it.
std::vector<std::string> itemsOf(const std::string& list) {
    std::vector<std::string> items;
    for (std::size_t at = 0; at == 0 || at < list.size();) {
        const std::size_t comma = std::min(list.find(',', at), list.size());
        items.push_back(list.substr(at, comma - at));
        at = comma + 1;
    }
    return items;
}

bool has(const std::vector<std::string>& items, const std::string& name) {
    return std::find(items.begin(), items.end(), name) != items.end();
}

void checkSupported(const Movie& movie, const std::string& list, const char* supported) {
    const std::vector<std::string> known = supported != nullptr ? itemsOf(supported) : std::vector<std::string>();
    std::string first;
    bool all = true;
    for (const std::string& item : itemsOf(list)) {
        if (has(known, item) || list.empty()) continue;
        first = item;
        all = false;
        break;
    }
    OpResult result = movie.isClipSupported(supported);
    require(result.success() == all);
    require(all || result.getMessage() == "unknown property: " + first);
    result.discard();
}

void add(Movie& movie, std::string& list, const std::string& name) {
    const bool isNew = !has(itemsOf(list), name);
    require(movie.addClipProperty(name.c_str()) == isNew);
    if (isNew) list += (list.empty() ? "" : ",") + name;
    require(movie.getClipProperties() == list);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Movie movie;
    std::string list = input.text();
    const std::string supported = input.text();
    movie.setProperty(ClipPropsProperty(list.c_str())).discard();
    require(movie.getClipProperties() == list);
    checkSupported(movie, list, supported.c_str());
    for (unsigned names = 0; !input.empty() && names < 64; ++names)
        add(movie, list, input.text());
    checkSupported(movie, list, supported.c_str());
    checkSupported(movie, list, list.c_str());
    checkSupported(movie, list, nullptr);
    movie.resetClipProperties();
    require(movie.getClipProperties()[0] == '\0');
    return 0;
}
