#pragma once

// How often this thread has called `operator new`, in all its forms but the aligned ones.
unsigned long long heapCalls();

// Counts this thread's calls from its construction on. The program that links it has an `operator new` of its own.
class HeapTaken {
public:
    HeapTaken() : m_before(heapCalls()) {}
    unsigned long long count() const { return heapCalls() - m_before; }

private:
    const unsigned long long m_before;
};
