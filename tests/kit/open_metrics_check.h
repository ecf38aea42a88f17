#pragma once

#include <string>

namespace kit {

// What is wrong with a text by the rules of OpenMetrics 1.0, as far as counters, gauges and infos of whole numbers go:
// the empty text when all is well. A family has a type and a help ahead of its samples, comes once, and isn't empty.
std::string checkOpenMetrics(const std::string& text);

}  // namespace kit
