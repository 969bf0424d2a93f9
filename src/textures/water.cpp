#include "textures/water.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnWater)

namespace {
constexpr float kTwoPi = 6.2831855f;
// Directions fan out at most this far (radians) either side of the wind.
constexpr float kDirectionSpread = 0.7853982f;
// A wave below this fraction of the strongest is dropped by the fast form.
constexpr float kFastCutoff = 1e-3f;
}  // namespace

TdnVSWater::TdnVSWater() {
    numberOfWaves.setNativeDefaultData(8.0);
    numberOfWaves.setSoftMin(0);
    numberOfWaves.setSoftMax(32);
    waveVelocity.setNativeDefaultData(1.0);
    waveAmplitude.setNativeDefaultData(0.05);
    waveFrequency.setNativeDefaultData(4.0);
    waveFrequency.setSoftMax(20);
    subWaveFrequency.setNativeDefaultData(0.125);
    smoothness.setNativeDefaultData(2.0);
    smoothness.setSoftMax(5);
    windUV.setNativeDefaultData(1.0f, 1.0f);
    rippleFrequency.setNativeDefaultData(25.0);
    rippleAmplitude.setNativeDefaultData(0.05);
    dropSize.setNativeDefaultData(0.3);
    rippleOrigin.setNativeDefaultData(0.5f, 0.5f);
    groupVelocity.setNativeDefaultData(1.0);
    groupVelocity.setSoftMax(10);
    phaseVelocity.setNativeDefaultData(2.5);
    phaseVelocity.setSoftMax(10);
    spreadStart.setNativeDefaultData(0.005);
    spreadRate.setNativeDefaultData(0.3);
    boxMax.setNativeDefaultData(1.0f, 1.0f);
    fast.setNativeDefaultData(1.0);
}

bool TdnVSWater::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    TdnVSTx2D::affectsOutputs(m, {&numberOfWaves, &waveTime, &waveVelocity, &waveAmplitude, &waveFrequency, &subWaveFrequency,
                                  &smoothness, &windUV, &rippleTime, &rippleFrequency, &rippleAmplitude, &dropSize,
                                  &rippleOrigin, &groupVelocity, &phaseVelocity, &spreadStart, &spreadRate, &reflectionBox,
                                  &boxMin, &boxMax, &fast});
    return true;
}

void TdnWater::sMakeWaveList(const TwaveListKey& key, TwaveList& list) {
    list.key = key;
    list.count = 0;
    list.valid = true;
    unsigned n = unsigned(std::clamp<int>(key.count, 0, int(TwaveList::kMaxWaves)));
    float windAngle = (key.wind.x == 0.0f && key.wind.y == 0.0f) ? 0.0f : std::atan2(key.wind.y, key.wind.x);
    // The same seed every time: a scene renders the same water on every
    // machine and every frame.
    int seed = Tnoise::initialSeedValue();
    float total = 0.0f, strongest = 0.0f;
    for (unsigned k = 0; k < n; ++k) {
        float angle = windAngle + (Tnoise::nFrand(seed) * 2.0f - 1.0f) * kDirectionSpread;
        // Each wave a step further up in frequency; smoothness takes the
        // amplitude of the higher ones down. A negative sub-frequency counts
        // as 0: it would bring a wave to frequency 0, of infinite amplitude.
        float step = 1.0f + float(k) * std::max(key.subFrequency, 0.0f);
        float amplitude = std::pow(step, -std::max(key.smoothness, 0.0f));
        float phase = Tnoise::nFrand(seed) * kTwoPi;
        list.direction[list.count] = T2Float{std::cos(angle), std::sin(angle)};
        list.frequency[list.count] = key.frequency * step;
        list.amplitude[list.count] = amplitude;
        list.phase[list.count] = phase;
        strongest = std::max(strongest, amplitude);
        ++list.count;
    }
    if (key.fast) {
        unsigned kept = 0;
        for (unsigned k = 0; k < list.count; ++k) {
            if (list.amplitude[k] < strongest * kFastCutoff) continue;
            list.direction[kept] = list.direction[k];
            list.frequency[kept] = list.frequency[k];
            list.amplitude[kept] = list.amplitude[k];
            list.phase[kept] = list.phase[k];
            ++kept;
        }
        list.count = kept;
    }
    for (unsigned k = 0; k < list.count; ++k) total += list.amplitude[k];
    if (total > 0.0f)
        for (unsigned k = 0; k < list.count; ++k) list.amplitude[k] /= total;
}

namespace {
// The handles of the values the wave list is made from.
struct TwaveKeyHandles {
    TdataHandle count, frequency, subFrequency, smoothness, wind, fast;
    TwaveKeyHandles(TdataBlock& block, unsigned first, unsigned n)
        : count(block.inputValue(TdnWater::saNumberOfWaves(), first, n)),
          frequency(block.inputValue(TdnWater::saWaveFrequency(), first, n)),
          subFrequency(block.inputValue(TdnWater::saSubWaveFrequency(), first, n)),
          smoothness(block.inputValue(TdnWater::saSmoothness(), first, n)),
          wind(block.inputValue(TdnWater::saWindUV(), first, n)), fast(block.inputValue(TdnWater::saFast(), first, n)) {}
    TwaveListKey at(unsigned i) const {
        TwaveListKey key;
        key.count = count.asShort(i);
        key.frequency = frequency.asFloat(i);
        key.subFrequency = subFrequency.asFloat(i);
        key.smoothness = smoothness.asFloat(i);
        key.wind = wind.asFloat2(i);
        key.fast = fast.asBool(i);
        return key;
    }
};
}  // namespace

void TdnWater::rebuildWaveList(TdataBlock& block) {
    unsigned i = block.currentIndex();
    sMakeWaveList(TwaveKeyHandles(block, i, 1).at(i), fWaves);
}

void TdnWater::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TdnTx2D::shadingNodeOnDemand(plug, block);
    rebuildWaveList(block);
}

float TdnWater::sWaves(const TwaveList& list, float u, float v, float time, float velocity) {
    float h = 0.0f, travel = time * velocity;
    for (unsigned k = 0; k < list.count; ++k) {
        float along = list.direction[k].x * u + list.direction[k].y * v - travel;
        h += list.amplitude[k] * std::sin(kTwoPi * list.frequency[k] * along + list.phase[k]);
    }
    // A phase past the float range (a UV or a time near it) has no sine: the
    // water lies calm there rather than turning NaN.
    return std::isfinite(h) ? h : 0.0f;
}

// One ring about (ox, oy).
static float sRing(const TrippleParams& p, float u, float v, float ox, float oy) {
    float du = u - ox, dv = v - oy;
    float r = std::sqrt(du * du + dv * dv);
    float centre = p.groupVelocity * p.time;
    float width = std::max(p.spreadStart + p.spreadRate * p.time, 1e-05f);
    float e = -(r - centre) * (r - centre) / width;
    if (e < -10.0f) return 0.0f;
    float phase = p.phaseVelocity * p.time;
    // The ring's energy spreads as it travels: a bigger drop keeps its
    // height further out.
    float fade = p.dropSize / (p.dropSize + std::max(centre, 0.0f));
    return p.amplitude * fade * std::exp(e) * std::cos((r * p.frequency - phase) * kTwoPi);
}

float TdnWater::sRipple(const TrippleParams& p, float u, float v) {
    if (p.dropSize <= 0.0f || p.amplitude == 0.0f) return 0.0f;
    if (!p.reflectionBox) return sRing(p, u, v, p.origin.x, p.origin.y);
    // The drop and its mirror images in the four walls and the four corners.
    float xs[3] = {p.origin.x, 2.0f * p.boxMin.x - p.origin.x, 2.0f * p.boxMax.x - p.origin.x};
    float ys[3] = {p.origin.y, 2.0f * p.boxMin.y - p.origin.y, 2.0f * p.boxMax.y - p.origin.y};
    float h = 0.0f;
    for (float x : xs)
        for (float y : ys) h += sRing(p, u, v, x, y);
    return h;
}

bool TdnWater::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    ensureOnDemand(const_cast<Tplug&>(plug), block);
    TdataHandle waveTime = block.inputValue(attrWaveTime(), first, count);
    TdataHandle waveVelocity = block.inputValue(attrWaveVelocity(), first, count);
    TdataHandle waveAmplitude = block.inputValue(attrWaveAmplitude(), first, count);
    TdataHandle h[] = {block.inputValue(attrRippleTime(), first, count),     block.inputValue(attrRippleFrequency(), first, count),
                       block.inputValue(attrRippleAmplitude(), first, count), block.inputValue(attrDropSize(), first, count),
                       block.inputValue(attrRippleOrigin(), first, count),    block.inputValue(attrGroupVelocity(), first, count),
                       block.inputValue(attrPhaseVelocity(), first, count),   block.inputValue(attrSpreadStart(), first, count),
                       block.inputValue(attrSpreadRate(), first, count),      block.inputValue(attrReflectionBox(), first, count),
                       block.inputValue(attrBoxMin(), first, count),          block.inputValue(attrBoxMax(), first, count)};
    // A sample whose list differs from the node's (an edit since the
    // render began, or values that vary by sample) gets its own, made here.
    TwaveKeyHandles keys(block, first, count);
    TwaveList local;
    computeValueTexture(*this, block, first, count, [&](unsigned i, T2Float uv) {
        TwaveListKey key = keys.at(i);
        const TwaveList* list = &fWaves;
        if (!fWaves.valid || !(fWaves.key == key)) {
            if (!local.valid || !(local.key == key)) sMakeWaveList(key, local);
            list = &local;
        }
        TrippleParams p{h[0].asFloat(i),  h[1].asFloat(i), h[2].asFloat(i), h[3].asFloat(i),  h[4].asFloat2(i), h[5].asFloat(i),
                        h[6].asFloat(i),  h[7].asFloat(i), h[8].asFloat(i), h[9].asBool(i),   h[10].asFloat2(i), h[11].asFloat2(i)};
        float height = waveAmplitude.asFloat(i) * sWaves(*list, uv.x, uv.y, waveTime.asFloat(i), waveVelocity.asFloat(i)) +
                       sRipple(p, uv.x, uv.y);
        return 0.5f - height;
    });
    return true;
}
