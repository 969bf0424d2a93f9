// Scene file speed: writing and reading a graph of transforms with values,
// an instanced hierarchy, a shading group holding every path and a chain of
// connections. Reading includes the trial build that keeps a bad file from
// touching the graph, so it does the graph work twice.
#include <benchmark/benchmark.h>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "scene/scene_writer.h"

namespace {
void buildGraph(TdependGraph& graph, int count) {
    std::vector<TdagNode*> nodes;
    auto* group = static_cast<TobjectSet*>(graph.createNode("shadingEngine", "groupSG")->cast(TobjectSet::sMetaclass()));
    for (int i = 0; i < count; ++i) {
        TdependNode* n = graph.createNode("transform", "node" + std::to_string(i));
        T3Float t{float(i) * 0.1f, float(i % 7), -float(i) / 3.0f};
        n->setAttributeValue(&Ttransform::saTranslate(), &t);
        float angle = float(i % 360);
        n->setAttributeValue(&Ttransform::saRotateY(), &angle);
        auto* dag = static_cast<TdagNode*>(n->cast(TdagNode::sMetaclass()));
        if (i > 0) nodes[size_t(i - 1) / 4]->addChild(dag);
        nodes.push_back(dag);
        if (i > 0) {
            Tplug source, destination;
            graph.findPlug("node" + std::to_string(i - 1) + ".visibility", source);
            graph.findPlug("node" + std::to_string(i) + ".visibility", destination);
            graph.connect(source, destination);
        }
    }
    for (TdagNode* n : nodes)
        if (n->children().empty()) group->addMember(n->allPaths()[0]);
}

void BM_SaveScene(benchmark::State& state) {
    TdependGraph graph;
    buildGraph(graph, int(state.range(0)));
    size_t bytes = 0;
    for (auto _ : state) {
        std::string text = TsceneWriter::toText(graph);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}

void BM_LoadScene(benchmark::State& state) {
    TdependGraph source;
    buildGraph(source, int(state.range(0)));
    const std::string text = TsceneWriter::toText(source);
    for (auto _ : state) {
        TdependGraph graph;
        TsceneLoader loader;
        if (!loader.loadText(text, "bench.json", graph)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(graph.nodeCount());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(int64_t(state.iterations() * text.size()));
}

// A file whose last connection is illegal: everything is built once, in the
// trial graph, and thrown away.
void BM_RejectScene(benchmark::State& state) {
    TdependGraph source;
    buildGraph(source, int(state.range(0)));
    std::string text = TsceneWriter::toText(source);
    text.insert(text.rfind(']'), ", [\"node0.translate\", \"node1.visibility\"]");
    for (auto _ : state) {
        TdependGraph graph;
        TsceneLoader loader;
        if (loader.loadText(text, "bench.json", graph)) state.SkipWithError("bad file accepted");
        benchmark::DoNotOptimize(loader.errors().size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
}  // namespace

BENCHMARK(BM_SaveScene)->Arg(250)->Arg(2000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadScene)->Arg(250)->Arg(2000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RejectScene)->Arg(250)->Arg(2000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
