#pragma once
// TdnFractal: a sum of octaves of value noise whose number follows the
// filter width, so that a distant or minified surface loses the octaves it
// cannot show. Bias pushes values towards the extremes or towards 0,
// inflection folds them into creases, and the animated form moves through
// time.
#include "textures/texture_2d.h"

struct TdnVSFractal : TdependNodeVS {
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TattributeFloat levelMin{"levelMin", "lmn", TiffTag("LMIN")};
    TattributeFloat levelMax{"levelMax", "lmx", TiffTag("LMAX")};
    TattributeFloat frequencyRatio{"frequencyRatio", "fr", TiffTag("FRRT")};
    TattributeFloat bias{"bias", "bs", TiffTag("BIAS")};
    TattributeBoolean inflection{"inflection", "in", TiffTag("INFL")};
    TattributeBoolean animated{"animated", "an", TiffTag("ANIM")};
    TattributeFloat timeRatio{"timeRatio", "tr", TiffTag("TMRT")};
    TattributeFloat time{"time", "ti", TiffTag("TIME")};
    TdnVSFractal();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TfractalParams {
    float amplitude = 1, ratio = 0.707f, threshold = 0, levelMin = 0, levelMax = 9, frequencyRatio = 2, bias = 0;
    bool inflection = false, animated = false;
    float timeRatio = 2, time = 0;
};

class TdnFractal : public TnodeClass<TdnFractal, TdnTx2D, TdnVSFractal> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnFractal", 492, "kFractal");
    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(Ratio, ratio)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_ATTRIBUTE(LevelMin, levelMin)
    SN_ATTRIBUTE(LevelMax, levelMax)
    SN_ATTRIBUTE(FrequencyRatio, frequencyRatio)
    SN_ATTRIBUTE(Bias, bias)
    SN_ATTRIBUTE(Inflection, inflection)
    SN_ATTRIBUTE(Animated, animated)
    SN_ATTRIBUTE(TimeRatio, timeRatio)
    SN_ATTRIBUTE(Time, time)

    // Class-wide: the old placement of the lookup, each octave at the
    // previous one's coordinates times the frequency ratio.
    static bool oldFractal;

    // The number of octaves, fractional, for the filter width fw.
    static float sLevels(const TfractalParams& p, float fw);
    // The bias curve on one noise value (-1 to 1 in, -1 to 1 out).
    static float sBias(float v, float bias);
    // The value at (u, v) for the filter width fw: at most 1.
    static float sValue(const TfractalParams& p, float u, float v, float fw);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
