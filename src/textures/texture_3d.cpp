#include "textures/texture_3d.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"
#include "textures/texture_2d.h"

SN_REGISTER_NODE_CLASS(TdnTx3D)

TdnVSTx3D::TdnVSTx3D() {
    const TfltMatrix identity;
    placementMatrix.setDefaultBytes(&identity, sizeof identity);
    matrixEyeToWorld.setDefaultBytes(&identity, sizeof identity);
    wrap.setNativeDefaultData(1.0);
    filter.setNativeDefaultData(1.0);
    colorGain.setDefault(1, 1, 1);
    alphaGain.setNativeDefaultData(1.0);
    defaultColor.setDefault(0.5f, 0.5f, 0.5f);
    blend.setSoftMin(0);
    blend.setSoftMax(1);
    outColor.setFlag(kAttrWritable, false);
    outAlpha.setFlag(kAttrWritable, false);
}

bool TdnVSTx3D::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m,
            {&pointObj.whole, &pointCamera.whole, &filterSize.whole, &placementMatrix, &matrixEyeToWorld, &blend, &local, &wrap,
             &filter, &filterOffset, &invert, &alphaIsLuminance, &colorGain.whole, &colorOffset.whole, &alphaGain, &alphaOffset,
             &defaultColor.whole},
            {&outColor.whole, &outAlpha});
    return true;
}

void TdnVSTx3D::affectsOutputs(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs) {
    TdnVSTx3D& base = TdnTx3D::sVsData();
    for (const Tattribute* in : inputs) base.affects(m, {in}, {&base.outColor.whole, &base.outAlpha});
}

Tattribute* TdnTx3D::alternateAttr(const Tattribute* a) {
    if (!a) return nullptr;
    const Tstring& name = a->longName();
    if (name == Tstring("color")) return &attrOutColor();
    if (name == Tstring("alpha") || name == Tstring("transparency")) return &attrOutAlpha();
    if (name == Tstring("point")) return &attrPointCamera();
    return nullptr;
}

bool TdnTx3D::isColorOutput(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && (a->rootParent() == &saOutColor() || a == &saOutAlpha());
}

T3Float TdnTx3D::sPlacePoint(const T3Float& pointObj, const T3Float& pointCamera, bool local, const TfltMatrix& eyeToWorld,
                             const TfltMatrix& placement) {
    if (local) return placement.transformPoint(pointObj);
    return placement.transformPoint(eyeToWorld.transformPoint(pointCamera));
}

float TdnTx3D::sComputeBlend(const T3Float& p, float blend) {
    if (blend < 1e-05f) return 0.0f;
    constexpr float kPi = 3.1415927f;
    float product = 1.0f;
    for (int axis = 0; axis < 3; ++axis) {
        float t = std::min((1.0f - std::fabs(p[axis])) / blend, 1.0f);
        product *= (std::cos(kPi * (t + 1.0f)) + 1.0f) * 0.5f;
    }
    return 1.0f - product;
}

float TdnTx3D::computeBlend(TdataBlock& block, const T3Float& p) {
    if (block.inputValue(saWrap()).asBool()) return 0.0f;
    return sComputeBlend(p, block.inputValue(saBlend()).asFloat());
}

void TdnTx3D::setToDefaultColor(TdataBlock& block) {
    T3Float c = block.inputValue(saDefaultColor()).asFloat3();
    block.outputValue(saOutColor()).asFloat3() = c;
    block.outputValue(saOutAlpha()).asFloat() = luminance(c);
}

bool TdnTx3D::checkOutside(TdataBlock& block, const T3Float& p, bool wrap) {
    if (!sOutside(p, wrap)) return false;
    setToDefaultColor(block);
    return true;
}

float TdnTx3D::filteredSize(const T3Float& size, float filter, float filterOffset) {
    return std::fabs(std::max({size.x, size.y, size.z}) * std::max(0.0f, filter) + filterOffset);
}

void TdnTx3D::sColorEffects(const Ttx3dEffects& e, float b, T3Float& colour, float& alpha) {
    if (e.invert) {
        colour = T3Float(1.0f - colour.x, 1.0f - colour.y, 1.0f - colour.z);
        alpha = 1.0f - alpha;
    }
    colour = T3Float(colour.x * e.gain.x + e.offset.x, colour.y * e.gain.y + e.offset.y, colour.z * e.gain.z + e.offset.z);
    alpha = alpha * e.alphaGain + e.alphaOffset;
    if (b > 0.0f) {
        colour = e.defaultColor * b + colour * (1.0f - b);
        alpha *= 1.0f - b;
    }
}

void TdnTx3D::colorEffects(TdataBlock& block, float b, T3Float& colour, float& alpha) {
    Ttx3dEffects e;
    e.invert = block.inputValue(saInvert()).asBool();
    e.gain = block.inputValue(saColorGain()).asFloat3();
    e.offset = block.inputValue(saColorOffset()).asFloat3();
    e.alphaGain = block.inputValue(saAlphaGain()).asFloat();
    e.alphaOffset = block.inputValue(saAlphaOffset()).asFloat();
    e.defaultColor = block.inputValue(saDefaultColor()).asFloat3();
    sColorEffects(e, b, colour, alpha);
}

float TdnTx3D::recurrence(const T3Float& p, float levels, float ratio) {
    levels = std::max(levels, 0.0f);
    int n = int(std::floor(levels));
    float sum = 0.0f, amplitude = 1.0f;
    T3Float q = p;
    for (int i = 0; i <= n; ++i) {
        float w = i == n ? amplitude * (levels - float(n)) : amplitude;
        if (w == 0.0f) break;
        // Each octave looks up where the octaves before it have pushed it.
        sum += w * Tnoise::noise3(q.x + sum, q.y + sum, q.z + sum);
        q = q * 2.0f;
        amplitude *= ratio;
    }
    return sum;
}

float TdnTx3D::recurrenceN(const T3Float& p, int octaves) { return recurrence(p, float(std::max(octaves, 0)), 0.5f); }

T3Float TdnTx3D::recurrence3(const T3Float& p, float levels, float ratio) {
    // Offsets far apart on the lattice make the three components unrelated.
    return T3Float(recurrence(p, levels, ratio), recurrence(p + T3Float(0.31f, 0.17f, 0.53f), levels, ratio),
                   recurrence(p + T3Float(0.67f, 0.43f, 0.11f), levels, ratio));
}

TdnVSSolid::TdnVSSolid() {}

bool TdnVSSolid::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&refPointObj.whole, &refPointCamera.whole});
    return true;
}

TdnVSSolidView::TdnVSSolidView() {
    xPixelAngle.setNativeDefaultData(0.002053);
    xPixelAngle.setFlag(kAttrHidden, true);
}

bool TdnVSSolidView::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&xPixelAngle, &normalCamera.whole});
    return true;
}

TsolidOctaveAttributes::TsolidOctaveAttributes() { ripples.setDefault(1, 1, 1); }

namespace {
// The settled value `s` when there is a texture that settled it, else the block's.
template <class T>
TdataHandle solidInput(const TsettledInput<T>* s, TdataBlock& block, const Tattribute& a, unsigned first, unsigned count) {
    return s ? settledOrRead(*s, block, a, first, count) : block.inputValue(a, first, count);
}
}  // namespace

Ttx3dEffectsHandles::Ttx3dEffectsHandles(TdataBlock& block, unsigned first, unsigned count, const TdnTx3D* texture) {
    const TdnTx3D::TsettledSolid* s = texture ? &texture->settledSolid() : nullptr;
    const TsettledColorEffects* e = s ? &s->effects : nullptr;
    invert = solidInput(e ? &e->invert : nullptr, block, TdnTx3D::saInvert(), first, count);
    alphaIsLuminance = solidInput(e ? &e->alphaIsLuminance : nullptr, block, TdnTx3D::saAlphaIsLuminance(), first, count);
    colorGain = solidInput(e ? &e->colorGain : nullptr, block, TdnTx3D::saColorGain(), first, count);
    colorOffset = solidInput(e ? &e->colorOffset : nullptr, block, TdnTx3D::saColorOffset(), first, count);
    alphaGain = solidInput(e ? &e->alphaGain : nullptr, block, TdnTx3D::saAlphaGain(), first, count);
    alphaOffset = solidInput(e ? &e->alphaOffset : nullptr, block, TdnTx3D::saAlphaOffset(), first, count);
    defaultColor = solidInput(s ? &s->defaultColor : nullptr, block, TdnTx3D::saDefaultColor(), first, count);
}

Ttx3dEffects Ttx3dEffectsHandles::at(unsigned i) const {
    Ttx3dEffects e;
    e.invert = invert.asBool(i);
    e.gain = colorGain.asFloat3(i);
    e.offset = colorOffset.asFloat3(i);
    e.alphaGain = alphaGain.asFloat(i);
    e.alphaOffset = alphaOffset.asFloat(i);
    e.defaultColor = defaultColor.asFloat3(i);
    return e;
}

void TdnTx3D::sPlacementScale(const TfltMatrix& placement, float& scale, float& det) {
    scale = 0.0f;
    for (int row = 0; row < 3; ++row) {
        const float* r = placement.m[row];
        scale = std::max(scale, std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]));
    }
    const auto& a = placement.m;
    det = std::fabs(a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
                    a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]));
}

float TdnTx3D::sPixelFootprint(const T3Float& pointCamera, const T3Float& normal, float pixelAngle, float scale, float det,
                               float filter, float filterOffset, float depthFactor) {
    float d = std::fabs(dot(normal, pointCamera));
    if (!(d > 1e-10f)) return 1e10f;
    float z = pointCamera.z;
    float w = (z * z * depthFactor * pixelAngle * scale * det / d) * filter + filterOffset;
    return std::max(w, 1e-08f);
}

float TdnTx3D::sLevels(float width, T2Float depth) {
    float levels = -std::log(width) / 0.6931f;
    if (depth.y > depth.x) levels = std::clamp(levels, depth.x, depth.y);
    return std::clamp(levels, 0.0f, kMaxLevels);
}

float TdnTx3D::sFractalSum(const T3Float& q, float levels, float ratio, const T3Float& ripples, const T3Float& offset,
                           const T3Float& step) {
    int n = int(levels);
    float sum = 0.0f, amplitude = 1.0f;
    T3Float x = q, shift = offset;
    for (int i = 0; i <= n; ++i) {
        float w = i == n ? amplitude * (levels - float(n)) : amplitude;
        if (w == 0.0f) break;
        sum += w * Tnoise::noise3(x.x * ripples.x + shift.x, x.y * ripples.y + shift.y, x.z * ripples.z + shift.z);
        amplitude *= ratio;
        x = x * 2.0f;
        shift = shift + step;
    }
    return sum;
}

T3Float TdnTx3D::sBumpNormal(const T3Float& n, const T3Float& g, float depth) {
    T3Float tangential = g - n * dot(n, g);
    T3Float bent = n - tangential * depth;
    float l = length(bent);
    return l > 1e-12f ? bent * (1.0f / l) : n;
}
