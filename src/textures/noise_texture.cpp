#include "textures/noise_texture.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/billow_texture.h"
#include "textures/noise/cos_texture.h"
#include "textures/noise/perlin_texture.h"

SN_REGISTER_NODE_CLASS(TdnNoise)

TnoiseAttributes::TnoiseAttributes(const char* waveLabel) {
    amplitude.setNativeDefaultData(1.0);
    amplitude.setSoftMin(0);
    amplitude.setSoftMax(1);
    ratio.setNativeDefaultData(0.707);
    ratio.setSoftMin(0);
    ratio.setSoftMax(1);
    depthMax.setNativeDefaultData(3.0);
    depthMax.setSoftMin(1);
    depthMax.setSoftMax(8);
    frequency.setNativeDefaultData(8.0);
    frequency.setSoftMin(0);
    frequency.setSoftMax(100);
    frequencyRatio.setNativeDefaultData(2.0);
    frequencyRatio.setSoftMin(1);
    frequencyRatio.setSoftMax(10);
    time.setSoftMin(0);
    time.setSoftMax(1);
    const char* types[] = {"Perlin Noise", "Billow", waveLabel, "Wispy", "SpaceTime"};
    const char* typeKeys[] = {"kPerlinNoise", "kBillow", "kWave", "kWispy", "kSpaceTime"};
    for (short i = 0; i < 5; ++i) noiseType.addField(typeKeys[i], types[i], i);
    noiseType.setNativeDefaultData(1.0);
    density.setNativeDefaultData(1.0);
    spottyness.setNativeDefaultData(0.1);
    randomness.setNativeDefaultData(1.0);
    const char* falloffs[] = {"Linear", "Smooth", "Fast", "Bubble"};
    const char* falloffKeys[] = {"kLinear", "kSmooth", "kFast", "kBubble"};
    for (short i = 0; i < 4; ++i) falloff.addField(falloffKeys[i], falloffs[i], i);
    falloff.setNativeDefaultData(2.0);
    numWaves.setNativeDefaultData(5.0);
    numWaves.setSoftMin(1);
    numWaves.setSoftMax(20);
    implode.setSoftMin(-1);
    implode.setSoftMax(1);
}

TnoiseParamHandles::TnoiseParamHandles(TdataBlock& block, const TnoiseAttributes& a, unsigned first, unsigned count)
    : amplitude(block.inputValue(a.amplitude, first, count)), ratio(block.inputValue(a.ratio, first, count)),
      threshold(block.inputValue(a.threshold, first, count)), depthMax(block.inputValue(a.depthMax, first, count)),
      frequency(block.inputValue(a.frequency, first, count)), frequencyRatio(block.inputValue(a.frequencyRatio, first, count)),
      inflection(block.inputValue(a.inflection, first, count)), time(block.inputValue(a.time, first, count)),
      noiseType(block.inputValue(a.noiseType, first, count)), density(block.inputValue(a.density, first, count)),
      spottyness(block.inputValue(a.spottyness, first, count)), sizeRand(block.inputValue(a.sizeRand, first, count)),
      randomness(block.inputValue(a.randomness, first, count)), falloff(block.inputValue(a.falloff, first, count)),
      numWaves(block.inputValue(a.numWaves, first, count)), implode(block.inputValue(a.implode, first, count)) {}

void TnoiseParamHandles::read(unsigned i, TnoiseParams& p) const {
    p.amplitude = amplitude.asFloat(i);
    p.ratio = ratio.asFloat(i);
    p.threshold = threshold.asFloat(i);
    p.depthMax = depthMax.asShort(i);
    p.frequency = frequency.asFloat(i);
    p.frequencyRatio = frequencyRatio.asFloat(i);
    p.inflection = inflection.asBool(i);
    p.time = time.asFloat(i);
    p.noiseType = noiseType.asShort(i);
    p.density = density.asFloat(i);
    p.spottyness = spottyness.asFloat(i);
    p.sizeRand = sizeRand.asFloat(i);
    p.randomness = randomness.asFloat(i);
    p.falloff = falloff.asShort(i);
    p.numWaves = numWaves.asShort(i);
    p.implode = implode.asFloat(i);
}

TdnVSNoise::TdnVSNoise() { implodeCenter.setNativeDefaultData(0.5f, 0.5f); }

bool TdnVSNoise::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    for (const Tattribute* a : noise.all()) TdnVSTx2D::affectsOutputs(m, {a});
    TdnVSTx2D::affectsOutputs(m, {&implodeCenter});
    return true;
}

// The fields every noise object shares.
static void sSetCommon(TvolumeTexture& t, const TnoiseParams& p) {
    t.setGain(p.amplitude);
    t.setAmpRatio(p.ratio);
    t.setThreshold(p.threshold);
    t.setHarmonics(std::clamp<short>(p.depthMax, 1, TdnNoise::kMaxDepth));
    // The object divides its frequency into successive octaves by the ratio.
    t.setRatio(p.frequencyRatio != 0.0f ? 1.0f / p.frequencyRatio : 0.0f);
    // The UV times the frequency; a frequency of 0 reads one point.
    t.setFrequency(p.frequency);
    t.setAbsolute(p.inflection);
    t.setImplode(p.implode);
}

float TdnNoise::sBillowMean(float density, float randomness, short falloff) {
    // One blob per grid cell, reaching d2 < 1 with d2 = r^2 * 2 / s, covers
    // pi * s / 2 cells; the mean of the sum is that area times the falloff's
    // average over d2 in [0, 1) (the size and spot factors average to 1).
    static constexpr float kFalloffMean[] = {1.0f / 3.0f, 0.3f, 0.5f, 0.5f};
    const float s = std::min(density, 2.0f - randomness);
    return float(M_PI) * 0.5f * s * kFalloffMean[std::clamp<short>(falloff, 0, 3)];
}

float TdnNoise::sValue(const TnoiseParams& p, float u, float v) {
    return std::max(0.0f, sRawValue(p, u, v));
}

float TdnNoise::sRawValue(const TnoiseParams& p, float u, float v) {
    return sEvaluate(p, false, T3Float(u, v, 0.0f), T3Float(p.implodeCenter.x, p.implodeCenter.y, 0.0f));
}

float TdnNoise::sSolidValue(const TnoiseParams& p, const T3Float& point, const T3Float& implodeCenter) {
    return std::max(0.0f, sEvaluate(p, true, point, implodeCenter));
}

float TdnNoise::sEvaluate(const TnoiseParams& p, bool solid, const T3Float& q, const T3Float& implodeCenter) {
    // The solid form reads every type in three dimensions; the flat form
    // reads the plane, except the wispy smear, which only exists in space.
    auto read = [&](const TvolumeTexture& t) { return solid ? t.getValue(q.x, q.y, q.z, p.time) : t.getValue2(q.x, q.y, p.time); };
    switch (p.noiseType) {
        case kBillow: {
            TbillowTexture t;
            sSetCommon(t, p);
            t.setImplodeCenter(implodeCenter);
            // Overlapping blobs sum well past 1 (about 0.79 on average at the
            // defaults), which left a quarter of the texture clipped to white.
            // Scale the sum so that its mean sits at amplitude / 2, like the
            // other types, and only the densest overlaps reach 1.
            const float mean = sBillowMean(p.density, p.randomness, p.falloff);
            if (mean > kMinBillowMean) t.setGain(p.amplitude * 0.5f / mean);
            t.setDensity(p.density);
            t.setSpottyness(p.spottyness);
            t.setSizeRand(p.sizeRand);
            t.setRandomness(p.randomness);
            t.setFalloff(TbillowTexture::FalloffType(std::clamp<short>(p.falloff, 0, 3)));
            return read(t);
        }
        case kWave: {
            TcosTexture t;
            sSetCommon(t, p);
            t.setImplodeCenter(implodeCenter);
            t.setNWaves(std::max<short>(p.numWaves, 1));
            return read(t);
        }
        default: {
            TperlinTexture t;
            sSetCommon(t, p);
            t.setImplodeCenter(implodeCenter);
            // Space-time runs through the time cells instead of sliding.
            // Wispy drags each octave along its own direction, which only
            // the solid form does: the flat texture reads it in the plane
            // z = 0.
            t.setAnimated(p.noiseType == kSpaceTime);
            if (p.noiseType == kWispy) {
                t.setDoSmear(true);
                return t.getValue(q.x, q.y, solid ? q.z : 0.0f, p.time);
            }
            return read(t);
        }
    }
}

bool TdnNoise::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx2D::vectorComputePlug(plug, block, first, count);
    TnoiseParamHandles params(block, fsVs->noise, first, count);
    TdataHandle centre = block.inputValue(attrImplodeCenter(), first, count);
    computeValueTexture(*this, block, first, count, [&](unsigned i, T2Float uv) {
        TnoiseParams p;
        params.read(i, p);
        p.implodeCenter = centre.asFloat2(i);
        return sValue(p, uv.x, uv.y);
    });
    return true;
}
