// Surface materials through the shading engine against a hand-fused loop
// that computes the same colour: a Lambert and a Blinn, each lit by four
// point lights, over batches of 64 samples. Prints the times and the ratio
// engine / fused per material.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "materials/specular.h"
#include "materials/specular_lobes.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {
constexpr unsigned kLights = 4;

TlightData lightAt(unsigned k) {
    TlightData d;
    d.lightDirection = normalize(T3Float(float(k) - 1.5f, 1.0f, 2.0f));
    d.lightIntensity = T3Float(0.6f, 0.5f, 0.4f + 0.1f * float(k));
    d.lightAmbient = false;
    d.lightSpecular = true;
    return d;
}

struct Tscene {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TdependNode* material;
    TshadingOpus* opus = nullptr;
    std::vector<std::vector<uint64_t>> memory;
    std::vector<Tsample*> samples;
    std::vector<T3Float> normals, views;

    explicit Tscene(const char* type) {
        material = graph.createNode(type);
        graph.connect(Tplug(material, &TdnLambert::saOutColor()), Tplug(group, &TDNshadingEngine::saSurfaceShader()));
        T3Float color(0.7f, 0.5f, 0.3f);
        material->setAttributeValue(&TdnLambert::saColor(), &color);
        for (unsigned k = 0; k < kLights; ++k) {
            TlightData d = lightAt(k);
            material->setAttributeValue(&TdnLambert::saLightData(), &d, k);
        }
        TbitField64 provided;
        group->analyse(kSurfaceColorTransparency, &provided, nullptr, nullptr, nullptr);
        opus = group->option(kSurfaceColorTransparency).opus;
        unsigned size = group->sampleSize(kSurfaceColorTransparency);
        unsigned* fields = group->fieldOffsetTable(kSurfaceColorTransparency);
        for (unsigned i = 0; i < kBatchSize; ++i) {
            memory.emplace_back((size + 7) / 8, 0);
            samples.push_back(Tsample::sCreate(memory.back().data(), size, fields));
            float t = float(i) / kBatchSize;
            normals.push_back(normalize(T3Float(t - 0.5f, 0.25f - t * 0.5f, 1)));
            views.push_back(normalize(T3Float(0.1f * t, -0.2f, -1)));
            samples.back()->setNormalCamera(normals.back());
            samples.back()->setRayDirection(views.back());
        }
    }
    ~Tscene() {
        for (unsigned o = 0; o < kTSEoptionCount; ++o) TshadingCatalog::deleteOpus(group, o, true);
    }
};

// The Lambert colour of one sample written out by hand.
T3Float fusedLambert(const T3Float& n, const TlightData* lights, const T3Float& color) {
    T3Float sum;
    for (unsigned k = 0; k < kLights; ++k) {
        float c = dot(lights[k].lightDirection, n);
        float w = c >= 0 ? c * 0.8f : 0.0f;
        sum = sum + T3Float(color.x * lights[k].lightIntensity.x, color.y * lights[k].lightIntensity.y,
                            color.z * lights[k].lightIntensity.z) * w;
    }
    return sum;
}

std::map<std::string, double> gSeconds;

void BM_LambertEngine(benchmark::State& state) {
    Tscene scene("lambert");
    for (auto _ : state) {
        scene.opus->shade(kBatchSize, scene.samples.data());
        benchmark::DoNotOptimize(scene.samples[7]->outColor()->x);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kBatchSize);
}
void BM_LambertFused(benchmark::State& state) {
    Tscene scene("lambert");
    TlightData lights[kLights];
    for (unsigned k = 0; k < kLights; ++k) lights[k] = lightAt(k);
    T3Float color(0.7f, 0.5f, 0.3f), out[kBatchSize];
    for (auto _ : state) {
        for (unsigned i = 0; i < kBatchSize; ++i) out[i] = fusedLambert(scene.normals[i], lights, color);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kBatchSize);
}
void BM_BlinnEngine(benchmark::State& state) {
    Tscene scene("blinn");
    for (auto _ : state) {
        scene.opus->shade(kBatchSize, scene.samples.data());
        benchmark::DoNotOptimize(scene.samples[7]->outColor()->x);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kBatchSize);
}
void BM_BlinnFused(benchmark::State& state) {
    Tscene scene("blinn");
    TlightData lights[kLights];
    for (unsigned k = 0; k < kLights; ++k) lights[k] = lightAt(k);
    T3Float color(0.7f, 0.5f, 0.3f), out[kBatchSize];
    for (auto _ : state) {
        for (unsigned i = 0; i < kBatchSize; ++i) {
            const T3Float& n = scene.normals[i];
            T3Float s;
            for (unsigned k = 0; k < kLights; ++k)
                if (dot(lights[k].lightDirection, n) > 0)
                    s = s + lights[k].lightIntensity * blinnLobe(lights[k].lightDirection, scene.views[i], n, 0.3f, 0.7f);
            out[i] = fusedLambert(n, lights, color) + s * 0.5f;
        }
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kBatchSize);
}
BENCHMARK(BM_LambertEngine);
BENCHMARK(BM_LambertFused);
BENCHMARK(BM_BlinnEngine);
BENCHMARK(BM_BlinnFused);

class TratioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) gSeconds[r.benchmark_name()] = r.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
};
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    TratioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const char* m : {"Lambert", "Blinn"}) {
        double engine = gSeconds[std::string("BM_") + m + "Engine"], fused = gSeconds[std::string("BM_") + m + "Fused"];
        if (engine > 0 && fused > 0)
            std::printf("%s lit by %u point lights, batch %u: engine / fused = %.2f\n", m, kLights, kBatchSize, engine / fused);
    }
    benchmark::Shutdown();
    return 0;
}
