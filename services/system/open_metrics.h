#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/visibility.h"

// Writes figures in the text form of OpenMetrics 1.0, one family after the other.
class MO_PUBLIC OpenMetrics {
public:
    enum class Type : std::uint32_t { Counter, Gauge, Info };

    // Begins a family; the samples that follow are its own. A name is of letters, digits and underscores, and without
    // the ending that its type gives to samples.
    OpenMetrics& family(std::string_view name, Type type, std::string_view help);
    OpenMetrics& sample(std::uint64_t value) { return sample({}, {}, value); }
    // With one label, whose text may be any.
    OpenMetrics& sample(std::string_view label, std::string_view text, std::uint64_t value);

    // The text with its end mark. Nothing may follow.
    std::string finish() const { return m_text + "# EOF\n"; }

private:
    void escape(std::string_view text);

    std::string m_text;
    std::string m_sampleName;
};
