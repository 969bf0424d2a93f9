#pragma once
// TdnSolidFractal: the fractal texture in space. Octaves of value noise,
// as many as the footprint allows, bent by bias and folded by inflection,
// optionally moving through time.
#include "textures/fractal.h"
#include "textures/texture_3d.h"

struct TdnVSSolidFractal : TdnVSSolid {
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TsolidOctaveAttributes octave;
    TattributeFloat frequencyRatio{"frequencyRatio", "fr", TiffTag("FRRT")};
    TattributeFloat bias{"bias", "bs", TiffTag("BIAS")};
    TattributeBoolean inflection{"inflection", "in", TiffTag("INFL")};
    TattributeBoolean animated{"animated", "an", TiffTag("ANIM")};
    TattributeFloat timeRatio{"timeRatio", "tr", TiffTag("TMRT")};
    TattributeFloat time{"time", "ti", TiffTag("TIME")};
    TdnVSSolidFractal();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TsolidFractalParams {
    TfractalParams fractal;  // levelMin and levelMax come from `depth`
    T3Float ripples{1, 1, 1};
};

class TdnSolidFractal : public TnodeClass<TdnSolidFractal, TdnTx3D, TdnVSSolidFractal> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnSolidFractal", 508, "kSolidFractal");
    SN_VECTOR_ATTRIBUTE(RefPointObj, refPointObj)
    SN_VECTOR_ATTRIBUTE(RefPointCamera, refPointCamera)
    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(Ratio, ratio)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_VECTOR_ATTRIBUTE(Ripples, octave.ripples)
    SN_PAIR_ATTRIBUTE(Depth, octave.depth, Min, Max)
    SN_ATTRIBUTE(FrequencyRatio, frequencyRatio)
    SN_ATTRIBUTE(Bias, bias)
    SN_ATTRIBUTE(Inflection, inflection)
    SN_ATTRIBUTE(Animated, animated)
    SN_ATTRIBUTE(TimeRatio, timeRatio)
    SN_ATTRIBUTE(Time, time)

    // Time cells per unit of `time` in the animated form: as many as the
    // space lattice has per unit.
    static constexpr int kTimePeriod = 32;

    // The fractal's level range for a depth pair: an empty pair (the
    // default 0, 0) leaves the footprint alone up to the deepest level.
    static void sDepthToLevels(T2Float depth, TfractalParams& f);
    // The value at the placed point p for the footprint w, at most 1.
    static float sValue(const TsolidFractalParams& s, const T3Float& p, float w);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
