#include "textures/solid_cells.h"

#include <array>
#include <cmath>

#include "textures/noise/noise.h"

TcellSample TsolidCells::sNearest(const T3Float& p, float pitch, float randomness) {
    float c = std::max(pitch, 0.0001f);
    float g[3];
    int cell[3];
    for (int a = 0; a < 3; ++a) {
        float x = p[a] / c;
        g[a] = (x - std::floor(x)) * float(kCells);
        cell[a] = std::min(int(g[a]), kCells - 1);
    }
    TcellSample s;
    for (int dz = -1; dz <= 1; ++dz)
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                int n[3] = {cell[0] + dx, cell[1] + dy, cell[2] + dz};
                // The grid repeats: a neighbour past the edge is the cell on
                // the far side, at its shifted position.
                int w[3];
                for (int a = 0; a < 3; ++a) w[a] = (n[a] + kCells) % kCells;
                unsigned key = unsigned((w[2] * kCells + w[1]) * kCells + w[0]) * kEntriesPerCell;
                T3Float jitter = Tnoise::valuesInNoiseTable(key);
                float d2 = 0.0f;
                for (int a = 0; a < 3; ++a) {
                    float centre = float(n[a]) + jitter[a] * randomness * 0.5f + 0.5f;
                    d2 += (g[a] - centre) * (g[a] - centre);
                }
                float d = std::sqrt(d2);
                if (d < s.nearest) {
                    s.second = s.nearest;
                    s.nearest = d;
                    s.key = key;
                } else if (d < s.second) {
                    s.second = d;
                }
            }
    return s;
}

float TsolidCells::sEntry(unsigned key, unsigned which) {
    return (Tnoise::fastRandomNoiseFloat(int(key + which)) + 1.0f) * 0.5f;
}

float TsolidCells::sFalloff(float d) {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        for (int i = 0; i < 256; ++i) {
            float x = float(i) / 255.0f;
            t[size_t(i)] = 1.0f - x * x * (3.0f - 2.0f * x);
        }
        return t;
    }();
    if (!(d < 1.0f)) return 0.0f;
    return table[size_t(std::max(d, 0.0f) * 255.0f)];
}
