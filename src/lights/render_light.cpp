#include "lights/render_light.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <new>
#if defined(__SSE__)
#include <immintrin.h>
#endif

#include "framework/host/depend_graph.h"
#include "framework/scratch_array.h"
#include "shading/render_pass_control.h"
#include "settings/render_quality.h"
#include "shading/sample.h"
#include "shading/shading_engine.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TrenderLightShape)
SN_REGISTER_NODE_CLASS(TnonAmbientLightShape)
SN_REGISTER_NODE_CLASS(TnonExtendedLightShape)

namespace {
Tmatrix gWorldToCamera;
bool gMakingPreview = false;

// Bits of the requirement mask that only a ray tracer fills.
constexpr unsigned kRayTracedItems[] = {kItemRayDepth, kItemRayInstance, kItemPrimitiveId};
constexpr unsigned kMaxShadowRays = 64;
constexpr float kFarAway = 1e30f;
// Soft shadows aim at a disc no wider than this: a wider one looks the same
// from anywhere the tracer reaches (1e15 units), and its far points lie
// beyond the float range of a ray's length.
constexpr float kLargestSoftRadius = 1e15f;
constexpr int kMinDmapResolution = 16, kMaxDmapResolution = 8192;
constexpr float kMinDmapNearClip = 0.00001f;

float inverseSqrt(float x) {
#if defined(__SSE__)
    float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
    return r * (x * r * r - 3.0f) * -0.5f;
#else
    return 1.0f / std::sqrt(x);
#endif
}

// A unit vector at a uniform angle about `axis`, `spread` away from it.
T3Float around(const T3Float& axis, float u, float v, float spread) {
    T3Float side = std::fabs(axis.x) < 0.9f ? T3Float(1, 0, 0) : T3Float(0, 1, 0);
    T3Float a = normalize(cross(axis, side));
    T3Float b = cross(axis, a);
    float r = spread * std::sqrt(u), phi = 6.2831853f * v;
    return a * (r * std::cos(phi)) + b * (r * std::sin(phi));
}
}  // namespace

T3Float fastNormalize(const T3Float& v, float threshold) {
    float q = dot(v, v);
    if (q <= threshold) return v;
    return v * inverseSqrt(q);
}

// ---------------------------------------------------------------- TrenderLightShape

bool TrenderLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    const Tattribute* data = &TlightShape::saLightData();
    affects(m, {&TlightShape::saColor(), &TlightShape::saIntensity(), &TlightShape::saShadowColor(),
                &TlightShape::saUseRayTraceShadows(), &rayInstance, &pointCamera.whole},
            {data});
    affects(m, {&pointCamera.whole}, {&TlightShape::saUCoord(), &TlightShape::saVCoord(), &TlightShape::saUvFilterSize(),
                                      &TlightShape::saInfoBits()});
    return true;
}

void TrenderLightShape::setWorldToCamera(const Tmatrix& worldToCamera) { gWorldToCamera = worldToCamera; }
const Tmatrix& TrenderLightShape::worldToCamera() { return gWorldToCamera; }
void TrenderLightShape::setThreadRaySampler(TraySampler* sampler) { setCurrentRaySampler(sampler); }
TraySampler* TrenderLightShape::threadRaySampler() { return currentRaySampler(); }
void TrenderLightShape::setMakingPreview(bool on) { gMakingPreview = on; }

void TrenderLightShape::shadingNodeInit(TframeSampleData*) {
    fNeedsNetwork = false;
    std::vector<std::pair<Tplug, Tplug>> incoming;
    allIncoming(incoming);
    for (const auto& [source, dest] : incoming)
        if (dest.attribute()->valueType() != TvalueType::kMessage) fNeedsNetwork = true;
}

void TrenderLightShape::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    std::vector<TdagPath> paths = allPaths();
    fWorld = paths.empty() ? Tmatrix() : paths.front().inclusiveMatrix();
    fWorldInverse = fWorld.inverse();
    Tmatrix toCamera = fWorld * gWorldToCamera;
    T3Float p = toCamera.transformPoint({0, 0, 0});
    fPosition = {p.x, p.y, p.z, 1};
    T3Float d = fastNormalize(toCamera.transformVector(towardsLight()));
    fDirection = {d.x, d.y, d.z, 0};
}

bool TrenderLightShape::computePlug(const Tplug& plug, TdataBlock& block) {
    Tplug p = plug;
    shadingNodeOnDemand(p, block);
    setOnDemandState(kOnDemandDone);
    return TnodeClass::computePlug(plug, block);
}

void TrenderLightShape::analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) {
    TshadingNode::analyse(group, desc, context, mask);
    bool raytracing = true;
    if (TdependGraph* g = graph())
        if (TdependNode* quality = g->findNode(Tstring(TDNshadingEngine::kDefaultRenderQuality))) {
            bool on = true;
            quality->getAttributeValue(&TdnRenderQuality::saEnableRaytracing(), &on);
            raytracing = on;
        }
    if (!raytracing)
        for (unsigned item : kRayTracedItems) mask.clear(item);
    if (gMakingPreview) mask.clear(kItemRenderState);
}


float TrenderLightShape::lightDistance(const T4dFltPoint& point) const {
    T3Float d(fPosition.x - point.x, fPosition.y - point.y, fPosition.z - point.z);
    return length(d);
}

void TrenderLightShape::computeShadowColors(const Tplug&, TdataBlock& block, unsigned start, unsigned count, float, short,
                                            bool* skip, bool* hit, Treflectance* reflectance) {
    TdataHandle points = block.inputValue(attrPointCamera(), start, count);
    for (unsigned first = start; first < start + count; first += kBatchSize) {
        unsigned n = std::min(start + count - first, kBatchSize);
        TscratchArray<T3Float, kBatchSize> p, l, passed;
        float distance[kBatchSize];
        for (unsigned i = 0; i < n; ++i) {
            p[i] = points.asFloat3(first + i);
            T3Float d(fPosition.x - p[i].x, fPosition.y - p[i].y, fPosition.z - p[i].z);
            distance[i] = length(d);
            l[i] = fastNormalize(d);
        }
        computeRtShadow(n, p, l, distance, 0, false, 1, skip ? skip + (first - start) : nullptr, passed);
        for (unsigned i = 0; i < n; ++i) {
            unsigned k = first - start + i;
            reflectance[k] = Treflectance(Tspectrum(passed[i].x, passed[i].y, passed[i].z));
            if (hit) hit[k] = passed[i].x < 1 || passed[i].y < 1 || passed[i].z < 1;
        }
    }
}

bool TrenderLightShape::batchCastsShadows(char objectType, int infoBits, bool receiveShadows) {
    bool doShadow = objectType == 4 ? (infoBits & 2) != 0 : true;
    int pass = currentRenderPassControl;
    if (pass >= 1 && pass <= 4) doShadow = false;
    return doShadow && receiveShadows;
}

void TrenderLightShape::computeRtShadow(unsigned count, const T3Float* points, const T3Float* toLight, const float* distance,
                                        float radius, bool angular, unsigned rays, const bool* skip, T3Float* passed) {
    for (unsigned i = 0; i < count; ++i) passed[i] = {1, 1, 1};
    TraySampler* tracer = currentRaySampler();
    if (!tracer || !count) return;
    if (!(radius > 0)) {
        radius = 0;
        rays = 1;
    }
    if (!angular) radius = std::min(radius, kLargestSoftRadius);
    rays = std::clamp(rays, 1u, kMaxShadowRays);
    unsigned size = std::max<unsigned>(tracer->raySize(), sizeof(TgenericRay));
    size = (size + 15) & ~15u;
    auto* memory = static_cast<unsigned char*>(__builtin_alloca(size_t(size) * count + 16));
    memory = reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(memory) + 15) & ~uintptr_t(15));
    TgenericRay* list[kBatchSize];
    unsigned index[kBatchSize];
    Treflectance through[kBatchSize];
    TscratchArray<T3Float, kBatchSize> sum;
    float spread = angular ? std::tan(0.5f * radius * 3.14159265f / 180.0f) : radius;
    for (unsigned r = 0; r < rays; ++r) {
        unsigned n = 0;
        for (unsigned i = 0; i < count; ++i) {
            if (skip && skip[i]) continue;
            auto* ray = new (memory + size_t(size) * n) TgenericRay;
            ray->origin = points[i];
            T3Float dir = toLight[i];
            float reach = angular || distance[i] >= kFarAway ? kFarAway : distance[i];
            if (radius > 0) {
                float u = tracer->random(), v = tracer->random();
                if (angular) {
                    dir = fastNormalize(dir + around(dir, u, v, spread));
                } else {
                    // A point of a disc of the light's radius, facing the surface point.
                    T3Float target = points[i] + toLight[i] * distance[i] + around(toLight[i], u, v, radius);
                    T3Float d = target - points[i];
                    reach = length(d);
                    dir = fastNormalize(d);
                }
            }
            ray->direction = dir;
            ray->distance = reach;
            list[n] = ray;
            index[n] = i;
            through[n] = Treflectance();
            ++n;
        }
        if (!n) return;
        tracer->traceShadowRays(this, int(n), list, through);
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = index[k];
            T3Float t = through[k].asFloat3();
            sum[i] = r == 0 ? t : sum[i] + t;
        }
    }
    float scale = 1.0f / float(rays);
    for (unsigned i = 0; i < count; ++i)
        if (!(skip && skip[i])) passed[i] = sum[i] * scale;
}

// ---------------------------------------------------------------- TnonAmbientLightShape

TnonAmbientLightShapeVS::TnonAmbientLightShapeVS() {
    decayRate.addField("No Decay", short(0));
    decayRate.addField("Linear", short(1));
    decayRate.addField("Quadratic", short(2));
    decayRate.addField("Cubic", short(3));
    emitDiffuse.setNativeDefaultData(1.0);
    emitSpecular.setNativeDefaultData(1.0);
}

bool TnonAmbientLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&decayRate, &emitDiffuse, &emitSpecular}, {&TlightShape::saLightData()});
    return true;
}

void TnonAmbientLightShape::setRateOfDecay(short rate) { setAttributeValue(&attrDecayRate(), &rate); }

float TnonAmbientLightShape::decayFactor(short rate, float distance) {
    // Flat within unit distance: a light never brightens as it comes closer than 1.
    if (distance <= 1.0f) return 1.0f;
    switch (rate) {
        case kLinear: return 1.0f / distance;
        case kQuadratic: return 1.0f / (distance * distance);
        case kCubic: return 1.0f / (distance * distance * distance);
        default: return 1.0f;
    }
}

// ---------------------------------------------------------------- TnonExtendedLightShape

TnonExtendedLightShapeVS::TnonExtendedLightShapeVS() {
    lightRadius.setSoftMin(0);
    receiveShadows.setNativeDefaultData(1.0);
    volumeShadowSamples.setNativeDefaultData(20);
    fogShadowIntensity.setNativeDefaultData(1);
    fogShadowIntensity.setSoftMin(1);
    fogShadowIntensity.setSoftMax(10);
    shadowRays.setNativeDefaultData(1);
    useMidDistDmap.setNativeDefaultData(1.0);
    dmapFilterSize.setNativeDefaultData(1);
    dmapResolution.setNativeDefaultData(512);
    dmapBias.setNativeDefaultData(0.001);
    dmapFocus.setNativeDefaultData(90);
    dmapWidthFocus.setNativeDefaultData(100);
    useDmapAutoFocus.setNativeDefaultData(1.0);
    useDmapAutoClipping.setNativeDefaultData(1.0);
    dmapNearClipPlane.setNativeDefaultData(0.001);
    dmapFarClipPlane.setNativeDefaultData(10000);
    useOnlySingleDmap.setNativeDefaultData(1.0);
    for (TattributeBoolean* side : {&useXPlusDmap, &useXMinusDmap, &useYPlusDmap, &useYMinusDmap, &useZPlusDmap, &useZMinusDmap})
        side->setNativeDefaultData(1.0);
    dmapLightName.setNativeDefaultData(1.0);
}

bool TnonExtendedLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&lightRadius, &receiveShadows, &volumeShadowSamples, &fogShadowIntensity, &shadowRays, &useDepthMapShadows,
                &dmapFilterSize, &dmapBias},
            {&TlightShape::saLightData()});
    return true;
}

void TnonExtendedLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TrenderLightShape::shadingNodeOnDemand(plug, block);
    bool on = false;
    getAttributeValue(&attrUseDepthMapShadows(), &on);
    fUseDepthMap = on;
    fShadowRays = 1;
    fDmapFilterSize = 1;
    fDmapBias = 0.001f;
    getAttributeValue(&attrShadowRays(), &fShadowRays);
    getAttributeValue(&attrDmapFilterSize(), &fDmapFilterSize);
    getAttributeValue(&attrDmapBias(), &fDmapBias);
}

bool TnonExtendedLightShape::setDependentsDirty(TmsgDirty& msg) {
    const Tattribute* a = msg.plug().attribute();
    const Tattribute* other = a == &attrUseDepthMapShadows()                ? &TlightShape::saUseRayTraceShadows()
                              : a == &TlightShape::saUseRayTraceShadows() ? &attrUseDepthMapShadows()
                                                                          : nullptr;
    if (other && *static_cast<const bool*>(storage(a)) && *static_cast<const bool*>(storage(other))) {
        bool off = false;
        setAttributeValue(other, &off);
    }
    return TrenderLightShape::setDependentsDirty(msg);
}

int TnonExtendedLightShape::shadowMapViews(const std::vector<TworldBox>&, TshadowMapView*) { return 0; }

Tmatrix TnonExtendedLightShape::placement() {
    std::vector<TdagPath> paths = allPaths();
    return paths.empty() ? Tmatrix() : paths.front().inclusiveMatrix();
}

int TnonExtendedLightShape::shadowMapResolution() {
    short resolution = 512;
    getAttributeValue(&attrDmapResolution(), &resolution);
    return std::clamp<int>(resolution, kMinDmapResolution, kMaxDmapResolution);
}

int TnonExtendedLightShape::shadowMapMargin() {
    short filter = 1;
    getAttributeValue(&attrDmapFilterSize(), &filter);
    return std::max<int>(filter, 0) + 1;
}

void TnonExtendedLightShape::shadowMapClipRange(const std::vector<TworldBox>& casters, const T3Float& origin, const T3Float* axis,
                                                float& nearClip, float& farClip) {
    float nearPlane = 0.001f, farPlane = 10000;
    bool automatic = true;
    getAttributeValue(&attrDmapNearClipPlane(), &nearPlane);
    getAttributeValue(&attrDmapFarClipPlane(), &farPlane);
    getAttributeValue(&attrUseDmapAutoClipping(), &automatic);
    nearPlane = std::max(nearPlane, kMinDmapNearClip);
    nearClip = nearPlane, farClip = farPlane;
    if (!automatic || casters.empty()) return;
    float lo = FLT_MAX, hi = 0;
    for (const TworldBox& box : casters) {
        if (box.isEmpty()) continue;
        if (axis) {
            for (int corner = 0; corner < 8; ++corner) {
                T3Float c(corner & 1 ? box.max.x : box.min.x, corner & 2 ? box.max.y : box.min.y, corner & 4 ? box.max.z : box.min.z);
                float d = dot(c - origin, *axis);
                lo = std::min(lo, d), hi = std::max(hi, d);
            }
        } else {
            T3Float nearest(std::clamp(origin.x, box.min.x, box.max.x), std::clamp(origin.y, box.min.y, box.max.y),
                            std::clamp(origin.z, box.min.z, box.max.z));
            T3Float farthest(std::fabs(box.min.x - origin.x) > std::fabs(box.max.x - origin.x) ? box.min.x : box.max.x,
                             std::fabs(box.min.y - origin.y) > std::fabs(box.max.y - origin.y) ? box.min.y : box.max.y,
                             std::fabs(box.min.z - origin.z) > std::fabs(box.max.z - origin.z) ? box.min.z : box.max.z);
            lo = std::min(lo, length(nearest - origin)), hi = std::max(hi, length(farthest - origin));
        }
    }
    if (lo > hi) return;
    // A little room on both sides, so that a caster's face on the bound stays in.
    float pad = 0.01f * (hi - lo) + 0.001f;
    nearClip = std::max(nearPlane, lo - pad);
    farClip = std::max(nearClip + pad, hi + pad);
}

std::string TnonExtendedLightShape::sDepthMapName(const std::string& dmapName, const std::string& lightName,
                                                  const std::string& sceneName, int frame, bool useLightName, bool useSceneName,
                                                  bool useFrameExt) {
    std::string name = dmapName.empty() ? "depthmap" : dmapName;
    if (useSceneName && !sceneName.empty()) name = sceneName + "_" + name;
    if (useLightName && !lightName.empty()) name.append(1, '_').append(lightName);
    if (useFrameExt) name.append(1, '.').append(std::to_string(frame));
    return name;
}

std::string TnonExtendedLightShape::getDepthMapName(const std::string& sceneName, int frame) {
    Tstring base;
    getAttributeValue(&attrDmapName(), &base);
    bool light = true, scene = false, frameExt = false;
    getAttributeValue(&attrDmapLightName(), &light);
    getAttributeValue(&attrDmapSceneName(), &scene);
    getAttributeValue(&attrDmapFrameExt(), &frameExt);
    return sDepthMapName(base.str(), name().str(), sceneName, frame, light, scene, frameExt);
}

std::string TnonExtendedLightShape::sDepthMapFileName(const std::string& baseName, int face, bool midDistance) {
    static const char* const kFaces[kMaxShadowMapViews] = {"_xp", "_xn", "_yp", "_yn", "_zp", "_zn"};
    std::string name = baseName;
    if (face >= 0 && face < kMaxShadowMapViews) name += kFaces[face];
    if (midDistance) name += "_mid";
    return name + ".iff";
}

void TnonExtendedLightShape::finishRecords(TdataBlock& block, unsigned first, unsigned count, const T3Float* toLight,
                                           const float* distance, float* intensity, bool doShadow, float softRadius, bool angular) {
    TdataHandle color = block.inputValue(TlightShape::saColor(), first, count);
    TdataHandle shadowColor = block.inputValue(TlightShape::saShadowColor(), first, count);
    TdataHandle rayTrace = block.inputValue(TlightShape::saUseRayTraceShadows(), first, count);
    TdataHandle diffuse = block.inputValue(attrEmitDiffuse(), first, count);
    TdataHandle specular = block.inputValue(attrEmitSpecular(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle out = block.outputValue(TlightShape::saLightData(), first, count);

    TscratchArray<T3Float, kBatchSize> colors;
    float fraction[kBatchSize] = {};
    for (unsigned k = 0; k < count; ++k) {
        unsigned i = first + k;
        TlightData& r = out.as<TlightData>(i);
        r.preShadowIntensity = lightLuminance(color.asFloat3(i)) * intensity[k];
        r.lightShadowFraction = 0;
    }
    if (fShadowMap && fUseDepthMap && doShadow) {
        TscratchArray<T3Float, kBatchSize> p;
        for (unsigned k = 0; k < count; ++k) p[k] = points.asFloat3(first + k);
        fShadowMap->sampleShadow(count, p, fDmapBias, fDmapFilterSize, fraction, nullptr);
        for (unsigned k = 0; k < count; ++k) {
            unsigned i = first + k;
            float s = fraction[k];
            colors[k] = (shadowColor.asFloat3(i) * s + color.asFloat3(i) * (1 - s)) * intensity[k];
            intensity[k] *= 1 - s;
        }
    } else {
        for (unsigned k = 0; k < count; ++k) colors[k] = color.asFloat3(first + k) * intensity[k];
        if (doShadow && rayTrace.asBool(first)) {
            TscratchArray<T3Float, kBatchSize> p, passed;
            bool skip[kBatchSize];
            for (unsigned k = 0; k < count; ++k) {
                p[k] = points.asFloat3(first + k);
                // Nothing to darken where no light arrives.
                skip[k] = intensity[k] <= 0;
            }
            computeRtShadow(count, p, toLight, distance, softRadius, angular, unsigned(std::max<short>(fShadowRays, 1)), skip, passed);
            for (unsigned k = 0; k < count; ++k) {
                if (skip[k]) continue;
                const T3Float& t = passed[k];
                const T3Float& sc = shadowColor.asFloat3(first + k);
                colors[k] = {colors[k].x * t.x + (1 - t.x) * sc.x, colors[k].y * t.y + (1 - t.y) * sc.y,
                             colors[k].z * t.z + (1 - t.z) * sc.z};
                fraction[k] = 1 - lightLuminance(t);
            }
        }
    }
    for (unsigned k = 0; k < count; ++k) {
        unsigned i = first + k;
        TlightData& r = out.as<TlightData>(i);
        r.lightDirection = toLight[k];
        r.lightIntensity = colors[k];
        r.lightAmbient = false;
        r.lightDiffuse = diffuse.asBool(i);
        r.lightSpecular = specular.asBool(i);
        r.fSpare = 0;
        r.lightShadowFraction = fraction[k];
        r.lightBlindData = static_cast<TlightCallbacks*>(this);
    }
}
