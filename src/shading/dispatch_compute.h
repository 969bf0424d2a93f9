#pragma once
// TDNdispatchCompute: the shading engine's reach to the protected vector
// compute of any node. The shading group derives from it.
#include "framework/host/dag.h"

class TDNdispatchCompute : public TobjectSet {
protected:
    static bool dispatchCompute(TdependNode* node, const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
        return node->vectorComputePlug(plug, block, first, count);
    }
};
