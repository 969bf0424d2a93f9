#pragma once
// Images and a bit writer shared by the pyramid tests.
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "framework/host/pixel_map.h"

// Something like a photograph: smooth shading, hard edges, fine texture and
// sensor noise.
inline TpixelMap photoLikeImage(int w, int h, int channels, unsigned seed) {
    TpixelMap map(w, h, channels);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c) {
                double v = 110 + 60 * std::sin(x * 0.031 + c) * std::cos(y * 0.017);
                if ((x - w / 3) * (x - w / 3) + (y - h / 2) * (y - h / 2) < (w * h) / 20) v = 200 - c * 30;
                v += 12 * std::sin(x * 0.9 + y * 1.3) + double(rng() % 9) - 4;
                if (c == 3) v = x < w / 2 ? 255 : 128 + (y & 63);
                map.setPixel(x, y, c, uint8_t(std::clamp(v, 0.0, 255.0)));
            }
    return map;
}

inline TpixelMap noiseImage(int w, int h, int channels, unsigned seed) {
    TpixelMap map(w, h, channels);
    std::mt19937 rng(seed);
    for (size_t i = 0; i < map.byteCount(); ++i) map.pixels()[i] = uint8_t(rng());
    return map;
}

// Writes bits lowest first, as the file does; for hand-made streams.
struct TtestBits {
    std::vector<uint8_t> bytes;
    int bit = 0;
    void put(uint32_t v, int n) {
        for (int i = 0; i < n; ++i, ++bit) {
            if (bit % 8 == 0) bytes.push_back(0);
            bytes.back() |= uint8_t(((v >> i) & 1) << (bit % 8));
        }
    }
};
