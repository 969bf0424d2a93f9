#include "lights/render_info.h"

#include "lights/light_link.h"
#include "shading/shading_engine.h"

bool TrenderInfo::linkShadingGroupToDefaultLightSet(TDNshadingEngine* group, TDGcommand&) {
    if (!group || !(group->nodeFlags() & kLinkToDefaultLightsFlag) || !group->graph()) return false;
    TdependGraph& graph = *group->graph();
    TdependNode* lightSet = graph.findNode(Tstring(TDNshadingEngine::kDefaultLightSet));
    if (!lightSet) return false;
    TdnLightLink* link = TdnLightLink::active(graph);
    if (!link) return false;
    const Tattribute* pairs = &TdnLightLink::saLink();
    for (int i = link->firstUsedIndexStartingFrom(0, pairs); i >= 0; i = link->firstUsedIndexStartingFrom(i + 1, pairs))
        if (link->lightAt(pairs, i) == lightSet && link->objectAt(pairs, i) == group) return true;
    // Graph edits take effect at once; the command has nothing to record.
    return link->connectPair(pairs, link->firstFreeIndexStartingFrom(0, pairs), lightSet, group);
}
