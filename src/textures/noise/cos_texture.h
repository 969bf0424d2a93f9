#pragma once
// TcosTexture: each octave is a sum of plane waves with random directions and
// phases taken from the random table.
#include "textures/noise/volume_texture.h"

class TcosTexture : public TvolumeTexture {
public:
    void setNWaves(short nWaves) { fNWaves = nWaves; }

protected:
    float getNoise(float x, float y, float z, float time, short harmonic) const override;
    // The waves in the plane z = 0.
    float getNoise2(float u, float v, float time, short harmonic) const override;

    short fNWaves = 5;
};
