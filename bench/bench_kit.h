#pragma once

// What all measurements share: rounds in random order, medians of quotients, a control pair, and the lines that tell
// them. Included by one source a program.

#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/heap_count.h"

namespace bench {

// ---- how it is called: [--quick] [--rounds N] [--folder PATH]

struct Options {
    Options(int argc, char** argv) {
        for (int i = 1; i < argc; ++i) {
            const bool more = i + 1 < argc;
            if (std::strcmp(argv[i], "--quick") == 0) {
                m_quick = true;
                m_rounds = 3;
                m_leastSeconds = 0.0005;
            } else if (more && std::strcmp(argv[i], "--rounds") == 0) {
                m_rounds = static_cast<unsigned>(std::max(1, std::atoi(argv[++i])));
            } else if (more && std::strcmp(argv[i], "--folder") == 0) {
                m_folder = argv[++i];
            } else {
                std::fprintf(stderr, "usage: %s [--quick] [--rounds N] [--folder PATH]\n", argv[0]);
                std::exit(2);
            }
        }
    }

    bool m_quick = false;  // only to see that it runs: the figures say nothing
    unsigned m_rounds = 21;
    double m_leastSeconds = 0.010;  // a case's work in a round
    std::string m_folder = "/tmp";  // where the files are made
};

// ---- time, in seconds

inline double clockSeconds(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}
inline double wallSeconds() { return clockSeconds(CLOCK_MONOTONIC); }
inline double threadSeconds() { return clockSeconds(CLOCK_THREAD_CPUTIME_ID); }
inline double processSeconds() { return clockSeconds(CLOCK_PROCESS_CPUTIME_ID); }

inline double percentile(std::vector<double> values, double part) {
    if (values.empty()) return 0;
    const auto place = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(place), values.end());
    return values[place];
}
inline double median(std::vector<double> values) { return percentile(std::move(values), 0.5); }

// ---- system calls

// Counts the system calls of this process's threads, those started later included, where the kernel shows its
// tracepoints to this user.
class SyscallCounter {
public:
    SyscallCounter() {
        for (const char* root : {"/sys/kernel/tracing", "/sys/kernel/debug/tracing"}) {
            const std::string path = std::string(root) + "/events/raw_syscalls/sys_enter/id";
            std::FILE* file = std::fopen(path.c_str(), "re");
            unsigned long long id = 0;
            const bool read = file != nullptr && std::fscanf(file, "%llu", &id) == 1;
            if (file != nullptr) std::fclose(file);
            if (read) open(id);
            if (m_fd >= 0) return;
        }
    }
    ~SyscallCounter() {
        if (m_fd >= 0) ::close(m_fd);
    }
    SyscallCounter(const SyscallCounter&) = delete;
    SyscallCounter& operator=(const SyscallCounter&) = delete;

    bool available() const { return m_fd >= 0; }
    // Since the counter was made; the call that reads it is counted too.
    unsigned long long count() const {
        unsigned long long value = 0;
        return m_fd >= 0 && ::read(m_fd, &value, sizeof value) == sizeof value ? value : 0;
    }

private:
    void open(unsigned long long id) {
        perf_event_attr attributes;
        std::memset(&attributes, 0, sizeof attributes);
        attributes.type = PERF_TYPE_TRACEPOINT;
        attributes.size = sizeof attributes;
        attributes.config = id;
        attributes.inherit = 1;
        m_fd = static_cast<int>(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
    }

    int m_fd = -1;
};

// ---- rounds

// Cases that are run side by side. Every round runs each of them once, in a fresh random order.
class Rounds {
public:
    explicit Rounds(const Options& options) : m_options(options), m_random(std::random_device{}()) {}

    // `run` does a fixed amount of work and answers what one piece of it cost, in seconds of the clock that fits it.
    void add(std::string name, std::function<double()> run) {
        m_cases.push_back({std::move(name), std::move(run), {}});
    }
    // The same for an operation, which is repeated until the clock has something to say. One call of it may be many
    // `pieces` of work.
    template <class Operation>
    void addCall(std::string name, double (*clock)(), Operation operation, unsigned pieces = 1) {
        const double least = m_options.m_leastSeconds;
        add(std::move(name), [operation, clock, least, pieces, count = 0u]() mutable {
            const auto once = [&operation, clock](unsigned times) {
                const double begin = clock();
                for (unsigned i = 0; i < times; ++i)
                    operation();
                return clock() - begin;
            };
            if (count == 0) {
                for (count = 16; once(count) < least; count *= 2) {
                }
            }
            return once(count) / count / pieces;
        });
    }

    // The pair of identical cases tells whether the run was fair; one that wasn't is thrown away and done again.
    void run(const std::string& one, const std::string& same) {
        constexpr int attempts = 4;
        m_one = one;
        m_same = same;
        for (int i = 0; i < attempts; ++i) {
            runOnce();
            if (m_options.m_quick || isFair()) return;
        }
    }

    double cost(const std::string& name) const { return median(find(name).m_costs); }
    // The quotients of each round, in order.
    std::vector<double> quotients(const std::string& over, const std::string& under) const {
        const Case& a = find(over);
        const Case& b = find(under);
        std::vector<double> all;
        for (std::size_t i = 0; i < a.m_costs.size(); ++i)
            all.push_back(a.m_costs[i] / b.m_costs[i]);
        std::sort(all.begin(), all.end());
        return all;
    }
    double quotient(const std::string& over, const std::string& under) const { return median(quotients(over, under)); }
    double control() const { return quotient(m_same, m_one); }
    // Whether the two identical cases came out alike. A run of which this isn't true says nothing.
    bool isFair() const { return control() >= 0.97 && control() <= 1.03; }

    // One line: what ours costs, what the peer costs, the quotient and its quartiles.
    void tell(const std::string& what, const std::string& ours, const std::string& peer, const char* aim) const {
        const std::vector<double> all = quotients(ours, peer);
        std::printf("%s: ours %s, peer %s, ratio %.3g (aim %s), quartiles %.3g to %.3g, A/A %.3f%s\n", what.c_str(),
                    timeText(cost(ours)).c_str(), timeText(cost(peer)).c_str(), median(all), aim, percentile(all, 0.25),
                    percentile(all, 0.75), control(), isFair() ? "" : " (unfair run)");
        std::fflush(stdout);
    }

private:
    struct Case {
        std::string m_name;
        std::function<double()> m_run;
        std::vector<double> m_costs;
    };

    static std::string timeText(double seconds) {
        char text[32];
        const char* const unit = seconds < 1e-6 ? "ns" : seconds < 1e-3 ? "us" : "ms";
        std::snprintf(text, sizeof text, "%.3g %s",
                      seconds * (seconds < 1e-6   ? 1e9
                                 : seconds < 1e-3 ? 1e6
                                                  : 1e3),
                      unit);
        return text;
    }
    void runOnce() {
        for (Case& c : m_cases) {
            c.m_costs.clear();
            c.m_run();
        }
        std::vector<std::size_t> order(m_cases.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        for (unsigned round = 0; round < m_options.m_rounds; ++round) {
            std::shuffle(order.begin(), order.end(), m_random);
            for (const std::size_t i : order)
                m_cases[i].m_costs.push_back(m_cases[i].m_run());
        }
    }
    const Case& find(const std::string& name) const {
        for (const Case& c : m_cases) {
            if (c.m_name == name) return c;
        }
        std::fprintf(stderr, "no case %s\n", name.c_str());
        std::abort();
    }

    const Options m_options;
    std::vector<Case> m_cases;
    std::string m_one, m_same;
    std::mt19937 m_random;
};

// A result that is used, so that its making isn't left out.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

}  // namespace bench
