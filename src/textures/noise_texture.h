#pragma once
// TdnNoise: the 2D face of the noise library. One noise object (fractal
// value noise, billow blobs or plane waves) is set up per sample on the
// stack and read at the UV; the value shows in all three channels.
#include <array>

#include "textures/texture_2d.h"

// The attributes the flat and the solid noise textures share, in their
// order; `waveLabel` names the plane-wave type.
struct TnoiseAttributes {
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
    explicit TnoiseAttributes(const char* waveLabel);
    std::array<const Tattribute*, 16> all() const {
        return {&amplitude, &ratio,   &threshold,  &depthMax,   &frequency, &frequencyRatio, &inflection, &time,
                &noiseType, &density, &spottyness, &sizeRand,   &randomness, &falloff,       &numWaves,   &implode};
    }
};

// The accessors of a class whose description holds a TnoiseAttributes `noise`.
#define SN_NOISE_ATTRIBUTES \
    SN_ATTRIBUTE(Amplitude, noise.amplitude) \
    SN_ATTRIBUTE(Ratio, noise.ratio) \
    SN_ATTRIBUTE(Threshold, noise.threshold) \
    SN_ATTRIBUTE(DepthMax, noise.depthMax) \
    SN_ATTRIBUTE(Frequency, noise.frequency) \
    SN_ATTRIBUTE(FrequencyRatio, noise.frequencyRatio) \
    SN_ATTRIBUTE(Inflection, noise.inflection) \
    SN_ATTRIBUTE(Time, noise.time) \
    SN_ATTRIBUTE(NoiseType, noise.noiseType) \
    SN_ATTRIBUTE(Density, noise.density) \
    SN_ATTRIBUTE(Spottyness, noise.spottyness) \
    SN_ATTRIBUTE(SizeRand, noise.sizeRand) \
    SN_ATTRIBUTE(Randomness, noise.randomness) \
    SN_ATTRIBUTE(Falloff, noise.falloff) \
    SN_ATTRIBUTE(NumWaves, noise.numWaves) \
    SN_ATTRIBUTE(Implode, noise.implode)

struct TnoiseParams;
// Their values for each sample of a run.
struct TnoiseParamHandles {
    TdataHandle amplitude, ratio, threshold, depthMax, frequency, frequencyRatio, inflection, time, noiseType, density,
        spottyness, sizeRand, randomness, falloff, numWaves, implode;
    TnoiseParamHandles(TdataBlock& block, const TnoiseAttributes& a, unsigned first, unsigned count);
    // Every field but the implode centre.
    void read(unsigned i, TnoiseParams& p) const;
};

struct TdnVSNoise : TdependNodeVS {
    TnoiseAttributes noise{"Wave"};
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

    SN_NOISE_ATTRIBUTES
    SN_ATTRIBUTE(ImplodeCenter, implodeCenter)

    // The value at (u, v), held to 0 to 1: it is a colour and an alpha.
    static float sValue(const TnoiseParams& p, float u, float v);
    // The same before the hold at 0 (the noise objects only hold it at 1).
    static float sRawValue(const TnoiseParams& p, float u, float v);
    // The solid form: the value at a point in space, held at 0 from below.
    static float sSolidValue(const TnoiseParams& p, const T3Float& point, const T3Float& implodeCenter);
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

private:
    // One noise object of the type, read in the plane or in space.
    static float sEvaluate(const TnoiseParams& p, bool solid, const T3Float& q, const T3Float& implodeCenter);
};
