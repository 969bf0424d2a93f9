#pragma once
// TrendererRaySampler: the ray tracing service of one render thread. It
// traces with Embree and shades what rays hit through the shading engine,
// one nested TrenderLevelThread per level of ray nesting.
#include <embree3/rtcore.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "renderer/level_thread.h"
#include "renderer/render_scene.h"
#include "renderer/surface_point.h"
#include "shading/ray_sampler.h"

class TfogTracer;

// A ray in world space, for the renderer's own use.
struct TworldRay {
    T3Float origin, direction;  // direction unit length
    float tNear = 0, tFar = 1e30f;
    int32_t depth = 0;
    float refractiveIndex = 1;
};

// What a traced ray saw: the colour along it, how much of what lies beyond
// still shows through (white for a miss), and its first hit.
struct TtraceResult {
    T3Float radiance, transmittance;
    bool hit = false;
    float distance = 0;  // camera-space units
    int32_t primitive = -1, object = -1;
};

struct TtraceCounters {
    uint64_t intersectNs = 0;
    uint64_t secondaryRays = 0, shadowRays = 0, shadedSamples = 0;
};

class TrendererRaySampler : public TraySampler {
public:
    static constexpr unsigned kMaxLevels = 16;
    static constexpr unsigned kChunk = 256;
    // Layers of transparency a ray passes through before it stops.
    static constexpr unsigned kMaxTransparentLayers = 8;
    // Surfaces that shadow rays pass, shaded together.
    static constexpr unsigned kShadowBatch = 64;

    TrendererRaySampler(const TrenderScene& scene, float pixelAngle);
    ~TrendererRaySampler() override;

    unsigned raySize() const override { return sizeof(TgenericRay); }
    void traceShadowRays(TdependNode* light, int n, TgenericRay** rays, Treflectance* transmittance) override;
    float random() override;
    void traceRays(TdependNode* node, int n, TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) override;
    int maxRayDepth() const override { return fScene.settings().maxRayDepth; }
    void background(Tspectrum& out) override;

    // Traces world rays and shades their hits on the level after the one
    // shading now, passing through transparent surfaces.
    void traceWorld(unsigned n, const TworldRay* rays, TtraceResult* results);
    // The level that shades now; the renderer sets 0 while camera hits shade.
    void setActiveLevel(int level) { fActiveLevel = level; }
    void seed(uint64_t value) { fRandomState = value ? value : 0x9E3779B97F4A7C15ull; }
    // Ends sampling on every nested level.
    void endSampling();
    // The fog that rays traced here pass through; null for none.
    void setFog(TfogTracer* fog) { fFog = fog; }

    TtraceCounters counters;

private:
    struct Level {
        std::unique_ptr<TrenderLevelThread> thread;
        std::vector<TworldRay> rays;
        std::vector<TsurfacePoint> points;
        std::vector<Tsample*> samples;
        std::vector<unsigned> sampleOf;  // ray index of each sample
        std::vector<T3Float> throughput;
        std::vector<unsigned> live;      // rays still passing through surfaces
        // The transparency of surfaces that shadow rays pass, shaded alone.
        std::unique_ptr<TrenderLevelThread> shadowThread;
        std::vector<Tsample*> shadowSamples;
        std::vector<unsigned> shadowOf;  // shadow ray index of each sample
        std::vector<float> shadowScale;  // its shadowAttenuation factor
    };
    Level* level(int index);
    void traceChunk(Level& lv, unsigned n, const TworldRay* rays, TtraceResult* results);
    void applyFog(unsigned n, const TworldRay* rays, const float* firstHit, TtraceResult* results);
    // Multiplies the transmittance of shadow ray `ray` by the transparency of
    // the surfaces in `hits`, shaded on `lv`; batches fill before they shade.
    void queueTransmitters(Level* lv, int ray, const TworldRay& w, const TshadowHits& hits, Treflectance* transmittance);
    void shadeTransmitters(Level& lv, Treflectance* transmittance);

    const TrenderScene& fScene;
    float fPixelAngle;
    TframeConstants fConstants;  // nested levels hand shaded batches to no raster
    std::vector<std::unique_ptr<Level>> fLevels;
    int fActiveLevel = 0;
    bool fShadingTransmitters = false;  // rays formed now are not traced
    TfogTracer* fFog = nullptr;
    uint64_t fRandomState = 1;
};

// Embree trace helpers shared with the tile loop.
bool intersectWorld(RTCScene scene, const TworldRay& ray, bool cameraRay, RTCRayHit& hit);
// Up to 8 coherent rays (a tile's camera rays) traced as one packet; each of
// the first `count` hits as intersectWorld gives it (ray.tfar and hit).
constexpr int kRayPacket = 8;
void intersectWorldPacket(RTCScene scene, const TworldRay* rays, int count, bool cameraRay, RTCRayHit* hits);
