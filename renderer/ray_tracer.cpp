#include "renderer/ray_tracer.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "renderer/fog_intervals.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"

namespace {
uint64_t nowNs() {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count());
}

RTCRay embreeRay(const TworldRay& ray) {
    RTCRay r;
    r.org_x = ray.origin.x, r.org_y = ray.origin.y, r.org_z = ray.origin.z;
    r.dir_x = ray.direction.x, r.dir_y = ray.direction.y, r.dir_z = ray.direction.z;
    r.tnear = ray.tNear;
    r.tfar = ray.tFar;
    r.time = 0;
    r.mask = 0xFFFFFFFF;
    r.id = 0;
    r.flags = 0;
    return r;
}

float average(const T3Float& c) { return (c.x + c.y + c.z) / 3; }
T3Float times(const T3Float& a, const T3Float& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
// Below this a layer's transmittance is taken as opaque.
constexpr float kOpaqueEnough = 1.0f / 1024;
}  // namespace

bool intersectWorld(RTCScene scene, const TworldRay& ray, bool cameraRay, RTCRayHit& hit) {
    TtraceContext context;
    rtcInitIntersectContext(&context.embree);
    context.cameraRay = cameraRay;
    hit.ray = embreeRay(ray);
    hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context.embree, &hit);
    return hit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
}

void intersectWorldPacket(RTCScene scene, const TworldRay* rays, int count, bool cameraRay, RTCRayHit* hits) {
    TtraceContext context;
    rtcInitIntersectContext(&context.embree);
    context.embree.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    context.cameraRay = cameraRay;
    alignas(32) int valid[kRayPacket];
    RTCRayHit8 packet;
    for (int i = 0; i < kRayPacket; ++i) {
        const TworldRay& r = rays[i < count ? i : count - 1];
        valid[i] = i < count ? -1 : 0;
        packet.ray.org_x[i] = r.origin.x, packet.ray.org_y[i] = r.origin.y, packet.ray.org_z[i] = r.origin.z;
        packet.ray.dir_x[i] = r.direction.x, packet.ray.dir_y[i] = r.direction.y, packet.ray.dir_z[i] = r.direction.z;
        packet.ray.tnear[i] = r.tNear;
        packet.ray.tfar[i] = r.tFar;
        packet.ray.time[i] = 0;
        packet.ray.mask[i] = 0xFFFFFFFF;
        packet.ray.id[i] = unsigned(i);
        packet.ray.flags[i] = 0;
        packet.hit.geomID[i] = RTC_INVALID_GEOMETRY_ID;
        packet.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
    }
    rtcIntersect8(valid, scene, &context.embree, &packet);
    for (int i = 0; i < count; ++i) {
        hits[i].ray.tfar = packet.ray.tfar[i];
        hits[i].hit.geomID = packet.hit.geomID[i];
        hits[i].hit.instID[0] = packet.hit.instID[0][i];
        hits[i].hit.primID = packet.hit.primID[i];
        hits[i].hit.u = packet.hit.u[i];
        hits[i].hit.v = packet.hit.v[i];
    }
}

TrendererRaySampler::TrendererRaySampler(const TrenderScene& scene, float pixelAngle)
    : fScene(scene), fPixelAngle(pixelAngle), fLevels(kMaxLevels) {}

TrendererRaySampler::~TrendererRaySampler() = default;

void TrendererRaySampler::endSampling() {
    for (auto& lv : fLevels) {
        if (lv && lv->thread) lv->thread->endSampling();
        if (lv && lv->shadowThread) lv->shadowThread->endSampling();
    }
}

TrendererRaySampler::Level* TrendererRaySampler::level(int index) {
    if (index <= 0 || unsigned(index) >= kMaxLevels) return nullptr;
    auto& lv = fLevels[index];
    if (!lv) {
        // Made once per render thread and level, then reused.
        lv = std::make_unique<Level>();
        lv->thread = std::make_unique<TrenderLevelThread>(&fConstants, this, unsigned(fScene.groups().size()));
        lv->rays.resize(kChunk);
        lv->points.resize(kChunk);
        lv->samples.resize(kChunk);
        lv->sampleOf.resize(kChunk);
        lv->throughput.resize(kChunk);
        lv->live.resize(kChunk);
        lv->shadowThread = std::make_unique<TrenderLevelThread>(&fConstants, this, unsigned(fScene.groups().size()), kSurfaceShadows);
        lv->shadowSamples.reserve(kShadowBatch);
        lv->shadowOf.reserve(kShadowBatch);
        lv->shadowScale.reserve(kShadowBatch);
    }
    return lv.get();
}

float TrendererRaySampler::random() {
    // splitmix64: small, fast and good enough for jitter.
    uint64_t z = (fRandomState += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return float(z >> 40) * (1.0f / 16777216.0f);
}

void TrendererRaySampler::background(Tspectrum& out) {
    const T3Float& b = fScene.camera().background;
    out.set(b.x, b.y, b.z);
}

void TrendererRaySampler::traceShadowRays(TdependNode*, int n, TgenericRay** rays, Treflectance* transmittance) {
    const TrenderCamera& camera = fScene.camera();
    const float bias = fScene.settings().rayBias;
    // Too deep to shade what lies between: every surface stops the light.
    Level* lv = level(fActiveLevel + 1);
    uint64_t start = nowNs();
    for (int i = 0; i < n; ++i) {
        TgenericRay& ray = *rays[i];
        T3Float origin = camera.cameraToWorld.transformPoint(ray.origin);
        T3Float toLight = camera.cameraToWorld.transformVector(ray.direction * (ray.distance < 1e30f ? ray.distance : 1.0f));
        float distance = ray.distance < 1e30f ? length(toLight) : 1e30f;
        T3Float direction = normalize(ray.distance < 1e30f ? toLight : camera.cameraToWorld.transformVector(ray.direction));
        TworldRay w{origin, direction, bias, std::max(bias, distance - bias), ray.rayDepth};
        TshadowHits hits;
        TtraceContext context;
        rtcInitIntersectContext(&context.embree);
        context.shadowHits = lv ? &hits : nullptr;
        RTCRay r = embreeRay(w);
        rtcOccluded1(fScene.embreeScene(), &context.embree, &r);
        // Embree marks an occluded ray by setting tfar to -inf.
        transmittance[i] = r.tfar < 0 ? Treflectance(kBlackSpectrum) : Treflectance(kWhiteSpectrum);
        if (r.tfar >= 0 && hits.count) {
            counters.intersectNs += nowNs() - start;
            queueTransmitters(lv, i, w, hits, transmittance);
            start = nowNs();
        }
    }
    counters.shadowRays += uint64_t(std::max(n, 0));
    counters.intersectNs += nowNs() - start;
    if (lv && !lv->shadowSamples.empty()) shadeTransmitters(*lv, transmittance);
}

void TrendererRaySampler::queueTransmitters(Level* lv, int ray, const TworldRay& w, const TshadowHits& hits,
                                            Treflectance* transmittance) {
    const TrenderCamera& camera = fScene.camera();
    const auto& objects = fScene.objects();
    for (unsigned k = 0; k < hits.count; ++k) {
        const TshadowHit& h = hits.hit[k];
        const TrenderObject& object = *objects[h.object];
        TsurfacePoint p;
        evaluateSurface(object, camera, h.primitive, h.u, h.v, w.origin, w.direction, h.t, p);
        applyFootprint(p, fPixelAngle * std::max(p.distance, 1e-6f));
        p.rayDepth = w.depth;
        p.illuminationIndex = -1;
        p.pixelCenter = {0, 0};
        Tsample* s = lv->shadowThread->allocate(object);
        if (!s) {
            // No program: the surface draws opaque, and stops the light.
            transmittance[ray] = Treflectance(kBlackSpectrum);
            continue;
        }
        fillSample(*s, p);
        lv->shadowSamples.push_back(s);
        lv->shadowOf.push_back(unsigned(ray));
        const float facing = std::fabs(dot(p.normal, p.rayDirection));
        lv->shadowScale.push_back(1 - object.shadowAttenuation * (1 - facing));
        if (lv->shadowSamples.size() == kShadowBatch) shadeTransmitters(*lv, transmittance);
    }
}

void TrendererRaySampler::shadeTransmitters(Level& lv, Treflectance* transmittance) {
    const unsigned count = unsigned(lv.shadowSamples.size());
    const int previous = fActiveLevel;
    const bool wasShading = fShadingTransmitters;
    fActiveLevel = previous + 1;
    fShadingTransmitters = true;
    TsampleManager& manager = *lv.shadowThread->sampleManager();
    manager.dispatchSamples(count, lv.shadowSamples.data());
    manager.flushDispatchedSamples();
    fShadingTransmitters = wasShading;
    fActiveLevel = previous;
    counters.shadedSamples += count;
    // A shadow is never brighter than no shadow, nor is bad data light.
    auto pass = [](float t) { return t > 0 ? std::min(t, 1.0f) : 0.0f; };
    for (unsigned k = 0; k < count; ++k) {
        const T3Float* t = lv.shadowSamples[k]->outTransparency();
        const float scale = lv.shadowScale[k];
        Treflectance& out = transmittance[lv.shadowOf[k]];
        if (t) out.set(out.r() * scale * pass(t->x), out.g() * scale * pass(t->y), out.b() * scale * pass(t->z));
        else out = Treflectance(kBlackSpectrum);
    }
    manager.releaseSamples(count, lv.shadowSamples.data());
    lv.shadowSamples.clear();
    lv.shadowOf.clear();
    lv.shadowScale.clear();
}

void TrendererRaySampler::traceRays(TdependNode*, int n, TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) {
    if (fShadingTransmitters) {
        // A shadow ray goes straight through: what a refraction would show
        // is the light itself, so the ray passes all and sees nothing.
        for (int i = 0; i < n; ++i) {
            radiance[i] = kBlackSpectrum;
            transmittance[i] = kWhiteSpectrum;
            rays[i]->distance = FLT_MAX;
        }
        return;
    }
    const TrenderCamera& camera = fScene.camera();
    TworldRay world[kChunk];
    TtraceResult results[kChunk];
    unsigned index[kChunk];
    for (int first = 0; first < n; first += int(kChunk)) {
        unsigned count = 0;
        int last = std::min(n, first + int(kChunk));
        for (int i = first; i < last; ++i) {
            TgenericRay& ray = *rays[i];
            if (ray.rayDepth > maxRayDepth()) {
                radiance[i] = kBlackSpectrum;
                transmittance[i] = kWhiteSpectrum;
                ray.distance = FLT_MAX;
                continue;
            }
            TworldRay& w = world[count];
            w.origin = camera.cameraToWorld.transformPoint(ray.origin);
            w.direction = normalize(camera.cameraToWorld.transformVector(ray.direction));
            w.tNear = fScene.settings().rayBias;
            w.tFar = 1e30f;
            w.depth = ray.rayDepth;
            w.refractiveIndex = ray.mediumRefractiveIndex;
            index[count++] = unsigned(i);
        }
        traceWorld(count, world, results);
        for (unsigned k = 0; k < count; ++k) {
            TgenericRay& ray = *rays[index[k]];
            const TtraceResult& r = results[k];
            radiance[index[k]].set(r.radiance.x, r.radiance.y, r.radiance.z);
            transmittance[index[k]].set(r.transmittance.x, r.transmittance.y, r.transmittance.z);
            ray.distance = r.hit ? r.distance : FLT_MAX;
            ray.primitiveId = r.primitive;
            ray.objectId = r.object;
        }
    }
}

void TrendererRaySampler::traceWorld(unsigned n, const TworldRay* rays, TtraceResult* results) {
    Level* lv = level(fActiveLevel + 1);
    for (unsigned first = 0; first < n; first += kChunk) {
        unsigned count = std::min(kChunk, n - first);
        if (!lv) {
            // Nested too deep: nothing more is seen.
            for (unsigned i = 0; i < count; ++i) results[first + i] = TtraceResult{{0, 0, 0}, {1, 1, 1}};
            continue;
        }
        traceChunk(*lv, count, rays + first, results + first);
    }
}

void TrendererRaySampler::traceChunk(Level& lv, unsigned n, const TworldRay* rays, TtraceResult* results) {
    const TrenderCamera& camera = fScene.camera();
    const float bias = fScene.settings().rayBias;
    const auto& objects = fScene.objects();
    const int levelIndex = fActiveLevel + 1;

    unsigned liveCount = n;
    float firstHit[kChunk];
    for (unsigned i = 0; i < n; ++i) {
        firstHit[i] = -1;
        lv.rays[i] = rays[i];
        lv.throughput[i] = {1, 1, 1};
        lv.live[i] = i;
        results[i] = TtraceResult{{0, 0, 0}, {1, 1, 1}};
    }
    for (unsigned layer = 0; layer < kMaxTransparentLayers && liveCount; ++layer) {
        // Intersect.
        uint64_t start = nowNs();
        unsigned sampleCount = 0;
        unsigned stillLive = 0;
        for (unsigned k = 0; k < liveCount; ++k) {
            unsigned i = lv.live[k];
            TworldRay& ray = lv.rays[i];
            RTCRayHit hit;
            if (!intersectWorld(fScene.embreeScene(), ray, false, hit)) {
                results[i].radiance = results[i].radiance + times(lv.throughput[i], camera.background);
                results[i].transmittance = lv.throughput[i];
                continue;
            }
            const TrenderObject& object = *objects[hit.hit.instID[0]];
            TsurfacePoint& p = lv.points[i];
            evaluateSurface(object, camera, hit.hit.primID, hit.hit.u, hit.hit.v, ray.origin, ray.direction, hit.ray.tfar, p);
            if (layer == 0) {
                firstHit[i] = hit.ray.tfar;
                results[i].hit = true;
                results[i].distance = p.distance;
                results[i].primitive = p.primitive;
                results[i].object = int32_t(object.index);
            }
            // Without neighbouring rays, the footprint grows with the distance.
            applyFootprint(p, fPixelAngle * std::max(p.distance, 1e-6f));
            p.rayDepth = ray.depth;
            p.refractiveIndex = ray.refractiveIndex;
            p.illuminationIndex = -1;
            p.pixelCenter = {0, 0};
            // Continue from the hit, for the next layer if the surface lets light through.
            ray.tNear = hit.ray.tfar + bias;
            Tsample* s = lv.thread->allocate(object);
            if (!s) {
                results[i].radiance = results[i].radiance + times(lv.throughput[i], defaultSurfaceColour(p.normal, p.rayDirection));
                lv.throughput[i] = {0, 0, 0};
                results[i].transmittance = {0, 0, 0};
                continue;
            }
            fillSample(*s, p);
            lv.samples[sampleCount] = s;
            lv.sampleOf[sampleCount++] = i;
            lv.live[stillLive++] = i;
        }
        counters.intersectNs += nowNs() - start;
        counters.secondaryRays += liveCount;
        liveCount = stillLive;
        if (!sampleCount) break;

        // Shade on this level; materials that trace go one level deeper.
        int previous = fActiveLevel;
        fActiveLevel = levelIndex;
        TsampleManager& manager = *lv.thread->sampleManager();
        manager.dispatchSamples(sampleCount, lv.samples.data());
        manager.flushDispatchedSamples();
        fActiveLevel = previous;
        counters.shadedSamples += sampleCount;

        stillLive = 0;
        for (unsigned k = 0; k < sampleCount; ++k) {
            unsigned i = lv.sampleOf[k];
            const Tsample& s = *lv.samples[k];
            T3Float color = *s.outColor(), transparency = *s.outTransparency();
            results[i].radiance = results[i].radiance + times(lv.throughput[i], color);
            lv.throughput[i] = times(lv.throughput[i], transparency);
            results[i].transmittance = lv.throughput[i];
            if (average(lv.throughput[i]) > kOpaqueEnough) lv.live[stillLive++] = i;
        }
        manager.releaseSamples(sampleCount, lv.samples.data());
        liveCount = stillLive;
    }
    if (fFog) applyFog(n, rays, firstHit, results);
}

void TrendererRaySampler::applyFog(unsigned n, const TworldRay* rays, const float* firstHit, TtraceResult* results) {
    // Fog from the ray's start to its first hit, or to the far clip.
    const float farClip = fScene.camera().farClip;
    TfogRay fog[kChunk];
    for (unsigned i = 0; i < n; ++i) {
        fog[i].origin = rays[i].origin;
        fog[i].direction = rays[i].direction;
        fog[i].tNear = rays[i].tNear;
        fog[i].tFar = firstHit[i] >= 0 ? firstHit[i] : std::min(rays[i].tFar, farClip);
        fog[i].depth = rays[i].depth;
        fog[i].color = results[i].radiance;
        fog[i].transmittance = results[i].transmittance;
    }
    fFog->apply(n, fog);
    for (unsigned i = 0; i < n; ++i) {
        results[i].radiance = fog[i].color;
        results[i].transmittance = fog[i].transmittance;
    }
}
