// Viewport speed on the showcase: building the material records and texture
// objects of every shading group (bakes included, at three bake sizes), the
// whole preview set-up (reflection cube maps included), the cost of one
// upstream edit seen through the graph and the texture made again, and
// frames per second of the OpenGL draw.
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
        // As the preview makes them: info nodes attached to the groups, each
        // watching its network from then on.
        std::vector<TmaterialInfo*> infos;
        for (TdependNode* group : groups) {
            auto* info = static_cast<TmaterialInfo*>(graph.createNode("materialInfo"));
            graph.connect(Tplug(group, &TdependNode::saMessage()), Tplug(info, &TmaterialInfo::saShadingGroup()));
            infos.push_back(info);
            TevaluateTextureInfoArray at(1);
            at[0].port = port.get();
            info->evaluateTexture(at);
            benchmark::DoNotOptimize(info->data());
        }
        state.PauseTiming();
        for (TmaterialInfo* info : infos) graph.deleteNode(info);
        state.ResumeTiming();
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

void BM_EditAndReevaluate(benchmark::State& state) {
    // One texture attribute edited upstream of the floor's checker: the
    // info hears of it through the graph and bakes that texture again.
    TdependGraph graph;
    if (!load(graph)) return state.SkipWithError("showcase does not load");
    std::string error;
    auto port = T3dPort::create(8, 8, error);
    if (!port) return state.SkipWithError(error.c_str());
    theCommandEngine().registerCommand("optionVar", [](const std::vector<std::string>&) { return TscriptCmdResult{true, "128"}; });
    TdependNode* group = graph.findNode(Tstring("floorSG"));
    TdependNode* checker = graph.findNode(Tstring("floorChecker"));
    if (!group || !checker) return state.SkipWithError("showcase has no floor");
    auto* info = static_cast<TmaterialInfo*>(graph.createNode("materialInfo"));
    graph.connect(Tplug(group, &TdependNode::saMessage()), Tplug(info, &TmaterialInfo::saShadingGroup()));
    TevaluateTextureInfoArray at(1);
    at[0].port = port.get();
    info->evaluateTexture(at);
    const Tattribute* colour = checker->attribute(Tstring("color1"));
    float shade = 0;
    for (auto _ : state) {
        shade = shade > 0.5f ? 0.1f : shade + 0.01f;
        T3Float c{shade, shade, shade};
        checker->setAttributeValue(colour, &c);
        info->evaluateTexture(at);
    }
    state.counters["uploads"] = double(info->colorTexture()->uploads());
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
BENCHMARK(BM_EditAndReevaluate)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PreviewFrame)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
