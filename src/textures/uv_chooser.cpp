#include "textures/uv_chooser.h"

#include "framework/host/data_block.h"
#include "framework/host/plug.h"

SN_REGISTER_NODE_CLASS(TdnUvChooser)

TdnVSUvChooser::TdnVSUvChooser() {
    uvSets.setMulti(true);
    for (Tattribute* a : {static_cast<Tattribute*>(&outUv.whole), static_cast<Tattribute*>(&outUv.c0),
                          static_cast<Tattribute*>(&outUv.c1), static_cast<Tattribute*>(&outVertexUvOne),
                          static_cast<Tattribute*>(&outVertexUvTwo), static_cast<Tattribute*>(&outVertexUvThree),
                          static_cast<Tattribute*>(&outVertexCameraOne)})
        a->setFlag(kAttrWritable, false);
}

bool TdnVSUvChooser::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&stCoord.whole, &uvCoord.whole, &uvSets}, {&outUv.whole});
    affects(m, {&vertexStOne, &vertexUvOne, &uvSets}, {&outVertexUvOne});
    affects(m, {&vertexStTwo, &vertexUvTwo, &uvSets}, {&outVertexUvTwo});
    affects(m, {&vertexStThree, &vertexUvThree, &uvSets}, {&outVertexUvThree});
    affects(m, {&vertexCameraOne}, {&outVertexCameraOne});
    return true;
}

bool TdnUvChooser::isShapeConnected() const {
    return hasConnections(&attrStCoord()) || hasConnections(&attrStCoordS()) || hasConnections(&attrStCoordT());
}

TdnUvChooser::Source TdnUvChooser::source() { return fSource == kUnresolved ? resolve() : fSource; }

void TdnUvChooser::endOfRender(TDNshadingEngine* group) {
    fSource = kUnresolved;
    TrenderNode::endOfRender(group);
}

bool TdnUvChooser::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* out = plug.attribute()->rootParent();
    bool st = source() == kConnectedSet;
    const Tattribute* in = nullptr;
    if (out == &attrOutUv())
        in = st ? &attrStCoord() : &attrUvCoord();
    else if (out == &attrOutVertexUvOne())
        in = st ? &attrVertexStOne() : &attrVertexUvOne();
    else if (out == &attrOutVertexUvTwo())
        in = st ? &attrVertexStTwo() : &attrVertexUvTwo();
    else if (out == &attrOutVertexUvThree())
        in = st ? &attrVertexStThree() : &attrVertexUvThree();
    else if (out == &attrOutVertexCameraOne())
        in = &attrVertexCameraOne();
    else
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle from = block.inputValue(*in, first, count);
    TdataHandle to = block.outputValue(*out, first, count);
    if (out == &attrOutVertexCameraOne())
        for (unsigned i = first; i < first + count; ++i) to.asFloat3(i) = from.asFloat3(i);
    else
        for (unsigned i = first; i < first + count; ++i) to.asFloat2(i) = from.asFloat2(i);
    block.setClean(*out);
    return true;
}
