#pragma once
// Helpers the swatch renderers build their small scenes with.
#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"

namespace swatch_scene {
// Sets `attribute` of `node` when both exist; a preview leaves out what a
// node type does not have.
template <class V>
void set(TdependNode* node, const char* attribute, V value) {
    if (const Tattribute* a = node ? node->attribute(Tstring(attribute)) : nullptr) node->setAttributeValue(a, &value);
}

// A shape of `type` called `name` under a transform of its own ("<name>Xf").
inline TdependNode* placed(TdependGraph& graph, const char* type, const char* name, T3Float translate, T3Float rotate) {
    auto* transform = static_cast<Ttransform*>(graph.createNode("transform", Tstring(std::string(name) + "Xf")));
    transform->setAttributeValue(&Ttransform::saTranslate(), &translate);
    transform->setAttributeValue(&Ttransform::saRotate(), &rotate);
    TdependNode* shape = graph.createNode(type, Tstring(name));
    if (shape) transform->addChild(static_cast<TdagNode*>(shape));
    return shape;
}
}  // namespace swatch_scene
