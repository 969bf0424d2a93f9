#include "renderer/render_passes.h"

#include "shading/render_pass_control.h"

const std::vector<TrenderPassInfo>& renderPasses() {
    static const std::vector<TrenderPassInfo> passes = {
        {"depth", {"Z"}, -1, "camera-space distance along the view axis of the nearest hit; 0 where nothing is hit"},
        {"normal", {"X", "Y", "Z"}, -1, "world-space unit normal of the nearest hit, facing the camera"},
        {"position", {"X", "Y", "Z"}, -1, "world-space position of the nearest hit"},
        {"objectId", {"id"}, -1, "1 + the object's index in the scene; 0 where nothing is hit"},
        {"noShadows", {"R", "G", "B", "A"}, kPassNoShadows, "full shading, lights cast no shadows"},
        {"ambient", {"R", "G", "B", "A"}, kPassAmbientOnly, "ambient light only"},
        {"noSpecular", {"R", "G", "B", "A"}, kPassNoSpecular, "no shadows, no specular highlights"},
        {"specular", {"R", "G", "B", "A"}, kPassSpecularOnly, "specular highlights only"},
        {"shadow", {"R", "G", "B", "A"}, kPassShadow, "the shadow pass: alpha carries the shadowed fraction"},
    };
    return passes;
}

const TrenderPassInfo* findRenderPass(const std::string& name) {
    for (const TrenderPassInfo& p : renderPasses())
        if (name == p.name) return &p;
    return nullptr;
}
