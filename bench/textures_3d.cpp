// Cost per sample of the solid textures, on a 64 by 64 grid of points over
// two units in x and y at a footprint of 0.01 (about 7 octaves): the
// arithmetic a texture's first pass runs per sample. Prints CPU nanoseconds
// per sample and each texture's cost against the marble.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/per_sample_report.h"
#include "textures/brownian.h"
#include "textures/cloud.h"
#include "textures/crater.h"
#include "textures/granite.h"
#include "textures/leather.h"
#include "textures/marble.h"
#include "textures/rock.h"
#include "textures/snow.h"
#include "textures/solid_fractal.h"
#include "textures/stucco.h"
#include "textures/volume_noise.h"
#include "textures/wood.h"

namespace {
constexpr int kSide = 64;
constexpr float kWidth = 0.01f;

template <class F>
void runGrid(benchmark::State& state, F f) {
    float sink = 0;
    for (auto _ : state) {
        for (int j = 0; j < kSide; ++j)
            for (int i = 0; i < kSide; ++i) sink += f(T3Float(2.0f * float(i) / kSide - 1.0f, 2.0f * float(j) / kSide - 1.0f, 0.3f));
        benchmark::DoNotOptimize(sink);
    }
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

void Brownian(benchmark::State& s) {
    TbrownianParams p;
    runGrid(s, [&](const T3Float& x) { return TdnBrownian::sValue(p, x, kWidth); });
}
void Cloud(benchmark::State& s) {
    TcloudParams p;
    runGrid(s, [&](const T3Float& x) { return TdnCloud::sSample(p, x, kWidth, {x.x, x.y, -5}, {0, 0, 1}).opacity; });
}
void Crater(benchmark::State& s) {
    runGrid(s, [](const T3Float& x) { return TdnCrater::sShape(x, 1.5f, 2.0f, 0.0f, 0.0f).rim; });
}
void CraterNormal(benchmark::State& s) {
    TfltMatrix identity;
    runGrid(s, [&](const T3Float& x) {
        T3Float g = TdnTx3D::sGradient([](const T3Float& q) { return TdnCrater::sHeight(q, 1.5f, 1.0f, 1.0f, 0.0f); }, x, 0.035f,
                                       identity);
        return TdnTx3D::sBumpNormal({0, 0, 1}, g, 0.1f).x;
    });
}
void Granite(benchmark::State& s) {
    TgraniteParams p;
    runGrid(s, [&](const T3Float& x) { return TdnGranite::sGrain(p, x).weight; });
}
void Leather(benchmark::State& s) {
    TleatherParams p;
    runGrid(s, [&](const T3Float& x) { return TdnLeather::sCreaseWeight(p, x); });
}
void Marble(benchmark::State& s) {
    TmarbleParams p;
    runGrid(s, [&](const T3Float& x) { return TdnMarble::sVeinWeight(p, x, kWidth); });
}
void Rock(benchmark::State& s) {
    runGrid(s, [](const T3Float& x) { return TdnRock::sColor1Weight(TdnRock::sGrain(x, 0.01f), 1.0f, 0.5f); });
}
void Snow(benchmark::State& s) {
    TfltMatrix identity;
    runGrid(s, [&](const T3Float& x) { return TdnSnow::sAmount(identity, {x.x, 0.7f, 0.7f}, 0.5f, 5.0f, 1.0f); });
}
void SolidFractal(benchmark::State& s) {
    TsolidFractalParams p;
    TdnSolidFractal::sDepthToLevels({0, 0}, p.fractal);
    runGrid(s, [&](const T3Float& x) { return TdnSolidFractal::sValue(p, x, kWidth); });
}
void Stucco(benchmark::State& s) {
    runGrid(s, [](const T3Float& x) { return TdnStucco::sChannel2Weight(TdnStucco::sNoise(x, 20.0f)); });
}
void VolumeNoise(benchmark::State& s) {
    TnoiseParams p;
    p.noiseType = short(s.range(0));
    runGrid(s, [&](const T3Float& x) { return TdnNoise::sSolidValue(p, x, {0, 0, 0}); });
}
void Wood(benchmark::State& s) {
    auto tables = std::make_unique<TwoodTables>();
    tables->build(TwoodTableParams{});
    TwoodParams p;
    runGrid(s, [&](const T3Float& x) { return TdnWood::sWeights(*tables, p, x, kWidth).filler; });
}
}  // namespace

BENCHMARK(Brownian);
BENCHMARK(Cloud);
BENCHMARK(Crater);
BENCHMARK(CraterNormal);
BENCHMARK(Granite);
BENCHMARK(Leather);
BENCHMARK(Marble);
BENCHMARK(Rock);
BENCHMARK(Snow);
BENCHMARK(SolidFractal);
BENCHMARK(Stucco);
BENCHMARK(VolumeNoise)->DenseRange(0, 4);
BENCHMARK(Wood);

int main(int argc, char** argv) { return runPerSampleReport(argc, argv, double(kSide * kSide), "Marble", "marble"); }
