#pragma once
// What a render sees of a graph: the camera, every geometry instance with
// its shading group and transforms, the settings, and the Embree scene that
// traces them. Built once per render on the calling thread; read-only while
// tiles render.
#include <embree3/rtcore.h>

#include <memory>
#include <string>
#include <vector>

#include "framework/host/dag.h"
#include "framework/host/math.h"
#include "renderer/triangle_mesh.h"
#include "shading/render_bases.h"

class TDNshadingEngine;
class TdependGraph;

// The value of `attribute` on `node` (pulled through connections), or
// `fallback` when the node is null or has no such value.
template <class T>
T renderValueOf(TdependNode* node, const Tattribute& attribute, T fallback) {
    T value = fallback;
    if (!node || !node->getAttributeValue(&attribute, &value)) return fallback;
    return value;
}

template <class Class>
bool isNodeOf(const TdependNode* node) {
    return node && node->typeof()->istype(Class::sMetaclass());
}

// A surface that a shadow ray passed through and whose transparency is
// still to be shaded.
struct TshadowHit {
    unsigned object, primitive;
    float u, v, t;
};

// The surfaces that may let light through met by one shadow ray, in the
// order the tracer found them (the product of transmittances needs none).
struct TshadowHits {
    static constexpr unsigned kCapacity = 8;
    TshadowHit hit[kCapacity];
    unsigned count = 0;
    // False when full: the surface then stops the light.
    bool add(const TshadowHit& h);
};

// The context of every trace: Embree's, whether the ray comes from the
// camera, so that objects hidden from the camera still reflect and shadow,
// and for a shadow ray where to collect the surfaces that may let light
// through (null: every surface stops the light).
struct TtraceContext {
    RTCIntersectContext embree;
    bool cameraRay = false;
    TshadowHits* shadowHits = nullptr;
};

enum class TshapeKind { kSphere, kDisc, kTriangles };

// One geometry instance: a render group to the engine, and its own
// geometry manager.
class TrenderObject : public TrenderGroupBase, public TgeoManagerBase {
public:
    unsigned objectNumber() const override { return fNumber; }
    const TgeoManagerBase* geometryManager() const override { return this; }
    bool receiveShadows() const override { return fReceiveShadows; }
    const TdagPath* dagPath() const override { return &path; }

    TdagPath path;
    std::string name;                      // full path name, for messages
    TDNshadingEngine* group = nullptr;     // null: no group, drawn in the default colour
    unsigned fNumber = 0;                  // index of the path among the group's members
    unsigned index = 0;                    // index among the render's objects (Embree instance id)
    TshapeKind kind = TshapeKind::kTriangles;
    float radius = 1;                      // sphere and disc
    std::shared_ptr<const TtriangleMesh> mesh;
    bool castsShadows = true, fReceiveShadows = true, primaryVisibility = true;
    // Its group's material may let light through, so that shadow rays shade
    // its transparency; false for a material known to be opaque.
    bool mayTransmit = false;
    // Its material's shadowAttenuation: how much a shadow through it darkens
    // where light crosses the surface aslant, a stand-in for the light that
    // a clear object focuses towards its shadow's centre.
    float shadowAttenuation = 0;
    Tmatrix objectToWorld, worldToObject;
    // Object to camera for points, and its inverse transpose for normals.
    Tmatrix objectToCamera, normalToCamera;
    TfltMatrix objectToWorldF, worldToObjectF;
    int32_t instance = 0;  // which instance of its shape the path is
    int groupIndex = -1;   // index of `group` in TrenderScene::groups()
};

struct TrenderCamera {
    std::string name;
    bool orthographic = false;
    float tanHalfWidth = 36.0f / 70.0f;  // perspective: half the image-plane width at distance 1
    float orthographicWidth = 10;
    float nearClip = 0.01f, farClip = 1.0e6f;
    T3Float background;
    Tmatrix cameraToWorld, worldToCamera;
};

enum class TpixelFilter { kBox = 0, kTriangle = 1, kGaussian = 2, kBSpline = 3 };

struct TrenderSettings {
    int width = 640, height = 480;
    int samplesPerPixel = 1;
    TpixelFilter filter = TpixelFilter::kTriangle;
    float filterWidth = 2.2f;  // pixels, whole support
    int maxRayDepth = 6;
    float rayBias = 1.0e-3f;
};

class TrenderScene {
public:
    TrenderScene();
    ~TrenderScene();
    TrenderScene(const TrenderScene&) = delete;
    TrenderScene& operator=(const TrenderScene&) = delete;

    // Gathers the graph. `sceneFile` anchors relative mesh paths ("" for the
    // working folder); `cameraName` picks a camera by node name or path ("" for
    // the first renderable one). False with `error` set on bad input.
    bool build(TdependGraph& graph, const std::string& sceneFile, const std::string& cameraName, std::string& error);

    // The render settings the graph holds (defaults where it has none).
    static TrenderSettings sReadSettings(TdependGraph& graph);
    // The camera a render looks through: by node name or path, or the first
    // renderable one for an empty name. Invalid when there is none.
    static TdagPath sFindCamera(TdependGraph& graph, const std::string& cameraName);

    const TrenderCamera& camera() const { return fCamera; }
    const TrenderSettings& settings() const { return fSettings; }
    TrenderSettings& settings() { return fSettings; }
    const std::vector<std::unique_ptr<TrenderObject>>& objects() const { return fObjects; }
    const std::vector<TDNshadingEngine*>& groups() const { return fGroups; }
    // The paths of `group`'s objects, each at its objectNumber(): the order
    // the group's per-object light tables follow.
    std::vector<TdagPath> groupObjects(const TDNshadingEngine* group) const;
    RTCScene embreeScene() const { return fScene; }

private:
    bool buildGeometry(TrenderObject& object, std::string& error);

    RTCDevice fDevice = nullptr;
    RTCScene fScene = nullptr;
    std::vector<RTCScene> fObjectScenes;
    TrenderCamera fCamera;
    TrenderSettings fSettings;
    std::vector<std::unique_ptr<TrenderObject>> fObjects;
    std::vector<TDNshadingEngine*> fGroups;
};
