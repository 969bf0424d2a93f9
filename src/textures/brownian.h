#pragma once
// TdnBrownian: fractional Brownian motion of gradient noise. Each octave is
// `lacunarity` times finer than the last and weighs lacunarity^-increment
// relative to it; the footprint cuts the octaves the pixel cannot show.
#include "textures/texture_3d.h"

struct TdnVSBrownian : TdnVSSolidView {
    TattributeFloat lacunarity{"lacunarity", "l", TiffTag("LACU")};
    TattributeFloat increment{"increment", "ic", TiffTag("INCR")};
    TattributeFloat octaves{"octaves", "oct", TiffTag("OCTA")};
    TvectorAttribute weight3d{"weight3d", "w3", TiffTag("W3D3")};
    TdnVSBrownian();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TbrownianParams {
    float lacunarity = 4, increment = 0.1f, octaves = 3;
    T3Float weight3d{1, 1, 1};
};

class TdnBrownian : public TnodeClass<TdnBrownian, TdnTx3D, TdnVSBrownian> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnBrownian", 500, "kBrownian");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(Lacunarity, lacunarity)
    SN_ATTRIBUTE(Increment, increment)
    SN_ATTRIBUTE(Octaves, octaves)
    SN_VECTOR_ATTRIBUTE(Weight3d, weight3d)

    // The value at the placed point p for the footprint w: sum / 2 + 1/2.
    static float sValue(const TbrownianParams& b, const T3Float& p, float w);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
