#include "utilities/remap.h"

#include <cstring>

#include "framework/render_utilities.h"

SN_REGISTER_NODE_CLASS(TdnRemapValue)
SN_REGISTER_NODE_CLASS(TdnRemapColor)
SN_REGISTER_NODE_CLASS(TdnRemapHsv)

// ---------------------------------------------------------------- curves

namespace {
std::string suffixed(const char* name, const char* suffix) { return std::string(name) + suffix; }

void addInterpFields(TattributeEnum& interp) {
    addFields(interp, {{"kNone", "None"}, {"kLinear", "Linear"}, {"kSmooth", "Smooth"}, {"kSpline", "Spline"}});
    interp.setNativeDefaultData(TcurveKey::kLinear);
}

// Reads each existing element of a curve multi through its children's places
// in the element.
template <class Value>
bool readKeys(TdataBlock& block, const TattributeCompound& whole, const TattributeFloat& position, const Tattribute& value,
              const TattributeEnum& interp, TcurveKeys& keys, unsigned sample, Value readValue) {
    unsigned indices[TcurveKeys::kMaxKeys];
    unsigned n = block.multiIndices(whole, indices, TcurveKeys::kMaxKeys);
    keys.count = 0;
    bool varies = false;
    for (unsigned e = 0; e < n && e < TcurveKeys::kMaxKeys; ++e) {
        TdataHandle h = block.elementValue(whole, indices[e]);
        if (h.isNull()) continue;
        varies = varies || h.isVariable();
        const char* base = static_cast<const char*>(h.element(sample));
        TcurveKey& k = keys.keys[keys.count++];
        std::memcpy(&k.position, base + position.offsetInParent(), sizeof(float));
        k.value = readValue(base + value.offsetInParent());
        std::memcpy(&k.interp, base + interp.offsetInParent(), sizeof(short));
    }
    keys.sort();
    return varies;
}
}  // namespace

void TcurveKeys::sort() {
    // Insertion sort: few keys, and equal positions keep their index order.
    for (unsigned i = 1; i < count; ++i) {
        TcurveKey k = keys[i];
        unsigned j = i;
        while (j > 0 && keys[j - 1].position > k.position) {
            keys[j] = keys[j - 1];
            --j;
        }
        keys[j] = k;
    }
}

float TcurveKeys::evaluate(float t, int c) const {
    if (count == 0) return t;
    if (t <= keys[0].position) return keys[0].value[c];
    if (t >= keys[count - 1].position) return keys[count - 1].value[c];
    unsigned k = 0;
    while (k + 1 < count && keys[k + 1].position <= t) ++k;
    const TcurveKey &a = keys[k], &b = keys[k + 1];
    float span = b.position - a.position;
    float u = span > 0 ? (t - a.position) / span : 0.0f;
    float v0 = a.value[c], v1 = b.value[c];
    switch (a.interp) {
        case TcurveKey::kNone: return v0;
        case TcurveKey::kSmooth: return v0 + (v1 - v0) * (u * u * (3.0f - 2.0f * u));
        case TcurveKey::kSpline: {
            // Catmull-Rom through the neighbouring keys, the end keys doubled.
            float vm = k > 0 ? keys[k - 1].value[c] : v0;
            float vp = k + 2 < count ? keys[k + 2].value[c] : v1;
            return 0.5f * (2.0f * v0 + (v1 - vm) * u + (2.0f * vm - 5.0f * v0 + 4.0f * v1 - vp) * u * u +
                           (3.0f * v0 - vm - 3.0f * v1 + vp) * u * u * u);
        }
        default: return v0 + (v1 - v0) * u;
    }
}

TfloatCurveAttribute::TfloatCurveAttribute(const char* name, const char* shortName, TiffTag tag)
    : TfloatCurveAttribute(name, shortName, tag, tag.withLast('P'), tag.withLast('F'), tag.withLast('I')) {}

TfloatCurveAttribute::TfloatCurveAttribute(const char* name, const char* shortName, TiffTag tag, TiffTag positionTag,
                                           TiffTag valueTag, TiffTag interpTag)
    : whole(name, shortName, tag),
      position(suffixed(name, "_Position"), suffixed(shortName, "p"), positionTag),
      floatValue(suffixed(name, "_FloatValue"), suffixed(shortName, "fv"), valueTag),
      interp(suffixed(name, "_Interp"), suffixed(shortName, "i"), interpTag) {
    whole.setMulti(true);
    position.setParent(&whole);
    floatValue.setParent(&whole);
    interp.setParent(&whole);
    addInterpFields(interp);
}

bool TfloatCurveAttribute::read(TdataBlock& block, TcurveKeys& keys, unsigned sample) const {
    return readKeys(block, whole, position, floatValue, interp, keys, sample, [](const char* p) {
        float v;
        std::memcpy(&v, p, sizeof v);
        return T3Float(v, v, v);
    });
}

TcolorCurveAttribute::TcolorCurveAttribute(const char* name, const char* shortName, TiffTag tag)
    : TcolorCurveAttribute(name, shortName, tag, tag.withLast('P'), tag.withLast('C'), tag.withLast('I')) {}

TcolorCurveAttribute::TcolorCurveAttribute(const char* name, const char* shortName, TiffTag tag, TiffTag positionTag,
                                           TiffTag colorTag, TiffTag interpTag)
    : whole(name, shortName, tag),
      position(suffixed(name, "_Position"), suffixed(shortName, "p"), positionTag),
      color(suffixed(name, "_Color").c_str(), suffixed(shortName, "c").c_str(), colorTag),
      interp(suffixed(name, "_Interp"), suffixed(shortName, "i"), interpTag) {
    whole.setMulti(true);
    position.setParent(&whole);
    color.whole.setParent(&whole);
    interp.setParent(&whole);
    addInterpFields(interp);
}

bool TcolorCurveAttribute::read(TdataBlock& block, TcurveKeys& keys, unsigned sample) const {
    return readKeys(block, whole, position, color.whole, interp, keys, sample, [](const char* p) {
        T3Float v;
        std::memcpy(&v, p, sizeof v);
        return v;
    });
}

// ---------------------------------------------------------------- remapValue

bool TdnVSRemapValue::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&inputValue, &range.inputMin, &range.inputMax, &range.outputMin, &range.outputMax, &value.whole}, {&outValue});
    affects(m, {&inputValue, &range.inputMin, &range.inputMax, &range.outputMin, &range.outputMax, &color.whole},
            {&outColor.whole});
    return true;
}

bool TdnRemapValue::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    bool wantsColor = a == &attrOutColor();
    if (a != &attrOutValue() && !wantsColor) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle x = block.inputValue(attrInputValue(), first, count);
    TdataHandle inMin = block.inputValue(attrInputMin(), first, count);
    TdataHandle inMax = block.inputValue(attrInputMax(), first, count);
    TdataHandle outMin = block.inputValue(attrOutputMin(), first, count);
    TdataHandle outMax = block.inputValue(attrOutputMax(), first, count);
    TcurveKeys keys;
    auto read = [&](unsigned sample) { return wantsColor ? fsVs->color.read(block, keys, sample) : fsVs->value.read(block, keys, sample); };
    // Keys that vary per sample are read again for each sample.
    bool varies = read(first);
    TdataHandle out = block.outputValue(*a, first, count);
    for (unsigned i = first; i < first + count; ++i) {
        if (varies && i != first) read(i);
        float t = TremapRange::sParameter(x.asFloat(i), inMin.asFloat(i), inMax.asFloat(i));
        float lo = outMin.asFloat(i), hi = outMax.asFloat(i);
        if (wantsColor) {
            T3Float c = keys.evaluate3(t);
            out.asFloat3(i) = T3Float(TremapRange::sOutput(c.x, lo, hi), TremapRange::sOutput(c.y, lo, hi),
                                      TremapRange::sOutput(c.z, lo, hi));
        } else {
            out.asFloat(i) = TremapRange::sOutput(keys.evaluate(t, 0), lo, hi);
        }
    }
    block.setClean(*a);
    return true;
}

// ---------------------------------------------------------------- remapColor, remapHsv

namespace {
// out = convertBack(remap(convert(color))) with one curve per channel.
template <class To, class From>
void remapChannels(TdataBlock& block, const TdataHandle& color, const TremapRange& range, const TfloatCurveAttribute* curves[3],
                   const Tattribute& output, unsigned first, unsigned count, To to, From from) {
    TdataHandle inMin = block.inputValue(range.inputMin, first, count);
    TdataHandle inMax = block.inputValue(range.inputMax, first, count);
    TdataHandle outMin = block.inputValue(range.outputMin, first, count);
    TdataHandle outMax = block.inputValue(range.outputMax, first, count);
    TcurveKeys keys[3];
    bool varies[3];
    for (int c = 0; c < 3; ++c) varies[c] = curves[c]->read(block, keys[c], first);
    TdataHandle out = block.outputValue(output, first, count);
    for (unsigned i = first; i < first + count; ++i) {
        for (int c = 0; c < 3; ++c)
            if (varies[c] && i != first) curves[c]->read(block, keys[c], i);
        T3Float v = to(color.asFloat3(i));
        T3Float r;
        for (int c = 0; c < 3; ++c) {
            float t = TremapRange::sParameter(v[c], inMin.asFloat(i), inMax.asFloat(i));
            r[c] = TremapRange::sOutput(keys[c].evaluate(t, 0), outMin.asFloat(i), outMax.asFloat(i));
        }
        out.asFloat3(i) = from(r);
    }
    block.setClean(output);
}
}  // namespace

bool TdnVSRemapColor::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&color.whole, &range.inputMin, &range.inputMax, &range.outputMin, &range.outputMax, &red.whole, &green.whole, &blue.whole},
            {&outColor.whole});
    return true;
}

bool TdnRemapColor::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    const TfloatCurveAttribute* curves[3] = {&fsVs->red, &fsVs->green, &fsVs->blue};
    auto same = [](const T3Float& v) { return v; };
    remapChannels(block, block.inputValue(attrColor(), first, count), fsVs->range, curves, attrOutColor(), first, count, same, same);
    return true;
}

bool TdnVSRemapHsv::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&color.whole, &range.inputMin, &range.inputMax, &range.outputMin, &range.outputMax, &hue.whole, &saturation.whole,
                &value.whole},
            {&outColor.whole});
    return true;
}

bool TdnRemapHsv::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    const TfloatCurveAttribute* curves[3] = {&fsVs->hue, &fsVs->saturation, &fsVs->value};
    auto toHsv = [](const T3Float& rgb) {
        T3Float hsv = TrenderUtilities::RGBtoHSV(rgb);
        hsv.x /= 360.0f;
        return hsv;
    };
    auto toRgb = [](T3Float hsv) {
        hsv.x *= 360.0f;
        return TrenderUtilities::HSVtoRGB(hsv);
    };
    remapChannels(block, block.inputValue(attrColor(), first, count), fsVs->range, curves, attrOutColor(), first, count, toHsv, toRgb);
    return true;
}
