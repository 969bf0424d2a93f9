#pragma once
// TdnOcean: an ocean surface made of bands of travelling waves between a
// shortest and a longest wave length, their directions spread about the
// wind. Three curves over the bands (short waves at 0, long at 1) shape the
// height, the turbulence (how much each wave swells and fades in time) and
// the peaking (sharp crests, broad troughs). Foam gathers on the crests.
// ToceanWaves is the wave evaluation an ocean shader shares.
#include "textures/texture_2d.h"

struct TcurveAttribute {
    TattributeCompound whole;
    TattributeFloat position, value;
    TattributeEnum interp;
    TcurveAttribute(const char* name, const char* shortName, TiffTag tag, const char* posShort, TiffTag posTag,
                    const char* valShort, TiffTag valTag, const char* interpShort, TiffTag interpTag);
};

struct TdnVSOcean : TdependNodeVS {
    TattributeFloat time{"time", "ti", TiffTag("TIME")};
    TattributeFloat scale{"scale", "sc", TiffTag("SCAL")};
    Tattribute2Float windUV{"windUV", "wi", TiffTag("WIN2")};
    TattributeFloat observerSpeed{"observerSpeed", "os", TiffTag("OBSP")};
    TattributeFloat waveDirSpread{"waveDirSpread", "wd", TiffTag("WDSP")};
    TattributeFloat numFrequencies{"numFrequencies", "nf", TiffTag("NMFR")};
    TattributeFloat waveLengthMin{"waveLengthMin", "wlm", TiffTag("WLMN")};
    TattributeFloat waveLengthMax{"waveLengthMax", "wlx", TiffTag("WLMX")};
    TcurveAttribute waveHeight{"waveHeight", "wh", "WVHT", "whp", "WHPS", "whv", "WHFV", "whi", "WHIN"};
    TcurveAttribute waveTurbulence{"waveTurbulence", "wto", "WVTB", "wtp", "WTPS", "wtv", "WTFV", "wti", "WTIN"};
    TcurveAttribute wavePeaking{"wavePeaking", "wp", "WVPK", "wpp", "WPPS", "wpv", "WPFV", "wpi", "WPIN"};
    TattributeFloat foamEmission{"foamEmission", "fme", TiffTag("FMEM")};
    TattributeFloat foamThreshold{"foamThreshold", "fmt", TiffTag("FMTH")};
    TattributeEnum colorMode{"colorMode", "cmd", TiffTag("COMD")};
    TattributeFloat outFoam{"outFoam", "ofm", TiffTag("OFOM")};
    TdnVSOcean();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// A curve of (position, value, interpolation) keys over 0 to 1.
struct ToceanCurve {
    enum Interp : short { kNone = 0, kLinear, kSmooth, kSpline };
    static constexpr unsigned kMaxKeys = 32;
    unsigned count = 0;
    float position[kMaxKeys], value[kMaxKeys];
    short interp[kMaxKeys];
    // Adds a key, keeping the keys sorted by position.
    void add(float position, float value, short interp);
    // The value at x; `fallback` for a curve with no keys. Outside the keys
    // the nearest key holds; between two keys the lower key's interpolation.
    float at(float x, float fallback) const;
};

struct ToceanParams {
    float time = 0, scale = 10;
    T2Float wind{1, 1};
    float observerSpeed = 0, waveDirSpread = 0.2f, numFrequencies = 3, waveLengthMin = 0.3f, waveLengthMax = 4;
    bool operator==(const ToceanParams&) const = default;
};

struct ToceanWaves {
    static constexpr unsigned kMaxBands = 32;
    static constexpr unsigned kWavesPerBand = 4;
    static constexpr unsigned kMaxWaves = kMaxBands * kWavesPerBand;
    static constexpr float kGravity = 9.8f;

    ToceanParams params;
    bool valid = false;
    unsigned count = 0;
    T2Float direction[kMaxWaves];
    float wavenumber[kMaxWaves], omega[kMaxWaves], amplitude[kMaxWaves], phase[kMaxWaves], peaking[kMaxWaves];
    float totalAmplitude = 0;
    T2Float drift{0, 0};

    void build(const ToceanParams& p, const ToceanCurve& height, const ToceanCurve& turbulence, const ToceanCurve& peakingCurve);
    // The height at (u, v), normalised to -1 to 1.
    float height(float u, float v) const;
    // Foam at a normalised height h01 (0 to 1), 0 to 1.
    static float foam(float h01, float emission, float threshold);
};

class TdnOcean : public TnodeClass<TdnOcean, TdnTx2D, TdnVSOcean> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnOcean", 871, "kOcean");
    enum ColorMode : short { kWaveHeight = 0, kFoam, kFoamOnWaves };

    SN_ATTRIBUTE(Time, time)
    SN_ATTRIBUTE(Scale, scale)
    SN_ATTRIBUTE(WindUV, windUV)
    SN_ATTRIBUTE(ObserverSpeed, observerSpeed)
    SN_ATTRIBUTE(WaveDirSpread, waveDirSpread)
    SN_ATTRIBUTE(NumFrequencies, numFrequencies)
    SN_ATTRIBUTE(WaveLengthMin, waveLengthMin)
    SN_ATTRIBUTE(WaveLengthMax, waveLengthMax)
    SN_ATTRIBUTE(WaveHeight, waveHeight.whole)
    SN_ATTRIBUTE(WaveHeightPosition, waveHeight.position)
    SN_ATTRIBUTE(WaveHeightFloatValue, waveHeight.value)
    SN_ATTRIBUTE(WaveHeightInterp, waveHeight.interp)
    SN_ATTRIBUTE(WaveTurbulence, waveTurbulence.whole)
    SN_ATTRIBUTE(WaveTurbulencePosition, waveTurbulence.position)
    SN_ATTRIBUTE(WaveTurbulenceFloatValue, waveTurbulence.value)
    SN_ATTRIBUTE(WaveTurbulenceInterp, waveTurbulence.interp)
    SN_ATTRIBUTE(WavePeaking, wavePeaking.whole)
    SN_ATTRIBUTE(WavePeakingPosition, wavePeaking.position)
    SN_ATTRIBUTE(WavePeakingFloatValue, wavePeaking.value)
    SN_ATTRIBUTE(WavePeakingInterp, wavePeaking.interp)
    SN_ATTRIBUTE(FoamEmission, foamEmission)
    SN_ATTRIBUTE(FoamThreshold, foamThreshold)
    SN_ATTRIBUTE(ColorMode, colorMode)
    SN_ATTRIBUTE(OutFoam, outFoam)

    // The three curves as the block holds them.
    static void readCurves(TdataBlock& block, ToceanCurve& height, ToceanCurve& turbulence, ToceanCurve& peaking);
    // The grey level colorMode shows for normalised height h01 and foam.
    static float sShown(short colorMode, float h01, float foam);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
