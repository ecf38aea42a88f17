#pragma once

#include <nlohmann/json.hpp>
#include <string>

// Holds a document against a JSON schema, as far as the project's schemas go: type, const, enum, minimum, pattern,
// properties, required, additionalProperties (false), items, minItems, oneOf. Any other keyword that asks for something
// is itself a finding, so that no schema is half checked in silence. Answers the first finding with its place, or the
// empty text.
std::string checkSchema(const nlohmann::json& schema, const nlohmann::json& document, const std::string& place = "$");

// The schema of that name in docs/schema.
nlohmann::json loadSchema(const std::string& name);
