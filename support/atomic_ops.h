#pragma once

// Atomic operations on plain 32-bit integers, and a counter made of one.

// The platform's 32-bit atomic cell.
using zxAtomic_t = volatile unsigned int;

// Adds to the cell with a full barrier and answers the old value. All the changing operations below sit on it.
inline unsigned int __exchange_and_add32(volatile unsigned int* cell, int delta) {
    return __atomic_fetch_add(cell, static_cast<unsigned int>(delta), __ATOMIC_SEQ_CST);
}

// An aligned read; it sees what was done before the change whose value it reads.
inline int atomicGet32(zxAtomic_t* cell) { return static_cast<int>(__atomic_load_n(cell, __ATOMIC_ACQUIRE)); }

// Each answers the new value. The cell wraps as two's complement does.
inline int atomicAdd32(zxAtomic_t* cell, int delta) {
    int sum = 0;
    static_cast<void>(__builtin_add_overflow(static_cast<int>(__exchange_and_add32(cell, delta)), delta, &sum));
    return sum;
}
inline int atomicInc32(zxAtomic_t* cell) { return atomicAdd32(cell, 1); }
inline int atomicDec32(zxAtomic_t* cell) { return atomicAdd32(cell, -1); }

// Selects the implementation by the size of the integer; four bytes is the only one there is.
template <unsigned long Size>
struct __Atomics;

template <>
struct __Atomics<4> {
    using IntType = int;

    static IntType get(zxAtomic_t* cell) { return atomicGet32(cell); }
    static IntType inc(zxAtomic_t* cell) { return atomicInc32(cell); }
    static IntType dec(zxAtomic_t* cell) { return atomicDec32(cell); }
    static IntType add(zxAtomic_t* cell, IntType delta) { return atomicAdd32(cell, delta); }
};

// The value now.
template <class T>
typename __Atomics<sizeof(T)>::IntType atomicGet(T* cell) {
    return __Atomics<sizeof(T)>::get(reinterpret_cast<zxAtomic_t*>(cell));
}

// The next three answer the new value.
template <class T>
typename __Atomics<sizeof(T)>::IntType atomicInc(T* cell) {
    return __Atomics<sizeof(T)>::inc(reinterpret_cast<zxAtomic_t*>(cell));
}

template <class T>
typename __Atomics<sizeof(T)>::IntType atomicDec(T* cell) {
    return __Atomics<sizeof(T)>::dec(reinterpret_cast<zxAtomic_t*>(cell));
}

template <class T, class V>
typename __Atomics<sizeof(T)>::IntType atomicAdd(T* cell, V delta) {
    using IntType = typename __Atomics<sizeof(T)>::IntType;
    return __Atomics<sizeof(T)>::add(reinterpret_cast<zxAtomic_t*>(cell), static_cast<IntType>(delta));
}

// A counter that many threads may move.
class AtomicCounter {
public:
    explicit constexpr AtomicCounter(int count) : m_count(count) {}
    AtomicCounter(const AtomicCounter&) = delete;
    AtomicCounter& operator=(const AtomicCounter&) = delete;

    int getCount() const { return atomicGet(&m_count); }
    bool operator==(int count) const { return getCount() == count; }

    int operator++() { return atomicInc(&m_count); }
    int operator++(int) { return atomicInc(&m_count) - 1; }
    int operator--() { return atomicDec(&m_count); }
    int operator--(int) { return atomicDec(&m_count) + 1; }

private:
    mutable int m_count;
};
