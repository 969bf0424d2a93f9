// The reference renderer's time on the showcase, split into intersection,
// shading and the rest, and its shading cost per sample beside the engine
// alone shading the same networks (lights included) over batches it did not
// have to build. The per-sample comparison renders camera hits only (no
// reflection rays), since the engine alone traces nothing.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "framework/host/depend_graph.h"
#include "lights/render_light.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"

namespace {
// The build passes absolute source paths, so the scene is found beside this file.
const std::string kScene = (std::filesystem::path(__FILE__).parent_path().parent_path() / "examples/showcase.json").string();
double gRendererNsPerSample = 0, gEngineNsPerSample = 0;

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
    gRendererNsPerSample = split.total.shadeSeconds * 1e9 / double(split.total.shadedSamples);
    state.counters["shade_ns_per_sample"] = gRendererNsPerSample;
}
BENCHMARK(BM_RenderShowcaseCameraHits)->Unit(benchmark::kMillisecond)->UseRealTime();

// The showcase's groups shaded by the engine alone: full batches of 64
// with UVs, normals and points spread over the unit square.
void BM_EngineOnlyShowcaseNetworks(benchmark::State& state) {
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(kScene, graph)) {
        state.SkipWithError("cannot load the showcase");
        return;
    }
    struct Prepared {
        TshadingOpus* opus;
        std::vector<std::vector<uint64_t>> memory;
        std::vector<Tsample*> samples;
    };
    std::vector<Prepared> groups;
    // Each group shaded as a render shades it: every node prepared, and let go at the end.
    std::vector<std::unique_ptr<TshadingSession>> sessions;
    // The renderer's camera: three units up, ten back, no turn.
    TrenderLightShape::setWorldToCamera(Tmatrix::translation(0, -3, -10));
    for (TdependNode* node : graph.nodes()) {
        if (!node->typeof()->istype(TDNshadingEngine::sMetaclass())) continue;
        auto* group = static_cast<TDNshadingEngine*>(node);
        group->collectLights();
        sessions.push_back(std::make_unique<TshadingSession>(group));
        TshadingOpus* opus = sessions.back()->program();
        if (!opus) continue;
        Prepared p{opus, {}, {}};
        unsigned size = group->sampleSize(kSurfaceColorTransparency);
        for (unsigned i = 0; i < 64; ++i) {
            p.memory.emplace_back((size + 7) / 8, 0);
            Tsample* s = Tsample::sCreate(p.memory.back().data(), size, group->fieldOffsetTable(kSurfaceColorTransparency));
            float u = float(i % 8) / 8, v = float(i / 8) / 8;
            s->setUvCoord(u, v);
            s->setUvFilterSize(0.01f, 0.01f);
            s->setNormalCamera(0, 0.6f, 0.8f);
            s->setPointCamera(u, v - 3, -10);
            s->setRayDirection(0, 0, -1);
            p.samples.push_back(s);
        }
        groups.push_back(std::move(p));
    }
    uint64_t shaded = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        for (Prepared& p : groups) {
            p.opus->shade(64, p.samples.data());
            shaded += 64;
        }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    gEngineNsPerSample = seconds * 1e9 / double(shaded);
    state.counters["shade_ns_per_sample"] = gEngineNsPerSample;
    groups.clear();
    sessions.clear();
}
BENCHMARK(BM_EngineOnlyShowcaseNetworks);
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (gRendererNsPerSample > 0 && gEngineNsPerSample > 0)
        std::printf("shading per sample: renderer %.1f ns, engine alone %.1f ns, ratio %.2f (target at most 1.3)\n",
                    gRendererNsPerSample, gEngineNsPerSample, gRendererNsPerSample / gEngineNsPerSample);
    benchmark::Shutdown();
    return 0;
}
