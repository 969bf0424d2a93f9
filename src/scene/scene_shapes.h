#pragma once
// The geometry a scene can hold: analytic shapes given by a few numbers and
// triangle meshes read from OBJ files. Each is a DAG shape placed by the
// transforms above it; the renderer turns it into geometry in object space.
#include "framework/host/attribute_groups.h"
#include "framework/host/dag.h"

// A sphere about the origin.
struct TsphereShapeVS : TdependNodeVS {
    TattributeFloat radius{"radius", "r", TiffTag("SPRA")};
    TsphereShapeVS() {
        radius.setNativeDefaultData(1.0);
        radius.setSoftMin(0);
    }
};
class TsphereShape : public TnodeClass<TsphereShape, TgeometryShape, TsphereShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TsphereShape", 1001, "kSphere", "sphere", "SPHR"};
    SN_ATTRIBUTE(Radius, radius)
};

// A rectangle in the XZ plane, centred on the origin, facing +Y.
struct TplaneShapeVS : TdependNodeVS {
    TattributeFloat width{"width", "w", TiffTag("PLWD")};    // along X
    TattributeFloat height{"height", "h", TiffTag("PLHT")};  // along Z
    TplaneShapeVS() {
        width.setNativeDefaultData(1.0);
        height.setNativeDefaultData(1.0);
    }
};
class TplaneShape : public TnodeClass<TplaneShape, TgeometryShape, TplaneShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TplaneShape", 1002, "kPlane", "plane", "PLAN"};
    SN_ATTRIBUTE(Width, width)
    SN_ATTRIBUTE(Height, height)
};

// An axis-aligned box centred on the origin.
struct TboxShapeVS : TdependNodeVS {
    TvectorAttribute size{"size", "sz", TiffTag("BXSZ")};
    TboxShapeVS() { size.setDefault(1, 1, 1); }
};
class TboxShape : public TnodeClass<TboxShape, TgeometryShape, TboxShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TboxShape", 1003, "kBox", "box", "BOXS"};
    SN_VECTOR_ATTRIBUTE(Size, size)
};

// A disc in the XZ plane about the origin, facing +Y.
struct TdiscShapeVS : TdependNodeVS {
    TattributeFloat radius{"radius", "r", TiffTag("DSRA")};
    TdiscShapeVS() { radius.setNativeDefaultData(1.0); }
};
class TdiscShape : public TnodeClass<TdiscShape, TgeometryShape, TdiscShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TdiscShape", 1004, "kDisc", "disc", "DISC"};
    SN_ATTRIBUTE(Radius, radius)
};

// A triangle mesh from an OBJ file. A relative file name is taken from the
// scene file's folder. Faces with more than three corners are split in fans.
struct TmeshShapeVS : TdependNodeVS {
    TattributeTyped fileName{"fileName", "fn", TiffTag("MSFN"), TattributeTyped::Kind::kString};
    TattributeBoolean smoothNormals{"smoothNormals", "sn", TiffTag("MSSN")};  // when the file has no normals
};
class TmeshShape : public TnodeClass<TmeshShape, TgeometryShape, TmeshShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TmeshShape", 1005, "kMesh", "mesh", "MESH"};
    SN_ATTRIBUTE(FileName, fileName)
    SN_ATTRIBUTE(SmoothNormals, smoothNormals)
};
