#include "textures/noise/billow_texture.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

// Below this effective density there are no blobs.
static constexpr float kMinDensity = 0.0001f;
// Per octave, before its noise, the running offsets grow by these.
static const T3Float kOctaveOffset(0.021f, 0.33f, 0.011f);

struct TbillowAxis {
    int cell;
    float frac;
};

// One unit repeats. The floor picks the cell: truncating would make the cell
// at 0 two cells wide, and for a negative p the 3 by 3 neighbourhood would miss
// the blobs reaching in from two cells below, cutting them off along a straight
// grid line (visible seams).
static inline TbillowAxis sBillowAxis(float c) {
    float p = (c - std::round(c)) * float(TbillowTexture::kGrid);
    if (!std::isfinite(p)) p = 0.0f;
    int cell = int(std::floor(p));
    return {cell, p - float(cell)};
}

static inline int sWrap(int c) {
    c %= TbillowTexture::kGrid;
    return c < 0 ? c + TbillowTexture::kGrid : c;
}

float TbillowTexture::sizeFactor(int k) const {
    const float* t = Tnoise::fsTable;
    return fSizeRand > 0.0f ? (t[k + 2] + 1.0f) * 0.5f * fSizeRand + (1.0f - fSizeRand) : 1.0f;
}

float TbillowTexture::blob(float d2, int k) const {
    float v;
    switch (fFalloff) {
    case kFalloffLinear: v = 1.0f - std::sqrt(d2); break;
    case kFalloffSmooth: {
        float r = std::sqrt(d2);
        v = r * r * (2.0f * r - 3.0f) + 1.0f;
        break;
    }
    case kFalloffFast: v = 1.0f - d2; break;
    case kFalloffBubble:
    default:
        v = d2 * 1.1f;
        if (v > 1.0f) v = 1.0f - (v - 1.0f) * 10.0f;
        break;
    }
    if (fSpottyness > 0.0f) v *= (Tnoise::fsTable[k + 3] + 1.0f) * fSpottyness + (1.0f - fSpottyness);
    return v;
}

float TbillowTexture::getNoise2(float u, float v, float time, short) const {
    const TbillowAxis au = sBillowAxis(u), av = sBillowAxis(v);
    const float s = std::min(fDensity, 2.0f - fRandomness);
    if (s < kMinDensity) return 0.0f;
    const float k2 = 2.0f / s, half = fRandomness * 0.5f, twoPi = float(2.0 * M_PI);
    const float* t = Tnoise::fsTable;
    float sum = 0.0f;
    for (int dv = -1; dv <= 1; ++dv)
        for (int du = -1; du <= 1; ++du) {
            const int k = sWrap(av.cell + dv) * kGrid + sWrap(au.cell + du);
            // Deliberate: the sine steers the first coordinate.
            const float cu = std::sin(twoPi * t[k] + 2.0f * time) * half + 0.5f;
            const float cv = std::cos(twoPi * t[k + 1] + 2.0f * time) * half + 0.5f;
            const float eu = float(du) + cu - au.frac, ev = float(dv) + cv - av.frac;
            float d2 = (eu * eu + ev * ev) * k2;
            if (fSizeRand > 0.0f) d2 /= sizeFactor(k);
            if (d2 < 1.0f) sum += blob(d2, k);
        }
    return sum;
}

float TbillowTexture::getNoise(float x, float y, float z, float time, short) const {
    const TbillowAxis ax = sBillowAxis(x), ay = sBillowAxis(y), az = sBillowAxis(z);
    const float s = std::min(fDensity, 2.0f - fRandomness);
    if (s < kMinDensity) return 0.0f;
    const float k2 = 2.0f / s, half = fRandomness * 0.5f, twoPi = float(2.0 * M_PI);
    const float* t = Tnoise::fsTable;
    float sum = 0.0f;
    for (int dz = -1; dz <= 1; ++dz)
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int k = (sWrap(az.cell + dz) * kGrid + sWrap(ay.cell + dy)) * kGrid + sWrap(ax.cell + dx);
                const float cx = std::sin(twoPi * t[k] + 2.0f * time) * half + 0.5f;
                const float cy = std::cos(twoPi * t[k + 1] + 2.0f * time) * half + 0.5f;
                const float cz = std::cos(twoPi * t[k + 4] + 2.0f * time) * half + 0.5f;
                const float ex = float(dx) + cx - ax.frac, ey = float(dy) + cy - ay.frac;
                const float ez = float(dz) + cz - az.frac;
                float d2 = (ex * ex + ey * ey + ez * ez) * k2;
                if (fSizeRand > 0.0f) d2 /= sizeFactor(k);
                if (d2 < 1.0f) sum += blob(d2, k);
            }
    return sum;
}

float TbillowTexture::getNoiseFastX86(float x, float y, float z, float time, short) const {
    const TbillowAxis ax = sBillowAxis(x), ay = sBillowAxis(y), az = sBillowAxis(z);
    const float s = std::min(fDensity, 2.0f - fRandomness);
    if (s < kMinDensity) return 0.0f;
    const float k2 = 2.0f / s, half = fRandomness * 0.5f, twoPi = float(2.0 * M_PI);
    const float phase = 2.0f * time;
    const float* t = Tnoise::fsTable;
    const bool sized = fSizeRand > 0.0f;
    int cols[3], rows[3];
    for (int d = 0; d < 3; ++d) {
        cols[d] = sWrap(ax.cell + d - 1);
        rows[d] = sWrap(ay.cell + d - 1) * kGrid;
    }
    float sum = 0.0f;
    for (int dz = -1; dz <= 1; ++dz) {
        const int layer = sWrap(az.cell + dz) * kGrid * kGrid;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const int k = layer + rows[dy + 1] + cols[dx + 1];
                // Every partial sum of squares is at most the full one, so a
                // cell whose first term already reaches 1 cannot contribute.
                const float size = sized ? sizeFactor(k) : 1.0f;
                const float ez = float(dz) + (std::cos(twoPi * t[k + 4] + phase) * half + 0.5f) - az.frac;
                float bound = ez * ez * k2;
                if (sized) bound /= size;
                if (!(bound < 1.0f)) continue;
                const float ex = float(dx) + (std::sin(twoPi * t[k] + phase) * half + 0.5f) - ax.frac;
                const float ey = float(dy) + (std::cos(twoPi * t[k + 1] + phase) * half + 0.5f) - ay.frac;
                float d2 = (ex * ex + ey * ey + ez * ez) * k2;
                if (sized) d2 /= size;
                if (d2 < 1.0f) sum += blob(d2, k);
            }
    }
    return sum;
}

float TbillowTexture::getValue(float x, float y, float z, float time) const {
    applyImplode(x, y, z);
    const float frequency = fFrequency / float(kGrid);
    T3Float point(x * frequency / fScale.x + fOrigin.x, y * frequency / fScale.y + fOrigin.y,
                  z * frequency / fScale.z + fOrigin.z);
    const float rf = 1.0f / fRatio, rt = std::sqrt(rf);
    T3Float offset(0, 0, 0);
    float amplitude = 1.0f, weight = 0.0f, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        offset = offset + kOctaveOffset;
        const T3Float p = point + offset;
        float n = getNoiseFastX86(p.x, p.y, p.z, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        weight += amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        point = point * rf;
    }
    // No octaves, or weights that cancel, leave only the threshold.
    const float mean = weight != 0.0f ? sum * fGain / weight : 0.0f;
    return std::min(1.0f, mean + fThreshold);
}

float TbillowTexture::getValue2(float u, float v, float time) const {
    applyImplode(u, v);
    const float frequency = fFrequency / float(kGrid);
    u = u * frequency / fScale.x + fOrigin.x;
    v = v * frequency / fScale.y + fOrigin.y;
    const float rf = 1.0f / fRatio, rt = std::sqrt(rf);
    float ou = 0.0f, ov = 0.0f;
    float amplitude = 1.0f, weight = 0.0f, sum = 0.0f;
    for (short h = 0; h < fHarmonics; ++h) {
        ou += kOctaveOffset.x;
        ov += kOctaveOffset.y;
        float n = getNoise2(u + ou, v + ov, time, h);
        if (fAbsolute) n = std::fabs(n);
        sum += n * amplitude;
        weight += amplitude;
        amplitude *= fAmpRatio;
        time *= rt;
        u *= rf;
        v *= rf;
    }
    const float mean = weight != 0.0f ? sum * fGain / weight : 0.0f;
    return std::min(1.0f, mean + fThreshold);
}
