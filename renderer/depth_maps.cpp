#include "renderer/depth_maps.h"

#include <algorithm>

#include "framework/host/depend_graph.h"
#include "lights/light_visibility.h"
#include "lights/render_light.h"
#include "renderer/ray_tracer.h"
#include "renderer/render_scene.h"
#include "renderer/thread_team.h"
#include "scene/scene_paths.h"

namespace {
// Non-casting surfaces a depth ray passes through before it gives up.
constexpr int kMaxPassThrough = 32;

// The step past a hit at distance t before the next trace starts.
float stepPast(float t) { return 1e-4f * std::max(1.0f, t); }

// The nearest shadow-casting hit along `ray`, or false.
bool nearestCaster(const TrenderScene& scene, TworldRay ray, float& t) {
    const auto& objects = scene.objects();
    for (int k = 0; k < kMaxPassThrough; ++k) {
        RTCRayHit hit;
        if (!intersectWorld(scene.embreeScene(), ray, false, hit)) return false;
        if (objects[hit.hit.instID[0]]->castsShadows) {
            t = hit.ray.tfar;
            return true;
        }
        ray.tNear = hit.ray.tfar + stepPast(hit.ray.tfar);
    }
    return false;
}

// The stem of a file path: no folder, no extension.
std::string stemOf(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

template <class T>
T valueOf(TdependNode* node, const Tattribute& attribute, T fallback) {
    T value = fallback;
    return node->getAttributeValue(&attribute, &value) ? value : fallback;
}
}  // namespace

std::vector<TworldBox> shadowCasterBoxes(const TrenderScene& scene) {
    std::vector<TworldBox> boxes;
    for (const auto& object : scene.objects()) {
        if (!object->castsShadows) continue;
        TworldBox box;
        const Tmatrix& m = object->objectToWorld;
        if (object->kind == TshapeKind::kTriangles) {
            for (const auto& p : object->mesh->positions) box.add(m.transformPoint({p[0], p[1], p[2]}));
        } else {
            // A disc lies in its local XZ plane; a sphere fills the cube around it.
            float r = object->radius, h = object->kind == TshapeKind::kSphere ? r : 0;
            for (int corner = 0; corner < 8; ++corner)
                box.add(m.transformPoint({corner & 1 ? r : -r, corner & 2 ? h : -h, corner & 4 ? r : -r}));
        }
        if (!box.isEmpty()) boxes.push_back(box);
    }
    return boxes;
}

void renderDepthMap(const TrenderScene& scene, const TshadowMapView& view, float* first, float* second) {
    const int res = view.resolution;
    const Tmatrix viewToWorld = view.worldToView.inverse();
    forEachOnThreads(size_t(res), defaultThreadCount(), [&](size_t rowIndex, int) {
        const int row = int(rowIndex);
        for (int column = 0; column < res; ++column) {
            const size_t i = size_t(row) * size_t(res) + size_t(column);
            TworldRay ray;
            view.texelRay(viewToWorld, column, row, ray.origin, ray.direction);
            ray.tNear = view.nearClip;
            ray.tFar = view.farClip;
            float t = 0;
            first[i] = nearestCaster(scene, ray, t) ? t : TuseShadowMap::kNoSurface;
            if (!second) continue;
            float behind = 0;
            ray.tNear = t + stepPast(t);
            second[i] = first[i] < TuseShadowMap::kNoSurface && nearestCaster(scene, ray, behind) ? behind : TuseShadowMap::kNoSurface;
        }
    });
}

TdepthMaps::TdepthMaps(TdependGraph& graph, const TrenderScene& scene, const std::string& sceneFile,
                       std::vector<std::string>& warnings) {
    std::vector<TworldBox> casters;
    bool castersKnown = false;
    const std::string sceneName = stemOf(sceneFile);
    const int frame = 1;
    for (TdependNode* node : graph.nodes()) {
        if (!node->typeof()->istype(TnonExtendedLightShape::sMetaclass()) || !TdagPathUtils::lightTakesPart(node)) continue;
        auto* light = static_cast<TnonExtendedLightShape*>(node);
        if (!valueOf<bool>(light, light->attrUseDepthMapShadows(), false)) continue;
        if (!castersKnown) casters = shadowCasterBoxes(scene), castersKnown = true;
        TshadowMapView views[TnonExtendedLightShape::kMaxShadowMapViews];
        const int n = light->shadowMapViews(casters, views);
        if (n <= 0) continue;

        const bool reuse = valueOf<bool>(light, light->attrReuseDmap(), false);
        const bool write = valueOf<bool>(light, light->attrWriteDmap(), false);
        const bool mid = valueOf<bool>(light, light->attrUseMidDistDmap(), true);
        const std::string base = resolveScenePath(sceneFile, light->getDepthMapName(sceneName, frame));
        TdmapCallback callback;
        callback.macro = valueOf<Tstring>(light, light->attrDmapUseMacro(), Tstring()).str();
        callback.lightName = light->name().str();
        callback.pathName = base;
        callback.frame = frame;

        auto map = std::make_unique<TuseShadowMap>(light->directionalShadowMap(), light->placement().transformPoint({0, 0, 0}));
        map->setWorldToCamera(scene.camera().worldToCamera);
        for (int v = 0; v < n; ++v) {
            const TshadowMapView& view = views[v];
            const int face = n > 1 ? v : -1;
            const std::string file = TnonExtendedLightShape::sDepthMapFileName(base, face, false);
            const std::string midFile = mid ? TnonExtendedLightShape::sDepthMapFileName(base, face, true) : std::string();
            callback.midMapName = midFile;
            if (reuse && map->readZmap(file, midFile, view.resolution, callback) == 1) continue;

            const size_t texels = size_t(view.resolution) * size_t(view.resolution);
            std::vector<float> distances(texels), behind(mid ? texels : 0), depth(texels), depthBehind(mid ? texels : 0);
            renderDepthMap(scene, view, distances.data(), mid ? behind.data() : nullptr);
            if (write && (!TuseShadowMap::writeZmap(file, view, distances.data()) ||
                          (mid && !TuseShadowMap::writeZmap(midFile, view, behind.data()))))
                warnings.push_back("light '" + light->name().str() + "': cannot write the depth map " + file);
            const TfltMatrix projection = TuseShadowMap::sProjection(view);
            TuseShadowMap::iffBufferToZbuffer(view.resolution, view.resolution, projection, view.orthographic, distances.data(),
                                              depth.data());
            if (mid) {
                TuseShadowMap::iffBufferToZbuffer(view.resolution, view.resolution, projection, view.orthographic, behind.data(),
                                                  depthBehind.data());
                TuseShadowMap::mergeDepthBuffers(view.resolution, view.resolution, depth.data(), depthBehind.data(), depth.data());
            }
            if (!map->initMap(view, depth.data()))
                warnings.push_back("light '" + light->name().str() + "': no memory for its depth map");
        }
        light->setShadowMap(map.get());
        fMaps.emplace_back(light, std::move(map));
    }
}

TdepthMaps::~TdepthMaps() {
    for (auto& [light, map] : fMaps) light->deleteShadowMap();
}
