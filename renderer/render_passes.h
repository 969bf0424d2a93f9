#pragma once
// The layers a render can add beside its image: data read off the camera
// hits (depth, normal, position, object id) and the shading engine's own
// passes, each a second render with the pass control set. The engine's
// shadow pass is not offered: its result is the matte opacity, which the
// renderer does not gather.
#include <string>
#include <vector>

struct TrenderPassInfo {
    const char* name;
    std::vector<std::string> channels;
    int enginePass;  // the value of currentRenderPassControl; -1 for a data layer
};

// Every pass, data layers first.
const std::vector<TrenderPassInfo>& renderPasses();
// The pass of `name`; null when there is none.
const TrenderPassInfo* findRenderPass(const std::string& name);
