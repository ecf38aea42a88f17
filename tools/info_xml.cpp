#include "tools/info_xml.h"

#include <array>
#include <pugixml.hpp>
#include <string_view>

#include "tools/text_form.h"

// The only source that knows the library for XML.

namespace {

// What a member of a list is called.
struct Member {
    std::string_view m_list;
    const char* m_name;
};

constexpr std::array<Member, 5> s_members = {{{"movies", "movie"},
                                              {"tracks", "track"},
                                              {"clips", "clip"},
                                              {"files", "file"},
                                              {"clipProperties", "clipProperty"}}};

const char* memberOf(const std::string& list) {
    for (const Member& member : s_members) {
        if (member.m_list == list) return member.m_name;
    }
    return "item";
}

// The two characters that UTF-8 has and XML hasn't, beside the control characters.
void replaceNonCharacters(std::string& text) {
    for (const char* none : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
        for (std::size_t at = text.find(none); at != std::string::npos; at = text.find(none, at + 3))
            text.replace(at, 3, "\xEF\xBF\xBD");
    }
}

std::string characters(const Json& value) {
    std::string text = printable(value.is_string() ? value.get_ref<const std::string&>() : textOf(value));
    replaceNonCharacters(text);
    return text;
}

void fill(pugi::xml_node& node, const Json& facts);

// Names of properties are no names of XML.
void addProperties(pugi::xml_node& node, const Json& properties) {
    for (const auto& [name, value] : properties.items()) {
        pugi::xml_node property = node.append_child("property");
        property.append_attribute("name").set_value(characters(name).c_str());
        property.append_attribute("value").set_value(characters(value).c_str());
    }
}

void addList(pugi::xml_node& node, const std::string& name, const Json& list) {
    for (const Json& member : list) {
        pugi::xml_node child = node.append_child(memberOf(name));
        if (member.is_object())
            fill(child, member);
        else
            child.append_attribute("name").set_value(characters(member).c_str());
    }
}

void fill(pugi::xml_node& node, const Json& facts) {
    for (const auto& [name, value] : facts.items()) {
        if (name == "properties") {
            addProperties(node, value);
        } else if (value.is_array()) {
            addList(node, name, value);
        } else if (value.is_object()) {
            pugi::xml_node child = node.append_child(name.c_str());
            fill(child, value);
        } else {
            node.append_attribute(name.c_str()).set_value(characters(value).c_str());
        }
    }
}

// Takes what the writer has to say.
class Text : public pugi::xml_writer {
public:
    void write(const void* data, std::size_t size) override { m_text.append(static_cast<const char*>(data), size); }

    std::string m_text;
};

}  // namespace

std::string xmlOf(const Json& document) {
    pugi::xml_document xml;
    pugi::xml_node root = xml.append_child("mediacore");
    fill(root, document);
    Text text;
    xml.save(text, "  ", pugi::format_indent, pugi::encoding_utf8);
    return std::move(text.m_text);
}
