#include "services/system/open_metrics.h"

#include <gtest/gtest.h>

// Figures as text.

using Type = OpenMetrics::Type;

TEST(OpenMetricsText, OfNothingIsTheEndMark) { EXPECT_EQ(OpenMetrics().finish(), "# EOF\n"); }

TEST(OpenMetricsText, SamplesHaveTheEndingOfTheirType) {
    OpenMetrics out;
    out.family("a_build", Type::Info, "The program.").sample("version", "1.2", 1);
    out.family("a_calls", Type::Counter, "Calls.").sample("kind", "read", 7).sample("kind", "write", 0);
    out.family("a_open", Type::Gauge, "Open files.").sample(18446744073709551615u);
    EXPECT_EQ(out.finish(),
              "# TYPE a_build info\n# HELP a_build The program.\na_build_info{version=\"1.2\"} 1\n"
              "# TYPE a_calls counter\n# HELP a_calls Calls.\na_calls_total{kind=\"read\"} 7\n"
              "a_calls_total{kind=\"write\"} 0\n"
              "# TYPE a_open gauge\n# HELP a_open Open files.\na_open 18446744073709551615\n# EOF\n");
}

TEST(OpenMetricsText, WhatWouldEndATextIsEscaped) {
    OpenMetrics out;
    out.family("a", Type::Gauge, "one\ntwo \"three\" \\").sample("path", "\"\n\\", 1);
    EXPECT_EQ(out.finish(),
              "# TYPE a gauge\n# HELP a one\\ntwo \\\"three\\\" \\\\\na{path=\"\\\"\\n\\\\\"} 1\n# EOF\n");
}
