#include "textures/wood.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "shading/network_analysis.h"
#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnWood)

namespace {
constexpr float kRingScale = 512.0f;
// The state srand48(1) sets: 0x330E in the low word, the seed above it.
constexpr unsigned short kSeed[3] = {0x330E, 1, 0};
}  // namespace

TdnVSWood::TdnVSWood() {
    fillerColor.setDefault(0.824f, 0.824f, 0.824f);
    veinColor.setDefault(0.157f, 0.157f, 0.157f);
    veinSpread.setNativeDefaultData(0.25);
    veinSpread.setSoftMax(3);
    layerSize.setNativeDefaultData(0.05);
    layerSize.setSoftMin(0.005);
    layerSize.setSoftMax(0.5);
    randomness.setNativeDefaultData(0.5);
    randomness.setSoftMin(0);
    randomness.setSoftMax(1);
    age.setNativeDefaultData(20.0);
    age.setSoftMax(100);
    grainColor.setDefault(0.118f, 0.118f, 0.118f);
    grainContrast.setNativeDefaultData(0.5);
    grainContrast.setSoftMin(0);
    grainContrast.setSoftMax(1);
    grainSpacing.setNativeDefaultData(0.01);
    grainSpacing.setSoftMax(0.1);
    center.setDefault(0.5f, 0.5f);
    ratio.setNativeDefaultData(0.35);
    ratio.setSoftMin(0);
    ratio.setSoftMax(1);
}

bool TdnVSWood::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&fillerColor.whole, &veinColor.whole, &veinSpread, &layerSize, &randomness, &age,
                                  &grainColor.whole, &grainContrast, &grainSpacing, &center.whole, &amplitudeX, &amplitudeY,
                                  &ratio, &octave.ripples.whole, &octave.depth.whole});
    return true;
}

void TwoodTables::build(const TwoodTableParams& p) {
    float ls = std::max(p.layerSize, 0.005f);
    float age = std::max(p.age, 1e-06f);
    rings = std::min(int(10.0f / ls), kMaxRings);
    std::memcpy(state, kSeed, sizeof state);
    start[0] = 0.0f;
    end[0] = 0.001f;
    ls *= kRingScale;
    for (int i = 1; i <= rings; ++i) {
        float t = (1.0f + float(Tnoise::erand48_r(state)) * p.randomness) * ls * (1.0f - std::exp(-float(i) / age));
        if (std::fabs(t) <= 1e-05f) t = 0.001f;
        start[i] = end[i - 1];
        end[i] = end[i - 1] + t;
    }
    // The grain: one dot in each cell of an m by m grid, spread bilinearly
    // over the four texels about it.
    std::fill(std::begin(grain), std::end(grain), 0.0f);
    float s = std::max(p.grainSpacing, 0.0f);
    int m = std::min(int(1.0f / std::max(s, 1e-05f)), kGrainSide);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < m; ++j) {
            float x = (float(Tnoise::erand48_r(state)) + float(i)) * float(kGrainSide) / float(m);
            float y = (float(Tnoise::erand48_r(state)) + float(j)) * float(kGrainSide) / float(m);
            int ix = int(x), iy = int(y);
            if (ix < 0 || iy < 0 || ix > kGrainSide - 2 || iy > kGrainSide - 2) continue;
            float fx = x - float(ix), fy = y - float(iy);
            float* row0 = grain + iy * kGrainSide + ix;
            float* row1 = row0 + kGrainSide;
            row0[0] = std::min(row0[0] + (1 - fx) * (1 - fy), 1.0f);
            row0[1] = std::min(row0[1] + fx * (1 - fy), 1.0f);
            row1[0] = std::min(row1[0] + (1 - fx) * fy, 1.0f);
            row1[1] = std::min(row1[1] + fx * fy, 1.0f);
        }
}

float TwoodTables::grainAt(float x, float y) const {
    if (!(x >= 0.0f && y >= 0.0f)) return 0.0f;
    int ix = int(x), iy = int(y);
    if (ix > kGrainSide - 2 || iy > kGrainSide - 2) return 0.0f;
    float fx = x - float(ix), fy = y - float(iy);
    const float* row0 = grain + iy * kGrainSide + ix;
    const float* row1 = row0 + kGrainSide;
    return (row0[0] * (1 - fx) + row0[1] * fx) * (1 - fy) + (row1[0] * (1 - fx) + row1[1] * fx) * fy;
}

int TwoodTables::ringAt(float k, int hint) const {
    int j = std::clamp(hint, 0, rings);
    // Back up when k lies below the hint's ring, then walk outwards; the
    // last ring takes every radius beyond the table.
    while (j > 0 && end[j - 1] >= k) --j;
    while (j < rings && end[j] < k) ++j;
    return j;
}

void TdnWood::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrFillerColor());
    description->markLazyInput(attrVeinColor());
    description->markLazyInput(attrGrainColor());
}

void TdnWood::shadingNodeInit(TframeSampleData* data) {
    TdnTx3D::shadingNodeInit(data);
    if (!fTables) fTables = std::make_unique<TwoodTables>();
}

void TdnWood::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TdnTx3D::shadingNodeOnDemand(plug, block);
    // A pull outside a render has had no init.
    if (!fTables) fTables = std::make_unique<TwoodTables>();
    unsigned i = block.currentIndex();
    TwoodTableParams p{block.inputValue(attrLayerSize(), i, 1).asFloat(i), block.inputValue(attrRandomness(), i, 1).asFloat(i),
                       block.inputValue(attrAge(), i, 1).asFloat(i), block.inputValue(attrGrainSpacing(), i, 1).asFloat(i)};
    fTables->build(p);
}

TwoodWeights TdnWood::sWeights(const TwoodTables& t, const TwoodParams& m, const T3Float& p, float w) {
    float x = p.x, y = p.y;
    if (m.amplitudeX != 0.0f || m.amplitudeY != 0.0f) {
        float levels = sLevels(w, m.depth);
        T3Float q = p * 0.03125f;
        float shape = 1.0f - m.ratio * m.ratio;
        x += m.amplitudeX * sFractalSum(q, levels, m.ratio, m.ripples, T3Float(), T3Float()) * shape;
        y += m.amplitudeY * sFractalSum(q, levels, m.ratio, m.ripples, T3Float(0.5f, 0.5f, 0.5f), T3Float()) * shape;
    }
    x -= std::floor(x);
    y -= std::floor(y);
    float fs = std::clamp(w * 0.1f * kRingScale, 0.0f, 2.0f);
    float r = std::sqrt((x - m.center.x) * (x - m.center.x) + (y - m.center.y) * (y - m.center.y)) * kRingScale;
    // Radii beyond the last index read the last entry.
    const float last = float(kLastRingIndex);
    int lo = int(std::clamp(r - fs, 0.0f, last)), hi = int(std::clamp(r + fs, float(lo), last));
    float d = std::max(m.veinSpread, 0.01f);
    float filler = 0.0f;
    int ring = 0;
    for (int k = lo; k <= hi; ++k) {
        ring = t.ringAt(float(k), ring);
        float s = t.start[ring], e = t.end[ring];
        filler += std::exp(-((float(k) - s) / (e - s)) / d);
    }
    filler /= float(hi - lo + 1);
    float g = t.grainAt(255.0f * x, 255.0f * y) * m.grainContrast;
    return {filler * (1.0f - g), (1.0f - filler) * (1.0f - g), g};
}

bool TdnWood::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    ensureOnDemand(const_cast<Tplug&>(plug), block);
    if (!fTables) return false;
    TdataHandle h[] = {block.inputValue(attrVeinSpread(), first, count), block.inputValue(attrGrainContrast(), first, count),
                       block.inputValue(attrCenter(), first, count),     block.inputValue(attrAmplitudeX(), first, count),
                       block.inputValue(attrAmplitudeY(), first, count), block.inputValue(attrRatio(), first, count),
                       block.inputValue(attrRipples(), first, count),    block.inputValue(attrDepth(), first, count)};
    TdataHandle normal = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle pixelAngle = block.inputValue(attrXPixelAngle(), first, count);
    Ttx3dBatch<3> batch(block, first, count, attrRefPointObj(), attrRefPointCamera(), *this);
    for (unsigned i = first; i < first + count; ++i) {
        T3Float p;
        if (!batch.begin(i, p)) continue;
        TwoodParams m;
        m.veinSpread = h[0].asFloat(i);
        m.grainContrast = h[1].asFloat(i);
        m.center = h[2].asFloat2(i);
        m.amplitudeX = h[3].asFloat(i);
        m.amplitudeY = h[4].asFloat(i);
        m.ratio = h[5].asFloat(i);
        m.ripples = h[6].asFloat3(i);
        m.depth = h[7].asFloat2(i);
        TwoodWeights wts = sWeights(*fTables, m, p, batch.pixelFootprint(i, normal.asFloat3(i), pixelAngle.asFloat(i)));
        batch.setWeight(0, i, wts.filler);
        batch.setWeight(1, i, wts.vein);
        batch.setWeight(2, i, wts.grain);
        batch.setOwn(i, T3Float(), 0.0f);
    }
    const Tattribute* inputs[] = {&attrFillerColor(), &attrVeinColor(), &attrGrainColor()};
    batch.finish(block, inputs, attrOutColor(), attrOutAlpha(), true);
    return true;
}
