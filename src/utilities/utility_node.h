#pragma once
// What the colour and math utility nodes share: their base, and the helpers
// that declare outputs and walk a batch.
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "framework/driven_inputs.h"
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"

// An output: computed by the node, never the destination of a connection.
inline void makeOutput(Tattribute& a) { a.setFlag(kAttrWritable, false); }
inline void makeOutput(TtripleAttribute& a) { a.setFlag(kAttrWritable, false); }
inline void makeOutput(TpairAttribute& a) {
    for (Tattribute* x : {static_cast<Tattribute*>(&a.whole), static_cast<Tattribute*>(&a.c0), static_cast<Tattribute*>(&a.c1)})
        x->setFlag(kAttrWritable, false);
}

// Whether a compute of `plug` asks for `output` (or one of its children).
// The engine asks for the whole output, which a compare settles without
// the call to rootParent.
inline bool isPlugOf(const Tplug& plug, const Tattribute& output) {
    const Tattribute* a = plug.attribute();
    return a == &output || a->rootParent() == &output;
}

// The enumeration fields of an operation attribute, in value order.
inline void addFields(TattributeEnum& a, std::initializer_list<std::pair<const char*, const char*>> fields) {
    short value = 0;
    for (const auto& [name, label] : fields) a.addField(name, label, value++);
}

// Calls f(begin, end, key) for each run of consecutive samples in
// [first, first + count) that share key(i).
template <class Key, class F>
void forEachRun(unsigned first, unsigned count, Key&& key, F&& f) {
    unsigned i = first, end = first + count;
    while (i < end) {
        auto k = key(i);
        unsigned j = i + 1;
        while (j < end && key(j) == k) ++j;
        f(i, j, k);
        i = j;
    }
}

// One input over a batch, as a loop sees it. A constant handle (stride 0) is
// read once into a local, so the loop keeps it in registers instead of
// reloading it after every store; a variable one walks its elements.
template <class T>
struct TconstantLane {
    T value;
    const T& operator[](unsigned) const { return value; }
};
template <class T>
struct TvariableLane {
    const char* base;
    size_t stride;
    const T& operator[](unsigned i) const { return *reinterpret_cast<const T*>(base + stride * i); }
};

// Calls f with the lane of `h`: the loop in f is compiled once per kind.
template <class T, class F>
void withLane(const TdataHandle& h, F&& f) {
    if (h.isVariable())
        f(TvariableLane<T>{static_cast<const char*>(h.value), h.stride});
    else
        f(TconstantLane<T>{*static_cast<const T*>(h.value)});
}

// Triples in four-lane registers: one vector operation per sample where
// three scalar ones would run (the fourth lane is never stored). Each
// channel sees the same IEEE operation as the scalar form, so the bits are
// the same.
using Tf4 = float __attribute__((vector_size(16)));
#if defined(__SSE2__)
// Two moves each way; a memcpy of 12 bytes would go through the stack. A
// triple is only 4-aligned (a sample record's field, say), so the pair goes
// through the unaligned 64-bit move.
inline Tf4 loadTriple(const void* p) {
    const __m128 xy = _mm_castsi128_ps(_mm_loadl_epi64(static_cast<const __m128i_u*>(p)));
    return Tf4(_mm_movelh_ps(xy, _mm_load_ss(static_cast<const float*>(p) + 2)));
}
inline void storeTriple(void* p, const Tf4& v) {
    _mm_storel_epi64(static_cast<__m128i_u*>(p), _mm_castps_si128(__m128(v)));
    _mm_store_ss(static_cast<float*>(p) + 2, _mm_movehl_ps(__m128(v), __m128(v)));
}
#else
inline Tf4 loadTriple(const void* p) {
    Tf4 v = {};
    std::memcpy(&v, p, 3 * sizeof(float));
    return v;
}
inline void storeTriple(void* p, const Tf4& v) { std::memcpy(p, &v, 3 * sizeof(float)); }
#endif
// std::max(x, lo) and std::min(x, hi) lane by lane, ties and NaNs included.
inline Tf4 maxLanes(Tf4 x, Tf4 lo) { return x < lo ? lo : x; }
inline Tf4 minLanes(Tf4 x, Tf4 hi) { return hi < x ? hi : x; }

struct TconstantTriple {
    Tf4 value;
    Tf4 operator[](unsigned) const { return value; }
};
struct TvariableTriple {
    const char* base;
    size_t stride;
    Tf4 operator[](unsigned i) const { return loadTriple(base + stride * i); }
};
// Where a loop writes its triples.
struct TtripleOut {
    char* base;
    size_t stride;
    explicit TtripleOut(const TdataHandle& h) : base(static_cast<char*>(h.value)), stride(h.stride) {}
    void put(unsigned i, const Tf4& v) const { storeTriple(base + stride * i, v); }
};

// Calls f(i) for each sample of a run. A triple loop's body is a handful
// of instructions, so the loop's own counting is a large share of it: the
// compiler is asked to unroll.
template <class F>
inline void forEachSample(unsigned first, unsigned count, F&& f) {
#pragma GCC unroll 4
    for (unsigned i = first; i < first + count; ++i) f(i);
}

// Calls f with the triple lane of `h`: constant (read once) or variable.
template <class F>
void withTripleLane(const TdataHandle& h, F&& f) {
    if (h.isVariable())
        f(TvariableTriple{static_cast<const char*>(h.value), h.stride});
    else
        f(TconstantTriple{loadTriple(h.value)});
}

// Calls f with the triple lane of input `a`: its settled value, else its handle.
template <class F>
void withTripleLane(const TsettledInput<T3Float>& s, TdataBlock& block, const Tattribute& a, unsigned first, unsigned count, F&& f) {
    if (s.settled)
        f(TconstantTriple{loadTriple(&s.value)});
    else
        withTripleLane(block.inputValue(a, first, count), f);
}
