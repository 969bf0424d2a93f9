#pragma once
// Images, pyramids built from them and a bit writer shared by the pyramid
// tests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "framework/host/pixel_map.h"
#include "textures/pyramid/pyramid.h"

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

// The pyramid of `map` in memory, stretched as the rules say unless `keepSize`.
inline std::unique_ptr<TpyramidNonSwatch> buildPyramid(const TpixelMap& map, bool keepSize = false) {
    auto p = std::make_unique<TpyramidNonSwatch>("id", "src.png", map.width(), map.height(), map.channels(), 1, keepSize);
    EXPECT_TRUE(p->buildPyramidFromPixelMap(map));
    return p;
}

// Every level of `p`, the smallest first.
inline std::vector<TpixelMap> levelsOf(Tpyramid& p) {
    std::vector<TpixelMap> levels(size_t(p.getMaxLevel()) + 1);
    for (int l = 0; l <= p.getMaxLevel(); ++l) EXPECT_TRUE(p.extractLevel(l, levels[size_t(l)]));
    return levels;
}

// The pyramid of `map` written as a BOT file at `path` and opened again from
// it; `levels`, when given, receives the levels built in memory.
inline std::unique_ptr<Tpyramid> botPyramid(const TpixelMap& map, const std::string& path, bool keepSize = false,
                                            std::vector<TpixelMap>* levels = nullptr) {
    auto p = buildPyramid(map, keepSize);
    if (levels) *levels = levelsOf(*p);
    Tstring out(path);
    EXPECT_TRUE(p->remapPyramidToBlocks(&out, true));
    EXPECT_TRUE(p->isBOTfile());
    return std::unique_ptr<Tpyramid>(Tpyramid::openBOT(out, false, "bot"));
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
