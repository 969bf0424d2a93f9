#pragma once
// The DAG side of the data model, as far as shading and lights need it:
// transforms in a hierarchy, shapes under them (a shape under several
// transforms is instanced), paths with their matrices, and object sets.
#include <vector>

#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"

class TdagPath;

struct TdagNodeVS : TdependNodeVS {};

class TdagNode : public TnodeClass<TdagNode, TdependNode, TdagNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TdagNode", 107, "kDagNode", "dagNode", "DAGN", "", true};

    ~TdagNode() override;
    const std::vector<TdagNode*>& parents() const { return fParents; }
    const std::vector<TdagNode*>& children() const { return fChildren; }
    // Adds `child` under this node; a second parent instances it. False for
    // a cycle or a repeat.
    bool addChild(TdagNode* child);
    bool removeChild(TdagNode* child);
    // Every path from a root to this node, one per instance.
    std::vector<TdagPath> allPaths();
    // The local matrix of this node: identity but for transforms.
    virtual Tmatrix localMatrix() { return Tmatrix(); }
    void aboutToDelete() override;

private:
    std::vector<TdagNode*> fParents;
    std::vector<TdagNode*> fChildren;
};

struct TtransformVS : TdependNodeVS {
    TvectorAttribute translate{"translate", "t", TiffTag("TRAN")};
    TvectorAttribute rotate{"rotate", "r", TiffTag("ROTA")};  // degrees, applied X then Y then Z
    TvectorAttribute scale{"scale", "s", TiffTag("SCAL")};
    TattributeBoolean visibility{"visibility", "v", TiffTag("VISI")};
    TtransformVS() {
        scale.setDefault(1, 1, 1);
        visibility.setNativeDefaultData(1.0);
    }
};

class Ttransform : public TnodeClass<Ttransform, TdagNode, TtransformVS> {
public:
    static constexpr TnodeClassInfo kInfo{"Ttransform", 110, "kTransform", "transform", "XFRM"};
    SN_VECTOR_ATTRIBUTE(Translate, translate)
    SN_VECTOR_ATTRIBUTE(Rotate, rotate)
    SN_VECTOR_ATTRIBUTE(Scale, scale)
    SN_ATTRIBUTE(Visibility, visibility)

    // Scale, then rotation, then translation, for row vectors.
    Tmatrix localMatrix() override;
};

class TdagPath {
public:
    TdagPath() = default;
    explicit TdagPath(std::vector<TdagNode*> nodes) : fNodes(std::move(nodes)) {}
    bool isValid() const { return !fNodes.empty(); }
    TdagNode* node() const { return fNodes.empty() ? nullptr : fNodes.back(); }
    const std::vector<TdagNode*>& nodes() const { return fNodes; }
    unsigned length() const { return unsigned(fNodes.size()); }
    // Object to world: the local matrices from this node up to the root.
    Tmatrix inclusiveMatrix() const;
    Tmatrix inclusiveMatrixInverse() const { return inclusiveMatrix().inverse(); }
    // Which instance of its node this path is: the index among allPaths().
    unsigned instanceNumber() const;
    std::string fullPathName() const;  // "|group|ball|ballShape"
    friend bool operator==(const TdagPath& a, const TdagPath& b) { return a.fNodes == b.fNodes; }

private:
    std::vector<TdagNode*> fNodes;
};

// A shape that the renderer turns into geometry.
struct TgeometryShapeVS : TdependNodeVS {
    TattributeBoolean castsShadows{"castsShadows", "csh", TiffTag("CSHD")};
    TattributeBoolean receiveShadows{"receiveShadows", "rcsh", TiffTag("RSHD")};
    TattributeBoolean primaryVisibility{"primaryVisibility", "vis", TiffTag("PVIS")};
    TgeometryShapeVS() {
        castsShadows.setNativeDefaultData(1.0);
        receiveShadows.setNativeDefaultData(1.0);
        primaryVisibility.setNativeDefaultData(1.0);
    }
};

class TgeometryShape : public TnodeClass<TgeometryShape, TdagNode, TgeometryShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TgeometryShape", 294, "kGeometric", "geometryShape", "GEOS", "", true};
    SN_ATTRIBUTE(CastsShadows, castsShadows)
    SN_ATTRIBUTE(ReceiveShadows, receiveShadows)
    SN_ATTRIBUTE(PrimaryVisibility, primaryVisibility)
};

// The light shape of the data model; render lights derive from it.
struct TlightShapeVS : TdependNodeVS {
    TcolorAttribute color{"color", "cl", TiffTag("LCOL")};
    TattributeFloat intensity{"intensity", "in", TiffTag("LINT")};
    TcolorAttribute shadowColor{"shadowColor", "sc", TiffTag("LSHC")};
    TattributeBoolean useRayTraceShadows{"useRayTraceShadows", "urs", TiffTag("URTS")};
    TattributeLightData lightData{"lightData", "ltd", TiffTag("LTDA")};
    TattributeFloat uCoord{"uCoord", "uu", TiffTag("LUCO")};
    TattributeFloat vCoord{"vCoord", "vv", TiffTag("LVCO")};
    TpairAttribute uvFilterSize{"uvFilterSize", "ufs", TiffTag("LUVF"), "uvFilterSizeX", "ufx", TiffTag("LUVX"),
                                "uvFilterSizeY", "ufy", TiffTag("LUVY")};
    TattributeInt32 infoBits{"infoBits", "ib", TiffTag("LINB")};
    TlightShapeVS() {
        color.setDefault(1, 1, 1);
        intensity.setNativeDefaultData(1.0);
        intensity.setSoftMin(0);
        intensity.setSoftMax(10);
        uCoord.makeImplicitInput();
        vCoord.makeImplicitInput();
        uvFilterSize.whole.makeImplicitInput();
        infoBits.makeImplicitInput();
        lightData.setFlag(kAttrWritable, false);
        lightData.setComputeModifies(true);
    }
};

class TlightShape : public TnodeClass<TlightShape, TdagNode, TlightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TlightShape", 302, "kLight", "light", "LGHT", "", true};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Intensity, intensity)
    SN_COLOR_ATTRIBUTE(ShadowColor, shadowColor)
    SN_ATTRIBUTE(UseRayTraceShadows, useRayTraceShadows)
    SN_ATTRIBUTE(LightData, lightData)
    SN_ATTRIBUTE(UCoord, uCoord)
    SN_ATTRIBUTE(VCoord, vCoord)
    SN_PAIR_ATTRIBUTE(UvFilterSize, uvFilterSize, X, Y)
    SN_ATTRIBUTE(InfoBits, infoBits)
};

// A set of objects: DAG paths and plain nodes.
struct TobjectSetVS : TdependNodeVS {
    TattributeMessage dagSetMembers{"dagSetMembers", "dsm", TiffTag("DSMB")};
    TobjectSetVS() { dagSetMembers.setMulti(true); }
};

class TobjectSet : public TnodeClass<TobjectSet, TdependNode, TobjectSetVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TobjectSet", 459, "kSet", "objectSet", "OSET"};
    SN_ATTRIBUTE(DagSetMembers, dagSetMembers)

    bool addMember(const TdagPath& path);
    bool removeMember(const TdagPath& path);
    bool isMember(const TdagPath& path) const;
    const std::vector<TdagPath>& members() const { return fMembers; }
    // Moves `paths` into the sets given, one set per path, taking them out of
    // any other set of the same graph first.
    static void moveItemsToSet(const std::vector<TdagPath>& paths, const std::vector<TobjectSet*>& sets);

private:
    std::vector<TdagPath> fMembers;
};
