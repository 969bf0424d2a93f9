#include "display/material_values.h"

#include <cstdint>

#include "framework/host/depend_node.h"

namespace {
const Tattribute* readable(TdependNode* node, const char* name) {
    if (!node) return nullptr;
    const Tattribute* a = node->attribute(Tstring(name));
    if (!a || isConnectedInput(node, name)) return nullptr;
    return a;
}
}  // namespace

bool isConnectedInput(TdependNode* node, const char* name) {
    const Tattribute* a = node ? node->attribute(Tstring(name)) : nullptr;
    if (!a) return false;
    // Incoming only: a viewport's watch reads from the attribute, it does not drive it.
    if (node->sourceOf(Tplug(node, a))) return true;
    for (unsigned i = 0; i < a->childCount(); ++i)
        if (node->sourceOf(Tplug(node, a->child(i)))) return true;
    return false;
}

std::optional<double> unconnectedNumber(TdependNode* node, const char* name) {
    const Tattribute* a = readable(node, name);
    if (!a) return std::nullopt;
    const void* p = node->storage(a);
    if (!p) return std::nullopt;
    switch (a->valueType()) {
        case TvalueType::kFloat:
        case TvalueType::kFloatLinear: return *static_cast<const float*>(p);
        case TvalueType::kDouble:
        case TvalueType::kDoubleAngle: return *static_cast<const double*>(p);
        case TvalueType::kInt32: return *static_cast<const int32_t*>(p);
        case TvalueType::kInt16: return *static_cast<const int16_t*>(p);
        case TvalueType::kEnum: return a->size() == 2 ? *static_cast<const int16_t*>(p) : *static_cast<const int32_t*>(p);
        case TvalueType::kBoolean:
        case TvalueType::kChar: return *static_cast<const uint8_t*>(p);
        default: return std::nullopt;
    }
}

std::optional<T3Float> unconnectedColor(TdependNode* node, const char* name) {
    const Tattribute* a = readable(node, name);
    if (!a || a->size() != sizeof(T3Float)) return std::nullopt;
    const void* p = node->storage(a);
    if (!p) return std::nullopt;
    return *static_cast<const T3Float*>(p);
}
