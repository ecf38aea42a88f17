#pragma once

#include <string>

#include "tools/output.h"

// The document of `info` as XML (docs/schema/info.xsd): a single value is an attribute, a member of a list an element.
// Characters that XML can't hold, and bytes that aren't UTF-8, become U+FFFD.
std::string xmlOf(const Json& document);
