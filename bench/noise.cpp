// Evaluations per second of the noise functions, over a fixed set of points,
// and gNoise3 beside the gradient noise of libnoise at the same points.
//
//   build/bin/bench_noise --benchmark_min_time=0.5
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/trusted_runs.h"
#include "textures/noise/noise.h"
#include "textures/noise/vector_noise_4d.h"

#ifdef SHADENET_HAVE_LIBNOISE
#include <libnoise/noise.h>
#endif

namespace {

constexpr int kPoints = 4096;

struct Tpoint {
    float x, y, z, t;
};

const std::vector<Tpoint>& points() {
    static const std::vector<Tpoint> list = [] {
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> coord(-50.0f, 50.0f), time(0.0f, 1.0f);
        std::vector<Tpoint> p(kPoints);
        for (auto& q : p) q = {coord(rng), coord(rng), coord(rng), time(rng)};
        return p;
    }();
    return list;
}

template <typename F>
void run(benchmark::State& state, F&& f) {
    const auto& p = points();
    for (auto _ : state) {
        float sum = 0;
        for (const auto& q : p) sum += f(q);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kPoints);
}

void BM_noise2(benchmark::State& s) { run(s, [](const Tpoint& q) { return Tnoise::noise2(q.x, q.y); }); }
void BM_noise3(benchmark::State& s) { run(s, [](const Tpoint& q) { return Tnoise::noise3(q.x, q.y, q.z); }); }
void BM_noise4(benchmark::State& s) {
    run(s, [](const Tpoint& q) { return Tnoise::noise4(q.x, q.y, q.z, q.t, 100); });
}
void BM_gNoise3(benchmark::State& s) { run(s, [](const Tpoint& q) { return Tnoise::gNoise3(q.x, q.y, q.z); }); }
void BM_vectorNoise(benchmark::State& s) {
    T4dVectorNoise::initTable();  // the one-time build is not what is measured
    run(s, [](const Tpoint& q) { return T4dVectorNoise::getNoise({q.x, q.y, q.z}, q.t).x; });
}
#ifdef SHADENET_HAVE_LIBNOISE
void BM_libnoiseGradient(benchmark::State& s) {
    run(s, [](const Tpoint& q) { return float(noise::GradientCoherentNoise3D(q.x, q.y, q.z, 0, noise::QUALITY_STD)); });
}
#endif

BENCHMARK(BM_noise2);
BENCHMARK(BM_noise3);
BENCHMARK(BM_noise4);
BENCHMARK(BM_gNoise3);
BENCHMARK(BM_vectorNoise);
#ifdef SHADENET_HAVE_LIBNOISE
BENCHMARK(BM_libnoiseGradient);
#endif

}  // namespace

int main(int argc, char** argv) {
    Tnoise::initGradientNoiseTable();
    initializeTrusted(argc, argv);
    TtrustedReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Medians of the repetitions, whatever --benchmark_repetitions and
    // --benchmark_report_aggregates_only say.
    std::printf("\nevaluations per second (millions, median of repetitions):\n");
    for (const char* name : {"BM_noise2", "BM_noise3", "BM_noise4", "BM_gNoise3", "BM_vectorNoise", "BM_libnoiseGradient"})
        if (reporter.has(name)) std::printf("  %-22s %s\n", name, reporter.figure(name, "items_per_second", 1e-6, "%8.2f").c_str());
    const double ours = reporter.median("BM_gNoise3"), theirs = reporter.median("BM_libnoiseGradient");
    if (ours > 0 && theirs > 0)
        std::printf("gNoise3 / libnoise gradient noise: %.2f (target: at least 1.00)\n", ours / theirs);
    else
        std::printf("gNoise3 / libnoise gradient noise: not measured (libnoise-dev not found at build time)\n");
    reporter.printIdleCores();
    benchmark::Shutdown();
    return 0;
}
