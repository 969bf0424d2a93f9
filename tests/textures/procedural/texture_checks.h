#pragma once
// Checks shared by the tests of the procedural textures: the engine's batch
// against the scalar pull, and statistics of a pattern over a grid.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "support/expect_near.h"
#include "textures/noise_texture.h"
#include "textures/procedural/texture_test_nodes.h"
#include "textures/texture_2d.h"

// Shades `texture` (already shown by `net`) over `uvs` and compares every
// sample's colour with the scalar pull of the same node at the same UV. The
// pulls come first, outside a render: inside one, a node that settles its
// values per render would answer the pull from what the batch reads too.
inline void expectBatchEqualsPull(TtextureNetwork& net, TdependNode* texture, const std::vector<T2Float>& uvs, T2Float size,
                                  const char* what, float tolerance = 1e-5f) {
    ASSERT_FALSE(net.session) << what << ": the render is already open";
    std::vector<T3Float> pulled;
    for (const T2Float& uv : uvs) pulled.push_back(pullTexture(texture, uv, size).colour);
    TtextureBatch batch = net.shade(uvs, size);
    for (unsigned i = 0; i < uvs.size(); ++i)
        expectNear(batch.colour(i), pulled[i], std::string(what) + " sample " + std::to_string(i), tolerance);
}

struct Tstats {
    float min = 1e30f, max = -1e30f;
    double mean = 0, variance = 0;
};

// f(u, v) over an n by n grid of cell centres covering [u0, u0 + span)^2.
template <class F>
Tstats statsOver(F f, int n = 48, float u0 = 0.0f, float span = 1.0f) {
    Tstats s;
    std::vector<float> values;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            float x = f(u0 + span * (float(i) + 0.5f) / float(n), u0 + span * (float(j) + 0.5f) / float(n));
            values.push_back(x);
            s.min = std::min(s.min, x);
            s.max = std::max(s.max, x);
            s.mean += x;
        }
    s.mean /= double(values.size());
    for (float x : values) s.variance += (x - s.mean) * (x - s.mean);
    s.variance /= double(values.size());
    return s;
}

// UVs for the engine tests: a spread over a few units with two outside samples.
inline std::vector<T2Float> batchUvs() {
    std::vector<T2Float> uvs = spreadUvs();
    uvs[9] = uvs[10] = T2Float{-1e7f, -1e7f};
    return uvs;
}

// The noise texture's settings of one type (and billow falloff), the rest default.
inline TnoiseParams noiseOf(short type, short falloff = 2) {
    TnoiseParams p;
    p.noiseType = type;
    p.falloff = falloff;
    return p;
}
