#include "textures/noise/cos_texture.h"

#include <cmath>

#include "textures/noise/noise.h"

float TcosTexture::getNoise(float x, float y, float z, float time, short harmonic) const {
    const int n = fNWaves;
    // Deliberate: no waves gives 0 / n as float arithmetic has it (NaN at 0).
    if (n < 1) return 0.0f / float(n);
    const float twoPi = float(2.0 * M_PI), pi = float(M_PI);
    int index = 50 * int(harmonic);
    float sum = 0.0f;
    for (int w = 0; w < n; ++w) {
        T3Float d;
        float len = 0.0f;
        for (int tries = 0; tries < Tnoise::kTableSize / 3 && len == 0.0f; ++tries) {
            d = T3Float(float(Tnoise::randomNoise(index)), float(Tnoise::randomNoise(index + 1)),
                        float(Tnoise::randomNoise(index + 2)));
            index += 3;
            len = length(d);
        }
        if (len != 0.0f) d = d * (1.0f / len);
        float phase = float(Tnoise::randomNoise(index++));
        sum += std::cos(twoPi * (d.x * x + d.y * y + d.z * z) + pi * time + pi * phase);
    }
    return sum / float(n);
}

float TcosTexture::getNoise2(float u, float v, float time, short harmonic) const {
    return getNoise(u, v, 0.0f, time, harmonic);
}
