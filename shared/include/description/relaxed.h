#pragma once

#include <atomic>

// A plain field that two threads may touch by design: every access is a relaxed atomic one, and copies work.
//
// It orders nothing else. A reader sees some value that was stored, perhaps a moment late.
template <typename T>
class Relaxed {
public:
    constexpr Relaxed() noexcept : m_value() {}
    constexpr Relaxed(T value) noexcept : m_value(value) {}
    Relaxed(const Relaxed& other) noexcept : m_value(other.get()) {}

    Relaxed& operator=(const Relaxed& other) noexcept {
        set(other.get());
        return *this;
    }
    Relaxed& operator=(T value) noexcept {
        set(value);
        return *this;
    }

    T get() const noexcept { return m_value.load(std::memory_order_relaxed); }
    void set(T value) noexcept { m_value.store(value, std::memory_order_relaxed); }
    operator T() const noexcept { return get(); }

private:
    std::atomic<T> m_value;
};
