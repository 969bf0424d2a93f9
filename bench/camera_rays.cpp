// Camera-ray tracing on the showcase: the renderer's helpers (one ray, and
// packets of 8 as the tile loop uses them) against raw Embree loops of the
// same ray kind on the same rays, 320x200 in 16x16 tiles, one ray per pixel.
// Prints rays per second and the overhead of each helper over raw Embree.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/trusted_runs.h"
#include "framework/host/depend_graph.h"
#include "renderer/ray_tracer.h"
#include "renderer/render_scene.h"
#include "scene/scene_loader.h"

namespace {

struct Tfixture {
    TdependGraph graph;
    TrenderScene scene;
    std::vector<TworldRay> rays;  // in tile order
    bool ok = false;
    Tfixture() {
        const std::string file = std::string(SHADENET_SOURCE_DIR) + "/examples/showcase.json";
        TsceneLoader loader;
        std::string error;
        if (!loader.load(file, graph) || !scene.build(graph, file, "", error)) return;
        const int w = 320, h = 200, tile = 16;
        for (int ty = 0; ty < h; ty += tile)
            for (int tx = 0; tx < w; tx += tile)
                for (int y = ty; y < ty + tile; ++y)
                    for (int x = tx; x < tx + tile; ++x) {
                        TworldRay r;  // a pinhole three units up, ten back, 60 degrees across
                        r.origin = {0, 3, 10};
                        const float dx = (x + 0.5f - w / 2.0f) / (w / 2.0f) * 0.577f, dy = (h / 2.0f - y - 0.5f) / (w / 2.0f) * 0.577f;
                        const float len = std::sqrt(dx * dx + dy * dy + 1);
                        r.direction = {dx / len, dy / len, -1 / len};
                        rays.push_back(r);
                    }
        ok = true;
    }
};

Tfixture& fixture() {
    static Tfixture f;
    return f;
}

void BM_RawSingle(benchmark::State& state) {
    auto& f = fixture();
    unsigned hits = 0;
    for (auto _ : state)
        for (const TworldRay& r : f.rays) {
            TtraceContext context;
            rtcInitIntersectContext(&context.embree);
            context.cameraRay = true;
            RTCRayHit hit;
            hit.ray.org_x = r.origin.x, hit.ray.org_y = r.origin.y, hit.ray.org_z = r.origin.z;
            hit.ray.dir_x = r.direction.x, hit.ray.dir_y = r.direction.y, hit.ray.dir_z = r.direction.z;
            hit.ray.tnear = r.tNear, hit.ray.tfar = r.tFar, hit.ray.time = 0, hit.ray.mask = ~0u, hit.ray.id = 0, hit.ray.flags = 0;
            hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
            rtcIntersect1(f.scene.embreeScene(), &context.embree, &hit);
            hits += hit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
        }
    benchmark::DoNotOptimize(hits);
    state.SetItemsProcessed(int64_t(state.iterations() * f.rays.size()));
}

void BM_HelperSingle(benchmark::State& state) {
    auto& f = fixture();
    unsigned hits = 0;
    for (auto _ : state)
        for (const TworldRay& r : f.rays) {
            RTCRayHit hit;
            hits += intersectWorld(f.scene.embreeScene(), r, true, hit);
        }
    benchmark::DoNotOptimize(hits);
    state.SetItemsProcessed(int64_t(state.iterations() * f.rays.size()));
}

void BM_RawPacket8(benchmark::State& state) {
    auto& f = fixture();
    unsigned hits = 0;
    for (auto _ : state)
        for (size_t first = 0; first < f.rays.size(); first += 8) {
            TtraceContext context;
            rtcInitIntersectContext(&context.embree);
            context.embree.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
            context.cameraRay = true;
            alignas(32) int valid[8];
            RTCRayHit8 p;
            for (int i = 0; i < 8; ++i) {
                const TworldRay& r = f.rays[first + size_t(i)];
                valid[i] = -1;
                p.ray.org_x[i] = r.origin.x, p.ray.org_y[i] = r.origin.y, p.ray.org_z[i] = r.origin.z;
                p.ray.dir_x[i] = r.direction.x, p.ray.dir_y[i] = r.direction.y, p.ray.dir_z[i] = r.direction.z;
                p.ray.tnear[i] = r.tNear, p.ray.tfar[i] = r.tFar, p.ray.time[i] = 0, p.ray.mask[i] = ~0u;
                p.ray.id[i] = unsigned(i), p.ray.flags[i] = 0;
                p.hit.geomID[i] = RTC_INVALID_GEOMETRY_ID;
                p.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
            }
            rtcIntersect8(valid, f.scene.embreeScene(), &context.embree, &p);
            for (int i = 0; i < 8; ++i) hits += p.hit.geomID[i] != RTC_INVALID_GEOMETRY_ID;
        }
    benchmark::DoNotOptimize(hits);
    state.SetItemsProcessed(int64_t(state.iterations() * f.rays.size()));
}

void BM_HelperPacket8(benchmark::State& state) {
    auto& f = fixture();
    unsigned hits = 0;
    RTCRayHit out[kRayPacket];
    for (auto _ : state)
        for (size_t first = 0; first < f.rays.size(); first += kRayPacket) {
            intersectWorldPacket(f.scene.embreeScene(), &f.rays[first], kRayPacket, true, out);
            for (int i = 0; i < kRayPacket; ++i) hits += out[i].hit.geomID != RTC_INVALID_GEOMETRY_ID;
        }
    benchmark::DoNotOptimize(hits);
    state.SetItemsProcessed(int64_t(state.iterations() * f.rays.size()));
}

BENCHMARK(BM_RawSingle);
BENCHMARK(BM_HelperSingle);
BENCHMARK(BM_RawPacket8);
BENCHMARK(BM_HelperPacket8);

}  // namespace

int main(int argc, char** argv) {
    initializeTrusted(argc, argv);
    if (!fixture().ok) {
        std::printf("cannot load the showcase\n");
        return 1;
    }
    TtrustedReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto r = [&](const char* n) { return reporter.median(n); };
    std::printf("\nCamera rays, showcase 320x200 in 16x16 tiles (M rays/s, CPU time, median of interleaved runs):\n");
    for (const char* n : {"BM_RawSingle", "BM_HelperSingle", "BM_RawPacket8", "BM_HelperPacket8"})
        std::printf("  %-18s %s\n", n + 3, reporter.figure(n, "items_per_second", 1e-6, "%.2f").c_str());
    if (r("BM_RawSingle") > 0 && r("BM_HelperSingle") > 0 && r("BM_RawPacket8") > 0 && r("BM_HelperPacket8") > 0) {
        std::printf("  overhead over raw Embree: single rays %.2f, packets %.2f (target under 1.1)\n",
                    r("BM_RawSingle") / r("BM_HelperSingle"), r("BM_RawPacket8") / r("BM_HelperPacket8"));
        std::printf("  packets of 8 over single rays (helpers): %.2f\n", r("BM_HelperPacket8") / r("BM_HelperSingle"));
    }
    reporter.printIdleCores();
    benchmark::Shutdown();
    return 0;
}
