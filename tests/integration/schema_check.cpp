#include "tests/integration/schema_check.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

using nlohmann::json;

namespace {

bool isOfType(const std::string& type, const json& value) {
    if (type == "object") return value.is_object();
    if (type == "array") return value.is_array();
    if (type == "string") return value.is_string();
    if (type == "boolean") return value.is_boolean();
    if (type == "null") return value.is_null();
    if (type == "integer") return value.is_number_integer();
    return type == "number" && value.is_number();
}

std::string checkKeywords(const json& schema, const std::string& place) {
    static const std::set<std::string> known = {
        "$schema",    "title",    "description",          "type",  "const",    "enum", "minimum", "pattern",
        "properties", "required", "additionalProperties", "items", "minItems", "oneOf"};
    for (const auto& [name, value] : schema.items()) {
        if (!known.contains(name)) return place + ": the schema's keyword " + name + " isn't checked here";
    }
    return "";
}

std::string checkValue(const json& schema, const json& value, const std::string& place) {
    if (schema.contains("type") && !isOfType(schema["type"], value))
        return place + ": not of type " + schema["type"].get<std::string>();
    if (schema.contains("const") && schema["const"] != value) return place + ": not " + schema["const"].dump();
    if (schema.contains("enum")) {
        bool found = false;
        for (const json& one : schema["enum"])
            found = found || one == value;
        if (!found) return place + ": not one of " + schema["enum"].dump();
    }
    if (schema.contains("minimum") && value.is_number() && value.get<double>() < schema["minimum"].get<double>())
        return place + ": too small";
    if (schema.contains("pattern") && value.is_string() &&
        !std::regex_search(value.get<std::string>(), std::regex(schema["pattern"].get<std::string>()))) {
        return place + ": doesn't match " + schema["pattern"].dump();
    }
    return "";
}

std::string checkMembers(const json& schema, const json& value, const std::string& place) {
    if (!value.is_object()) return "";
    for (const json& name : schema.value("required", json::array())) {
        if (!value.contains(name.get<std::string>())) return place + ": no member " + name.dump();
    }
    const json properties = schema.value("properties", json::object());
    for (const auto& [name, member] : value.items()) {
        if (properties.contains(name)) {
            const std::string finding = checkSchema(properties[name], member, place + "." + name);
            if (!finding.empty()) return finding;
        } else if (!schema.value("additionalProperties", true)) {
            return place + ": unknown member " + name;
        }
    }
    return "";
}

std::string checkElements(const json& schema, const json& value, const std::string& place) {
    if (!value.is_array()) return "";
    if (value.size() < schema.value("minItems", 0u)) return place + ": too few elements";
    if (!schema.contains("items")) return "";
    for (std::size_t i = 0; i < value.size(); ++i) {
        const std::string finding = checkSchema(schema["items"], value[i], place + "[" + std::to_string(i) + "]");
        if (!finding.empty()) return finding;
    }
    return "";
}

std::string checkChoice(const json& schema, const json& value, const std::string& place) {
    if (!schema.contains("oneOf")) return "";
    unsigned matches = 0;
    std::string findings;
    for (const json& one : schema["oneOf"]) {
        const std::string finding = checkSchema(one, value, place);
        matches += finding.empty() ? 1 : 0;
        findings += " (" + finding + ")";
    }
    return matches == 1 ? "" : place + ": " + std::to_string(matches) + " of the choices match" + findings;
}

}  // namespace

std::string checkSchema(const json& schema, const json& document, const std::string& place) {
    for (const auto& check : {checkValue, checkMembers, checkElements, checkChoice}) {
        std::string finding = checkKeywords(schema, place);
        if (finding.empty()) finding = check(schema, document, place);
        if (!finding.empty()) return finding;
    }
    return "";
}

json loadSchema(const std::string& name) {
    const std::filesystem::path root = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
    std::ifstream file(root / "docs" / "schema" / (name + ".json"));
    return json::parse(file);
}
