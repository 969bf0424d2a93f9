// The reference renderer's time on the showcase, split into intersection,
// shading and the rest, with one and two threads in the same run, and its
// shading cost per sample on camera hits. (A figure of the renderer against
// the engine alone was dropped: the engine alone shaded made-up samples of
// every group equally and traced no shadow rays, so it measured other work.)
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "framework/host/depend_graph.h"
#include "lights/render_light.h"
#include "bench/trusted_runs.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"

namespace {
const std::string kScene = std::string(SHADENET_SOURCE_DIR) + "/examples/showcase.json";

struct Tsplit {
    TrenderStatistics total;
    unsigned runs = 0;
};

bool renderOnce(const TrenderOptions& options, Tsplit& split, benchmark::State& state) {
    TframeBuffer image;
    std::string error;
    Trenderer renderer;
    if (!renderSceneFile(kScene, options, image, error, &renderer)) {
        state.SkipWithError(error.c_str());
        return false;
    }
    const TrenderStatistics& s = renderer.statistics();
    split.total.wallSeconds += s.wallSeconds;
    split.total.intersectSeconds += s.intersectSeconds;
    split.total.shadeSeconds += s.shadeSeconds;
    split.total.threadSeconds += s.threadSeconds;
    split.total.shadedSamples += s.shadedSamples;
    ++split.runs;
    return true;
}

// Wall time of the whole showcase at 320 x 200, 4 samples per pixel.
void BM_RenderShowcase(benchmark::State& state) {
    TrenderOptions options;
    options.width = 320, options.height = 200, options.samplesPerPixel = 4, options.threads = int(state.range(0));
    Tsplit split;
    for (auto _ : state)
        if (!renderOnce(options, split, state)) return;
    const TrenderStatistics& t = split.total;
    double rest = t.threadSeconds - t.intersectSeconds - t.shadeSeconds;
    state.counters["intersect_s"] = t.intersectSeconds / split.runs;
    state.counters["shade_s"] = t.shadeSeconds / split.runs;
    state.counters["rest_s"] = rest / split.runs;
    state.counters["wall_s"] = t.wallSeconds / split.runs;
    state.counters["shade_ns_per_sample"] = t.shadeSeconds * 1e9 / double(t.shadedSamples);
}
BENCHMARK(BM_RenderShowcase)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Camera hits only, one thread: the renderer's shading per sample.
void BM_RenderShowcaseCameraHits(benchmark::State& state) {
    TrenderOptions options;
    options.width = 320, options.height = 200, options.samplesPerPixel = 4, options.threads = 1, options.maxRayDepth = 0;
    Tsplit split;
    for (auto _ : state)
        if (!renderOnce(options, split, state)) return;
    state.counters["shade_ns_per_sample"] = split.total.shadeSeconds * 1e9 / double(split.total.shadedSamples);
}
BENCHMARK(BM_RenderShowcaseCameraHits)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    initializeTrusted(argc, argv);
    TtrustedReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double one = reporter.median("BM_RenderShowcase/1/real_time", "wall_s"),
                 two = reporter.median("BM_RenderShowcase/2/real_time", "wall_s");
    std::printf("\nshowcase 320x200, 4 samples per pixel, wall seconds (median of interleaved runs):\n");
    std::printf("  1 thread  %s\n", reporter.figure("BM_RenderShowcase/1/real_time", "wall_s", 1, "%.3f").c_str());
    std::printf("  2 threads %s\n", reporter.figure("BM_RenderShowcase/2/real_time", "wall_s", 1, "%.3f").c_str());
    if (one > 0 && two > 0) std::printf("  two-thread speed-up %.2f (at most 2; less when the cores below were busy)\n", one / two);
    std::printf("shading per camera-hit sample: %s ns\n",
                reporter.figure("BM_RenderShowcaseCameraHits/real_time", "shade_ns_per_sample", 1, "%.1f").c_str());
    reporter.printIdleCores();
    benchmark::Shutdown();
    return 0;
}
