// Fog in renders: the fog example's render time beside the same scene with
// its three fogs hidden, the cost of one fog interval (the difference over
// the intervals shaded), and the integrator's fold of a fogged ray (three
// intervals and the surface behind) with the heap allocations it makes,
// which must stay 0.
// The counting operator new at the end is seen inline by every container here.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <new>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"
#include "shading/sample.h"
#include "volumes/volume_utils.h"

namespace {
// Beside this file when the build gives absolute paths, else from the source tree's root.
std::string sceneFile() {
    const std::filesystem::path beside = std::filesystem::path(__FILE__).parent_path().parent_path() / "examples/fog.json";
    return std::filesystem::exists(beside) ? beside.string() : std::string("examples/fog.json");
}
const std::string kScene = sceneFile();
thread_local size_t tAllocations = 0;
double gWithFog = 0, gWithoutFog = 0;
uint64_t gIntervals = 0;

// The fog example at 320 x 200, one sample a pixel, one thread; with
// `fog` false the fog shapes' transforms are hidden, which leaves the rest
// of the scene as it was.
void renderFog(benchmark::State& state, bool fog) {
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(kScene, graph)) {
        state.SkipWithError("cannot load examples/fog.json");
        return;
    }
    if (!fog)
        for (const char* name : {"hazeXf", "cloudXf", "beamXf"}) {
            TdependNode* xf = graph.findNode(name);
            bool off = false;
            if (xf) xf->setAttributeValue(xf->attribute(Tstring("visibility")), &off);
        }
    TrenderOptions options;
    options.width = 320, options.height = 200, options.samplesPerPixel = 1, options.threads = 1;
    double wall = 0;
    uint64_t intervals = 0;
    unsigned runs = 0;
    for (auto _ : state) {
        TframeBuffer image;
        std::string error;
        Trenderer renderer;
        if (!renderer.render(graph, kScene, options, image, error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        wall += renderer.statistics().wallSeconds;
        intervals += renderer.statistics().fogIntervals;
        ++runs;
    }
    (fog ? gWithFog : gWithoutFog) = wall / runs;
    if (fog) gIntervals = intervals / runs;
    state.counters["wall_s"] = wall / runs;
    state.counters["fog_intervals"] = double(intervals / runs);
    if (gWithFog > 0 && gWithoutFog > 0) {
        state.counters["fog/no_fog"] = gWithFog / gWithoutFog;
        state.counters["ns_per_interval"] = (gWithFog - gWithoutFog) * 1e9 / double(gIntervals);
    }
}
void BM_FogExampleWithoutFog(benchmark::State& state) { renderFog(state, false); }
void BM_FogExampleWithFog(benchmark::State& state) { renderFog(state, true); }
BENCHMARK(BM_FogExampleWithoutFog)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_FogExampleWithFog)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// One fogged ray as the renderer folds it: an environment interval, a
// light-fog interval and a volume interval overlapping it, then the surface.
void BM_IntegrateFoggedRay(benchmark::State& state) {
    TbitField64 needed;
    for (unsigned item : {kItemOutColor, kItemOutTransparency, kItemOutGlowColor, kItemBlobbySurfaceFactor, kItemParticleWeight,
                          kItemParticleEntryParam, kItemParticleExitParam, kItemOutMatteOpacity, kItemObjectType})
        needed.set(item);
    std::vector<unsigned> table(Tsample::sFieldTableLength(0));
    const unsigned size = Tsample::sBuildFieldOffsets(needed, table.data());
    std::vector<uint64_t> storage(4 * size / 8 + 1);
    TsampleArray ray;
    const float spans[4][2] = {{0, 12}, {3, 7}, {5, 9}, {12, 12}};
    for (int k = 0; k < 4; ++k) {
        Tsample* s = Tsample::sCreate(reinterpret_cast<char*>(storage.data()) + size_t(k) * size, size, table.data());
        s->setBlobbySurfaceFactor(k == 3 ? 1.0f : 0.0f);
        s->setParticleEntryParam(spans[k][0]);
        s->setParticleExitParam(spans[k][1]);
        s->setOutColor(0.2f, 0.25f, 0.3f);
        s->setOutTransparency(0.6f, 0.6f, 0.65f);
        ray.addLast(s);
    }
    const TvolumeUtils utils;
    const size_t before = tAllocations;
    for (auto _ : state) {
        T3Float color, transparency, glow;
        utils.integrateRT(&ray, 0, 3, color, transparency, glow);
        benchmark::DoNotOptimize(color);
    }
    state.counters["heap_allocations"] = double(tAllocations - before);
    state.counters["rays/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_IntegrateFoggedRay);
}  // namespace

// Counting replacements of the allocation functions, for the figure above;
// the library's operator delete frees what malloc gave.
void* operator new(std::size_t size) {
    ++tAllocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }

BENCHMARK_MAIN();
