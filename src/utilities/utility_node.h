#pragma once
// What the colour and math utility nodes share: their base, and the helpers
// that declare outputs and walk a batch.
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
