// Every new graph holds one node of each render settings class, under its
// fixed name, which scenes and the renderer look up.
#include "framework/host/depend_graph.h"

namespace {

void createSettingsNodes(TdependGraph& graph) {
    static constexpr const char* kDefaults[][2] = {
        {"renderGlobals", "defaultRenderGlobals"},
        {"renderQuality", "defaultRenderQuality"},
        {"resolution", "defaultResolution"},
    };
    for (auto [type, name] : kDefaults)
        if (!graph.findNode(name)) graph.createNode(type, name);
}

const bool kSettingsNodesHooked = (TdependGraph::addDefaultNodeHook(&createSettingsNodes), true);

}  // namespace
