#pragma once
// TdnMountain: a fractal height field shaded as rock, with snow where the
// ground is high and gentle enough to hold it. A first sum finds height and
// slope; the surface it picks (snow or rock) sets the roughness of a second
// sum, whose height shades the colour.
#include "textures/texture_2d.h"

struct TdnVSMountain : TdependNodeVS {
    TcolorAttribute snowColor{"snowColor", "sc", TiffTag("SNO3")};
    TcolorAttribute rockColor{"rockColor", "rc", TiffTag("ROC3")};
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat snowRoughness{"snowRoughness", "sr", TiffTag("SNOW")};
    TattributeFloat rockRoughness{"rockRoughness", "rr", TiffTag("ROCK")};
    TattributeFloat boundary{"boundary", "bo", TiffTag("BOUN")};
    TattributeFloat snowAltitude{"snowAltitude", "sa", TiffTag("SALT")};
    TattributeFloat snowDropoff{"snowDropoff", "sd", TiffTag("SDRO")};
    TattributeFloat snowSlope{"snowSlope", "ss", TiffTag("SLOP")};
    TattributeFloat depthMax{"depthMax", "dmx", TiffTag("DMAX")};
    TdnVSMountain();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TmountainParams {
    float amplitude = 1, snowRoughness = 0.4f, rockRoughness = 0.707f, boundary = 1, snowAltitude = 0.5f, snowDropoff = 2,
          snowSlope = 0.8f, depthMax = 20;
};

// What the two sums give at one sample.
struct TmountainSample {
    float snow;   // weight of the snow colour, 0 to 1
    float shade;  // the final height as a shade, 0 to 1
};

class TdnMountain : public TnodeClass<TdnMountain, TdnTx2D, TdnVSMountain> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnMountain", 494, "kMountain");
    SN_COLOR_ATTRIBUTE(SnowColor, snowColor)
    SN_COLOR_ATTRIBUTE(RockColor, rockColor)
    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(SnowRoughness, snowRoughness)
    SN_ATTRIBUTE(RockRoughness, rockRoughness)
    SN_ATTRIBUTE(Boundary, boundary)
    SN_ATTRIBUTE(SnowAltitude, snowAltitude)
    SN_ATTRIBUTE(SnowDropoff, snowDropoff)
    SN_ATTRIBUTE(SnowSlope, snowSlope)
    SN_ATTRIBUTE(DepthMax, depthMax)

    // One fractal sum of the height field with the given roughness:
    // height (the raw sum) and its gradient in lattice cells.
    static void sHeight(float u, float v, float amplitude, float roughness, float levels, float& height, float& gx, float& gy);
    // The number of octaves, fractional, for the filter width fw.
    static float sLevels(float fw, float depthMax);
    static TmountainSample sSample(const TmountainParams& p, float u, float v, float fw);

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;
    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
