#include "materials/specular.h"

#include <cmath>
#include <cstring>

#include "framework/scratch_array.h"
#include "materials/light_reader.h"
#include "materials/material_support.h"
#include "materials/shading_math.h"
#include "materials/specular_lobes.h"
#include "shading/light_callbacks.h"
#include "shading/render_pass_control.h"

SN_REGISTER_NODE_CLASS(TdnPhong)
SN_REGISTER_NODE_CLASS(TdnPhongE)
SN_REGISTER_NODE_CLASS(TdnBlinn)
SN_REGISTER_NODE_CLASS(TdnAnisotropy)
SN_REGISTER_NODE_CLASS(TdnHairTubeShader)

// ---------------------------------------------------------------- the shared skeleton

template <class Lobe>
void TdnReflect::shadeSpecular(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count, const Lobe& lobe) {
    const int pass = currentRenderPassControl;
    TscratchArray<T3Float, kChunk> S;
    TdataHandle outColor = block.outputValue(attrOutColor(), start, count);
    // Found once: the diffuse and the specular terms read the same lights.
    const TlightReader lights(block, attrLightData());
    if (pass != kPassShadow) {
        computeReflection(plug, block, start, count);
        TdataHandle reflectivity = settledOrRead(fReflectivity, block, attrReflectivity(), start, count);
        for (unsigned i = start; i < start + count; ++i)
            S[i - start] = outColor.asFloat3(i) * (reflectivity.asFloat(i) * lobe.reflectionScale(i));
    }
    computeLambert(plug, block, start, count, lights);
    if (pass != kPassShadow && pass != kPassAmbientOnly) {
        if (pass != kPassNoSpecular) {
            TdataHandle view = block.inputValue(attrRayDirection(), start, count);
            TdataHandle normal = block.inputValue(attrNormalCamera(), start, count);
            TdataHandle point = block.inputValue(attrPointCamera(), start, count);
            TdataHandle depth = block.inputValue(attrRayDepth(), start, count);
            TdataHandle specularity = settledOrRead(fSpecularity, block, attrReflectionSpecularity(), start, count);
            for (unsigned i = start; i < start + count; ++i) {
                const T3Float& V = view.asFloat3(i);
                const T3Float& N = normal.asFloat3(i);
                const T3Float R = unitOrSelf(mirror(V, N));
                const bool primary = depth.asInt(i) == 0;
                const float secondaryWeight = specularity.asFloat(i);
                if (!primary && !(secondaryWeight > 0)) continue;
                for (unsigned k = 0; k < lights.count(); ++k) {
                    const TlightData& d = lights.record(k, i);
                    if (!d.lightSpecular) continue;
                    T3Float L = d.lightDirection;
                    float a = 1.0f;
                    if (auto* callback = static_cast<TlightCallbacks*>(d.lightBlindData)) {
                        T4dFltVector v4 = asVector4(V);
                        L = asFloat3(callback->maxPhongSpecularDirection(asVector4(L), asPoint4(point.asFloat3(i)), asVector4(R),
                                                                         asVector4(N), &v4));
                        a = callback->lightAttenuation(asPoint4(point.asFloat3(i)), asVector4(N), false);
                    }
                    if (!(dot(L, N) > 0)) continue;
                    T3Float contribution = mul(d.lightIntensity, lobe.weight(i, L, V, N, R)) * a;
                    S[i - start] = S[i - start] + (primary ? contribution : contribution * secondaryWeight);
                }
            }
        }
        const TsurfaceAttributes surface = this->surface();
        TdataHandle specularColor = settledOrRead(fSpecularColor, block, attrSpecularColor(), start, count);
        TdataHandle hide = surfaceSetting(surface, &TsettledSurface::hideSource, attrHideSource(), block, start, count);
        TdataHandle glow = surfaceSetting(surface, &TsettledSurface::glowIntensity, attrGlowIntensity(), block, start, count);
        TdataHandle outGlow = block.outputValue(attrOutGlowColor(), start, count);
        for (unsigned i = start; i < start + count; ++i) {
            T3Float s = lobe.finish(i, mul(S[i - start], specularColor.asFloat3(i)));
            if (hide.asBool(i))
                outColor.asFloat3(i) = T3Float();
            else if (pass == kPassSpecularOnly)
                outColor.asFloat3(i) = s;
            else
                outColor.asFloat3(i) = outColor.asFloat3(i) + s;
            outGlow.asFloat3(i) = (outGlow.asFloat3(i) + s) * glow.asFloat(i);
        }
    }
    computeBlackHole(plug, block, start, count);
}

namespace {
// What every lobe has unless it says otherwise.
struct TlobeBase {
    float reflectionScale(unsigned) const { return 1.0f; }
    T3Float finish(unsigned, const T3Float& s) const { return s; }
};

}  // namespace

// Runs `shade(s, n)` over the chunks when the plug is a colour output and
// marks both clean; other plugs go to the Lambert surface.
#define SN_SPECULAR_COMPUTE(Class, shade)                                                                   \
    bool Class::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {   \
        const Tattribute* a = plug.attribute()->rootParent();                                               \
        if (a != &attrOutColor() && a != &attrOutGlowColor()) return TdnReflect::vectorComputePlug(plug, block, start, count); \
        forEachChunk(start, count, [&](unsigned s, unsigned n) { shade; });                                 \
        block.setClean(attrOutColor());                                                                     \
        block.setClean(attrOutGlowColor());                                                                 \
        return true;                                                                                        \
    }

// ---------------------------------------------------------------- phong

TdnVSPhong::TdnVSPhong() {
    cosinePower.setNativeDefaultData(20);
    cosinePower.setSoftMin(2);
    cosinePower.setSoftMax(100);
}

bool TdnVSPhong::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&cosinePower}, {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

void TdnPhong::getCosPower(float& value) { getAttributeValue(&attrCosinePower(), &value); }

namespace {
struct TphongLobe : TlobeBase {
    TdataHandle power;
    T3Float weight(unsigned i, const T3Float& L, const T3Float&, const T3Float&, const T3Float& R) const {
        return splat(phongLobe(dot(L, R), power.asFloat(i)));
    }
};
}  // namespace

SN_SPECULAR_COMPUTE(TdnPhong, {
    TphongLobe lobe;
    lobe.power = settledOrRead(fPower, block, attrCosinePower(), s, n);
    shadeSpecular(plug, block, s, n, lobe);
})

// ---------------------------------------------------------------- phongE

TdnVSPhongE::TdnVSPhongE() {
    roughness.setNativeDefaultData(0.5);
    roughness.setSoftMin(0);
    roughness.setSoftMax(1);
    highlightSize.setNativeDefaultData(0.5);
    highlightSize.setSoftMin(0);
    highlightSize.setSoftMax(1);
    whiteness.setDefault(0.5f, 0.5f, 0.5f);
    miWhiteness.setDefault(0.5f, 0.5f, 0.5f);
}

bool TdnVSPhongE::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&roughness, &highlightSize, &whiteness.whole}, {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

namespace {
struct TphongELobe : TlobeBase {
    TdataHandle roughness, size, whiteness;
    T3Float weight(unsigned i, const T3Float& L, const T3Float&, const T3Float&, const T3Float& R) const {
        float s = phongELobe(dot(L, R), roughness.asFloat(i), size.asFloat(i));
        return phongETint(s, whiteness.asFloat3(i));
    }
};
}  // namespace

SN_SPECULAR_COMPUTE(TdnPhongE, {
    TphongELobe lobe;
    lobe.roughness = settledOrRead(fRoughness, block, attrRoughness(), s, n);
    lobe.size = settledOrRead(fSize, block, attrHighlightSize(), s, n);
    lobe.whiteness = settledOrRead(fWhiteness, block, attrWhiteness(), s, n);
    shadeSpecular(plug, block, s, n, lobe);
})

// ---------------------------------------------------------------- blinn

TdnVSBlinn::TdnVSBlinn() {
    eccentricity.setNativeDefaultData(0.3);
    eccentricity.setSoftMin(0);
    eccentricity.setSoftMax(0.9999);
    specularRollOff.setNativeDefaultData(0.7);
    specularRollOff.setSoftMin(0);
    specularRollOff.setSoftMax(1);
    reflectionRolloff.setNativeDefaultData(1);
    reflectionRolloff.setFlag(kAttrKeyable, false);
}

bool TdnVSBlinn::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&eccentricity, &specularRollOff, &reflectionRolloff}, {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

void TdnBlinn::getEccentricity(float& value) { getAttributeValue(&attrEccentricity(), &value); }
void TdnBlinn::setEccentricity(float& value) { setAttributeValue(&attrEccentricity(), &value); }

namespace {
struct TblinnLobe : TlobeBase {
    TdataHandle eccentricity, rollOff, reflectionRolloff, view, normal;
    T3Float weight(unsigned i, const T3Float& L, const T3Float& V, const T3Float& N, const T3Float&) const {
        return splat(blinnLobe(L, V, N, eccentricity.asFloat(i), rollOff.asFloat(i)));
    }
    float reflectionScale(unsigned i) const {
        return reflectionRolloff.asBool(i) ? blinnViewRollOff(view.asFloat3(i), normal.asFloat3(i), rollOff.asFloat(i)) : 1.0f;
    }
};
}  // namespace

void TdnBlinn::computeBlinn(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) {
    TblinnLobe lobe;
    lobe.eccentricity = settledOrRead(fEccentricity, block, attrEccentricity(), start, count);
    lobe.rollOff = settledOrRead(fRollOff, block, attrSpecularRollOff(), start, count);
    lobe.reflectionRolloff = settledOrRead(fReflectionRolloff, block, attrReflectionRolloff(), start, count);
    lobe.view = block.inputValue(attrRayDirection(), start, count);
    lobe.normal = block.inputValue(attrNormalCamera(), start, count);
    shadeSpecular(plug, block, start, count, lobe);
}

SN_SPECULAR_COMPUTE(TdnBlinn, computeBlinn(plug, block, s, n))

// ---------------------------------------------------------------- anisotropic

namespace {
// The two surface tangents, fed by the sample; U along x and V along y
// when a scalar query leaves them unset.
void declareTangents(TtripleAttribute& u, TtripleAttribute& v) {
    declareSampleInput(u);
    declareSampleInput(v);
    u.setDefault(1, 0, 0);
    v.setDefault(0, 1, 0);
}
}  // namespace

TdnVSAnisotropy::TdnVSAnisotropy() {
    declareTangents(tangentUCamera, tangentVCamera);
    spreadX.setNativeDefaultData(13);
    spreadX.setSoftMin(0.1);
    spreadX.setSoftMax(100);
    spreadY.setNativeDefaultData(3);
    spreadY.setSoftMin(0.1);
    spreadY.setSoftMax(100);
    roughness.setNativeDefaultData(0.7);
    roughness.setSoftMin(0.01);
    roughness.setSoftMax(1);
    angle.setSoftMin(0);
    angle.setSoftMax(360);
    fresnelRefractiveIndex.setNativeDefaultData(6);
    fresnelRefractiveIndex.setSoftMin(1);
    fresnelRefractiveIndex.setSoftMax(20);
    anisotropicReflectivity.setNativeDefaultData(1);
    anisotropicReflectivity.setFlag(kAttrKeyable, false);
    miSpreadX.setNativeDefaultData(10);
    miSpreadY.setNativeDefaultData(5);
}

bool TdnVSAnisotropy::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&tangentUCamera.whole, &tangentVCamera.whole, &spreadX, &spreadY, &roughness, &angle, &fresnelRefractiveIndex,
                &anisotropicReflectivity},
            {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

namespace {
struct TanisotropicLobe : TlobeBase {
    TdataHandle tangentU, tangentV, spreadX, spreadY, roughness, angle, index, reflective, view, normal;
    T3Float weight(unsigned i, const T3Float& L, const T3Float& V, const T3Float& N, const T3Float&) const {
        TanisotropicFrame frame = anisotropicFrame(tangentU.asFloat3(i), tangentV.asFloat3(i), N, angle.asFloat(i));
        return splat(anisotropicLobe(L, V, frame, spreadX.asFloat(i), spreadY.asFloat(i), roughness.asFloat(i), index.asFloat(i)));
    }
    float reflectionScale(unsigned i) const {
        if (!reflective.asBool(i)) return 1.0f;
        return anisotropicReflectionWeight(view.asFloat3(i), normal.asFloat3(i), roughness.asFloat(i), index.asFloat(i));
    }
};
}  // namespace

SN_SPECULAR_COMPUTE(TdnAnisotropy, {
    TanisotropicLobe lobe;
    lobe.tangentU = block.inputValue(attrTangentUCamera(), s, n);
    lobe.tangentV = block.inputValue(attrTangentVCamera(), s, n);
    lobe.spreadX = block.inputValue(attrSpreadX(), s, n);
    lobe.spreadY = block.inputValue(attrSpreadY(), s, n);
    lobe.roughness = block.inputValue(attrRoughness(), s, n);
    lobe.angle = block.inputValue(attrAngle(), s, n);
    lobe.index = block.inputValue(attrFresnelRefractiveIndex(), s, n);
    lobe.reflective = block.inputValue(attrAnisotropicReflectivity(), s, n);
    lobe.view = block.inputValue(attrRayDirection(), s, n);
    lobe.normal = block.inputValue(attrNormalCamera(), s, n);
    shadeSpecular(plug, block, s, n, lobe);
})

// ---------------------------------------------------------------- hair tube

TdnVSHairTubeShader::TdnVSHairTubeShader() {
    declareTangents(tangentUCamera, tangentVCamera);
    tubeDirection.addField("kUTangent", "U Tanget", 0);
    tubeDirection.addField("kVTangent", "V Tangent", 1);
    colorScalePosition.setParent(&colorScale);
    colorScaleValue.setParent(&colorScale);
    colorScale.setMulti(true);
    specularPower.setNativeDefaultData(20);
    specularPower.setSoftMin(2);
    specularPower.setSoftMax(100);
    specularShift.setNativeDefaultData(5);
    specularShift.setSoftMin(0);
    specularShift.setSoftMax(20);
    scatterPower.setNativeDefaultData(5);
    scatterPower.setSoftMin(2);
    scatterPower.setSoftMax(50);
    scatter.setNativeDefaultData(0.2);
    scatter.setSoftMin(0);
    scatter.setSoftMax(1);
}

bool TdnVSHairTubeShader::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&tangentUCamera.whole, &tangentVCamera.whole, &uvCoord.whole, &tubeDirection, &colorScale, &specularPower,
                &specularShift, &scatterPower, &scatter},
            {&TdnLambert::saOutColor(), &TdnLambert::saOutGlowColor()});
    return true;
}

namespace {
// The scale curve read once per batch: keys sorted by position, linear
// between them, flat beyond the ends; 1 with no keys.
struct TscaleCurve {
    static constexpr unsigned kMaxKeys = 32;
    float position[kMaxKeys], value[kMaxKeys];
    unsigned count = 0;

    void read(TdataBlock& block, const Tattribute& curve, const Tattribute& positionAttr, const Tattribute& valueAttr, unsigned sample) {
        unsigned indices[kMaxKeys];
        unsigned n = std::min(block.multiIndices(curve, indices, kMaxKeys), kMaxKeys);
        for (unsigned k = 0; k < n; ++k) {
            TdataHandle h = block.elementValue(curve, indices[k]);
            if (h.isNull()) continue;
            const auto* bytes = static_cast<const unsigned char*>(h.element(sample));
            float p, v;
            std::memcpy(&p, bytes + positionAttr.offsetInParent(), sizeof p);
            std::memcpy(&v, bytes + valueAttr.offsetInParent(), sizeof v);
            unsigned at = count++;
            while (at > 0 && position[at - 1] > p) {  // insertion keeps the keys sorted
                position[at] = position[at - 1];
                value[at] = value[at - 1];
                --at;
            }
            position[at] = p;
            value[at] = v;
        }
    }
    float at(float x) const {
        if (count == 0) return 1.0f;
        if (x <= position[0]) return value[0];
        for (unsigned k = 1; k < count; ++k)
            if (x <= position[k]) {
                float span = position[k] - position[k - 1];
                float t = span > 0 ? (x - position[k - 1]) / span : 1.0f;
                return value[k - 1] + (value[k] - value[k - 1]) * t;
            }
        return value[count - 1];
    }
};

struct ThairLobe : TlobeBase {
    TdataHandle tangentU, tangentV, direction, power, shift, scatterPower, scatter, uv;
    TscaleCurve curve;
    T3Float weight(unsigned i, const T3Float& L, const T3Float& V, const T3Float& N, const T3Float&) const {
        const T3Float& t = direction.asShort(i) == TdnHairTubeShader::kVTangent ? tangentV.asFloat3(i) : tangentU.asFloat3(i);
        return splat(hairLobe(L, V, t, N, power.asFloat(i), shift.asFloat(i), scatterPower.asFloat(i), scatter.asFloat(i)));
    }
    T3Float finish(unsigned i, const T3Float& s) const { return s * curve.at(uv.asFloat2(i).y); }
};
}  // namespace

SN_SPECULAR_COMPUTE(TdnHairTubeShader, {
    ThairLobe lobe;
    lobe.tangentU = block.inputValue(attrTangentUCamera(), s, n);
    lobe.tangentV = block.inputValue(attrTangentVCamera(), s, n);
    lobe.direction = block.inputValue(attrTubeDirection(), s, n);
    lobe.power = block.inputValue(attrSpecularPower(), s, n);
    lobe.shift = block.inputValue(attrSpecularShift(), s, n);
    lobe.scatterPower = block.inputValue(attrScatterPower(), s, n);
    lobe.scatter = block.inputValue(attrScatter(), s, n);
    lobe.uv = block.inputValue(attrUvCoord(), s, n);
    lobe.curve.read(block, attrColorScale(), attrColorScalePosition(), attrColorScaleValue(), s);
    shadeSpecular(plug, block, s, n, lobe);
})
