#pragma once
// The per-render life cycle of a node's settled inputs, written once. A node
// derives through TsettlingNode<Self, Base> (as the base of its TnodeClass)
// and names its settled inputs in one place:
//
//     template <class F> void forEachSettled(F&& f) { f(fOperation, attrOperation()); ... }
//
// each call pairing a settled value with what it settles from: a
// TsettledInput with its attribute, a TsettledGroup with its roots, or any
// bundle with prepare(node, from) / settle(block, from) / release(). Init
// prepares them, the on-demand step settles them and endOfRender releases
// them. A node with more per-render work overrides a step and calls this one
// first. Computes are untouched: they read fX.settled and fX.value directly.
#include "framework/driven_inputs.h"

struct TframeSampleData;
class TDNshadingEngine;

template <class Self, class Base>
class TsettlingNode : public Base {
public:
    void shadingNodeInit(TframeSampleData* data) override {
        Base::shadingNodeInit(data);
        const TdependNode& node = *this;
        self().forEachSettled([&node](auto& s, const auto& from) { s.prepare(node, from); });
    }
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override {
        Base::shadingNodeOnDemand(plug, block);
        self().forEachSettled([&block](auto& s, const auto& from) { s.settle(block, from); });
    }
    void endOfRender(TDNshadingEngine* group) override {
        self().forEachSettled([](auto& s, const auto&) { s.release(); });
        Base::endOfRender(group);
    }

private:
    Self& self() { return static_cast<Self&>(*this); }
};
