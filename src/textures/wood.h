#pragma once
// TdnWood: concentric rings about an axis along z, narrowing towards the
// centre by an age law and varying in width at random, with a grain of
// dots over them. The ring and grain tables are made once per render from
// a fixed 48-bit seed, so every render of a scene shows the same wood.
#include <memory>

#include "textures/texture_3d.h"

struct TdnVSWood : TdnVSSolidView {
    TcolorAttribute fillerColor{"fillerColor", "fc", TiffTag("FIL3")};
    TcolorAttribute veinColor{"veinColor", "vc", TiffTag("VEI3")};
    TattributeFloat veinSpread{"veinSpread", "v", TiffTag("VSPR")};
    TattributeFloat layerSize{"layerSize", "ls", TiffTag("LAYE")};
    TattributeFloat randomness{"randomness", "rd", TiffTag("RAND")};
    TattributeFloat age{"age", "a", TiffTag("AGEX")};
    TcolorAttribute grainColor{"grainColor", "gc", TiffTag("GRA3")};
    TattributeFloat grainContrast{"grainContrast", "gx", TiffTag("GCON")};
    TattributeFloat grainSpacing{"grainSpacing", "gs", TiffTag("GSPA")};
    TpairAttribute center{"center", "c", TiffTag("CEN2"), "centerU", "cu", TiffTag("CENU"), "centerV", "cv", TiffTag("CENV")};
    TattributeFloat amplitudeX{"amplitudeX", "ax", TiffTag("AMPX")};
    TattributeFloat amplitudeY{"amplitudeY", "ay", TiffTag("AMPY")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TsolidOctaveAttributes octave;
    TdnVSWood();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// The values the tables are made from.
struct TwoodTableParams {
    float layerSize = 0.05f, randomness = 0.5f, age = 20.0f, grainSpacing = 0.01f;
};

// The per-render tables: ring start and end radii (in units of 1/512) and
// a 256 by 256 grain of dots.
struct TwoodTables {
    static constexpr int kMaxRings = 2000;  // 10 / the smallest layer size
    static constexpr int kGrainSide = 256;
    int rings = 0;
    float start[kMaxRings + 1];
    float end[kMaxRings + 1];
    float grain[kGrainSide * kGrainSide];
    // The generator state: a 48-bit value in three 16-bit words, low first.
    unsigned short state[3];

    void build(const TwoodTableParams& p);
    // The grain at (x, y) in texels, bilinear, 0 outside the table.
    float grainAt(float x, float y) const;
    // The ring that holds radius k, searching on from `hint`.
    int ringAt(float k, int hint) const;
};

struct TwoodParams {
    float veinSpread = 0.25f, grainContrast = 0.5f;
    T2Float center{0.5f, 0.5f};
    float amplitudeX = 0, amplitudeY = 0, ratio = 0.35f;
    T3Float ripples{1, 1, 1};
    T2Float depth{0, 0};
};

// The weights of a wood sample: of fillerColor (veinColor takes the rest of
// 1 - grain) and of grainColor.
struct TwoodWeights {
    float filler, vein, grain;
};

class TdnWood : public TnodeClass<TdnWood, TdnTx3D, TdnVSWood> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnWood", 511, "kWood");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(XPixelAngle, xPixelAngle)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_COLOR_ATTRIBUTE(FillerColor, fillerColor)
    SN_COLOR_ATTRIBUTE(VeinColor, veinColor)
    SN_ATTRIBUTE(VeinSpread, veinSpread)
    SN_ATTRIBUTE(LayerSize, layerSize)
    SN_ATTRIBUTE(Randomness, randomness)
    SN_ATTRIBUTE(Age, age)
    SN_COLOR_ATTRIBUTE(GrainColor, grainColor)
    SN_ATTRIBUTE(GrainContrast, grainContrast)
    SN_ATTRIBUTE(GrainSpacing, grainSpacing)
    SN_PAIR_ATTRIBUTE(Center, center, U, V)
    SN_ATTRIBUTE(AmplitudeX, amplitudeX)
    SN_ATTRIBUTE(AmplitudeY, amplitudeY)
    SN_ATTRIBUTE(Ratio, ratio)
    SN_VECTOR_ATTRIBUTE(Ripples, octave.ripples)
    SN_PAIR_ATTRIBUTE(Depth, octave.depth, Min, Max)

    // The largest ring index a sample reads.
    static constexpr int kLastRingIndex = 9999;

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;
    // Makes room for the tables when a render starts, so that the first
    // shading run only fills them.
    void shadingNodeInit(TframeSampleData* data) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // The tables of the current render, or null before the first compute.
    const TwoodTables* tables() const { return fTables.get(); }

    // The weights at the placed point p for the footprint w.
    static TwoodWeights sWeights(const TwoodTables& t, const TwoodParams& m, const T3Float& p, float w);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    // Made at the first render and kept: each render refills it in place.
    std::unique_ptr<TwoodTables> fTables;
};
