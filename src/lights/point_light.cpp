#include "lights/point_light.h"

#include <algorithm>
#include <cmath>

#include "framework/scratch_array.h"
#include "lights/light_fog.h"
#include "shading/sample.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TpointLightShape)
SN_REGISTER_NODE_CLASS(TdirectionalLightShape)

namespace {
constexpr float kPi = 3.14159265358979f;
}  // namespace

// ---------------------------------------------------------------- point light

TpointLightShapeVS::TpointLightShapeVS() {
    fogRadius.setNativeDefaultData(1.0);
    fogType.addField("Normal", short(0));
    fogType.addField("Linear", short(1));
    fogType.addField("Exponential", short(2));
    fogIntensity.setNativeDefaultData(1.0);
    objectType.makeImplicitInput();
    pointWorld.whole.makeImplicitInput();
    farPointWorld.whole.makeImplicitInput();
    objectId.makeImplicitInput();
    objectId.setFlag(kAttrHidden, true);
    miShadowMap.setParent(&mentalRayControls);
}

bool TpointLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&fogRadius, &objectType, &fogType, &pointWorld.whole, &farPointWorld.whole, &fogIntensity, &objectId},
            {&TlightShape::saLightData()});
    return true;
}

float TpointLightShape::fogWeight(const T3Float& a, const T3Float& b, float radius, short fogType, short decayRate) {
    float len = length(b - a);
    float h = 0.5f * len;
    if (h > radius) return 1.0f;
    float w = len / (2.0f * (radius + radius * radius - h * h));
    switch (fogType) {
        case kExponentialFog:
            return 1.0f - std::pow(1.0f - std::min(w, 1.0f), 1.0f / float(decayRate + 2));
        case kLinearFog:
            if (decayRate > 1) w = 1.0f - std::pow(1.0f - w, 1.0f / float(decayRate));
            return w * w;
        default:
            return decayRate == 2 ? w * w : decayRate == 3 ? w * w * w : w;
    }
}

T2Float TpointLightShape::colorMapCoordinates(const T3Float& pointLight) {
    T3Float p = fastNormalize(pointLight);
    float r = std::sqrt(p.x * p.x + p.z * p.z);
    float v = r == 0 ? 0.5f : std::atan2(p.y, r) / kPi + 0.5f;
    float u = p.x == 0 ? 0.5f : 0.5f * std::atan2(p.x, p.z) / kPi + 0.5f;
    return {u, v};
}

void TpointLightShape::analyse(TDNshadingEngine* group, TSEnodeDescription* desc, void* context, TbitField64& mask) {
    TrenderLightShape::analyse(group, desc, context, mask);
    analyzeLightFog(*this, attrFogGeometry(), mask);
}

bool TpointLightShape::setDependentsDirty(TmsgDirty& msg) {
    // The external renderer's shadow map excludes ray-traced shadows the same way.
    const Tattribute* a = msg.plug().attribute();
    const Tattribute* other = a == &attrMiShadowMap()                        ? &TlightShape::saUseRayTraceShadows()
                              : a == &TlightShape::saUseRayTraceShadows() ? &attrMiShadowMap()
                                                                          : nullptr;
    if (other && *static_cast<const bool*>(storage(a)) && *static_cast<const bool*>(storage(other))) {
        bool off = false;
        setAttributeValue(other, &off);
    }
    return TnonExtendedLightShape::setDependentsDirty(msg);
}

bool TpointLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a == &TlightShape::saUCoord() || a == &TlightShape::saVCoord() || a == &TlightShape::saUvFilterSize() ||
        a == &TlightShape::saInfoBits()) {
        TdataHandle points = block.inputValue(attrPointCamera(), first, count);
        TdataHandle u = block.outputValue(TlightShape::saUCoord(), first, count);
        TdataHandle v = block.outputValue(TlightShape::saVCoord(), first, count);
        TdataHandle filter = block.outputValue(TlightShape::saUvFilterSize(), first, count);
        TdataHandle bits = block.outputValue(TlightShape::saInfoBits(), first, count);
        Tmatrix toLight = worldToCamera().inverse() * fWorldInverse;
        for (unsigned i = first; i < first + count; ++i) {
            T2Float uv = colorMapCoordinates(toLight.transformPoint(points.asFloat3(i)));
            u.asFloat(i) = uv.x;
            v.asFloat(i) = uv.y;
            filter.asFloat2(i) = {kColorMapFilter, kColorMapFilter};
            bits.asInt(i) |= kColorMapInfoBit;
        }
        return true;
    }
    if (a != &TlightShape::saLightData()) return TnonExtendedLightShape::vectorComputePlug(plug, block, first, count);

    TdataHandle intensityIn = block.inputValue(TlightShape::saIntensity(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle decay = block.inputValue(attrDecayRate(), first, count);
    TdataHandle objectType = block.inputValue(attrObjectType(), first, count);
    TdataHandle infoBits = block.inputValue(TlightShape::saInfoBits(), first, count);
    TdataHandle receive = block.inputValue(attrReceiveShadows(), first, count);
    TdataHandle objectId = block.inputValue(attrObjectId(), first, count);
    TdataHandle near = block.inputValue(attrPointWorld(), first, count);
    TdataHandle far = block.inputValue(attrFarPointWorld(), first, count);
    TdataHandle fogRadius = block.inputValue(attrFogRadius(), first, count);
    TdataHandle fogType = block.inputValue(attrFogType(), first, count);
    TdataHandle fogIntensity = block.inputValue(attrFogIntensity(), first, count);
    TdataHandle radius = block.inputValue(attrLightRadius(), first, count);

    // Shadows are a batch decision: a batch is one object.
    bool doShadow = batchCastsShadows(objectType.as<char>(first), infoBits.asInt(first), receive.asBool(first));
    T3Float position(fPosition.x, fPosition.y, fPosition.z);
    for (unsigned start = first; start < first + count; start += kBatchSize) {
        unsigned n = std::min(first + count - start, kBatchSize);
        float intensity[kBatchSize], distance[kBatchSize];
        TscratchArray<T3Float, kBatchSize> toLight, fogNear, fogFar;
        // A batch is one object: the light's own fog or not.
        const bool ownFog = fFogObject && objectId.as<void*>(start) == fFogObject;
        for (unsigned k = 0; k < n; ++k) intensity[k] = intensityIn.asFloat(start + k);
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            const float dist = directionToLight(position, points.asFloat3(i), toLight[k]);
            distance[k] = dist;
            // Every sample's ends, so the fog's shadows read no unset one.
            if (ownFog) {
                fogNear[k] = near.asFloat3(i);
                fogFar[k] = far.asFloat3(i);
            }
            void* object = objectId.as<void*>(i);
            if (fFogObject && object == fFogObject) {
                T3Float a0 = fWorldToFog.transformPoint(near.asFloat3(i));
                T3Float b0 = fWorldToFog.transformPoint(far.asFloat3(i));
                intensity[k] *= fogWeight(a0, b0, fogRadius.asFloat(i), fogType.asShort(i), decay.asShort(i)) * fogIntensity.asFloat(i);
            } else {
                intensity[k] *= decayFactor(decay.asShort(i), dist);
            }
        }
        if (ownFog && doShadow) fogSegmentShadows(block, start, n, fogNear, fogFar, intensity);
        finishRecords(block, start, n, toLight, distance, intensity, doShadow && !ownFog, radius.asFloat(first), false);
    }
    block.setClean(TlightShape::saLightData());
    return true;
}

int TpointLightShape::shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) {
    const Tmatrix world = placement();
    const T3Float position = world.transformPoint({0, 0, 0});
    const T3Float x = normalize(world.transformVector({1, 0, 0})), y = normalize(world.transformVector({0, 1, 0})),
                  z = normalize(world.transformVector({0, 0, 1}));
    struct Face {
        const Tattribute* flag;
        T3Float axis, up;
    };
    const TnonExtendedLightShapeVS& vs = TnonExtendedLightShape::sVsData();
    const Face faces[kMaxShadowMapViews] = {{&vs.useXPlusDmap, x, y},        {&vs.useXMinusDmap, x * -1.0f, y},
                                            {&vs.useYPlusDmap, y, z * -1.0f}, {&vs.useYMinusDmap, y * -1.0f, z},
                                            {&vs.useZPlusDmap, z, y},        {&vs.useZMinusDmap, z * -1.0f, y}};
    const int resolution = shadowMapResolution();
    // Each face reaches a few texels past 90 degrees so that a filter at a
    // face's edge stays within the face.
    const float tangent = float(resolution) / float(resolution - 2 * shadowMapMargin());
    float nearClip, farClip;
    shadowMapClipRange(casters, position, nullptr, nearClip, farClip);
    int n = 0;
    for (const Face& face : faces) {
        bool on = true;
        getAttributeValue(face.flag, &on);
        if (on) views[n++] = TshadowMapView::sPerspective(position, face.axis, face.up, tangent, resolution, nearClip, farClip);
    }
    return n;
}

// ---------------------------------------------------------------- directional light

int TdirectionalLightShape::shadowMapViews(const std::vector<TworldBox>& casters, TshadowMapView* views) {
    const Tmatrix world = placement();
    const T3Float axis = normalize(world.transformVector(kIlluminationDirection));
    const T3Float up = world.transformVector({0, 1, 0});
    const T3Float position = world.transformPoint({0, 0, 0});
    const int resolution = shadowMapResolution();
    const float grow = float(resolution) / float(resolution - 2 * shadowMapMargin());
    bool autoFocus = true;
    float widthFocus = 100;
    getAttributeValue(&attrUseDmapAutoFocus(), &autoFocus);
    getAttributeValue(&attrDmapWidthFocus(), &widthFocus);

    // The casters as the light sees them, in a frame down its direction.
    TworldBox seen;
    const TshadowMapView frame = TshadowMapView::sOrthographic(position, axis, up, 1, resolution, 0, 1);
    for (const TworldBox& box : casters)
        for (int corner = 0; corner < 8 && !box.isEmpty(); ++corner)
            seen.add(frame.worldToView.transformPoint(
                {corner & 1 ? box.max.x : box.min.x, corner & 2 ? box.max.y : box.min.y, corner & 4 ? box.max.z : box.min.z}));
    T3Float origin = position;
    float halfWidth = 0.5f * widthFocus * grow;
    if (autoFocus && !seen.isEmpty()) {
        // Centred on the casters, square, starting just before the nearest.
        const Tmatrix viewToWorld = frame.worldToView.inverse();
        float pad = 0.01f * (seen.max.z - seen.min.z) + 0.001f;
        origin = viewToWorld.transformPoint({0.5f * (seen.min.x + seen.max.x), 0.5f * (seen.min.y + seen.max.y), seen.max.z + pad});
        halfWidth = 0.5f * std::max(seen.max.x - seen.min.x, seen.max.y - seen.min.y) * grow + 0.001f;
    }
    float nearClip, farClip;
    shadowMapClipRange(casters, origin, &axis, nearClip, farClip);
    if (autoFocus && !seen.isEmpty()) nearClip = 0;
    views[0] = TshadowMapView::sOrthographic(origin, axis, up, halfWidth, resolution, nearClip, farClip);
    return 1;
}

TdirectionalLightShapeVS::TdirectionalLightShapeVS() {
    objectType.makeImplicitInput();
    pointWorld.whole.makeImplicitInput();
}

bool TdirectionalLightShapeVS::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&useLightPosition, &objectType, &lightAngle}, {&TlightShape::saLightData()});
    return true;
}

bool TdirectionalLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a != &TlightShape::saLightData()) return TnonExtendedLightShape::vectorComputePlug(plug, block, first, count);
    TdataHandle intensityIn = block.inputValue(TlightShape::saIntensity(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle usePosition = block.inputValue(attrUseLightPosition(), first, count);
    TdataHandle objectType = block.inputValue(attrObjectType(), first, count);
    TdataHandle infoBits = block.inputValue(TlightShape::saInfoBits(), first, count);
    TdataHandle receive = block.inputValue(attrReceiveShadows(), first, count);
    TdataHandle angle = block.inputValue(attrLightAngle(), first, count);

    bool doShadow = batchCastsShadows(objectType.as<char>(first), infoBits.asInt(first), receive.asBool(first));
    T3Float direction(fDirection.x, fDirection.y, fDirection.z);
    T3Float position(fPosition.x, fPosition.y, fPosition.z);
    for (unsigned start = first; start < first + count; start += kBatchSize) {
        unsigned n = std::min(first + count - start, kBatchSize);
        float intensity[kBatchSize], distance[kBatchSize];
        TscratchArray<T3Float, kBatchSize> toLight;
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            toLight[k] = direction;
            distance[k] = 1e30f;
            intensity[k] = intensityIn.asFloat(i);
            // Behind the plane through the light, facing its direction: unlit.
            if (usePosition.asBool(i) && dot(position - points.asFloat3(i), direction) < 0) intensity[k] = 0;
        }
        finishRecords(block, start, n, toLight, distance, intensity, doShadow, angle.asFloat(first), true);
    }
    block.setClean(TlightShape::saLightData());
    return true;
}
