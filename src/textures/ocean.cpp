#include "textures/ocean.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnOcean)

namespace {
constexpr float kPi = 3.1415927f;
constexpr float kTwoPi = 6.2831855f;
}  // namespace

TcurveAttribute::TcurveAttribute(const char* name, const char* shortName, TiffTag tag, const char* posShort, TiffTag posTag,
                                 const char* valShort, TiffTag valTag, const char* interpShort, TiffTag interpTag)
    : whole(name, shortName, tag),
      position(Tstring(name) + Tstring("_Position"), posShort, posTag),
      value(Tstring(name) + Tstring("_FloatValue"), valShort, valTag),
      interp(Tstring(name) + Tstring("_Interp"), interpShort, interpTag) {
    whole.setMulti(true);
    position.setParent(&whole);
    value.setParent(&whole);
    interp.setParent(&whole);
    const char* labels[] = {"None", "Linear", "Smooth", "Spline"};
    const char* keys[] = {"kNone", "kLinear", "kSmooth", "kSpline"};
    for (short i = 0; i < 4; ++i) interp.addField(keys[i], labels[i], i);
    interp.setNativeDefaultData(1.0);
}

TdnVSOcean::TdnVSOcean() {
    scale.setNativeDefaultData(10.0);
    scale.setSoftMax(1000);
    windUV.setNativeDefaultData(1.0f, 1.0f);
    waveDirSpread.setNativeDefaultData(0.2);
    numFrequencies.setNativeDefaultData(3.0);
    numFrequencies.setSoftMax(10);
    waveLengthMin.setNativeDefaultData(0.3);
    waveLengthMax.setNativeDefaultData(4.0);
    foamThreshold.setNativeDefaultData(0.51);
    colorMode.addField("kWaveHeight", "WaveHeight", 0);
    colorMode.addField("kFoam", "Foam", 1);
    colorMode.addField("kFoamOnWaves", "FoamOnWaves", 2);
    outFoam.setFlag(kAttrWritable, false);
}

bool TdnVSOcean::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    std::initializer_list<const Tattribute*> inputs = {&time, &scale, &windUV, &observerSpeed, &waveDirSpread, &numFrequencies,
                                                       &waveLengthMin, &waveLengthMax, &waveHeight.whole, &waveTurbulence.whole,
                                                       &wavePeaking.whole, &foamEmission, &foamThreshold, &colorMode};
    TdnVSTx2D::affectsOutputs(m, inputs);
    TdnVSTx2D& base = TdnTx2D::sVsData();
    affects(m, inputs, {&outFoam});
    affects(m, {&base.uvCoord.whole}, {&outFoam});
    return true;
}

void ToceanCurve::add(float p, float v, short kind) {
    if (count == kMaxKeys) return;
    unsigned k = count;
    while (k > 0 && position[k - 1] > p) {
        position[k] = position[k - 1];
        value[k] = value[k - 1];
        interp[k] = interp[k - 1];
        --k;
    }
    position[k] = p;
    value[k] = v;
    interp[k] = kind;
    ++count;
}

float ToceanCurve::at(float x, float fallback) const {
    if (count == 0) return fallback;
    if (x <= position[0]) return value[0];
    if (x >= position[count - 1]) return value[count - 1];
    unsigned k = 0;
    while (k + 1 < count && position[k + 1] <= x) ++k;
    float span = position[k + 1] - position[k];
    if (span <= 0.0f) return value[k + 1];
    float t = (x - position[k]) / span;
    float a = value[k], b = value[k + 1];
    switch (interp[k]) {
        case kNone: return a;
        case kSmooth: return a + (b - a) * (1.0f - std::cos(t * kPi)) * 0.5f;
        case kSpline: {
            // Catmull-Rom through the neighbours, the end keys repeated.
            float p0 = k > 0 ? value[k - 1] : a, p3 = k + 2 < count ? value[k + 2] : b;
            float t2 = t * t, t3 = t2 * t;
            return 0.5f * (2.0f * a + (b - p0) * t + (2.0f * p0 - 5.0f * a + 4.0f * b - p3) * t2 + (3.0f * a - p0 - 3.0f * b + p3) * t3);
        }
        default: return a + (b - a) * t;
    }
}

void ToceanWaves::build(const ToceanParams& p, const ToceanCurve& heightCurve, const ToceanCurve& turbulenceCurve,
                        const ToceanCurve& peakingCurve) {
    params = p;
    valid = true;
    count = 0;
    totalAmplitude = 0.0f;
    unsigned bands = unsigned(std::clamp(std::lround(p.numFrequencies), 1l, long(kMaxBands)));
    float lo = std::max(std::min(p.waveLengthMin, p.waveLengthMax), 1e-3f);
    float hi = std::max(std::max(p.waveLengthMin, p.waveLengthMax), lo);
    float windLength = std::sqrt(p.wind.x * p.wind.x + p.wind.y * p.wind.y);
    T2Float wind = windLength > 0.0f ? T2Float{p.wind.x / windLength, p.wind.y / windLength} : T2Float{1.0f, 0.0f};
    float windAngle = std::atan2(wind.y, wind.x);
    // The observer travels down the wind.
    drift = T2Float{wind.x * p.observerSpeed * p.time, wind.y * p.observerSpeed * p.time};
    int seed = Tnoise::initialSeedValue();
    for (unsigned b = 0; b < bands; ++b) {
        float x = bands == 1 ? 0.5f : float(b) / float(bands - 1);
        float length = lo * std::pow(hi / lo, (float(b) + 0.5f) / float(bands));
        float hs = std::max(heightCurve.at(x, 1.0f), 0.0f);
        float turbulence = std::clamp(turbulenceCurve.at(x, 0.0f), 0.0f, 1.0f);
        float peak = std::max(peakingCurve.at(x, 0.0f), 0.0f);
        float k = kTwoPi / length;
        float w = std::sqrt(kGravity * k);
        for (unsigned j = 0; j < kWavesPerBand; ++j) {
            float angle = windAngle + (Tnoise::nFrand(seed) * 2.0f - 1.0f) * kPi * p.waveDirSpread;
            float ph = Tnoise::nFrand(seed) * kTwoPi;
            float swell = Tnoise::nFrand(seed) * kTwoPi;
            // Amplitude in proportion to length keeps every band as steep;
            // turbulence lets each wave swell and fade on its own clock.
            float a = length * hs / float(kWavesPerBand);
            a *= (1.0f - turbulence) + turbulence * 0.5f * (1.0f + std::sin(w * p.time * 0.5f + swell));
            direction[count] = T2Float{std::cos(angle), std::sin(angle)};
            wavenumber[count] = k;
            omega[count] = w;
            amplitude[count] = a;
            phase[count] = ph;
            peaking[count] = peak;
            totalAmplitude += a;
            ++count;
        }
    }
}

float ToceanWaves::height(float u, float v) const {
    if (totalAmplitude <= 0.0f) return 0.0f;
    float x = u * params.scale + drift.x, y = v * params.scale + drift.y;
    float h = 0.0f;
    for (unsigned i = 0; i < count; ++i) {
        float theta = wavenumber[i] * (direction[i].x * x + direction[i].y * y) - omega[i] * params.time + phase[i];
        float s = std::sin(theta);
        // Raising the crest's share to a power above 1 narrows the crests and
        // widens the troughs; the range stays -1 to 1.
        if (peaking[i] > 0.0f) s = 2.0f * std::pow((s + 1.0f) * 0.5f, 1.0f + 2.0f * peaking[i]) - 1.0f;
        h += amplitude[i] * s;
    }
    // A phase past the float range (a UV or a time near it) has no sine: the
    // sea lies calm there rather than turning NaN.
    if (!std::isfinite(h)) return 0.0f;
    return std::clamp(h / totalAmplitude, -1.0f, 1.0f);
}

float ToceanWaves::foam(float h01, float emission, float threshold) {
    if (threshold >= 1.0f || emission <= 0.0f) return 0.0f;
    float over = (h01 - threshold) / (1.0f - threshold);
    return std::clamp(over * emission, 0.0f, 1.0f);
}

float TdnOcean::sShown(short colorMode, float h01, float foam) {
    switch (colorMode) {
        case kFoam: return foam;
        case kFoamOnWaves: return h01 + foam * (1.0f - h01);
        default: return h01;
    }
}

static void sReadCurve(TdataBlock& block, const Tattribute& list, const Tattribute& position, const Tattribute& value,
                       const Tattribute& interp, ToceanCurve& curve) {
    unsigned indices[ToceanCurve::kMaxKeys];
    unsigned n = std::min(block.multiIndices(list, indices, ToceanCurve::kMaxKeys), ToceanCurve::kMaxKeys);
    curve.count = 0;
    for (unsigned k = 0; k < n; ++k) {
        TdataHandle e = block.elementValue(list, indices[k]);
        if (e.isNull()) continue;
        const char* bytes = static_cast<const char*>(e.value);
        curve.add(*reinterpret_cast<const float*>(bytes + position.offsetInParent()),
                  *reinterpret_cast<const float*>(bytes + value.offsetInParent()),
                  *reinterpret_cast<const short*>(bytes + interp.offsetInParent()));
    }
}

void TdnOcean::readCurves(TdataBlock& block, ToceanCurve& height, ToceanCurve& turbulence, ToceanCurve& peaking) {
    sReadCurve(block, saWaveHeight(), saWaveHeightPosition(), saWaveHeightFloatValue(), saWaveHeightInterp(), height);
    sReadCurve(block, saWaveTurbulence(), saWaveTurbulencePosition(), saWaveTurbulenceFloatValue(), saWaveTurbulenceInterp(),
               turbulence);
    sReadCurve(block, saWavePeaking(), saWavePeakingPosition(), saWavePeakingFloatValue(), saWavePeakingInterp(), peaking);
}

bool TdnOcean::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    bool foamPlug = plug.attribute() == &attrOutFoam();
    if (!isColorOutput(plug) && !foamPlug) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    ToceanCurve heightCurve, turbulenceCurve, peakingCurve;
    readCurves(block, heightCurve, turbulenceCurve, peakingCurve);
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle fallback = block.inputValue(attrDefaultColor(), first, count);
    TdataHandle h[] = {block.inputValue(attrTime(), first, count),           block.inputValue(attrScale(), first, count),
                       block.inputValue(attrWindUV(), first, count),         block.inputValue(attrObserverSpeed(), first, count),
                       block.inputValue(attrWaveDirSpread(), first, count),  block.inputValue(attrNumFrequencies(), first, count),
                       block.inputValue(attrWaveLengthMin(), first, count),  block.inputValue(attrWaveLengthMax(), first, count)};
    TdataHandle emission = block.inputValue(attrFoamEmission(), first, count);
    TdataHandle threshold = block.inputValue(attrFoamThreshold(), first, count);
    TdataHandle mode = block.inputValue(attrColorMode(), first, count);
    TdataHandle foamOut = block.outputValue(attrOutFoam(), first, count);
    ToceanWaves waves;
    Ttx2dBatch<0> batch(first, count, this);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float p = uv.asFloat2(i);
        if (isOutsideUv(p)) {
            batch.setOutside(i, fallback.asFloat3(i));
            foamOut.asFloat(i) = 0.0f;
            continue;
        }
        ToceanParams params{h[0].asFloat(i), h[1].asFloat(i), h[2].asFloat2(i), h[3].asFloat(i),
                            h[4].asFloat(i), h[5].asFloat(i), h[6].asFloat(i),  h[7].asFloat(i)};
        // Built once for a batch whose values are shared, as they mostly are.
        if (!waves.valid || !(waves.params == params)) waves.build(params, heightCurve, turbulenceCurve, peakingCurve);
        float h01 = (waves.height(p.x, p.y) + 1.0f) * 0.5f;
        float foam = ToceanWaves::foam(h01, emission.asFloat(i), threshold.asFloat(i));
        foamOut.asFloat(i) = foam;
        float shown = sShown(mode.asShort(i), h01, foam);
        batch.setOwn(i, T3Float(shown, shown, shown), shown);
    }
    block.setClean(attrOutFoam());
    batch.finish(block, nullptr, attrOutColor(), attrOutAlpha());
    return true;
}
