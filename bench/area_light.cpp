// The area light's Lambert: the engine running a Lambert whose light record
// calls the light back for its contour integral, beside a hand-fused loop
// that computes the same sum directly (no virtual call, no handles). Both
// are checked to agree before timing; prints nanoseconds per sample for
// each and the ratio engine over fused.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench/bench_samples.h"
#include "framework/host/depend_graph.h"
#include "lights/area_light.h"
#include "materials/lambert.h"
#include "materials/shading_math.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {

constexpr unsigned kSamples = 64 * 64;  // per pass
// The light: a 2 x 1.5 rectangle at y = 2 shining down, wound as the light's own square.
const T3Float kCorners[4] = {{-1, 2, 0.75f}, {1, 2, 0.75f}, {1, 2, -0.75f}, {-1, 2, -0.75f}};

struct TareaLambert {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TdnLambert* material = static_cast<TdnLambert*>(graph.createNode("lambert"));
    TareaLightShape* light = static_cast<TareaLightShape*>(graph.createNode("areaLight"));
    TlightData record;
    TshadingOpus* opus = nullptr;
    std::vector<uint64_t> memory;
    std::vector<Tsample*> samples;

    TareaLambert() {
        T4dFltPoint corners[4];
        for (int i = 0; i < 4; ++i) corners[i] = asPoint4(kCorners[i]);
        light->setPolygon(corners, 4);
        T3Float color(0.7f, 0.5f, 0.3f);
        material->setAttributeValue(&TdnLambert::saColor(), &color);
        record.lightDirection = {0, 1, 0};
        record.lightIntensity = {0.6f, 0.5f, 0.4f};
        record.lightAmbient = false;
        record.lightDiffuse = true;
        record.lightSpecular = false;
        record.lightBlindData = static_cast<TlightCallbacks*>(light);
        material->setAttributeValue(&TdnLambert::saLightData(), &record, 0);
        graph.connect(Tplug(material, &TdnLambert::saOutColor()), Tplug(group, &TDNshadingEngine::saSurfaceShader()));
        TbitField64 result;
        if (group->analyse(kSurfaceColorTransparency, &result, nullptr, nullptr, nullptr))
            opus = group->option(kSurfaceColorTransparency).opus;
        if (opus) makeSamples();
    }
    ~TareaLambert() {
        for (unsigned o = 0; o < kTSEoptionCount; ++o) TshadingCatalog::deleteOpus(group, o, true);
    }

    // Points on the ground under and around the light, normals leaning about.
    void makeSamples() {
        const unsigned size = group->sampleSize(kSurfaceColorTransparency), words = (size + 7) / 8;
        memory.assign(size_t(words) * kSamples, 0);
        const TbitField64 needs = opus->needs();
        for (unsigned i = 0; i < kSamples; ++i) {
            Tsample* s = Tsample::sCreate(memory.data() + size_t(i) * words, size, group->fieldOffsetTable(kSurfaceColorTransparency));
            float a = float(i % 64) / 63.0f, b = float(i / 64) / 63.0f;
            if (s->hasItem(kItemPointCamera)) s->setPointCamera(T3Float(4 * a - 2, 0, 3 * b - 1.5f));
            if (s->hasItem(kItemNormalCamera)) s->setNormalCamera(normalize(T3Float(0.4f * (b - 0.5f), 1, 0.3f * (a - 0.5f))));
            if (s->hasItem(kItemRayDirection)) s->setRayDirection(T3Float(0, -1, 0));
            setEveryNeededItem(s, needs);
            samples.push_back(s);
        }
    }

    void engine() {
        for (unsigned b = 0; b < kSamples; b += 64) opus->shade(64, samples.data() + b);
    }

    // The same colour written out: the contour integral of the quad seen
    // from each point, times 10, as the Lambert cosine.
    void fused(std::vector<T3Float>& out) const {
        float diffuse = 0.8f;
        T3Float color, ambient, transparency, incandescence;
        material->getAttributeValue(&TdnLambert::saDiffuseCoeff(), &diffuse);
        material->getAttributeValue(&TdnLambert::saColor(), &color);
        material->getAttributeValue(&TdnLambert::saAmbientColor(), &ambient);
        material->getAttributeValue(&TdnLambert::saTransparency(), &transparency);
        material->getAttributeValue(&TdnLambert::saIncandescence(), &incandescence);
        const T3Float lit = mul(color, record.lightIntensity);
        const T3Float lightNormal = normalize(cross(kCorners[1] - kCorners[0], kCorners[2] - kCorners[1]));
        for (unsigned i = 0; i < kSamples; ++i) {
            const T3Float p = *samples[i]->pointCamera(), n = *samples[i]->normalCamera();
            T3Float u[4];
            for (int k = 0; k < 4; ++k) u[k] = normalize(kCorners[k] - p);
            float cosine = 0;
            if (dot(lightNormal, u[0]) >= 0)
                for (int k = 0; k < 4; ++k) {
                    const T3Float& a = u[k];
                    const T3Float& b = u[(k + 1) & 3];
                    double theta = std::acos(double(std::clamp(dot(a, b), -1.0f, 1.0f)));
                    cosine += float(theta * 5.0 * double(dot(normalize(cross(a, b)), n)));
                }
            T3Float sum = cosine >= 0 ? lit * (cosine * diffuse) : T3Float();
            out[i] = mul(sum + mul(color, ambient), oneMinus(transparency)) + incandescence;
        }
    }
};

TareaLambert& scene() {
    static TareaLambert s;
    return s;
}

void Engine(benchmark::State& state) {
    for (auto _ : state) scene().engine();
    state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

void Fused(benchmark::State& state) {
    std::vector<T3Float> out(kSamples);
    for (auto _ : state) {
        scene().fused(out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kSamples);
}

std::map<std::string, double> gNanos;

class Treporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs)
            gNanos[r.benchmark_name()] = r.GetAdjustedCPUTime() * (r.time_unit == benchmark::kMicrosecond ? 1000.0
                                                                   : r.time_unit == benchmark::kMillisecond ? 1e6
                                                                                                           : 1.0) /
                                         double(kSamples);
    }
};
}  // namespace

BENCHMARK(Engine)->Unit(benchmark::kMicrosecond);
BENCHMARK(Fused)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    TareaLambert& s = scene();
    if (!s.opus) {
        std::printf("the Lambert network did not analyse\n");
        return 1;
    }
    // The two roads first have to give the same colours.
    std::vector<T3Float> fused(kSamples);
    s.engine();
    s.fused(fused);
    double worst = 0, largest = 0;
    for (unsigned i = 0; i < kSamples; ++i) {
        const T3Float e = *s.samples[i]->outColor();
        for (int c = 0; c < 3; ++c) {
            worst = std::max(worst, double(std::fabs(e[c] - fused[i][c])));
            largest = std::max(largest, double(std::fabs(e[c])));
        }
    }
    const bool agree = worst <= 1e-5 * std::max(1.0, largest);
    std::printf("engine and fused loop agree: %s (largest difference %.2g, largest colour %.3g)\n", agree ? "yes" : "NO", worst,
                largest);
    if (!agree) return 1;
    Treporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double engine = gNanos["Engine"], hand = gNanos["Fused"];
    std::printf("\nper sample: engine %.1f ns, fused %.1f ns, engine/fused %.2f\n", engine, hand, hand > 0 ? engine / hand : 0.0);
    benchmark::Shutdown();
    return 0;
}
