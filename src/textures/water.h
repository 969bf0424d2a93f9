#pragma once
// TdnWater: a water surface as a height, seen as a grey level. A set of
// directional waves about the wind, made once into a list, plus a ring
// ripple spreading from a drop, optionally reflected inside a box.
#include "textures/texture_2d.h"

struct TdnVSWater : TdependNodeVS {
    TattributeInt16 numberOfWaves{"numberOfWaves", "nw", TiffTag("NUMW")};
    TattributeFloat waveTime{"waveTime", "wt", TiffTag("WTIM")};
    TattributeFloat waveVelocity{"waveVelocity", "wv", TiffTag("WVEL")};
    TattributeFloat waveAmplitude{"waveAmplitude", "wa", TiffTag("WAMP")};
    TattributeFloat waveFrequency{"waveFrequency", "wf", TiffTag("WFRE")};
    TattributeFloat subWaveFrequency{"subWaveFrequency", "swf", TiffTag("SWFR")};
    TattributeFloat smoothness{"smoothness", "s", TiffTag("SMOO")};
    Tattribute2Float windUV{"windUV", "wi", TiffTag("WIN2")};
    TattributeFloat rippleTime{"rippleTime", "rt", TiffTag("RTIM")};
    TattributeFloat rippleFrequency{"rippleFrequency", "rf", TiffTag("RFRE")};
    TattributeFloat rippleAmplitude{"rippleAmplitude", "ra", TiffTag("RAMP")};
    TattributeFloat dropSize{"dropSize", "ds", TiffTag("DROP")};
    Tattribute2Float rippleOrigin{"rippleOrigin", "rc", TiffTag("RCE2")};
    TattributeFloat groupVelocity{"groupVelocity", "gv", TiffTag("GVEL")};
    TattributeFloat phaseVelocity{"phaseVelocity", "pv", TiffTag("pVEL")};
    TattributeFloat spreadStart{"spreadStart", "ss", TiffTag("STAR")};
    TattributeFloat spreadRate{"spreadRate", "sr", TiffTag("RATE")};
    TattributeBoolean reflectionBox{"reflectionBox", "rb", TiffTag("RBOX")};
    Tattribute2Float boxMin{"boxMin", "bmn", TiffTag("BMI2")};
    Tattribute2Float boxMax{"boxMax", "bmx", TiffTag("BMA2")};
    TattributeBoolean fast{"fast", "fa", TiffTag("FAST")};
    TdnVSWater();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// What the wave list is made from.
struct TwaveListKey {
    short count = 8;
    float frequency = 4, subFrequency = 0.125f, smoothness = 2;
    T2Float wind{1, 1};
    bool fast = true;
    bool operator==(const TwaveListKey&) const = default;
};

// The directional waves: wave k is amplitude[k] * sin(2 pi (frequency[k] *
// (direction[k] . uv - time)) + phase[k]), for a unit wave amplitude.
struct TwaveList {
    static constexpr unsigned kMaxWaves = 128;
    TwaveListKey key;
    unsigned count = 0;
    bool valid = false;
    T2Float direction[kMaxWaves];
    float frequency[kMaxWaves], amplitude[kMaxWaves], phase[kMaxWaves];
};

struct TrippleParams {
    float time = 0, frequency = 25, amplitude = 0.05f, dropSize = 0.3f;
    T2Float origin{0.5f, 0.5f};
    float groupVelocity = 1, phaseVelocity = 2.5f, spreadStart = 0.005f, spreadRate = 0.3f;
    bool reflectionBox = false;
    T2Float boxMin{0, 0}, boxMax{1, 1};
};

class TdnWater : public TnodeClass<TdnWater, TdnTx2D, TdnVSWater> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnWater", 499, "kWater");
    SN_ATTRIBUTE(NumberOfWaves, numberOfWaves)
    SN_ATTRIBUTE(WaveTime, waveTime)
    SN_ATTRIBUTE(WaveVelocity, waveVelocity)
    SN_ATTRIBUTE(WaveAmplitude, waveAmplitude)
    SN_ATTRIBUTE(WaveFrequency, waveFrequency)
    SN_ATTRIBUTE(SubWaveFrequency, subWaveFrequency)
    SN_ATTRIBUTE(Smoothness, smoothness)
    SN_ATTRIBUTE(WindUV, windUV)
    SN_ATTRIBUTE(RippleTime, rippleTime)
    SN_ATTRIBUTE(RippleFrequency, rippleFrequency)
    SN_ATTRIBUTE(RippleAmplitude, rippleAmplitude)
    SN_ATTRIBUTE(DropSize, dropSize)
    SN_ATTRIBUTE(RippleOrigin, rippleOrigin)
    SN_ATTRIBUTE(GroupVelocity, groupVelocity)
    SN_ATTRIBUTE(PhaseVelocity, phaseVelocity)
    SN_ATTRIBUTE(SpreadStart, spreadStart)
    SN_ATTRIBUTE(SpreadRate, spreadRate)
    SN_ATTRIBUTE(ReflectionBox, reflectionBox)
    SN_ATTRIBUTE(BoxMin, boxMin)
    SN_ATTRIBUTE(BoxMax, boxMax)
    SN_ATTRIBUTE(Fast, fast)

    // Makes the wave list of `key`; the amplitudes sum to 1.
    static void sMakeWaveList(const TwaveListKey& key, TwaveList& list);
    // The node's own list, from the values in the block.
    void rebuildWaveList(TdataBlock& block);
    // The summed height of the waves at (u, v), for a wave amplitude of 1.
    static float sWaves(const TwaveList& list, float u, float v, float time, float velocity);
    // The ripple's height at (u, v), images in the box included.
    static float sRipple(const TrippleParams& p, float u, float v);

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    TwaveList fWaves;
};
