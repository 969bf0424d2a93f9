#pragma once
// The spot light: a point source limited to a cone with a penumbra and a
// dropoff, four barn doors and three decay regions, with light fog. It shines
// down its local -Z axis.
#include <functional>
#include <vector>

#include "lights/render_light.h"

struct TspotLightShapeVS : TdependNodeVS {
    TattributeDoubleAngle coneAngle{"coneAngle", "ca", TiffTag("CNAG")};
    TattributeDoubleAngle penumbraAngle{"penumbraAngle", "pa", TiffTag("PNAG")};
    TattributeDouble dropoff{"dropoff", "dro", TiffTag("DROP")};
    TattributeBoolean barnDoors{"barnDoors", "bd", TiffTag("BARN")};
    TattributeDoubleAngle leftBarnDoor{"leftBarnDoor", "lbd", TiffTag("LBRD")};
    TattributeDoubleAngle rightBarnDoor{"rightBarnDoor", "rbd", TiffTag("RBRD")};
    TattributeDoubleAngle topBarnDoor{"topBarnDoor", "tbd", TiffTag("TBRD")};
    TattributeDoubleAngle bottomBarnDoor{"bottomBarnDoor", "bbd", TiffTag("BBRD")};
    TattributeBoolean useDecayRegions{"useDecayRegions", "udr", TiffTag("UDRG")};
    TattributeFloatLinear startDistance1{"startDistance1", "sd1", TiffTag("SDS1")};
    TattributeFloatLinear endDistance1{"endDistance1", "ed1", TiffTag("EDS1")};
    TattributeFloatLinear startDistance2{"startDistance2", "sd2", TiffTag("SDS2")};
    TattributeFloatLinear endDistance2{"endDistance2", "ed2", TiffTag("EDS2")};
    TattributeFloatLinear startDistance3{"startDistance3", "sd3", TiffTag("SDS3")};
    TattributeFloatLinear endDistance3{"endDistance3", "ed3", TiffTag("EDS3")};
    TattributeFloat fogSpread{"fogSpread", "fsp", TiffTag("FSPD")};
    TattributeFloat fogIntensity{"fogIntensity", "fin", TiffTag("FINT")};
    TattributeChar objectType{"objectType", "ot", TiffTag("OTYP")};
    TvectorAttribute pointWorld{"pointWorld", "pw", TiffTag("PWLD")};
    TvectorAttribute farPointWorld{"farPointWorld", "fw", TiffTag("FPWD")};
    TvectorAttribute rayDirection{"rayDirection", "rad", TiffTag("RDIR")};
    TattributeMessage fogGeometry{"fogGeometry", "fg", TiffTag("FGEM")};
    TattributeMessage lightGlow{"lightGlow", "lg", TiffTag("LGLW")};
    TattributeInt16 psIllumSamples{"psIllumSamples", "pis", TiffTag("PISS")};
    TattributeCompound mentalRayControls{"mentalRayControls", "mrc", TiffTag("MRCT")};
    // Filled from the sample: whose sample it is, to tell the light's own fog.
    TattributeAddr objectId{"objectId", "oid", TiffTag("LOID")};
    TspotLightShapeVS();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TspotLightShape;

// What a spot tells its clients when its cone, penumbra, dropoff or barn
// doors change.
struct TspotModifiedMsg {
    enum Kind { kConeAngle, kPenumbraAngle, kDropoff, kBarnDoors };
    Kind kind;
    const TspotLightShape* light;
};

class TspotLightShape : public TnodeClass<TspotLightShape, TnonExtendedLightShape, TspotLightShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TspotLightShape", 310, "kSpotLight");
    SN_ATTRIBUTE(ConeAngle, coneAngle)
    SN_ATTRIBUTE(PenumbraAngle, penumbraAngle)
    SN_ATTRIBUTE(Dropoff, dropoff)
    SN_ATTRIBUTE(BarnDoors, barnDoors)
    SN_ATTRIBUTE(LeftBarnDoor, leftBarnDoor)
    SN_ATTRIBUTE(RightBarnDoor, rightBarnDoor)
    SN_ATTRIBUTE(TopBarnDoor, topBarnDoor)
    SN_ATTRIBUTE(BottomBarnDoor, bottomBarnDoor)
    SN_ATTRIBUTE(UseDecayRegions, useDecayRegions)
    SN_ATTRIBUTE(StartDistance1, startDistance1)
    SN_ATTRIBUTE(EndDistance1, endDistance1)
    SN_ATTRIBUTE(StartDistance2, startDistance2)
    SN_ATTRIBUTE(EndDistance2, endDistance2)
    SN_ATTRIBUTE(StartDistance3, startDistance3)
    SN_ATTRIBUTE(EndDistance3, endDistance3)
    SN_ATTRIBUTE(FogSpread, fogSpread)
    SN_ATTRIBUTE(FogIntensity, fogIntensity)
    SN_ATTRIBUTE(ObjectType, objectType)
    SN_VECTOR_ATTRIBUTE(PointWorld, pointWorld)
    SN_VECTOR_ATTRIBUTE(FarPointWorld, farPointWorld)
    SN_VECTOR_ATTRIBUTE(RayDirection, rayDirection)
    SN_ATTRIBUTE(FogGeometry, fogGeometry)
    SN_ATTRIBUTE(LightGlow, lightGlow)
    SN_ATTRIBUTE(PsIllumSamples, psIllumSamples)
    SN_ATTRIBUTE(ObjectId, objectId)

    enum TbarnDoorDirection { kLeftDoor, kRightDoor, kTopDoor, kBottomDoor };
    // The light shines down its local -Z axis.
    static constexpr T3Float kIlluminationDirection{0, 0, -1};
    // The narrowest gap between the outer and inner edges (radians), so that
    // the ramp across them never divides by zero.
    static constexpr double kMinPenumbraGap = 0.0001;

    // Start and end of each decay region.
    struct TdecayRegions {
        float start[3], end[3];
    };
    // In region 1, or in region 2 or 3 and beyond unit distance.
    static bool inIlluminationRegion(float distance, const TdecayRegions& regions);
    bool inIlluminationRegion(float distance, TdataBlock& block);

    // Scales `value` by the cone ramp and the barn doors for a sample whose
    // direction from the light is `direction` (unit, camera space) at cosine
    // `cosine` to the axis. False, with value 0, where no light arrives.
    bool calculateBarnDoorDropOff(TdataBlock& block, float cosine, T4dFltVector direction, float& value) const;
    // A door's angle from the axis as last computed (radians).
    double barnDoorAngle(TbarnDoorDirection door) const { return fDoorAngle[door]; }
    // The weight of the light along a fog segment from a to b, both in the
    // light's space (apex at the origin, axis down -Z).
    float fogWeight(const T3Float& a, const T3Float& b, float fogSpread, short decayRate) const;

    // For depth maps and clients: the half angles of the outer and inner
    // edges (radians) and the light's frame in camera space, as of the last
    // shadingNodeOnDemand.
    double outerHalfAngle() const { return fOuterHalfAngle; }
    double innerHalfAngle() const { return fInnerHalfAngle; }
    float outerCosine() const { return fOuterCosine; }
    float innerCosine() const { return fInnerCosine; }
    const T3Float& coneAxis() const { return fAxis; }
    const T3Float& frameRight() const { return fRight; }
    const T3Float& frameUp() const { return fUp; }

    // The renderer's object for this light's fog.
    void setFogObject(const void* objectId) { fFogObject = objectId; }

    using TmodifiedClient = std::function<void(const TspotModifiedMsg&)>;
    // Registers a client of TspotModifiedMsg; the id removes it.
    unsigned addModifiedClient(TmodifiedClient client);
    void removeModifiedClient(unsigned id);

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // One perspective depth map over the cone.
    int shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) override;
    void analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) override;
    // Keeps values inside their hard ranges and tells clients of the cone.
    bool setDependentsDirty(TmsgDirty& msg) override;
    void setDirty(TmsgDirty& msg) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
    T3Float towardsLight() const override { return {-kIlluminationDirection.x, -kIlluminationDirection.y, -kIlluminationDirection.z}; }

private:
    // The half angles of the outer and inner edges from the attributes, held
    // at least the minimum penumbra apart; returns half the cone angle.
    double coneEdges(double& outer, double& inner);
    // The cone ramp alone, linear in the cosine between the edges.
    float coneRamp(float cosine) const;
    void computeColorMap(TdataBlock& block, unsigned first, unsigned count);

    T3Float fAxis{0, 0, -1}, fRight{1, 0, 0}, fUp{0, 1, 0};
    double fOuterHalfAngle = 0, fInnerHalfAngle = 0;
    float fOuterCosine = 1, fInnerCosine = 1;
    double fDoorAngle[4] = {};
    // Per door: the tangents of the door's edge and of the end of its ramp.
    float fDoorOuterTangent[4] = {}, fDoorInnerTangent[4] = {};
    bool fDoorsCut = false;
    const void* fFogObject = nullptr;
    std::vector<std::pair<unsigned, TmodifiedClient>> fClients;
    unsigned fNextClient = 1;
};
