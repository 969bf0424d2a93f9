#include "volumes/volume_fog.h"

#include <algorithm>
#include <cmath>

#include "materials/light_reader.h"
#include "materials/material_support.h"
#include "materials/surface_rays.h"
#include "shading/shading_types.h"
#include "volumes/sky_fog.h"

SN_REGISTER_NODE_CLASS(TdnVolumeFog)

namespace {
// Transparencies at or below this count as this, so that extinctions stay finite.
constexpr float kLeastTransparency = 0.00001f;
constexpr float kPi = 3.1415927f;

float smoothStep(float v) {
    if (v < 0) return 0;
    if (v >= 1) return 1;
    return std::sin((v - 0.5f) * kPi) * 0.5f + 0.5f;
}

// The weight of a light seen along the ray: 1 for a scatter of 1 or more,
// else the bias curve of the angle between ray and light.
float scatterWeight(float scatter, const T3Float& ray, const T3Float& toLight) {
    if (scatter >= 1) return 1;
    const double c = 0.5 + 0.5 * double(dot(ray, toLight));
    return float(TskyFog::applyBias(c, 2.0 * scatter - 1.0));
}

void setRange(Tattribute& a, double low, double high) {
    a.setSoftMin(low);
    a.setSoftMax(high);
}
}  // namespace

TdnVSVolumeFog::TdnVSVolumeFog() {
    for (TtripleAttribute* a : {&rayDirection, static_cast<TtripleAttribute*>(&pointWorld), static_cast<TtripleAttribute*>(&farPointWorld),
                                static_cast<TtripleAttribute*>(&pointObj), static_cast<TtripleAttribute*>(&farPointObj)})
        declareSampleInput(*a);
    matrixWorldToEye.setFlag(kAttrHidden, true);
    lightDataArray.setMulti(true);
    lightDataArray.makeImplicitInput();

    color.setDefault(1, 1, 1);
    colorRampInput.addField("kConstant", "Ignore", TdnVolumeFog::kConstant);
    colorRampInput.addField("kTransparency", "Transparency", TdnVolumeFog::kTransparency);
    colorRampInput.addField("kConcentric", "Concentric", TdnVolumeFog::kConcentric);
    colorRampInput.addField("kRampY", "Y Gradient", TdnVolumeFog::kRampY);
    transparency.setDefault(0.5f, 0.5f, 0.5f);
    density.setNativeDefaultData(1.0);
    setRange(density, 0, 10);
    densityMode.addField("kWorldSpace", "WorldSpace", TdnVolumeFog::kWorldSpace);
    densityMode.addField("kObjectSpace", "ObjectSpace", TdnVolumeFog::kObjectSpace);
    densityMode.setNativeDefaultData(TdnVolumeFog::kObjectSpace);
    dropoffShape.addField("kOff", "Off", TdnVolumeFog::kOff);
    dropoffShape.addField("kSphereFade", "Sphere", TdnVolumeFog::kSphereFade);
    dropoffShape.addField("kCubeFade", "Cube", TdnVolumeFog::kCubeFade);
    dropoffShape.addField("kConeFade", "Cone", TdnVolumeFog::kConeFade);
    dropoffShape.addField("kLightConeFade", "LightCone", TdnVolumeFog::kLightConeFade);
    edgeDropoff.setNativeDefaultData(0.5);
    setRange(edgeDropoff, 0, 1);
    axialDropoff.setNativeDefaultData(1.0);
    setRange(axialDropoff, 0, 1);
    dropoffMethod.addField("kTranspFade", "Scale Opacity", TdnVolumeFog::kTranspFade);
    dropoffMethod.addField("kSubDensity", "Subtract Density", TdnVolumeFog::kSubDensity);
    dropoffSubtract.setNativeDefaultData(2.0);
    setRange(dropoffSubtract, 0, 10);
    illuminated.setNativeDefaultData(0.0);
    lightScatter.setNativeDefaultData(1.0);
    setRange(lightScatter, 0, 1);
    setRange(glowIntensity, 0, 1);
    outGlowColor.setFlag(kAttrWritable | kAttrStorable | kAttrKeyable, false);
}

bool TdnVSVolumeFog::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    for (Tattribute* a : ownAttributes())
        if (!a->parent() && a != io.outputs[0] && a != io.outputs[1] && a != io.outputs[2] && a != &outGlowColor.whole)
            affects(m, {a}, {io.outputs[0], io.outputs[1], io.outputs[2], &outGlowColor.whole});
    return true;
}

void TdnVolumeFog::getGlowIntensity(float& value) { value = surfaceGlowIntensity(*this, attrGlowIntensity()); }

float TdnVolumeFog::dropoff(short shape, const T3Float& c, float edge, float axial) {
    const bool cone = shape == kConeFade || shape == kLightConeFade;
    if (shape == kOff || !(edge < 1 || (cone && axial < 1))) return 1;
    const float span = 1 - edge;
    if (shape == kSphereFade) return smoothStep((1 - length(c)) / span);
    if (shape == kCubeFade) {
        const float qx = (1 - std::fabs(c.x)) / span, qy = (1 - std::fabs(c.y)) / span, qz = (1 - std::fabs(c.z)) / span;
        if (qx < 0 || qy < 0 || qz < 0) return 0;
        return smoothStep(qx) * smoothStep(qy) * smoothStep(qz);
    }
    if (!cone) return 1;
    const float r = 2 * std::sqrt(c.x * c.x + c.y * c.y), z = std::fabs(c.z);
    const float v = shape == kLightConeFade ? (z > 0 ? r / z : 2.0f) : (1 - z) + r;
    float f = edge < 1 ? smoothStep((1 - v) / span) : 1.0f;
    if (axial < 1) {
        const float b = 2 * axial - 1;
        if (b == 0) f *= 1 - z;
        else if (b == -1) f = 0;
        else if (b != 1) f *= float(TskyFog::applyBias(1 - z, b));
    }
    return f;
}

bool TdnVolumeFog::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const TdnVSVolumeFog& vs = *fsVs;
    if (a != vs.io.outputs[0] && a != vs.io.outputs[1] && a != vs.io.outputs[2] && a != &vs.outGlowColor.whole)
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle ray = block.inputValue(vs.rayDirection.whole, first, count);
    TdataHandle nearWorld = block.inputValue(vs.pointWorld.whole, first, count);
    TdataHandle farWorld = block.inputValue(vs.farPointWorld.whole, first, count);
    TdataHandle nearObject = block.inputValue(vs.pointObj.whole, first, count);
    TdataHandle farObject = block.inputValue(vs.farPointObj.whole, first, count);
    TdataHandle color = block.inputValue(vs.color.whole, first, count);
    TdataHandle rampInput = block.inputValue(vs.colorRampInput, first, count);
    TdataHandle transparency = block.inputValue(vs.transparency.whole, first, count);
    TdataHandle incandescence = block.inputValue(vs.incandescence.whole, first, count);
    TdataHandle glowIntensity = block.inputValue(vs.glowIntensity, first, count);
    TdataHandle density = block.inputValue(vs.density, first, count);
    TdataHandle space = block.inputValue(vs.densityMode, first, count);
    TdataHandle shape = block.inputValue(vs.dropoffShape, first, count);
    TdataHandle edge = block.inputValue(vs.edgeDropoff, first, count);
    TdataHandle axial = block.inputValue(vs.axialDropoff, first, count);
    TdataHandle method = block.inputValue(vs.dropoffMethod, first, count);
    TdataHandle subtract = block.inputValue(vs.dropoffSubtract, first, count);
    TdataHandle lit = block.inputValue(vs.illuminated, first, count);
    TdataHandle scatter = block.inputValue(vs.lightScatter, first, count);
    TdataHandle outColor = block.outputValue(vs.io.outColor.whole, first, count);
    TdataHandle outTransparency = block.outputValue(vs.io.outTransparency.whole, first, count);
    TdataHandle outGlow = block.outputValue(vs.outGlowColor.whole, first, count);

    TcurveKeys ramp;
    const bool rampVaries = vs.colorRamp.read(block, ramp, first);
    const bool anyLit = lit.asBool(first);
    TlightReader lights(block, vs.lightDataArray);

    for (unsigned i = first; i < first + count; ++i) {
        T3Float t = transparency.asFloat3(i), inc = incandescence.asFloat3(i);
        float rho = density.asFloat(i);
        const T3Float mid = (nearObject.asFloat3(i) + farObject.asFloat3(i)) * 0.5f;
        const float f = dropoff(shape.asShort(i), mid, edge.asFloat(i), axial.asFloat(i));
        if (f < 1) {
            if (method.asShort(i) == kTranspFade)
                t = {1 - (1 - t.x) * f, 1 - (1 - t.y) * f, 1 - (1 - t.z) * f};
            else
                rho -= (1 - f) * subtract.asFloat(i);
            inc = inc * f;
        }
        const float pathLength = length(farWorld.asFloat3(i) - nearWorld.asFloat3(i));
        float s[3], out[3];
        for (int c = 0; c < 3; ++c) {
            s[c] = -std::log(std::max((&t.x)[c], kLeastTransparency)) * rho;
            out[c] = s[c] > 0 ? std::exp(-pathLength * s[c]) : 1.0f;
        }

        T3Float base = color.asFloat3(i);
        if (anyLit && lit.asBool(i)) {
            // Diffuse and ambient records alike, each weighted by the scatter.
            const T3Float dir = normalize(ray.asFloat3(i));
            T3Float sum(0, 0, 0);
            for (unsigned l = 0; l < lights.count(); ++l) {
                const TlightData& d = lights.record(l, i);
                const float terms = float(d.lightAmbient) + float(d.lightDiffuse);
                if (terms == 0) continue;
                sum = sum + d.lightIntensity * (terms * scatterWeight(scatter.asFloat(i), dir, d.lightDirection));
            }
            base = {base.x * sum.x, base.y * sum.y, base.z * sum.z};
        }
        T3Float result;
        for (int c = 0; c < 3; ++c) (&result.x)[c] = s[c] > 0 ? (1 - out[c]) * (&base.x)[c] + (&inc.x)[c] : (&inc.x)[c];

        const short input = rampInput.asShort(i);
        if (input != kConstant) {
            const bool objectSpace = space.asShort(i) == kObjectSpace;
            const T3Float p0 = objectSpace ? nearObject.asFloat3(i) : nearWorld.asFloat3(i);
            const T3Float p1 = objectSpace ? farObject.asFloat3(i) : farWorld.asFloat3(i);
            const float x = input == kTransparency ? (out[0] + out[1] + out[2]) / 3
                            : input == kConcentric ? 0.3f * length(p0 + p1)
                                                   : (p0.y + p1.y) * 0.25f + 0.5f;
            if (rampVaries) vs.colorRamp.read(block, ramp, i);
            const T3Float k = ramp.count ? ramp.evaluate3(x) : T3Float(1, 1, 1);
            result = {result.x * k.x, result.y * k.y, result.z * k.z};
        }
        outColor.asFloat3(i) = result;
        outTransparency.asFloat3(i) = {out[0], out[1], out[2]};
        const bool clear = out[0] >= kNoGlowTransparency && out[1] >= kNoGlowTransparency && out[2] >= kNoGlowTransparency;
        outGlow.asFloat3(i) = clear ? T3Float(0, 0, 0) : result * glowIntensity.asFloat(i);
    }
    writeFogMatte(block, vs.io, first, count);
    for (const Tattribute* out : vs.io.outputs) block.setClean(*out);
    block.setClean(vs.outGlowColor.whole);
    return true;
}
