#pragma once
// Counts heap allocations made through operator new (under the thread
// sanitizer: every allocation, malloc included) on the calling thread
// while a TallocationCounter lives. Used to prove that shading and volume
// integration run without touching the heap.
#include <cstddef>

class TallocationCounter {
public:
    TallocationCounter();
    ~TallocationCounter();
    size_t allocations() const;

private:
    size_t fStart;
};
