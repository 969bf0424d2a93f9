#pragma once
// TdnVolumeNoise: the noise texture's five kinds of noise read in space,
// with a scale and an origin of their own.
#include "textures/noise_texture.h"
#include "textures/texture_3d.h"

struct TdnVSVolumeNoise : TdnVSSolid {
    TnoiseAttributes noise{"Volume Wave"};
    TvectorAttribute scale{"scale", "sc", TiffTag("SCL3")};
    TvectorAttribute origin{"origin", "orr", TiffTag("ORG3")};
    TvectorAttribute implodeCenter{"implodeCenter", "imc", TiffTag("IMPC")};
    TdnVSVolumeNoise();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnVolumeNoise : public TnodeClass<TdnVolumeNoise, TdnTx3D, TdnVSVolumeNoise> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnVolumeNoise", 510, "kVolumeNoise");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_NOISE_ATTRIBUTES
    SN_VECTOR_ATTRIBUTE(Scale, scale)
    SN_VECTOR_ATTRIBUTE(Origin, origin)
    SN_VECTOR_ATTRIBUTE(ImplodeCenter, implodeCenter)

    // The point the noise reads: (p - origin) / scale, each scale held at
    // least 1e-05 away from 0.
    static T3Float sNoisePoint(const T3Float& p, const T3Float& origin, const T3Float& scale);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
