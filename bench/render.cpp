// The reference renderer's time on the smoke scene, split into intersection,
// shading and the rest, and its shading cost per sample beside the engine
// alone shading the same networks over batches it did not have to build.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {
// The build passes absolute source paths, so the scene is found beside this file.
const std::string kScene = (std::filesystem::path(__FILE__).parent_path().parent_path() / "examples/renderer-smoke.json").string();
double gRendererNsPerSample = 0, gEngineNsPerSample = 0;

void BM_RenderSmokeScene(benchmark::State& state) {
    TrenderOptions options;
    options.width = 320, options.height = 240, options.samplesPerPixel = 4, options.threads = int(state.range(0));
    TrenderStatistics total;
    unsigned runs = 0;
    for (auto _ : state) {
        TframeBuffer image;
        std::string error;
        Trenderer renderer;
        if (!renderSceneFile(kScene, options, image, error, &renderer)) {
            state.SkipWithError(error.c_str());
            return;
        }
        const TrenderStatistics& s = renderer.statistics();
        total.wallSeconds += s.wallSeconds;
        total.intersectSeconds += s.intersectSeconds;
        total.shadeSeconds += s.shadeSeconds;
        total.threadSeconds += s.threadSeconds;
        total.shadedSamples += s.shadedSamples;
        ++runs;
    }
    double rest = total.threadSeconds - total.intersectSeconds - total.shadeSeconds;
    state.counters["intersect_s"] = total.intersectSeconds / runs;
    state.counters["shade_s"] = total.shadeSeconds / runs;
    state.counters["rest_s"] = rest / runs;
    state.counters["wall_s"] = total.wallSeconds / runs;
    double perSample = total.shadeSeconds * 1e9 / double(total.shadedSamples);
    state.counters["shade_ns_per_sample"] = perSample;
    if (state.range(0) == 1) gRendererNsPerSample = perSample;
}
BENCHMARK(BM_RenderSmokeScene)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The smoke scene's groups shaded by the engine alone: full batches of 64
// with UVs, normals and points spread over the unit square.
void BM_EngineOnlySmokeNetworks(benchmark::State& state) {
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(kScene, graph)) {
        state.SkipWithError("cannot load the smoke scene");
        return;
    }
    struct Prepared {
        TshadingOpus* opus;
        std::vector<std::vector<uint64_t>> memory;
        std::vector<Tsample*> samples;
    };
    std::vector<Prepared> groups;
    for (TdependNode* node : graph.nodes()) {
        if (!node->typeof()->istype(TDNshadingEngine::sMetaclass())) continue;
        auto* group = static_cast<TDNshadingEngine*>(node);
        TbitField64 found;
        if (!group->analyse(kSurfaceColorTransparency, &found, nullptr, nullptr, nullptr)) continue;
        Prepared p{group->option(kSurfaceColorTransparency).opus, {}, {}};
        unsigned size = group->sampleSize(kSurfaceColorTransparency);
        for (unsigned i = 0; i < 64; ++i) {
            p.memory.emplace_back((size + 7) / 8, 0);
            Tsample* s = Tsample::sCreate(p.memory.back().data(), size, group->fieldOffsetTable(kSurfaceColorTransparency));
            float u = float(i % 8) / 8, v = float(i / 8) / 8;
            s->setUvCoord(u, v);
            s->setUvFilterSize(0.01f, 0.01f);
            s->setNormalCamera(0, 0, 1);
            s->setPointCamera(u, v, -5);
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
    for (TdependNode* node : graph.nodes())
        if (node->typeof()->istype(TDNshadingEngine::sMetaclass()))
            for (unsigned o = 0; o < kTSEoptionCount; ++o) TshadingCatalog::deleteOpus(node, o, true);
}
BENCHMARK(BM_EngineOnlySmokeNetworks);
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
