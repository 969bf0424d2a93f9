#include "textures/noise/perlin_texture.h"

#include <cmath>

#include "textures/noise/noise.h"

// Per octave, before its noise, the running offsets grow by these.
static const T3Float kOctaveOffset(0.02f, 0.3f, 0.01f);

T3Float TperlinTexture::sOctaveDirection(short harmonic, int count) {
    int index = 10 * int(harmonic);
    for (int tries = 0; tries < Tnoise::kTableSize / 3; ++tries, index += count) {
        T3Float d(float(Tnoise::randomNoise(index)), float(Tnoise::randomNoise(index + 1)),
                  count > 2 ? float(Tnoise::randomNoise(index + 2)) : 0.0f);
        float len = length(d);
        if (len != 0.0f) return d * (1.0f / len);
    }
    return T3Float(1, 0, 0);  // a table of zeros: any fixed direction will do
}

float TperlinTexture::getNoise(float x, float y, float z, float time, short harmonic) const {
    if (fAnimated) return Tnoise::noise4(x, y, z, time, fTimeSteps);
    T3Float d = sOctaveDirection(harmonic, 3);
    float s = time * 0.0625f + float(harmonic) * 0.5f;
    return Tnoise::noise3(x + d.x * s, y + d.y * s, z + d.z * s);
}

float TperlinTexture::getNoise2(float u, float v, float time, short harmonic) const {
    if (fAnimated) return Tnoise::noise3(u, v, time * 0.1f);
    T3Float d = sOctaveDirection(harmonic, 2);
    float s = time * 0.0625f + float(harmonic) * 0.5f;
    return Tnoise::noise2(u + d.x * s, v + d.y * s);
}

float TperlinTexture::getSmearNoise(T3Float& point, const T3Float& offset, float time, short harmonic) const {
    T3Float d = sOctaveDirection(harmonic, 3);
    float s = 0.3f * time * 0.0625f + float(harmonic) * 0.5f;
    T3Float at = d * s + (point + offset) * 0.1f;
    float n = Tnoise::noise3(at.x, at.y, at.z);
    point = point + d * (0.5f * n);
    T3Float p = point + offset + d * n;
    return fAnimated ? Tnoise::noise4(p.x, p.y, p.z, time, fTimeSteps) : Tnoise::noise3(p.x, p.y, p.z);
}

float TperlinTexture::getValue(float x, float y, float z, float time) const {
    applyImplode(x, y, z);
    const float frequency = fFrequency * kFrequencyFactor;
    T3Float point(x * frequency / fScale.x + fOrigin.x, y * frequency / fScale.y + fOrigin.y,
                  z * frequency / fScale.z + fOrigin.z);
    const float rf = 1.0f / fRatio;  // deliberately unguarded, unlike the base summer
    const float rt = std::sqrt(rf);
    T3Float offset(0, 0, 0);
    float amplitude = fGain, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        offset = offset + kOctaveOffset;
        float n = fDoSmear ? getSmearNoise(point, offset, time, h)
                           : getNoise(point.x + offset.x, point.y + offset.y, point.z + offset.z, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        point = point * rf;
    }
    return finalValue(sum);
}

float TperlinTexture::getValue2(float u, float v, float time) const {
    applyImplode(u, v);
    const float frequency = fFrequency * kFrequencyFactor;
    u = u * frequency / fScale.x + fOrigin.x;
    v = v * frequency / fScale.y + fOrigin.y;
    const float rf = 1.0f / fRatio;  // deliberately unguarded, as in getValue
    const float rt = std::sqrt(rf);
    float ou = 0.0f, ov = 0.0f;
    float amplitude = fGain, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        ou += kOctaveOffset.x;
        ov += kOctaveOffset.y;
        float n = getNoise2(u + ou, v + ov, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        u *= rf;
        v *= rf;
    }
    return finalValue(sum);
}
