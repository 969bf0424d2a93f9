#include "renderer/renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <filesystem>
#include <mutex>

#include "framework/host/depend_graph.h"
#include "lights/light_link.h"
#include "lights/light_visibility.h"
#include "lights/render_light.h"
#include "renderer/depth_maps.h"
#include "renderer/fog_intervals.h"
#include "renderer/level_thread.h"
#include "renderer/pixel_filter.h"
#include "renderer/post_effects.h"
#include "renderer/ray_tracer.h"
#include "renderer/render_passes.h"
#include "renderer/render_scene.h"
#include "renderer/thread_team.h"
#include "renderer/tile_raster.h"
#include "scene/scene_loader.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/render_pass_control.h"
#include "shading/shading_engine.h"
#include "shading/shading_frames.h"
#include "textures/file_texture.h"
#include "textures/pyramid/file_texture_cache.h"

namespace {
uint64_t nowNs() {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count());
}

uint64_t hashOf(uint64_t a, uint64_t b, uint64_t c) {
    uint64_t h = 0x243F6A8885A308D3ull;
    for (uint64_t v : {a, b, c}) {
        h ^= v + 0x9E3779B97F4A7C15ull + (h << 6) + (h >> 2);
        h *= 0xBF58476D1CE4E5B9ull;
        h ^= h >> 31;
    }
    return h;
}
float unitFloat(uint64_t h) { return float(h >> 40) * (1.0f / 16777216.0f); }

// A scene with a link node decides through its links which lights reach
// which objects. One without any (a file that only places lights) is lit,
// and shadowed, by every light that takes part in the render.
bool linksLights(TdependGraph& graph) {
    for (TdependNode* node : graph.nodes())
        if (node->typeof()->istype(TdnLightLink::sMetaclass())) return true;
    return false;
}

std::vector<TdependNode*> lightsOf(TdependGraph& graph) {
    std::vector<TdependNode*> lights;
    for (TdependNode* node : graph.nodes())
        if (node->typeof()->istype(TrenderLightShape::sMetaclass()) && TdagPathUtils::lightTakesPart(node)) lights.push_back(node);
    return lights;
}

struct Trect {
    int x0, y0, x1, y1;
};

// What solid and environment textures know of the camera: the matrix that
// takes camera space to the world, so that the pattern stays put when the
// camera moves, and the angle a pixel spans, from which they count the
// detail a pixel can show (for a perspective camera; an orthographic one
// keeps the stored angle). The renderer owns both for the frame, as the
// viewport's bake does; a connected input is the user's, and the values the
// nodes held come back when the frame ends.
class TcameraInputsScope {
public:
    TcameraInputsScope(TdependGraph& graph, const TrenderCamera& camera, int width) {
        const TfltMatrix eyeToWorld = convertMatrix<float>(camera.cameraToWorld);
        const float pixelAngle = 2 * camera.tanHalfWidth / float(std::max(width, 1));
        for (TdependNode* node : graph.nodes()) {
            take(node, "matrixEyeToWorld", &eyeToWorld, sizeof eyeToWorld);
            if (!camera.orthographic) take(node, "xPixelAngle", &pixelAngle, sizeof pixelAngle);
        }
    }
    ~TcameraInputsScope() {
        for (Tsaved& s : fSaved) s.node->setAttributeValue(s.attribute, s.value.data());
    }
    TcameraInputsScope(const TcameraInputsScope&) = delete;
    TcameraInputsScope& operator=(const TcameraInputsScope&) = delete;

private:
    struct Tsaved {
        TdependNode* node;
        const Tattribute* attribute;
        std::vector<char> value;
    };
    void take(TdependNode* node, const char* name, const void* value, size_t size) {
        const Tattribute* a = node->attribute(Tstring(name));
        if (!a || a->size() != size || node->sourceOf(Tplug(node, a))) return;
        Tsaved saved{node, a, std::vector<char>(size)};
        if (!node->getAttributeValue(a, saved.value.data()) || !node->setAttributeValue(a, value)) return;
        fSaved.push_back(std::move(saved));
    }
    std::vector<Tsaved> fSaved;
};

// What a file texture's footprint filter needs of the render: how pixels
// map to the camera, and where relative texture names start.
void tellFileTextures(const TrenderCamera& camera, int width, int height, const std::string& sceneFile) {
    TcameraInfoWrapper info;
    info.perspective = !camera.orthographic;
    const float halfWidth = camera.orthographic ? camera.orthographicWidth / 2 : camera.tanHalfWidth;
    info.scale = 2 * halfWidth / float(width);
    info.centreX = float(width) / 2;
    info.centreY = float(height) / 2;
    info.nearPlane = camera.nearClip;
    TdnFileTexture::setCamera(info);
    TdnFileTexture::setSceneDirectory(sceneFile.empty() ? std::string() : std::filesystem::path(sceneFile).parent_path().string());
}

// A tile covers one cell of a grid anchored at the image's corner, so that
// a region render traces, batches and seeds exactly as the full render does;
// it writes only the pixels of [wx0, wx1) x [wy0, wy1).
struct Ttile {
    int x0, y0, x1, y1;
    int wx0, wy0, wx1, wy1;
};

// Camera rays through raster positions; rows run from the top.
class TcameraRays {
public:
    TcameraRays(const TrenderCamera& camera, int width, int height) : fCamera(camera), fWidth(width), fHeight(height) {
        fHalfWidth = camera.orthographic ? camera.orthographicWidth / 2 : camera.tanHalfWidth;
        fHalfHeight = fHalfWidth * float(height) / float(width);
    }
    // Camera-space ray through (x, y).
    void cameraSpace(float x, float y, T3Float& origin, T3Float& direction) const {
        float nx = (2 * x / float(fWidth) - 1) * fHalfWidth;
        float ny = (1 - 2 * y / float(fHeight)) * fHalfHeight;
        if (fCamera.orthographic) {
            origin = {nx, ny, 0};
            direction = {0, 0, -1};
        } else {
            origin = {0, 0, 0};
            direction = normalize(T3Float(nx, ny, -1));
        }
    }
    TworldRay world(float x, float y) const {
        T3Float o, d;
        cameraSpace(x, y, o, d);
        TworldRay r;
        r.origin = fCamera.cameraToWorld.transformPoint(o);
        T3Float wd = fCamera.cameraToWorld.transformVector(d);
        float scale = length(wd);
        r.direction = wd * (1 / scale);
        // Clip planes are camera-space distances along the ray.
        r.tNear = fCamera.nearClip * scale;
        r.tFar = fCamera.farClip * scale;
        return r;
    }
    // The angle one pixel spans, for footprints of rays with no neighbours.
    float pixelAngle() const { return fCamera.orthographic ? 0.0f : 2 * fHalfWidth / float(fWidth); }

private:
    const TrenderCamera& fCamera;
    int fWidth, fHeight;
    float fHalfWidth, fHalfHeight;
};

struct Tworker {
    Tworker(const TrenderScene& scene, float pixelAngle, unsigned slotCapacity)
        : tracer(scene, pixelAngle), thread(&constants, &tracer, unsigned(scene.groups().size())) {
        constants.setDeepRaster(&raster);
        raster.reserve(unsigned(scene.objects().size()), slotCapacity);
        samples.resize(slotCapacity);
        dispatched.resize(scene.objects().size());
    }
    void endSampling() {
        thread.endSampling();
        tracer.endSampling();
        if (fog) fog->endSampling();
    }

    TframeConstants constants;
    TtileRaster raster;
    TrendererRaySampler tracer;
    TrenderLevelThread thread;
    TshadingFrames frames;  // the programs' frames, kept from batch to batch
    std::unique_ptr<TfogTracer> fog;  // null when the scene has no fog
    std::vector<Tsample*> samples;
    std::vector<unsigned> dispatched;  // per object, samples handed to the engine in this tile
    uint64_t cameraRays = 0, cameraIntersectNs = 0, shadeNs = 0, tileNs = 0, shaded = 0;
};

// Below this a slot's transparency is taken as opaque.
constexpr float kSeeThrough = 1.0f / 1024;
// Two samples see the same spot when they lie closer than this fraction of
// the pixel's footprint.
constexpr float kSameSpot = 1.0f / 1024;

float average(const T3Float& c) { return (c.x + c.y + c.z) / 3; }
T3Float times(const T3Float& a, const T3Float& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }

class TtileRenderer {
public:
    TtileRenderer(const TrenderScene& scene, int spp, const TpixelFilterKernel& filter, TframeBuffer& image, T3Float* pixelGlow)
        : fScene(scene),
          fSpp(spp),
          fFilter(filter),
          fImage(image),
          fRays(scene.camera(), image.width(), image.height()),
          fPixelGlow(pixelGlow) {
        const T3Float& b = scene.camera().background;
        fOpaqueBackdrop = b.x != 0 || b.y != 0 || b.z != 0;
    }

    // Data layers filled from the camera hits; null when not asked for.
    float* depth = nullptr;
    float* normal = nullptr;
    float* position = nullptr;
    float* objectId = nullptr;

    float pixelAngle() const { return fRays.pixelAngle(); }

    void render(Tworker& w, const Ttile& tile) {
        uint64_t tileStart = nowNs();
        const int m = fFilter.margin();
        const int W = fImage.width(), H = fImage.height();
        const int ex0 = std::max(0, tile.x0 - m), ex1 = std::min(W, tile.x1 + m);
        const int ey0 = std::max(0, tile.y0 - m), ey1 = std::min(H, tile.y1 + m);
        const int ew = ex1 - ex0;
        const unsigned count = unsigned(ew * (ey1 - ey0) * fSpp);
        const auto& objects = fScene.objects();
        const TrenderCamera& camera = fScene.camera();
        TtileRaster& raster = w.raster;
        raster.begin(count);
        // Randomness follows the tile, not the thread that renders it.
        w.tracer.seed(hashOf(uint64_t(tile.x0), uint64_t(tile.y0), 0x5EED));
        w.tracer.setActiveLevel(0);

        // Camera rays, in packets of neighbouring rays of the tile.
        uint64_t start = nowNs();
        TworldRay packet[kRayPacket];
        RTCRayHit hits[kRayPacket];
        for (unsigned first = 0; first < count; first += kRayPacket) {
            const int n = int(std::min<unsigned>(kRayPacket, count - first));
            for (int j = 0; j < n; ++j) {
                const unsigned index = first + unsigned(j), pixel = index / unsigned(fSpp);
                TtileSlot& slot = raster.slot(index);
                samplePosition(ex0 + int(pixel) % ew, ey0 + int(pixel) / ew, int(index % unsigned(fSpp)), slot.x, slot.y);
                packet[j] = fRays.world(slot.x, slot.y);
                slot.origin = packet[j].origin;
                slot.direction = packet[j].direction;
            }
            intersectWorldPacket(fScene.embreeScene(), packet, n, true, hits);
            for (int j = 0; j < n; ++j) {
                TtileSlot& slot = raster.slot(first + unsigned(j));
                const RTCRayHit& hit = hits[j];
                if (hit.hit.geomID != RTC_INVALID_GEOMETRY_ID) {
                    slot.object = int32_t(hit.hit.instID[0]);
                    slot.primitive = int32_t(hit.hit.primID);
                    slot.tHit = hit.ray.tfar;
                    slot.bu = hit.hit.u;
                    slot.bv = hit.hit.v;
                } else {
                    slot.object = -1;
                }
            }
        }
        w.cameraRays += count;
        w.cameraIntersectNs += nowNs() - start;

        // Samples for the hits. Every batch of the previous tile was flushed,
        // so each object's samples fill batches from the start, in slot order.
        unsigned n = 0;
        TsurfacePoint p;
        std::fill(w.dispatched.begin(), w.dispatched.end(), 0u);
        for (unsigned i = 0; i < count; ++i) {
            TtileSlot& slot = raster.slot(i);
            slot.transparency = {0, 0, 0};
            slot.glow = {0, 0, 0};
            slot.sequence = -1;
            if (slot.object < 0) {
                slot.color = camera.background;
                slot.alpha = 0;
                continue;
            }
            const TrenderObject& object = *objects[slot.object];
            evaluateSurface(object, camera, unsigned(slot.primitive), slot.bu, slot.bv, slot.origin, slot.direction, slot.tHit, p);
            T3Float ox, dx, oy, dy;
            fRays.cameraSpace(slot.x + 1, slot.y, ox, dx);
            fRays.cameraSpace(slot.x, slot.y + 1, oy, dy);
            applyRayDifferentials(p, ox, dx, oy, dy);
            unsigned pixelSlot = i / unsigned(fSpp) * unsigned(fSpp);
            int px = ex0 + int(i / unsigned(fSpp)) % ew, py = ey0 + int(i / unsigned(fSpp)) / ew;
            p.pixelCenter = {float(px) + 0.5f, float(H - py) - 0.5f};
            p.rayDepth = 0;
            p.refractiveIndex = 1;
            slot.pointCamera = p.pointCamera;
            slot.pointWorld = p.pointWorld;
            slot.normalWorld = normalize(camera.cameraToWorld.transformVector(p.normal));
            slot.alpha = 1;
            Tsample* s = w.thread.allocate(object);
            if (!s) {
                slot.color = defaultSurfaceColour(p.normal, p.rayDirection);
                continue;
            }
            slot.sequence = int32_t(w.dispatched[slot.object]++);
            p.illuminationIndex = illuminationIndex(raster, pixelSlot, i, p);
            fillSample(*s, p);
            w.samples[n++] = s;
            raster.expect(object.index, i);
        }

        // Shading: batches of 64 per group reach the raster as they fill.
        uint64_t nestedBefore = w.tracer.counters.intersectNs;
        start = nowNs();
        if (n) {
            TsampleManager& manager = *w.thread.sampleManager();
            manager.dispatchSamples(n, w.samples.data());
            manager.flushDispatchedSamples();
            manager.releaseSamples(n, w.samples.data());
        }
        w.shaded += n;

        // What shows through transparent hits.
        TworldRay rays[TrendererRaySampler::kChunk];
        TtraceResult results[TrendererRaySampler::kChunk];
        unsigned owners[TrendererRaySampler::kChunk];
        unsigned pending = 0;
        auto flushBehind = [&] {
            w.tracer.traceWorld(pending, rays, results);
            for (unsigned k = 0; k < pending; ++k) {
                TtileSlot& slot = raster.slot(owners[k]);
                slot.color = slot.color + times(slot.transparency, results[k].radiance);
                slot.alpha = 1 - average(times(slot.transparency, results[k].transmittance));
            }
            pending = 0;
        };
        for (unsigned i = 0; i < count; ++i) {
            TtileSlot& slot = raster.slot(i);
            if (slot.object < 0 || average(slot.transparency) <= kSeeThrough) continue;
            TworldRay& r = rays[pending];
            r.origin = slot.origin;
            r.direction = slot.direction;
            r.tNear = slot.tHit + fScene.settings().rayBias;
            r.tFar = 1e30f;
            r.depth = 0;
            owners[pending++] = i;
            if (pending == TrendererRaySampler::kChunk) flushBehind();
        }
        if (pending) flushBehind();
        if (w.fog) applyFog(w, count);
        w.shadeNs += (nowNs() - start) - (w.tracer.counters.intersectNs - nestedBefore);

        // Reconstruction: every pixel of the tile gathers the samples within
        // the filter's reach, in a fixed order, so that a pixel's value does
        // not depend on which thread rendered it.
        for (int y = tile.wy0; y < tile.wy1; ++y)
            for (int x = tile.wx0; x < tile.wx1; ++x) {
                float sum[4] = {0, 0, 0, 0}, weights = 0;
                for (int sy = std::max(ey0, y - m); sy <= std::min(ey1 - 1, y + m); ++sy)
                    for (int sx = std::max(ex0, x - m); sx <= std::min(ex1 - 1, x + m); ++sx)
                        for (int k = 0; k < fSpp; ++k) {
                            const TtileSlot& slot = raster.slot(unsigned(((sy - ey0) * ew + (sx - ex0)) * fSpp + k));
                            float wgt = fFilter.weight(slot.x - (float(x) + 0.5f), slot.y - (float(y) + 0.5f));
                            if (wgt <= 0) continue;
                            sum[0] += wgt * slot.color.x;
                            sum[1] += wgt * slot.color.y;
                            sum[2] += wgt * slot.color.z;
                            sum[3] += wgt * slot.alpha;
                            weights += wgt;
                        }
                float* out = fImage.pixel(x, y);
                for (int c = 0; c < 4; ++c) out[c] = weights > 0 ? sum[c] / weights : 0.0f;
                // The glow of the pixel's own samples, for the glow pass.
                if (fPixelGlow) {
                    T3Float glow;
                    for (int k = 0; k < fSpp; ++k) glow = glow + raster.slot(unsigned(((y - ey0) * ew + (x - ex0)) * fSpp + k)).glow;
                    fPixelGlow[size_t(y) * size_t(W) + size_t(x)] = glow * (1.0f / float(fSpp));
                }
                // A coloured backdrop is part of the picture, in every format.
                if (fOpaqueBackdrop) out[3] = 1;
                writeDataLayers(raster, x, y, ex0, ey0, ew);
            }
        w.tileNs += nowNs() - tileStart;
    }

private:
    // Fog from the eye to each slot's first hit, or to the far clip, in
    // front of what the slot shows.
    void applyFog(Tworker& w, unsigned count) {
        TfogRay rays[TfogTracer::kChunk];
        for (unsigned first = 0; first < count; first += TfogTracer::kChunk) {
            const unsigned n = std::min(TfogTracer::kChunk, count - first);
            for (unsigned k = 0; k < n; ++k) {
                const TtileSlot& slot = w.raster.slot(first + k);
                const TworldRay camera = fRays.world(slot.x, slot.y);
                TfogRay& r = rays[k];
                r.origin = slot.origin;
                r.direction = slot.direction;
                r.tNear = 0;
                r.tFar = slot.object >= 0 ? slot.tHit : camera.tFar;
                r.depth = 0;
                r.color = slot.color;
                r.transmittance = T3Float(1, 1, 1) * (1 - slot.alpha);
            }
            w.fog->apply(n, rays);
            for (unsigned k = 0; k < n; ++k) {
                TtileSlot& slot = w.raster.slot(first + k);
                slot.color = rays[k].color;
                slot.alpha = 1 - average(rays[k].transmittance);
            }
        }
    }

    // Data is not filtered: a pixel takes the hit of its own sample nearest
    // its centre, so that ids stay whole and depths do not blend across
    // edges. Where that sample hit nothing the layers hold 0.
    void writeDataLayers(const TtileRaster& raster, int x, int y, int ex0, int ey0, int ew) const {
        if (!depth && !normal && !position && !objectId) return;
        const TtileSlot* best = nullptr;
        float bestDistance = 0;
        for (int k = 0; k < fSpp; ++k) {
            const TtileSlot& slot = raster.slot(unsigned(((y - ey0) * ew + (x - ex0)) * fSpp + k));
            float dx = slot.x - (float(x) + 0.5f), dy = slot.y - (float(y) + 0.5f);
            if (!best || dx * dx + dy * dy < bestDistance) best = &slot, bestDistance = dx * dx + dy * dy;
        }
        const size_t at = size_t(y) * size_t(fImage.width()) + size_t(x);
        const bool hit = best->object >= 0;
        if (depth) depth[at] = hit ? -best->pointCamera.z : 0.0f;
        if (objectId) objectId[at] = hit ? float(best->object + 1) : 0.0f;
        for (int c = 0; c < 3; ++c) {
            if (normal) normal[at * 3 + size_t(c)] = hit ? best->normalWorld[c] : 0.0f;
            if (position) position[at * 3 + size_t(c)] = hit ? best->pointWorld[c] : 0.0f;
        }
    }

    // Stratified positions in the pixel; one sample sits at the centre.
    void samplePosition(int px, int py, int k, float& x, float& y) const {
        if (fSpp == 1) {
            x = float(px) + 0.5f;
            y = float(py) + 0.5f;
            return;
        }
        int nx = int(std::ceil(std::sqrt(float(fSpp))));
        int ny = (fSpp + nx - 1) / nx;
        uint64_t h = hashOf(uint64_t(px), uint64_t(py), uint64_t(k));
        float jx = unitFloat(h), jy = unitFloat(h * 0x9E3779B97F4A7C15ull + 1);
        x = float(px) + (float(k % nx) + jx) / float(nx);
        y = float(py) + (float(k / nx) + jy) / float(ny);
    }

    // Samples of one pixel that see the same spot of one surface share their
    // lighting. The engine reads the index as a position within the batch
    // being shaded, and batches are cut per object every kBatchSize samples,
    // so a sample can only point at one dispatched before it into the same
    // batch; otherwise it names its own position. Samples at different spots
    // keep their own lighting even inside one pixel, or shadow edges would
    // be resolved once per pixel instead of once per sample.
    int16_t illuminationIndex(const TtileRaster& raster, unsigned pixelSlot, unsigned i, const TsurfacePoint& p) const {
        const TtileSlot& me = raster.slot(i);
        const int32_t batch = me.sequence / int32_t(kBatchSize);
        float reach = kSameSpot * std::max({p.filterSize.x, p.filterSize.y, p.filterSize.z});
        for (unsigned j = pixelSlot; j < i; ++j) {
            const TtileSlot& other = raster.slot(j);
            if (other.sequence < 0 || other.object != me.object || other.primitive != me.primitive) continue;
            if (other.sequence / int32_t(kBatchSize) != batch) continue;
            if (length(other.pointCamera - p.pointCamera) <= reach) return int16_t(other.sequence % int32_t(kBatchSize));
        }
        return int16_t(me.sequence % int32_t(kBatchSize));
    }

    const TrenderScene& fScene;
    int fSpp;
    const TpixelFilterKernel& fFilter;
    TframeBuffer& fImage;
    TcameraRays fRays;
    T3Float* fPixelGlow;  // null: nothing glows
    bool fOpaqueBackdrop = false;
};

// Row-vector matrices for the image's header.
std::vector<float> flatten(const Tmatrix& m) {
    std::vector<float> out(16);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out[size_t(i * 4 + j)] = float(m.m[i][j]);
    return out;
}

// Camera space to normalised device coordinates: x right and y down over
// the image, 0 to 1; perspective divides by the distance in front.
Tmatrix cameraToNDC(const TrenderCamera& camera, int width, int height) {
    Tmatrix p;
    for (int i = 0; i < 4; ++i) p.m[i][i] = 0;
    const float halfWidth = camera.orthographic ? camera.orthographicWidth / 2 : camera.tanHalfWidth;
    const float halfHeight = halfWidth * float(height) / float(width);
    if (camera.orthographic) {
        p.m[0][0] = 0.5f / halfWidth, p.m[3][0] = 0.5f;
        p.m[1][1] = -0.5f / halfHeight, p.m[3][1] = 0.5f;
        p.m[2][2] = 1, p.m[3][3] = 1;
    } else {
        p.m[0][0] = 0.5f / halfWidth, p.m[2][0] = -0.5f;
        p.m[1][1] = -0.5f / halfHeight, p.m[2][1] = -0.5f;
        p.m[2][2] = -1, p.m[2][3] = -1;
    }
    return p;
}
}  // namespace

bool Trenderer::render(TdependGraph& graph, const std::string& sceneFile, const TrenderOptions& options, TframeBuffer& image,
                       std::string& error) {
    fStatistics = TrenderStatistics();
    fWarnings.clear();
    uint64_t wallStart = nowNs();
    std::vector<const TrenderPassInfo*> enginePasses;
    for (const std::string& name : options.passes) {
        const TrenderPassInfo* pass = findRenderPass(name);
        if (!pass) {
            error = "there is no render pass '" + name + "'";
            return false;
        }
        if (pass->enginePass >= 0) enginePasses.push_back(pass);
    }
    const unsigned passCount = unsigned(1 + enginePasses.size());
    if (!renderPass(graph, sceneFile, options, image, 0, passCount, error)) return false;
    const unsigned tiles = fTilesPerPass;
    // Each engine pass is a render of its own with the control set; the
    // control is put back whatever happens.
    for (size_t i = 0; i < enginePasses.size(); ++i) {
        const TrenderPassInfo& pass = *enginePasses[i];
        TrenderOptions own = options;
        own.passes.clear();
        own.postEffects = false;  // a pass is a component; glow belongs to the picture
        TframeBuffer passImage;
        currentRenderPassControl = pass.enginePass;
        const TrenderStatistics beauty = fStatistics;
        const std::vector<std::string> warnings = fWarnings;
        bool ok = renderPass(graph, sceneFile, own, passImage, unsigned(i + 1) * tiles, passCount, error);
        currentRenderPassControl = kPassFull;
        fStatistics = beauty;
        fWarnings = warnings;
        if (!ok) return false;
        TimageLayer& layer = image.addLayer(pass.name, pass.channels, true);
        layer.pixels = passImage.data();
    }
    fStatistics.wallSeconds = double(nowNs() - wallStart) * 1e-9;
    return true;
}

bool Trenderer::renderPass(TdependGraph& graph, const std::string& sceneFile, const TrenderOptions& options, TframeBuffer& image,
                           unsigned tilesBefore, unsigned passCount, std::string& error) {
    uint64_t wallStart = nowNs();

    TrenderScene scene;
    if (!scene.build(graph, sceneFile, options.camera, error)) return false;
    TfogScene fog;
    fog.build(graph, scene, fWarnings);
    TrenderSettings& settings = scene.settings();
    if (options.width > 0) settings.width = options.width;
    if (options.height > 0) settings.height = options.height;
    if (options.samplesPerPixel > 0) settings.samplesPerPixel = options.samplesPerPixel;
    if (options.maxRayDepth >= 0) settings.maxRayDepth = options.maxRayDepth;
    // The command line offers 1 to 64.
    settings.samplesPerPixel = std::clamp(settings.samplesPerPixel, 1, 64);

    Trect region{0, 0, settings.width, settings.height};
    if (options.useRegion) {
        region = {std::max(0, options.regionX0), std::max(0, options.regionY0), std::min(settings.width, options.regionX1),
                  std::min(settings.height, options.regionY1)};
        if (region.x0 >= region.x1 || region.y0 >= region.y1) {
            error = "the region " + std::to_string(options.regionX0) + " " + std::to_string(options.regionY0) + " " +
                    std::to_string(options.regionX1) + " " + std::to_string(options.regionY1) + " holds no pixel of the " +
                    std::to_string(settings.width) + "x" + std::to_string(settings.height) + " image";
            return false;
        }
    }
    image.resize(settings.width, settings.height);
    tellFileTextures(scene.camera(), settings.width, settings.height, sceneFile);
    image.worldToCamera = flatten(scene.camera().worldToCamera);
    image.worldToNDC = flatten(scene.camera().worldToCamera * cameraToNDC(scene.camera(), settings.width, settings.height));

    // Lights work in this camera's space; each group learns which lights
    // reach each of its objects before it is initialised and analysed, once,
    // here, before any tile.
    TrenderLightShape::setWorldToCamera(scene.camera().worldToCamera);
    const TcameraInputsScope cameraInputs(graph, scene.camera(), settings.width);
    const bool linked = linksLights(graph);
    const std::vector<TdependNode*> everyLight = linked ? std::vector<TdependNode*>() : lightsOf(graph);
    for (TDNshadingEngine* group : scene.groups()) {
        std::vector<TdagPath> objects = scene.groupObjects(group);
        if (linked) {
            group->collectLights(objects);
            continue;
        }
        std::vector<TbitFieldFixedN> rows(objects.size(), TbitFieldFixedN(unsigned(everyLight.size())));
        for (TbitFieldFixedN& row : rows) row.setAll();
        group->setLightTables(everyLight, rows, everyLight, rows);
    }
    if (!fog.empty()) fog.setUpLights(linked, linked ? lightsOf(graph) : everyLight);
    TframeConstants setupConstants;
    TrenderThreadBase setup(&setupConstants);
    for (TDNshadingEngine* group : scene.groups()) setup.initShadingGroup(group);
    for (TDNshadingEngine* group : fog.groups()) setup.initShadingGroup(group);
    std::vector<std::pair<TDNshadingEngine*, TrenderObject*>> started;
    for (const auto& object : scene.objects()) {
        if (!object->group) continue;
        bool seen = std::any_of(started.begin(), started.end(), [&](auto& s) { return s.first == object->group; });
        if (seen) continue;
        started.emplace_back(object->group, object.get());
        setup.startSampling(object->group, kSurfaceColorTransparency, object.get(), object.get());
        if (!object->group->option(kSurfaceColorTransparency).opus)
            fWarnings.push_back("shading group '" + object->group->name().str() +
                                "' cannot be shaded; its objects render in the default colour");
    }

    std::vector<std::pair<TDNshadingEngine*, TfogVolume*>> fogStarted;
    for (const auto& volume : fog.volumes()) {
        bool seen = std::any_of(fogStarted.begin(), fogStarted.end(), [&](auto& s) { return s.first == volume->group; });
        if (seen) continue;
        fogStarted.emplace_back(volume->group, volume.get());
        setup.startSampling(volume->group, kVolumeColorTransparency, volume.get(), volume.get());
        if (!volume->group->option(kVolumeColorTransparency).opus)
            fWarnings.push_back("shading group '" + volume->group->name().str() + "' cannot shade its fog; the fog does not render");
    }

    TdepthMaps depthMaps(graph, scene, sceneFile, fWarnings);
    TpostEffects post;
    if (options.postEffects) post.begin(graph, scene, settings.width, settings.height, fWarnings);

    const int tileSize = std::max(4, options.tileSize);
    std::vector<Ttile> tiles;
    for (int y = region.y0 / tileSize * tileSize; y < region.y1; y += tileSize)
        for (int x = region.x0 / tileSize * tileSize; x < region.x1; x += tileSize)
            tiles.push_back({x, y, std::min(x + tileSize, settings.width), std::min(y + tileSize, settings.height),
                             std::max(x, region.x0), std::max(y, region.y0), std::min(x + tileSize, region.x1),
                             std::min(y + tileSize, region.y1)});

    TpixelFilterKernel filter(settings.filter, settings.filterWidth);
    TtileRenderer tileRenderer(scene, settings.samplesPerPixel, filter, image, post.pixelGlow());
    for (const std::string& name : options.passes) {
        const TrenderPassInfo* pass = findRenderPass(name);
        if (pass && pass->enginePass < 0) image.addLayer(pass->name, pass->channels, false);
    }
    auto layerData = [&](const char* name) {
        TimageLayer* layer = image.findLayer(name);
        return layer ? layer->pixels.data() : nullptr;
    };
    tileRenderer.depth = layerData("depth");
    tileRenderer.normal = layerData("normal");
    tileRenderer.position = layerData("position");
    tileRenderer.objectId = layerData("objectId");
    int side = tileSize + 2 * filter.margin();
    unsigned slotCapacity = unsigned(side * side * settings.samplesPerPixel);

    const int threads = options.threads > 0 ? options.threads : defaultThreadCount();
    // Each thread's texture blocks for a row of tiles (filter margin
    // included) stay cached, so that the next row finds what it shares.
    TfileTextureCache::sSizeForRender(threads, side, settings.width);
    std::vector<std::unique_ptr<Tworker>> workers(static_cast<size_t>(threads));
    for (auto& w : workers) {
        w = std::make_unique<Tworker>(scene, tileRenderer.pixelAngle(), slotCapacity);
        if (fog.empty()) continue;
        w->fog = std::make_unique<TfogTracer>(fog, scene, &w->tracer);
        w->tracer.setFog(w->fog.get());
    }

    std::mutex progressLock;
    unsigned done = tilesBefore;
    fTilesPerPass = unsigned(tiles.size());
    const unsigned total = unsigned(tiles.size()) * passCount;
    forEachOnThreads(tiles.size(), threads, [&](size_t t, int member) {
        Tworker& w = *workers[size_t(member)];
        // Lights and materials trace through this worker's tracer.
        TcurrentRaySamplerScope tracing(&w.tracer);
        TshadingFramesScope keep(options.keepShadingFrames ? &w.frames : nullptr);
        tileRenderer.render(w, tiles[t]);
        if (options.progress) {
            std::lock_guard<std::mutex> lock(progressLock);
            options.progress(++done, total);
        }
    });

    for (auto& w : workers) {
        fStatistics.cameraRays += w->cameraRays;
        fStatistics.secondaryRays += w->tracer.counters.secondaryRays;
        fStatistics.shadowRays += w->tracer.counters.shadowRays;
        fStatistics.shadedSamples += w->shaded + w->tracer.counters.shadedSamples;
        if (w->fog) fStatistics.fogIntervals += w->fog->intervals;
        fStatistics.framesMade += w->frames.framesMade();
        fStatistics.framesReused += w->frames.framesReused();
        fStatistics.intersectSeconds += double(w->cameraIntersectNs + w->tracer.counters.intersectNs) * 1e-9;
        fStatistics.shadeSeconds += double(w->shadeNs) * 1e-9;
        fStatistics.threadSeconds += double(w->tileNs) * 1e-9;
        w->endSampling();
    }
    for (auto& [group, object] : started) setup.endSampling(group, kSurfaceColorTransparency, object);
    for (auto& [group, volume] : fogStarted) setup.endSampling(group, kVolumeColorTransparency, volume);
    workers.clear();
    TrenderThreadBase::resetShadingGroups();
    post.finish(image, scene, region.x0, region.y0, region.x1, region.y1);
    fStatistics.threads = unsigned(threads);
    fStatistics.wallSeconds = double(nowNs() - wallStart) * 1e-9;
    return true;
}

bool renderSceneFile(const std::string& path, const TrenderOptions& options, TframeBuffer& image, std::string& error,
                     Trenderer* renderer) {
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(path, graph)) {
        error.clear();
        for (const TsceneError& e : loader.errors()) error.append(error.empty() ? "" : "\n").append(e.text());
        return false;
    }
    Trenderer local;
    Trenderer& r = renderer ? *renderer : local;
    if (!r.render(graph, path, options, image, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}
