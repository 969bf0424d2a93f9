#include "textures/place_3d.h"

#include "framework/host/data_block.h"
#include "framework/host/plug.h"

SN_REGISTER_NODE_CLASS(TdnPlace3dTxDag)

TdnVSPlace3dTxDag::TdnVSPlace3dTxDag() {
    const TfltMatrix identity;
    worldInverseMatrix.setDefaultBytes(&identity, sizeof identity);
    worldInverseMatrix.setFlag(kAttrWritable, false);
    worldInverseMatrix.setComputeModifies(true);
}

bool TdnVSPlace3dTxDag::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TtransformVS& t = Ttransform::sVsData();
    affects(m, {&t.translate.whole, &t.rotate.whole, &t.scale.whole}, {&worldInverseMatrix});
    return true;
}

unsigned TdnPlace3dTxDag::cubeEdges(T3Float (&edges)[12][2]) {
    unsigned n = 0;
    // Corners by bits: x from bit 0, y from bit 1, z from bit 2; an edge
    // joins two corners that differ in one bit.
    auto corner = [](unsigned c) {
        return T3Float((c & 1) ? 1.0f : -1.0f, (c & 2) ? 1.0f : -1.0f, (c & 4) ? 1.0f : -1.0f);
    };
    for (unsigned c = 0; c < 8; ++c)
        for (unsigned bit = 1; bit < 8; bit <<= 1)
            if (!(c & bit)) {
                edges[n][0] = corner(c);
                edges[n][1] = corner(c | bit);
                ++n;
            }
    return n;
}

TfltMatrix TdnPlace3dTxDag::placementMatrix() {
    std::vector<TdagPath> paths = allPaths();
    Tmatrix world = paths.empty() ? localMatrix() : paths.front().inclusiveMatrix();
    return convertMatrix<float>(world.inverse());
}

bool TdnPlace3dTxDag::computePlug(const Tplug& plug, TdataBlock& block) {
    if (plug.attribute() != &attrWorldInverseMatrix()) return Ttransform::computePlug(plug, block);
    block.outputValue(attrWorldInverseMatrix()).as<TfltMatrix>() = placementMatrix();
    block.setClean(attrWorldInverseMatrix());
    return true;
}
