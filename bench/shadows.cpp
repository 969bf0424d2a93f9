// The cost of shadows per shaded sample: depth maps against ray-traced
// shadows on one scene, each measured as the render's thread time minus
// that of the same render without shadows, over the samples shaded. The
// depth-map figure includes building the maps before the tiles. Area lights
// have no maps: their shadows are off in every run, so that their many rays
// do not drown the difference. The scene is
// the first argument after the benchmark flags, examples/lights.json when
// none is given:
//   build/bin/bench_shadows [--benchmark_filter=...] [scene.json]
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "lights/area_light.h"
#include "lights/render_light.h"
#include "renderer/depth_maps.h"
#include "renderer/render_scene.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"

namespace {
// build/bin/bench_shadows sits two folders below the source tree.
std::string gScene =
    (std::filesystem::canonical("/proc/self/exe").parent_path().parent_path().parent_path() / "examples/lights.json").string();

// The lights whose shadows a run switches: those that can have depth maps.
bool switchable(TdependNode* node) {
    return node->typeof()->istype(TnonExtendedLightShape::sMetaclass()) && !node->typeof()->istype(TareaLightShape::sMetaclass());
}

enum Tshadows { kNone = 0, kDepthMap = 1, kRayTraced = 2 };
const char* const kNames[] = {"none", "depth map", "ray traced"};
double gSecondsPerRun[3] = {0, 0, 0};
double gSamplesPerRun = 0, gBuildSeconds = 0;

// Renders the scene with every shadowing light switched to one kind.
void BM_Shadows(benchmark::State& state) {
    const auto kind = Tshadows(state.range(0));
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(gScene, graph)) {
        state.SkipWithError(("cannot load " + gScene).c_str());
        return;
    }
    for (TdependNode* node : graph.nodes()) {
        if (node->typeof()->istype(TareaLightShape::sMetaclass())) {
            bool off = false;
            node->setAttributeValue(&TlightShape::saUseRayTraceShadows(), &off);
        }
        if (!switchable(node)) continue;
        bool depthMap = kind == kDepthMap, rayTraced = kind == kRayTraced;
        node->setAttributeValue(&TnonExtendedLightShape::saUseDepthMapShadows(), &depthMap);
        node->setAttributeValue(&TlightShape::saUseRayTraceShadows(), &rayTraced);
    }
    TrenderOptions options;
    options.threads = 1;  // the maps still build on every core
    options.samplesPerPixel = 4;  // a few samples a pixel, as a real render takes, over which the build spreads
    double seconds = 0, samples = 0;
    int runs = 0;
    for (auto _ : state) {
        TframeBuffer image;
        std::string error;
        Trenderer renderer;
        if (!renderer.render(graph, gScene, options, image, error)) {
            state.SkipWithError(error.c_str());
            return;
        }
        seconds += renderer.statistics().wallSeconds;
        samples += double(renderer.statistics().shadedSamples);
        ++runs;
    }
    gSecondsPerRun[kind] = seconds / runs;
    gSamplesPerRun = samples / runs;
    state.counters["ns_per_sample"] = seconds / samples * 1e9;
}
// Building the maps alone: the fixed cost of a render with depth maps.
void BM_DepthMapBuild(benchmark::State& state) {
    TdependGraph graph;
    TsceneLoader loader;
    TrenderScene scene;
    std::string error;
    if (!loader.load(gScene, graph) || !scene.build(graph, gScene, "", error)) {
        state.SkipWithError(("cannot load " + gScene).c_str());
        return;
    }
    for (TdependNode* node : graph.nodes())
        if (switchable(node)) {
            bool on = true;
            node->setAttributeValue(&TnonExtendedLightShape::saUseDepthMapShadows(), &on);
        }
    double seconds = 0;
    int runs = 0;
    for (auto _ : state) {
        std::vector<std::string> warnings;
        auto start = std::chrono::steady_clock::now();
        TdepthMaps maps(graph, scene, gScene, warnings);
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        ++runs;
    }
    gBuildSeconds = seconds / runs;
}
BENCHMARK(BM_DepthMapBuild)->Unit(benchmark::kMillisecond)->MinTime(1.0);

BENCHMARK(BM_Shadows)->Arg(kNone)->Arg(kDepthMap)->Arg(kRayTraced)->Unit(benchmark::kMillisecond)->MinTime(4.0);
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc > 1) gScene = argv[1];
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (gSamplesPerRun <= 0 || gSecondsPerRun[kNone] <= 0) return 0;
    std::printf("\n%s, %.0f shaded samples, one thread\n", gScene.c_str(), gSamplesPerRun);
    double cost[3];
    for (int k = 0; k < 3; ++k) {
        cost[k] = (gSecondsPerRun[k] - gSecondsPerRun[kNone]) / gSamplesPerRun * 1e9;
        std::printf("  %-10s  %8.2f ms per render  %7.1f ns of shadow per sample\n", kNames[k], gSecondsPerRun[k] * 1e3, cost[k]);
    }
    // The maps' build is per render, not per sample: take it out of the lookups.
    double lookups = (gSecondsPerRun[kDepthMap] - gBuildSeconds - gSecondsPerRun[kNone]) / gSamplesPerRun * 1e9;
    std::printf("  depth maps built in %.2f ms; lookups alone %.1f ns per sample\n", gBuildSeconds * 1e3, lookups);
    if (cost[kRayTraced] > 0)
        std::printf("  depth map / ray traced: %.2f with the build, %.2f lookups alone\n", cost[kDepthMap] / cost[kRayTraced],
                    lookups / cost[kRayTraced]);
    return 0;
}
