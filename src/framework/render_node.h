#pragma once
// The glue between a host node class and the shading mixin. A render class
// derives from TshadingMixin<HostBase> (through TnodeClass), which makes it
// answer the TshadingNode metaclass and routes the scalar compute to the
// vector one, so that a node writes its arithmetic once, in
// vectorComputePlug.
#include "framework/host/depend_node.h"
#include "framework/host/metaclass.h"
#include "framework/shading_node.h"

template <class HostBase>
class TshadingMixin : public HostBase, public TshadingNode {
public:
    using HostBase::sMetaclass;
    using HostBase::sVsData;
    static Tmetaclass* sMixinMetaclass() { return TshadingNode::sMetaclass(); }

    void* cast(Tmetaclass* meta) override {
        if (meta == TshadingNode::sMetaclass()) return static_cast<TshadingNode*>(this);
        return HostBase::cast(meta);
    }
    void* shadingCast(Tmetaclass* meta) override { return cast(meta); }

    // Computed outputs go to vectorComputePlug for the block's current
    // element; anything else is the host's.
    bool computePlug(const Tplug& plug, TdataBlock& block) override {
        if (!plug.attribute()->isComputed()) return HostBase::computePlug(plug, block);
        return this->vectorComputePlug(plug, block, block.currentIndex(), 1);
    }
};

using TrenderNode = TshadingMixin<TdependNode>;
