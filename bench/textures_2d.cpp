// Cost per sample of the procedural 2D patterns, on a 64 by 64 grid of UVs
// over two units: the arithmetic a texture's first pass runs per sample.
// Prints CPU nanoseconds per sample and each pattern's cost against the checker.
#include <benchmark/benchmark.h>


#include "bench/per_sample_report.h"
#include "textures/bulge.h"
#include "textures/checker.h"
#include "textures/fractal.h"
#include "textures/mountain.h"
#include "textures/noise_texture.h"
#include "textures/ocean.h"
#include "textures/water.h"

namespace {
constexpr int kSide = 64;

template <class F>
void runGrid(benchmark::State& state, const char* name, F f) {
    float sink = 0;
    for (auto _ : state) {
        for (int j = 0; j < kSide; ++j)
            for (int i = 0; i < kSide; ++i) sink += f(2.0f * float(i) / kSide, 2.0f * float(j) / kSide);
        benchmark::DoNotOptimize(sink);
    }
    state.SetItemsProcessed(state.iterations() * kSide * kSide);
    (void)name;
}

void Checker(benchmark::State& s) {
    runGrid(s, "checker", [](float u, float v) { return TdnChecker::sColor1Weight({u, v}, {0.002f, 0.002f}, 1, 0, 1); });
}
void Bulge(benchmark::State& s) {
    runGrid(s, "bulge", [](float u, float v) { return TdnBulge::sValue(u, v, 0.1f, 0.1f); });
}
void Fractal(benchmark::State& s) {
    TfractalParams p;
    runGrid(s, "fractal", [&](float u, float v) { return TdnFractal::sValue(p, u, v, 0.002f); });
}
void NoiseOf(benchmark::State& s) {
    TnoiseParams p;
    p.noiseType = short(s.range(0));
    runGrid(s, "noise", [&](float u, float v) { return TdnNoise::sValue(p, u, v); });
}
void Mountain(benchmark::State& s) {
    TmountainParams p;
    runGrid(s, "mountain", [&](float u, float v) { return TdnMountain::sSample(p, u, v, 0.002f).shade; });
}
void Water(benchmark::State& s) {
    TwaveList list;
    TdnWater::sMakeWaveList(TwaveListKey{}, list);
    TrippleParams ripple;
    runGrid(s, "water", [&](float u, float v) { return TdnWater::sWaves(list, u, v, 0, 1) + TdnWater::sRipple(ripple, u, v); });
}
void Ocean(benchmark::State& s) {
    ToceanCurve none;
    ToceanWaves waves;
    waves.build(ToceanParams{}, none, none, none);
    runGrid(s, "ocean", [&](float u, float v) { return waves.height(u, v); });
}
}  // namespace

BENCHMARK(Checker);
BENCHMARK(Bulge);
BENCHMARK(Fractal);
BENCHMARK(NoiseOf)->DenseRange(0, 4);
BENCHMARK(Mountain);
BENCHMARK(Water);
BENCHMARK(Ocean);

int main(int argc, char** argv) { return runPerSampleReport(argc, argv, double(kSide * kSide), "Checker", "checker"); }
