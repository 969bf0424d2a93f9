#pragma once
// Per-batch scratch on the stack, left unset. The value types zero
// themselves (a T3Float is 0, 0, 0), so a plain array of 64 of them is
// cleared element by element on every call: 320 instructions for 64
// triples, more than many loops spend on the samples themselves. Each loop
// that uses a scratch array writes the elements it later reads.
#include <type_traits>

template <class T, unsigned N>
class TscratchArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                  "scratch holds plain values only");

public:
    TscratchArray() {}
    TscratchArray(const TscratchArray&) = delete;
    TscratchArray& operator=(const TscratchArray&) = delete;

    T* data() { return reinterpret_cast<T*>(fBytes); }
    const T* data() const { return reinterpret_cast<const T*>(fBytes); }
    // Passed where a function takes the array as a pointer, indexed as one.
    operator T*() { return data(); }
    operator const T*() const { return data(); }
    static constexpr unsigned size() { return N; }

private:
    alignas(T) unsigned char fBytes[N * sizeof(T)];
};
