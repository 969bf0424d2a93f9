#pragma once
// Tcamera: the eye of a render, a DAG shape placed by the transforms above
// it. It looks down its local -Z axis with +Y up, so camera space is the
// space of its first path.
#include "framework/host/attribute_groups.h"
#include "framework/host/dag.h"

struct TcameraVS : TdependNodeVS {
    TattributeBoolean orthographic{"orthographic", "o", TiffTag("CORT")};
    TattributeFloat focalLength{"focalLength", "fl", TiffTag("CFOC")};  // millimetres
    // Width of the film gate in millimetres; with the focal length it gives
    // the horizontal field of view. The image height follows the image aspect.
    TattributeFloat horizontalFilmAperture{"horizontalFilmAperture", "hfa", TiffTag("CHFA")};
    TattributeFloat orthographicWidth{"orthographicWidth", "ow", TiffTag("COWD")};  // scene units
    TattributeFloat nearClipPlane{"nearClipPlane", "ncp", TiffTag("CNCP")};
    TattributeFloat farClipPlane{"farClipPlane", "fcp", TiffTag("CFCP")};
    TcolorAttribute backgroundColor{"backgroundColor", "bgc", TiffTag("CBGC")};
    TattributeBoolean renderable{"renderable", "rnd", TiffTag("CRND")};
    TcameraVS() {
        focalLength.setNativeDefaultData(35.0);
        horizontalFilmAperture.setNativeDefaultData(36.0);
        orthographicWidth.setNativeDefaultData(10.0);
        nearClipPlane.setNativeDefaultData(0.01);
        farClipPlane.setNativeDefaultData(1.0e6);
        backgroundColor.setDefault(0, 0, 0);
        renderable.setNativeDefaultData(1.0);
        for (TattributeFloat* a : {&focalLength, &horizontalFilmAperture, &orthographicWidth, &nearClipPlane, &farClipPlane})
            a->setSoftMin(0);
    }
};

class Tcamera : public TnodeClass<Tcamera, TdagNode, TcameraVS> {
public:
    static constexpr TnodeClassInfo kInfo{"Tcamera", 250, "kCamera", "camera", "CAMR"};
    SN_ATTRIBUTE(Orthographic, orthographic)
    SN_ATTRIBUTE(FocalLength, focalLength)
    SN_ATTRIBUTE(HorizontalFilmAperture, horizontalFilmAperture)
    SN_ATTRIBUTE(OrthographicWidth, orthographicWidth)
    SN_ATTRIBUTE(NearClipPlane, nearClipPlane)
    SN_ATTRIBUTE(FarClipPlane, farClipPlane)
    SN_COLOR_ATTRIBUTE(BackgroundColor, backgroundColor)
    SN_ATTRIBUTE(Renderable, renderable)
};
