// Volume integration throughput: integrations per second for rays of 2, 8
// and 32 samples (half overlapping intervals, half surface points), and the
// cost per sample. The "ordered" variants feed samples already in ray order,
// which leaves the sort almost nothing to do: the gap between the two is the
// sort's share, small at short rays and growing with the count.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "shading/sample.h"
#include "volumes/volume_utils.h"

namespace {

class TbenchRay {
public:
    TbenchRay(int count, unsigned seed, bool ordered) : fTable(Tsample::sFieldTableLength(0)) {
        TbitField64 needed;
        for (unsigned i : {kItemBlobbySurfaceFactor, kItemParticleEntryParam, kItemParticleExitParam,
                           kItemParticleWeight, kItemObjectType, kItemOutColor, kItemOutTransparency,
                           kItemOutGlowColor, kItemOutMatteOpacity})
            needed.set(i);
        const unsigned size = Tsample::sBuildFieldOffsets(needed, fTable.data());
        fStorage.assign(size_t(count) * size / 8 + 1, 0);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> place(0, 10), unit(0.3f, 0.95f);
        for (int i = 0; i < count; ++i) {
            Tsample* s = Tsample::sCreate(reinterpret_cast<char*>(fStorage.data()) + size_t(i) * size, size, fTable.data());
            const float t = ordered ? 10.0f * float(i) / float(count) : place(random);
            const bool surface = i % 2 == 1;
            s->setBlobbySurfaceFactor(surface ? 1.0f : 0.0f);
            s->setParticleEntryParam(t);
            s->setParticleExitParam(t + 2 * unit(random));
            s->setOutTransparency(unit(random), unit(random), unit(random));
            s->setOutColor(unit(random), unit(random), unit(random));
            s->setOutGlowColor(0.1f, 0.1f, 0.1f);
            const T3Float tr = *s->outTransparency();
            s->setOutMatteOpacity(1 - tr.x, 1 - tr.y, 1 - tr.z);
            fSamples.addLast(s);
        }
    }
    TsampleArray* samples() { return &fSamples; }

private:
    std::vector<unsigned> fTable;
    std::vector<uint64_t> fStorage;
    TsampleArray fSamples;
};

void report(benchmark::State& state, int count) {
    state.counters["rays/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["s/sample"] = benchmark::Counter(
        double(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_integrateEAS(benchmark::State& state) {
    const int count = int(state.range(0));
    TbenchRay ray(count, 17, state.range(1) != 0);
    TvolumeUtils utils;
    T3Float color, transparency, glow, matte;
    for (auto _ : state) {
        utils.integrateEAS(ray.samples(), 0, count - 1, color, transparency, glow, matte);
        benchmark::DoNotOptimize(color);
    }
    report(state, count);
}

void BM_integrateRT(benchmark::State& state) {
    const int count = int(state.range(0));
    TbenchRay ray(count, 17, state.range(1) != 0);
    TvolumeUtils utils;
    T3Float color, transparency, glow;
    for (auto _ : state) {
        utils.integrateRT(ray.samples(), 0, count - 1, color, transparency, glow);
        benchmark::DoNotOptimize(color);
    }
    report(state, count);
}

void BM_integrateShadow(benchmark::State& state) {
    const int count = int(state.range(0));
    TbenchRay ray(count, 17, state.range(1) != 0);
    TvolumeUtils utils;
    T3Float transparency;
    for (auto _ : state) {
        utils.integrateShadow(ray.samples(), 0, count - 1, transparency);
        benchmark::DoNotOptimize(transparency);
    }
    report(state, count);
}

}  // namespace

// Arguments: samples per ray, and 1 for samples already in ray order.
#define SHADENET_VOLUME_ARGS ArgsProduct({{2, 8, 32, 256}, {0, 1}})->ArgNames({"samples", "ordered"})
BENCHMARK(BM_integrateEAS)->SHADENET_VOLUME_ARGS;
BENCHMARK(BM_integrateRT)->SHADENET_VOLUME_ARGS;
BENCHMARK(BM_integrateShadow)->SHADENET_VOLUME_ARGS;
BENCHMARK_MAIN();
