#include "framework/shading_node.h"

#include <thread>

#include "framework/host/depend_node.h"
#include "framework/host/metaclass.h"

Tmetaclass* TshadingNode::sMetaclass() {
    static Tmetaclass* slot = nullptr;
    static Tmetaclass meta(&slot, "shadingNode", sizeof(TshadingNode), nullptr, 0, true, nullptr, nullptr);
    return &meta;
}

TshadingNode* TshadingNode::fromNode(TdependNode* node) {
    if (!node || !node->typeof()->istype(sMetaclass())) return nullptr;
    return static_cast<TshadingNode*>(node->cast(sMetaclass()));
}

TshadingNode::TshadingNode(const TshadingNode& other)
    : fReferences(other.fReferences.count()),
      fOnDemandState(other.fOnDemandState.load()),
      fCustomRenderingFlags(other.fCustomRenderingFlags) {}

TshadingNode& TshadingNode::operator=(const TshadingNode& other) {
    fReferences.reset(other.fReferences.count());
    fOnDemandState.store(other.fOnDemandState.load());
    fCustomRenderingFlags = other.fCustomRenderingFlags;
    return *this;
}

TshadingNode::~TshadingNode() = default;

void* TshadingNode::shadingCast(Tmetaclass* meta) { return meta == sMetaclass() ? this : nullptr; }

int TshadingNode::incrementReferenceCount(TframeSampleData* data) {
    int count = fReferences.add();
    if (count == 1) shadingNodeInit(data);
    return count;
}

int TshadingNode::decrementReferenceCount(TDNshadingEngine* group) {
    int count = fReferences.count();
    if (count < 1) return count;
    count = fReferences.remove();
    if (count == 0) endOfRender(group);
    return count;
}

void TshadingNode::ensureOnDemand(Tplug& plug, TdataBlock& block) {
    int32_t state = fOnDemandState.load(std::memory_order_acquire);
    if (state == kOnDemandDone) return;
    int32_t expected = kOnDemandNotStarted;
    if (fOnDemandState.compare_exchange_strong(expected, kOnDemandComputing, std::memory_order_acq_rel)) {
        shadingNodeOnDemand(plug, block);
        fOnDemandState.store(kOnDemandDone, std::memory_order_release);
        return;
    }
    while (fOnDemandState.load(std::memory_order_acquire) != kOnDemandDone) std::this_thread::yield();
}
