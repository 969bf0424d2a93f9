#include "renderer/fog_intervals.h"

#include <algorithm>
#include <map>

#include "framework/host/depend_graph.h"
#include "lights/point_light.h"
#include "lights/render_light.h"
#include "lights/spot_light.h"
#include "renderer/level_thread.h"
#include "renderer/render_scene.h"
#include "renderer/scene_check.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"
#include "volumes/volume_utils.h"

namespace {
bool pathVisible(const TdagPath& path) {
    for (TdagNode* node : path.nodes())
        if (isNodeOf<Ttransform>(node) && !renderValueOf<bool>(node, Ttransform::saVisibility(), true)) return false;
    return true;
}

// The fog shape a light's fogGeometry names, if any.
TdependNode* fogGeometryOf(TdependNode* light) {
    const Tattribute* fogGeometry = light->attribute(Tstring("fogGeometry"));
    if (!fogGeometry) return nullptr;
    const Tplug* source = light->sourceOf(Tplug(light, fogGeometry));
    return source ? source->node() : nullptr;
}

// Where integration starts for a sample the program writes nothing to.
constexpr float kSurfaceFactor = 1.0f;
}  // namespace

// ---------------------------------------------------------------- scene

TfogScene::~TfogScene() { releaseLights(); }

void TfogScene::build(TdependGraph& graph, const TrenderScene& scene, std::vector<std::string>& warnings) {
    std::vector<TdependNode*> nodes = graph.nodes();
    std::map<std::vector<TdagNode*>, TDNshadingEngine*> memberOf;
    std::map<TdependNode*, TdependNode*> lightOfShape;
    for (TdependNode* node : nodes) {
        if (isNodeOf<TDNshadingEngine>(node))
            for (const TdagPath& member : static_cast<TDNshadingEngine*>(node)->members()) memberOf.emplace(member.nodes(), static_cast<TDNshadingEngine*>(node));
        if (isNodeOf<TrenderLightShape>(node))
            if (TdependNode* shape = fogGeometryOf(node)) {
                if (fogIntervalOf(shape))
                    lightOfShape[shape] = node;
                else
                    warnings.push_back("light '" + node->name().str() + "' attribute 'fogGeometry': '" + shape->name().str() +
                                       "' is not a renderSphere, renderBox or renderCone; the light has no fog");
            }
    }
    std::map<TDNshadingEngine*, unsigned> countOf;
    for (TdependNode* node : nodes) {
        const TfogInterval interval = fogIntervalOf(node);
        if (!interval && !isNodeOf<TenvFogShape>(node)) continue;
        for (const TdagPath& path : static_cast<TdagNode*>(node)->allPaths()) {
            if (!pathVisible(path)) continue;
            auto volume = std::make_unique<TfogVolume>();
            volume->path = path;
            volume->name = path.fullPathName();
            volume->interval = interval;
            volume->objectToWorld = path.inclusiveMatrix();
            if (interval && isDegenerateTransform(volume->objectToWorld)) continue;
            volume->worldToObject = interval ? volume->objectToWorld.inverse() : Tmatrix();
            if (!interval) volume->objectToWorld = Tmatrix();  // the environment is in world space
            std::vector<TdagNode*> prefix = path.nodes();
            while (!prefix.empty() && !volume->group) {
                auto it = memberOf.find(prefix);
                if (it != memberOf.end()) volume->group = it->second;
                prefix.pop_back();
            }
            if (!volume->group) {
                warnings.push_back("fog '" + volume->name + "' is in no shading group; it does not render");
                continue;
            }
            if (!volume->group->sourceOf(Tplug(volume->group, &TDNshadingEngine::saVolumeShader()))) {
                warnings.push_back("fog '" + volume->name + "': shading group '" + volume->group->name().str() +
                                   "' has nothing on 'volumeShader'; the fog does not render");
                continue;
            }
            if (std::find(scene.groups().begin(), scene.groups().end(), volume->group) != scene.groups().end()) {
                warnings.push_back("fog '" + volume->name + "': shading group '" + volume->group->name().str() +
                                   "' also shades surfaces; give the fog a group of its own");
                continue;
            }
            if (auto it = lightOfShape.find(node); it != lightOfShape.end()) volume->light = it->second;
            volume->fNumber = countOf[volume->group]++;
            auto known = std::find(fGroups.begin(), fGroups.end(), volume->group);
            volume->groupIndex = unsigned(known - fGroups.begin());
            if (known == fGroups.end()) fGroups.push_back(volume->group);
            fVolumes.push_back(std::move(volume));
        }
    }
}

void TfogScene::setUpLights(bool linked, const std::vector<TdependNode*>& everyLight) {
    for (TDNshadingEngine* group : fGroups) {
        std::vector<const TfogVolume*> members;
        bool anyLightFog = false;
        for (const auto& v : fVolumes)
            if (v->group == group) {
                if (members.size() <= v->fNumber) members.resize(v->fNumber + 1);
                members[v->fNumber] = v.get();
                anyLightFog = anyLightFog || v->light;
            }
        if (linked && !anyLightFog) {
            std::vector<TdagPath> paths;
            for (const TfogVolume* v : members) paths.push_back(v->path);
            group->collectLights(paths);
            continue;
        }
        // A light fog is lit by its own light alone; other fogs by every light.
        std::vector<TbitFieldFixedN> rows(members.size(), TbitFieldFixedN(unsigned(everyLight.size())));
        for (size_t m = 0; m < members.size(); ++m)
            for (size_t l = 0; l < everyLight.size(); ++l)
                if (!members[m]->light || members[m]->light == everyLight[l]) rows[m].set(unsigned(l));
        group->setLightTables(everyLight, rows, everyLight, rows);
    }
    for (const auto& v : fVolumes) {
        if (!v->light) continue;
        if (isNodeOf<TspotLightShape>(v->light))
            static_cast<TspotLightShape*>(v->light)->setFogObject(v->objectId());
        else if (isNodeOf<TpointLightShape>(v->light))
            static_cast<TpointLightShape*>(v->light)->setFogObject(v->objectId(), v->worldToObject);
    }
}

void TfogScene::releaseLights() {
    for (const auto& v : fVolumes) {
        if (!v->light) continue;
        if (isNodeOf<TspotLightShape>(v->light)) static_cast<TspotLightShape*>(v->light)->setFogObject(nullptr);
        else if (isNodeOf<TpointLightShape>(v->light)) static_cast<TpointLightShape*>(v->light)->setFogObject(nullptr, Tmatrix());
    }
}

// ---------------------------------------------------------------- tracer

TfogTracer::TfogTracer(const TfogScene& fog, const TrenderScene& scene, TraySampler* sampler)
    : fFog(fog), fScene(scene), fThread(std::make_unique<TrenderLevelThread>(&fConstants, sampler, unsigned(fog.groups().size()), kVolumeColorTransparency)) {
    // Room for every interval a chunk can hold: tiles grow nothing.
    fPending.reserve(kChunk * kMaxIntervals);
    fShaded.reserve(kChunk * kMaxIntervals);
    // Standalone records for the integrator: the intervals of one ray and the surface behind.
    TbitField64 needed;
    for (unsigned item : {kItemOutColor, kItemOutTransparency, kItemOutGlowColor, kItemBlobbySurfaceFactor, kItemParticleWeight,
                          kItemParticleEntryParam, kItemParticleExitParam, kItemOutMatteOpacity, kItemObjectType})
        needed.set(item);
    fFieldTable.resize(Tsample::sFieldTableLength(0));
    const unsigned size = Tsample::sBuildFieldOffsets(needed, fFieldTable.data());
    fRecordBytes.resize(size_t(size) * (kMaxIntervals + 1) + 16);
    unsigned char* base = fRecordBytes.data() + (16 - reinterpret_cast<uintptr_t>(fRecordBytes.data()) % 16) % 16;
    for (unsigned k = 0; k <= kMaxIntervals; ++k) fRecords.push_back(Tsample::sCreate(base + size_t(k) * size, size, fFieldTable.data()));
    fRun.setLength(kMaxIntervals + 1);
}

TfogTracer::~TfogTracer() = default;

void TfogTracer::endSampling() { fThread->endSampling(); }

void TfogTracer::apply(unsigned n, TfogRay* rays) {
    // A fog program that traces rays would come back here: its rays see no fog.
    if (fBusy || fFog.empty()) return;
    fBusy = true;
    for (unsigned first = 0; first < n; first += kChunk) applyChunk(std::min(kChunk, n - first), rays + first);
    fBusy = false;
}

void TfogTracer::applyChunk(unsigned n, TfogRay* rays) {
    fPending.clear();
    fShaded.clear();
    for (unsigned i = 0; i < n; ++i) {
        const TfogRay& ray = rays[i];
        if (!(ray.tFar > ray.tNear)) continue;
        unsigned onRay = 0;
        for (const auto& v : fFog.volumes()) {
            if (onRay == kMaxIntervals) break;
            float enter = ray.tNear, leave = ray.tFar;
            if (v->interval) {
                // Affine maps keep the ray's parameter: t is the same in object space.
                const T3Float o = v->worldToObject.transformPoint(ray.origin), d = v->worldToObject.transformVector(ray.direction);
                float a = 0, b = 0;
                if (!v->interval(o, d, ray.tFar, a, b)) continue;
                enter = std::max(a, ray.tNear);
                leave = b;
                if (!(enter < leave)) continue;
            }
            Tsample* s = fThread->allocate(v->group, int(v->groupIndex), v.get(), v.get());
            if (!s) continue;
            fillSample(*s, *v, ray, enter, leave);
            fPending.push_back({i, enter, leave, s});
            fShaded.push_back(s);
            ++onRay;
        }
    }
    if (fShaded.empty()) return;
    TsampleManager& manager = *fThread->sampleManager();
    manager.dispatchSamples(unsigned(fShaded.size()), fShaded.data());
    manager.flushDispatchedSamples();
    intervals += fShaded.size();
    for (size_t k = 0; k < fPending.size();) {
        size_t end = k;
        while (end < fPending.size() && fPending[end].ray == fPending[k].ray) ++end;
        integrate(rays[fPending[k].ray], &fPending[k], unsigned(end - k));
        k = end;
    }
    manager.releaseSamples(unsigned(fShaded.size()), fShaded.data());
}

void TfogTracer::fillSample(Tsample& s, const TfogVolume& volume, const TfogRay& ray, float enter, float leave) const {
    const Tmatrix& toCamera = fScene.camera().worldToCamera;
    const T3Float p0 = ray.origin + ray.direction * enter, p1 = ray.origin + ray.direction * leave;
    const T3Float c0 = toCamera.transformPoint(p0), c1 = toCamera.transformPoint(p1);
    const T3Float direction = normalize(toCamera.transformVector(ray.direction));
    // The environment fog measures from the interval's start; a bounded fog
    // is lit at its middle.
    s.setPointCamera(volume.interval ? (c0 + c1) * 0.5f : c0);
    s.setFarPointCamera(c1);
    s.setPointWorld(p0);
    s.setFarPointWorld(p1);
    s.setPointObj(volume.worldToObject.transformPoint(p0));
    s.setFarPointObj(volume.worldToObject.transformPoint(p1));
    s.setRefPointCamera(c0);
    s.setRefPointWorld(p0);
    s.setRayOrigin(toCamera.transformPoint(ray.origin));
    s.setRayDirection(direction);
    s.setNormalCamera(direction * -1.0f);
    // The interval's thickness rides in the filter size's Z.
    s.setFilterSize(T3Float(0, 0, length(c1 - c0)));
    s.setRayDepth(ray.depth);
    s.setIlluminationIndex(-1);
    if (s.hasItem(kItemMatrixObjectToWorld)) s.setMatrixObjectToWorld(convertMatrix<float>(volume.objectToWorld));
    if (s.hasItem(kItemMatrixWorldToObject)) s.setMatrixWorldToObject(convertMatrix<float>(volume.worldToObject));
}

void TfogTracer::integrate(TfogRay& ray, const Tpending* first, unsigned count) {
    for (unsigned k = 0; k < count; ++k) {
        const Tsample& shaded = *first[k].sample;
        Tsample& r = *fRecords[k];
        r.setOutColor(*shaded.outColor());
        r.setOutTransparency(*shaded.outTransparency());
        r.setOutGlowColor(*shaded.outGlowColor());
        r.setOutMatteOpacity(*shaded.outMatteOpacity());
        r.setBlobbySurfaceFactor(0);
        r.setObjectType(0);
        r.setParticleEntryParam(first[k].enter);
        r.setParticleExitParam(first[k].leave);
        fRun[k] = &r;
    }
    // What the ray saw at its end, as a surface point there.
    Tsample& surface = *fRecords[count];
    surface.setOutColor(ray.color);
    surface.setOutTransparency(ray.transmittance);
    surface.setOutGlowColor(T3Float(0, 0, 0));
    surface.setOutMatteOpacity(T3Float(0, 0, 0));
    surface.setBlobbySurfaceFactor(kSurfaceFactor);
    surface.setObjectType(0);
    surface.setParticleEntryParam(ray.tFar);
    fRun[count] = &surface;
    T3Float color, transparency, glow;
    TvolumeUtils().integrateRT(&fRun, 0, int(count), color, transparency, glow);
    ray.color = color;
    ray.transmittance = transparency;
}
