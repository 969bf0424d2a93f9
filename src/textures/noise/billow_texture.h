#pragma once
// TbillowTexture: sparse blobs on a grid of 20 cells to the unit, one blob per
// cell, each jittered, sized and weighted by its entries of the random table.
#include "textures/noise/volume_texture.h"

class TbillowTexture : public TvolumeTexture {
public:
    static constexpr int kGrid = 20;

    enum FalloffType { kFalloffLinear = 0, kFalloffSmooth = 1, kFalloffFast = 2, kFalloffBubble = 3 };

    float getValue(float x, float y, float z, float time) const override;
    float getValue2(float u, float v, float time) const override;

    void setDensity(float density) { fDensity = density; }
    void setSpottyness(float spottyness) { fSpottyness = spottyness; }
    void setRandomness(float randomness) { fRandomness = randomness; }
    void setSizeRand(float sizeRand) { fSizeRand = sizeRand; }
    void setFalloff(FalloffType falloff) { fFalloff = falloff; }

    // The noise of one octave, public so that the tuned form can be held
    // against the plain one.
    float getNoise(float x, float y, float z, float time, short harmonic) const override;
    float getNoise2(float u, float v, float time, short harmonic) const override;
    // getNoise with far cells rejected before their remaining terms are
    // computed; the same result to the bit.
    float getNoiseFastX86(float x, float y, float z, float time, short harmonic) const;

protected:
    // The contribution of a blob at squared distance d2 (below 1), cell entry k.
    float blob(float d2, int k) const;
    // Divides d2 by the blob's size; 1 when sizes do not vary.
    float sizeFactor(int k) const;

    float fDensity = 1.0f;
    float fSpottyness = 0.1f;
    float fRandomness = 1.0f;
    float fSizeRand = 0.0f;
    FalloffType fFalloff = kFalloffLinear;
};
