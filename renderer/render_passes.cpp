#include "renderer/render_passes.h"

#include "shading/render_pass_control.h"

const std::vector<TrenderPassInfo>& renderPasses() {
    static const std::vector<TrenderPassInfo> passes = {
        {"depth", {"Z"}, -1},
        {"normal", {"X", "Y", "Z"}, -1},
        {"position", {"X", "Y", "Z"}, -1},
        {"objectId", {"id"}, -1},
        {"noShadows", {"R", "G", "B", "A"}, kPassNoShadows},
        {"ambient", {"R", "G", "B", "A"}, kPassAmbientOnly},
        {"noSpecular", {"R", "G", "B", "A"}, kPassNoSpecular},
        {"specular", {"R", "G", "B", "A"}, kPassSpecularOnly},
    };
    return passes;
}

const TrenderPassInfo* findRenderPass(const std::string& name) {
    for (const TrenderPassInfo& p : renderPasses())
        if (name == p.name) return &p;
    return nullptr;
}
