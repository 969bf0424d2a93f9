#pragma once
// TperlinTexture: the fractal summer over the table value noise. Time moves
// each octave's sample point along a fixed random direction of that octave,
// or, when animated, runs through noise4's time cells.
#include <cstdint>

#include "textures/noise/volume_texture.h"

class TperlinTexture : public TvolumeTexture {
public:
    // The frequency is scaled down to the value noise's unit lattice.
    static constexpr float kFrequencyFactor = 0.0625f;

    float getValue(float x, float y, float z, float time) const override;
    float getValue2(float u, float v, float time) const override;

    void setDoSmear(bool doSmear) { fDoSmear = doSmear; }
    void setAnimated(bool animated) { fAnimated = animated; }
    void setTimeSteps(int32_t timeSteps) { fTimeSteps = timeSteps; }

    // The unit direction along which time moves octave h: `count` (2 or 3)
    // consecutive table entries from index 10h, stepping on past zero vectors.
    static T3Float sOctaveDirection(short harmonic, int count);

protected:
    float getNoise(float x, float y, float z, float time, short harmonic) const override;
    float getNoise2(float u, float v, float time, short harmonic) const override;
    // Smeared noise: displaces the running point along the octave direction.
    float getSmearNoise(T3Float& point, const T3Float& offset, float time, short harmonic) const;

    bool fDoSmear = false;
    bool fAnimated = false;
    int32_t fTimeSteps = 1;
};
