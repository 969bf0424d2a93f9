#pragma once
// TdnNoise: the 2D face of the noise library. One noise object (fractal
// value noise, billow blobs or plane waves) is set up per sample on the
// stack and read at the UV; the value shows in all three channels.
#include "textures/texture_2d.h"

struct TdnVSNoise : TdependNodeVS {
    TattributeFloat amplitude{"amplitude", "a", TiffTag("AMPL")};
    TattributeFloat ratio{"ratio", "ra", TiffTag("RATI")};
    TattributeFloat threshold{"threshold", "th", TiffTag("THRE")};
    TattributeInt16 depthMax{"depthMax", "dm", TiffTag("DEPM")};
    TattributeFloat frequency{"frequency", "fq", TiffTag("FREQ")};
    TattributeFloat frequencyRatio{"frequencyRatio", "fr", TiffTag("FRRT")};
    TattributeBoolean inflection{"inflection", "in", TiffTag("INFL")};
    TattributeFloat time{"time", "ti", TiffTag("TIME")};
    TattributeEnum noiseType{"noiseType", "nty", TiffTag("NOTY")};
    TattributeFloat density{"density", "d", TiffTag("DENS")};
    TattributeFloat spottyness{"spottyness", "sp", TiffTag("SPOT")};
    TattributeFloat sizeRand{"sizeRand", "sr", TiffTag("SZRN")};
    TattributeFloat randomness{"randomness", "rn", TiffTag("RAND")};
    TattributeEnum falloff{"falloff", "fof", TiffTag("FAOF")};
    TattributeInt16 numWaves{"numWaves", "nw", TiffTag("NUMW")};
    TattributeFloat implode{"implode", "imp", TiffTag("IMPL")};
    Tattribute2Float implodeCenter{"implodeCenter", "imc", TiffTag("IMPC")};
    TdnVSNoise();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TnoiseParams {
    float amplitude = 1, ratio = 0.707f, threshold = 0;
    short depthMax = 3;
    float frequency = 8, frequencyRatio = 2;
    bool inflection = false;
    float time = 0;
    short noiseType = 1;
    float density = 1, spottyness = 0.1f, sizeRand = 0, randomness = 1;
    short falloff = 2, numWaves = 5;
    float implode = 0;
    T2Float implodeCenter{0.5f, 0.5f};
};

class TdnNoise : public TnodeClass<TdnNoise, TdnTx2D, TdnVSNoise> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnNoise", 495, "kNoise");
    enum NoiseType : short { kPerlinNoise = 0, kBillow, kWave, kWispy, kSpaceTime };
    // The deepest fractal the node will sum, whatever depthMax says.
    static constexpr short kMaxDepth = 80;

    SN_ATTRIBUTE(Amplitude, amplitude)
    SN_ATTRIBUTE(Ratio, ratio)
    SN_ATTRIBUTE(Threshold, threshold)
    SN_ATTRIBUTE(DepthMax, depthMax)
    SN_ATTRIBUTE(Frequency, frequency)
    SN_ATTRIBUTE(FrequencyRatio, frequencyRatio)
    SN_ATTRIBUTE(Inflection, inflection)
    SN_ATTRIBUTE(Time, time)
    SN_ATTRIBUTE(NoiseType, noiseType)
    SN_ATTRIBUTE(Density, density)
    SN_ATTRIBUTE(Spottyness, spottyness)
    SN_ATTRIBUTE(SizeRand, sizeRand)
    SN_ATTRIBUTE(Randomness, randomness)
    SN_ATTRIBUTE(Falloff, falloff)
    SN_ATTRIBUTE(NumWaves, numWaves)
    SN_ATTRIBUTE(Implode, implode)
    SN_ATTRIBUTE(ImplodeCenter, implodeCenter)

    // The value at (u, v), held to 0 to 1: it is a colour and an alpha.
    static float sValue(const TnoiseParams& p, float u, float v);
    // The same before the hold at 0 (the noise objects only hold it at 1).
    static float sRawValue(const TnoiseParams& p, float u, float v);
    // The mean of the billow blob sum for these settings, per octave.
    static float sBillowMean(float density, float randomness, short falloff);
    // Below this mean the blobs vanish and the gain is left alone.
    static constexpr float kMinBillowMean = 1e-6f;

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
