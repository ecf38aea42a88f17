#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "tools/failure.h"

// Where raw samples come from: a file, a pipe or standard input.
// **Owns:** its descriptor, unless that is standard input.
class SampleSource {
public:
    SampleSource() = default;
    SampleSource(const SampleSource&) = delete;
    SampleSource& operator=(const SampleSource&) = delete;
    ~SampleSource();

    // "-" is standard input.
    std::optional<Failure> open(const std::string& path);
    // Bytes in all; 0 when that isn't known.
    unsigned long long size() const { return m_size; }
    // Looks at the first bytes, which are read later all the same. Waits: as `read`. Requires: nothing was read yet.
    // Fails: false without so many.
    bool peek(unsigned char* memory, std::size_t size, std::optional<Failure>& failure);
    // Reads as many bytes as it can get, up to `size`. Waits: for them all, unless the program is to end.
    // Answers false at the end, with `bytes` of the last ones, and when it fails.
    bool read(unsigned char* memory, std::size_t size, std::size_t& bytes, std::optional<Failure>& failure);

private:
    std::string m_name;  // for messages
    int m_fd = -1;
    bool m_owned = false;
    unsigned long long m_size = 0;
    std::string m_ahead;  // bytes that were looked at and not read yet
};

// Lets time pass as samples do.
class Pace {
public:
    // Samples a second; 0 waits for nothing.
    explicit Pace(double rate) : m_rate(rate), m_start(std::chrono::steady_clock::now()) {}
    // Waits: until so many samples have lasted, or the program is to end.
    void waitFor(unsigned long long samples) const;

private:
    const double m_rate;
    const std::chrono::steady_clock::time_point m_start;
};
