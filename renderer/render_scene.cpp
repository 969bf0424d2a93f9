#include "renderer/render_scene.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "framework/host/depend_graph.h"
#include "renderer/scene_check.h"
#include "scene/scene_camera.h"
#include "scene/scene_paths.h"
#include "scene/scene_shapes.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"
#include "shading/shading_engine.h"

namespace {
Tmatrix transposed(const Tmatrix& m) {
    Tmatrix t;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) t.m[i][j] = m.m[j][i];
    return t;
}

// A path is hidden when any transform on it has its visibility off.
bool pathVisible(const TdagPath& path) {
    for (TdagNode* node : path.nodes())
        if (isNodeOf<Ttransform>(node) && !renderValueOf<bool>(node, Ttransform::saVisibility(), true)) return false;
    return true;
}

// Embree filters. The context of every trace carries whether the ray is a
// camera ray, so that objects hidden from the camera still reflect and
// cast shadows.
void rejectAll(const RTCFilterFunctionNArguments* args) {
    for (unsigned i = 0; i < args->N; ++i) args->valid[i] = 0;
}
}  // namespace

namespace {
void rejectCameraRays(const RTCFilterFunctionNArguments* args) {
    if (!reinterpret_cast<const TtraceContext*>(args->context)->cameraRay) return;
    for (unsigned i = 0; i < args->N; ++i) args->valid[i] = 0;
}

// A shadow ray passes a surface that may let light through and notes it, to
// shade its transparency once the ray is known not to be stopped outright.
void passTransmitters(const RTCFilterFunctionNArguments* args) {
    TshadowHits* hits = reinterpret_cast<const TtraceContext*>(args->context)->shadowHits;
    if (!hits) return;
    for (unsigned i = 0; i < args->N; ++i) {
        if (!args->valid[i]) continue;
        TshadowHit h{RTCHitN_instID(args->hit, args->N, i, 0), RTCHitN_primID(args->hit, args->N, i),
                     RTCHitN_u(args->hit, args->N, i), RTCHitN_v(args->hit, args->N, i), RTCRayN_tfar(args->ray, args->N, i)};
        if (hits->add(h)) args->valid[i] = 0;
    }
}

// The node behind a group's surface shader port.
TdependNode* surfaceMaterial(TDNshadingEngine* group) {
    const Tplug* source = group ? group->sourceOf(Tplug(group, &TDNshadingEngine::saSurfaceShader())) : nullptr;
    return source ? source->node() : nullptr;
}

// Whether a group's material may let light through. Only a short cut for
// shadow rays: a material that is not known to be opaque has its
// transparency shaded, and one that shades opaque still stops the light.
bool materialMayTransmit(TdependNode* material) {
    // Drawn in the default colour, or a node (a texture, say) that gives the
    // group no transparency: opaque.
    if (!material || !material->attribute(Tstring("outTransparency"))) return false;
    const Tattribute* transparency = material->attribute(Tstring("transparency"));
    const Tattribute* hide = material->attribute(Tstring("hideSource"));
    T3Float value(1, 1, 1);
    // Anything but three floats (a ramp, say) is shaded to find out.
    if (!transparency || transparency->childCount() != 3 || transparency->size() != sizeof value ||
        !material->getAttributeValue(transparency, &value))
        return true;
    Tplug plug(material, transparency);
    if (plug.isDestination() || plug.isChildDestination()) return true;
    if (hide && (hide->size() != sizeof(bool) || Tplug(material, hide).isDestination() || renderValueOf<bool>(material, *hide, false)))
        return true;
    return std::max({value.x, value.y, value.z}) > 0;
}
}  // namespace

bool TshadowHits::add(const TshadowHit& h) {
    // The tracer may report one hit more than once.
    for (unsigned i = 0; i < count; ++i)
        if (hit[i].object == h.object && hit[i].primitive == h.primitive && std::fabs(hit[i].t - h.t) <= 1e-6f * std::max(1.0f, h.t))
            return true;
    if (count == kCapacity) return false;
    hit[count++] = h;
    return true;
}

TrenderScene::TrenderScene() = default;

TrenderScene::~TrenderScene() {
    if (fScene) rtcReleaseScene(fScene);
    for (RTCScene s : fObjectScenes) rtcReleaseScene(s);
    if (fDevice) rtcReleaseDevice(fDevice);
}

TrenderSettings TrenderScene::sReadSettings(TdependGraph& graph) {
    TrenderSettings settings;
    TdependNode* resolution = graph.findNode("defaultResolution");
    if (!isNodeOf<TdnResolution>(resolution)) resolution = nullptr;
    TdependNode* quality = graph.findNode("defaultRenderQuality");
    if (!isNodeOf<TdnRenderQuality>(quality)) quality = nullptr;
    if (resolution) {
        settings.width = renderValueOf<int32_t>(resolution, TdnResolution::saWidth(), settings.width);
        settings.height = renderValueOf<int32_t>(resolution, TdnResolution::saHeight(), settings.height);
    }
    if (quality) {
        static constexpr int kSamplesForQuality[] = {16, 8, 4, 1};  // highest, high, medium, low
        short aa = renderValueOf<short>(quality, TdnRenderQuality::saEdgeAntiAliasing(), TdnRenderQuality::kLowAA);
        settings.samplesPerPixel = kSamplesForQuality[std::clamp<int>(aa, 0, 3)];
        short filter = renderValueOf<short>(quality, TdnRenderQuality::saPixelFilterType(), 1);
        settings.filter = filter >= 0 && filter <= 3 ? TpixelFilter(filter) : TpixelFilter::kTriangle;
        settings.filterWidth = renderValueOf<float>(quality, TdnRenderQuality::sVsData().pixelFilterWidthX, 2.2f);
        bool raytracing = renderValueOf<bool>(quality, TdnRenderQuality::saEnableRaytracing(), false);
        short reflections = renderValueOf<short>(quality, TdnRenderQuality::sVsData().reflections, 1);
        short refractions = renderValueOf<short>(quality, TdnRenderQuality::sVsData().refractions, 6);
        settings.maxRayDepth = raytracing ? std::max<int>(0, std::max(reflections, refractions)) : 0;
        float bias = renderValueOf<float>(quality, TdnRenderQuality::sVsData().rayTraceBias, 0.0f);
        if (bias > 0) settings.rayBias = bias;
    }
    return settings;
}

TdagPath TrenderScene::sFindCamera(TdependGraph& graph, const std::string& cameraName) {
    for (TdependNode* node : graph.nodes()) {
        if (!isNodeOf<Tcamera>(node)) continue;
        auto* dag = static_cast<TdagNode*>(node);
        for (const TdagPath& p : dag->allPaths()) {
            bool wanted = cameraName.empty() ? renderValueOf<bool>(node, Tcamera::sVsData().renderable, true)
                                             : (node->name().str() == cameraName || p.fullPathName() == cameraName);
            if (wanted && p.isValid()) return p;
        }
    }
    return TdagPath();
}

bool TrenderScene::build(TdependGraph& graph, const std::string& sceneFile, const std::string& cameraName, std::string& error) {
    // Whatever the tracer cannot take is refused here, for every caller;
    // meshes are read below and checked as they are. The warnings are for
    // the command line, which runs the check itself.
    TsceneCheck check;
    TsceneCheckOptions checkOptions;
    checkOptions.camera = cameraName;
    checkOptions.readMeshes = false;
    if (!check.run(graph, sceneFile, checkOptions)) {
        error = check.errorText();
        return false;
    }

    std::vector<TdependNode*> nodes = graph.nodes();
    fSettings = sReadSettings(graph);

    TcameraVS& cameraVs = Tcamera::sVsData();
    TdagPath cameraPath = sFindCamera(graph, cameraName);
    TdependNode* cam = cameraPath.node();
    fCamera.name = cam->name().str();
    fCamera.orthographic = renderValueOf<bool>(cam, cameraVs.orthographic, false);
    float focal = renderValueOf<float>(cam, cameraVs.focalLength, 35);
    float aperture = renderValueOf<float>(cam, cameraVs.horizontalFilmAperture, 36);
    fCamera.tanHalfWidth = aperture / (2 * focal);
    fCamera.orthographicWidth = renderValueOf<float>(cam, cameraVs.orthographicWidth, 10);
    fCamera.nearClip = renderValueOf<float>(cam, cameraVs.nearClipPlane, 0.01f);
    fCamera.farClip = renderValueOf<float>(cam, cameraVs.farClipPlane, 1.0e6f);
    fCamera.background = renderValueOf<T3Float>(cam, cameraVs.backgroundColor.whole, T3Float());
    fCamera.cameraToWorld = cameraPath.inclusiveMatrix();
    fCamera.worldToCamera = fCamera.cameraToWorld.inverse();

    // Group membership: a member path covers the shapes below it.
    std::map<std::vector<TdagNode*>, TDNshadingEngine*> memberOf;
    for (TdependNode* node : nodes) {
        if (!isNodeOf<TDNshadingEngine>(node)) continue;
        auto* group = static_cast<TDNshadingEngine*>(node);
        for (const TdagPath& member : group->members()) memberOf.emplace(member.nodes(), group);
    }
    TdependNode* initial = graph.findNode(TDNshadingEngine::kInitialShadingGroup);
    auto* fallbackGroup = isNodeOf<TDNshadingEngine>(initial) ? static_cast<TDNshadingEngine*>(initial) : nullptr;

    fDevice = rtcNewDevice(nullptr);
    if (!fDevice) {
        error = "cannot start the ray tracing device";
        return false;
    }
    fScene = rtcNewScene(fDevice);

    // Where rays may start: the camera, then every shape as it is placed.
    double sceneReach = farthestReach(fCamera.cameraToWorld, T3Float(), T3Float());
    std::map<TDNshadingEngine*, unsigned> membersSoFar;
    // Per group: its material's shadowAttenuation, or -1 for an opaque one.
    std::map<TDNshadingEngine*, float> transmits;
    for (TdependNode* node : nodes) {
        if (!isNodeOf<TgeometryShape>(node)) continue;
        auto* shape = static_cast<TgeometryShape*>(node);
        for (const TdagPath& path : shape->allPaths()) {
            if (!pathVisible(path)) continue;
            auto object = std::make_unique<TrenderObject>();
            object->path = path;
            object->name = path.fullPathName();
            object->instance = int32_t(path.instanceNumber());
            object->castsShadows = renderValueOf<bool>(node, TgeometryShape::saCastsShadows(), true);
            object->fReceiveShadows = renderValueOf<bool>(node, TgeometryShape::saReceiveShadows(), true);
            object->primaryVisibility = renderValueOf<bool>(node, TgeometryShape::saPrimaryVisibility(), true);
            object->objectToWorld = path.inclusiveMatrix();
            // A zero scale on an axis is a common way to hide an object.
            if (isDegenerateTransform(object->objectToWorld)) continue;
            object->worldToObject = object->objectToWorld.inverse();
            object->objectToCamera = object->objectToWorld * fCamera.worldToCamera;
            object->normalToCamera = transposed(object->objectToCamera.inverse());
            object->objectToWorldF = convertMatrix<float>(object->objectToWorld);
            object->worldToObjectF = convertMatrix<float>(object->worldToObject);

            if (isNodeOf<TsphereShape>(node)) {
                object->kind = TshapeKind::kSphere;
                object->radius = renderValueOf<float>(node, TsphereShape::saRadius(), 1);
            } else if (isNodeOf<TdiscShape>(node)) {
                object->kind = TshapeKind::kDisc;
                object->radius = renderValueOf<float>(node, TdiscShape::saRadius(), 1);
            } else if (isNodeOf<TplaneShape>(node)) {
                object->mesh = std::make_shared<TtriangleMesh>(TtriangleMesh::sPlane(
                    renderValueOf<float>(node, TplaneShape::saWidth(), 1), renderValueOf<float>(node, TplaneShape::saHeight(), 1)));
            } else if (isNodeOf<TboxShape>(node)) {
                T3Float size = renderValueOf<T3Float>(node, TboxShape::saSize(), T3Float(1, 1, 1));
                object->mesh = std::make_shared<TtriangleMesh>(TtriangleMesh::sBox(size));
            } else if (isNodeOf<TmeshShape>(node)) {
                Tstring stored;
                node->getAttributeValue(&TmeshShape::saFileName(), &stored);
                // An instanced mesh is read once.
                for (const auto& other : fObjects)
                    if (other->path.node() == node) object->mesh = other->mesh;
                if (!object->mesh) {
                    auto mesh = std::make_shared<TtriangleMesh>();
                    std::string file = resolveScenePath(sceneFile, stored.str());
                    if (!loadObjMesh(file, *mesh, error)) {
                        error = "node '" + node->name().str() + "' attribute 'fileName': " + error;
                        return false;
                    }
                    if (!mesh->hasNormals() && renderValueOf<bool>(node, TmeshShape::saSmoothNormals(), false)) mesh->computeSmoothNormals();
                    object->mesh = std::move(mesh);
                }
            } else {
                continue;  // a shape this renderer does not draw
            }
            if (object->kind == TshapeKind::kTriangles && object->mesh->triangleCount() == 0) continue;
            if (object->kind != TshapeKind::kTriangles && object->radius == 0) continue;
            T3Float lo(-object->radius, object->kind == TshapeKind::kDisc ? 0 : -object->radius, -object->radius);
            T3Float hi = lo * -1.0f;
            if (object->kind == TshapeKind::kTriangles) meshBounds(*object->mesh, lo, hi);
            if (std::string far = reachProblem(object->objectToWorld, lo, hi); !far.empty()) {
                error = "'" + object->name + "' " + far;
                return false;
            }
            sceneReach = std::max(sceneReach, farthestReach(object->objectToWorld, lo, hi));
            std::vector<TdagNode*> prefix = path.nodes();
            while (!prefix.empty() && !object->group) {
                auto it = memberOf.find(prefix);
                if (it != memberOf.end()) object->group = it->second;
                prefix.pop_back();
            }
            if (!object->group) object->group = fallbackGroup;
            if (object->group) {
                auto [judged, fresh] = transmits.try_emplace(object->group, -1.0f);
                if (fresh) {
                    TdependNode* material = surfaceMaterial(object->group);
                    const Tattribute* attenuation = material ? material->attribute(Tstring("shadowAttenuation")) : nullptr;
                    if (materialMayTransmit(material))
                        judged->second = attenuation ? std::clamp(renderValueOf<float>(material, *attenuation, 0), 0.0f, 1.0f) : 0;
                }
                object->mayTransmit = judged->second >= 0;
                object->shadowAttenuation = std::max(judged->second, 0.0f);
                object->fNumber = membersSoFar[object->group]++;
                auto known = std::find(fGroups.begin(), fGroups.end(), object->group);
                object->groupIndex = int(known - fGroups.begin());
                if (known == fGroups.end()) fGroups.push_back(object->group);
            }
            object->index = unsigned(fObjects.size());
            fObjects.push_back(std::move(object));
        }
    }
    // The check ran without the meshes; their bounds are known now.
    if (std::string small = smallScaleProblem(fCamera.cameraToWorld, sceneReach, TsceneCheck::kMaxCoordinate); !small.empty()) {
        error = "camera '" + fCamera.name + "' " + small;
        return false;
    }
    for (const auto& object : fObjects) {
        if (std::string small = smallScaleProblem(object->objectToWorld, sceneReach, TsceneCheck::kMaxObjectCoordinate); !small.empty()) {
            error = "'" + object->name + "' " + small;
            return false;
        }
        if (!buildGeometry(*object, error)) return false;
    }
    rtcCommitScene(fScene);
    return true;
}

bool TrenderScene::buildGeometry(TrenderObject& object, std::string& error) {
    RTCScene scene = rtcNewScene(fDevice);
    RTCGeometry geometry = nullptr;
    if (object.kind == TshapeKind::kSphere || object.kind == TshapeKind::kDisc) {
        bool sphere = object.kind == TshapeKind::kSphere;
        geometry = rtcNewGeometry(fDevice, sphere ? RTC_GEOMETRY_TYPE_SPHERE_POINT : RTC_GEOMETRY_TYPE_ORIENTED_DISC_POINT);
        auto* point = static_cast<float*>(
            rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT4, 4 * sizeof(float), 1));
        point[0] = point[1] = point[2] = 0;
        point[3] = object.radius;
        if (!sphere) {
            auto* normal = static_cast<float*>(
                rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_NORMAL, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), 1));
            normal[0] = 0, normal[1] = 1, normal[2] = 0;
        }
    } else {
        const TtriangleMesh& mesh = *object.mesh;
        geometry = rtcNewGeometry(fDevice, RTC_GEOMETRY_TYPE_TRIANGLE);
        // Embree reads vertex buffers 16 bytes at a time: one spare float.
        auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                                                     3 * sizeof(float), mesh.positions.size() + 1));
        for (size_t i = 0; i < mesh.positions.size(); ++i)
            for (int c = 0; c < 3; ++c) vertices[3 * i + c] = mesh.positions[i][c];
        auto* indices = static_cast<unsigned*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                                                       3 * sizeof(unsigned), mesh.triangleCount()));
        std::copy(mesh.indices.begin(), mesh.indices.end(), indices);
    }
    if (!geometry) {
        error = "cannot make geometry for '" + object.name + "'";
        rtcReleaseScene(scene);
        return false;
    }
    if (!object.castsShadows) rtcSetGeometryOccludedFilterFunction(geometry, rejectAll);
    else if (object.mayTransmit) rtcSetGeometryOccludedFilterFunction(geometry, passTransmitters);
    if (!object.primaryVisibility) rtcSetGeometryIntersectFilterFunction(geometry, rejectCameraRays);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    fObjectScenes.push_back(scene);

    RTCGeometry instance = rtcNewGeometry(fDevice, RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(instance, scene);
    // Row-vector matrices laid out row by row are the column-major layout of
    // the same transform for column vectors.
    float xfm[16];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) xfm[4 * i + j] = float(object.objectToWorld.m[i][j]);
    rtcSetGeometryTransform(instance, 0, RTC_FORMAT_FLOAT4X4_COLUMN_MAJOR, xfm);
    rtcCommitGeometry(instance);
    rtcAttachGeometryByID(fScene, instance, object.index);
    rtcReleaseGeometry(instance);
    return true;
}

std::vector<TdagPath> TrenderScene::groupObjects(const TDNshadingEngine* group) const {
    std::vector<TdagPath> paths;
    for (const auto& object : fObjects) {
        if (object->group != group) continue;
        if (paths.size() <= object->fNumber) paths.resize(object->fNumber + 1);
        paths[object->fNumber] = object->path;
    }
    return paths;
}
