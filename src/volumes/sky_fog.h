#pragma once
// The physically based fog model: uniform, atmospheric, sky and under-water
// fogs and a simple height fog, evaluated in double precision for one ray
// segment. Fill the fields, call init() once, then evaluate from any number
// of threads: every evaluation is const.
#include "framework/host/double_math.h"

enum TskyFogType {
    kConstantFog = 0,  // "Uniform Fog"
    kAtmosFog = 1,     // "Atmospheric"
    kSkyFog = 2,       // "Sky"
    kWater = 3,        // "Water"
    kWaterFog = 4,     // "Water/Fog": water, then uniform
    kWaterAtmos = 5,   // "Water/Atmos": water, then atmospheric
    kWaterSky = 6,     // "Water/Sky": water, then sky
    kSimpleHeightFog = 10,
};

enum TskyFogAxis { kAxisX = 0, kAxisNegX = 1, kAxisY = 2, kAxisNegY = 3, kAxisZ = 4, kAxisNegZ = 5 };

class TskyFog {
public:
    void setFogType(int type) { fFogType = type; }
    void setFogDensity(double v) { fFogDensity = v; }
    void setFogColor(const T3Double& v) { fFogColor = v; }
    void setFogOpacity(const T3Double& v) { fFogOpacity = v; }
    void setFogMinHeight(double v) { fFogMinHeight = v; }
    void setFogMaxHeight(double v) { fFogMaxHeight = v; }
    void setFogDecay(double v) { fFogDecay = v; }
    void setFogLightScatter(double v) { fFogLightScatter = v; }
    void setAirDensity(double v) { fAirDensity = v; }
    void setAirColor(const T3Double& v) { fAirColor = v; }
    void setAirOpacity(const T3Double& v) { fAirOpacity = v; }
    void setAirMinHeight(double v) { fAirMinHeight = v; }
    void setAirMaxHeight(double v) { fAirMaxHeight = v; }
    void setAirDecay(double v) { fAirDecay = v; }
    void setAirLightScatter(double v) { fAirLightScatter = v; }
    void setWaterDensity(double v) { fWaterDensity = v; }
    void setWaterColor(const T3Double& v) { fWaterColor = v; }
    void setWaterOpacity(const T3Double& v) { fWaterOpacity = v; }
    void setWaterMinDepth(double v) { fWaterMinDepth = v; }
    void setWaterMaxDepth(double v) { fWaterMaxDepth = v; }
    void setWaterLightDecay(double v) { fWaterLightDecay = v; }
    void setWaterLightScatter(double v) { fWaterLightScatter = v; }
    void setPlanetRadius(double v) { fPlanetRadius = v; }
    void setAxis(int axis) { fAxis = axis; }
    void setSunIntensity(double v) { fSunIntensity = v; }
    void setSunAzimuth(double degrees) { fSunAzimuth = degrees; }
    void setSunElevation(double degrees) { fSunElevation = degrees; }
    void setSunColor(const T3Double& v) { fSunColor = v; }
    void setClip(bool on) { fClip = on; }
    void setNearClip(double v) { fNearClip = v; }
    void setFarClip(double v) { fFarClip = v; }
    void setColorBasedTransp(bool on) { fColorBasedTransp = on; }
    void setUseHeight(bool on) { fUseHeight = on; }

    // Derives extinctions, sun direction and light from the fields.
    void init();
    bool hasSomeFog() const;
    bool isUniformFog() const { return fFogType == kConstantFog; }

    // Fog over `distance` along `direction` from `point`. False when there is
    // nothing to apply; the outputs are untouched when there is no fog at all.
    bool getFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                T3Double& transparency) const;
    // Fogs `inOut` in place; false only when there is no fog at all.
    bool applyFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& inOut) const;
    // inOut = transparency * inOut + color.
    static void apply(const T3Double& color, const T3Double& transparency, T3Double& inOut);

    // Phase functions normalised over the sphere, and the shaping helpers.
    static double henyeyScatter(double cosAngle, double g);
    static double rayleigh(double cosAngle);
    static double applyBias(double value, double bias);
    static double dropoffFunc(const T4dDblPoint& point, double height, double radius, double bias);
    // Distance along the ray to the sphere of `radius` about the origin:
    // the smaller non-negative root, negative on a miss.
    static double intSphere(const T4dDblPoint& point, const T4dDblVector& direction, double radius);

    // Derived values, valid after init().
    const T3Double& fogExtinction() const { return fFogExtinction; }
    const T3Double& airExtinction() const { return fAirExtinction; }
    const T3Double& waterExtinction() const { return fWaterExtinction; }
    const T3Double& sunDirection() const { return fSunDirection; }
    const T3Double& sunLight() const { return fSunLight; }
    const T3Double& totalExtinction() const { return fTotalExtinction; }
    const T3Double& meanFogColor() const { return fMeanFogColor; }
    const T3Double& waterHalfDistance() const { return fWaterHalfDistance; }

protected:
    bool getUniformFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                       T3Double& transparency) const;
    bool getAtmosphericFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                           T3Double& color, T3Double& transparency) const;
    bool getSkyFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                   T3Double& transparency) const;
    bool getToviFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                    T3Double& transparency) const;
    bool getUnderWaterFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                          T3Double& color, T3Double& transparency, bool& startsInWater,
                          double& distanceOut) const;

private:
    double axisHeight(const T4dDblPoint& point) const;
    double downwardSlope(const T4dDblVector& direction) const;
    double scatterWeight(const T4dDblVector& direction, double scatter) const;
    // Colour of the uniform and atmospheric fogs once the transparency is known.
    void scatteredColor(const T4dDblVector& direction, const T3Double& transparency, T3Double& color) const;
    bool evaluateAir(int type, const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                     T3Double& color, T3Double& transparency) const;

    int fFogType = kConstantFog;
    double fFogDensity = 0.1;
    T3Double fFogColor{1, 1, 1};
    T3Double fFogOpacity{0.5, 0.5, 0.5};
    double fFogMinHeight = 0;
    double fFogMaxHeight = 10;
    double fFogDecay = 0;
    double fFogLightScatter = 1;
    double fAirDensity = 0;
    T3Double fAirColor{1, 1, 1};
    T3Double fAirOpacity{0.5, 0.5, 0.5};
    double fAirMinHeight = 0;
    double fAirMaxHeight = 100;
    double fAirDecay = 0;
    double fAirLightScatter = 1;
    double fWaterDensity = 0;
    T3Double fWaterColor{1, 1, 1};
    T3Double fWaterOpacity{0.5, 0.5, 0.5};
    double fWaterMinDepth = 0;
    double fWaterMaxDepth = 100;
    double fWaterLightDecay = 1;
    double fWaterLightScatter = 1;
    double fPlanetRadius = 1000;
    int fAxis = kAxisY;
    double fSunIntensity = 0;
    double fSunAzimuth = 0;
    double fSunElevation = 1;
    T3Double fSunColor{1, 1, 1};
    bool fClip = false;
    double fNearClip = 0;
    double fFarClip = 100000;
    bool fColorBasedTransp = true;
    bool fUseHeight = false;

    T3Double fFogExtinction;
    T3Double fAirExtinction;
    T3Double fWaterExtinction;
    T3Double fSunDirection;
    T3Double fSunLight;
    T3Double fTotalExtinction;
    T3Double fMeanFogColor;
    T3Double fWaterHalfDistance;
};
