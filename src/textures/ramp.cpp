#include "textures/ramp.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "framework/driven_inputs.h"
#include "framework/render_utilities.h"
#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnRamp)

namespace {
constexpr float kPi = 3.1415927f;
constexpr float kHalfPi = 1.5707964f;
constexpr float kTwoPi = 6.2831855f;
}  // namespace

TdnVSRamp::TdnVSRamp() {
    const char* types[] = {"V Ramp", "U Ramp", "Diagonal Ramp", "Radial Ramp", "Circular Ramp", "Box Ramp", "UV Ramp", "Four Corner Ramp",
                           "Tartan Ramp"};
    const char* typeKeys[] = {"kVRamp", "kURamp", "kDiagRamp", "kRadialRamp", "kCircularRamp", "kBoxRamp", "kUVRamp", "kFourRamp", "kTartanRamp"};
    for (short i = 0; i < 9; ++i) type.addField(typeKeys[i], types[i], i);
    const char* interps[] = {"None", "Linear", "Exponential Up", "Exponential Down", "Smooth", "Bump", "Spike"};
    const char* interpKeys[] = {"kNoInterp", "kLinearInterp", "kExpUpInterp", "kExpDnInterp", "kSmoothInterp", "kBumpInterp", "kSpikeInterp"};
    for (short i = 0; i < 7; ++i) interpolation.addField(interpKeys[i], interps[i], i);
    interpolation.setNativeDefaultData(1.0);
    colorEntryList.setMulti(true);
    position.setParent(&colorEntryList);
    color.whole.setParent(&colorEntryList);
    color.setDefault(1, 1, 1);
    position.setSoftMin(0);
    position.setSoftMax(1);
    for (TattributeFloat* a : {&uWave, &vWave, &noise, &hueNoise, &satNoise, &valNoise}) {
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
    for (TattributeFloat* a : {&noiseFreq, &hueNoiseFreq, &satNoiseFreq, &valNoiseFreq}) {
        a->setNativeDefaultData(0.5);
        a->setSoftMin(0);
        a->setSoftMax(1);
    }
}

bool TdnVSRamp::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&type, &interpolation, &colorEntryList, &uWave, &vWave, &noise, &noiseFreq, &hueNoise, &satNoise,
                                  &valNoise, &hueNoiseFreq, &satNoiseFreq, &valNoiseFreq});
    return true;
}

void TdnRamp::computeOutputColor(short interp, float value, float low, float high, const T3Float& L, const T3Float& H, T3Float& out) {
    if (low < 0.0f) {
        out = H;
        return;
    }
    if (high > 1.0f || high == low || interp == kNoInterp) {
        out = L;
        return;
    }
    float t = (value - low) / (high - low);
    // Whether the pair rises, summed over the channels in this exact order.
    float rise = (H.x - L.x) - L.y - L.z + H.y + H.z;
    float s = t;
    switch (interp) {
        case kExpUpInterp: s = t * t; break;
        case kExpDnInterp: s = 1.0f - (1.0f - t) * (1.0f - t); break;
        case kSmoothInterp: s = (std::cos((t + 1.0f) * kPi) + 1.0f) * 0.5f; break;
        case kBumpInterp: s = rise > 0.0f ? std::sin(t * kHalfPi) : std::sin((t - 1.0f) * kHalfPi) + 1.0f; break;
        case kSpikeInterp: s = rise >= 0.0f ? std::sin((t - 1.0f) * kHalfPi) + 1.0f : std::sin(t * kHalfPi); break;
        default: break;
    }
    out = L + (H - L) * s;
}

void TdnRamp::getRampColourAtValue(short interp, float value, const TrampKeys& keys, T3Float& out) {
    if (keys.count == 0) {
        out = T3Float();
        return;
    }
    if (keys.count == 1) {
        out = keys.colour[0];
        return;
    }
    float low = -1.0f, high = 2.0f;
    T3Float lowColour, highColour;
    for (unsigned k = 0; k < keys.count; ++k) {
        float p = std::min(keys.position[k], 1.0f);
        if (p <= value && p > low) {
            low = p;
            lowColour = keys.colour[k];
        }
        if (p >= value && p < high) {
            high = p;
            highColour = keys.colour[k];
        }
    }
    computeOutputColor(interp, value, low, high, lowColour, highColour, out);
}

void TdnRamp::sortKeys(const TrampKeys& keys, TsortedRampKeys& sorted) {
    sorted.keyCount = keys.count;
    sorted.firstColour = keys.count ? keys.colour[0] : T3Float();
    sorted.count = 0;
    for (unsigned k = 0; k < keys.count; ++k) {
        const float p = std::min(keys.position[k], 1.0f);
        if (std::isnan(p)) continue;  // the scan never settles on it
        float* end = sorted.position + sorted.count;
        const unsigned at = unsigned(std::lower_bound(sorted.position, end, p) - sorted.position);
        if (at < sorted.count && sorted.position[at] == p) continue;  // an earlier key holds the place
        std::copy_backward(sorted.position + at, end, end + 1);
        std::copy_backward(sorted.colour + at, sorted.colour + sorted.count, sorted.colour + sorted.count + 1);
        sorted.position[at] = p;
        sorted.colour[at] = keys.colour[k];
        ++sorted.count;
    }
}

namespace {
// The colour at `value` from sorted keys, as the scan of the list finds it;
// the linear pair, the usual case, is worked out here without the call.
inline T3Float atSorted(short interp, float value, const TsortedRampKeys& keys) {
    if (keys.keyCount < 2) return keys.keyCount ? keys.firstColour : T3Float();
    float low = -1.0f, high = 2.0f;
    T3Float lowColour, highColour;
    if (!std::isnan(value)) {
        const float* p = keys.position;
        const unsigned n = keys.count;
        const unsigned above = unsigned(std::lower_bound(p, p + n, value) - p);  // the first at or above
        if (above < n) {
            high = p[above];
            highColour = keys.colour[above];
        }
        // A lower key at or below -1, which the scan skips, shows the upper
        // key all the same: any lower key below 0 does.
        const unsigned notAbove = above < n && p[above] == value ? above + 1 : above;
        if (notAbove > 0) {
            low = p[notAbove - 1];
            lowColour = keys.colour[notAbove - 1];
        }
    }
    if (interp == TdnRamp::kLinearInterp && low >= 0.0f && high <= 1.0f && high != low)
        return lowColour + (highColour - lowColour) * ((value - low) / (high - low));
    T3Float out;
    TdnRamp::computeOutputColor(interp, value, low, high, lowColour, highColour, out);
    return out;
}

// The settled ramp over a batch for a type whose colour is one lookup at
// valueOf(u, v).
template <class ValueOf>
void settledBatch(const TdataHandle& uv, const TdataHandle& fallback, short interp, const TsortedRampKeys& keys,
                  Ttx2dBatch<0>& batch, ValueOf valueOf) {
    for (unsigned i = batch.first(); i < batch.first() + batch.count(); ++i) {
        const T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        const T3Float c = atSorted(interp, valueOf(wrapToUnit(p.x), wrapToUnit(p.y)), keys);
        batch.setOwn(i, c, luminance(c));
    }
}
}  // namespace

void TdnRamp::getRampColourAtValue(short interp, float value, const TsortedRampKeys& keys, T3Float& out) {
    out = atSorted(interp, value, keys);
}

bool TdnRamp::readKeys(TdataBlock& block, TrampKeys& keys, unsigned sample) {
    const Tattribute& list = saColorEntryList();
    unsigned indices[TrampKeys::kMaxKeys];
    unsigned n = std::min(block.multiIndices(list, indices, TrampKeys::kMaxKeys), TrampKeys::kMaxKeys);
    keys.count = 0;
    bool varies = false;
    for (unsigned k = 0; k < n; ++k) {
        TdataHandle e = block.elementValue(list, indices[k]);
        if (e.isNull()) continue;
        varies = varies || e.isVariable();
        const char* bytes = static_cast<const char*>(e.element(sample));
        std::memcpy(&keys.position[keys.count], bytes + saPosition().offsetInParent(), sizeof(float));
        std::memcpy(&keys.colour[keys.count], bytes + saColor().offsetInParent(), sizeof(T3Float));
        ++keys.count;
    }
    return varies;
}

void TdnRamp::getRampColourAtValue(short interp, float value, TdataBlock& block, T3Float& out, unsigned sample) {
    TrampKeys keys;
    readKeys(block, keys, sample);
    getRampColourAtValue(interp, value, keys, out);
}

void TdnRamp::addDefaultValuesIfEmpty() {
    TuInt32Array indices;
    getExistingMultiAttributeIndices(Tplug(this, &attrColorEntryList(), true), indices);
    if (indices.length()) return;
    setColourEntry(0, 0.0f, T3Float(1, 0, 0));
    setColourEntry(1, 0.5f, T3Float(0, 1, 0));
    setColourEntry(2, 1.0f, T3Float(0, 0, 1));
}

bool TdnRamp::getColourEntry(int index, float& position, T3Float& colour) {
    if (index < 0 || !hasMultiElement(&attrColorEntryList(), unsigned(index))) return false;
    getAttributeValue(&attrPosition(), &position, unsigned(index));
    getAttributeValue(&attrColor(), &colour, unsigned(index));
    return true;
}

void TdnRamp::setPositionOfKey(int index, float position) {
    if (index >= 0) setAttributeValue(&attrPosition(), &position, unsigned(index));
}

void TdnRamp::setColourEntry(int index, float position, const T3Float& colour) {
    if (index < 0) return;
    setAttributeValue(&attrPosition(), &position, unsigned(index));
    setAttributeValue(&attrColor(), &colour, unsigned(index));
}

float TdnRamp::sRampValue(short type, float u, float v) {
    switch (type) {
        case kURamp: return u;
        case kDiagRamp: return (u + v) * 0.5f;
        case kRadialRamp: {
            float x = u - 0.5f, y = v - 0.5f;
            if (std::fabs(x) <= 1e-5f && std::fabs(y) <= 1e-5f) return 0.0f;
            return std::atan2(x, y) / kTwoPi + 0.5f;
        }
        case kCircularRamp: {
            float x = (u - 0.5f) * 1.414f, y = (v - 0.5f) * 1.414f;
            return std::sqrt(x * x + y * y);
        }
        case kBoxRamp: return 2.0f * std::max(std::fabs(u - 0.5f), std::fabs(v - 0.5f));
        default: return v;
    }
}

template <class Keys>
T3Float TdnRamp::colourAt(short type, short interp, float u, float v, const TrampKeys& keys, const Keys& lookup) {
    T3Float c;
    switch (type) {
        case kUVRamp:
        case kTartanRamp: {
            T3Float atY, atX;
            getRampColourAtValue(interp, 2.0f * std::fabs(v - 0.5f), lookup, atY);
            getRampColourAtValue(interp, 2.0f * std::fabs(u - 0.5f), lookup, atX);
            c = type == kUVRamp ? T3Float(atY.x * atX.x, atY.y * atX.y, atY.z * atX.z) : (atY + atX) * 0.5f;
            break;
        }
        case kFourRamp: {
            const float corner[4] = {(1 - u) * (1 - v), (1 - v) * u, (1 - u) * v, u * v};
            for (unsigned k = 0; k < 4 && k < keys.count; ++k) c = c + keys.colour[k] * corner[k];
            break;
        }
        default: getRampColourAtValue(interp, sRampValue(type, u, v), lookup, c); break;
    }
    return c;
}

void TdnRamp::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnodeClass::shadingNodeOnDemand(plug, block);
    if (!fFixed.undriven) return;
    // The values the program holds, which every compute of the render reads.
    TdataHandle type = block.inputValue(attrType(), 0, 1), interp = block.inputValue(attrInterpolation(), 0, 1);
    if (type.isVariable() || interp.isVariable()) return;
    // An amount at or above the threshold turns its noise or wave on.
    for (const Tattribute* a : {&attrUWave(), &attrVWave(), &attrNoise(), &attrHueNoise(), &attrSatNoise(), &attrValNoise()}) {
        TdataHandle amount = block.inputValue(*a, 0, 1);
        if (amount.isVariable() || amount.asFloat(0) >= 1e-5f) return;
    }
    Tfixed& f = fFixedValues;
    f.type = type.asShort(0);
    f.interp = interp.asShort(0);
    if (readKeys(block, f.keys, 0)) return;  // a key varies per sample
    sortKeys(f.keys, f.sorted);
    fFixed.settled = true;
}

bool TdnRamp::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    if (fFixed.settled) {
        // Settled for the render: the UV alone varies.
        const Tfixed& f = fFixedValues;
        TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
        TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
        Ttx2dBatch<0> batch(first, count, this);
        const short type = f.type;
        switch (type) {
            case kVRamp: settledBatch(uv, fallback, f.interp, f.sorted, batch, [](float, float v) { return v; }); break;
            case kURamp: settledBatch(uv, fallback, f.interp, f.sorted, batch, [](float u, float) { return u; }); break;
            case kUVRamp:
            case kTartanRamp:
            case kFourRamp:
                for (unsigned i = first; i < first + count; ++i) {
                    const T2Float p = uv.asFloat2(i);
                    if (isOutsideUv(p)) {
                        batch.setOutside(i, fallback.asFloat3(i));
                        continue;
                    }
                    const T3Float c = colourAt(type, f.interp, wrapToUnit(p.x), wrapToUnit(p.y), f.keys, f.sorted);
                    batch.setOwn(i, c, luminance(c));
                }
                break;
            default:
                settledBatch(uv, fallback, f.interp, f.sorted, batch, [type](float u, float v) { return sRampValue(type, u, v); });
                break;
        }
        batch.finish(block, nullptr, attrOutColor(), attrOutAlpha(), true);
        return true;
    }
    // Keys are read once for the batch, and again for each sample when a
    // key's position or colour is driven per sample.
    TrampKeys keys;
    const bool keysVary = readKeys(block, keys, first);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    TdataHandle type = block.inputValue(attrType(), first, count);
    TdataHandle interp = block.inputValue(attrInterpolation(), first, count);
    TdataHandle uWave = block.inputValue(attrUWave(), first, count);
    TdataHandle vWave = block.inputValue(attrVWave(), first, count);
    TdataHandle noise = block.inputValue(attrNoise(), first, count);
    TdataHandle noiseFreq = block.inputValue(attrNoiseFreq(), first, count);
    TdataHandle hueNoise = block.inputValue(attrHueNoise(), first, count);
    TdataHandle satNoise = block.inputValue(attrSatNoise(), first, count);
    TdataHandle valNoise = block.inputValue(attrValNoise(), first, count);
    TdataHandle hueFreq = block.inputValue(attrHueNoiseFreq(), first, count);
    TdataHandle satFreq = block.inputValue(attrSatNoiseFreq(), first, count);
    TdataHandle valFreq = block.inputValue(attrValNoiseFreq(), first, count);
    Ttx2dBatch<0> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            continue;
        }
        if (keysVary && i != first) readKeys(block, keys, i);
        float u = p.x, v = p.y;
        float n = noise.asFloat(i);
        if (n >= 1e-5f) {
            float f = noiseFreq.asFloat(i);
            float g = Tnoise::noise2(u * f, v * f);
            u += n * g;
            v += n * g;
        }
        float uw = uWave.asFloat(i), vw = vWave.asFloat(i);
        float waveU = u, waveV = v;
        if (uw >= 1e-5f) waveV = v + std::sin(u * 2.0f * kPi) * uw;
        if (vw >= 1e-5f) waveU = u - std::sin(v * 2.0f * kPi) * vw;
        u = waveU;
        v = waveV;
        auto amount = [&](const TdataHandle& a, const TdataHandle& f) {
            float x = a.asFloat(i);
            return x >= 1e-5f ? x * Tnoise::noise2(u * f.asFloat(i), v * f.asFloat(i)) : 0.0f;
        };
        float hn = amount(hueNoise, hueFreq), sn = amount(satNoise, satFreq), vn = amount(valNoise, valFreq);
        bool colourNoise = hueNoise.asFloat(i) >= 1e-5f || satNoise.asFloat(i) >= 1e-5f || valNoise.asFloat(i) >= 1e-5f;
        u = wrapToUnit(u);
        v = wrapToUnit(v);
        T3Float c = colourAt(type.asShort(i), interp.asShort(i), u, v, keys, keys);
        if (colourNoise) {
            T3Float hsv = TrenderUtilities::RGBtoHSV(c);
            hsv.x += hn * 360.0f;
            if (hsv.x > 360.0f) hsv.x -= 360.0f;
            if (hsv.x < 0.0f) hsv.x += 360.0f;
            hsv.y = std::clamp(hsv.y + sn, 0.0f, 1.0f);
            hsv.z = std::clamp(hsv.z + vn, 0.0f, 1.0f);
            c = TrenderUtilities::HSVtoRGB(hsv);
        }
        batch.setOwn(i, c, luminance(c));
    }
    batch.finish(block, nullptr, attrOutColor(), attrOutAlpha(), true);
    return true;
}
