// Viewport speed on the showcase: building the material records and texture
// objects of every shading group (bakes included, at two bake sizes), the
// whole preview set-up, and frames per second of the OpenGL draw.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "display/material_info.h"
#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "renderer/gl_preview.h"
#include "scene/scene_loader.h"
#include "shading/shading_engine.h"
#include "textures/file_texture.h"

namespace {
// build/bin/bench_viewport finds the examples of its source tree.
const std::string kExamples =
    (std::filesystem::canonical("/proc/self/exe").parent_path().parent_path().parent_path() / "examples").string();
const std::string kScene = kExamples + "/showcase.json";

bool load(TdependGraph& graph) {
    TsceneLoader loader;
    return loader.load(kScene, graph);
}

void BM_MaterialRecordsAndTextures(benchmark::State& state) {
    TdependGraph graph;
    if (!load(graph)) return state.SkipWithError("showcase does not load");
    std::string error;
    auto port = T3dPort::create(8, 8, error);
    if (!port) return state.SkipWithError(error.c_str());
    std::string size = std::to_string(state.range(0));
    theCommandEngine().registerCommand("optionVar", [size](const std::vector<std::string>&) { return TscriptCmdResult{true, size}; });
    TdnFileTexture::setSceneDirectory(kExamples);
    std::vector<TdependNode*> groups;
    for (TdependNode* node : graph.nodes())
        if (node->cast(TDNshadingEngine::sMetaclass()) && node->name().str() != "initialShadingGroup") groups.push_back(node);
    for (auto _ : state) {
        std::vector<std::unique_ptr<TmaterialInfo>> infos;
        for (TdependNode* group : groups) {
            infos.push_back(std::make_unique<TmaterialInfo>(group));
            TevaluateTextureInfoArray at(1);
            at[0].port = port.get();
            infos.back()->evaluateTexture(at);
            benchmark::DoNotOptimize(infos.back()->data());
        }
    }
    state.counters["groups"] = double(groups.size());
}

void BM_PreviewBuild(benchmark::State& state) {
    for (auto _ : state) {
        TdependGraph graph;
        if (!load(graph)) return state.SkipWithError("showcase does not load");
        TglPreview preview;
        std::string error;
        TpreviewOptions options;
        if (!preview.build(graph, kScene, options, error)) return state.SkipWithError(error.c_str());
    }
}

void BM_PreviewFrame(benchmark::State& state) {
    TdependGraph graph;
    if (!load(graph)) return state.SkipWithError("showcase does not load");
    TglPreview preview;
    std::string error;
    TpreviewOptions options;
    options.width = 640, options.height = 400;
    if (!preview.build(graph, kScene, options, error)) return state.SkipWithError(error.c_str());
    for (auto _ : state) preview.draw();  // draw ends with glFinish: the frame is done
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
}  // namespace

BENCHMARK(BM_MaterialRecordsAndTextures)->Arg(64)->Arg(128)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PreviewBuild)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PreviewFrame)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
