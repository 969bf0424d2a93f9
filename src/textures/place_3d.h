#pragma once
// TdnPlace3dTxDag: the placement object of a solid texture. A transform in
// the DAG whose unit cube (-1 to 1 on each axis) is the texture's box; its
// world inverse matrix, connected to a texture's placementMatrix, takes
// points into that box.
#include "framework/host/dag.h"
#include "framework/node_registry.h"

struct TdnVSPlace3dTxDag : TdependNodeVS {
    TattributeFltMatrix worldInverseMatrix{"worldInverseMatrix", "wim", TiffTag("WIMX")};
    TdnVSPlace3dTxDag();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TboundingBox {
    T3Float min, max;
};

class TdnPlace3dTxDag : public TnodeClass<TdnPlace3dTxDag, Ttransform, TdnVSPlace3dTxDag> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnPlace3dTxDag", 485, "kPlace3dTexture");
    // The selection mask of placement objects.
    static constexpr uint32_t kSelectionMask = 0x00200000;

    SN_ATTRIBUTE(WorldInverseMatrix, worldInverseMatrix)

    // The unit cube, in the object's own space.
    static TboundingBox boundingBox() { return {T3Float(-1, -1, -1), T3Float(1, 1, 1)}; }
    static uint32_t selectionMask() { return kSelectionMask; }
    // The twelve edges of the cube for drawing, as pairs of corners.
    static unsigned cubeEdges(T3Float (&edges)[12][2]);
    // World to placement space: the inverse of the first path's matrix
    // (the node's own matrix when it has no parent).
    TfltMatrix placementMatrix();

protected:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
};
