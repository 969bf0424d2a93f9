#pragma once
// Render-setup services on the scene: the link that gives a new shading
// group the default lights.
#include <cstdint>

#include "framework/host/depend_node.h"

class TDNshadingEngine;

class TrenderInfo {
public:
    // The group flag that asks for the default light set.
    static constexpr uint32_t kLinkToDefaultLightsFlag = 1u << 4;
    // For a group with kLinkToDefaultLightsFlag: links the scene's
    // "defaultLightSet" to the group in the active link node, at the first
    // index where neither side is connected. A group already linked to the
    // set gets no second pair. False when nothing could be linked.
    static bool linkShadingGroupToDefaultLightSet(TDNshadingEngine* group, TDGcommand& command);
};
