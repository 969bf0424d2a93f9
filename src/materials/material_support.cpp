#include "materials/material_support.h"

#include <vector>

#include "framework/host/depend_graph.h"
#include "settings/render_quality.h"
#include "shading/shading_engine.h"

bool connectionIsSampleDependent(TDNshadingEngine*, const Tplug& source) { return !source.isNull(); }

bool rayTracingEnabled(TdependGraph* graph) {
    if (!graph) return true;
    TdependNode* node = graph->findNode(Tstring(TDNshadingEngine::kDefaultRenderQuality));
    if (!node || !node->typeof()->istype(TdnRenderQuality::sMetaclass())) return true;
    bool enabled = true;
    node->getAttributeValue(&TdnRenderQuality::saEnableRaytracing(), &enabled);
    return enabled;
}

void clearRayRequirements(TbitField64& mask) {
    for (unsigned bit : kRayRequirementBits) mask.clear(bit);
}

void forwardDirtyThroughMessage(TdependNode& node, TmsgDirty& msg) {
    if (msg.plug().attribute() == &TdependNode::saMessage()) return;
    std::vector<Tplug> destinations;
    node.destinationsOf(Tplug(&node, &TdependNode::saMessage()), destinations);
    for (const Tplug& d : destinations)
        if (d.node() && !d.node()->isDirty(d.attribute())) d.node()->markDirty(d.attribute());
}

void declareSampleInput(Tattribute& a) {
    a.makeImplicitInput();
    a.setFlag(kAttrHidden, true);
}

void declareSampleInput(TtripleAttribute& a) {
    for (Tattribute* x : {static_cast<Tattribute*>(&a.whole), static_cast<Tattribute*>(&a.c0), static_cast<Tattribute*>(&a.c1),
                          static_cast<Tattribute*>(&a.c2)})
        declareSampleInput(*x);
}
