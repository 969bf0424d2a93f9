#include "settings/render_globals.h"

namespace {
// Writes a switch, first breaking a connection that would override it.
void overrideAndSet(TdependNode& node, const Tattribute& a, bool value) {
    if (const Tplug* source = node.sourceOf(Tplug(&node, &a))) {
        if (TdependGraph* g = node.graph()) g->disconnect(Tplug(*source), Tplug(&node, &a));
    }
    node.setAttributeValue(&a, &value);
}
}  // namespace

void TdnRenderGlobals::setShadowLinkMode(TshadowLinkMode mode) {
    bool light, shadow;
    switch (mode) {
        case kShadowsIgnoreLinks: light = false, shadow = false; break;
        case kShadowsObeyShadowLinks: light = false, shadow = true; break;
        case kShadowsObeyLightLinks: light = true, shadow = false; break;
        default: return;
    }
    overrideAndSet(*this, attrShadowsObeyLightLinking(), light);
    overrideAndSet(*this, attrShadowsObeyShadowLinking(), shadow);
}
