#pragma once
// The rendering side of lights. TrenderLightShape is the base of every light
// the renderer shades: a DAG light shape of the host with the shading mixin.
// A light answers its "lightData" output over a batch with one TlightData
// record per sample. The abstract middle classes add decay and emit flags
// (TnonAmbientLightShape) and shadows (TnonExtendedLightShape).
#include "framework/host/attribute_groups.h"
#include "framework/host/dag.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "lights/shadow_map.h"
#include "shading/light_callbacks.h"
#include "shading/light_data.h"
#include "shading/ray_sampler.h"

// 0.3, 0.59 and 0.11, the exact floats of the record's luminance.
inline float lightLuminance(const T3Float& c) { return 0.3f * c.x + 0.59f * c.y + 0.11f * c.z; }
// Unit vector by a reciprocal square root refined by one Newton step; a
// vector of squared length at most `threshold` comes back unchanged.
T3Float fastNormalize(const T3Float& v, float threshold = 1e-20f);
// The distance from `point` to a light at `position`, and in `toLight` the
// unit direction towards it; within a millionth of a unit the direction
// stays unnormalised rather than blow up.
inline float directionToLight(const T3Float& position, const T3Float& point, T3Float& toLight) {
    constexpr float kUnitThreshold = 0.000001f;
    const T3Float d = position - point;
    const float distance = length(d);
    toLight = distance > kUnitThreshold ? d * (1.0f / distance) : d;
    return distance;
}

struct TrenderLightShapeVS : TdependNodeVS {
    TattributeInt32 rayInstance{"rayInstance", "ryi", TiffTag("RAYI")};
    // Filled from the sample: where the light is asked for.
    TvectorAttribute pointCamera{"pointCamera", "pc", TiffTag("LPCM")};
    TrenderLightShapeVS() {
        pointCamera.whole.makeImplicitInput();
        pointCamera.setFlag(kAttrHidden, true);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};

// A light is also the callback object its records carry as blind data.
class TrenderLightShape : public TnodeClass<TrenderLightShape, TshadingMixin<TlightShape>, TrenderLightShapeVS>,
                          public TlightCallbacks {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TrenderLightShape", 300, "kRenderLight", true);
    SN_ATTRIBUTE(RayInstance, rayInstance)
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)

    // The renderer's camera: world to camera space, for every light of the render.
    static void setWorldToCamera(const Tmatrix& worldToCamera);
    static const Tmatrix& worldToCamera();
    // The tracer of the calling render thread, for ray-traced shadows; null: none.
    static void setThreadRaySampler(TraySampler* sampler);
    static TraySampler* threadRaySampler();
    // While an interactive preview file is made, lights ask for no render state.
    static void setMakingPreview(bool on);

    // Shading-side members.
    void shadingNodeInit(TframeSampleData* data) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) override;

    // Ray-traced shadows of samples start .. start + count - 1 of the block:
    // per sample the light that passes (white: none blocked). Samples marked
    // in `skip` are left alone; `hit` says which were blocked at all.
    virtual void computeShadowColors(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count, float bias, short filter,
                                     bool* skip, bool* hit, Treflectance* reflectance);

    float lightDistance(const T4dFltPoint& point) const;
    const T4dFltVector& lightDirection() const { return fDirection; }
    const T4dFltPoint& lightPosition() const { return fPosition; }
    const Tmatrix& worldMatrix() const { return fWorld; }
    const Tmatrix& worldMatrixInverse() const { return fWorldInverse; }
    // A connection on a non-message input: the light needs a network of its own.
    bool needsNetwork() const { return fNeedsNetwork; }

    // The scalar road recomputes the placement every time: outside a render
    // nothing else would notice that the light moved.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;

protected:
    // Direction towards the light in camera space, for lights that have one.
    virtual T3Float towardsLight() const { return {0, 0, 1}; }
    // Shadows for the batch at all: pass control and the object's flag.
    static bool batchCastsShadows(char objectType, int infoBits, bool receiveShadows);
    // Traces shadow rays from each point towards the light; `toLight` is the
    // unit direction and `distance` the distance to the light's centre. With
    // `radius` above 0 (a distance, or for `angular` a cone angle in degrees)
    // `rays` jittered rays are averaged. Leaves white where nothing blocks or
    // no tracer is set. A light with extent samples its own shape instead.
    virtual void computeRtShadow(unsigned count, const T3Float* points, const T3Float* toLight, const float* distance, float radius,
                         bool angular, unsigned rays, const bool* skip, T3Float* passed);

    Tmatrix fWorld, fWorldInverse;
    T4dFltPoint fPosition{0, 0, 0, 1};
    T4dFltVector fDirection{0, 0, 1, 0};
    bool fNeedsNetwork = false;
};

struct TambientLightShapeVS : TdependNodeVS {
    TattributeFloat ambientShade{"ambientShade", "as", TiffTag("AMBS")};
    TattributeChar objectType{"objectType", "ot", TiffTag("OTYP")};
    TattributeFloat shadowRadius{"shadowRadius", "sr", TiffTag("SHRS")};
    TattributeBoolean castSoftShadows{"castSoftShadows", "cw", TiffTag("CSSH")};
    TvectorAttribute normalCamera{"normalCamera", "n", TiffTag("NORM")};
    TattributeBoolean receiveShadows{"receiveShadows", "gs", TiffTag("GRSH")};
    TattributeInt16 shadowRays{"shadowRays", "shr", TiffTag("SHRY")};
    TambientLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TambientLightShape : public TnodeClass<TambientLightShape, TrenderLightShape, TambientLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TambientLightShape", 303, "kAmbientLight");
    SN_ATTRIBUTE(AmbientShade, ambientShade)
    SN_ATTRIBUTE(ObjectType, objectType)
    SN_ATTRIBUTE(ShadowRadius, shadowRadius)
    SN_ATTRIBUTE(CastSoftShadows, castSoftShadows)
    SN_VECTOR_ATTRIBUTE(NormalCamera, normalCamera)
    SN_ATTRIBUTE(ReceiveShadows, receiveShadows)
    SN_ATTRIBUTE(ShadowRays, shadowRays)

    // max(1 + shade (dot(L, N) - 1), 0): 0 lights alike from everywhere, 1 is a pure cosine.
    static float shadeWeight(float ambientShade, const T3Float& toLight, const T3Float& normal);

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    short fShadowRays = 1;
};

struct TnonAmbientLightShapeVS : TdependNodeVS {
    TattributeEnum decayRate{"decayRate", "de", TiffTag("DCRT")};
    TattributeBoolean emitDiffuse{"emitDiffuse", "edi", TiffTag("EMDI")};
    TattributeBoolean emitSpecular{"emitSpecular", "esp", TiffTag("EMSP")};
    TnonAmbientLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TnonAmbientLightShape : public TnodeClass<TnonAmbientLightShape, TrenderLightShape, TnonAmbientLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TnonAmbientLightShape", 304, "kNonAmbientLight", true);
    enum Decay : short { kNoDecay = 0, kLinear = 1, kQuadratic = 2, kCubic = 3 };
    SN_ATTRIBUTE(DecayRate, decayRate)
    SN_ATTRIBUTE(EmitDiffuse, emitDiffuse)
    SN_ATTRIBUTE(EmitSpecular, emitSpecular)
    void setRateOfDecay(short rate);
    // The factor decay leaves at `distance`: 1 up to unit distance.
    static float decayFactor(short rate, float distance);
};

struct TnonExtendedLightShapeVS : TdependNodeVS {
    TattributeFloat lightRadius{"lightRadius", "lr", TiffTag("SHRS")};
    TattributeBoolean castSoftShadows{"castSoftShadows", "cw", TiffTag("CSSH")};
    TattributeBoolean receiveShadows{"receiveShadows", "gs", TiffTag("GRSH")};
    TattributeInt16 volumeShadowSamples{"volumeShadowSamples", "nv", TiffTag("NVSS")};
    TattributeInt16 fogShadowIntensity{"fogShadowIntensity", "fsi", TiffTag("FOSI")};
    TattributeInt16 shadowRays{"shadowRays", "shr", TiffTag("SHRY")};
    // Depth maps.
    TattributeBoolean useDepthMapShadows{"useDepthMapShadows", "dms", TiffTag("UDMS")};
    TattributeBoolean reuseDmap{"reuseDmap", "du", TiffTag("RUDM")};
    TattributeBoolean useMidDistDmap{"useMidDistDmap", "md", TiffTag("UMDD")};
    TattributeInt16 dmapFilterSize{"dmapFilterSize", "fs", TiffTag("DMFS")};
    TattributeInt16 dmapResolution{"dmapResolution", "dr", TiffTag("DMRS")};
    TattributeFloat dmapBias{"dmapBias", "db", TiffTag("DMBI")};
    TattributeFloat dmapFocus{"dmapFocus", "df", TiffTag("DMFC")};
    TattributeFloat dmapWidthFocus{"dmapWidthFocus", "dw", TiffTag("DMWF")};
    TattributeBoolean useDmapAutoFocus{"useDmapAutoFocus", "af", TiffTag("DMAF")};
    TattributeBoolean useDmapAutoClipping{"useDmapAutoClipping", "uc", TiffTag("DMAC")};
    TattributeFloat dmapNearClipPlane{"dmapNearClipPlane", "nc", TiffTag("DMNC")};
    TattributeFloat dmapFarClipPlane{"dmapFarClipPlane", "fcp", TiffTag("DMFP")};
    TattributeBoolean useOnlySingleDmap{"useOnlySingleDmap", "us", TiffTag("DMSI")};
    TattributeBoolean useXPlusDmap{"useX+Dmap", "xp", TiffTag("DMXP")};
    TattributeBoolean useXMinusDmap{"useX-Dmap", "xn", TiffTag("DMXN")};
    TattributeBoolean useYPlusDmap{"useY+Dmap", "yp", TiffTag("DMYP")};
    TattributeBoolean useYMinusDmap{"useY-Dmap", "yn", TiffTag("DMYN")};
    TattributeBoolean useZPlusDmap{"useZ+Dmap", "zp", TiffTag("DMZP")};
    TattributeBoolean useZMinusDmap{"useZ-Dmap", "zn", TiffTag("DMZN")};
    TattributeTyped dmapUseMacro{"dmapUseMacro", "dc", TiffTag("DMUM"), TattributeTyped::Kind::kString};
    TattributeTyped dmapName{"dmapName", "smn", TiffTag("DMNM"), TattributeTyped::Kind::kString};
    TattributeBoolean dmapLightName{"dmapLightName", "ul", TiffTag("DMLN")};
    TattributeBoolean dmapSceneName{"dmapSceneName", "um", TiffTag("DMSN")};
    TattributeBoolean dmapFrameExt{"dmapFrameExt", "uf", TiffTag("DMFE")};
    TattributeBoolean writeDmap{"writeDmap", "ws", TiffTag("DMWR")};
    TattributeTyped lastWrittenDmapAnimExtName{"lastWrittenDmapAnimExtName", "lw", TiffTag("DMLW"), TattributeTyped::Kind::kString};
    TnonExtendedLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TnonExtendedLightShape : public TnodeClass<TnonExtendedLightShape, TnonAmbientLightShape, TnonExtendedLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TnonExtendedLightShape", 305, "kNonExtendedLight", true);
    SN_ATTRIBUTE(LightRadius, lightRadius)
    SN_ATTRIBUTE(CastSoftShadows, castSoftShadows)
    SN_ATTRIBUTE(ReceiveShadows, receiveShadows)
    SN_ATTRIBUTE(VolumeShadowSamples, volumeShadowSamples)
    SN_ATTRIBUTE(FogShadowIntensity, fogShadowIntensity)
    SN_ATTRIBUTE(ShadowRays, shadowRays)
    SN_ATTRIBUTE(UseDepthMapShadows, useDepthMapShadows)
    SN_ATTRIBUTE(DmapFilterSize, dmapFilterSize)
    SN_ATTRIBUTE(DmapResolution, dmapResolution)
    SN_ATTRIBUTE(DmapBias, dmapBias)
    SN_ATTRIBUTE(ReuseDmap, reuseDmap)
    SN_ATTRIBUTE(UseMidDistDmap, useMidDistDmap)
    SN_ATTRIBUTE(DmapFocus, dmapFocus)
    SN_ATTRIBUTE(DmapWidthFocus, dmapWidthFocus)
    SN_ATTRIBUTE(UseDmapAutoFocus, useDmapAutoFocus)
    SN_ATTRIBUTE(UseDmapAutoClipping, useDmapAutoClipping)
    SN_ATTRIBUTE(DmapNearClipPlane, dmapNearClipPlane)
    SN_ATTRIBUTE(DmapFarClipPlane, dmapFarClipPlane)
    SN_ATTRIBUTE(DmapUseMacro, dmapUseMacro)
    SN_ATTRIBUTE(DmapName, dmapName)
    SN_ATTRIBUTE(DmapLightName, dmapLightName)
    SN_ATTRIBUTE(DmapSceneName, dmapSceneName)
    SN_ATTRIBUTE(DmapFrameExt, dmapFrameExt)
    SN_ATTRIBUTE(WriteDmap, writeDmap)

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // Depth-map and ray-traced shadows exclude each other: turning one on turns the other off.
    bool setDependentsDirty(TmsgDirty& msg) override;

    // The depth maps of this light for the render; null until the shadow-map
    // subsystem makes them. Not owned.
    void setShadowMap(TuseShadowMap* map) { fShadowMap = map; }
    TuseShadowMap* shadowMap() const { return fShadowMap; }
    bool usesDepthMap() const { return fUseDepthMap; }
    void deleteShadowMap() { fShadowMap = nullptr; }

    // The views this light's depth maps take for a render, fitted where the
    // light allows to `casters`, the world boxes of the shadow-casting
    // objects. Writes at most kMaxShadowMapViews views and returns how many;
    // the base has none.
    static constexpr int kMaxShadowMapViews = 6;
    virtual int shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views);
    // The light's world matrix, from its first path.
    Tmatrix placement();
    // Whether the maps are one directional (orthographic) map.
    virtual bool directionalShadowMap() const { return false; }
    // The base name of this light's depth-map files: `dmapName` ("depthmap"
    // when empty), with the scene name in front, the light's name after it
    // and the frame number as an extension, as the three flags ask.
    std::string getDepthMapName(const std::string& sceneName, int frame);
    static std::string sDepthMapName(const std::string& dmapName, const std::string& lightName, const std::string& sceneName,
                                     int frame, bool useLightName, bool useSceneName, bool useFrameExt);
    // One file of a map set: the base name, the face of a cube map (none for
    // -1), "_mid" for the second-surface partner, and ".iff".
    static std::string sDepthMapFileName(const std::string& baseName, int face, bool midDistance);

protected:
    // The shared body of point and directional lights once the per-sample
    // direction, distance and intensity are known: shadows and the record.
    void finishRecords(TdataBlock& block, unsigned first, unsigned count, const T3Float* toLight, const float* distance,
                       float* intensity, bool doShadow, float softRadius, bool angular);
    // Shadows inside the light's own fog: each segment from near to far
    // (world space) is lit by the mean of the light reaching a few points
    // along it, one jittered in each of as many equal stretches, and
    // fogShadowIntensity deepens what is missing. Scales
    // `intensity`; the caller then finishes the records without shadows.
    void fogSegmentShadows(TdataBlock& block, unsigned first, unsigned count, const T3Float* near, const T3Float* far,
                           float* intensity);

    // Shared by the lights' map views.
    int shadowMapResolution();
    // Texels a map keeps beyond what it must cover, so that filters near its
    // edge find data.
    int shadowMapMargin();
    // Near and far distances from `origin` (along `axis` when given, else in
    // any direction) that hold every caster, or the attributes' planes
    // without auto clipping.
    void shadowMapClipRange(const std::vector<TworldBox>& casters, const T3Float& origin, const T3Float* axis, float& nearClip,
                            float& farClip);

    TuseShadowMap* fShadowMap = nullptr;
    bool fUseDepthMap = false;
    // Read once per render before shading: computes run on many threads at
    // once and reading an attribute goes through the dependency graph,
    // which writes the node.
    short fShadowRays = 1;
    short fDmapFilterSize = 1;
    float fDmapBias = 0.001f;
};
