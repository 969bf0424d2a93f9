#include "textures/noise/volume_texture.h"

#include <algorithm>
#include <cmath>

void TvolumeTexture::setScale(T3Float scale) {
    for (int i = 0; i < 3; ++i)
        if (scale[i] == 0.0f) scale[i] = kMinScale;
    fScale = scale;
}

void TvolumeTexture::applyImplode(float& x, float& y, float& z) const {
    if (fImplode >= -kImplodeEpsilon && fImplode <= kImplodeEpsilon) return;
    float dx = x - fImplodeCenter.x, dy = y - fImplodeCenter.y, dz = z - fImplodeCenter.z;
    float d = std::sqrt(dx * dx + dy * dy + dz * dz);
    if (d > kImplodeEpsilon) {
        float k = std::pow(d, 1.0f - fImplode) / d;
        dx *= k;
        dy *= k;
        dz *= k;
    }
    x = dx + fImplodeCenter.x;
    y = dy + fImplodeCenter.y;
    z = dz + fImplodeCenter.z;
}

void TvolumeTexture::applyImplode(float& u, float& v) const {
    if (fImplode >= -kImplodeEpsilon && fImplode <= kImplodeEpsilon) return;
    float du = u - fImplodeCenter.x, dv = v - fImplodeCenter.y;
    float d = std::sqrt(du * du + dv * dv);
    if (d > kImplodeEpsilon) {
        float k = std::pow(d, 1.0f - fImplode) / d;
        du *= k;
        dv *= k;
    }
    u = du + fImplodeCenter.x;
    v = dv + fImplodeCenter.y;
}

float TvolumeTexture::finalValue(float sum) const {
    return fAbsolute ? std::min(1.0f, fThreshold + sum) : std::min(1.0f, fThreshold + 0.5f + 0.5f * sum);
}

float TvolumeTexture::getValue(float x, float y, float z, float time) const {
    applyImplode(x, y, z);
    x = x * fFrequency / fScale.x + fOrigin.x;
    y = y * fFrequency / fScale.y + fOrigin.y;
    z = z * fFrequency / fScale.z + fOrigin.z;
    const float rf = fRatio > kMinRatio ? 1.0f / fRatio : 100000.0f;
    const float rt = std::sqrt(rf);
    float amplitude = fGain, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        float n = getNoise(x, y, z, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        x *= rf;
        y *= rf;
        z *= rf;
    }
    return finalValue(sum);
}

float TvolumeTexture::getValue2(float u, float v, float time) const {
    applyImplode(u, v);
    u = u * fFrequency / fScale.x + fOrigin.x;
    v = v * fFrequency / fScale.y + fOrigin.y;
    const float rf = fRatio > kMinRatio ? 1.0f / fRatio : 100000.0f;
    const float rt = std::sqrt(rf);
    float amplitude = fGain, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        float n = getNoise2(u, v, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        u *= rf;
        v *= rf;
    }
    return finalValue(sum);
}

float TvolumeTexture::getNoise(float, float, float, float, short) const { return 0.0f; }
float TvolumeTexture::getNoise2(float, float, float, short) const { return 0.0f; }
