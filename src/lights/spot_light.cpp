#include "lights/spot_light.h"

#include <algorithm>
#include <cmath>

#include "framework/scratch_array.h"
#include "lights/light_fog.h"
#include "shading/sample.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TspotLightShape)

namespace {
constexpr float kUnitThreshold = 0.000001f;
constexpr double kPi = 3.14159265358979323846;
constexpr double kMaxConeAngle = 3.1414927;
constexpr double kMaxDoorAngle = 1.5707463;
// Below this a fog spread would make the density's exponent infinite.
constexpr float kMinFogSpread = 0.0001f;
// The widest angle the colour map projects through: a projector has no image beyond 90 degrees.
constexpr double kMaxProjectionAngle = 1.5690;
constexpr float kOutsideTexture = -10000000.0f;
constexpr float kColorMapFilter = 0.001f;
constexpr int kColorMapInfoBit = 1 << 3;

struct ThardRange {
    const Tattribute* attribute;
    double min, max;
};

// Values the light cannot take, kept out when they are set. A connection
// brings its value unchecked, so the readers clamp as well.
const ThardRange* hardRangeOf(const Tattribute* a) {
    auto& vs = TspotLightShape::sVsData();
    static const ThardRange ranges[] = {
        {&vs.coneAngle, 0.0001, kMaxConeAngle},         {&vs.penumbraAngle, -kMaxConeAngle, kMaxConeAngle},
        {&vs.dropoff, 0, HUGE_VAL},                     {&vs.leftBarnDoor, -kMaxDoorAngle, kMaxDoorAngle},
        {&vs.rightBarnDoor, -kMaxDoorAngle, kMaxDoorAngle}, {&vs.topBarnDoor, -kMaxDoorAngle, kMaxDoorAngle},
        {&vs.bottomBarnDoor, -kMaxDoorAngle, kMaxDoorAngle}, {&vs.psIllumSamples, 1, 50},
    };
    for (const ThardRange& r : ranges)
        if (r.attribute == a) return &r;
    return nullptr;
}

double clampToRange(const Tattribute& a, double v) {
    const ThardRange* r = hardRangeOf(&a);
    return r ? std::clamp(v, r->min, r->max) : v;
}

// 1 inside the inner edge, 0 beyond the outer one, linear between; `outer`
// above `inner`. No division when the two meet.
float rampBetween(float s, float inner, float outer) {
    if (s >= outer) return 0;
    if (s <= inner) return 1;
    return (outer - s) / (outer - inner);
}
}  // namespace

TspotLightShapeVS::TspotLightShapeVS() {
    coneAngle.setNativeDefaultData(0.6981317);
    penumbraAngle.setSoftMin(-0.1745329);
    penumbraAngle.setSoftMax(0.1745329);
    dropoff.setSoftMax(255);
    for (TattributeDoubleAngle* door : {&leftBarnDoor, &rightBarnDoor, &topBarnDoor, &bottomBarnDoor})
        door->setNativeDefaultData(0.3490659);
    startDistance1.setNativeDefaultData(1);
    endDistance1.setNativeDefaultData(2);
    startDistance2.setNativeDefaultData(3);
    endDistance2.setNativeDefaultData(6);
    startDistance3.setNativeDefaultData(8);
    endDistance3.setNativeDefaultData(10);
    endDistance3.setSoftMin(0);
    endDistance3.setSoftMax(100);
    fogSpread.setNativeDefaultData(1);
    fogSpread.setSoftMin(0);
    fogSpread.setSoftMax(5);
    fogIntensity.setNativeDefaultData(1);
    fogIntensity.setSoftMin(0);
    fogIntensity.setSoftMax(5);
    psIllumSamples.setNativeDefaultData(1);
    objectType.makeImplicitInput();
    pointWorld.whole.makeImplicitInput();
    farPointWorld.whole.makeImplicitInput();
    rayDirection.whole.makeImplicitInput();
    objectId.makeImplicitInput();
    objectId.setFlag(kAttrHidden, true);
}

bool TspotLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&coneAngle, &penumbraAngle, &dropoff, &barnDoors, &leftBarnDoor, &rightBarnDoor, &topBarnDoor, &bottomBarnDoor,
                &useDecayRegions, &startDistance1, &endDistance1, &startDistance2, &endDistance2, &startDistance3, &endDistance3,
                &fogSpread, &fogIntensity, &objectType, &pointWorld.whole, &farPointWorld.whole, &objectId},
            {&TlightShape::saLightData()});
    affects(m, {&coneAngle, &penumbraAngle}, {&TlightShape::saUCoord(), &TlightShape::saVCoord()});
    return true;
}

// ---------------------------------------------------------------- cone and doors

bool TspotLightShape::inIlluminationRegion(float d, const TdecayRegions& r) {
    if (d >= r.start[0] && d <= r.end[0]) return true;
    // Regions 2 and 3 also ask for d above 1, region 1 does not: deliberate.
    if (d >= r.start[1] && d <= r.end[1] && d > 1) return true;
    return d >= r.start[2] && d <= r.end[2] && d > 1;
}

bool TspotLightShape::inIlluminationRegion(float distance, TdataBlock& block) {
    const TspotLightShapeVS& vs = sVsData();
    const Tattribute* ends[6] = {&vs.startDistance1, &vs.startDistance2, &vs.startDistance3,
                                 &vs.endDistance1,   &vs.endDistance2,   &vs.endDistance3};
    TdecayRegions r;
    for (int k = 0; k < 3; ++k) {
        r.start[k] = block.inputValue(*ends[k]).asFloat();
        r.end[k] = block.inputValue(*ends[k + 3]).asFloat();
    }
    return inIlluminationRegion(distance, r);
}

float TspotLightShape::coneRamp(float c) const {
    // Cosines fall as the angle grows: the outer edge has the smaller one.
    return rampBetween(-c, -fInnerCosine, -fOuterCosine);
}

bool TspotLightShape::calculateBarnDoorDropOff(TdataBlock&, float c, T4dFltVector direction, float& value) const {
    float cone = coneRamp(c);
    if (cone <= 0) {
        value = 0;
        return false;
    }
    if (!fDoorsCut) {
        value *= cone;
        return true;
    }
    // Doors reach 90 degrees at most: nothing behind the light's plane passes them.
    if (c <= 0) {
        value = 0;
        return false;
    }
    // The side coordinates as tangents of the angles from the axis.
    T3Float d(direction.x, direction.y, direction.z);
    T3Float p = fAxis * c - d;
    float right = -dot(p, fRight) / c, up = -dot(p, fUp) / c;
    const float side[4] = {-right, right, up, -up};  // left, right, top, bottom
    float deepest = 1;
    for (int k = 0; k < 4; ++k) deepest = std::min(deepest, rampBetween(side[k], fDoorInnerTangent[k], fDoorOuterTangent[k]));
    value *= cone * deepest;
    if (deepest > 0) return true;
    value = 0;
    return false;
}

double TspotLightShape::coneEdges(double& outer, double& inner) {
    const TspotLightShapeVS& vs = sVsData();
    double cone = 0.6981317, penumbra = 0;
    getAttributeValue(&vs.coneAngle, &cone);
    getAttributeValue(&vs.penumbraAngle, &penumbra);
    double half = 0.5 * clampToRange(vs.coneAngle, cone);
    penumbra = clampToRange(vs.penumbraAngle, penumbra);
    // A positive penumbra widens the cone outward, a negative one narrows it inward.
    outer = std::min(half + std::max(penumbra, 0.0), kPi);
    inner = std::max(half + std::min(penumbra, 0.0), 0.0);
    if (outer - inner < kMinPenumbraGap) {
        inner = outer - kMinPenumbraGap;
        if (inner < 0) inner = 0, outer = kMinPenumbraGap;
    }
    return half;
}

int TspotLightShape::shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) {
    const Tmatrix world = placement();
    const T3Float position = world.transformPoint({0, 0, 0});
    const T3Float axis = normalize(world.transformVector(kIlluminationDirection));
    const T3Float up = world.transformVector({0, 1, 0});
    double outer, inner;
    coneEdges(outer, inner);
    const int resolution = shadowMapResolution();
    // One perspective map over the whole cone, a few texels wider so that a
    // filter at the rim stays inside; past 85 degrees a single map would
    // spread its texels too thin, so the view stops there.
    const double reach = std::min(outer, 85.0 * kPi / 180.0);
    const float tangent = float(std::tan(reach)) * float(resolution) / float(resolution - 2 * shadowMapMargin());
    float nearClip, farClip;
    shadowMapClipRange(casters, position, nullptr, nearClip, farClip);
    views[0] = TshadowMapView::sPerspective(position, axis, up, tangent, resolution, nearClip, farClip);
    return 1;
}

void TspotLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonExtendedLightShape::shadingNodeOnDemand(plug, block);
    const TspotLightShapeVS& vs = sVsData();
    Tmatrix toCamera = fWorld * worldToCamera();
    fAxis = fastNormalize(toCamera.transformVector(kIlluminationDirection));
    fRight = fastNormalize(toCamera.transformVector({1, 0, 0}));
    fUp = fastNormalize(toCamera.transformVector({0, 1, 0}));

    bool doors = false;
    getAttributeValue(&vs.barnDoors, &doors);
    double outer, inner;
    const double half = coneEdges(outer, inner);
    fOuterHalfAngle = outer;
    fInnerHalfAngle = inner;
    fOuterCosine = float(std::cos(outer));
    fInnerCosine = float(std::cos(inner));

    const Tattribute* doorAttrs[4] = {&vs.leftBarnDoor, &vs.rightBarnDoor, &vs.topBarnDoor, &vs.bottomBarnDoor};
    double gap = outer - inner;
    fDoorsCut = false;
    for (int k = 0; k < 4; ++k) {
        double angle = 0.3490659;
        getAttributeValue(doorAttrs[k], &angle);
        angle = clampToRange(*doorAttrs[k], angle);
        fDoorAngle[k] = angle;
        fDoorOuterTangent[k] = float(std::tan(angle));
        fDoorInnerTangent[k] = float(std::tan(std::max(angle - gap, -kMaxDoorAngle)));
        // A door at or beyond the half cone has no effect.
        if (angle < half) fDoorsCut = doors;
    }
}

float TspotLightShape::fogWeight(const T3Float& a, const T3Float& b, float fogSpread, short decayRate) const {
    T3Float ua = fastNormalize(a), ub = fastNormalize(b);
    float x = 1 - (1 + dot(ua, ub)) / 2;
    // The angle the segment spans against the cone's own.
    float span = 2 - 2 * fOuterCosine;
    float w = span > 0 ? std::min(x / span, 1.0f) : 1.0f;
    if (w < 0) return 0;
    // Fade towards the cone's edge, by the middle of the segment's angle to the axis.
    T3Float mid = (a + b) * 0.5f;
    float lateral = std::sqrt(mid.x * mid.x + mid.y * mid.y);
    float r = std::fabs(float(std::atan2(lateral, -mid.z) / fOuterHalfAngle));
    float edge = fogSpread * 0.5f + 0.2f;
    float fade = r < edge || edge >= 1 ? 0.0f : 2 * (r - edge) * (1 - edge);
    float spread = std::max(fogSpread, kMinFogSpread);
    float density = std::pow(w, float(decayRate + 1) / spread);
    return density * std::max(1 - fade, 0.0f);
}

// ---------------------------------------------------------------- editing

unsigned TspotLightShape::addModifiedClient(TmodifiedClient client) {
    fClients.emplace_back(fNextClient, std::move(client));
    return fNextClient++;
}

void TspotLightShape::removeModifiedClient(unsigned id) {
    std::erase_if(fClients, [id](const auto& c) { return c.first == id; });
}

bool TspotLightShape::setDependentsDirty(TmsgDirty& msg) {
    const Tattribute* a = msg.plug().attribute();
    if (hardRangeOf(a) && !sourceOf(msg.plug()))
        if (void* value = storage(a)) a->setNumericValue(value, clampToRange(*a, a->numericValue(value)));
    setDirty(msg);
    return TnonExtendedLightShape::setDependentsDirty(msg);
}

void TspotLightShape::setDirty(TmsgDirty& msg) {
    if (fClients.empty()) return;
    const TspotLightShapeVS& vs = sVsData();
    const Tattribute* a = msg.plug().attribute();
    TspotModifiedMsg::Kind kind;
    if (a == &vs.coneAngle) kind = TspotModifiedMsg::kConeAngle;
    else if (a == &vs.penumbraAngle) kind = TspotModifiedMsg::kPenumbraAngle;
    else if (a == &vs.dropoff) kind = TspotModifiedMsg::kDropoff;
    else if (a == &vs.barnDoors || a == &vs.leftBarnDoor || a == &vs.rightBarnDoor || a == &vs.topBarnDoor || a == &vs.bottomBarnDoor)
        kind = TspotModifiedMsg::kBarnDoors;
    else return;
    // A client may remove itself while it is told.
    auto clients = fClients;
    for (auto& [id, client] : clients) client({kind, this});
}

void TspotLightShape::analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) {
    TrenderLightShape::analyse(group, desc, context, mask);
    analyzeLightFog(*this, attrFogGeometry(), mask);
}

// ---------------------------------------------------------------- compute

void TspotLightShape::computeColorMap(TdataBlock& block, unsigned first, unsigned count) {
    // A slide through the cone: the outer edge's circle fills the unit square.
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle u = block.outputValue(TlightShape::saUCoord(), first, count);
    TdataHandle v = block.outputValue(TlightShape::saVCoord(), first, count);
    TdataHandle filter = block.outputValue(TlightShape::saUvFilterSize(), first, count);
    TdataHandle bits = block.outputValue(TlightShape::saInfoBits(), first, count);
    Tmatrix toLight = worldToCamera().inverse() * fWorldInverse;
    float scale = float(0.5 / std::tan(std::min(fOuterHalfAngle, kMaxProjectionAngle)));
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p = toLight.transformPoint(points.asFloat3(i));
        bool ahead = -p.z > kUnitThreshold;
        u.asFloat(i) = ahead ? 0.5f + scale * p.x / -p.z : kOutsideTexture;
        v.asFloat(i) = ahead ? 0.5f + scale * p.y / -p.z : kOutsideTexture;
        filter.asFloat2(i) = {kColorMapFilter, kColorMapFilter};
        bits.asInt(i) |= kColorMapInfoBit;
    }
}

bool TspotLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a == &TlightShape::saUCoord() || a == &TlightShape::saVCoord() || a == &TlightShape::saUvFilterSize() ||
        a == &TlightShape::saInfoBits()) {
        computeColorMap(block, first, count);
        return true;
    }
    if (a != &TlightShape::saLightData()) return TnonExtendedLightShape::vectorComputePlug(plug, block, first, count);

    const TspotLightShapeVS& vs = sVsData();
    TdataHandle intensityIn = block.inputValue(TlightShape::saIntensity(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle decay = block.inputValue(attrDecayRate(), first, count);
    TdataHandle objectType = block.inputValue(vs.objectType, first, count);
    TdataHandle infoBits = block.inputValue(TlightShape::saInfoBits(), first, count);
    TdataHandle receive = block.inputValue(attrReceiveShadows(), first, count);
    TdataHandle objectId = block.inputValue(vs.objectId, first, count);
    TdataHandle near = block.inputValue(vs.pointWorld.whole, first, count);
    TdataHandle far = block.inputValue(vs.farPointWorld.whole, first, count);
    TdataHandle fogSpread = block.inputValue(vs.fogSpread, first, count);
    TdataHandle fogIntensity = block.inputValue(vs.fogIntensity, first, count);
    TdataHandle radius = block.inputValue(attrLightRadius(), first, count);
    TdataHandle dropoff = block.inputValue(vs.dropoff, first, count);
    TdataHandle useRegions = block.inputValue(vs.useDecayRegions, first, count);
    const Tattribute* regionEnds[6] = {&vs.startDistance1, &vs.startDistance2, &vs.startDistance3,
                                       &vs.endDistance1,   &vs.endDistance2,   &vs.endDistance3};
    TdataHandle ends[6];
    for (int k = 0; k < 6; ++k) ends[k] = block.inputValue(*regionEnds[k], first, count);

    bool doShadow = batchCastsShadows(objectType.as<char>(first), infoBits.asInt(first), receive.asBool(first));
    T3Float position(fPosition.x, fPosition.y, fPosition.z);
    for (unsigned start = first; start < first + count; start += kBatchSize) {
        unsigned n = std::min(first + count - start, kBatchSize);
        float intensity[kBatchSize], distance[kBatchSize];
        TscratchArray<T3Float, kBatchSize> toLight, fogNear, fogFar;
        // A batch is one object: the light's own fog or not.
        const bool ownFog = fFogObject && objectId.as<void*>(start) == fFogObject;
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            intensity[k] = intensityIn.asFloat(i);
            const float dist = directionToLight(position, points.asFloat3(i), toLight[k]);
            distance[k] = dist;
            // Every sample's ends, so the fog's shadows read no unset one.
            if (ownFog) {
                fogNear[k] = near.asFloat3(i);
                fogFar[k] = far.asFloat3(i);
            }
            void* object = objectId.as<void*>(i);
            if (fFogObject && object == fFogObject) {
                T3Float a0 = fWorldInverse.transformPoint(near.asFloat3(i));
                T3Float b0 = fWorldInverse.transformPoint(far.asFloat3(i));
                intensity[k] *= fogWeight(a0, b0, fogSpread.asFloat(i), decay.asShort(i)) * fogIntensity.asFloat(i);
                continue;
            }
            // The cone terms, then decay.
            T3Float out = toLight[k] * -1.0f;
            float c = dot(out, fAxis);
            double drop = std::max(dropoff.as<double>(i), 0.0);
            if (drop > 0) intensity[k] *= c > 0 ? float(std::pow(double(c), drop)) : 0.0f;
            calculateBarnDoorDropOff(block, c, T4dFltVector{out.x, out.y, out.z, 0}, intensity[k]);
            if (useRegions.asBool(i)) {
                TdecayRegions r;
                for (int e = 0; e < 3; ++e) r.start[e] = ends[e].asFloat(i), r.end[e] = ends[e + 3].asFloat(i);
                if (!inIlluminationRegion(dist, r)) intensity[k] = 0;
            }
            intensity[k] *= decayFactor(decay.asShort(i), dist);
        }
        if (ownFog && doShadow) fogSegmentShadows(block, start, n, fogNear, fogFar, intensity);
        finishRecords(block, start, n, toLight, distance, intensity, doShadow && !ownFog, radius.asFloat(first), false);
    }
    block.setClean(TlightShape::saLightData());
    return true;
}
