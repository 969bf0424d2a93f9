#pragma once
// Point and directional lights.
#include "lights/render_light.h"

struct TpointLightShapeVS : TdependNodeVS {
    TattributeMessage fogGeometry{"fogGeometry", "fg", TiffTag("FGEM")};
    TattributeFloat fogRadius{"fogRadius", "fr", TiffTag("FGRD")};
    TattributeMessage lightGlow{"lightGlow", "lg", TiffTag("LGLW")};
    TattributeChar objectType{"objectType", "ot", TiffTag("OTYP")};
    TattributeEnum fogType{"fogType", "ft", TiffTag("FGTP")};
    TvectorAttribute pointWorld{"pointWorld", "pw", TiffTag("PWLD")};
    TvectorAttribute farPointWorld{"farPointWorld", "fw", TiffTag("FPWD")};
    TattributeFloat fogIntensity{"fogIntensity", "fin", TiffTag("FINT")};
    TattributeCompound mentalRayControls{"mentalRayControls", "mrc", TiffTag("MRCT")};
    TattributeBoolean miShadowMap{"shadowMap", "smap", TiffTag("MRSM")};
    // Filled from the sample: whose sample it is, to tell the light's own fog.
    TattributeAddr objectId{"objectId", "oid", TiffTag("LOID")};
    TpointLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TpointLightShape : public TnodeClass<TpointLightShape, TnonExtendedLightShape, TpointLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TpointLightShape", 309, "kPointLight");
    enum FogType : short { kNormalFog = 0, kLinearFog = 1, kExponentialFog = 2 };
    SN_ATTRIBUTE(FogGeometry, fogGeometry)
    SN_ATTRIBUTE(FogRadius, fogRadius)
    SN_ATTRIBUTE(ObjectType, objectType)
    SN_ATTRIBUTE(FogType, fogType)
    SN_VECTOR_ATTRIBUTE(PointWorld, pointWorld)
    SN_VECTOR_ATTRIBUTE(FarPointWorld, farPointWorld)
    SN_ATTRIBUTE(FogIntensity, fogIntensity)
    SN_ATTRIBUTE(MiShadowMap, miShadowMap)
    SN_ATTRIBUTE(ObjectId, objectId)

    // The weight of the light along a fog segment from a to b (fog space)
    // inside a fog sphere of radius `radius`.
    static float fogWeight(const T3Float& a, const T3Float& b, float radius, short fogType, short decayRate);
    // Colour-map coordinates of a point in the light's space: (u, v).
    static T2Float colorMapCoordinates(const T3Float& pointLight);
    static constexpr float kColorMapFilter = 0.001f;
    static constexpr int kColorMapInfoBit = 1 << 3;

    // The renderer's object for this light's fog, and world to fog space.
    void setFogObject(const void* objectId, const Tmatrix& worldToFog) {
        fFogObject = objectId;
        fWorldToFog = worldToFog;
    }

    void analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) override;
    bool setDependentsDirty(TmsgDirty& msg) override;
    // Cube faces along the light's +X, -X, +Y, -Y, +Z, -Z, each by its useX+Dmap .. useZ-Dmap flag.
    int shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
    T3Float towardsLight() const override { return {0, 0, 1}; }

private:
    const void* fFogObject = nullptr;
    Tmatrix fWorldToFog;
};

struct TdirectionalLightShapeVS : TdependNodeVS {
    TattributeBoolean useLightPosition{"useLightPosition", "up", TiffTag("DULP")};
    TattributeChar objectType{"objectType", "ot", TiffTag("OTYP")};
    TattributeFloat lightAngle{"lightAngle", "lang", TiffTag("SHAG")};
    TvectorAttribute pointWorld{"pointWorld", "pw", TiffTag("PWLD")};
    TattributeCompound mentalRayControls{"mentalRayControls", "mrc", TiffTag("MRCT")};
    TdirectionalLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdirectionalLightShape : public TnodeClass<TdirectionalLightShape, TnonExtendedLightShape, TdirectionalLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdirectionalLightShape", 308, "kDirectionalLight");
    SN_ATTRIBUTE(UseLightPosition, useLightPosition)
    SN_ATTRIBUTE(ObjectType, objectType)
    SN_ATTRIBUTE(LightAngle, lightAngle)
    // The light shines down its local -Z axis.
    static constexpr T3Float kIlluminationDirection{0, 0, -1};
    // One orthographic map down the light's direction, fitted to the casters.
    int shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) override;
    bool directionalShadowMap() const override { return true; }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
    T3Float towardsLight() const override { return {-kIlluminationDirection.x, -kIlluminationDirection.y, -kIlluminationDirection.z}; }
};
