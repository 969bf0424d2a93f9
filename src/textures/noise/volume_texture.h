#pragma once
// TvolumeTexture: a fractal sum of octaves of a noise, with an implode warp,
// scale, origin and frequency. Subclasses supply the noise of one octave.
// Evaluation changes nothing, so one texture may serve many threads.
#include "framework/host/math.h"

class TvolumeTexture {
public:
    // Smallest scale component; an exact 0 becomes this.
    static constexpr float kMinScale = 1e-05f;
    // Implode strengths and distances within this of 0 leave the point alone.
    static constexpr float kImplodeEpsilon = 1e-05f;
    // Ratios at or below this count as a frequency factor of 100000.
    static constexpr float kMinRatio = 1e-05f;

    TvolumeTexture() = default;
    virtual ~TvolumeTexture() = default;

    virtual float getValue(float x, float y, float z, float time) const;
    virtual float getValue2(float u, float v, float time) const;

    void applyImplode(float& x, float& y, float& z) const;
    void applyImplode(float& u, float& v) const;

    void setOrigin(T3Float origin) { fOrigin = origin; }
    void setScale(T3Float scale);
    void setGain(float gain) { fGain = gain; }
    void setThreshold(float threshold) { fThreshold = threshold; }
    void setHarmonics(short harmonics) { fHarmonics = harmonics; }
    void setRatio(float ratio) { fRatio = ratio; }
    void setAmpRatio(float ampRatio) { fAmpRatio = ampRatio; }
    void setFrequency(float frequency) { fFrequency = frequency; }
    void setAbsolute(bool absolute) { fAbsolute = absolute; }
    void setImplodeCenter(T3Float centre) { fImplodeCenter = centre; }
    void setImplode(float implode) { fImplode = implode; }

    T3Float scale() const { return fScale; }

protected:
    virtual float getNoise(float x, float y, float z, float time, short harmonic) const;
    virtual float getNoise2(float u, float v, float time, short harmonic) const;

    // Step 5 of every summer: offset, then at most 1; no lower clamp.
    float finalValue(float sum) const;

    T3Float fOrigin{0, 0, 0};
    T3Float fScale{1, 1, 1};
    float fGain = 1.0f;
    float fThreshold = 0.0f;
    short fHarmonics = 1;
    float fRatio = 0.5f;
    float fAmpRatio = 0.5f;
    float fFrequency = 1.0f;
    bool fAbsolute = false;
    T3Float fImplodeCenter{0, 0, 0};
    float fImplode = 0.0f;
};
