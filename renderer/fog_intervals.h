#pragma once
// Fog in a render. TfogScene gathers the fogs of a graph: the environment
// fog, fog primitives (renderSphere, renderBox, renderCone) and the light
// fog a light's fogGeometry names, each a member of a shading group whose
// volumeShader is connected. TfogTracer, one per render thread, takes rays
// with what they saw, collects the interval each fog covers on each ray,
// shades the intervals with the group's volume program and folds them, in
// order along the ray, with the surface behind through the volume
// integrator.
#include <memory>
#include <string>
#include <vector>

#include "framework/host/dag.h"
#include "framework/host/math.h"
#include "shading/render_bases.h"
#include "shading/render_thread.h"
#include "volumes/fog_shapes.h"
#include "volumes/volume_arrays.h"

class TDNshadingEngine;
class TdependGraph;
class TrenderLevelThread;
class TrenderScene;
class TraySampler;
class Tsample;

// One fog: all of space or a unit shape placed in the world, and the group
// that shades it.
class TfogVolume : public TrenderGroupBase, public TgeoManagerBase {
public:
    unsigned objectNumber() const override { return fNumber; }
    const TgeoManagerBase* geometryManager() const override { return this; }
    bool receiveShadows() const override { return true; }

    TdagPath path;
    std::string name;
    TDNshadingEngine* group = nullptr;
    unsigned fNumber = 0;     // among the group's fogs
    unsigned groupIndex = 0;  // in TfogScene::groups()
    TfogInterval interval = nullptr;  // null: the environment, all of space
    Tmatrix worldToObject, objectToWorld;
    TdependNode* light = nullptr;  // the light whose fog this is
};

class TfogScene {
public:
    TfogScene() = default;
    ~TfogScene();
    TfogScene(const TfogScene&) = delete;
    TfogScene& operator=(const TfogScene&) = delete;

    // Gathers the fogs. What is declared but cannot render is said in
    // `warnings`.
    void build(TdependGraph& graph, const TrenderScene& scene, std::vector<std::string>& warnings);
    bool empty() const { return fVolumes.empty(); }
    const std::vector<std::unique_ptr<TfogVolume>>& volumes() const { return fVolumes; }
    const std::vector<TDNshadingEngine*>& groups() const { return fGroups; }

    // Which lights reach each fog: a light fog only its own light; the
    // others all of `everyLight`, or what the scene's links say when
    // `linked`. Also tells each light which renderer object is its fog.
    void setUpLights(bool linked, const std::vector<TdependNode*>& everyLight);
    // Lets go of the lights' fog objects.
    void releaseLights();

private:
    std::vector<std::unique_ptr<TfogVolume>> fVolumes;
    std::vector<TDNshadingEngine*> fGroups;
};

// A ray through fog in world space, and what it saw: `color` arrives as
// what lies at `tFar` (the surface and everything seen through it), and
// `transmittance` as how much of what lies beyond still shows. Both leave
// with the fog in front folded in.
struct TfogRay {
    T3Float origin, direction;  // direction unit length
    float tNear = 0, tFar = 0;
    int32_t depth = 0;
    T3Float color, transmittance;
};

class TfogTracer {
public:
    static constexpr unsigned kChunk = 256;
    // Intervals on one ray beyond this many are left out.
    static constexpr unsigned kMaxIntervals = 16;

    TfogTracer(const TfogScene& fog, const TrenderScene& scene, TraySampler* sampler);
    ~TfogTracer();

    // Folds the fog into each ray's colour and transmittance.
    void apply(unsigned n, TfogRay* rays);
    // Gives up this thread's use of the fog programs.
    void endSampling();

    uint64_t intervals = 0;  // shaded so far

private:
    struct Tpending {
        unsigned ray;
        float enter, leave;
        Tsample* sample;
    };
    void applyChunk(unsigned n, TfogRay* rays);
    void fillSample(Tsample& sample, const TfogVolume& volume, const TfogRay& ray, float enter, float leave) const;
    void integrate(TfogRay& ray, const Tpending* first, unsigned count);

    const TfogScene& fFog;
    const TrenderScene& fScene;
    TframeConstants fConstants;  // fog batches go to no raster
    std::unique_ptr<TrenderLevelThread> fThread;  // the fog groups' volume programs
    std::vector<Tpending> fPending;
    std::vector<Tsample*> fShaded;
    // Records the integrator reads: the intervals of one ray and its surface.
    std::vector<unsigned> fFieldTable;
    std::vector<unsigned char> fRecordBytes;
    std::vector<Tsample*> fRecords;
    TsampleArray fRun;
    bool fBusy = false;
};
