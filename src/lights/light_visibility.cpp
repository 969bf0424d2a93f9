#include "lights/light_visibility.h"

#include <atomic>

namespace {
std::atomic<TdagPathUtils::LayerFilter> gLayerFilter{nullptr};
}  // namespace

bool TdagPathUtils::isObjectVisibleToRenderer(const TdagPath& path) {
    if (!path.isValid()) return false;
    for (TdagNode* node : path.nodes()) {
        const Tattribute* visibility = node->attribute(Tstring("visibility"));
        if (!visibility || visibility->valueType() != TvalueType::kBoolean) continue;
        bool on = true;
        if (node->getAttributeValue(visibility, &on) && !on) return false;
    }
    return true;
}

bool TdagPathUtils::inCurrentRenderLayer(const TdagPath& path) {
    LayerFilter filter = gLayerFilter.load();
    return !filter || filter(path);
}

TdagPathUtils::LayerFilter TdagPathUtils::setRenderLayerFilter(LayerFilter filter) { return gLayerFilter.exchange(filter); }

bool TdagPathUtils::lightTakesPart(TdependNode* node) {
    if (!node || !node->typeof()->istype(TdagNode::sMetaclass())) return true;
    std::vector<TdagPath> paths = static_cast<TdagNode*>(node)->allPaths();
    if (paths.empty()) return false;
    return isObjectVisibleToRenderer(paths.front()) && inCurrentRenderLayer(paths.front());
}
