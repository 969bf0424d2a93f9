#pragma once
// Inputs settled for a render. A node may read some inputs once per render
// (in shadingNodeInit) instead of on every compute, but only inputs nothing
// drives: their values are the node's own for the whole render.
#include <array>
#include <cstring>
#include <initializer_list>
#include <span>

#include "framework/host/data_block.h"
#include "framework/host/depend_node.h"

// True when a connection ends at one of `roots`, at one of their children
// or at an element of theirs. Not for use while shading: it allocates.
bool anyInputDriven(const TdependNode& node, std::span<const Tattribute* const> roots);
inline bool anyInputDriven(const TdependNode& node, std::initializer_list<const Tattribute*> roots) {
    return anyInputDriven(node, std::span(roots.begin(), roots.size()));
}

// An input settled for a render. shadingNodeInit notes whether anything
// drives it (prepare); the node's on-demand step, which runs once per render
// before its first compute, takes the value the program holds for it when
// that is a constant (settle); endOfRender lets go. The value is the one a
// compute would read, taken when the program is built, and a compute skips
// the input's handle only when it is settled.
template <class T>
struct TsettledInput {
    bool undriven = false, settled = false;
    T value{};
    void prepare(const TdependNode& node, const Tattribute& a) {
        undriven = !anyInputDriven(node, {&a});
        settled = false;
    }
    void settle(TdataBlock& block, const Tattribute& a) {
        if (!undriven || !settleFrom(block.inputValue(a, 0, 1))) return;
        settled = true;
    }
    bool settleFrom(const TdataHandle& h) {
        if (h.isNull() || h.isVariable()) return false;
        std::memcpy(static_cast<void*>(&value), h.value, sizeof(T));
        return true;
    }
    void release() { undriven = settled = false; }
};

// Inputs a node settles together in its own on-demand step (a placement,
// a ramp's keys), after the common one: prepare notes whether any of the
// roots is driven; the node reads them only when none is, and sets
// `settled` when it could; release lets go.
struct TsettledGroup {
    bool undriven = false, settled = false;
    template <std::size_t N>
    void prepare(const TdependNode& node, const std::array<const Tattribute*, N>& roots) {
        undriven = !anyInputDriven(node, roots);
        settled = false;
    }
    // The reading is the node's own.
    template <std::size_t N>
    void settle(TdataBlock&, const std::array<const Tattribute*, N>&) {}
    void release() { undriven = settled = false; }
};

// The roots of a TsettledGroup, as a node lists them.
template <class... A>
std::array<const Tattribute*, sizeof...(A)> settledRoots(const A&... a) {
    return {&a...};
}

// A handle on input `a` over a run: on its settled value (a constant, as the
// block would hand it out), else the block's own.
template <class T>
TdataHandle settledOrRead(const TsettledInput<T>& s, TdataBlock& block, const Tattribute& a, unsigned first, unsigned count) {
    if (!s.settled) return block.inputValue(a, first, count);
    TdataHandle h;
    h.attribute = &a;
    h.value = const_cast<T*>(&s.value);
    return h;
}
