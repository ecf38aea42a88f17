#pragma once

// What the measurements of sums share: batches of positions, so that the clock isn't what is measured, and libavutil
// as their peer.

#include <cstdint>

#include "bench/bench_kit.h"

#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavutil/mathematics.h>
}
#endif

namespace bench {

constexpr unsigned s_batch = 1024;

// Adds a case that works out `one` for a batch of numbers, which the compiler can't foresee and which come round
// below `span`, a power of 2. Its cost is that of one of them.
template <class One>
void addSum(Rounds& all, const std::string& name, One one, unsigned long long span = 1u << 20) {
    const auto batch = [one, span, first = 0ull]() mutable {
        for (unsigned i = 0; i < s_batch; ++i)
            keep(one((first + i) & (span - 1)));
        first += s_batch * 7;
    };
    all.addCall(name, threadSeconds, batch, s_batch);
}

// A number that the compiler takes for one that came from elsewhere, as ours come out of a movie.
template <class Number>
Number unforeseen(Number number) {
    asm volatile("" : "+r"(number));
    return number;
}

}  // namespace bench
